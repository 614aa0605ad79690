#include <gtest/gtest.h>

#include "core/integrations/address_based/attask/ZVAtTaskIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using AtTask = ZVAtTaskIntegration;
const std::string api = "/attask/api/v22.0";

nlohmann::json workItem(const char* id, const char* name, const char* projectID,
                        const char* projectName) {
    return {{"ID", id},
            {"name", name},
            {"objCode", "TASK"},
            {"status", "INP"},
            {"priority", 2},
            {"project", {{"ID", projectID}, {"name", projectName}, {"objCode", "PROJ"}}}};
}

/// Workfront's replies: a session per log-in ("s-1", "s-2", ...), a work
/// list of two projects, one hour type, an hour. With a bad record, an item
/// without its project.
void serveAtTask(FakeServer& server, bool withBadRecord) {
    auto sessions = std::make_shared<int>(0);
    server.route("POST", api + "/login", [sessions](const FakeRequest&) {
        return FakeResponse::json(nlohmann::json{
            {"data", {{"sessionID", "s-" + std::to_string(++*sessions)}, {"userID", "u-7"}}}}
                                      .dump());
    });
    server.route("GET", api + "/logout", FakeResponse::json(R"({"data": {"success": true}})"));
    nlohmann::json work{workItem("t1", "Homepage copy", "p1", "Website"),
                        workItem("t2", "Launch mail", "p1", "Website"),
                        workItem("t3", "Fix search", "p2", "Intranet")};
    if (withBadRecord) work.push_back({{"ID", "t4"}, {"name", "Orphan"}});
    server.route("GET", api + "/work/myWork",
                 FakeResponse::json(nlohmann::json{{"data", work}}.dump()));
    server.route(
        "GET", api + "/hourt/search",
        FakeResponse::json(R"({"data": [{"ID": "h1", "name": "Overhead", "objCode": "HOURT"}]})"));
    server.route("POST", api + "/hour",
                 FakeResponse::json(R"({"data": {"ID": "hr-1", "objCode": "HOUR"}})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVAtTaskIntegration", [] {
    return ServiceScenario{
        .serve = serveAtTask,
        .tree =
            "Website [p1|-|-]\n  Homepage copy [p1|t1|-]\n  Launch mail [p1|t2|-]\nIntranet "
            "[p2|-|-]\n"
            "  Fix search [p2|t3|-]\nGeneral Hours [KDAtTaskInternalGeneralHoursID|-|-]\n"
            "  Overhead [KDAtTaskInternalGeneralHoursID|h1|-]\n",
        .posted = {.projectID = "p1", .subprojectID = "t1", .seconds = 5400, .title = "Review"},
        .postPath = api + "/hour",
        .postMembers = {{"taskID", "t1"}, {"hours", "1.50"}, {"description", "Review"}},
        .settings = {{AtTask::synchronizeAllTasksKey, false}},
    };
});

class AtTaskTests : public ServiceTestCase {
protected:
    std::string calls() const {
        std::string text;
        for (const auto& request : server.requests())
            text += request.path.substr(api.size() + 1) + "(" + request.header("SessionID") +
                    request.queryValue("sessionID") + ") ";
        return text;
    }
};

TEST_F(AtTaskTests, EachPostSignsOutTheSessionBeforeAndASynchronizationSignsOutAtItsEnd) {
    serveAtTask(server, false);
    credentials.username = "ada & co@example.com";
    auto account = makeAccount<AtTask>();
    auto node = trackedProject(account, "Homepage copy", "p1", "t1", 90, "Copy & paste");
    account->postTime(*node);
    account->postTime(*node);
    // The session travels in the header, and in the address of a write.
    EXPECT_EQ(calls(), "login() hour(s-1s-1) logout(s-1) login() hour(s-2s-2) ");
    const auto login = server.requests(api + "/login").at(0);
    EXPECT_EQ(login.queryValue("username"), "ada & co@example.com");
    EXPECT_EQ(login.queryValue("password"), credentials.password);
    const auto hour = server.requests(api + "/hour").back();
    EXPECT_NE(hour.target.find("description=Copy%20%26%20paste"), std::string::npos) << hour.target;
    EXPECT_EQ(hour.queryValue("hours"), "0.03");

    server.clearRequests();
    account->loadRemoteProjects();
    EXPECT_EQ(calls(), "logout(s-2) login() work/myWork(s-3) logout(s-3) ");
}

TEST_F(AtTaskTests, TheGeneralHoursBranchComesOnlyInTheAssignedModeAndWithHourTypes) {
    serveAtTask(server, false);
    EXPECT_TRUE(ZVIntegration::makeNew<AtTask>()->synchronizesAllTasks());
    // An account stored under the old class name and without the key.
    auto stored = makeAccount<AtTask>();
    stored->addProject(trackedProject(stored, "Website", "p1", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary.erase(AtTask::synchronizeAllTasksKey);
    dictionary["KDIntegrationClass"] = std::string("KDAtTaskIntegration");
    const auto old =
        std::dynamic_pointer_cast<AtTask>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_FALSE(old->synchronizesAllTasks());
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    const struct {
        bool allTasks;
        const char* hourTypes;
        bool asksForHourTypes;
        bool hasBranch;
    } cases[] = {
        {true, R"({"data": [{"ID": "h1", "name": "Overhead"}]})", false, false},
        {false, R"({"data": []})", true, false},
        {false, R"({"data": [{"ID": "h1", "name": "Overhead"}, {"name": "No id"}]})", true, true}};
    for (const auto& c : cases) {
        server.clearRequests();
        server.route("GET", api + "/hourt/search", FakeResponse::json(c.hourTypes));
        const auto tree = makeAccount<AtTask>({{AtTask::synchronizeAllTasksKey, c.allTasks}})
                              ->loadRemoteProjects();
        EXPECT_EQ(!server.requests(api + "/hourt/search").empty(), c.asksForHourTypes)
            << c.hourTypes;
        EXPECT_EQ(tree.back()->name() == "General Hours", c.hasBranch) << c.hourTypes;
    }
    EXPECT_TRUE(log.contains("genHourDict is missing name or ID: "));

    // A general hour is logged by its hour type, on no task.
    auto account = makeAccount<AtTask>();
    account->postTime(*trackedProject(account, "Overhead", AtTask::generalHoursID, "h1", 3600));
    const auto hour = server.requests(api + "/hour").back();
    EXPECT_EQ(hour.queryValue("hourTypeID"), "h1");
    EXPECT_EQ(hour.queryValue("taskID"), "");
}

TEST_F(AtTaskTests, AnUnreadableWorkListIsAnEmptyTreeAndASignInWithoutSessionFails) {
    serveAtTask(server, false);
    auto account = makeAccount<AtTask>();
    server.route("GET", api + "/work/myWork",
                 FakeResponse::json(R"({"error": {"message": "busy"}})"));
    EXPECT_TRUE(account->loadRemoteProjects().empty());
    EXPECT_TRUE(log.contains("No data in "));

    const struct {
        FakeResponse reply;
        const char* reason;
    } logins[] = {
        {FakeResponse::json(R"({"data": {"userID": "u-7"}})"), "Invalid sign in response."},
        {FakeResponse::text("<html>Maintenance</html>"), "Cannot sign in."}};
    for (const auto& login : logins) {
        server.route("POST", api + "/login", login.reply);
        EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, login.reason));
    }
}

TEST_F(AtTaskTests, AnAPIKeyGoesInEveryAddressWithoutASessionAndTheWorkListPages) {
    serveAtTask(server, false);
    server.route("GET", api + "/work/myWork", [](const FakeRequest& request) {
        const int first = std::stoi(request.queryValue("$$FIRST"));
        nlohmann::json page = nlohmann::json::array();
        for (int n = first; n < std::min(first + 2000, 2500); ++n)
            page.push_back(workItem(("t" + std::to_string(n)).c_str(), "Task", "p1", "Website"));
        return FakeResponse::json(nlohmann::json{{"data", page}}.dump());
    });
    auto account = makeAccount<AtTask>();
    auto task = trackedProject(account, "Task", "p1", "t1", 60);
    account->postTime(*task);
    // The session of the post is not signed out with the key.
    account->setSettingValue(AtTask::usesAPIKeyKey, true);
    server.clearRequests();
    const auto tree = account->loadRemoteProjects();
    ASSERT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree[0]->subprojects().size(), 2500u);
    account->postTime(*task);
    EXPECT_EQ(calls(), "work/myWork() work/myWork() hour() ");
    for (const auto& request : server.requests())
        EXPECT_EQ(request.queryValue("apiKey"), credentials.password);
    EXPECT_EQ(server.requests(api + "/work/myWork").at(1).queryValue("$$FIRST"), "2000");
}

}  // namespace
