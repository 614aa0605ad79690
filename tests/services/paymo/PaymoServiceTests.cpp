#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ctime>

#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/paymo/ZVPaymoIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Paymo = ZVPaymoIntegration;
constexpr std::int64_t v2 = static_cast<std::int64_t>(Paymo::Version::v2);

/// The seconds since the epoch of a local "2026-11-25 14:03:00".
std::time_t parsedLocalTime(const std::string& text) {
    std::tm parts{};
    strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

/// API 3 as documented: an active project with an open and a completed
/// task, an archived one, and an active one without tasks. With a bad
/// record, a project without a name.
void servePaymo(FakeServer& server, bool withBadRecord) {
    const std::string bad = withBadRecord ? R"(, {"id": 397710, "active": true})" : "";
    server.route("GET", "/api/projects",
                 FakeResponse::json(R"({"projects": [
        {"id": 397706, "name": "Website", "active": true, "client_id": 151303, "users": [23129]},
        {"id": 397707, "name": "Archive", "active": false, "client_id": 151304, "users": [23129]},
        {"id": "397709", "name": "Empty", "active": true, "client_id": 151303})" +
                                    bad + "]}"));
    server.route("GET", "/api/projects/397706", FakeResponse::json(R"({"projects": [{
        "id": 397706, "name": "Website", "active": true, "tasks": [
            {"id": 2158, "name": "Design", "project_id": 397706, "tasklist_id": 2, "complete": false},
            {"id": 3320, "name": "Testing", "project_id": 397706, "tasklist_id": 3, "complete": true}]}]})"));
    server.route("GET", "/api/projects/397709",
                 FakeResponse::json(R"({"projects": [{"id": 397709, "tasks": []}]})"));
    server.route("POST", "/api/entries",
                 FakeResponse::json(R"({"entries": [{"id": 15200864,
        "task_id": 2158, "duration": 5400, "is_bulk": true}]})",
                                    201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVPaymoIntegration", [] {
    return ServiceScenario{
        .serve = servePaymo,
        .tree = "Website [397706|-|-]\n  Design [397706|2158|-]\n",
        .posted = {.projectID = "397706",
                   .subprojectID = "2158",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = "/api/entries",
        .postMembers = {{"task_id", "2158"},
                        {"date", ZVPostingText::date(std::time(nullptr))},
                        {"duration", "5400"}},
    };
});

/// API 2 as it answered: a session token, two projects of which one is
/// retired, and the tasks of the other, one of them complete.
void serveAPI2(FakeServer& server) {
    const auto xml = [](const std::string& inner, const char* status = "ok") {
        return FakeResponse::xml(
            std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?><response status=\"") + status +
            "\">" + inner + "</response>");
    };
    server.route("GET", "/service/paymo.auth.login",
                 xml(R"(<token>ccdf3864</token><user id="1279" username="ada" realname="Ada"/>)"));
    server.route("GET", "/service/paymo.auth.logout", xml(""));
    server.route(
        "GET", "/service/paymo.projects.getList",
        xml(R"(<projects><project id="11" name="Website" retired="0"/>)"
            R"(<project id="12" name="Old site" retired="1"/><project id="13"/></projects>)"));
    server.route("GET", "/service/paymo.tasks.findByProject",
                 xml(R"(<tasks><task id="101" name="Design" complete="0"/>)"
                     R"(<task id="102" name="Launch" complete="1"/><task name="No id"/></tasks>)"));
    server.route("GET", "/service/paymo.entries.add", xml(R"(<entry id="5001"/>)"));
}

class PaymoTests : public ServiceTestCase {
protected:
    PaymoTests() {
        redirectFixedHost("app.paymoapp.com");
        redirectFixedHost("api.paymo.biz");
        transport.redirect("http://api.paymo.biz", server.baseURL());
    }

    /// An account that still has API 2, with its secrets where it keeps them.
    std::shared_ptr<Paymo> accountOfAPI2() {
        auto account = ZVIntegration::makeNew<Paymo>();
        account->setSettingValue(Paymo::versionKey, v2);
        storeCredentials(*account);
        return ZVIntegration::makeWithDictionary<Paymo>(account->dictionaryRepresentation());
    }
};

TEST_F(PaymoTests, API3LogsWhatItLeavesOutAndPostsADayAndALengthWithoutTheNote) {
    servePaymo(server, false);
    auto account = makeAccount<Paymo>();
    EXPECT_EQ(treeDescription(account->loadRemoteProjects()),
              "Website [397706|-|-]\n  Design [397706|2158|-]\n");
    for (const char* line : {"Skipping project Archive since it's not marked as active.",
                             "Skipping project Empty since it's got no tasks.",
                             "Skipping task Testing since it's marked as complete."})
        EXPECT_TRUE(log.contains(line)) << line;
    EXPECT_TRUE(server.requests("/api/projects/397707").empty());
    const auto tasks = server.requests("/api/projects/397706").at(0);
    EXPECT_EQ(tasks.queryValue("include"), "tasks");
    EXPECT_EQ(tasks.header("Accept"), "application/json");

    account->postTime(
        *trackedProject(account, "Design", "397706", "2158", 5400, "Called the client"));
    const auto post = server.requests("/api/entries").at(0);
    EXPECT_EQ(post.header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(post.body.find("description"), std::string::npos) << post.body;
    EXPECT_EQ(post.body.find("Called"), std::string::npos) << post.body;
}

TEST_F(PaymoTests, API3RepliesWithoutTheirListOrEntryAreGenericFailures) {
    servePaymo(server, false);
    server.route("POST", "/api/entries", FakeResponse::json(R"({"message": "accepted"})"));
    auto account = makeAccount<Paymo>();
    auto node = trackedProject(account, "Design", "397706", "2158", 60, "Review");
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*node); }));
    EXPECT_TRUE(log.contains("Invalid response {\"message\":\"accepted\"}"));

    server.route("GET", "/api/projects", FakeResponse::json(R"({"clients": []})"));
    try {
        account->loadRemoteProjects();
        ADD_FAILURE() << "a reply without projects loaded";
    } catch (const ZVIntegrationError& error) {
        EXPECT_EQ(error.code(), ZVIntegrationGenericErrorCode);
    }
    EXPECT_TRUE(log.contains("Invalid response {\"clients\":[]}"));
}

TEST_F(PaymoTests, API2LoadsAndPostsInASessionOfTheirOwnAndPostsOverPlainHTTP) {
    serveAPI2(server);
    auto account = accountOfAPI2();
    ASSERT_TRUE(account->isSSLEnabled());
    EXPECT_EQ(treeDescription(account->loadRemoteProjects()),
              "Website [11|-|-]\n  Design [11|101|-]\n");
    EXPECT_TRUE(log.contains("No name or ID in <project id=\"13\""));
    EXPECT_TRUE(log.contains("Missing name or ID in <task name=\"No id\""));
    EXPECT_FALSE(log.contains("Old site"));

    const auto login = server.requests("/service/paymo.auth.login").at(0);
    EXPECT_EQ(login.queryValue("api_key"), credentials.apiToken);
    EXPECT_EQ(login.queryValue("username"), credentials.username);
    EXPECT_EQ(login.queryValue("password"), credentials.password);
    EXPECT_EQ(server.requests("/service/paymo.tasks.findByProject").at(0).queryValue("project_id"),
              "11");
    EXPECT_EQ(server.requests().back().path, "/service/paymo.auth.logout");

    server.clearRequests();
    transport.clear();
    account->postTime(*trackedProject(account, "Design", "11", "101", 5400, "Review"));
    EXPECT_EQ(server.requests().front().path, "/service/paymo.auth.login");
    EXPECT_EQ(server.requests().back().path, "/service/paymo.auth.logout");
    const auto post = server.requests("/service/paymo.entries.add").at(0);
    EXPECT_EQ(post.queryValue("task_id"), "101");
    EXPECT_EQ(post.queryValue("auth_token"), "ccdf3864");
    EXPECT_EQ(post.queryValue("added_manually"), "0");
    EXPECT_EQ(post.queryValue("description"), "Review");
    EXPECT_TRUE(post.header("Authorization").empty());
    // Real stamps of a run that ends now.
    const std::time_t end = parsedLocalTime(post.queryValue("end"));
    EXPECT_EQ(end - parsedLocalTime(post.queryValue("start")), 5400);
    EXPECT_LE(std::abs(std::difftime(std::time(nullptr), end)), 60.0);
    const auto urls = transport.URLs();
    EXPECT_TRUE(std::any_of(urls.begin(), urls.end(), [](const std::string& url) {
        return url.starts_with("http://api.paymo.biz/service/paymo.entries.add?");
    }));
}

TEST_F(PaymoTests, API2FailuresGiveTheirReasonsAndEveryOpenSessionIsEnded) {
    const struct {
        const char* path;
        const char* reply;
        bool posting;
        const char* reason;  // none: the generic posting error
        const char* logLine;
        bool logsOut;
    } cases[] = {
        {"/service/paymo.auth.login", R"(<response status="fail"><error code="104"/></response>)",
         false, "Can't log in.", nullptr, false},
        {"/service/paymo.projects.getList", R"(<response status="ok"><projects/></response>)",
         false, "Paymo's response contained no projects.", "No projects - <response", true},
        {"/service/paymo.entries.add", R"(<response status="fail"><error code="105"/></response>)",
         true, nullptr, "Invalid response <response status=\"fail\">", true},
        {"/service/paymo.auth.logout", R"(<response status="fail"/>)", false, nullptr,
         "Couldn't log out. Status code: fail", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        serveAPI2(server);
        server.route("GET", c.path, FakeResponse::xml(c.reply));
        server.clearRequests();
        log.clear();
        auto account = accountOfAPI2();
        auto node = trackedProject(account, "Design", "11", "101", 60, "Review");
        const auto run = [&] {
            c.posting ? account->postTime(*node) : void(account->loadRemoteProjects());
        };
        if (!c.reason && !c.posting) {
            EXPECT_NO_THROW(run());
        } else if (c.reason) {
            EXPECT_TRUE(throwsFailureReason(run, c.reason));
        } else {
            EXPECT_TRUE(throwsGenericPostingError(run));
        }
        if (c.logLine) {
            EXPECT_TRUE(log.contains(c.logLine)) << c.logLine;
        }
        EXPECT_EQ(server.requests("/service/paymo.auth.logout").size(), c.logsOut ? 1u : 0u);
    }
}

TEST_F(PaymoTests, TheVersionDecidesHostAndSchemeAndAStoredAccountKeepsIt) {
    const struct {
        std::int64_t stored;
        const char* address;
        ZVSSLSupport SSL;
    } cases[] = {{v2, "api.paymo.biz", ZVSSLSupport::none},
                 {1, "app.paymoapp.com/api", ZVSSLSupport::mandatory},
                 {7, "app.paymoapp.com/api", ZVSSLSupport::mandatory}};
    for (const auto& c : cases) {
        auto account = makeAccount<Paymo>({{Paymo::versionKey, c.stored}});
        EXPECT_EQ(account->accountIdentifier(), c.address) << c.stored;
        EXPECT_EQ(account->SSLSupport(), c.SSL) << c.stored;
    }
    EXPECT_EQ(ZVIntegration::makeNew<Paymo>()->accountVersion(), Paymo::Version::v3);

    auto stored = accountOfAPI2();
    stored->addProject(trackedProject(stored, "Website", "11", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDPaymoIntegration");
    const auto old =
        std::dynamic_pointer_cast<Paymo>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->accountVersion(), Paymo::Version::v2);
    EXPECT_EQ(old->usernamePasswordAPITokenAuthentication().APIToken(), credentials.apiToken);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
}

}  // namespace
