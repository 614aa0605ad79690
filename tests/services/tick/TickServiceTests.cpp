#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/tick/ZVTickIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Tick = ZVTickIntegration;
const std::string rolesPath = "/api/v2/roles.json";
const std::string api = "/16/api/v2/";
const std::string token = "f67158e7bf3d7a0fcaf9d258ace8b468";

nlohmann::json role(int subscription, const char* company, const std::string& apiToken) {
    return {{"subscription_id", subscription}, {"company", company}, {"api_token", apiToken}};
}

nlohmann::json project(int id, const char* name, int client) {
    return {{"id", id}, {"name", name}, {"client_id", client}, {"date_closed", nullptr}, {"billable", true}};
}

/// Tasks come with their ids as strings, as the service writes them.
nlohmann::json task(const char* id, const char* name, const char* closed = nullptr) {
    return {{"id", id}, {"name", name}, {"date_closed", closed ? nlohmann::json(closed) : nlohmann::json(nullptr)}};
}

void serveJSON(FakeServer& server, const std::string& path, const nlohmann::json& body) {
    server.route("GET", path, FakeResponse::json(body.dump()));
}

/// Open projects in pages of the given lists; every page after them is empty.
void serveProjectPages(FakeServer& server, std::vector<nlohmann::json> pages) {
    server.route("GET", api + "projects.json", [pages](const FakeRequest& request) {
        const std::size_t page = std::stoul(request.queryValue("page").empty() ? "1" : request.queryValue("page"));
        return FakeResponse::json(page <= pages.size() ? pages[page - 1].dump() : "[]");
    });
}

/// Two clients, listed out of order, with a project of open tasks each;
/// with a bad record, a project without its client.
void serveTick(FakeServer& server, bool withBadRecord) {
    serveJSON(server, rolesPath, nlohmann::json::array({role(16, "Empire", token)}));
    serveJSON(server, api + "clients.json",
              {{{"id", 12}, {"name", "Republic"}, {"archive", false}}, {{"id", 3}, {"name", "empire"}, {"archive", false}}});
    nlohmann::json projects{project(16, "Build Death Star", 12), project(4, "Clean Up Alderaan", 3)};
    if (withBadRecord) projects.push_back({{"id", 5}, {"name", "Orphan"}});
    serveProjectPages(server, {projects});
    serveJSON(server, api + "projects/16/tasks.json", {task("25", "Install exhaust port"), task("26", "Shield port")});
    serveJSON(server, api + "projects/4/tasks.json", nlohmann::json::array({task("41", "Sweep")}));
    server.route("POST", api + "entries.json",
                 FakeResponse::json(R"({"id": "235", "date": "2026-11-25", "hours": 1.5, "notes": "Review",
                                        "task_id": 25, "user_id": 4})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTickIntegration", [] {
    return ServiceScenario{
        .serve = serveTick,
        .tree = "empire [3|-|-]\n  Clean Up Alderaan [3|4|-]\n    Sweep [3|4|41]\n"
                "Republic [12|-|-]\n  Build Death Star [12|16|-]\n    Install exhaust port [12|16|25]\n"
                "    Shield port [12|16|26]\n",
        .posted = {.projectID = "12", .subprojectID = "16", .additionalID = "25", .seconds = 5400, .title = "Review"},
        .postPath = api + "entries.json",
        .postMembers = {{"date", ZVPostingText::date(std::time(nullptr))},
                        {"hours", "1.5"},
                        {"notes", "Review"},
                        {"task_id", "25"}},
    };
});

class TickTests : public ServiceTestCase {
protected:
    TickTests() { serveTick(server, false); }

    std::shared_ptr<Tick> account(const ZVDictionary& settings = {}) {
        auto made = makeAccount<Tick>(settings);
        redirectServiceHost(*made);
        return made;
    }
};

TEST_F(TickTests, TheLoginGoesOnlyToTheRolesOnceASyncAndTheTokenToEverythingElse) {
    serveProjectPages(server, {nlohmann::json::array({project(16, "Build Death Star", 12)}),
                               nlohmann::json::array({project(4, "Clean Up Alderaan", 3)})});
    auto tick = account();
    EXPECT_EQ(tick->loadRemoteProjects().size(), 2u);
    auto sweep = trackedProject(tick, "Sweep", "3", std::string("4"), 60);
    sweep->setAdditionalID("41");
    tick->postTime(*sweep);

    const auto asked = server.requests();
    // The roles, the clients, three pages of projects, two lists of tasks and the post.
    ASSERT_EQ(asked.size(), 8u) << requestSummary(asked);
    EXPECT_EQ(server.requests(rolesPath).size(), 1u) << "the post reuses the sync's token";
    for (const auto& request : asked) {
        EXPECT_EQ(request.header("User-Agent"), "Norvo (" + credentials.username + ")") << request.target;
        const bool isRoles = request.path == rolesPath;
        EXPECT_EQ(request.header("Authorization"), isRoles ? expectedAuthorization() : "Token token=" + token)
            << request.target;
    }
    EXPECT_EQ(server.requests(api + "projects.json").size(), 3u) << "pages until an empty one";

    // The next sync reads the roles again.
    tick->loadRemoteProjects();
    EXPECT_EQ(server.requests(rolesPath).size(), 2u);

    // A token the service no longer takes is read anew from the roles, once.
    server.routeSequence("GET", rolesPath, {FakeResponse::json(R"([{"subscription_id": 16, "api_token": "old"}])"),
                                            FakeResponse::json(nlohmann::json::array({role(16, "Empire", token)}).dump())});
    server.intercept([](const FakeRequest& request) -> std::optional<FakeResponse> {
        if (request.header("Authorization") != "Token token=old") return std::nullopt;
        return FakeResponse::json(R"({"error": "expired"})", 401);
    });
    EXPECT_EQ(tick->loadRemoteProjects().size(), 2u);
    EXPECT_EQ(server.requests(rolesPath).size(), 4u);
}

TEST_F(TickTests, ClosedTasksProjectsWithoutTasksAndProjectsWithoutAClientAreLeftOut) {
    serveProjectPages(server, {nlohmann::json::array({project(16, "Build Death Star", 12),
                                                      project(4, "Clean Up Alderaan", 3), project(7, "Unknown client", 99)})});
    serveJSON(server, api + "projects/16/tasks.json",
              {task("25", "Install exhaust port"), task("26", "Old port", "2026-01-02"), {{"id", "27"}}});
    serveJSON(server, api + "projects/4/tasks.json", nlohmann::json::array({task("41", "Sweep", "2026-03-04")}));

    EXPECT_EQ(treeDescription(account()->loadRemoteProjects()),
              "Republic [12|-|-]\n  Build Death Star [12|16|-]\n    Install exhaust port [12|16|25]\n");
    for (const char* line : {"Skipping task Old port since it's closed.", "Missing name or ID in {\"id\":\"27\"}",
                             "Couldn't load any tasks, ignoring project Clean Up Alderaan (4)",
                             "Missing client name 99"})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(TickTests, TheRolesNameTheSubscriptionAndNoProjectsFailTheSync) {
    serveJSON(server, rolesPath, {role(9, "Other", "other-token"), role(16, "Empire", token)});
    serveProjectPages(server, {});
    const struct {
        const char* wanted;
        const char* reason;
    } cases[] = {
        {"16", "Project listing contains no projects."},
        {"77", "The Tick login of this account has no subscription 77."},
    };
    for (const auto& c : cases) {
        auto tick = account({{Tick::subscriptionIDKey, std::string(c.wanted)}});
        EXPECT_TRUE(throwsFailureReason([&] { tick->loadRemoteProjects(); }, c.reason)) << c.wanted;
    }
    EXPECT_TRUE(log.contains("No projects in []"));

    // Without a choice the first subscription it lists; a login without any fails.
    serveJSON(server, "/9/api/v2/clients.json", nlohmann::json::array());
    EXPECT_ANY_THROW(account()->loadRemoteProjects());
    EXPECT_EQ(server.requests("/9/api/v2/projects.json").size(), 1u);
    serveJSON(server, rolesPath, nlohmann::json::array());
    EXPECT_TRUE(throwsAuthenticationError([&] { account()->loadRemoteProjects(); }));
}

TEST_F(TickTests, AStoredAccountOfACompanyAddressKeepsItsTimeAndReachesTheServicesOneHost) {
    auto stored = makeAccountAt<Tick>("acme.tickspot.com");
    stored->addProject(trackedProject(stored, "Republic", "12", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDTickIntegration");
    const auto old = std::dynamic_pointer_cast<Tick>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    EXPECT_EQ(old->serviceBaseURL(), "https://www.tickspot.com");
    redirectFixedHost("www.tickspot.com");
    EXPECT_EQ(old->loadRemoteProjects().size(), 2u);
}

}  // namespace
