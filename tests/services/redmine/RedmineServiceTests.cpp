#include <gtest/gtest.h>

#include "core/integrations/address_based/redmine/ZVRedmineIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

namespace {

using Redmine = ZVRedmineIntegration;

nlohmann::json module(const char* name) { return {{"id", 1}, {"name", name}}; }

nlohmann::json issue(int id, const std::string& subject, int project,
                     const std::string& status = "New") {
    return {{"id", id},
            {"subject", subject},
            {"project", {{"id", project}}},
            {"status", {{"name", status}}}};
}

/// A list reply of Redmine's shape: the records under `key`, with the
/// paging facts beside them.
FakeResponse listReply(const char* key, const nlohmann::json& records) {
    return FakeResponse::json(nlohmann::json{
        {key, records},
        {"total_count", records.size()},
        {"offset", 0},
        {"limit", 100}}.dump());
}

/// A project with issue tracking, one without, one of a server that lists
/// no modules; open issues of two projects and a closed one; two
/// activities, the second the default. With a bad record, a project
/// without a name.
void serveRedmine(FakeServer& server, bool withBadRecord) {
    nlohmann::json projects{
        {{"id", 1},
         {"name", "Website"},
         {"enabled_modules", {module("issue_tracking"), module("time_tracking")}}},
        {{"id", 2}, {"name", "Wiki only"}, {"enabled_modules", {module("wiki")}}},
        {{"id", 3}, {"name", "Old server"}}};
    if (withBadRecord) projects.push_back({{"id", 4}});
    server.route("GET", "/projects.json", listReply("projects", projects));
    server.route("GET", "/issues.json",
                 listReply("issues", {issue(11, "Fix login", 1), issue(12, "Shipped", 1, "Closed"),
                                      issue(13, "Upgrade", 3, "In Progress")}));
    server.route("GET", "/enumerations/time_entry_activities.json",
                 FakeResponse::json(
                     R"({"time_entry_activities": [{"id": 8, "name": "Design", "is_default": false},
                                     {"id": 9, "name": "Development", "is_default": true}]})"));
    server.route("POST", "/time_entries.json",
                 FakeResponse::json(R"({"time_entry": {"id": 77}})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVRedmineIntegration", [] {
    return ServiceScenario{
        .serve = serveRedmine,
        .tree =
            "Website [1|-|-]\n  11 - Fix login [1|11|-]\nOld server [3|-|-]\n  13 - Upgrade "
            "[3|13|-]\n",
        .posted = {.projectID = "1", .subprojectID = "11", .seconds = 5400, .title = "Review"},
        .postPath = "/time_entries.json",
        .postMembers = {{"[time_entry][issue_id]", "11"},
                        {"[time_entry][hours]", "1.50"},
                        {"[time_entry][comments]", "Review"},
                        {"[time_entry][activity_id]", "9"}},
        .settings = {{Redmine::synchronizationTypeKey, std::int64_t{1}}},
    };
});

class RedmineTests : public ServiceTestCase {
protected:
    ScriptedUserInterface ui;
};

TEST_F(RedmineTests, PagesFromOneUntilTheTotalAndListsProjectsWithoutIssuesInProjectsMode) {
    // 250 projects: pages 1 to 3, page P starting at (P - 1) x 100, as the server reads it.
    server.route("GET", "/projects.json", [](const FakeRequest& request) {
        const int offset = (std::stoi(request.queryValue("page")) - 1) * 100;
        nlohmann::json page = nlohmann::json::array();
        for (int n = offset; n < std::min(offset + 100, 250); ++n)
            page.push_back({{"id", n}, {"name", "P" + std::to_string(n)}});
        return FakeResponse::json(nlohmann::json{{"projects", page}, {"total_count", 250}}.dump());
    });
    const auto tree = makeAccount<Redmine>()->loadRemoteProjects();
    EXPECT_EQ(tree.size(), 250u);
    const auto asked = server.requests("/projects.json");
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[0].queryValue("page"), "1");
    EXPECT_EQ(asked[2].queryValue("page"), "3");
    EXPECT_EQ(asked[2].queryValue("limit"), "100");
    EXPECT_EQ(asked[2].queryValue("include"), "enabled_modules");
    EXPECT_TRUE(server.requests("/issues.json").empty()) << "projects mode asks for no issues";
}

TEST_F(RedmineTests, TheStoredModeAndFilterChooseWhatIsListed) {
    serveRedmine(server, false);
    const struct {
        std::int64_t storedType;
        bool assignedToMe;
        const char* tree;
    } cases[] = {
        {0, false, "Website [1|-|-]\nOld server [3|-|-]\n"},
        {7, false, "Website [1|-|-]\nOld server [3|-|-]\n"},
        {1, true,
         "Website [1|-|-]\n  11 - Fix login [1|11|-]\nOld server [3|-|-]\n  13 - Upgrade "
         "[3|13|-]\n"},
    };
    for (const auto& c : cases) {
        server.clearRequests();
        auto account = makeAccount<Redmine>({{Redmine::synchronizationTypeKey, c.storedType},
                                             {Redmine::onlyAssignedToMeKey, c.assignedToMe}});
        EXPECT_EQ(treeDescription(account->loadRemoteProjects()), c.tree) << c.storedType;
        const auto issues = server.requests("/issues.json");
        if (c.assignedToMe) {
            ASSERT_EQ(issues.size(), 1u);
            EXPECT_EQ(issues[0].queryValue("assigned_to_id"), "me");
            EXPECT_EQ(issues[0].queryValue("status_id"), "open");
        }
    }
    for (const char* line : {"Project Wiki only doesn't have issue tracking enabled",
                             "Skipping issue 12 since its status is closed."})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(RedmineTests, TheActivityIsAskedAtEveryPostAndCancelPostsWithoutOne) {
    serveRedmine(server, false);
    auto account = makeAccount<Redmine>();
    auto node = trackedProject(account, "Website", "1", std::nullopt, 90, "Copy");
    const struct {
        std::optional<std::string> answer;
        const char* activity;
    } cases[] = {{"Design", "8"}, {std::nullopt, "<none>"}};
    for (const auto& c : cases) {
        ui.answerChoiceWith(c.answer);
        account->postTime(*node);
        const auto body = jsonBody(server.requests("/time_entries.json").back());
        EXPECT_EQ(body["time_entry"].value("activity_id", "<none>"), c.activity);
        EXPECT_EQ(body["time_entry"]["project_id"], "1");
        EXPECT_EQ(body["time_entry"]["hours"], "0.03");
    }
    const auto prompts = ui.choicePrompts();
    ASSERT_EQ(prompts.size(), 2u);
    EXPECT_EQ(prompts[0].choices, (std::vector<std::string>{"Design", "Development"}));
    EXPECT_EQ(prompts[0].preselected, 1u) << "the server's default comes first";

    // Both wordings of the server's refusal bring the alert about the default activity.
    for (const char* words : {"Activity can't be blank", "Activity cannot be blank"}) {
        server.route("POST", "/time_entries.json",
                     FakeResponse::json(nlohmann::json{{"errors", {words}}}.dump(), 422));
        EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, words));
        EXPECT_EQ(ui.alertMessages().back(),
                  "You need to set default activity in your Redmine account.");
    }
    server.route("GET", "/enumerations/time_entry_activities.json",
                 FakeResponse::json(R"({"time_entry_activities": []})"));
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); },
                                    "There are no activities defined in Redmine."));
}

}  // namespace
