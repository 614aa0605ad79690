#include <gtest/gtest.h>

#include "ZVJSON.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "services/kit/ServiceTestCase.h"

// The kit as a service meets it: credentials, the error policy, paging,
// records, trees and the forms of posted time, through a service of the
// tests that only says which style it uses.

namespace {

using Kind = ZVCredentialStyle::Kind;

class KitService : public ZVAddressBasedIntegration {
public:
    std::string className() const override { return "Norvo.KitService"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.kit"; }
    std::string integrationName() const override { return "Kit"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::usernamePasswordAPIToken; }
    ZVCredentialStyle credentialStyle() const override { return style; }
    std::string logIn() override { return "session-" + std::to_string(++logIns); }
    void addAccountHeaders(ZVURLRequest& request) const override { request.setHeader("X-Account", "42"); }

    ZVCredentialStyle style;
    int logIns = 0;
};

class ServiceKitTests : public ServiceTestCase {
protected:
    std::shared_ptr<KitService> account(ZVCredentialStyle style = {Kind::basicUsernamePassword}) {
        auto made = ZVIntegration::makeNew<KitService>();
        made->setAddress(serverAddress());
        made->setSSLEnabled(false);
        made->setName("Books");
        storeCredentials(*made);
        made->style = std::move(style);
        return made;
    }
};

TEST_F(ServiceKitTests, EachCredentialStyleReachesTheOwnHostWithTheAccountHeaders) {
    struct Case {
        ZVCredentialStyle style;
        std::string header, value, query;
    };
    const std::string token = credentials.apiToken;
    const Case cases[] = {
        {{Kind::basicUsernamePassword}, "Authorization", expectedAuthorization(), ""},
        {{Kind::basicTokenAndWord, "X"}, "Authorization", basicAuthorization(token, "X"), ""},
        {{Kind::bearerToken}, "Authorization", "Bearer " + token, ""},
        {{Kind::tokenHeader, "X-Redmine-API-Key"}, "X-Redmine-API-Key", token, ""},
        {{Kind::authorizationScheme, "Token token=%@"}, "Authorization", "Token token=" + token, ""},
        {{Kind::queryParameter, "api_key"}, "", "", token},
        {{Kind::session, "", Kind::tokenHeader, "X-Session"}, "X-Session", "session-1", ""},
    };
    server.route("GET", "/items", FakeResponse::json("[]"));
    for (const Case& c : cases) {
        server.clearRequests();
        auto service = account(c.style);
        service->send(ZVServiceRequest::get("/items"));
        const FakeRequest request = server.lastRequest().value();
        if (!c.header.empty()) {
            EXPECT_EQ(request.header(c.header), c.value) << c.header;
        }
        EXPECT_EQ(request.queryValue("api_key"), c.query);
        EXPECT_EQ(request.header("X-Account"), "42");
        EXPECT_NE(request.header("User-Agent").find("Norvo"), std::string::npos);
    }
}

TEST_F(ServiceKitTests, ASessionLogsInOnceMoreOnARefusalThenGivesUpWithTheCredentialsMessage) {
    auto service = account({Kind::session, "", Kind::bearerToken, ""});
    server.route("GET", "/items", [](const FakeRequest& request) {
        return FakeResponse::json("[]", request.header("Authorization") == "Bearer session-2" ? 200 : 401);
    });
    service->send(ZVServiceRequest::get("/items"));
    service->send(ZVServiceRequest::get("/items"));
    EXPECT_EQ(service->logIns, 2) << "the second session is kept in memory";
    service->endSession();
    EXPECT_TRUE(throwsFailureReason([&] { service->send(ZVServiceRequest::get("/items")); },
                                    "Kit refused the credentials of the account “Books”. Check them in the "
                                    "account's settings."));
    EXPECT_EQ(service->logIns, 4);
}

TEST_F(ServiceKitTests, OneErrorPolicyForEveryStatus) {
    struct Case {
        int status;
        ZVServiceRequest::Purpose purpose;
        std::optional<std::string> reason;  // absent: the generic posting error
    };
    const std::string refused =
        "Kit refused the credentials of the account “Books”. Check them in the account's settings.";
    const Case cases[] = {
        {401, ZVServiceRequest::Purpose::loading, refused},
        {403, ZVServiceRequest::Purpose::posting, refused},
        {410, ZVServiceRequest::Purpose::loading, "The server has removed the endpoint /items (410 Gone)."},
        {500, ZVServiceRequest::Purpose::loading, "Kit sent data that Norvo cannot read."},
        {502, ZVServiceRequest::Purpose::posting, std::nullopt},
    };
    auto service = account();
    for (const Case& c : cases) {
        server.route("*", "/items", FakeResponse::json("{}", c.status));
        ZVServiceRequest request = ZVServiceRequest::get("/items");
        request.purpose = c.purpose;
        const auto call = [&] { service->send(request); };
        EXPECT_TRUE(c.reason ? throwsFailureReason(call, *c.reason) : throwsGenericPostingError(call)) << c.status;
    }
    server.route("GET", "/items", FakeResponse::text("<html>"));
    EXPECT_TRUE(throwsFailureReason([&] { service->sendForJSON(ZVServiceRequest::get("/items")); },
                                    "Kit sent data that Norvo cannot read."));
}

TEST_F(ServiceKitTests, ARedirectToAnotherHostCarriesNoCredentials) {
    FakeServer elsewhere;
    elsewhere.route("GET", "/landing", FakeResponse::json("[]"));
    server.route("GET", "/away", FakeResponse::redirect(elsewhere.url("/landing")));
    server.route("GET", "/here", FakeResponse::redirect(server.url("/items")));
    server.route("GET", "/items", FakeResponse::json("[]"));
    for (const ZVCredentialStyle& style : {ZVCredentialStyle{Kind::basicUsernamePassword},
                                           ZVCredentialStyle{Kind::queryParameter, "api_key"}}) {
        auto service = account(style);
        service->send(ZVServiceRequest::get("/away"));
        const FakeRequest landed = elsewhere.lastRequest().value();
        EXPECT_FALSE(landed.hasHeader("Authorization"));
        EXPECT_FALSE(landed.hasHeader("X-Account"));
        EXPECT_EQ(landed.target.find(credentials.apiToken), std::string::npos) << landed.target;
        service->send(ZVServiceRequest::get("/here"));
        const FakeRequest stayed = server.lastRequest().value();
        EXPECT_EQ(stayed.path, "/items");
        EXPECT_TRUE(stayed.hasHeader("Authorization") || !stayed.queryValue("api_key").empty());
    }
    // A body keeps going with a 307, so it goes to no other host.
    server.route("POST", "/away", FakeResponse::redirect(elsewhere.url("/landing"), 307));
    elsewhere.clearRequests();
    auto service = account({Kind::none});
    EXPECT_TRUE(throwsGenericPostingError(
        [&] { service->send(ZVServiceRequest::postXML("/away", "<password>secret</password>")); }));
    EXPECT_EQ(elsewhere.requestCount(), 0u);
    // An address that repeats the query, its token included, is not followed to another host.
    server.route("GET", "/echo", [&](const FakeRequest& request) {
        return FakeResponse::redirect(elsewhere.url(request.target));
    });
    for (const ZVCredentialStyle& style : {ZVCredentialStyle{Kind::queryParameter, "api_key"},
                                           ZVCredentialStyle{Kind::session, "", Kind::queryParameter, "sessionID"}}) {
        auto repeating = account(style);
        EXPECT_TRUE(throwsFailureReason([&] { repeating->send(ZVServiceRequest::get("/echo")); },
                                        repeating->malformedReplyReason()));
        EXPECT_EQ(elsewhere.requestCount(), 0u);
    }
}

// Paging: ten items ("item 0" to "item 9") served three to a page in each
// style; every walk must bring all ten, in order, and stop by itself.

nlohmann::json tenItems(std::size_t from, std::size_t count) {
    nlohmann::json page = nlohmann::json::array();
    for (std::size_t i = from; i < std::min<std::size_t>(from + count, 10); ++i)
        page.push_back({{"id", i}, {"name", "item " + std::to_string(i)}});
    return page;
}

std::size_t number(const FakeRequest& request, const std::string& name) {
    const std::string text = request.queryValue(name);
    return text.empty() ? 0 : std::stoul(text);
}

TEST_F(ServiceKitTests, EveryPagingStyleBringsEveryItemInOrderAndStops) {
    struct Case {
        const char* description;
        ZVPagingStyle style;
        std::string itemsPath;
        /// The reply to a request for the items from `from` on.
        std::function<FakeResponse(std::size_t from, const FakeServer&)> reply;
        /// Which item a request asks for first.
        std::function<std::size_t(const FakeRequest&)> from;
    };
    const auto byPage = [](const FakeRequest& r) { return (number(r, "page") - 1) * 3; };
    const auto byOffset = [](const FakeRequest& r) { return number(r, "skip"); };
    const auto byToken = [](const FakeRequest& r) { return number(r, "cursor"); };
    const auto bare = [](std::size_t from, const FakeServer&) { return FakeResponse::json(tenItems(from, 3).dump()); };
    const Case cases[] = {
        {"page numbers to the empty page", {ZVPagingStyle::Kind::pageNumber, "page", "per_page", 3}, "", bare, byPage},
        {"page numbers to the short page",
         {.kind = ZVPagingStyle::Kind::pageNumber, .parameter = "page", .pageSize = 3, .shortPageIsLast = true}, "",
         bare, byPage},
        {"offsets to the total",
         {.kind = ZVPagingStyle::Kind::offset, .parameter = "skip", .sizeParameter = "take", .pageSize = 3,
          .totalPath = "total"},
         "data",
         [](std::size_t from, const FakeServer&) {
             return FakeResponse::json(nlohmann::json{{"data", tenItems(from, 3)}, {"total", 10}}.dump());
         },
         byOffset},
        {"tokens to the more flag",
         {.kind = ZVPagingStyle::Kind::nextToken, .parameter = "cursor", .nextPath = "[meta][next]",
          .morePath = "has_more"},
         "items",
         [](std::size_t from, const FakeServer&) {
             return FakeResponse::json(nlohmann::json{{"items", tenItems(from, 3)},
                                                      {"meta", {{"next", std::to_string(from + 3)}}},
                                                      {"has_more", from + 3 < 10}}
                                           .dump());
         },
         byToken},
        {"next addresses in the body", {.kind = ZVPagingStyle::Kind::nextURL, .nextPath = "next"}, "results",
         [](std::size_t from, const FakeServer& host) {
             nlohmann::json body{{"results", tenItems(from, 3)}, {"next", nullptr}};
             if (from + 3 < 10) body["next"] = host.url("/items?cursor=" + std::to_string(from + 3));
             return FakeResponse::json(body.dump());
         },
         byToken},
        {"link headers", {.kind = ZVPagingStyle::Kind::linkHeader}, "",
         [](std::size_t from, const FakeServer&) {
             FakeResponse response = FakeResponse::json(tenItems(from, 3).dump());
             if (from + 3 < 10)
                 response.headers.emplace_back(
                     "Link", "</items?cursor=9>; rel=\"last\", </items?cursor=" + std::to_string(from + 3) +
                                 ">; rel=\"next\"");
             return response;
         },
         byToken},
    };
    auto service = account();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.description);
        server.clearRequests();
        server.route("GET", "/items", [&](const FakeRequest& request) { return c.reply(c.from(request), server); });
        const auto items = ZVListing::items(*service, ZVServiceRequest::get("/items"), c.style, c.itemsPath);
        EXPECT_EQ(nlohmann::json(items), tenItems(0, 10));
        EXPECT_LE(server.requestCount(), 5u) << requestSummary(server.requests());
    }
}

TEST_F(ServiceKitTests, AWalkThatWouldNeverEndFailsAndAListOfTheWrongShapeIsTheServicesFailure) {
    auto service = account();
    const auto failureOf = [&](const ZVPagingStyle& style, const std::string& path) {
        try {
            ZVListing::items(*service, ZVServiceRequest::get("/items"), style, path, "No items.");
        } catch (const ZVIntegrationError& error) {
            return error.localizedFailureReason().value_or("");
        }
        return std::string("<nothing thrown>");
    };
    // A server that ignores the page number sends the first page for ever.
    server.route("GET", "/items", FakeResponse::json(tenItems(0, 3).dump()));
    EXPECT_EQ(failureOf({ZVPagingStyle::Kind::pageNumber, "page"}, ""),
              "The server sent the same page twice, so the list could not be loaded completely.");
    server.route("GET", "/xml", FakeResponse::xml("<items><item>1</item></items>"));
    EXPECT_TRUE(throwsFailureReason(
        [&] {
            ZVListing::eachXMLPage(*service, ZVServiceRequest::get("/xml"), {ZVPagingStyle::Kind::pageNumber, "page"},
                                   "items/item", [](const auto&) {});
        },
        "The server sent the same page twice, so the list could not be loaded completely."));
    // New items on every page, but no end.
    server.clearRequests();
    server.route("GET", "/items", [&](const FakeRequest& request) {
        return FakeResponse::json(nlohmann::json::array({{{"id", number(request, "page")}, {"name", "n"}}}).dump());
    });
    EXPECT_EQ(failureOf({.kind = ZVPagingStyle::Kind::pageNumber, .parameter = "page", .maximumPages = 4}, ""),
              "The server kept sending more pages, so the list could not be loaded completely.");
    EXPECT_EQ(server.requestCount(), 4u);
    for (const char* body : {R"({"items": {}})", R"({"items": ["a"]})", R"({"other": []})"}) {
        server.route("GET", "/items", FakeResponse::json(body));
        EXPECT_EQ(failureOf({}, "items"), "No items.") << body;
    }
    server.route("GET", "/items", FakeResponse::json("[1]"));
    EXPECT_EQ(failureOf({}, "items"), "Kit sent data that Norvo cannot read.");
}

TEST_F(ServiceKitTests, RecordsTakeIdsAsStringsOrNumbersAndSkipABadRecordWithALogLine) {
    const auto items = nlohmann::json::parse(R"([
        {"id": 7, "name": "Seven", "client": {"id": "c1"}, "rate": 1.5},
        {"id": "x8", "name": "Eight", "client": {"id": 2}},
        {"name": "No id"},
        {"id": 9, "name": null},
        {"id": 10, "name": "Orphan"}])");
    const auto records = ZVListing::records(items.get<std::vector<nlohmann::json>>(),
                                            {.parentPath = "[client][id]", .otherPaths = {"rate"}}, "Missing name or ID in ");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].id + "|" + records[0].name + "|" + records[0].parentID, "7|Seven|c1");
    EXPECT_EQ(records[0].others, std::vector<std::optional<std::string>>{std::string("1.5")});
    EXPECT_EQ(records[1].id + "|" + records[1].parentID, "x8|2");
    EXPECT_EQ(log.count("Missing name or ID in "), 3u) << log.joined();
    const auto document = ZVXMLDocument::parse(
        "<projects><project><id>1</id><title>One</title></project><project><title>Two</title></project></projects>");
    const auto xmlRecords = ZVListing::records(*document, "projects/project", {.namePath = "title"}, "Skipping ");
    ASSERT_EQ(xmlRecords.size(), 1u);
    EXPECT_EQ(xmlRecords[0].name, "One");
    EXPECT_NE(log.joined().find("Skipping <project><title>Two</title></project>"), std::string::npos) << log.joined();
}

TEST_F(ServiceKitTests, TreesFromParentIds) {
    auto service = account();
    const std::vector<ZVRecord> clients{{"c1", "Acme", "", {}}, {"c2", "Idle", "", {}}};
    const std::vector<ZVRecord> projects{{"p1", "Web", "c1", {}}, {"p2", "App", "c1", {}}, {"p9", "Lost", "c7", {}}};
    const std::vector<ZVRecord> tasks{{"t1", "Design", "p1", {}}};
    EXPECT_EQ(treeDescription(ZVListing::twoLevels(service, clients, projects)),
              "Acme [c1|-|-]\n  Web [c1|p1|-]\n  App [c1|p2|-]\nIdle [c2|-|-]\n");
    EXPECT_EQ(treeDescription(ZVListing::twoLevels(service, clients, projects, false)),
              "Acme [c1|-|-]\n  Web [c1|p1|-]\n  App [c1|p2|-]\n");
    EXPECT_NE(log.joined().find("Lost (p9), whose parent c7 is not listed"), std::string::npos);
    const auto three = ZVListing::threeLevels(service, clients, projects, tasks);
    EXPECT_EQ(treeDescription(three),
              "Acme [c1|-|-]\n  Web [c1|p1|-]\n    Design [c1|p1|t1]\n  App [c1|p2|-]\nIdle [c2|-|-]\n");
    EXPECT_TRUE(everyNodeBelongsTo(three, service));
}

TEST(PostingForms, HoursMinutesDatesAndSuccessTests) {
    EXPECT_EQ(ZVPostingText::decimalHours(5400, 2), "1.50");
    EXPECT_EQ(ZVPostingText::decimalHours(100, 2), "0.03");
    EXPECT_EQ(ZVPostingText::decimalHours(3600, 0), "1");
    EXPECT_EQ(ZVPostingText::wholeMinutes(29), 0u);
    EXPECT_EQ(ZVPostingText::wholeMinutes(90), 2u);
    {
        ScopedTimeZone berlin("Europe/Berlin");
        const std::time_t moment = 1795618980 - 2 * 3600;  // 2026-11-25 13:03:00 UTC
        EXPECT_EQ(ZVPostingText::dateTime(moment, ZVPostingText::Zone::compactOffset), "2026-11-25T14:03:00+0100");
        EXPECT_EQ(ZVPostingText::dateTime(moment, ZVPostingText::Zone::colonOffset), "2026-11-25T14:03:00+01:00");
        EXPECT_EQ(ZVPostingText::dateTime(moment, ZVPostingText::Zone::utc), "2026-11-25T13:03:00Z");
        EXPECT_EQ(ZVPostingText::date(moment + 37800), "2026-11-26");
        EXPECT_EQ(ZVPostingText::date(moment + 37800, true), "2026-11-25");
    }
    const auto json = nlohmann::json::parse(R"({"entry": {"id": 5}, "error": null})");
    EXPECT_NO_THROW(ZVPostingText::requireValue(json, "[entry][id]"));
    EXPECT_TRUE(throwsGenericPostingError([&] { ZVPostingText::requireValue(json, "error"); }));
    const auto xml = ZVXMLDocument::parse("<time-session><id>4</id></time-session>");
    EXPECT_NO_THROW(ZVPostingText::requireNode(*xml, "time-session/id"));
    EXPECT_TRUE(throwsGenericPostingError([&] { ZVPostingText::requireNode(*xml, "time-session/error"); }));
    EXPECT_EQ(ZVPostingText::numericID("4711"), 4711);
    for (const std::optional<std::string>& id : {std::optional<std::string>(), std::optional<std::string>(""),
                                                 std::optional<std::string>("12a"), std::optional<std::string>("x")})
        EXPECT_TRUE(throwsGenericPostingError([&] { ZVPostingText::numericID(id); })) << id.value_or("<none>");
}

}  // namespace
