#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ManualClock.h"

namespace {

constexpr const char* assignedQuery = "(resolution+is+empty)+and+assignee=currentUser()";
constexpr const char* unassignedQuery = "(resolution+is+empty)+and+(assignee=currentUser()+or+assignee+is+empty)";

class JIRAServiceTests : public ServiceTestCase {
protected:
    std::string base() const { return "http://" + serverAddress(); }
    /// Each synchronization first asks what the server is; these servers don't say.
    std::string serverInfoURL() const { return base() + "/rest/api/2/serverInfo"; }
    std::string searchURL(const char* query, int startAt) const {
        return base() + "/rest/api/latest/search.json?jql=" + query + "&startAt=" + std::to_string(startAt) +
               "&maxResults=999";
    }

    void serveProjectMode() {
        server.route("GET", "/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
        server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
    }

    void serveFilterMode() {
        server.route("GET", "/rest/api/latest/filter/favourite", FakeResponse::json(fixture("jira/filters.json")));
        server.route("GET", "/rest/api/2/search", [this](const FakeRequest& request) {
            const bool bugs = request.queryValue("jql").find("Bug") != std::string::npos;
            return FakeResponse::json(fixture(bugs ? "jira/filter-search-bugs.json" : "jira/filter-search-release.json"));
        });
    }

    std::shared_ptr<ZVJIRAIntegration> filterAccount() {
        return makeAccount<ZVJIRAIntegration>(
            {{ZVJIRAIntegration::synchronizationTypeKey, static_cast<int>(ZVJIRASynchronizationType::filters)}});
    }

    /// A page of `count` issues of project WEB, keys from `firstNumber` on.
    static std::string issuePage(int firstNumber, int count) {
        nlohmann::json issues = nlohmann::json::array();
        for (int number = firstNumber; number < firstNumber + count; ++number)
            issues.push_back({{"id", std::to_string(20000 + number)},
                              {"key", "WEB-" + std::to_string(number)},
                              {"fields", {{"summary", "Issue " + std::to_string(number)}, {"project", {{"key", "WEB"}}}}}});
        return nlohmann::json({{"startAt", firstNumber}, {"maxResults", 999}, {"issues", issues}}).dump();
    }
};

TEST_F(JIRAServiceTests, ProjectModeGroupsAssignedIssuesByProject) {
    serveProjectMode();
    auto account = makeAccount<ZVJIRAIntegration>();

    const auto tree = account->loadRemoteProjects();

    // "Archive" has no open issue and is left out.
    EXPECT_EQ(treeDescription(tree),
              "Website [WEB|-|-]\n"
              "  WEB-12 - Broken link on the pricing page [WEB|WEB-12|-]\n"
              "  WEB-15 - New footer [WEB|WEB-15|-]\n"
              "Operations [OPS|-|-]\n"
              "  OPS-3 - Renew the TLS certificate [OPS|OPS-3|-]\n");
    EXPECT_TRUE(everyNodeBelongsTo(tree, account));
    EXPECT_EQ(log.count("projectDict missing name or key in "), 1u) << log.joined();
    EXPECT_EQ(log.count("issueDict missing summary or key "), 1u) << log.joined();
    EXPECT_TRUE(log.contains("Couldn't find project for issue HR-1")) << log.joined();
}

TEST_F(JIRAServiceTests, ProjectModeRequests) {
    serveProjectMode();
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_EQ(transport.URLs(), (std::vector<std::string>{serverInfoURL(), base() + "/rest/api/latest/project",
                                                          searchURL(assignedQuery, 0)}));
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.method, "GET");
        if (request.path == "/rest/api/2/serverInfo") continue;
        EXPECT_EQ(request.header("Authorization"), expectedAuthorization()) << request.path;
    }
    EXPECT_EQ(account->deploymentType(), ZVJIRADeploymentType::dataCenter);
}

TEST_F(JIRAServiceTests, UnassignedIssuesUseTheWiderQuery) {
    serveProjectMode();
    auto account = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::includesUnassignedIssuesKey, true}});

    account->loadRemoteProjects();

    EXPECT_EQ(transport.URLs().back(), searchURL(unassignedQuery, 0));
}

TEST_F(JIRAServiceTests, IssuesArePagedBy999) {
    server.route("GET", "/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
    server.route("GET", "/rest/api/latest/search.json", [](const FakeRequest& request) {
        const int startAt = std::atoi(request.queryValue("startAt").c_str());
        return FakeResponse::json(issuePage(startAt, startAt == 0 ? 999 : startAt == 999 ? 999 : 3));
    });
    auto account = makeAccount<ZVJIRAIntegration>();

    const auto tree = account->loadRemoteProjects();

    EXPECT_EQ(transport.URLs(),
              (std::vector<std::string>{serverInfoURL(), base() + "/rest/api/latest/project", searchURL(assignedQuery, 0),
                                        searchURL(assignedQuery, 999), searchURL(assignedQuery, 1998)}));
    ASSERT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree.front()->subprojects().size(), 2001u);
    EXPECT_EQ(tree.front()->subprojects().back()->subprojectID(), "WEB-2000");
}

TEST_F(JIRAServiceTests, AFullLastPageAsksOnceMore) {
    server.route("GET", "/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
    server.routeSequence("GET", "/rest/api/latest/search.json",
                         {FakeResponse::json(issuePage(0, 999)), FakeResponse::json(issuePage(999, 0))});
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_EQ(server.requests("/rest/api/latest/search.json").size(), 2u);
    EXPECT_EQ(transport.URLs().back(), searchURL(assignedQuery, 999));
}

TEST_F(JIRAServiceTests, FilterModeBuildsTheFavouriteFilters) {
    serveFilterMode();
    auto account = filterAccount();

    const auto tree = account->loadRemoteProjects();

    // The numeric id 10010 reads as text; the filter without "searchUrl" and
    // the issue without a key are skipped.
    EXPECT_EQ(treeDescription(tree),
              "My open bugs [10000|-|-]\n"
              "  WEB-12 - Broken link on the pricing page [10000|WEB-12|-]\n"
              "Release 2.0 [10010|-|-]\n"
              "  OPS-3 - Renew the TLS certificate [10010|OPS-3|-]\n");
    EXPECT_TRUE(everyNodeBelongsTo(tree, account));
    EXPECT_EQ(log.count("filterDict missing name or ID "), 1u) << log.joined();
    EXPECT_EQ(log.count("issueDict missing summary or key "), 1u) << log.joined();

    // Each filter's own search address is fetched as the server gave it.
    EXPECT_EQ(transport.URLs(),
              (std::vector<std::string>{
                  serverInfoURL(), base() + "/rest/api/latest/filter/favourite",
                  base() + "/rest/api/2/search?jql=assignee+%3D+currentUser%28%29+AND+resolution+is+EMPTY+AND+type+%3D+Bug",
                  base() + "/rest/api/2/search?jql=fixVersion+%3D+%222.0%22"}));
    for (const auto& request : server.requests()) {
        if (request.path == "/rest/api/2/serverInfo") continue;
        EXPECT_EQ(request.header("Authorization"), expectedAuthorization()) << request.path;
    }
}

TEST_F(JIRAServiceTests, AnAddressWithAPathYieldsURLsUnderIt) {
    server.route("GET", "/jira/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
    server.route("GET", "/jira/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
    auto account = makeAccount<ZVJIRAIntegration>({}, "/jira");

    EXPECT_EQ(account->loadRemoteProjects().size(), 2u);
    EXPECT_EQ(transport.URLs().at(0), base() + "/jira/rest/api/2/serverInfo");
    EXPECT_EQ(transport.URLs().at(1), base() + "/jira/rest/api/latest/project");
}

TEST_F(JIRAServiceTests, SettingsLiveInTheAccountsDictionary) {
    auto account = makeAccount<ZVJIRAIntegration>();
    EXPECT_EQ(account->synchronizationType(), ZVJIRASynchronizationType::projects);
    EXPECT_FALSE(account->includesUnassignedIssues());
    EXPECT_FALSE(account->ignoresSessionCookies());
    EXPECT_FALSE(account->usesPersonalAccessToken());
    EXPECT_EQ(account->deploymentType(), ZVJIRADeploymentType::unknown);

    account->setSynchronizationType(ZVJIRASynchronizationType::filters);
    account->setIncludesUnassignedIssues(true);
    account->setIgnoresSessionCookies(true);
    account->setUsesPersonalAccessToken(true);
    account->setDeploymentType(ZVJIRADeploymentType::dataCenter);
    const ZVDictionary dictionary = account->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at("KDJIRASynchronizationType"), ZVValue(1));
    EXPECT_EQ(dictionary.at("KDJIRAIncludesUnassignedIssues"), ZVValue(true));
    EXPECT_EQ(dictionary.at("ZVJIRAIgnoresSessionCookies"), ZVValue(true));
    EXPECT_EQ(dictionary.at("ZVJIRAUsesPersonalAccessToken"), ZVValue(true));
    EXPECT_EQ(dictionary.at("ZVJIRADeploymentType"), ZVValue("DataCenter"));

    auto restored = ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(dictionary);
    EXPECT_EQ(restored->synchronizationType(), ZVJIRASynchronizationType::filters);
    EXPECT_TRUE(restored->includesUnassignedIssues());
    EXPECT_TRUE(restored->ignoresSessionCookies());
    EXPECT_TRUE(restored->usesPersonalAccessToken());
    EXPECT_EQ(restored->deploymentType(), ZVJIRADeploymentType::dataCenter);

    // A deployment of the wrong type or an unknown name counts as not found yet.
    ZVDictionary odd = dictionary;
    odd["ZVJIRADeploymentType"] = 1;
    EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(odd)->deploymentType(), ZVJIRADeploymentType::unknown);
    odd["ZVJIRADeploymentType"] = "Mainframe";
    EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(odd)->deploymentType(), ZVJIRADeploymentType::unknown);
}

TEST_F(JIRAServiceTests, AnyOtherSynchronizationTypeMeansFilters) {
    serveFilterMode();
    auto account = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::synchronizationTypeKey, 7}});

    EXPECT_EQ(account->loadRemoteProjects().size(), 2u);
    EXPECT_EQ(transport.URLs().at(1), base() + "/rest/api/latest/filter/favourite");
}

struct JIRALoadFailure {
    const char* description;
    ZVJIRASynchronizationType mode;
    const char* listReply;    // projects or favourite filters
    const char* issuesReply;  // the search
    const char* reason;       // nullptr: no connection
};

class JIRALoadFailureTests : public JIRAServiceTests, public ::testing::WithParamInterface<JIRALoadFailure> {};

TEST_P(JIRALoadFailureTests, EndsTheWholeLoad) {
    const JIRALoadFailure& failure = GetParam();
    const std::string searchURL = server.url("/search");
    server.route("GET", "/rest/api/latest/project", FakeResponse::json(failure.listReply));
    std::string filtersReply = failure.listReply;
    if (const auto at = filtersReply.find("SEARCH"); at != std::string::npos) filtersReply.replace(at, 6, searchURL);
    server.route("GET", "/rest/api/latest/filter/favourite", FakeResponse::json(filtersReply));
    server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(failure.issuesReply));
    server.route("GET", "/search", FakeResponse::json(failure.issuesReply));
    auto account = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::synchronizationTypeKey, static_cast<int>(failure.mode)}});

    const auto load = [&] { account->loadRemoteProjects(); };
    if (failure.reason) {
        EXPECT_TRUE(throwsFailureReason(load, failure.reason));
    } else {
        EXPECT_TRUE(throwsNoConnection(load));
    }
}

constexpr auto projects = ZVJIRASynchronizationType::projects;
constexpr auto filters = ZVJIRASynchronizationType::filters;
const char* const oneProject = R"([{"key": "WEB", "name": "Website"}])";
const char* const oneFilter = R"([{"id": "1", "name": "Mine", "searchUrl": "SEARCH"}])";

INSTANTIATE_TEST_SUITE_P(
    Replies, JIRALoadFailureTests,
    ::testing::Values(
        JIRALoadFailure{"projects in an object", projects, R"({"projects": []})", "{}", "Invalid project data received."},
        JIRALoadFailure{"projects of strings", projects, R"(["WEB"])", "{}", "Invalid project data received."},
        JIRALoadFailure{"projects not JSON", projects, "<html/>", "{}", nullptr},
        JIRALoadFailure{"search without issues", projects, oneProject, R"({"errorMessages": ["Bad query"]})",
                        "Invalid issue data received."},
        JIRALoadFailure{"search is an array", projects, oneProject, "[]", nullptr},
        JIRALoadFailure{"filters in an object", filters, R"({"filters": []})", "{}", "Invalid filter data received."},
        JIRALoadFailure{"filters not JSON", filters, "Service Unavailable", "{}", nullptr},
        JIRALoadFailure{"filter search without issues", filters, oneFilter, R"({"issues": {}})",
                        "Invalid issue data received."},
        JIRALoadFailure{"filter search not JSON", filters, oneFilter, "<html/>", nullptr}),
    [](const auto& testInfo) {
        std::string name = testInfo.param.description;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

TEST_F(JIRAServiceTests, NoServerIsNoConnectionInBothModes) {
    auto account = makeAccount<ZVJIRAIntegration>();
    account->setAddress(deadAddress());
    EXPECT_TRUE(throwsNoConnection([&] { account->loadRemoteProjects(); }));

    account->setSynchronizationType(ZVJIRASynchronizationType::filters);
    EXPECT_TRUE(throwsNoConnection([&] { account->loadRemoteProjects(); }));
}

// The session cookie.

class JIRASessionCookieTests : public JIRAServiceTests {
protected:
    /// The project list sets the server's session cookie, as JIRA does.
    void serveWithCookie(const std::string& cookieAttributes) {
        FakeResponse projectsReply = FakeResponse::json(fixture("jira/projects.json"));
        projectsReply.headers.emplace_back("Set-Cookie", "atlassian.xsrf.token=BWP3-NZB2-6EDY-6C7K|d4f1|lin; Path=/" +
                                                             cookieAttributes);
        server.route("GET", "/rest/api/latest/project", projectsReply);
        server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
    }

    /// Whether the search, which follows the cookie, sent the credentials.
    bool searchSentCredentials() {
        const auto searches = server.requests("/rest/api/latest/search.json");
        EXPECT_EQ(searches.size(), 1u);
        EXPECT_NE(searches.at(0).header("Cookie").find("atlassian.xsrf.token="), std::string::npos);
        return searches.at(0).hasHeader("Authorization");
    }
};

TEST_F(JIRASessionCookieTests, ACookieWithoutExpiryLogsIn) {
    serveWithCookie("");
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_EQ(server.requests("/rest/api/latest/project").at(0).header("Authorization"), expectedAuthorization());
    EXPECT_FALSE(searchSentCredentials());
}

TEST_F(JIRASessionCookieTests, ACookieValidByTheClockLogsIn) {
    ManualClock clock(ManualClock::date(2024, 3, 1, 9));
    serveWithCookie("; Expires=Wed, 01 Jan 2048 00:00:00 GMT");
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_FALSE(searchSentCredentials());
}

TEST_F(JIRASessionCookieTests, ACookieExpiredByTheClockDoesNot) {
    ManualClock clock(ManualClock::date(2049, 1, 1));
    serveWithCookie("; Expires=Wed, 01 Jan 2048 00:00:00 GMT");
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_TRUE(searchSentCredentials());
}

TEST_F(JIRASessionCookieTests, IgnoringSessionCookiesAlwaysSendsTheCredentials) {
    serveWithCookie("");
    auto account = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::ignoresSessionCookiesKey, true}});

    account->loadRemoteProjects();

    EXPECT_TRUE(searchSentCredentials());
    EXPECT_EQ(server.requests("/rest/api/latest/search.json").at(0).header("Authorization"), expectedAuthorization());
}

TEST_F(JIRASessionCookieTests, AnotherCookieNameDoesNotLogIn) {
    FakeResponse projectsReply = FakeResponse::json(fixture("jira/projects.json"));
    projectsReply.headers.emplace_back("Set-Cookie", "JSESSIONID=6E3487971234567896704A9EB4AE501F; Path=/");
    server.route("GET", "/rest/api/latest/project", projectsReply);
    server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
    auto account = makeAccount<ZVJIRAIntegration>();

    account->loadRemoteProjects();

    EXPECT_TRUE(server.requests("/rest/api/latest/search.json").at(0).hasHeader("Authorization"));
}

// Posting a worklog.

class JIRAPostingTests : public JIRAServiceTests {
protected:
    JIRAPostingTests() {
        const char* zone = std::getenv("TZ");
        _savedZone = zone ? std::optional<std::string>(zone) : std::nullopt;
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    ~JIRAPostingTests() override {
        if (_savedZone) {
            setenv("TZ", _savedZone->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    // 09:00 UTC is 10:00 in Berlin on that day.
    ManualClock clock{ManualClock::date(2024, 3, 1, 9)};
    std::optional<std::string> _savedZone;
};

TEST_F(JIRAPostingTests, PostsAWorklogOnTheIssue) {
    server.route("POST", "/rest/api/latest/issue/WEB-12/worklog", FakeResponse::json(fixture("jira/worklog-created.json"), 201));
    auto account = makeAccount<ZVJIRAIntegration>();
    auto issue = trackedProject(account, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked %@");

    account->postTime(*issue);

    // A new account asks what the server is before its first worklog.
    EXPECT_EQ(transport.URLs(),
              (std::vector<std::string>{serverInfoURL(), base() + "/rest/api/latest/issue/WEB-12/worklog?adjustEstimate=auto&newEstimate&reduceBy"}));
    const FakeRequest request = *server.lastRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.header("Authorization"), expectedAuthorization());
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("User-Agent"), account->infoPageUserAgent());
    // One hour and the ten extra minutes before 10:00 local time, with the literal "Z".
    EXPECT_EQ(jsonBody(request), nlohmann::json({{"comment", "worked 01:00:00"},
                                                 {"started", "2024-03-01T08:50:00.000Z"},
                                                 {"timeSpentSeconds", 3600}}));
    EXPECT_TRUE(jsonBody(request)["timeSpentSeconds"].is_number_integer());
    EXPECT_TRUE(log.contains("Will be posting ")) << log.joined();
}

TEST_F(JIRAPostingTests, AnIssueWithoutAnEntryPostsAnEmptyComment) {
    server.route("POST", "/rest/api/latest/issue/OPS-3/worklog", FakeResponse::json(R"({"id": 10501})", 201));
    auto account = makeAccount<ZVJIRAIntegration>();

    account->postTime(*trackedProject(account, "OPS-3 - TLS", "OPS", "OPS-3", 45));

    EXPECT_EQ(jsonBody(*server.lastRequest())["comment"], "");
    EXPECT_EQ(jsonBody(*server.lastRequest())["started"], "2024-03-01T09:49:15.000Z");
}

TEST_F(JIRAPostingTests, AReplyWithoutIDFails) {
    server.route("POST", "/rest/api/latest/issue/WEB-12/worklog",
                 FakeResponse::json(fixture("jira/error-unauthorized.json"), 403));
    auto account = makeAccount<ZVJIRAIntegration>();
    auto issue = trackedProject(account, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked");

    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*issue); }, "No ID found in response."));
    EXPECT_TRUE(log.contains("No ID found in ")) << log.joined();
}

TEST_F(JIRAPostingTests, NoAnswerIsNoConnection) {
    auto account = makeAccount<ZVJIRAIntegration>();
    auto issue = trackedProject(account, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked");

    server.route("POST", "/rest/api/latest/issue/WEB-12/worklog", FakeResponse::text("<html>Bad gateway</html>", 502));
    EXPECT_TRUE(throwsNoConnection([&] { account->postTime(*issue); }));

    account->setAddress(deadAddress());
    EXPECT_TRUE(throwsNoConnection([&] { account->postTime(*issue); }));
}

}  // namespace
