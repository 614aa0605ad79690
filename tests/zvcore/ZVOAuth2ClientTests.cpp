#include <gtest/gtest.h>

#include "ZVCurlSession.h"
#include "ZVOAuth2Client.h"
#include "testkit/FakeServer.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ManualClock.h"

namespace {

std::map<std::string, std::string> formOf(const std::string& body) {
    const auto pairs = decodedPairs(body);
    return {pairs.begin(), pairs.end()};
}

class ZVOAuth2ClientTests : public ::testing::Test {
protected:
    ZVOAuth2ClientTests() {
        session->setTimeouts(2, 5);
        configuration = {server.url("/v2/approve_app"), "client-22-characters!!", "com.tesselwick.norvo.freeagent",
                         "norvofreeagent", "secret-22-characters!!", server.url("/v2/token_endpoint"), false};
        ZVOAuth2Client::setURLOpener([this](const std::string& url) {
            opened.push_back(url);
            return true;
        });
    }
    ~ZVOAuth2ClientTests() override { ZVOAuth2Client::setURLOpener(nullptr); }

    std::shared_ptr<ZVOAuth2Client::Account> authorize(ZVOAuth2Client& client) {
        std::optional<ZVOAuth2Client::AuthorizationResult> result;
        client.startAccountAuthorization([&](const auto& r) { result = r; });
        EXPECT_TRUE(client.handleRedirect("norvofreeagent://oauth2/callback?code=the-code&state=" +
                                          queryValueOf(opened.back(), "state")));
        EXPECT_TRUE(result);
        return result ? result->account : nullptr;
    }

    FakeServer server;
    InMemoryKeychain keychain;
    ManualClock clock;
    std::shared_ptr<ZVCurlSession> session = std::make_shared<ZVCurlSession>();
    ZVOAuth2Configuration configuration;
    std::vector<std::string> opened;
};

TEST_F(ZVOAuth2ClientTests, codeIsTradedForTokensThatSignRequests) {
    server.route("POST", "/v2/token_endpoint",
                 FakeResponse::json(R"({"access_token": "at-1", "refresh_token": "rt-1", "token_type": "bearer",)"
                                    R"( "expires_in": 3600})"));
    server.route("GET", "/v2/company", FakeResponse::json(R"({"company": {"name": "Tesselwick"}})"));
    ZVOAuth2Client client(configuration, session);
    auto account = authorize(client);
    ASSERT_TRUE(account);
    // The browser was sent to the approval page with the client, the redirect and a state.
    const std::string& approval = opened.back();
    EXPECT_EQ(approval.rfind(server.url("/v2/approve_app?"), 0), 0u) << approval;
    EXPECT_EQ(queryValueOf(approval, "client_id"), "client-22-characters!!");
    EXPECT_EQ(queryValueOf(approval, "redirect_uri"), "norvofreeagent://oauth2/callback");
    EXPECT_EQ(queryValueOf(approval, "response_type"), "code");
    EXPECT_FALSE(queryValueOf(approval, "state").empty());
    EXPECT_EQ(queryValueOf(client.authorizationURL("xyz 1"), "state"), "xyz 1");

    auto tokenRequest = server.requests("/v2/token_endpoint").at(0);
    auto form = formOf(tokenRequest.body);
    EXPECT_EQ(tokenRequest.header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(form["grant_type"], "authorization_code");
    EXPECT_EQ(form["code"], "the-code");
    EXPECT_EQ(form["redirect_uri"], "norvofreeagent://oauth2/callback");
    EXPECT_EQ(form["client_id"], "client-22-characters!!");
    EXPECT_EQ(form["client_secret"], "secret-22-characters!!");

    EXPECT_EQ(account->accessToken(), "at-1");
    auto center = account->downloadCenter();
    auto company = center->downloadJSONDictionary(server.url("/v2/company"));
    ASSERT_TRUE(company);
    EXPECT_EQ(server.lastRequest()->header("Authorization"), "Bearer at-1");

    // The account outlives the client object: it is in the key store.
    ZVOAuth2Client again(configuration, session);
    auto accounts = again.accounts();
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0]->identifier(), account->identifier());
    EXPECT_EQ(accounts[0]->accessToken(), "at-1");

    // A removed account leaves the key store.
    again.removeAccount(account->identifier());
    EXPECT_TRUE(again.accounts().empty());
    EXPECT_FALSE(keychain.password(account->identifier(), configuration.name));
}

TEST_F(ZVOAuth2ClientTests, expiredTokenIsRefreshedBeforeTheRequest) {
    server.routeSequence("POST", "/v2/token_endpoint",
                         {FakeResponse::json(R"({"access_token": "at-1", "refresh_token": "rt-1", "expires_in": 60})"),
                          FakeResponse::json(R"({"access_token": "at-2", "expires_in": 3600})")});
    server.route("GET", "/v2/projects", FakeResponse::json("{}"));
    ZVOAuth2Client client(configuration, session);
    auto account = authorize(client);
    ASSERT_TRUE(account);
    clock.advance(120);
    auto center = account->downloadCenter();
    center->downloadJSON(server.url("/v2/projects"));
    ASSERT_EQ(server.requests("/v2/token_endpoint").size(), 2u);
    auto form = formOf(server.requests("/v2/token_endpoint")[1].body);
    EXPECT_EQ(form["grant_type"], "refresh_token");
    EXPECT_EQ(form["refresh_token"], "rt-1");
    EXPECT_EQ(server.lastRequest()->header("Authorization"), "Bearer at-2");
    // The answer had no new refresh token; the old one stays.
    clock.advance(7200);
    EXPECT_TRUE(account->refresh());
    EXPECT_EQ(formOf(server.requests("/v2/token_endpoint")[2].body)["refresh_token"], "rt-1");
}

TEST_F(ZVOAuth2ClientTests, failuresAreReportedAndLeaveNoAccount) {
    server.route("POST", "/v2/token_endpoint",
                 FakeResponse::json(R"({"error": "invalid_grant", "error_description": "Code expired"})", 400));
    ZVOAuth2Client client(configuration, session);

    std::vector<ZVOAuth2Client::AuthorizationResult> results;
    auto record = [&](const auto& r) { results.push_back(r); };
    client.startAccountAuthorization(record);
    client.handleRedirect("norvofreeagent://oauth2/callback?code=c&state=" + queryValueOf(opened.back(), "state"));
    client.startAccountAuthorization(record);
    client.handleRedirect("norvofreeagent://oauth2/callback?code=c&state=forged");
    client.startAccountAuthorization(record);
    client.handleRedirect("norvofreeagent://oauth2/callback?error=access_denied&state=x");
    EXPECT_FALSE(client.handleRedirect("norvofreeagent://oauth2/callback?code=late"));

    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].error->error, "invalid_grant");
    EXPECT_EQ(results[0].error->description, "Code expired");
    EXPECT_EQ(results[1].error->error, "state_mismatch");
    EXPECT_EQ(results[2].error->error, "access_denied");
    for (const auto& result : results) EXPECT_FALSE(result.account);
    EXPECT_TRUE(client.accounts().empty());
    EXPECT_EQ(server.requests("/v2/token_endpoint").size(), 1u);
}

TEST_F(ZVOAuth2ClientTests, registryGivesOneClientPerName) {
    EXPECT_EQ(ZVOAuth2Client::client("com.tesselwick.norvo.nothing"), nullptr);
    ZVOAuth2Client& registered = ZVOAuth2Client::registerClientWithConfiguration(configuration);
    EXPECT_EQ(ZVOAuth2Client::client(configuration.name), &registered);
    EXPECT_EQ(&ZVOAuth2Client::registerClientWithConfiguration(configuration), &registered);
}

}  // namespace
