#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/harvest/ZVHarvestIntegration.h"
#include "services/kit/FakeQueryRoutes.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Harvest = ZVHarvestIntegration;
const std::string assignmentsPath = "/v2/users/me/project_assignments";
const std::string entriesPath = "/v2/time_entries";
const std::string accountID = "1121001";

nlohmann::json taskAssignment(std::int64_t id, const char* name, bool active = true) {
    return {{"id", id + 9000}, {"billable", true}, {"is_active", active},
            {"task", {{"id", id}, {"name", name}}}};
}

nlohmann::json projectAssignment(std::int64_t id, const char* name, std::vector<nlohmann::json> tasks) {
    return {{"id", id + 5000},
            {"is_active", true},
            {"project", {{"id", id}, {"name", name}, {"code", "P" + std::to_string(id)}}},
            {"client", {{"id", 5735776}, {"name", "ABC Corp"}}},
            {"task_assignments", tasks}};
}

/// One page of the user's project assignments; `next` is the address of the next page.
FakeResponse assignmentsPage(const std::vector<nlohmann::json>& assignments,
                             const std::optional<std::string>& next = std::nullopt) {
    const nlohmann::json nextLink = next ? nlohmann::json(*next) : nlohmann::json(nullptr);
    return FakeResponse::json(nlohmann::json{{"project_assignments", assignments},
                                             {"per_page", 2000},
                                             {"total_pages", next ? 2 : 1},
                                             {"links", {{"next", nextLink}, {"previous", nullptr}}}}
                                  .dump());
}

void serveHarvest(FakeServer& server, bool withBadRecord) {
    std::vector<nlohmann::json> assignments{
        projectAssignment(14308069, "Online Store - Phase 1",
                          {taskAssignment(8083365, "Graphic Design"), taskAssignment(8083366, "Programming")}),
        projectAssignment(14307913, "Marketing Website", {taskAssignment(8083368, "Project Management")})};
    if (withBadRecord) {
        assignments.push_back(projectAssignment(14307999, "", {}));
        assignments.back()["project"].erase("name");
    }
    server.route("GET", assignmentsPath, assignmentsPage(assignments));
    server.route("POST", entriesPath,
                 FakeResponse::json(R"({"id": 636718192, "spent_date": "2026-11-25", "hours": 1.5,
        "notes": "Review", "project": {"id": 14308069}, "task": {"id": 8083365}})", 201));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVHarvestIntegration", [] {
    return ServiceScenario{
        .serve = serveHarvest,
        .tree = "Online Store - Phase 1 [14308069|-|-]\n  Graphic Design [14308069|8083365|-]\n"
                "  Programming [14308069|8083366|-]\n"
                "Marketing Website [14307913|-|-]\n  Project Management [14307913|8083368|-]\n",
        .posted = {.projectID = "14308069", .subprojectID = "8083365", .seconds = 5400, .title = "Review"},
        .postPath = entriesPath,
        .postMembers = {{"project_id", "14308069"},
                        {"task_id", "8083365"},
                        {"spent_date", ZVPostingText::date(std::time(nullptr))},
                        {"hours", "1.5"},
                        {"notes", "Review"}},
        .settings = {{Harvest::accountIDKey, accountID}},
    };
});

class HarvestTests : public ServiceTestCase {
protected:
    /// An account at the fake, which answers the https that the service always speaks.
    std::shared_ptr<Harvest> account() {
        auto made = makeAccount<Harvest>({{Harvest::accountIDKey, accountID}});
        redirectServiceHost(*made);
        return made;
    }
};

TEST_F(HarvestTests, AssignmentsFollowTheNextLinkAndEveryRequestNamesTheAccountAndTheUser) {
    serveHarvest(server, false);
    auto harvest = account();
    FakeQueryRoutes routes(server, "GET", assignmentsPath);
    routes.add({{"cursor", "p2"}},
               assignmentsPage({projectAssignment(3, "Intranet", {taskAssignment(31, "Old", false),
                                                                  taskAssignment(32, "Support")}),
                                projectAssignment(4, "Sales", {})}));
    routes.add({}, assignmentsPage({projectAssignment(1, "Audit", {taskAssignment(11, "Fieldwork")})},
                                   harvest->serviceBaseURL() + assignmentsPath + "?cursor=p2&per_page=2000"));

    // An archived task is left out; a project without tasks stays.
    EXPECT_EQ(treeDescription(harvest->loadRemoteProjects()),
              "Audit [1|-|-]\n  Fieldwork [1|11|-]\nIntranet [3|-|-]\n  Support [3|32|-]\nSales [4|-|-]\n");
    EXPECT_TRUE(log.contains("Skipping archived task assignment "));
    const auto asked = server.requests(assignmentsPath);
    ASSERT_EQ(asked.size(), 2u) << requestSummary(asked);
    EXPECT_EQ(asked[1].queryValue("cursor"), "p2");
    for (const auto& request : asked) {
        EXPECT_EQ(request.header("Authorization"), "Bearer " + credentials.password);
        EXPECT_EQ(request.header("Harvest-Account-Id"), accountID);
        EXPECT_EQ(request.header("User-Agent"), "Norvo (" + credentials.username + ")");
    }
}

TEST_F(HarvestTests, APostSaysNoNotesForAnEmptyNoteAndNeedsATaskAndTheEntrysID) {
    serveHarvest(server, false);
    auto harvest = account();
    const struct {
        const char* title;
        const char* notes;
    } notes[] = {{"", "No notes"}, {"Fix %@", "Fix 00:45:00"}};
    for (const auto& c : notes) {
        harvest->postTime(*trackedProject(harvest, "Programming", "1", std::string("11"), 2700, c.title));
        const auto entry = jsonBody(server.requests(entriesPath).back());
        EXPECT_EQ(entry.at("notes"), c.notes);
        EXPECT_EQ(entry.at("hours"), 0.75);
    }

    auto project = trackedProject(harvest, "Audit", "1", std::nullopt, 60);
    EXPECT_TRUE(throwsGenericPostingError([&] { harvest->postTime(*project); })) << "a project has no task";
    server.route("POST", entriesPath, FakeResponse::json(R"({"message": null})", 201));
    auto task = trackedProject(harvest, "Fieldwork", "1", std::string("11"), 60);
    EXPECT_TRUE(throwsGenericPostingError([&] { harvest->postTime(*task); })) << "no entry id";
}

TEST_F(HarvestTests, AStoredAccountOfACompanyAddressKeepsItsTimeAndReachesTheServicesOneHost) {
    serveHarvest(server, false);
    auto stored = makeAccountAt<Harvest>("acme.harvestapp.com", {{Harvest::accountIDKey, accountID}});
    stored->addProject(trackedProject(stored, "Marketing Website", "14307913", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDHarvestIntegration");
    const auto old = std::dynamic_pointer_cast<Harvest>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    EXPECT_EQ(old->accountID(), accountID);
    redirectFixedHost("api.harvestapp.com");
    EXPECT_EQ(old->loadRemoteProjects().size(), 2u);
}

}  // namespace
