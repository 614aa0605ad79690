#include <gtest/gtest.h>

#include "core/integrations/address_based/targetprocess/ZVTargetProcessIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using TargetProcess = ZVTargetProcessIntegration;
const std::string api = "/api/v1/";

nlohmann::json reference(const char* resourceType, int id, const char* name) {
    return {{"ResourceType", resourceType}, {"Id", id}, {"Name", name}};
}

/// An assignable as the service lists it with the include string the
/// account sends: its type, its state and the users it is assigned to.
nlohmann::json assignable(const char* type, int id, const char* name, int stateID, int assigneeID) {
    return {
        {"ResourceType", type},
        {"Id", id},
        {"Name", name},
        {"EntityType", reference("EntityType", 4, type)},
        {"EntityState", reference("EntityState", stateID, stateID == 46 ? "Open" : "In Progress")},
        {"AssignedUser", {{"Items", {{{"ResourceType", "GeneralUser"}, {"Id", assigneeID}}}}}}};
}

nlohmann::json project(int id, const char* name, const char* state, bool isActive, int ownerID) {
    return {{"ResourceType", "Project"},
            {"Id", id},
            {"Name", name},
            {"IsActive", isActive},
            {"EntityState", reference("EntityState", 1, state)},
            {"Owner", {{"ResourceType", "GeneralUser"}, {"Id", ownerID}}}};
}

FakeResponse items(const nlohmann::json& list) {
    return FakeResponse::json(nlohmann::json{{"Items", list}}.dump());
}

/// An account where the user is number 7: three items of theirs, one open
/// project they own. With a bad record, a story without a name.
void serveTargetProcess(FakeServer& server, bool withBadRecord) {
    const auto user = [](int id, const char* email, const char* login) {
        return nlohmann::json{
            {"ResourceType", "User"}, {"Id", id}, {"Email", email}, {"Login", login}};
    };
    server.route("GET", api + "Users",
                 items({user(1, "admin@example.com", "admin"), user(7, "ada@example.com", "ada")}));
    server.route(
        "GET", api + "EntityStates",
        items({reference("EntityState", 46, "Open"), reference("EntityState", 47, "In Progress"),
               reference("EntityState", 48, "Done")}));
    nlohmann::json assignables{assignable("UserStory", 101, "Sign-up flow", 46, 7),
                               assignable("Bug", 102, "Crash on save", 47, 7),
                               assignable("UserStory", 103, "Export", 47, 7)};
    if (withBadRecord) {
        assignables.push_back(assignable("UserStory", 104, "", 46, 7));
        assignables.back().erase("Name");
    }
    server.route("GET", api + "Assignables", items(assignables));
    server.route("GET", api + "Projects",
                 items(nlohmann::json::array({project(11, "Website", "Open", true, 7)})));
    server.route("POST", api + "Times",
                 FakeResponse::json(R"({"ResourceType": "Time", "Id": 5001, "Spent": 1.5})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTargetProcessIntegration", [] {
    return ServiceScenario{
        .serve = serveTargetProcess,
        .tree =
            "Bugs [Bugs|-|-]\n  Crash on save [Bugs|102|-]\nProjects [Projects|-|-]\n  Website "
            "[Projects|11|-]\n"
            "Stories [Stories|-|-]\n  Sign-up flow [Stories|101|-]\n  Export [Stories|103|-]\n",
        .posted = {.projectID = "Stories",
                   .subprojectID = "101",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = api + "Times",
        .postMembers = {{"Description", "Review"}, {"Spent", "1.5"}, {"[Assignable][Id]", "101"}},
    };
});

class TargetProcessTests : public ServiceTestCase {};

TEST_F(TargetProcessTests, OnlyTheUsersOwnOpenWorkIsListedAndEmptyCategoriesAreLeftOut) {
    serveTargetProcess(server, false);
    auto other = assignable("Bug", 201, "Someone else's bug", 46, 1);
    auto done = assignable("Task", 202, "Finished task", 48, 7);
    auto unknownState = assignable("Task", 203, "Task of a removed state", 99, 7);
    auto epic = assignable("Epic", 204, "Big plan", 46, 7);
    // A state named only through its list, as some replies give it.
    auto listedState = assignable("Request", 205, "Call back", 0, 7);
    listedState["EntityState"] = {{"Items", {reference("EntityState", 47, "In Progress")}}};
    auto stateless = assignable("Task", 206, "No state", 46, 7);
    stateless.erase("EntityState");
    auto unassigned = assignable("Task", 207, "Nobody's", 46, 7);
    unassigned.erase("AssignedUser");
    server.route("GET", api + "Assignables",
                 items({other, done, unknownState, epic, listedState, stateless, unassigned}));
    server.route("GET", api + "Projects",
                 items({project(11, "Someone else's", "Open", true, 1),
                        project(12, "Closed", "Done", true, 7),
                        project(13, "Dormant", "In Progress", false, 7),
                        project(14, "Intranet", "In Progress", true, 7)}));

    const auto tree = makeAccount<TargetProcess>()->loadRemoteProjects();
    EXPECT_EQ(treeDescription(tree),
              "Projects [Projects|-|-]\n  Intranet [Projects|14|-]\nRequests [Requests|-|-]\n  "
              "Call back [Requests|205|-]\n");
    EXPECT_TRUE(log.contains("Unknown entity type "));
    EXPECT_TRUE(log.contains("Couldn't find entity state for ID 99 in "));
    EXPECT_TRUE(log.contains("Can't find state ID in "));
    EXPECT_TRUE(log.contains("Can't find item dicts in "));

    const auto assignables = server.requests(api + "Assignables").at(0);
    EXPECT_EQ(assignables.queryValue("take"), "999");
    EXPECT_EQ(assignables.queryValue("skip"), "0");
    EXPECT_EQ(assignables.queryValue("include"), "[AssignedUser,Name,EntityType,EntityState]");
    EXPECT_EQ(assignables.header("Accept"), "application/json");
}

TEST_F(TargetProcessTests, TheUserIsFoundByEmailThenByLoginAndAListWithoutItemsFails) {
    serveTargetProcess(server, false);
    // "ada" is a login only, the e-mail being another.
    for (const char* name : {"ada@example.com", "ada"}) {
        credentials.username = name;
        EXPECT_EQ(makeAccount<TargetProcess>()->loadRemoteProjects().size(), 3u) << name;
    }
    credentials.username = "grace@example.com";
    auto stranger = makeAccount<TargetProcess>();
    EXPECT_TRUE(throwsFailureReason([&] { stranger->loadRemoteProjects(); },
                                    "Couldn't find you on the user list."));
    EXPECT_TRUE(log.contains("Couldn't find user grace@example.com"));

    server.route("GET", api + "EntityStates", FakeResponse::json(R"({"Error": "busy"})"));
    credentials.username = "ada";
    auto account = makeAccount<TargetProcess>();
    EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); },
                                    "Invalid response received from Target Process."));
    EXPECT_TRUE(log.contains("Can't get items in {\"Error\":\"busy\"}"));
}

TEST_F(TargetProcessTests, AnAccessTokenGoesInEveryAddressAndAProjectTakesItsTimeAsAProject) {
    serveTargetProcess(server, false);
    auto account = makeAccount<TargetProcess>({{TargetProcess::usesAccessTokenKey, true}});
    account->loadRemoteProjects();
    account->postTime(*trackedProject(account, "Website", "Projects", "11", 1800, "Plan %@"));
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.queryValue("access_token"), credentials.password) << request.target;
        EXPECT_EQ(request.header("Authorization"), "") << request.target;
    }
    const auto body = jsonBody(server.requests(api + "Times").at(0));
    EXPECT_EQ(body, nlohmann::json::parse(
                        R"({"Description": "Plan 0.50", "Spent": 0.5, "Project": {"Id": 11}})"));

    // A category takes no time, nor is a reply without the new record's id a success.
    EXPECT_TRUE(throwsGenericPostingError(
        [&] { account->postTime(*trackedProject(account, "Bugs", "Bugs", std::nullopt, 60)); }));
    server.route("POST", api + "Times", FakeResponse::json(R"({"Status": "Queued"})"));
    EXPECT_TRUE(throwsGenericPostingError(
        [&] { account->postTime(*trackedProject(account, "Export", "Stories", "103", 60)); }));
}

}  // namespace
