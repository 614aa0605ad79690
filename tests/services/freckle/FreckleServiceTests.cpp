#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/freckle/ZVFreckleIntegration.h"
#include "services/kit/FakeQueryRoutes.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Freckle = ZVFreckleIntegration;
const std::string projectsPath = "/v2/projects";
const std::string entriesPath = "/v2/entries";

nlohmann::json project(std::int64_t id, const char* name) {
    return {{"id", id},
            {"name", name},
            {"billing_increment", 10},
            {"enabled", true},
            {"billable", true},
            {"color", "#ff9898"},
            {"url", "https://api.nokotime.com/v2/projects/" + std::to_string(id)},
            {"group", {{"id", 3768}, {"name", "Sprockets, Inc."}}},
            {"minutes", 180}};
}

void serveFreckle(FakeServer& server, bool withBadRecord) {
    nlohmann::json projects = {project(37396, "Gear GmbH"), project(37397, "Sprockets Website")};
    if (withBadRecord) {
        projects.push_back(project(37398, ""));
        projects.back().erase("name");
    }
    server.route("GET", projectsPath, FakeResponse::json(projects.dump()));
    server.route("POST", entriesPath,
                 FakeResponse::json(R"({"id": 1711626, "date": "2026-11-25", "minutes": 90,
        "description": "Review", "project": {"id": 37396, "name": "Gear GmbH"}})",
                                    201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVFreckleIntegration", [] {
    return ServiceScenario{
        .serve = serveFreckle,
        .tree = "Gear GmbH [37396|-|-]\nSprockets Website [37397|-|-]\n",
        .posted = {.projectID = "37396", .seconds = 5400, .title = "Review"},
        .postPath = entriesPath,
        .postMembers = {{"date", ZVPostingText::date(std::time(nullptr))},
                        {"minutes", "90"},
                        {"project_id", "37396"},
                        {"description", "Review"}},
    };
});

class FreckleTests : public ServiceTestCase {
protected:
    /// An account at the fake, which answers the https that the service always speaks.
    std::shared_ptr<Freckle> account() {
        auto made = makeAccount<Freckle>();
        redirectServiceHost(*made);
        return made;
    }
};

TEST_F(FreckleTests, ProjectsFollowTheLinkHeaderAndEveryRequestCarriesTheTokenAndTheUser) {
    auto freckle = account();
    const std::string next = freckle->serviceBaseURL() + projectsPath + "?page=2&per_page=1000";
    FakeQueryRoutes routes(server, "GET", projectsPath);
    routes.add({{"page", "2"}},
               FakeResponse::json(nlohmann::json::array({project(2, "Audit")}).dump()));
    FakeResponse first = FakeResponse::json(nlohmann::json::array({project(1, "Intranet")}).dump());
    first.headers = {{"Link", "<" + next + ">; rel=\"next\", <" + next + ">; rel=\"last\""}};
    routes.add({}, first);

    EXPECT_EQ(treeDescription(freckle->loadRemoteProjects()), "Intranet [1|-|-]\nAudit [2|-|-]\n");
    EXPECT_TRUE(log.contains("Received project list "));
    const auto asked = server.requests(projectsPath);
    ASSERT_EQ(asked.size(), 2u) << requestSummary(asked);
    EXPECT_EQ(asked[0].queryValue("enabled"), "true") << "archived projects take no time";
    EXPECT_EQ(asked[0].queryValue("per_page"), "1000");
    EXPECT_EQ(asked[1].queryValue("page"), "2");
    for (const auto& request : asked) {
        EXPECT_EQ(request.header("X-NokoToken"), credentials.apiToken);
        EXPECT_EQ(request.header("Authorization"), "");
        EXPECT_EQ(request.header("User-Agent"), "Norvo (" + credentials.username + ")");
    }
}

TEST_F(FreckleTests, APostSendsWholeMinutesWithTheSecondsDropped) {
    serveFreckle(server, false);
    auto freckle = account();
    for (const auto& [seconds, minutes] :
         std::vector<std::pair<int, int>>{{59, 0}, {119, 1}, {3600, 60}}) {
        freckle->postTime(*trackedProject(freckle, "Gear GmbH", "37396", std::nullopt, seconds));
        EXPECT_EQ(jsonBody(server.requests(entriesPath).back()).at("minutes"), minutes) << seconds;
    }
}

TEST_F(FreckleTests, TheServicesAddressesOldAndNewReachItsOneHostAndAnyOtherIsAServerOfTheUsers) {
    const std::vector<std::pair<std::string, std::string>> addresses{
        {"acme.nokotime.com", "https://api.nokotime.com"},
        {"acme.letsfreckle.com", "https://api.nokotime.com"},
        {"time.example.org", "http://time.example.org"},
        {"notnokotime.com", "http://notnokotime.com"}};
    for (const auto& [address, expected] : addresses)
        EXPECT_EQ(makeAccountAt<Freckle>(address)->serviceBaseURL(), expected) << address;
}

}  // namespace
