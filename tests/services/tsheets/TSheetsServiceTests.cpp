#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/address_based/tsheets/ZVTSheetsIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using TSheets = ZVTSheetsIntegration;
const std::string api = "/api/v1/";

nlohmann::json jobCode(std::int64_t id, std::int64_t parentID, const char* name, bool hasChildren) {
    return {{"id", id},
            {"parent_id", parentID},
            {"name", name},
            {"has_children", hasChildren},
            {"active", true}};
}

/// One page of the job codes below a parent, keyed by id as the service lists them.
FakeResponse jobCodes(const std::vector<nlohmann::json>& codes, bool more = false) {
    nlohmann::json listed = nlohmann::json::object();
    for (const auto& code : codes) listed[code.at("id").dump()] = code;
    return FakeResponse::json(nlohmann::json{{"results", {{"jobcodes", listed}}},
                                             {"more", more},
                                             {"supplemental_data", nlohmann::json::object()}}
                                  .dump());
}

/// The job codes of a company: three levels below "Cleaning", none below
/// "Office". With a bad record, a job code without a name; with
/// `fourthLevel`, "Kitchen" has children too.
void serveJobCodes(FakeServer& server, bool withBadRecord, bool fourthLevel = false) {
    FakeQueryRoutes routes(server, "GET", api + "jobcodes");
    std::vector<nlohmann::json> top{jobCode(101, 0, "Cleaning", true),
                                    jobCode(102, 0, "Office", false)};
    if (withBadRecord) {
        top.push_back(jobCode(103, 0, "", false));
        top.back().erase("name");
    }
    routes.add({{"parent_ids", "0"}}, jobCodes(top));
    routes.add({{"parent_ids", "101"}},
               jobCodes({jobCode(201, 101, "Floors", true), jobCode(202, 101, "Windows", false)}));
    routes.add({{"parent_ids", "201"}}, jobCodes({jobCode(301, 201, "Kitchen", fourthLevel)}));
}

/// The company's job codes, its user 933849 and the post's reply.
void serveTSheets(FakeServer& server, bool withBadRecord) {
    server.route("GET", api + "current_user",
                 FakeResponse::json(R"({"results": {"users": {"933849": {
        "id": 933849, "first_name": "Ada", "username": "ada", "email": "ada@example.com", "active": true}}},
        "more": false, "supplemental_data": {}})"));
    serveJobCodes(server, withBadRecord);
    server.route("POST", api + "timesheets",
                 FakeResponse::json(R"({"results": {"timesheets": {"1": {
        "_status_code": 200, "_status_message": "Created", "id": 135653108, "user_id": 933849,
        "jobcode_id": 301, "type": "manual", "duration": 5400}}}, "supplemental_data": {}})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTSheetsIntegration", [] {
    return ServiceScenario{
        .serve = serveTSheets,
        .tree =
            "Cleaning [101|-|-]\n  Floors [101|201|-]\n    Kitchen [101|201|301]\n  Windows "
            "[101|202|-]\n"
            "Office [102|-|-]\n",
        .posted = {.projectID = "101",
                   .subprojectID = "201",
                   .additionalID = "301",
                   .seconds = 5400,
                   .title = "Review"},
        .postPath = api + "timesheets",
        .postMembers = {{"[data][0][type]", "manual"},
                        {"[data][0][duration]", "5400"},
                        {"[data][0][date]", ZVPostingText::date(std::time(nullptr))},
                        {"[data][0][user_id]", "933849"},
                        {"[data][0][jobcode_id]", "301"},
                        {"[data][0][notes]", "Review"}},
    };
});

class TSheetsTests : public ServiceTestCase {};

TEST_F(TSheetsTests, JobCodesComePageByPageWithTheAccessTokenAndOnlyParentsAreAskedForChildren) {
    serveTSheets(server, false);
    FakeQueryRoutes routes(server, "GET", api + "jobcodes");
    routes.add({{"parent_ids", "0"}, {"page", "1"}},
               jobCodes({jobCode(101, 0, "Cleaning", false)}, true));
    routes.add({{"parent_ids", "0"}, {"page", "2"}}, jobCodes({jobCode(102, 0, "Office", true)}));
    routes.add({{"parent_ids", "102"}},
               FakeResponse::json(R"({"results": {"jobcodes": []}, "more": false})"));

    EXPECT_EQ(treeDescription(makeAccount<TSheets>()->loadRemoteProjects()),
              "Cleaning [101|-|-]\nOffice [102|-|-]\n");
    const auto asked = server.requests(api + "jobcodes");
    ASSERT_EQ(asked.size(), 3u) << requestSummary(asked);
    EXPECT_EQ(asked[1].queryValue("page"), "2");
    EXPECT_EQ(asked[2].queryValue("parent_ids"), "102");
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.header("Authorization"), "Bearer " + credentials.apiToken)
            << request.target;
        if (request.path != api + "jobcodes") continue;
        EXPECT_EQ(request.queryValue("active"), "yes");
        EXPECT_EQ(request.queryValue("limit"), "200");
    }
}

TEST_F(TSheetsTests, ListingsGiveTheirFailureReasonsOrAnEmptyTree) {
    const struct {
        const char* topLevel;  // or the user's reply, for the last
        std::string reason;    // empty: an empty tree
        const char* logLine;
    } cases[] = {
        {R"({"results": {"jobcodes": {}}, "more": false})", "", nullptr},
        {R"({"more": false})", "Missing results in jobcodes listing.",
         "Missing results in {\"more\":false}"},
        {R"({"results": {"users": {}}})", "Failed to login.", "Can't sign in "},
    };
    for (const auto& c : cases) {
        serveTSheets(server, false);
        if (c.reason == "Failed to login.") {
            server.route("GET", api + "current_user", FakeResponse::json(c.topLevel));
        } else {
            FakeQueryRoutes(server, "GET", api + "jobcodes")
                .add({}, FakeResponse::json(c.topLevel));
        }
        auto account = makeAccount<TSheets>();
        if (c.reason.empty()) {
            EXPECT_TRUE(account->loadRemoteProjects().empty()) << c.topLevel;
        } else {
            EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, c.reason))
                << c.topLevel;
            EXPECT_TRUE(log.contains(c.logLine)) << c.topLevel;
        }
    }

    // A child below the third level fails the whole run, every time.
    serveTSheets(server, false);
    serveJobCodes(server, false, true);
    server.clearRequests();
    auto deep = makeAccount<TSheets>();
    for (int run = 0; run < 2; ++run) {
        EXPECT_TRUE(throwsFailureReason([&] { deep->loadRemoteProjects(); },
                                        "There are too many levels of job codes for Norvo to "
                                        "handle. Norvo can only handle up to three "
                                        "levels of job codes. Job codes at levels 4+ will not be "
                                        "loaded. This message will only be shown "
                                        "this one time."));
    }
    EXPECT_EQ(server.requests(api + "jobcodes").size(), 6u)
        << "nothing is asked below the third level";

    // Without a token nothing is asked at all.
    server.clearRequests();
    credentials.apiToken.clear();
    auto tokenless = makeAccount<TSheets>();
    EXPECT_TRUE(
        throwsFailureReason([&] { tokenless->loadRemoteProjects(); }, "Failed to obtain token."));
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(TSheetsTests, EveryLevelTakesTimeOnItsOwnJobCodeAndEachSheetsStatusDecides) {
    serveTSheets(server, false);
    auto account = makeAccount<TSheets>();
    const struct {
        std::optional<std::string> subprojectID, additionalID;
        std::int64_t jobCode;
    } levels[] = {
        {std::nullopt, std::nullopt, 101}, {"201", std::nullopt, 201}, {"201", "301", 301}};
    for (const auto& level : levels) {
        auto node = trackedProject(account, "Node", "101", level.subprojectID, 1800, "Mop %@");
        node->setAdditionalID(level.additionalID);
        account->postTime(*node);
        const auto sheet = jsonBody(server.requests(api + "timesheets").back()).at("data").at(0);
        EXPECT_EQ(sheet.at("jobcode_id"), level.jobCode);
        EXPECT_EQ(sheet.at("duration"), 1800);
        EXPECT_EQ(sheet.at("notes"), "Mop 00:30:00");
    }
    EXPECT_EQ(server.requests(api + "current_user").size(), 3u)
        << "every post asks whose token it is";

    for (const char* reply : {R"({"results": {"timesheets": {"1": {"_status_code": 417}}}})",
                              R"({"results": {"timesheets": {}}})"}) {
        server.route("POST", api + "timesheets", FakeResponse::json(reply));
        auto node = trackedProject(account, "Office", "102", std::nullopt, 60);
        EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*node); })) << reply;
    }
}

TEST_F(TSheetsTests, AStoredAccountOfACompanyAddressKeepsItsTimeAndReachesTheServicesOneHost) {
    serveTSheets(server, false);
    auto stored = makeAccountAt<TSheets>("acme.tsheets.com");
    stored->addProject(trackedProject(stored, "Cleaning", "101", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDTSheetsIntegration");
    const auto old =
        std::dynamic_pointer_cast<TSheets>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    // Over https, whatever the stored scheme.
    redirectFixedHost("rest.tsheets.com");
    EXPECT_EQ(old->loadRemoteProjects().size(), 2u);
}

}  // namespace
