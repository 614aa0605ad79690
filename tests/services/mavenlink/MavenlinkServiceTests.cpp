#include <gtest/gtest.h>

#include <regex>

#include "core/integrations/address_based/mavenlink/ZVMavenlinkIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Mavenlink = ZVMavenlinkIntegration;

/// A reply in the service's shape: references in "results", the records in
/// maps by id beside them, and "count" of the whole list.
nlohmann::json storiesPage(int count, const std::vector<std::string>& storyIDs,
                           nlohmann::json stories, nlohmann::json workspaces) {
    nlohmann::json results = nlohmann::json::array();
    for (const auto& id : storyIDs) results.push_back({{"key", "stories"}, {"id", id}});
    return {
        {"count", count}, {"results", results}, {"stories", stories}, {"workspaces", workspaces}};
}

nlohmann::json story(const std::string& id, const std::string& title,
                     const std::string& workspace) {
    return {{"id", id}, {"title", title}, {"workspace_id", workspace}};
}

nlohmann::json workspace(const std::string& id, const std::string& title, bool archived = false) {
    return {{"id", id}, {"title", title}, {"archived", archived}};
}

/// Two workspaces with a story each, one archived with its story, one
/// without stories; with a bad record, a story of a workspace not listed.
void serveStories(FakeServer& server, bool withBadRecord) {
    server.route("GET", "/api/v1/stories.json", [withBadRecord](const FakeRequest& request) {
        std::vector<std::string> ids{"21", "22", "23"};
        nlohmann::json stories{{"21", story("21", "Design", "10")},
                               {"22", story("22", "Invoice", "12")},
                               {"23", story("23", "Old task", "11")}};
        if (withBadRecord) {
            ids.push_back("24");
            stories["24"] = story("24", "Stray", "99");
        }
        const nlohmann::json workspaces{{"10", workspace("10", "Website")},
                                        {"11", workspace("11", "Archive", true)},
                                        {"12", workspace("12", "Accounts")},
                                        {"13", workspace("13", "Empty")}};
        if (request.queryValue("page") != "1")
            return FakeResponse::json(storiesPage(0, {}, {}, {}).dump());
        return FakeResponse::json(
            storiesPage(static_cast<int>(ids.size()), ids, stories, workspaces).dump());
    });
    server.route("POST", "/api/v1/time_entries.json",
                 FakeResponse::json(R"({"count": 1, "results": [{"key": "time_entries", "id": "7"}],
                                        "time_entries": {"7": {"id": "7"}}})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVMavenlinkIntegration", [] {
    return ServiceScenario{
        .serve = serveStories,
        .tree = "Accounts [12|-|-]\n  Invoice [12|22|-]\nWebsite [10|-|-]\n  Design [10|21|-]\n",
        .posted = {.projectID = "10", .subprojectID = "21", .seconds = 5400, .title = "Design"},
        .postPath = "/api/v1/time_entries.json",
        .postMembers = {{"time_entry[time_in_minutes]", "90"},
                        {"time_entry[story_id]", "21"},
                        {"time_entry[workspace_id]", "10"},
                        {"time_entry[notes]", "Design"}},
    };
});

class MavenlinkTests : public ServiceTestCase {
protected:
    std::shared_ptr<Mavenlink> mavenlink() {
        auto account = makeAccount<Mavenlink>();
        redirectServiceHost(*account);
        return account;
    }
};

TEST_F(MavenlinkTests, PagesThroughTheListAtTheLargestPageTheServerGives) {
    // 250 stories of one workspace: a page of 200 and one of 50, each reply
    // naming the workspace again.
    server.route("GET", "/api/v1/stories.json", [](const FakeRequest& request) {
        const int page = std::stoi(request.queryValue("page"));
        std::vector<std::string> ids;
        nlohmann::json stories = nlohmann::json::object();
        for (int n = (page - 1) * 200; n < std::min(page * 200, 250); ++n) {
            ids.push_back(std::to_string(1000 + n));
            stories[ids.back()] = story(ids.back(), "Story " + std::to_string(n), "10");
        }
        return FakeResponse::json(
            storiesPage(250, ids, stories, {{"10", workspace("10", "Website")}}).dump());
    });
    const auto tree = mavenlink()->loadRemoteProjects();
    ASSERT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree[0]->subprojects().size(), 250u);
    EXPECT_EQ(tree[0]->subprojects().back()->name(), "Story 249")
        << "stories keep the order of the results";
    const auto asked = server.requests("/api/v1/stories.json");
    ASSERT_EQ(asked.size(), 2u) << "the count says when the list is done";
    EXPECT_EQ(asked[1].queryValue("page"), "2");
    EXPECT_EQ(asked[1].queryValue("per_page"), "200");
    EXPECT_EQ(asked[1].queryValue("include"), "assignees,workspace");
}

TEST_F(MavenlinkTests, ArchivedAndEmptyWorkspacesStayOutAndTheServicesRefusalIsTheReason) {
    serveStories(server, false);
    auto account = mavenlink();
    account->loadRemoteProjects();
    for (const char* line : {"Skipping workspace Archive since it's archived.",
                             "Failed to find workspace (11) for story (23)",
                             "Workspace Empty has no subprojects, skipping."})
        EXPECT_TRUE(log.contains(line)) << line;

    server.route("POST", "/api/v1/time_entries.json",
                 FakeResponse::json(
                     R"({"errors": [{"type": "validation", "message": "Story is closed"}]})", 422));
    auto node = trackedProject(account, "Design", "10", "21", 60, "Review");
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, "Story is closed"));
    const std::string body = server.requests("/api/v1/time_entries.json").back().body;
    EXPECT_TRUE(
        std::regex_search(body, std::regex(R"(date_performed%5D=[01]\d%2F[0-3]\d%2F20\d\d&)")))
        << body;

    auto unauthorized = ZVIntegration::makeNew<Mavenlink>();
    EXPECT_TRUE(throwsFailureReason(
        [&] { unauthorized->loadRemoteProjects(); },
        "You haven't authorized this account with Mavenlink. Edit this account and press "
        "the Authorize button."));
}

}  // namespace
