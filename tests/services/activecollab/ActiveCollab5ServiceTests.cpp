#include <gtest/gtest.h>

#include "core/integrations/address_based/activecollab/ZVActiveCollab5Integration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using ActiveCollab5 = ZVActiveCollab5Integration;

/// A server of the user's: the token at once; two job types (and an
/// archived one), a project with an open and a trashed task, a completed
/// project, one without tasks. With a bad record, a project without a name.
void serveActiveCollab5(FakeServer& server, bool withBadRecord) {
    server.route("POST", "/api/v1/issue-token",
                 FakeResponse::json(R"({"is_ok": true, "token": "issued-token"})"));
    server.route("GET", "/api/v1/job-types", FakeResponse::json(R"([{"id": 1, "name": "General"},
        {"id": 2, "name": "Design"}, {"id": 3, "name": "Retired", "is_archived": true}])"));
    nlohmann::json projects = nlohmann::json::parse(R"([{"id": 5, "name": "Website"},
        {"id": 6, "name": "Launched", "is_completed": true}, {"id": 7, "name": "Empty"}])");
    if (withBadRecord) projects.push_back({{"id", 8}});
    server.route("GET", "/api/v1/projects", FakeResponse::json(projects.dump()));
    server.route("GET", "/api/v1/projects/5/tasks",
                 FakeResponse::json(R"({"tasks": [{"id": 51, "name": "Homepage"},
        {"id": 52, "name": "Dropped", "is_trashed": true}], "task_lists": []})"));
    server.route("GET", "/api/v1/projects/7/tasks",
                 FakeResponse::json(R"({"tasks": [], "task_lists": []})"));
    server.route("POST", "/api/v1/projects/5/time-records",
                 FakeResponse::json(R"({"single": {"id": 900}})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVActiveCollab5Integration", [] {
    return ServiceScenario{
        .serve = serveActiveCollab5,
        .tree = "Website [5|-|-]\n  Homepage [5|51|-]\n    General [5|51|1]\n    Design [5|51|2]\n",
        .posted = {.projectID = "5",
                   .subprojectID = "51",
                   .additionalID = "2",
                   .seconds = 5430,
                   .title = "Review"},
        .postPath = "/api/v1/projects/5/time-records",
        .postMembers = {{"task_id", "51"}, {"job_type_id", "2"}, {"value", "1:30"}},
        .settings = {{ActiveCollab5::billingKey, std::int64_t{1}}},
    };
});

class ActiveCollab5Tests : public ServiceTestCase {};

TEST_F(ActiveCollab5Tests, AHostedAccountTradesTheCentralLoginsIntentForATokenOnItsOwnHost) {
    serveActiveCollab5(server, false);
    for (const char* host : {"my.activecollab.com", "app.activecollab.com"})
        redirectFixedHost(host);
    server.route("POST", "/api/v1/external/login",
                 FakeResponse::json(R"({"is_ok": true, "user": {"intent": "i-42"}})"));
    server.route("POST", "/123/api/v1/issue-token-intent", [](const FakeRequest& request) {
        if (jsonBody(request)["intent"] != "i-42") return FakeResponse::json(R"({"message": "Invalid intent"})", 401);
        return FakeResponse::json(R"({"is_ok": true, "token": "t-9"})");
    });
    server.route("GET", "/123/api/v1/job-types", FakeResponse::json(R"([])"));
    auto account = makeAccountAt<ActiveCollab5>("app.activecollab.com/123");
    account->setSSLEnabled(true);
    // An intent of an earlier login that the host no longer takes: the central login gives a new one.
    keychain.savePassword("stale", ActiveCollab5::intentItem, account->integrationID());
    EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); },
                                    "Couldn't load any job types."));
    EXPECT_EQ(server.requests("/123/api/v1/issue-token-intent").size(), 2u);
    EXPECT_EQ(keychain.password(ActiveCollab5::intentItem, account->integrationID()), "i-42");
    const auto login = jsonBody(server.requests("/api/v1/external/login").at(0));
    EXPECT_EQ(login["email"], credentials.username);
    EXPECT_EQ(login["password"], credentials.password);
    const auto trade = jsonBody(server.requests("/123/api/v1/issue-token-intent").back());
    EXPECT_EQ(trade, (nlohmann::json{{"intent", "i-42"},
                                     {"client_name", "Norvo"},
                                     {"client_vendor", "Ostrand Software"}}));
    EXPECT_EQ(server.requests("/123/api/v1/job-types").at(0).header("X-Angie-AuthApiToken"), "t-9");
}

TEST_F(ActiveCollab5Tests, TheTokenOutlivesARestartInTheKeyStoreWhereAnOlderDatabaseMovesIt) {
    serveActiveCollab5(server, false);
    auto account = makeAccount<ActiveCollab5>();
    account->loadRemoteProjects();
    ZVDictionary stored = account->dictionaryRepresentation();
    EXPECT_FALSE(stored.contains(ActiveCollab5::APITokenItem));
    ZVIntegration::makeWithDictionary<ActiveCollab5>(stored)->loadRemoteProjects();
    EXPECT_EQ(server.requests("/api/v1/issue-token").size(), 1u) << "no new login after a restart";

    stored[ZVIntegrationUIDKey] = std::string("older");
    stored[ActiveCollab5::APITokenItem] = std::string("kept-token");
    const auto older = ZVIntegration::makeWithDictionary<ActiveCollab5>(stored);
    EXPECT_EQ(keychain.password(ActiveCollab5::APITokenItem, "older"), "kept-token");
    EXPECT_FALSE(older->dictionaryRepresentation().contains(ActiveCollab5::APITokenItem));
    older->loadRemoteProjects();
    EXPECT_EQ(server.requests("/api/v1/job-types").back().header("X-Angie-AuthApiToken"), "kept-token");
    EXPECT_EQ(server.requests("/api/v1/issue-token").size(), 1u);
}

TEST_F(ActiveCollab5Tests, ARefusedTokenIsIssuedAnewOnceAndTheValueIsHoursAndMinutes) {
    serveActiveCollab5(server, false);
    server.routeSequence("GET", "/api/v1/job-types",
                         {FakeResponse::json(R"({"message": "Token expired"})", 401),
                          FakeResponse::json(R"([{"id": 1, "name": "General"}])")});
    auto account = makeAccount<ActiveCollab5>();
    EXPECT_EQ(account->loadRemoteProjects().size(), 1u);
    EXPECT_EQ(server.requests("/api/v1/issue-token").size(), 2u);
    const struct {
        std::uint64_t seconds;
        const char* value;
    } cases[] = {{5400, "1:30"}, {59, "0:00"}, {36000 + 59 * 60 + 59, "10:59"}};
    for (const auto& c : cases) {
        auto leaf = trackedProject(account, "General", "5", "51", c.seconds, "Copy");
        leaf->setAdditionalID("1");
        account->postTime(*leaf);
        EXPECT_EQ(jsonBody(server.requests("/api/v1/projects/5/time-records").back())["value"],
                  c.value)
            << c.seconds;
    }
    auto task = trackedProject(account, "Homepage", "5", "51", 60, "Copy");
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*task); }))
        << "a task without its job type";
}

}  // namespace
