#include <gtest/gtest.h>

#include "core/integrations/address_based/liquidplanner/ZVLiquidPlannerIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

namespace {

using LiquidPlanner = ZVLiquidPlannerIntegration;
const std::string host = "app.liquidplanner.com";
const std::string api = "/api/v1/workspaces";

nlohmann::json item(const char* type, int id, const char* name) {
    return {{"type", type}, {"id", id}, {"name", name}};
}

nlohmann::json task(int id, const char* name, std::optional<int> projectID, bool isDone = false) {
    auto task = item("Task", id, name);
    task["is_done"] = isDone;
    // Every task sits in a folder: its parent is not its project.
    task["parent_id"] = 900;
    if (projectID) task["project_id"] = *projectID;
    return task;
}

void serveJSON(FakeServer& server, const std::string& method, const std::string& path,
               const nlohmann::json& body) {
    server.route(method, path, FakeResponse::json(body.dump()));
}

/// A list as the service gives it: a bare array of records.
void serveList(FakeServer& server, const std::string& path,
               const std::vector<nlohmann::json>& records) {
    serveJSON(server, "GET", path, nlohmann::json(records));
}

/// Two workspaces with a project of open tasks each; with a bad record, a
/// project without a name.
void serveLiquidPlanner(FakeServer& server, bool withBadRecord) {
    serveList(server, api, {item("Workspace", 10, "Acme"), item("Workspace", 11, "Side projects")});
    auto projects = nlohmann::json::array({item("Project", 100, "Website")});
    if (withBadRecord) projects.push_back({{"type", "Project"}, {"id", 102}});
    serveJSON(server, "GET", api + "/10/projects", projects);
    serveList(server, api + "/10/tasks", {task(1001, "Design", 100), task(1002, "Build", 100)});
    serveList(server, api + "/11/projects", {item("Project", 200, "Garden")});
    serveList(server, api + "/11/tasks", {task(2001, "Weeding", 200)});
    for (const char* workspace : {"/10", "/11"})
        serveList(server, api + workspace + "/activities",
                  {item("Activity", 7, "Design work"), item("Activity", 8, "Meetings")});
    serveJSON(server, "POST", api + "/10/tasks/1001/track_time",
              {{"type", "Task"}, {"id", 1001}, {"name", "Design"}, {"work", 1.5}});
}

const bool scenario = ServiceScenarios::add("Norvo.ZVLiquidPlannerIntegration", [] {
    return ServiceScenario{
        .serve = serveLiquidPlanner,
        .tree =
            "Acme [10|-|-]\n  Website [10|100|-]\n    Design [10|100|1001]\n    Build "
            "[10|100|1002]\n"
            "Side projects [11|-|-]\n  Garden [11|200|-]\n    Weeding [11|200|2001]\n",
        .posted = {.projectID = "10",
                   .subprojectID = "100",
                   .additionalID = "1001",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = api + "/10/tasks/1001/track_time",
        .postMembers = {{"comment", "Review"}, {"activity_id", "7"}, {"work", "1.5"}},
    };
});

class LiquidPlannerTests : public ServiceTestCase {
protected:
    LiquidPlannerTests() {
        redirectFixedHost(host);
        serveLiquidPlanner(server, false);
    }
    ScriptedUserInterface ui;
};

TEST_F(LiquidPlannerTests, TasksHangOnlyUnderTheirOpenProjectsAndEmptyLevelsAreLeftOut) {
    serveList(server, api + "/10/projects",
              {item("Project", 100, "Website"), item("Project", 101, "Archive")});
    serveList(server, api + "/10/tasks",
              {task(1001, "Design", 100), task(1003, "Old report", 101, true),
               task(1004, "Stray", std::nullopt), task(1005, "Moved", 555)});
    serveList(server, api + "/11/tasks", {task(2001, "Weeding", 200, true)});

    EXPECT_EQ(treeDescription(makeAccount<LiquidPlanner>()->loadRemoteProjects()),
              "Acme [10|-|-]\n  Website [10|100|-]\n    Design [10|100|1001]\n");
    for (const char* line :
         {"=== PROCESSING WORKSPACE Side projects (ID: 11) ===",
          "Skipping task Old report as it's done.", "Task Stray has no project ID ",
          "Skipping task Moved as the parent project cannot be found ",
          "Project Archive (ID: 101) has no subprojects.",
          "Project Garden (ID: 200) has no subprojects."})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(LiquidPlannerTests, EveryRequestCarriesBasicCredentialsOrTheAPITokenAsBearer) {
    const struct {
        bool usesToken;
        std::string authorization;
    } cases[] = {{false, expectedAuthorization()}, {true, "Bearer " + credentials.password}};
    for (const auto& c : cases) {
        server.clearRequests();
        auto account = makeAccount<LiquidPlanner>({{LiquidPlanner::usesAPITokenKey, c.usesToken}});
        account->postTime(
            *account->loadRemoteProjects().at(0)->subprojects().at(0)->subprojects().at(0));
        ASSERT_EQ(server.requests().size(), 7u) << requestSummary(server.requests());
        for (const auto& request : server.requests())
            EXPECT_EQ(request.header("Authorization"), c.authorization) << request.target;
    }
}

TEST_F(LiquidPlannerTests, PostingWaitsForAnActivityAndTakesOnlyATasksAnswer) {
    auto account = makeAccount<LiquidPlanner>();
    auto node = trackedProject(account, "Design", "10", "100", 1800, "Drafts, %@");
    node->setAdditionalID("1001");
    serveList(server, api + "/10/activities",
              {{{"id", 6}}, item("Activity", 7, "Design work"), item("Activity", 8, "Meetings")});

    ui.answerChoiceWith("Meetings");
    account->postTime(*node);
    EXPECT_EQ(ui.choicePrompts().at(0).choices,
              (std::vector<std::string>{"Design work", "Meetings"}));
    EXPECT_EQ(ui.choicePrompts().at(0).alert.messageText, "Please, select activity:");
    EXPECT_TRUE(log.contains("Activity dict has no name or ID {\"id\":6}"));
    EXPECT_EQ(jsonBody(server.requests(api + "/10/tasks/1001/track_time").at(0)),
              nlohmann::json::parse(
                  R"({"comment": "Drafts, 00:30:00", "activity_id": "8", "work": 0.5})"));

    server.clearRequests();
    ui.answerChoiceWith(std::nullopt);
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, "User cancelled."));
    serveList(server, api + "/10/activities", {});
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); },
                                    "No activities for workspace 10 found."));
    EXPECT_TRUE(server.requests(api + "/10/tasks/1001/track_time").empty());

    serveList(server, api + "/10/activities", {item("Activity", 7, "Design work")});
    serveJSON(server, "POST", api + "/10/tasks/1001/track_time", {{"type", "Error"}});
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*node); }));
    // A refusal names its reason in the service's error record.
    server.route(
        "POST", api + "/10/tasks/1001/track_time",
        FakeResponse::json(
            R"({"type": "Error", "error": "InvalidRecord", "message": "Activity is closed"})",
            422));
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, "Activity is closed"));
}

TEST_F(LiquidPlannerTests, AnAccountStoredUnderTheOldClassNameKeepsItsTimeAndCredentialStyle) {
    auto stored = makeAccount<LiquidPlanner>({{LiquidPlanner::usesAPITokenKey, true}});
    stored->addProject(trackedProject(stored, "Acme", "10", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDLiquidPlannerIntegration");
    const auto old = std::dynamic_pointer_cast<LiquidPlanner>(
        ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    EXPECT_TRUE(old->usesAPIToken());
    EXPECT_EQ(old->accountIdentifier(), host + "/api");
}

}  // namespace
