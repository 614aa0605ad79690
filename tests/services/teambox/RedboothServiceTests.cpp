#include <gtest/gtest.h>

#include "ZVOAuth2Client.h"
#include "core/integrations/address_based/teambox/ZVTeamboxIntegration.h"
#include "core/ui/ZVUserInterface.h"
#include "services/kit/FakeAuthorization.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

namespace {

using Redbooth = ZVTeamboxIntegration;

/// A project with a task list and an open task, an archived project and one
/// whose only list has no tasks; the task lists come inside "objects", the
/// other lists bare. With a bad record, a project without an id.
void serveProjects(FakeServer& server, bool withBadRecord) {
    server.route("GET", "/api/3/projects", [withBadRecord](const FakeRequest&) {
        auto projects =
            nlohmann::json::array({{{"id", 1}, {"name", "Site"}, {"archived", false}},
                                   {{"id", 2}, {"name", "Old"}, {"archived", true}},
                                   {{"id", 3}, {"name", "Quiet"}, {"archived", false}}});
        if (withBadRecord) projects.push_back({{"name", "Nameless"}});
        return FakeResponse::json(projects.dump());
    });
    server.route("GET", "/api/3/task_lists", [](const FakeRequest& request) {
        const bool site = request.queryValue("project_id") == "1";
        return FakeResponse::json(nlohmann::json{
            {"objects", {{{"id", site ? 11 : 31}, {"name", site ? "Sprint" : "Someday"}}}}}
                                      .dump());
    });
    server.route("GET", "/api/3/tasks", [](const FakeRequest& request) {
        if (request.queryValue("task_list_id") != "11" || request.queryValue("archived") != "false")
            return FakeResponse::json("[]");
        return FakeResponse::json(R"([{"id": 111, "name": "Fix login", "type": "Task"}])");
    });
    server.route("POST", "/api/3/comments", FakeResponse::json(R"({"id": 5, "type": "Comment"})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTeamboxIntegration", [] {
    return ServiceScenario{
        .serve = serveProjects,
        .tree = "Site [1|-|-]\n  Sprint [1|11|-]\n    Fix login [1|11|111]\n",
        .posted = {.projectID = "1",
                   .subprojectID = "11",
                   .additionalID = "111",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = "/api/3/comments",
        .postMembers = {{"body", "Review"},
                        {"minutes", "90"},
                        {"target_type", "task"},
                        {"target_id", "111"}},
    };
});

class RedboothTests : public ServiceTestCase {
protected:
    RedboothTests() { ZVUserInterface::install(&ui); }
    ~RedboothTests() override { ZVUserInterface::install(nullptr); }

    ScriptedUserInterface ui;
};

TEST_F(RedboothTests, ListsArePagedByAHundredAndAReplyWithoutAListBlamesTheCredentials) {
    serveProjects(server, false);
    server.route("GET", "/api/3/tasks", [](const FakeRequest& request) {
        auto tasks = nlohmann::json::array();
        const int first = (std::stoi(request.queryValue("page")) - 1) * 100;
        for (int n = first; n < std::min(first + 100, 130); ++n)
            tasks.push_back({{"id", 500 + n}, {"name", "Task"}});
        return FakeResponse::json(tasks.dump());
    });
    auto account = makeAccount<Redbooth>();
    redirectServiceHost(*account);
    const auto tree = account->loadRemoteProjects();
    ASSERT_FALSE(tree.empty());
    EXPECT_EQ(tree[0]->subprojects()[0]->subprojects().size(), 130u);
    const auto pages = server.requests("/api/3/tasks");
    ASSERT_EQ(pages.size(), 4u)
        << "two lists; the full page of the first asks for one more, a short page ends";
    EXPECT_EQ(pages[1].queryValue("page"), "2");
    EXPECT_EQ(pages[1].queryValue("per_page"), "100");

    server.route("GET", "/api/3/projects", FakeResponse::json(R"({"error": "not allowed"})"));
    EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); },
                                    "Can't load items, probably wrong credentials."));
}

// The whole authorization through the custom scheme: the service's page
// sends the browser to "norvoredbooth://...", which the desktop hands to
// the running Norvo, and that to the client of the scheme.
TEST_F(RedboothTests, AuthorizesThroughTheBrowserAndTheCustomScheme) {
    FakeAuthorization authorization(server, "/oauth2/authorize", "/oauth2/token");
    serveProjects(server, false);
    auto account = ZVIntegration::makeNew<Redbooth>();
    redirectServiceHost(*account);
    account->setOwnClient("own-client", "own-secret");

    account->authorize();
    const std::string opened = ui.openedURLs().back();
    EXPECT_EQ(opened.rfind("https://redbooth.com/oauth2/authorize?", 0), 0u) << opened;
    EXPECT_NE(opened.find("redirect_uri=norvoredbooth%3A%2F%2Foauth2%2Fcallback"),
              std::string::npos)
        << opened;
    const std::string answer = authorization.approve(opened, "good");
    ASSERT_EQ(answer.rfind("norvoredbooth://oauth2/callback?code=good&state=", 0), 0u) << answer;

    // An answer of another authorization, or on a scheme nobody waits for, is no login.
    EXPECT_FALSE(
        ZVOAuth2Client::handleRedirectURL("norvounknown://oauth2/callback?code=good&state=x"));
    EXPECT_TRUE(ZVOAuth2Client::handleRedirectURL(
        "NorvoRedbooth://oauth2/callback?code=good&state=forged"));
    EXPECT_FALSE(account->hasAuthorizedAccount());
    EXPECT_EQ(authorization.issued(), 0);
    EXPECT_FALSE(ZVOAuth2Client::handleRedirectURL(answer)) << "the forged answer ended the wait";

    account->authorize();
    ASSERT_TRUE(
        ZVOAuth2Client::handleRedirectURL(authorization.approve(ui.openedURLs().back(), "good")));
    ASSERT_TRUE(account->hasAuthorizedAccount());
    EXPECT_NE(server.requests("/oauth2/token").back().body.find("redirect_uri=norvoredbooth"),
              std::string::npos);
    EXPECT_EQ(treeDescription(account->loadRemoteProjects()),
              "Site [1|-|-]\n  Sprint [1|11|-]\n    Fix login [1|11|111]\n");
    EXPECT_EQ(server.requests("/api/3/projects").back().header("Authorization"), "Bearer token-1");
    // Stored and read back, as at the next start, the account is still the authorized one.
    EXPECT_TRUE(ZVIntegration::makeWithDictionary<Redbooth>(account->dictionaryRepresentation())->hasAuthorizedAccount());
}

}  // namespace
