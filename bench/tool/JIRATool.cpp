// A JIRA refresh end to end against a loopback fake server: the
// connection probe, the projects, every page of the issue search (the
// server's classic startAt paging, 999 issues a page), and the merge of the
// fetched tree. Prints "name=value" lines for bench/run_all.py.
//
//   norvo_bench_jira [issues, default 20000]

#include <httplib.h>
#include <stdlib.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "../BenchmarkHome.h"
#include "ZVDownloadCenter.h"
#include "ZVFileKeychain.h"
#include "ZVKeychainAccess.h"
#include "ZVPreferences.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/sync/ZVIntegrationSyncHelper.h"

namespace {

constexpr int projectCount = 25;

std::string projectKey(int index) { return "PRJ" + std::to_string(index); }

// One issue as a Data Center server sends it, with the fields that a real
// reply carries besides the three that are read.
std::string issueJSON(const std::string& base, int number) {
    const std::string key = projectKey(number % projectCount);
    const std::string id = std::to_string(10000 + number);
    return R"({"expand":"operations,versionedRepresentations,editmeta,changelog,renderedFields","id":")" + id +
           R"(","self":")" + base + "/rest/api/2/issue/" + id + R"(","key":")" + key + "-" + std::to_string(number) +
           R"(","fields":{"summary":"Überprüfung \"Kasse\" & <Formular> )" + std::to_string(number) +
           R"(","issuetype":{"self":")" + base + R"(/rest/api/2/issuetype/1","id":"1","name":"Bug","subtask":false},)" +
           R"("project":{"self":")" + base + "/rest/api/2/project/" + key + R"(","id":")" +
           std::to_string(number % projectCount) + R"(","key":")" + key + R"(","name":"Project )" + key +
           R"(","projectTypeKey":"software"},"status":{"name":"In Progress","id":"3"},)" +
           R"("assignee":{"name":"jdoe","displayName":"Jane Doe","active":true},"updated":"2024-05-01T10:00:00.000+0000"}})";
}

}  // namespace

int main(int argc, char** argv) {
    const int issueCount = argc > 1 ? std::atoi(argv[1]) : 20000;
    BenchmarkHome home;
    ZVFileKeychain keychain(home.root + "/keychain");
    ZVKeychainAccess::install(&keychain);

    httplib::Server server;
    const int port = server.bind_to_any_port("127.0.0.1");
    const std::string base = "http://127.0.0.1:" + std::to_string(port);
    std::string projects = "[";
    for (int index = 0; index < projectCount; ++index) {
        if (index) projects += ",";
        projects += R"({"self":")" + base + "/rest/api/2/project/" + projectKey(index) + R"(","id":")" +
                    std::to_string(index) + R"(","key":")" + projectKey(index) + R"(","name":"Project )" +
                    projectKey(index) + R"(","projectTypeKey":"software"})";
    }
    projects += "]";
    // The media type as a Data Center server gives it; the fake server then
    // leaves the body uncompressed, so that its own work does not count.
    int pages = 0;
    server.Get("/rest/api/latest/project", [&](const httplib::Request&, httplib::Response& response) {
        response.set_content(projects, "application/json;charset=UTF-8");
    });
    server.Get("/rest/api/latest/search.json", [&](const httplib::Request& request, httplib::Response& response) {
        const int startAt = std::atoi(request.get_param_value("startAt").c_str());
        const int maxResults = std::atoi(request.get_param_value("maxResults").c_str());
        const int end = std::min(issueCount, startAt + maxResults);
        std::string body = R"({"expand":"schema,names","startAt":)" + std::to_string(startAt) +
                           R"(,"maxResults":)" + std::to_string(maxResults) + R"(,"total":)" +
                           std::to_string(issueCount) + R"(,"issues":[)";
        for (int number = startAt; number < end; ++number) {
            if (number > startAt) body += ",";
            body += issueJSON(base, number);
        }
        body += "]}";
        ++pages;
        response.set_content(body, "application/json;charset=UTF-8");
    });
    server.Get("/", [](const httplib::Request&, httplib::Response& response) { response.set_content("ok", "text/plain"); });
    std::thread serving([&] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));

    auto account = ZVIntegration::makeNew<ZVJIRAIntegration>();
    account->setAddress("127.0.0.1:" + std::to_string(port));
    account->setSSLEnabled(false);
    account->setName("JIRA");
    if (auto* credentials = dynamic_cast<ZVUsernamePasswordAuthentication*>(account->authentication().get())) {
        credentials->setUsername("jdoe");
        credentials->setPassword("secret");
        credentials->setAccountInformation(account->accountIdentifier());
        credentials->saveKeychainInformation();
    }

    // The steps of a refresh on its thread: the probe, the service's fetch
    // and the merge into the account's tree (here the first one, empty).
    const auto started = std::chrono::steady_clock::now();
    if (!ZVDownloadCenter(account.get()).sendHeadRequest(base + "/")) return 1;
    auto fetched = account->loadRemoteProjects();
    ZVIntegrationSyncHelper::ProjectList local;
    ZVIntegrationSyncHelper(account).mergeProjects(local, nullptr, fetched);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    int issues = 0;
    for (const auto& project : local) issues += static_cast<int>(project->subprojects().size());
    server.stop();
    serving.join();
    std::cout << "sync_s=" << elapsed << "\nissues=" << issues << "\npages=" << pages << "\n";
    return issues == issueCount ? 0 : 1;
}
