#include <gtest/gtest.h>

#include "ZVXML.h"
#include "core/integrations/address_based/redmine/ZVRedmineIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

namespace {

using Redmine = ZVRedmineIntegration;
constexpr const char* activitiesPath = "//enumerations/time_entry_activities.xml";

std::string issue(int id, const std::string& subject, const std::string& status = "New") {
    return "<issue><id>" + std::to_string(id) + "</id><project id=\"1\" name=\"Website\"/><status id=\"1\" name=\"" +
           status + "\"/><subject>" + subject + "</subject></issue>";
}

FakeResponse issues(const std::string& items) {
    return FakeResponse::xml(R"(<?xml version="1.0" encoding="UTF-8"?><issues type="array" total_count="2" offset="0" limit="100">)" +
                             items + "</issues>");
}

/// A project with issue tracking, one without, one of a server that lists
/// no modules; the issues of two of them, one closed; two
/// activities, the second the default. With a bad record, a project
/// without a name.
void serveRedmine(FakeServer& server, bool withBadRecord) {
    server.route("GET", "/projects.xml", FakeResponse::xml(std::string(R"(<?xml version="1.0" encoding="UTF-8"?>
<projects total_count="3" offset="0" limit="100" type="array">
 <project><id>1</id><name>Website</name><identifier>web</identifier>
  <enabled_modules type="array"><enabled_module id="1" name="issue_tracking"/><enabled_module id="2" name="time_tracking"/></enabled_modules></project>
 <project><id>2</id><name>Wiki only</name><enabled_modules type="array"><enabled_module id="3" name="wiki"/></enabled_modules></project>
 <project><id>3</id><name>Old server</name></project>)") +
                                                           (withBadRecord ? "<project><id>4</id></project>" : "") +
                                                           "</projects>"));
    server.route("GET", "/issues.xml", [](const FakeRequest& request) {
        if (request.queryValue("project_id") == "1") return issues(issue(11, "Fix login") + issue(12, "Shipped", "CLOSED"));
        // Only the status named closed hides an issue.
        if (request.queryValue("project_id") == "3") return issues(issue(13, "Upgrade", "Closed (won't fix)"));
        return issues("");
    });
    server.route("GET", activitiesPath, FakeResponse::xml(R"(<?xml version="1.0" encoding="UTF-8"?>
<time_entry_activities type="array">
 <time_entry_activity><id>8</id><name>Design</name><is_default>false</is_default></time_entry_activity>
 <time_entry_activity><id>9</id><name>Development</name><is_default>true</is_default></time_entry_activity>
</time_entry_activities>)"));
    server.route("POST", "/time_entries.xml",
                 FakeResponse::xml("<?xml version=\"1.0\"?><time_entry><id>77</id><hours>1.5</hours></time_entry>", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVRedmineIntegration", [] {
    return ServiceScenario{
        .serve = serveRedmine,
        .tree = "Website [1|-|-]\n  11 - Fix login [1|11|-]\nOld server [3|-|-]\n  13 - Upgrade [3|13|-]\n",
        .posted = {.projectID = "1", .subprojectID = "11", .seconds = 5400, .title = "Review"},
        .postPath = "/time_entries.xml",
        .postMembers = {{"time_entry/issue_id", "11"},
                        {"time_entry/hours", "1.50"},
                        {"time_entry/comments", "Review"},
                        {"time_entry/activity_id", "9"}},
        .settings = {{Redmine::synchronizationTypeKey, std::int64_t{1}}},
    };
});

class RedmineTests : public ServiceTestCase {
protected:
    ScriptedUserInterface ui;
};

TEST_F(RedmineTests, PagesFromOneWhileAPageIsFullAndAsksIssuesPerProjectInIssuesModeOnly) {
    serveRedmine(server, false);
    // Exactly 100 projects: a second page is asked for, which comes back empty.
    server.route("GET", "/projects.xml", [](const FakeRequest& request) {
        std::string page = "<projects type=\"array\">";
        for (int n = 0; request.queryValue("page") == "1" && n < 100; ++n)
            page += "<project><id>" + std::to_string(n) + "</id><name>P" + std::to_string(n) + "</name></project>";
        return FakeResponse::xml(page + "</projects>");
    });
    const struct {
        std::int64_t storedType;
        bool assignedToMe;
        std::size_t nodes;
        std::size_t issueRequests;
    } cases[] = {{0, false, 100, 0}, {7, false, 100, 0}, {1, true, 2, 100}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.storedType);
        server.clearRequests();
        auto account = makeAccount<Redmine>({{Redmine::synchronizationTypeKey, c.storedType},
                                             {Redmine::onlyAssignedToMeKey, c.assignedToMe}});
        // In issues mode a project without open issues is not listed: only projects 1 and 3 have any.
        EXPECT_EQ(account->loadRemoteProjects().size(), c.nodes);
        const auto pages = server.requests("/projects.xml");
        ASSERT_EQ(pages.size(), 2u);
        EXPECT_EQ(pages[0].target, "/projects.xml?include=enabled_modules&limit=100&page=1&key=" + credentials.apiToken);
        EXPECT_EQ(pages[1].queryValue("page"), "2");
        const auto asked = server.requests("/issues.xml");
        ASSERT_EQ(asked.size(), c.issueRequests);
        if (!asked.empty()) {
            EXPECT_EQ(asked[1].target, "/issues.xml?project_id=1&limit=100&page=1&assigned_to_id=me");
        }
    }
    serveRedmine(server, false);
    makeAccount<Redmine>({{Redmine::synchronizationTypeKey, std::int64_t{1}}})->loadRemoteProjects();
    EXPECT_TRUE(log.contains("Skipping issue 12 in project Website since its status is closed."));
    EXPECT_TRUE(log.contains("Project Wiki only doesn't have issue tracking enabled - wiki"));
}

TEST_F(RedmineTests, TheActivityIsAskedAtEveryPostAndTheElementFollowsTheAccountsMode) {
    serveRedmine(server, false);
    const struct {
        std::int64_t storedType;
        std::optional<std::string> answer;
        std::uint64_t seconds;
        const char* element;
        const char* id;
        const char* activity;
        const char* hours;
    } cases[] = {
        {0, "Design", 90, "project_id", "1", "8", "0.03"},
        {0, std::nullopt, 0, "project_id", "1", "<none>", "0.00"},
        // An issues account posting on a project node names no issue.
        {1, "Design", 3600, "issue_id", "", "8", "1.00"},
    };
    for (const auto& c : cases) {
        auto account = makeAccount<Redmine>({{Redmine::synchronizationTypeKey, c.storedType}});
        auto node = trackedProject(account, "Website", "1", std::nullopt, c.seconds, "Copy %@ h");
        ui.answerChoiceWith(c.answer);
        account->postTime(*node);
        const auto body = ZVXMLDocument::parse(server.requests("/time_entries.xml").back().body);
        ASSERT_TRUE(body);
        EXPECT_EQ(body->string(std::string("time_entry/") + c.element), c.id);
        EXPECT_EQ(body->string("time_entry/activity_id").value_or("<none>"), c.activity);
        EXPECT_EQ(body->string("time_entry/hours"), c.hours);
        EXPECT_EQ(body->string("time_entry/comments"), std::string("Copy ") + c.hours + " h");
    }
    const auto prompts = ui.choicePrompts();
    ASSERT_EQ(prompts.size(), 3u);
    EXPECT_EQ(prompts[0].choices, (std::vector<std::string>{"Design", "Development"}));
    EXPECT_EQ(prompts[0].preselected, 1u) << "the server's default";
    EXPECT_EQ(server.requests(activitiesPath).size(), 3u);
}

TEST_F(RedmineTests, TheServersRefusalIsTheReasonAndAMissingActivityIsExplained) {
    serveRedmine(server, false);
    auto account = makeAccount<Redmine>();
    auto node = trackedProject(account, "Website", "1", std::nullopt, 60, "Copy");
    const struct {
        int status;
        const char* words;
        bool explains;
    } cases[] = {{422, "Activity can't be blank", true},
                 {422, "Activity cannot be blank", true},
                 {200, "Activity cannot be blank", true},
                 {422, "Hours is invalid", false}};
    for (const auto& c : cases) {
        const std::size_t alertsBefore = ui.alertMessages().size();
        server.route("POST", "/time_entries.xml",
                     FakeResponse::xml(std::string("<errors type=\"array\"><error>") + c.words + "</error></errors>",
                                       c.status));
        EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, c.words)) << c.words;
        EXPECT_EQ(ui.alertMessages().size(), alertsBefore + (c.explains ? 1 : 0)) << c.words;
    }
    EXPECT_EQ(ui.alertMessages().back(), "You need to set default activity in your Redmine account.");
    server.route("GET", activitiesPath, FakeResponse::xml("<time_entry_activities type=\"array\"/>"));
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*node); }, "There are no activities defined in Redmine."));
}

}  // namespace
