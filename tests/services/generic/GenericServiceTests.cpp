#include <gtest/gtest.h>

#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "services/kit/FakeQueryRoutes.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Generic = ZVGenericAddressBasedIntegration;

const bool scenario = ServiceScenarios::add("Norvo.ZVGenericAddressBasedIntegration", [] {
    return ServiceScenario{
        .serve =
            [](FakeServer& server, bool withBadRecord) {
                FakeQueryRoutes gets(server, "GET", "/");
                gets.add({{"action", "list_projects"}},
                         FakeResponse::json(withBadRecord ? R"({"projects": [{"id": 12, "name": "Web"}, {"id": 13},
                                                                             {"id": "ops", "name": "Ops"}]})"
                                                          : R"({"projects": [{"id": 12, "name": "Web"},
                                                                             {"id": "ops", "name": "Ops"}]})"));
                gets.add({{"action", "list_tasks_for_project"}, {"id", "12"}},
                         FakeResponse::json(R"({"tasks": [{"id": 121, "name": "Design"}]})"));
                gets.add({{"action", "list_tasks_for_project"}, {"id", "ops"}},
                         FakeResponse::json(R"({"tasks": [{"id": "ops-1", "name": "On-call"}]})"));
                FakeQueryRoutes(server, "POST", "/").add({{"action", "post_time"}}, FakeResponse::json(R"({"status": "ok"})"));
            },
        .tree = "Web [12|-|-]\n  Design [12|121|-]\nOps [ops|-|-]\n  On-call [ops|ops-1|-]\n",
        .posted = {.projectID = "12", .subprojectID = "121", .seconds = 5400, .title = "Review took %@ (twice: %@)"},
        .postPath = "/",
        .postMembers = {{"project_id", "12"},
                        {"task_id", "121"},
                        {"description", "Review took 01:30:00 (twice: 01:30:00)"},
                        {"hours", "1.5"}},
    };
});

class GenericServiceTests : public ServiceTestCase {
protected:
    /// The server of the fixtures under `path`: three projects (one without
    /// tasks) and two bad projects and a bad task beside them.
    void serveFixtures(const std::string& path = "/", const std::string& field = "action") {
        FakeQueryRoutes routes(server, "GET", path);
        routes.add({{field, "list_projects"}}, FakeResponse::json(fixture("generic/projects.json")));
        for (const std::string id : {"12", "ops", "7"})
            routes.add({{field, "list_tasks_for_project"}, {"id", id}},
                       FakeResponse::json(fixture("generic/tasks-" + id + ".json")));
    }
};

TEST_F(GenericServiceTests, SynchronizationBuildsProjectsWithTheirTasksAsTheSettingsSay) {
    const std::string full = "Website relaunch [12|-|-]\n"
                             "  Design review [12|121|-]\n"
                             "  Content migration [12|122|-]\n"
                             "Operations [ops|-|-]\n"
                             "  On-call [ops|ops-1|-]\n";
    // Without task calls the project without tasks stays.
    const std::string projectsOnly = "Website relaunch [12|-|-]\nOperations [ops|-|-]\nInternal [7|-|-]\n";
    struct Case {
        const char* name;
        ZVDictionary settings;
        std::string path, field, tree;
        std::size_t requests, skipped;
    };
    const Case cases[] = {
        {"the defaults", {}, "", "action", full, 4, 3},
        {"the alternate action field", {{Generic::usesAlternateActionFieldNameKey, true}}, "", "command", full, 4, 3},
        {"projects only", {{Generic::synchronizeProjectsOnlyKey, true}}, "", "action", projectsOnly, 1, 2},
        {"an address path", {{Generic::synchronizeProjectsOnlyKey, true}}, "/norvo", "action", projectsOnly, 1, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server.clearRequests();
        transport.clear();
        log.clear();
        serveFixtures(c.path + "/", c.field);
        auto account = makeAccount<Generic>(c.settings, c.path);
        const auto tree = account->loadRemoteProjects();
        EXPECT_EQ(treeDescription(tree), c.tree);
        EXPECT_TRUE(everyNodeBelongsTo(tree, account));
        EXPECT_EQ(server.requestCount(), c.requests) << requestSummary(server.requests());
        EXPECT_EQ(transport.URLs().front(), "http://" + serverAddress() + c.path + "/?" + c.field + "=list_projects");
        for (const auto& request : server.requests())
            EXPECT_EQ(request.query.count("action"), c.field == "action" ? 1u : 0u) << request.target;
        // Records that lack a name or an ID are skipped, the rest loads.
        EXPECT_EQ(log.count("Missing name or ID in "), c.skipped) << log.joined();
        EXPECT_EQ(log.contains("Will be loading tasks from http://" + serverAddress() + "/?" + c.field +
                               "=list_tasks_for_project&id=12"),
                  c.requests > 1);
    }
}

TEST_F(GenericServiceTests, RepliesOfTheWrongShapeEndTheWholeLoad) {
    const char* const oneProject = R"({"projects": [{"id": 5, "name": "Five"}]})";
    struct Case {
        const char* name;
        const char* projectsReply;
        const char* tasksReply;
        const char* reason;
    };
    const Case cases[] = {
        {"projects not an object", R"([{"id": 1, "name": "x"}])", "{}", "Returned object isn't a dictionary."},
        {"no projects member", R"({"project": []})", "{}", "Returned dictionary doesn't contain any projects."},
        {"projects of strings", R"({"projects": ["a", "b"]})", "{}",
         "Returned dictionary doesn't contain any projects."},
        {"projects not JSON", "<html>Login</html>", "{}", "Returned object isn't a dictionary."},
        {"tasks not an object", oneProject, R"(["task"])", "Returned tasks object isn't a dictionary."},
        // The same words as for missing projects, on purpose.
        {"no tasks member", oneProject, R"({"todo": []})", "Returned dictionary doesn't contain any projects."},
        {"tasks not JSON", oneProject, "<html>Gateway timeout</html>", "Returned tasks object isn't a dictionary."},
    };
    auto account = makeAccount<Generic>();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeQueryRoutes routes(server, "GET", "/");
        routes.add({{"action", "list_projects"}}, FakeResponse::json(c.projectsReply));
        routes.add({{"action", "list_tasks_for_project"}}, FakeResponse::json(c.tasksReply));
        EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, c.reason));
    }
}

TEST_F(GenericServiceTests, PostsTheTimeAsJSONWithDecimalHours) {
    FakeQueryRoutes posts(server, "POST", "/");
    posts.add({{"action", "post_time"}}, FakeResponse::json(fixture("generic/posted.json")));
    auto account = makeAccount<Generic>();
    account->postTime(*trackedProject(account, "Design review", "12", "121", 5400, "Review took %@ (twice: %@)"));
    ASSERT_EQ(server.requestCount(), 1u);
    const FakeRequest request = *server.lastRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(transport.URLs().front(), "http://" + serverAddress() + "/?action=post_time");
    EXPECT_EQ(request.header("Authorization"), expectedAuthorization());
    EXPECT_EQ(request.header("Accept"), "application/json");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(jsonBody(request), nlohmann::json({{"project_id", "12"},
                                                 {"task_id", "121"},
                                                 {"description", "Review took 01:30:00 (twice: 01:30:00)"},
                                                 {"hours", "1.5"}}));
    EXPECT_TRUE(log.contains("Response {\"entry\":1,\"status\":\"ok\"}")) << log.joined();
    const std::pair<std::uint64_t, const char*> hours[] = {
        {3600, "1.0"}, {900, "0.25"}, {1, "0.0002777777777777778"}};
    for (const auto& [seconds, text] : hours) {
        account->postTime(*trackedProject(account, "Task", "1", "2", seconds));
        EXPECT_EQ(jsonBody(*server.lastRequest())["hours"], text) << seconds << " seconds";
    }
    // With projects only there is no task and no description.
    auto projectsOnly = makeAccount<Generic>({{Generic::synchronizeProjectsOnlyKey, true}});
    projectsOnly->postTime(*trackedProject(projectsOnly, "Internal", "7", "ignored", 60));
    EXPECT_EQ(jsonBody(*server.lastRequest()),
              nlohmann::json({{"project_id", "7"}, {"description", ""}, {"hours", "0.016666666666666666"}}));
    const FakeResponse html{200, "<html><body>Saved</body></html>", "text/html"};
    FakeQueryRoutes(server, "POST", "/").add({{"action", "post_time"}}, html);
    auto task = trackedProject(account, "Task", "1", "2", 60, "Work");
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*task); }, "Did not receive a valid JSON response."));
}

}  // namespace
