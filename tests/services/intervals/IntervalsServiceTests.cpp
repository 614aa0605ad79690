#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/intervals/ZVIntervalsIntegration.h"
#include "services/kit/FakeQueryRoutes.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Intervals = ZVIntervalsIntegration;
using Items = std::vector<std::string>;

/// A reply in the service's shape: "<intervals><status>OK</status>...<project><item>...".
FakeResponse intervalsList(const std::string& resource, const Items& items) {
    std::string xml =
        R"(<?xml version="1.0" encoding="UTF-8"?><intervals><personid>9911</personid>)"
        "<status>OK</status><code>200</code><listcount>" +
        std::to_string(items.size()) + "</listcount><" + resource + ">";
    for (const auto& item : items) xml += "<item>" + item + "</item>";
    return FakeResponse::xml(xml + "</" + resource + "></intervals>");
}

std::string record(const char* idTag, const char* id, const char* nameTag, const char* name) {
    return std::string("<") + idTag + ">" + id + "</" + idTag + "><" + nameTag + ">" + name + "</" +
           nameTag + ">";
}

void serveIntervals(FakeServer& server, bool withBadRecord) {
    server.route("GET", "/me/", intervalsList("me", {record("id", "9911", "firstname", "Ada")}));
    Items projects{record("id", "1001", "name", "Website"),
                   record("id", "1002", "name", "Billing System")};
    if (withBadRecord) projects.push_back("<id>1003</id><active>t</active>");
    server.route("GET", "/project/", intervalsList("project", projects));
    server.route(
        "GET", "/projectworktype/",
        intervalsList("projectworktype", {record("worktypeid", "31", "worktype", "Development"),
                                          record("worktypeid", "32", "worktype", "Testing")}));
    FakeQueryRoutes tasks(server, "GET", "/task/");
    tasks.add({{"projectid", "1001"}},
              intervalsList("task", {record("id", "501", "title", "Fix login")}));
    tasks.add({{"projectid", "1002"}},
              intervalsList("task", {record("id", "601", "title", "Invoices")}));
    server.route("POST", "/time/",
                 intervalsList("time", {record("id", "70001", "description", "Review")}));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVIntervalsIntegration", [] {
    return ServiceScenario{
        .serve = serveIntervals,
        .tree =
            "Website [1001|-|-]\n  Fix login (Development) [1001|501|31]\n  Fix login (Testing) "
            "[1001|501|32]\n"
            "Billing System [1002|-|-]\n  Invoices (Development) [1002|601|31]\n"
            "  Invoices (Testing) [1002|601|32]\n",
        .posted = {.projectID = "1001",
                   .subprojectID = "501",
                   .additionalID = "31",
                   .seconds = 5400},
        .postPath = "/time/",
        .postMembers = {{"time/worktypeid", "31"},
                        {"time/personid", "9911"},
                        {"time/date", ZVPostingText::date(std::time(nullptr))},
                        {"time/time", "1.50"},
                        {"time/billable", "0"},
                        {"time/description", "Review"},
                        {"time/taskid", "501"}},
    };
});

class IntervalsTests : public ServiceTestCase {
protected:
    std::shared_ptr<Intervals> account(const ZVDictionary& settings = {}) {
        redirectFixedHost("api.myintervals.com");
        return makeAccount<Intervals>(settings);
    }
};

TEST_F(IntervalsTests, TheUsersIDIsAskedOnceAndKeptAndEveryRequestTakesTheTokenAndAsksForXML) {
    serveIntervals(server, false);
    auto intervals = account({{Intervals::billableKey, true}});
    intervals->loadRemoteProjects();
    intervals->postTime(
        *trackedProject(intervals, "Fix login (Testing)", "1001", std::string("501"), 60, "Login"));
    EXPECT_EQ(server.requests("/me/").size(), 1u);
    EXPECT_EQ(server.requests("/task/").at(0).queryValue("assigneeid"), "9911");
    EXPECT_EQ(ZVXMLDocument::parse(server.requests("/time/").at(0).body)->string("time/billable"),
              "1");
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.header("Authorization"), basicAuthorization(credentials.apiToken, "X"))
            << request.path;
        EXPECT_EQ(request.header("Accept"), "application/xml") << request.path;
    }

    // The kept id survives a save and a load and spares the next sync the question.
    const auto reloaded =
        ZVIntegration::makeWithDictionary<Intervals>(intervals->dictionaryRepresentation());
    EXPECT_EQ(reloaded->cachedUserID(), "9911");
    reloaded->loadRemoteProjects();
    EXPECT_EQ(server.requests("/me/").size(), 1u);
    EXPECT_TRUE(log.contains("User ID cached"));
}

TEST_F(IntervalsTests, AProjectWithoutWorkTypesOrAUserWithoutIDFailsTheWholeSynchronization) {
    serveIntervals(server, false);
    server.route("GET", "/projectworktype/", intervalsList("projectworktype", {}));
    EXPECT_TRUE(
        throwsFailureReason([&] { account()->loadRemoteProjects(); }, "No worktypes are defined."));
    server.route("GET", "/me/", intervalsList("me", {}));
    EXPECT_TRUE(
        throwsFailureReason([&] { account()->loadRemoteProjects(); }, "Can't find user ID."));
}

}  // namespace
