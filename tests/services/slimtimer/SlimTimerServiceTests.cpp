#include <gtest/gtest.h>

#include "core/integrations/address_based/slimtimer/ZVSlimTimerIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using SlimTimer = ZVSlimTimerIntegration;

/// The user's projects in one object; with a bad record, one without its name.
void serveSlimTimer(FakeServer& server, bool withBadRecord) {
    nlohmann::json projects{{{"id", 11}, {"name", "Writing"}, {"hours", 3.5}}, {{"id", 12}, {"name", "Research"}}};
    if (withBadRecord) projects.push_back({{"id", 13}});
    server.route("GET", "/projects", FakeResponse::json(nlohmann::json{{"projects", projects}}.dump()));
    server.route("POST", "/projects/11/hours",
                 FakeResponse::json(R"({"id": 901, "project_id": 11, "title": "Review", "hours": 1.5})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVSlimTimerIntegration", [] {
    return ServiceScenario{
        .serve = serveSlimTimer,
        .tree = "Writing [11|-|-]\nResearch [12|-|-]\n",
        .posted = {.projectID = "11", .seconds = 5400, .title = "Review"},
        .postPath = "/projects/11/hours",
        .postMembers = {{"[project_item][title]", "Review"}, {"[project_item][hours]", "1.5"}},
    };
});

class SlimTimerTests : public ServiceTestCase {
protected:
    SlimTimerTests() { serveSlimTimer(server, false); }
};

TEST_F(SlimTimerTests, ANamedServerTakesTheTokenAsUserNameAndPassword) {
    // A server of the user's own, reached without any mapping of the service's host.
    auto own = makeAccount<SlimTimer>({{SlimTimer::serverKey, server.url("/")}});
    EXPECT_EQ(own->loadRemoteProjects().size(), 2u);
    own->postTime(*trackedProject(own, "Writing", "11", std::nullopt, 900, "Draft %@"));
    for (const auto& request : server.requests())
        EXPECT_EQ(request.header("Authorization"), basicAuthorization(credentials.apiToken, credentials.apiToken))
            << request.target;
    EXPECT_EQ(jsonBody(server.requests("/projects/11/hours").at(0))["project_item"]["title"], "Draft 00:15:00");

    const struct {
        const char* server;
        const char* baseURL;
    } addresses[] = {{"", "http://www.slimtimer.com"},
                     {"timer.example.org:8080/", "http://timer.example.org:8080"},
                     {"https://timer.example.org", "https://timer.example.org"}};
    for (const auto& c : addresses)
        EXPECT_EQ(makeAccount<SlimTimer>({{SlimTimer::serverKey, std::string(c.server)}})->serviceBaseURL(), c.baseURL);
}

TEST_F(SlimTimerTests, AReplyWithoutTheProjectsListOrAPostWithoutAnIDFails) {
    auto account = makeAccount<SlimTimer>({{SlimTimer::serverKey, server.url("/")}});
    for (const char* reply : {R"({"error": "gone"})", R"({"projects": {"id": 11}})"}) {
        server.route("GET", "/projects", FakeResponse::json(reply));
        EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, "No projects in response.")) << reply;
        EXPECT_TRUE(log.contains(std::string("No projects in ") + nlohmann::json::parse(reply).dump()));
    }
    server.route("POST", "/projects/11/hours", FakeResponse::json(R"({"errors": ["closed"]})", 201));
    auto node = trackedProject(account, "Writing", "11", std::nullopt, 60);
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*node); }));
}

TEST_F(SlimTimerTests, AStoredAccountKeepsItsTimeAndSaysTheServiceClosed) {
    auto stored = makeAccount<SlimTimer>();
    stored->addProject(trackedProject(stored, "Writing", "11", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDSlimTimerIntegration");
    const auto old = std::dynamic_pointer_cast<SlimTimer>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    EXPECT_NE(old->credentialPresentation()->hint.find("closed"), std::string::npos);
}

}  // namespace
