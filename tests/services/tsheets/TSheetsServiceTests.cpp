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
    return {{"id", id},       {"parent_id", parentID}, {"name", name},          {"has_children", hasChildren},
            {"type", "regular"}, {"active", true},       {"short_code", ""}, {"billable", false}};
}

/// One page of the job codes below a parent, keyed by id as the service lists them.
FakeResponse jobCodes(const std::vector<nlohmann::json>& codes, bool more = false) {
    nlohmann::json listed = nlohmann::json::object();
    for (const auto& code : codes) listed[code.at("id").dump()] = code;
    return FakeResponse::json(
        nlohmann::json{{"results", {{"jobcodes", listed}}}, {"more", more}, {"supplemental_data", nlohmann::json::object()}}
            .dump());
}

/// The job codes of a company: three levels below "Cleaning", none below
/// "Office". With a bad record, a job code without a name; with
/// `fourthLevel`, "Kitchen" has children too.
void serveJobCodes(FakeServer& server, bool withBadRecord, bool fourthLevel = false) {
    FakeQueryRoutes routes(server, "GET", api + "jobcodes");
    std::vector<nlohmann::json> top{jobCode(101, 0, "Cleaning", true), jobCode(102, 0, "Office", false)};
    if (withBadRecord) {
        top.push_back(jobCode(103, 0, "", false));
        top.back().erase("name");
    }
    routes.add({{"parent_ids", "0"}}, jobCodes(top));
    routes.add({{"parent_ids", "101"}}, jobCodes({jobCode(201, 101, "Floors", true), jobCode(202, 101, "Windows", false)}));
    routes.add({{"parent_ids", "201"}}, jobCodes({jobCode(301, 201, "Kitchen", fourthLevel)}));
}

/// The company's job codes, its user 933849 and the post's reply.
void serveTSheets(FakeServer& server, bool withBadRecord) {
    server.route("GET", api + "current_user", FakeResponse::json(R"({"results": {"users": {"933849": {
        "id": 933849, "first_name": "Ada", "username": "ada", "email": "ada@example.com", "active": true}}},
        "more": false, "supplemental_data": {}})"));
    serveJobCodes(server, withBadRecord);
    server.route("POST", api + "timesheets", FakeResponse::json(R"({"results": {"timesheets": {"1": {
        "_status_code": 200, "_status_message": "Created", "id": 135653108, "user_id": 933849,
        "jobcode_id": 301, "type": "manual", "duration": 5400}}}, "supplemental_data": {}})"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVTSheetsIntegration", [] {
    return ServiceScenario{
        .serve = serveTSheets,
        .tree = "Cleaning [101|-|-]\n  Floors [101|201|-]\n    Kitchen [101|201|301]\n  Windows [101|202|-]\n"
                "Office [102|-|-]\n",
        .posted = {.projectID = "101", .subprojectID = "201", .additionalID = "301", .seconds = 5400, .title = "Review"},
        .postPath = api + "timesheets",
        .postMembers = {{"[data][0][type]", "manual"},
                        {"[data][0][duration]", "5400"},
                        {"[data][0][user_id]", "933849"},
                        {"[data][0][jobcode_id]", "301"},
                        {"[data][0][notes]", "Review"}},
    };
});

class TSheetsTests : public ServiceTestCase {};

TEST_F(TSheetsTests, JobCodesComePageByPageWithTheAccessTokenAndOnlyParentsAreAskedForChildren) {
    serveTSheets(server, false);
    FakeQueryRoutes routes(server, "GET", api + "jobcodes");
    routes.add({{"parent_ids", "0"}, {"page", "1"}}, jobCodes({jobCode(101, 0, "Cleaning", false)}, true));
    routes.add({{"parent_ids", "0"}, {"page", "2"}}, jobCodes({jobCode(102, 0, "Office", true)}));
    routes.add({{"parent_ids", "102"}}, FakeResponse::json(R"({"results": {"jobcodes": []}, "more": false})"));

    EXPECT_EQ(treeDescription(makeAccount<TSheets>()->loadRemoteProjects()), "Cleaning [101|-|-]\nOffice [102|-|-]\n");
    const auto asked = server.requests(api + "jobcodes");
    ASSERT_EQ(asked.size(), 3u) << requestSummary(asked);
    EXPECT_EQ(asked[1].queryValue("page"), "2");
    EXPECT_EQ(asked[2].queryValue("parent_ids"), "102");
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.header("Authorization"), "Bearer " + credentials.apiToken) << request.target;
        if (request.path != api + "jobcodes") continue;
        EXPECT_EQ(request.queryValue("active"), "yes");
        EXPECT_EQ(request.queryValue("limit"), "200");
    }
}

TEST_F(TSheetsTests, ListingsGiveTheirFailureReasonsOrAnEmptyTree) {
    const std::string tooDeep =
        "There are too many levels of job codes for Norvo to handle. Norvo can only handle up to three levels of job "
        "codes. Job codes at levels 4+ will not be loaded. This message will only be shown this one time.";
    const struct {
        const char* what;
        FakeResponse topLevel;
        FakeResponse user;
        std::string reason;  // empty: an empty tree
        const char* logLine;
    } cases[] = {
        {"no job codes", FakeResponse::json(R"({"results": {"jobcodes": {}}, "more": false})"), {}, "", nullptr},
        {"no job codes as a list", FakeResponse::json(R"({"results": {"jobcodes": []}, "more": false})"), {}, "",
         nullptr},
        {"no results", FakeResponse::json(R"({"more": false})"), {}, "Missing results in jobcodes listing.",
         "Missing results in {\"more\":false}"},
        {"a list of numbers", FakeResponse::json(R"({"results": {"jobcodes": [1, 2]}})"), {},
         "Missing results in jobcodes listing.", "Missing results in "},
        {"no user", {}, FakeResponse::json(R"({"results": {"users": {}}})"), "Failed to login.", "Can't sign in "},
    };
    for (const auto& c : cases) {
        serveTSheets(server, false);
        if (!c.topLevel.body.empty()) FakeQueryRoutes(server, "GET", api + "jobcodes").add({}, c.topLevel);
        if (!c.user.body.empty()) server.route("GET", api + "current_user", c.user);
        log.clear();
        auto account = makeAccount<TSheets>();
        if (c.reason.empty()) {
            EXPECT_TRUE(account->loadRemoteProjects().empty()) << c.what;
        } else {
            EXPECT_TRUE(throwsFailureReason([&] { account->loadRemoteProjects(); }, c.reason)) << c.what;
            EXPECT_TRUE(log.contains(c.logLine)) << c.what;
        }
    }

    // A child below the third level fails the whole run, every time.
    serveJobCodes(server, false, true);
    server.clearRequests();
    auto deep = makeAccount<TSheets>();
    for (int run = 0; run < 2; ++run) EXPECT_TRUE(throwsFailureReason([&] { deep->loadRemoteProjects(); }, tooDeep));
    EXPECT_EQ(server.requests(api + "jobcodes").size(), 6u) << "nothing is asked below the third level";

    // Without a token nothing is asked at all.
    server.clearRequests();
    credentials.apiToken.clear();
    auto tokenless = makeAccount<TSheets>();
    EXPECT_TRUE(throwsFailureReason([&] { tokenless->loadRemoteProjects(); }, "Failed to obtain token."));
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(TSheetsTests, EveryLevelTakesTimeOnItsOwnJobCodeAndEachSheetsStatusDecides) {
    serveTSheets(server, false);
    auto account = makeAccount<TSheets>();
    const struct {
        const char* subprojectID;
        const char* additionalID;
        std::int64_t jobCode;
    } levels[] = {{nullptr, nullptr, 101}, {"201", nullptr, 201}, {"201", "301", 301}};
    for (const auto& level : levels) {
        auto node = trackedProject(account, "Node", "101",
                                   level.subprojectID ? std::optional<std::string>(level.subprojectID) : std::nullopt,
                                   1800, "Mop %@");
        if (level.additionalID) node->setAdditionalID(level.additionalID);
        const std::time_t before = std::time(nullptr);
        account->postTime(*node);
        const auto sheet = jsonBody(server.requests(api + "timesheets").back()).at("data").at(0);
        EXPECT_EQ(sheet.at("jobcode_id"), level.jobCode);
        EXPECT_EQ(sheet.at("duration"), 1800);
        EXPECT_EQ(sheet.at("notes"), "Mop 0:30:00");
        const std::string date = sheet.at("date");
        EXPECT_TRUE(date == ZVPostingText::date(before) || date == ZVPostingText::date(std::time(nullptr))) << date;
    }
    EXPECT_EQ(server.requests(api + "current_user").size(), 3u) << "every post asks who the token belongs to";

    for (const char* reply : {R"({"results": {"timesheets": {"1": {"_status_code": 417,
                                  "_status_message": "Expectation Failed"}}}})",
                              R"({"results": {"timesheets": {}}})", R"({"results": {}})"}) {
        server.route("POST", api + "timesheets", FakeResponse::json(reply));
        EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*trackedProject(account, "Office", "102", std::nullopt, 60)); }))
            << reply;
    }
}

TEST_F(TSheetsTests, TheServicesOwnDomainIsReachedOnItsOneHostAndAStoredAccountKeepsItsTime) {
    const struct {
        const char* address;
        bool usesSSL;
        const char* serviceBaseURL;
    } cases[] = {
        {"acme.tsheets.com", false, "https://rest.tsheets.com"},
        {"rest.tsheets.com", true, "https://rest.tsheets.com"},
        {"timesheets.example.org", true, "https://timesheets.example.org"},
        {"nottsheets.com", false, "http://nottsheets.com"},
    };
    for (const auto& c : cases) {
        auto account = ZVIntegration::makeNew<TSheets>();
        account->setAddress(c.address);
        account->setSSLEnabled(c.usesSSL);
        EXPECT_EQ(account->serviceBaseURL(), c.serviceBaseURL) << c.address;
    }

    // An account of the old interface, stored with its company's own address.
    serveTSheets(server, false);
    auto stored = makeAccountAt<TSheets>("acme.tsheets.com");
    stored->addProject(trackedProject(stored, "Cleaning", "101", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDTSheetsIntegration");
    const auto old = std::dynamic_pointer_cast<TSheets>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    redirectServiceHost(*old);
    EXPECT_EQ(old->loadRemoteProjects().size(), 2u);
    EXPECT_EQ(server.requests(api + "current_user").at(0).header("Authorization"), "Bearer " + credentials.apiToken);
}

}  // namespace
