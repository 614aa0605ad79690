#include <gtest/gtest.h>

#include "ZVPropertyList.h"
#include "core/integrations/address_based/freeagent/ZVFreeAgentIntegration.h"
#include "core/ui/ZVUserInterface.h"
#include "services/kit/FakeAuthorization.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

namespace {

using FreeAgent = ZVFreeAgentIntegration;
const std::string api = "https://api.freeagent.com/v2/";

/// The list on page 1, nothing after it: the service's lists end on an empty page.
FakeResponse firstPageOnly(const FakeRequest& request, const char* key, nlohmann::json items) {
    return FakeResponse::json(nlohmann::json{{key, request.queryValue("page") == "1" ? items : nlohmann::json::array()}}.dump());
}

/// A contact, a project of it and one of no listed contact, each with an active task.
void serveAccounts(FakeServer& server, bool withBadRecord, int permissionLevel = 8) {
    server.route("GET", "/v2/users/me", FakeResponse::json(nlohmann::json{
        {"user", {{"url", api + "users/1"}, {"permission_level", permissionLevel}}}}.dump()));
    server.route("GET", "/v2/contacts", [withBadRecord](const FakeRequest& request) {
        auto contacts = nlohmann::json::array({{{"url", api + "contacts/1"}, {"organisation_name", "Acme"}},
                                               {{"url", api + "contacts/2"}, {"first_name", "Ada"}, {"last_name", "L"}}});
        if (withBadRecord) contacts.push_back({{"first_name", "Nameless"}});
        return firstPageOnly(request, "contacts", contacts);
    });
    server.route("GET", "/v2/projects", [](const FakeRequest& request) {
        return firstPageOnly(request, "projects",
                             {{{"url", api + "projects/10"}, {"name", "Website"}, {"contact", api + "contacts/1"}},
                              {{"url", api + "projects/11"}, {"name", "Internal"}, {"contact", api + "contacts/9"}}});
    });
    server.route("GET", "/v2/tasks", [](const FakeRequest& request) {
        const bool website = request.queryValue("project") == "10";
        return firstPageOnly(request, "tasks",
                             {{{"url", api + (website ? "tasks/100" : "tasks/110")},
                               {"name", website ? "Design" : "Admin"},
                               {"status", "Active"}},
                              {{"url", api + "tasks/101"}, {"name", "Old"}, {"status", "Completed"}}});
    });
    server.route("POST", "/v2/timeslips", FakeResponse::json(R"({"timeslip": {"url": "x"}})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVFreeAgentIntegration", [] {
    return ServiceScenario{
        .serve = [](FakeServer& server, bool withBadRecord) { serveAccounts(server, withBadRecord); },
        .tree = "Acme [" + api + "contacts/1|-|-]\n  Website [" + api + "contacts/1|" + api + "projects/10|-]\n"
                "    Design [" + api + "contacts/1|" + api + "projects/10|" + api + "tasks/100]\n"
                "No Client Assigned [---KDNoClientAssignedID---|-|-]\n"
                "  Internal [---KDNoClientAssignedID---|" + api + "projects/11|-]\n"
                "    Admin [---KDNoClientAssignedID---|" + api + "projects/11|" + api + "tasks/110]\n",
        .posted = {.projectID = api + "contacts/1", .subprojectID = api + "projects/10",
                   .additionalID = api + "tasks/100", .seconds = 5400, .title = "Design: %@ h"},
        .postPath = "/v2/timeslips",
        .postMembers = {{"[timeslip][hours]", "1.5000000"},
                        {"[timeslip][task]", api + "tasks/100"},
                        {"[timeslip][project]", api + "projects/10"},
                        {"[timeslip][user]", api + "users/1"},
                        {"[timeslip][comment]", "Design: 1.5000000 h"}},
    };
});

class FreeAgentTests : public ServiceTestCase {
protected:
    std::shared_ptr<FreeAgent> freeAgent(bool includesContacts = true) {
        auto account = makeAccount<FreeAgent>({{FreeAgent::includesContactsKey, includesContacts}});
        redirectServiceHost(*account);
        return account;
    }
};

TEST_F(FreeAgentTests, PermissionBelowThreeAndNoLoginFailInTheServicesWords) {
    serveAccounts(server, false, 2);
    EXPECT_TRUE(throwsFailureReason([&] { freeAgent()->loadRemoteProjects(); },
                                    "You haven't set the API permission high enough for Norvo. It has to be set to "
                                    "Contacts & Projects or higher."));
    auto unauthorized = ZVIntegration::makeNew<FreeAgent>();
    EXPECT_TRUE(throwsFailureReason([&] { unauthorized->loadRemoteProjects(); },
                                    "You haven't authorized this account with FreeAgent. Edit this account and press "
                                    "the Authorize button."));
}

TEST_F(FreeAgentTests, WithoutContactsProjectsAreTheTopAndPostOneLevelUp) {
    serveAccounts(server, false);
    auto account = freeAgent(false);
    EXPECT_EQ(treeDescription(account->loadRemoteProjects()),
              "Website [" + api + "projects/10|-|-]\n  Design [" + api + "projects/10|" + api + "tasks/100|-]\n"
              "Internal [" + api + "projects/11|-|-]\n  Admin [" + api + "projects/11|" + api + "tasks/110|-]\n");
    EXPECT_TRUE(log.contains("Skipping task Old as its status isn't active (Completed)"));
    // Over a day goes out as one timeslip a day; the parts are whole days first.
    account->postTime(*trackedProject(account, "Design", api + "projects/10", api + "tasks/100", 86400 + 3600));
    const auto posts = server.requests("/v2/timeslips");
    ASSERT_EQ(posts.size(), 2u);
    EXPECT_EQ(jsonBody(posts[0])["timeslip"]["hours"], "24.0000000");
    EXPECT_EQ(jsonBody(posts[1])["timeslip"]["hours"], "1.0000000");
    EXPECT_EQ(jsonBody(posts[1])["timeslip"]["project"], api + "projects/10");
    EXPECT_EQ(jsonBody(posts[1])["timeslip"]["task"], api + "tasks/100");
    EXPECT_EQ(jsonBody(posts[1])["timeslip"]["dated_on"].get<std::string>().size(), 10u) << "a date, no time";
}

// The whole authorization, the test playing the browser: the page of the
// service sends it back to Norvo's loopback address with a code.
class FreeAgentAuthorizationTests : public FreeAgentTests {
protected:
    FreeAgentAuthorizationTests() { ZVUserInterface::install(&ui); }
    ~FreeAgentAuthorizationTests() override { ZVUserInterface::install(nullptr); }

    /// Follows the last opened page as a browser: the service's answer, then Norvo's page.
    std::string browse(const std::string& code) {
        return FakeAuthorization::openLoopbackPage(authorization.approve(ui.openedURLs().back(), code));
    }

    FakeAuthorization authorization{server, "/v2/approve_app", "/v2/token_endpoint"};
    ScriptedUserInterface ui;
};

TEST_F(FreeAgentAuthorizationTests, AuthorizesThroughTheBrowserAndRefreshesTokens) {
    serveAccounts(server, false);
    auto account = ZVIntegration::makeNew<FreeAgent>();
    redirectServiceHost(*account);

    account->authorize();
    EXPECT_EQ(ui.alertMessages().back(), "Norvo has no application registered with FreeAgent.");
    // The setup view stores the id as soon as it is typed, the secret after it.
    account->setOwnClient("own-client", "");
    account->setOwnClient("own-client", "own-secret");

    // A refused code leaves the account as it was; a second try works.
    account->authorize();
    EXPECT_NE(browse("deny").find("not authorized"), std::string::npos);
    EXPECT_FALSE(account->hasAuthorizedAccount());
    account->authorize();
    EXPECT_NE(browse("good").find("Norvo is authorized"), std::string::npos);
    ASSERT_TRUE(account->hasAuthorizedAccount());
    const auto exchange = server.requests("/v2/token_endpoint").back();
    EXPECT_NE(exchange.body.find("code_verifier="), std::string::npos);
    EXPECT_NE(exchange.body.find("client_secret=own-secret"), std::string::npos);
    EXPECT_NE(ui.openedURLs().back().find("code_challenge_method=S256"), std::string::npos);
    EXPECT_NE(ui.openedURLs().back().find("client_id=own-client"), std::string::npos);

    account->authorize();
    EXPECT_EQ(ui.alertMessages().back(), "Norvo is already authorized with this service.");

    account->loadRemoteProjects();
    EXPECT_EQ(server.requests("/v2/users/me").back().header("Authorization"), "Bearer token-1");
    // A refused token is refreshed once and the request sent again.
    server.routeSequence("GET", "/v2/users/me", {FakeResponse::json("{}", 401),
                                                  FakeResponse::json(R"({"user": {"permission_level": 8}})")});
    account->loadRemoteProjects();
    EXPECT_EQ(server.requests("/v2/users/me").back().header("Authorization"), "Bearer token-2");
    // A refused refresh ends the login and says so, naming the account.
    server.route("GET", "/v2/users/me", FakeResponse::json("{}", 401));
    server.route("POST", "/v2/token_endpoint", FakeResponse::json(R"({"error": "invalid_grant"})", 400));
    account->setName("Books");
    EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); },
                                    "FreeAgent ended the authorization of the account “Books”. Edit the account and "
                                    "press Authorize again."));
    EXPECT_FALSE(account->hasAuthorizedAccount());

    // The tokens live in the key store alone: not in the account's stored form, nor in the log.
    const std::string stored = ZVPropertyList::writeXML(ZVValue(account->dictionaryRepresentation()));
    for (const char* token : {"token-1", "token-2", "rt-secret", "own-secret"}) {
        EXPECT_EQ(stored.find(token), std::string::npos) << token;
        EXPECT_FALSE(log.contains(token)) << token;
    }
}

}  // namespace
