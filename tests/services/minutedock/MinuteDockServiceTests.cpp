#include <gtest/gtest.h>

#include "ZVHelpers.h"

#include "core/integrations/address_based/minutedock/ZVMinuteDockIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using MinuteDock = ZVMinuteDockIntegration;
const std::string entriesPath = "/api/v1/entries.json";

nlohmann::json item(std::int64_t id, const char* name, const char* code) {
    return {
        {"id", id}, {"name", name}, {"short_code", code}, {"description", ""}, {"hidden", false}};
}

void serveMinuteDock(FakeServer& server, bool withBadRecord) {
    nlohmann::json tasks = {item(42, "admin", "admin"), item(43, "Design", "design")};
    if (withBadRecord) tasks.push_back({{"id", 44}, {"name", "No code"}});
    nlohmann::json projects = {item(7, "Website", "web")};
    projects[0]["contact_id"] = 123;
    server.route("GET", "/api/v1/tasks.json", FakeResponse::json(tasks.dump()));
    server.route("GET", "/api/v1/projects.json", FakeResponse::json(projects.dump()));
    server.route("GET", "/api/v1/contacts.json",
                 FakeResponse::json(
                     nlohmann::json::array({item(123, "An Amazing Customer", "amazing")}).dump()));
    server.route(
        "POST", entriesPath,
        FakeResponse::json(
            R"({"id": 9001, "description": "Review", "duration": 5400, "task_ids": [42]})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVMinuteDockIntegration", [] {
    return ServiceScenario{
        .serve = serveMinuteDock,
        .tree =
            "Tasks [--TASKS--|-|-]\n  admin (#admin) [--TASKS--|42|-]\n  Design (#design) "
            "[--TASKS--|43|-]\n"
            "Projects [--PROJECTS--|-|-]\n  Website (#web) [--PROJECTS--|7|-]\n"
            "Clients [--CLIENTS--|-|-]\n  An Amazing Customer (#amazing) [--CLIENTS--|123|-]\n",
        .posted = {.projectID = "--TASKS--",
                   .subprojectID = "42",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = entriesPath,
        .postMembers = {{"entry[description]", "Review"},
                        {"entry[duration]", "5400"},
                        {"entry[task_ids][]", "42"}},
        .settings = {{MinuteDock::includesClientsKey, true}},
    };
});

class MinuteDockTests : public ServiceTestCase {
protected:
    std::shared_ptr<MinuteDock> account(const ZVDictionary& settings = {}) {
        auto made = makeAccount<MinuteDock>(settings);
        redirectServiceHost(*made);
        return made;
    }
};

TEST_F(MinuteDockTests, TheKeyGoesInTheQueryAndAnAccessTokenAsBearerAndClientsOnlyWhenAsked) {
    serveMinuteDock(server, false);
    const struct {
        bool usesAccessToken;
        std::string apiKey;
        std::string authorization;
    } cases[] = {{false, credentials.apiToken, ""}, {true, "", "Bearer " + credentials.apiToken}};
    for (const auto& c : cases) {
        server.clearRequests();
        auto minuteDock = account({{MinuteDock::usesAccessTokenKey, c.usesAccessToken}});
        EXPECT_EQ(minuteDock->loadRemoteProjects().size(), 2u)
            << "no clients unless the account asks";
        EXPECT_TRUE(server.requests("/api/v1/contacts.json").empty());
        for (const auto& request : server.requests()) {
            EXPECT_EQ(request.queryValue("api_key"), c.apiKey) << request.target;
            EXPECT_EQ(request.header("Authorization"), c.authorization) << request.target;
        }
    }
}

TEST_F(MinuteDockTests, AMessageInPlaceOfAListIsTheFailureAndAnEmptyBranchIsLeftOut) {
    serveMinuteDock(server, false);
    server.route("GET", "/api/v1/tasks.json", FakeResponse::json("[]"));
    EXPECT_EQ(treeDescription(account()->loadRemoteProjects()),
              "Projects [--PROJECTS--|-|-]\n  Website (#web) [--PROJECTS--|7|-]\n");
    server.route("GET", "/api/v1/projects.json",
                 FakeResponse::json(R"({"message": "Account is suspended"})"));
    EXPECT_TRUE(
        throwsFailureReason([&] { account()->loadRemoteProjects(); }, "Account is suspended"));
}

TEST_F(MinuteDockTests, EachBranchTagsTheEntryWithItsItemAndNoOtherNodeIsPosted) {
    serveMinuteDock(server, false);
    auto minuteDock = account();
    const struct {
        const char* branch;
        const char* field;
    } branches[] = {{"--TASKS--", "entry[task_ids][]"},
                    {"--PROJECTS--", "entry[project_id]"},
                    {"--CLIENTS--", "entry[client_id]"}};
    for (const auto& c : branches) {
        minuteDock->postTime(
            *trackedProject(minuteDock, "Item", c.branch, std::string("a&b"), 90, ""));
        const std::string body = server.requests(entriesPath).back().body;
        EXPECT_EQ(ZVPercentDecoded(body), "entry[description]=No notes&entry[duration]=90&" +
                                              std::string(c.field) + "=a&b");
        EXPECT_TRUE(body.ends_with("=a%26b")) << body;
    }
    const auto before = server.requests(entriesPath).size();
    for (const auto& [projectID, subprojectID] :
         std::vector<std::pair<std::string, std::optional<std::string>>>{
             {"7", "7"}, {"--TASKS--", std::nullopt}}) {
        auto stray = trackedProject(minuteDock, "Stray", projectID, subprojectID, 60);
        EXPECT_TRUE(
            throwsFailureReason([&] { minuteDock->postTime(*stray); }, "Internal inconsistency."));
    }
    EXPECT_EQ(server.requests(entriesPath).size(), before);
}

}  // namespace
