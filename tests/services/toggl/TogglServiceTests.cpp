#include <gtest/gtest.h>

#include "core/integrations/address_based/toggl/ZVTogglIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ManualClock.h"

namespace {

using Toggl = ZVTogglIntegration;
const std::string host = "api.track.toggl.com";
const std::string api = "/api/v9/";

/// A workspace, project or task as the service lists it; only tasks are ever inactive here.
nlohmann::json record(int id, const char* name, bool active = true) {
    return {{"id", id}, {"name", name}, {"active", active}};
}

/// A list as the service gives it: a bare array of records.
void serveList(FakeServer& server, const std::string& suffix,
               const std::vector<nlohmann::json>& records) {
    server.route("GET", api + suffix, FakeResponse::json(nlohmann::json(records).dump()));
}

/// Two workspaces with a project of active tasks each; with a bad record, a
/// project without a name.
void serveToggl(FakeServer& server, bool withBadRecord) {
    serveList(server, "me/workspaces", {record(10, "Acme"), record(11, "Side projects")});
    std::vector<nlohmann::json> projects{record(100, "Website")};
    if (withBadRecord) projects.push_back({{"id", 102}});
    serveList(server, "workspaces/10/projects", projects);
    serveList(server, "workspaces/10/projects/100/tasks",
              {record(1001, "Design"), record(1002, "Build")});
    serveList(server, "workspaces/11/projects", {record(200, "Garden")});
    serveList(server, "workspaces/11/projects/200/tasks", {record(2001, "Weeding")});
    server.route(
        "POST", api + "workspaces/10/time_entries",
        FakeResponse::json(R"({"id": 4242, "workspace_id": 10, "project_id": 100, "task_id": 1001,
                                        "duration": 5400, "description": "Review"})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTogglIntegration", [] {
    return ServiceScenario{
        .serve = serveToggl,
        .tree =
            "Acme [10|-|-]\n  Website [10|100|-]\n    Design [10|100|1001]\n    Build "
            "[10|100|1002]\n"
            "Side projects [11|-|-]\n  Garden [11|200|-]\n    Weeding [11|200|2001]\n",
        .posted = {.projectID = "10",
                   .subprojectID = "100",
                   .additionalID = "1001",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = api + "workspaces/10/time_entries",
        .postMembers = {{"workspace_id", "10"},
                        {"project_id", "100"},
                        {"task_id", "1001"},
                        {"duration", "5400"},
                        {"description", "Review"},
                        {"created_with", "Norvo"}},
    };
});

class TogglTests : public ServiceTestCase {
protected:
    TogglTests() {
        redirectFixedHost(host);
        serveToggl(server, false);
    }
};

TEST_F(TogglTests, ProjectsWithoutActiveTasksAndWorkspacesWithoutThemAreLeftOut) {
    serveList(server, "workspaces/10/projects", {record(100, "Website"), record(101, "Archive")});
    serveList(server, "workspaces/10/projects/100/tasks",
              {record(1001, "Design"),
               record(1003, "Old report", false),
               {{"id", 1004}, {"active", true}}});
    server.route("GET", api + "workspaces/10/projects/101/tasks", FakeResponse::json("null"));
    serveList(server, "workspaces/11/projects/200/tasks", {record(2001, "Weeding", false)});

    EXPECT_EQ(treeDescription(makeAccount<Toggl>()->loadRemoteProjects()),
              "Acme [10|-|-]\n  Website [10|100|-]\n    Design [10|100|1001]\n");
    for (const char* line : {"Missing task name or ID {\"active\":true,\"id\":1004}",
                             "Skipping project Archive since it contains no tasks.",
                             "Skipping project Garden since it contains no tasks.",
                             "Skipping workspace Side projects since it contains no projects."})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(TogglTests, AListOfAnotherShapeFailsNamingTheList) {
    const std::pair<FakeResponse, std::string> cases[] = {
        {FakeResponse::json(R"({"id": 10, "name": "Acme"})"),
         "Invalid data type received for me/workspaces"},
        {FakeResponse{200, "<html>Sign in</html>", "text/html"},
         "Invalid data received for me/workspaces."}};
    auto account = makeAccount<Toggl>();
    for (const auto& c : cases) {
        server.route("GET", api + "me/workspaces", c.first);
        EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, c.second))
            << c.first.body;
    }
    EXPECT_TRUE(log.contains("Can't cast obj to array {\"id\":10,\"name\":\"Acme\"}"));
}

TEST_F(TogglTests, ProjectsComeInFullPagesOfActiveOnesAndEveryRequestCarriesTheTokenAsUserName) {
    nlohmann::json fullPage = nlohmann::json::array();
    for (int id = 1; id <= 200; ++id) fullPage.push_back(record(3000 + id, "Bulk"));
    server.routeSequence(
        "GET", api + "workspaces/11/projects",
        {FakeResponse::json(fullPage.dump()),
         FakeResponse::json(nlohmann::json::array({record(200, "Garden")}).dump())});
    server.intercept([](const FakeRequest& request) -> std::optional<FakeResponse> {
        if (request.path.find("/projects/3") == std::string::npos) return std::nullopt;
        return FakeResponse::json("null");
    });
    const auto tree = makeAccount<Toggl>()->loadRemoteProjects();
    EXPECT_EQ(treeDescription({tree.at(1)}),
              "Side projects [11|-|-]\n  Garden [11|200|-]\n    Weeding [11|200|2001]\n");

    const auto pages = server.requests(api + "workspaces/11/projects");
    ASSERT_EQ(pages.size(), 2u) << requestSummary(server.requests());
    for (std::size_t page = 0; page < pages.size(); ++page) {
        EXPECT_EQ(pages[page].queryValue("page"), std::to_string(page + 1));
        EXPECT_EQ(pages[page].queryValue("per_page"), "200");
        EXPECT_EQ(pages[page].queryValue("active"), "true");
    }
    for (const auto& request : server.requests())
        EXPECT_EQ(request.header("Authorization"),
                  basicAuthorization(credentials.apiToken, "api_token"))
            << request.target;
}

TEST_F(TogglTests, APostStartsItsTimeAgoAndSendsTheNoteAsWritten) {
    ScopedTimeZone zone("Asia/Kolkata");
    ManualClock clock(ManualClock::date(2024, 3, 1, 9));
    const struct {
        std::optional<std::string> title;
        std::string description;
    } cases[] = {{"Calls, %@", "Calls, %@"}, {std::nullopt, ""}};
    auto account = makeAccount<Toggl>();
    for (const auto& c : cases) {
        server.clearRequests();
        auto node = trackedProject(account, "Design", "10", "100", 1800, c.title);
        node->setAdditionalID("1001");
        account->postTime(*node);
        const auto body = jsonBody(server.requests(api + "workspaces/10/time_entries").at(0));
        EXPECT_EQ(body["description"], c.description);
        EXPECT_EQ(body["start"], "2024-03-01T14:00:00+05:30");
        EXPECT_EQ(body["duration"], 1800);
    }
    // An answer without the new entry's id is no success.
    server.route("POST", api + "workspaces/10/time_entries",
                 FakeResponse::json(R"({"data": null})"));
    auto node = trackedProject(account, "Design", "10", "100", 60);
    node->setAdditionalID("1001");
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*node); }));
}

}  // namespace
