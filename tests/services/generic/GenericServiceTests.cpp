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
    /// The server of the fixtures: three projects (one without tasks) and two bad records.
    void serveFixtures(FakeQueryRoutes& queryRoutes, const std::string& field = "action") {
        queryRoutes.add({{field, "list_projects"}}, FakeResponse::json(fixture("generic/projects.json")));
        for (const std::string id : {"12", "ops", "7"})
            queryRoutes.add({{field, "list_tasks_for_project"}, {"id", id}},
                       FakeResponse::json(fixture("generic/tasks-" + id + ".json")));
    }

    FakeQueryRoutes routes{server, "GET", "/"};
};

TEST_F(GenericServiceTests, SynchronizationBuildsProjectsWithTheirTasks) {
    serveFixtures(routes);
    auto account = makeAccount<Generic>();

    const auto tree = account->loadRemoteProjects();

    EXPECT_EQ(treeDescription(tree),
              "Website relaunch [12|-|-]\n"
              "  Design review [12|121|-]\n"
              "  Content migration [12|122|-]\n"
              "Operations [ops|-|-]\n"
              "  On-call [ops|ops-1|-]\n");
    EXPECT_TRUE(everyNodeBelongsTo(tree, account));
    // Two projects and one task lack a name or an ID; they are skipped, the rest loads.
    EXPECT_EQ(log.count("Missing name or ID in "), 3u) << log.joined();
    EXPECT_TRUE(log.contains("Will be loading tasks from http://" + serverAddress() +
                             "/?action=list_tasks_for_project&id=12"));
}

TEST_F(GenericServiceTests, AlternateActionFieldNameIsCommand) {
    serveFixtures(routes, "command");
    auto account = makeAccount<Generic>({{Generic::usesAlternateActionFieldNameKey, true}});

    const auto tree = account->loadRemoteProjects();

    EXPECT_EQ(tree.size(), 2u);
    EXPECT_EQ(transport.URLs().front(), "http://" + serverAddress() + "/?command=list_projects");
    for (const auto& request : server.requests()) EXPECT_FALSE(request.query.contains("action"));
}

TEST_F(GenericServiceTests, ProjectsOnlyMakesOneLevelWithoutTaskCalls) {
    serveFixtures(routes);
    auto account = makeAccount<Generic>({{Generic::synchronizeProjectsOnlyKey, true}});

    const auto tree = account->loadRemoteProjects();

    // The project without tasks stays: no tasks are asked for.
    EXPECT_EQ(treeDescription(tree), "Website relaunch [12|-|-]\nOperations [ops|-|-]\nInternal [7|-|-]\n");
    EXPECT_EQ(server.requestCount(), 1u) << requestSummary(server.requests());
}

TEST_F(GenericServiceTests, AddressWithAPathKeepsIt) {
    FakeQueryRoutes nested(server, "GET", "/norvo/");
    nested.add({{"action", "list_projects"}}, FakeResponse::json(R"({"projects": [{"id": 1, "name": "One"}]})"));
    auto account = makeAccount<Generic>({{Generic::synchronizeProjectsOnlyKey, true}}, "/norvo");

    EXPECT_EQ(treeDescription(account->loadRemoteProjects()), "One [1|-|-]\n");
    EXPECT_EQ(transport.URLs().front(), "http://" + serverAddress() + "/norvo/?action=list_projects");
}

struct LoadFailure {
    const char* description;
    const char* projectsReply;
    const char* tasksReply;
    const char* reason;  // nullptr: no connection
};

class GenericLoadFailureTests : public GenericServiceTests, public ::testing::WithParamInterface<LoadFailure> {};

TEST_P(GenericLoadFailureTests, EndsTheWholeLoad) {
    const LoadFailure& failure = GetParam();
    routes.add({{"action", "list_projects"}}, FakeResponse::json(failure.projectsReply));
    routes.add({{"action", "list_tasks_for_project"}}, FakeResponse::json(failure.tasksReply));
    auto account = makeAccount<Generic>();

    const auto load = [&] { account->loadRemoteProjects(); };
    if (failure.reason) {
        EXPECT_TRUE(throwsFailureReason(load, failure.reason));
    } else {
        EXPECT_TRUE(throwsNoConnection(load));
    }
}

const char* const oneProject = R"({"projects": [{"id": 5, "name": "Five"}]})";

INSTANTIATE_TEST_SUITE_P(
    Replies, GenericLoadFailureTests,
    ::testing::Values(
        LoadFailure{"projects not an object", R"([{"id": 1, "name": "x"}])", "{}", "Returned object isn't a dictionary."},
        LoadFailure{"no projects member", R"({"project": []})", "{}", "Returned dictionary doesn't contain any projects."},
        LoadFailure{"projects of strings", R"({"projects": ["a", "b"]})", "{}",
                    "Returned dictionary doesn't contain any projects."},
        LoadFailure{"projects not JSON", "<html>Login</html>", "{}", "Returned object isn't a dictionary."},
        LoadFailure{"tasks not an object", oneProject, R"(["task"])", "Returned tasks object isn't a dictionary."},
        // The same words as for missing projects, on purpose.
        LoadFailure{"no tasks member", oneProject, R"({"todo": []})", "Returned dictionary doesn't contain any projects."},
        LoadFailure{"tasks not JSON", oneProject, "<html>Gateway timeout</html>", "Returned tasks object isn't a dictionary."}),
    [](const auto& testInfo) {
        std::string name = testInfo.param.description;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

TEST_F(GenericServiceTests, PostingSendsTheTimeAsJSON) {
    FakeQueryRoutes posts(server, "POST", "/");
    posts.add({{"action", "post_time"}}, FakeResponse::json(fixture("generic/posted.json")));
    auto account = makeAccount<Generic>();
    auto task = trackedProject(account, "Design review", "12", "121", 5400, "Review took %@ (twice: %@)");

    account->postTime(*task);

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
}

TEST_F(GenericServiceTests, PostingHoursAreADecimalString) {
    FakeQueryRoutes posts(server, "POST", "/");
    posts.add({{"action", "post_time"}}, FakeResponse::json("{}"));
    auto account = makeAccount<Generic>();
    const std::pair<std::uint64_t, const char*> cases[] = {{5400, "1.5"}, {3600, "1.0"}, {900, "0.25"}, {1, "0.0002777777777777778"}};
    for (const auto& [seconds, hours] : cases) {
        account->postTime(*trackedProject(account, "Task", "1", "2", seconds));
        EXPECT_EQ(jsonBody(*server.lastRequest())["hours"], hours) << seconds << " seconds";
    }
}

TEST_F(GenericServiceTests, ProjectsOnlyPostsWithoutTaskAndWithEmptyDescription) {
    FakeQueryRoutes posts(server, "POST", "/");
    posts.add({{"action", "post_time"}}, FakeResponse::json("{}"));
    auto account = makeAccount<Generic>({{Generic::synchronizeProjectsOnlyKey, true}});

    account->postTime(*trackedProject(account, "Internal", "7", "ignored", 60));

    EXPECT_EQ(jsonBody(*server.lastRequest()),
              nlohmann::json({{"project_id", "7"}, {"description", ""}, {"hours", "0.016666666666666666"}}));
}

TEST_F(GenericServiceTests, PostsWithoutJSONReplyFail) {
    FakeQueryRoutes posts(server, "POST", "/");
    posts.add({{"action", "post_time"}}, FakeResponse{200, "<html><body>Saved</body></html>", "text/html"});
    auto account = makeAccount<Generic>();
    auto task = trackedProject(account, "Task", "1", "2", 60, "Work");

    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*task); }, "Did not receive a valid JSON response."));

    account->setAddress(deadAddress());
    EXPECT_TRUE(throwsNoConnection([&] { account->postTime(*task); }));
}

}  // namespace
