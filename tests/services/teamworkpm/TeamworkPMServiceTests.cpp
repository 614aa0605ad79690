#include <gtest/gtest.h>

#include "core/integrations/address_based/teamworkpm/ZVTeamworkPMIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using TeamworkPM = ZVTeamworkPMIntegration;
constexpr std::int64_t todos = static_cast<std::int64_t>(TeamworkPM::SynchronizationType::todos);

/// Teamwork.com's replies: the user "u-7" of the API key, the person "p-9"
/// of "/me.json", two projects, the task lists of the first with one open
/// and one completed task. With a bad record, a project without a name.
void serveTeamwork(FakeServer& server, bool withBadRecord) {
    server.route(
        "GET", "/authenticate.json",
        FakeResponse::json(
            R"({"STATUS": "OK", "account": {"id": "31", "userId": "u-7", "code": "acme"}})"));
    server.route("GET", "/me.json",
                 FakeResponse::json(R"({"STATUS": "OK", "person": {"id": "p-9"}})"));
    nlohmann::json projects{{{"id", "101"}, {"name", "Website"}},
                            {{"id", 102}, {"name", "Intranet"}}};
    if (withBadRecord) projects.push_back({{"id", "103"}});
    server.route("GET", "/projects.json",
                 FakeResponse::json(nlohmann::json{{"projects", projects}}.dump()));
    server.route("GET", "/projects/101/tasklists.json", FakeResponse::json(R"({"tasklists": [
        {"id": "201", "name": "Launch", "todo-items": [
            {"id": "301", "content": "Homepage copy", "completed": false},
            {"id": "302", "content": "Old banner", "completed": true}]},
        {"id": "202", "name": "Done already", "todo-items": [
            {"id": "303", "content": "Kick-off", "completed": 1}]}]})"));
    server.route("GET", "/projects/102/tasklists.json", FakeResponse::json(R"({"tasklists": []})"));
    server.route("POST", "/tasks/301/time_entries.json",
                 FakeResponse::json(R"({"STATUS": "OK", "timeLogId": "9001"})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTeamworkPMIntegration", [] {
    return ServiceScenario{
        .serve = serveTeamwork,
        .tree = "Website [101|-|-]\n  Launch [101|201|-]\n    Homepage copy [101|201|301]\n",
        .posted = {.projectID = "101",
                   .subprojectID = "201",
                   .additionalID = "301",
                   .seconds = 5430,
                   .title = "Review %@"},
        .postPath = "/tasks/301/time_entries.json",
        .postMembers = {{"[time-entry][description]", "Review 1.51"},
                        {"[time-entry][person-id]", "u-7"},
                        {"[time-entry][hours]", "1"},
                        {"[time-entry][minutes]", "30"},
                        {"[time-entry][isbillable]", "1"}},
        .settings = {{TeamworkPM::synchronizationTypeKey, todos}},
    };
});

class TeamworkPMTests : public ServiceTestCase {};

TEST_F(TeamworkPMTests, AProjectsAccountPostsOnTheProjectWithoutAskingForListsAndAsksTheUserOnce) {
    serveTeamwork(server, false);
    server.route("POST", "/projects/101/time_entries.json",
                 FakeResponse::json(R"({"STATUS": "OK"})", 201));
    auto account = makeAccount<TeamworkPM>();
    EXPECT_EQ(account->loadRemoteProjects().size(), 2u);
    auto node = trackedProject(account, "Website", "101", std::nullopt, 3700, "Copy");
    account->postTime(*node);
    account->postTime(*node);
    EXPECT_TRUE(server.requests("/projects/101/tasklists.json").empty());
    EXPECT_EQ(server.requests("/authenticate.json").size(), 1u);
    // 3,700 seconds are one hour and one minute; the 40 seconds beyond are dropped.
    const auto post = jsonBody(server.requests("/projects/101/time_entries.json").back());
    EXPECT_EQ(post["time-entry"]["hours"], "1");
    EXPECT_EQ(post["time-entry"]["minutes"], "1");
    EXPECT_EQ(post["time-entry"]["date"].get<std::string>().size(), 8u);
    EXPECT_EQ(post["time-entry"]["time"].get<std::string>()[2], ':');
    // Lists are asked for by the person of "/me.json", not the user of the key.
    server.clearRequests();
    auto todoAccount = makeAccount<TeamworkPM>({{TeamworkPM::synchronizationTypeKey, todos}});
    todoAccount->loadRemoteProjects();
    EXPECT_TRUE(log.contains("Skipping project Intranet since it has no todo lists."));
    // A project node left from the other mode is refused, not posted to the project.
    EXPECT_TRUE(throwsGenericPostingError([&] { todoAccount->postTime(*node); }));
    EXPECT_TRUE(server.requests("/projects/101/time_entries.json").empty());
    const auto lists = server.requests("/projects/101/tasklists.json").at(0);
    EXPECT_EQ(lists.queryValue("responsible-party-id"), "p-9");
    EXPECT_EQ(lists.queryValue("showTasks"), "yes");
    EXPECT_TRUE(log.contains("Skipping todo list Done already since it has no items."));
}

TEST_F(TeamworkPMTests,
       AnAccountStoredUnderTheOldClassNameKeepsItsTimeAndAnUnknownModeReadsAsProjects) {
    auto stored = makeAccount<TeamworkPM>({{TeamworkPM::synchronizationTypeKey, todos}});
    stored->addProject(trackedProject(stored, "Website", "101", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDTeamworkPMIntegration");
    const auto old =
        std::dynamic_pointer_cast<TeamworkPM>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->synchronizationType(), TeamworkPM::SynchronizationType::todos);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);

    const struct {
        std::int64_t stored;
        TeamworkPM::SynchronizationType read;
    } cases[] = {{0, TeamworkPM::SynchronizationType::projects},
                 {1, TeamworkPM::SynchronizationType::todos},
                 {2, TeamworkPM::SynchronizationType::projects}};
    for (const auto& c : cases)
        EXPECT_EQ(makeAccount<TeamworkPM>({{TeamworkPM::synchronizationTypeKey, c.stored}})
                      ->synchronizationType(),
                  c.read)
            << c.stored;
}

TEST_F(TeamworkPMTests, MissingIDsAndListsGiveTheirReasonsOrAnEmptyTree) {
    serveTeamwork(server, false);
    server.route("GET", "/projects.json", FakeResponse::json(R"({"STATUS": "OK"})"));
    EXPECT_TRUE(makeAccount<TeamworkPM>()->loadRemoteProjects().empty());
    EXPECT_TRUE(log.contains("No projects in "));
    server.route("GET", "/projects.json", FakeResponse::json(R"(["not", "an", "object"])"));
    EXPECT_TRUE(throwsFailureReason([&] { makeAccount<TeamworkPM>()->loadRemoteProjects(); },
                                    "TeamworkPM's response contains invalid data."));

    server.route("GET", "/me.json", FakeResponse::json(R"({"person": {}})"));
    EXPECT_TRUE(throwsFailureReason([&] { makeAccount<TeamworkPM>()->loadRemoteProjects(); },
                                    "Can't find account ID."));
    server.route("GET", "/authenticate.json", FakeResponse::json(R"({"account": {"id": "31"}})"));
    EXPECT_TRUE(throwsFailureReason([&] { makeAccount<TeamworkPM>()->loadRemoteProjects(); },
                                    "Can't load user ID."));
    EXPECT_TRUE(log.contains("No userID in "));
}

TEST_F(TeamworkPMTests, ProjectsComeInThePagesTheHeadersName) {
    serveTeamwork(server, false);
    server.route("GET", "/projects.json", [](const FakeRequest& request) {
        const std::string page =
            request.queryValue("page").empty() ? "1" : request.queryValue("page");
        FakeResponse reply = FakeResponse::json(
            nlohmann::json{{"projects", {{{"id", "p" + page}, {"name", "Project " + page}}}}}
                .dump());
        reply.headers.emplace_back("X-Page", page);
        reply.headers.emplace_back("X-Pages", "3");
        return reply;
    });
    const auto tree = makeAccount<TeamworkPM>()->loadRemoteProjects();
    EXPECT_EQ(treeDescription(tree),
              "Project 1 [p1|-|-]\nProject 2 [p2|-|-]\nProject 3 [p3|-|-]\n");
    EXPECT_EQ(server.requests("/projects.json").size(), 3u);
}

}  // namespace
