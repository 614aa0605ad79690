#include <gtest/gtest.h>

#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "services/jira/FakeJIRA.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ManualClock.h"

namespace {

using Deployment = FakeJIRA::Deployment;

/// How an account signs in.
enum class Way { cloudAPIToken, dataCenterPassword, dataCenterPersonalAccessToken };
const char* const wayNames[] = {"CloudAPIToken", "DataCenterPassword", "DataCenterPersonalAccessToken"};
void PrintTo(Way way, std::ostream* out) { *out << wayNames[static_cast<int>(way)]; }

constexpr const char* assignedQuery = "(resolution+is+empty)+and+assignee=currentUser()";
constexpr const char* unassignedQuery = "(resolution+is+empty)+and+(assignee=currentUser()+or+assignee+is+empty)";
/// The projects and their issues assigned to the user on the usual site
/// and in the recorded replies.
constexpr const char* assignedTree =
    "Website [WEB|-|-]\n"
    "  WEB-12 - Broken link on the pricing page [WEB|WEB-12|-]\n"
    "  WEB-15 - New footer [WEB|WEB-15|-]\n"
    "Operations [OPS|-|-]\n"
    "  OPS-3 - Renew the TLS certificate [OPS|OPS-3|-]\n";
constexpr const char* repeatedPage = "The server sent the same page twice, so the list could not be loaded completely.";

class JIRATests : public ServiceTestCase {
protected:
    // An API token of an Atlassian account and a personal access token of
    // Data Center, each with characters that a careless encoding breaks.
    const std::string APIToken = "ATATT3xFfGF0T9pY+cloud/token=";
    const std::string personalAccessToken = "NjM4MDY1NDYxMjM0OkYLq+kD0qWXpat/x=";
    const std::string password = credentials.password;

    std::string base() const { return "http://" + serverAddress(); }
    std::string searchURL(const char* query, int startAt, const std::string& path = {}) const {
        return base() + path + "/rest/api/latest/search.json?jql=" + query + "&startAt=" + std::to_string(startAt) +
               "&maxResults=999";
    }

    static Deployment deploymentOf(Way way) { return way == Way::cloudAPIToken ? Deployment::cloud : Deployment::dataCenter; }

    std::string authorizationOf(Way way) const {
        switch (way) {
            case Way::cloudAPIToken: return basicAuthorization(credentials.username, APIToken);
            case Way::dataCenterPassword: return basicAuthorization(credentials.username, password);
            case Way::dataCenterPersonalAccessToken: return "Bearer " + personalAccessToken;
        }
        return {};
    }

    /// A JIRA site of that deployment on the fake server that lets in the
    /// ways of signing in of its deployment, with nothing on it yet.
    FakeJIRA& serveEmptySite(Deployment deployment, FakeJIRA::Behaviour behaviour = {}) {
        site = std::make_unique<FakeJIRA>(server, deployment, behaviour);
        if (deployment == Deployment::cloud) {
            site->accept(authorizationOf(Way::cloudAPIToken));
        } else {
            site->accept(authorizationOf(Way::dataCenterPassword));
            site->accept(authorizationOf(Way::dataCenterPersonalAccessToken));
        }
        return *site;
    }

    /// The site that most tests expect: "Archive" has no open issue, WEB-20
    /// is assigned to nobody, HR-1 is in no listed project.
    FakeJIRA& serveSite(Deployment deployment, FakeJIRA::Behaviour behaviour = {}) {
        serveEmptySite(deployment, behaviour);
        site->addProject({"WEB", "Website"});
        site->addProject({"OPS", "Operations"});
        site->addProject({"ARC", "Archive"});
        site->addIssue({"WEB-12", "Broken link on the pricing page", "WEB", true, {"10000"}});
        site->addIssue({"WEB-15", "New footer", "WEB"});
        site->addIssue({"OPS-3", "Renew the TLS certificate", "OPS", true, {"10010"}});
        site->addIssue({"HR-1", "Onboarding", "HR"});
        site->addIssue({"WEB-20", "Unassigned crash", "WEB", false, {"10000"}});
        site->addFilter({"10000", "My open bugs"});
        site->addFilter({"10010", "Release 2.0"});
        return *site;
    }

    /// An account that signs in the given way, with its secret in the key store.
    std::shared_ptr<ZVJIRAIntegration> account(Way way, ZVDictionary settings = {}) {
        credentials.password = way == Way::cloudAPIToken                   ? APIToken
                               : way == Way::dataCenterPersonalAccessToken ? personalAccessToken
                                                                           : password;
        if (way == Way::dataCenterPersonalAccessToken) settings[ZVJIRAIntegration::usesPersonalAccessTokenKey] = true;
        return makeAccount<ZVJIRAIntegration>(settings);
    }

    /// What the user reads when the server refuses the account's credentials.
    static std::string refusedCredentials(const ZVJIRAIntegration& jira) {
        return "JIRA refused the credentials of the account “" + jira.name() + "”. Check them in the account's settings.";
    }

    std::unique_ptr<FakeJIRA> site;
};

// Recorded replies of a Data Center server, bad records included.

TEST_F(JIRATests, ProjectModeGroupsAssignedIssuesByProjectAndSkipsBadRecords) {
    // An address with a path yields URLs under it.
    server.route("GET", "/jira/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
    server.route("GET", "/jira/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
    auto jira = makeAccount<ZVJIRAIntegration>({}, "/jira");
    const auto tree = jira->loadRemoteProjects();
    // "Archive" has no open issue and is left out.
    EXPECT_EQ(treeDescription(tree), assignedTree);
    EXPECT_TRUE(everyNodeBelongsTo(tree, jira));
    EXPECT_EQ(log.count("projectDict missing name or key in "), 1u) << log.joined();
    EXPECT_EQ(log.count("issueDict missing summary or key "), 1u) << log.joined();
    EXPECT_TRUE(log.contains("Couldn't find project for issue HR-1")) << log.joined();
    // A server that doesn't say what it is counts as Data Center.
    EXPECT_EQ(jira->deploymentType(), ZVJIRADeploymentType::dataCenter);
    EXPECT_EQ(transport.URLs(), (std::vector<std::string>{base() + "/jira/rest/api/2/serverInfo",
                                                          base() + "/jira/rest/api/latest/project",
                                                          searchURL(assignedQuery, 0, "/jira")}));
    for (const auto& request : server.requests()) {
        EXPECT_EQ(request.method, "GET");
        EXPECT_EQ(request.header("Authorization"),
                  request.path == "/jira/rest/api/2/serverInfo" ? "" : expectedAuthorization()) << request.path;
    }
    jira->setIncludesUnassignedIssues(true);
    jira->loadRemoteProjects();
    EXPECT_EQ(transport.URLs().back(), searchURL(unassignedQuery, 0, "/jira"));
}

TEST_F(JIRATests, FilterModeFetchesEachFiltersOwnSearchAddress) {
    server.route("GET", "/rest/api/latest/filter/favourite", FakeResponse::json(fixture("jira/filters.json")));
    server.route("GET", "/rest/api/2/search", [this](const FakeRequest& request) {
        const bool bugs = request.queryValue("jql").find("Bug") != std::string::npos;
        return FakeResponse::json(fixture(bugs ? "jira/filter-search-bugs.json" : "jira/filter-search-release.json"));
    });
    // Any stored mode but 0 means filters.
    auto jira = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::synchronizationTypeKey, 7}});
    const auto tree = jira->loadRemoteProjects();
    // The numeric id 10010 reads as text; the filter without "searchUrl" and
    // the issue without a key are skipped.
    EXPECT_EQ(treeDescription(tree),
              "My open bugs [10000|-|-]\n"
              "  WEB-12 - Broken link on the pricing page [10000|WEB-12|-]\n"
              "Release 2.0 [10010|-|-]\n"
              "  OPS-3 - Renew the TLS certificate [10010|OPS-3|-]\n");
    EXPECT_TRUE(everyNodeBelongsTo(tree, jira));
    EXPECT_EQ(log.count("filterDict missing name or ID "), 1u) << log.joined();
    EXPECT_EQ(log.count("issueDict missing summary or key "), 1u) << log.joined();
    EXPECT_EQ(transport.URLs(),
              (std::vector<std::string>{
                  base() + "/rest/api/2/serverInfo", base() + "/rest/api/latest/filter/favourite",
                  base() + "/rest/api/2/search?jql=assignee+%3D+currentUser%28%29+AND+resolution+is+EMPTY+AND+type+%3D+Bug",
                  base() + "/rest/api/2/search?jql=fixVersion+%3D+%222.0%22"}));
    for (const auto& request : server.requests("/rest/api/2/search"))
        EXPECT_EQ(request.header("Authorization"), expectedAuthorization());
}

TEST_F(JIRATests, RepliesOfTheWrongShapeEndTheWholeLoad) {
    struct Case {
        ZVJIRASynchronizationType mode;
        const char* listReply;    // projects or favourite filters; "SEARCH" is the filter's search address
        const char* issuesReply;  // the search
        const char* reason;
    };
    constexpr auto projects = ZVJIRASynchronizationType::projects;
    constexpr auto filters = ZVJIRASynchronizationType::filters;
    const char* const oneProject = R"([{"key": "WEB", "name": "Website"}])";
    const char* const oneFilter = R"([{"id": "1", "name": "Mine", "searchUrl": "SEARCH"}])";
    const Case cases[] = {
        {projects, R"({"projects": []})", "{}", "Invalid project data received."},
        {projects, R"(["WEB"])", "{}", "Invalid project data received."},
        {projects, "<html/>", "{}", "Invalid project data received."},
        {projects, oneProject, R"({"errorMessages": ["Bad query"]})", "Invalid issue data received."},
        {projects, oneProject, "[]", "Invalid issue data received."},
        {filters, R"({"filters": []})", "{}", "Invalid filter data received."},
        {filters, "Service Unavailable", "{}", "Invalid filter data received."},
        {filters, oneFilter, R"({"issues": {}})", "Invalid issue data received."},
        {filters, oneFilter, "<html/>", "Invalid issue data received."},
    };
    for (const Case& c : cases) {
        std::string filtersReply = c.listReply;
        if (const auto at = filtersReply.find("SEARCH"); at != std::string::npos)
            filtersReply.replace(at, 6, server.url("/search"));
        server.route("GET", "/rest/api/latest/project", FakeResponse::json(c.listReply));
        server.route("GET", "/rest/api/latest/filter/favourite", FakeResponse::json(filtersReply));
        server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(c.issuesReply));
        server.route("GET", "/search", FakeResponse::json(c.issuesReply));
        auto jira = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::synchronizationTypeKey, static_cast<int>(c.mode)}});
        EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); }, c.reason)) << c.listReply << c.issuesReply;
    }
}

// The account's stored form.

TEST_F(JIRATests, TheDeploymentIsStoredOnceKnown) {
    auto jira = makeAccount<ZVJIRAIntegration>();
    EXPECT_EQ(jira->synchronizationType(), ZVJIRASynchronizationType::projects);
    EXPECT_FALSE(jira->includesUnassignedIssues() || jira->ignoresSessionCookies() || jira->usesPersonalAccessToken());
    EXPECT_EQ(jira->deploymentType(), ZVJIRADeploymentType::unknown);
    EXPECT_FALSE(jira->dictionaryRepresentation().contains(ZVJIRAIntegration::deploymentTypeKey));
    jira->setDeploymentType(ZVJIRADeploymentType::dataCenter);
    ZVDictionary dictionary = jira->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at(ZVJIRAIntegration::deploymentTypeKey), ZVValue("DataCenter"));
    EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(dictionary)->deploymentType(),
              ZVJIRADeploymentType::dataCenter);
    // A deployment of the wrong type or an unknown name counts as not found yet.
    for (const ZVValue& odd : {ZVValue(1), ZVValue("Mainframe")}) {
        dictionary[ZVJIRAIntegration::deploymentTypeKey] = odd;
        EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(dictionary)->deploymentType(),
                  ZVJIRADeploymentType::unknown);
    }
    // An older database without it finds it at the next synchronization.
    serveSite(Deployment::cloud);
    credentials.password = APIToken;
    auto older = makeAccount<ZVJIRAIntegration>();
    older->loadRemoteProjects();
    const ZVDictionary saved = older->dictionaryRepresentation();
    EXPECT_EQ(saved.at(ZVJIRAIntegration::deploymentTypeKey), ZVValue("Cloud"));
    EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(saved)->deploymentType(), ZVJIRADeploymentType::cloud);
}

TEST_F(JIRATests, ThePersonalAccessTokenLivesInTheKeyStoreOnly) {
    auto jira = account(Way::dataCenterPersonalAccessToken);
    jira->save();
    const ZVDictionary dictionary = jira->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at(ZVJIRAIntegration::usesPersonalAccessTokenKey), ZVValue(true));
    const std::string stored = ZVValue(dictionary).description();
    EXPECT_NE(stored.find(credentials.username), std::string::npos) << stored;
    EXPECT_EQ(stored.find("NjM4MDY1"), std::string::npos) << stored;
    EXPECT_EQ(keychain.password(credentials.username, jira->accountIdentifier()), personalAccessToken);
}

TEST_F(JIRATests, TheServerInformationDecidesTheDeploymentAndIsAskedAnonymously) {
    struct Case {
        const char* description;
        std::optional<Deployment> site;  // none: no server information
        const char* host;                // none: the fake server's own address
        const char* stored;              // the deployment an earlier synchronization found
        ZVJIRADeploymentType expected;
    };
    const Case cases[] = {
        {"Cloud says so", Deployment::cloud, nullptr, nullptr, ZVJIRADeploymentType::cloud},
        {"Data Center says Server", Deployment::dataCenter, nullptr, "Cloud", ZVJIRADeploymentType::dataCenter},
        {"no answer on a Cloud host", std::nullopt, "acme.atlassian.net", nullptr, ZVJIRADeploymentType::cloud},
        {"no answer on a Cloud host found otherwise before", std::nullopt, "acme.atlassian.net", "DataCenter",
         ZVJIRADeploymentType::cloud},
        {"no answer on another host", std::nullopt, nullptr, nullptr, ZVJIRADeploymentType::dataCenter},
        {"no answer, found before", std::nullopt, nullptr, "Cloud", ZVJIRADeploymentType::cloud},
    };
    for (const Case& c : cases) {
        FakeServer other;
        std::optional<FakeJIRA> jiraSite;
        if (c.site) jiraSite.emplace(other, *c.site);
        std::string address = "127.0.0.1:" + std::to_string(other.port());
        if (c.host) {
            address = c.host;
            transport.redirect(std::string("http://") + c.host, other.baseURL());
        }
        ZVDictionary settings;
        if (c.stored) settings[ZVJIRAIntegration::deploymentTypeKey] = c.stored;
        auto jira = makeAccountAt<ZVJIRAIntegration>(address, settings);
        EXPECT_EQ(jira->detectDeploymentType(), c.expected) << c.description;
        EXPECT_EQ(jira->deploymentType(), c.expected) << c.description;
        ASSERT_EQ(other.requestCount(), 1u) << c.description;
        EXPECT_EQ(other.lastRequest()->path, "/rest/api/2/serverInfo");
        EXPECT_FALSE(other.lastRequest()->hasHeader("Authorization")) << c.description;
    }
}

// Each way of signing in, against a site in the documented shapes of its deployment.

class JIRASignInTests : public JIRATests, public ::testing::WithParamInterface<Way> {};

TEST_P(JIRASignInTests, EveryModeBuildsTheSameTree) {
    serveSite(deploymentOf(GetParam()));
    struct Case {
        ZVDictionary settings;
        const char* tree;
    };
    const Case cases[] = {
        {{}, assignedTree},
        {{{ZVJIRAIntegration::includesUnassignedIssuesKey, true}},
         "Website [WEB|-|-]\n"
         "  WEB-12 - Broken link on the pricing page [WEB|WEB-12|-]\n"
         "  WEB-15 - New footer [WEB|WEB-15|-]\n"
         "  WEB-20 - Unassigned crash [WEB|WEB-20|-]\n"
         "Operations [OPS|-|-]\n"
         "  OPS-3 - Renew the TLS certificate [OPS|OPS-3|-]\n"},
        {{{ZVJIRAIntegration::synchronizationTypeKey, 1}},
         "My open bugs [10000|-|-]\n"
         "  WEB-12 - Broken link on the pricing page [10000|WEB-12|-]\n"
         "  WEB-20 - Unassigned crash [10000|WEB-20|-]\n"
         "Release 2.0 [10010|-|-]\n"
         "  OPS-3 - Renew the TLS certificate [10010|OPS-3|-]\n"},
    };
    for (const Case& c : cases) {
        auto jira = account(GetParam(), c.settings);
        const auto tree = jira->loadRemoteProjects();
        EXPECT_EQ(treeDescription(tree), c.tree) << requestSummary(server.requests());
        EXPECT_TRUE(everyNodeBelongsTo(tree, jira));
        EXPECT_EQ(jira->deploymentType(), GetParam() == Way::cloudAPIToken ? ZVJIRADeploymentType::cloud
                                                                            : ZVJIRADeploymentType::dataCenter);
    }
    EXPECT_TRUE(log.contains("Couldn't find project for issue HR-1")) << log.joined();
}

TEST_P(JIRASignInTests, EveryRequestButTheServerInformationCarriesTheCredentials) {
    serveSite(deploymentOf(GetParam()), {.setsSessionCookie = true});
    auto jira = account(GetParam());
    jira->loadRemoteProjects();
    jira->loadRemoteProjects();
    size_t withCredentials = 0;
    size_t withCookieAlone = 0;
    for (const auto& request : server.requests()) {
        if (request.path == "/rest/api/2/serverInfo") {
            EXPECT_FALSE(request.hasHeader("Authorization"));
        } else if (request.hasHeader("Authorization")) {
            EXPECT_EQ(request.header("Authorization"), authorizationOf(GetParam())) << request.path;
            ++withCredentials;
        } else {
            EXPECT_NE(request.header("Cookie").find("atlassian.xsrf.token="), std::string::npos) << request.path;
            ++withCookieAlone;
        }
    }
    // Only a password on Data Center lets the session cookie log in.
    if (GetParam() == Way::dataCenterPassword) {
        EXPECT_EQ(withCredentials, 1u) << requestSummary(server.requests());
        EXPECT_GT(withCookieAlone, 0u);
    } else {
        EXPECT_EQ(withCookieAlone, 0u) << requestSummary(server.requests());
        EXPECT_GE(withCredentials, 4u);
    }
}

TEST_P(JIRASignInTests, TwoThousandIssuesComeOverSeveralPages) {
    FakeJIRA& jiraSite = serveEmptySite(deploymentOf(GetParam()), {.searchPageCap = 700});
    jiraSite.addProject({"WEB", "Website"});
    for (int number = 1; number <= 2000; ++number)
        jiraSite.addIssue({"WEB-" + std::to_string(number), "Issue " + std::to_string(number), "WEB"});
    auto jira = account(GetParam());
    const auto tree = jira->loadRemoteProjects();
    ASSERT_EQ(tree.size(), 1u);
    const auto& issues = tree.front()->subprojects();
    ASSERT_EQ(issues.size(), 2000u);
    for (size_t index = 0; index < issues.size(); index += 250)
        EXPECT_EQ(issues[index]->subprojectID(), "WEB-" + std::to_string(index + 1));
    EXPECT_EQ(issues.back()->name(), "WEB-2000 - Issue 2000");
    if (GetParam() == Way::cloudAPIToken) {
        // Pages of 700, 700 and 600: each asks for the most, names the
        // fields and hands back the token of the page before.
        const auto searches = server.requests("/rest/api/2/search/jql");
        ASSERT_EQ(searches.size(), 3u) << requestSummary(server.requests());
        EXPECT_EQ(searches[0].query.count("nextPageToken"), 0u);
        EXPECT_EQ(searches[1].queryText("nextPageToken"), "CAEaAggD+/=700");
        EXPECT_EQ(searches[2].queryText("nextPageToken"), "CAEaAggD+/=1400");
        for (const auto& search : searches) {
            EXPECT_EQ(search.queryText("jql"), "(resolution is empty) and assignee=currentUser()");
            EXPECT_EQ(search.queryValue("fields"), "summary,project");
            EXPECT_EQ(search.queryValue("maxResults"), "5000");
        }
        EXPECT_TRUE(server.requests("/rest/api/latest/search.json").empty());
    } else {
        // Pages of 999, 999 and 2: the short one is the last.
        const auto urls = transport.URLs();
        EXPECT_EQ(std::vector<std::string>(urls.end() - 3, urls.end()),
                  (std::vector<std::string>{searchURL(assignedQuery, 0), searchURL(assignedQuery, 999),
                                            searchURL(assignedQuery, 1998)}));
    }
}

TEST_P(JIRASignInTests, PostsTheWorklogMemberByMemberAndNotWithRefusedCredentials) {
    ScopedTimeZone berlin("Europe/Berlin");
    // 09:00 UTC is 10:00 in Berlin on that day.
    ManualClock clock(ManualClock::date(2024, 3, 1, 9));
    serveSite(deploymentOf(GetParam()));
    auto jira = account(GetParam());
    auto issue = trackedProject(jira, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked %@");
    jira->postTime(*issue);
    // A new account asks what the server is before its first worklog.
    const bool cloud = GetParam() == Way::cloudAPIToken;
    const std::string path = cloud ? "/rest/api/2/issue/WEB-12/worklog" : "/rest/api/latest/issue/WEB-12/worklog";
    EXPECT_EQ(transport.URLs(), (std::vector<std::string>{base() + "/rest/api/2/serverInfo",
                                                          base() + path + "?adjustEstimate=auto&newEstimate&reduceBy"}));
    const FakeRequest request = *server.lastRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, path);
    EXPECT_EQ(request.header("Authorization"), authorizationOf(GetParam()));
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("User-Agent"), jira->infoPageUserAgent());
    // One hour and the ten extra minutes before 10:00 local time, with the
    // literal "Z"; a plain string comment on both (the v2 path keeps it out
    // of rich text) and whole seconds.
    const nlohmann::json body = jsonBody(request);
    EXPECT_EQ(body, nlohmann::json({{"comment", "worked 01:00:00"},
                                    {"started", "2024-03-01T08:50:00.000Z"},
                                    {"timeSpentSeconds", 3600}}));
    EXPECT_TRUE(body["timeSpentSeconds"].is_number_integer());
    EXPECT_TRUE(log.contains("Will be posting ")) << log.joined();
    // An issue without a run posts an empty comment.
    jira->postTime(*trackedProject(jira, "OPS-3 - TLS", "OPS", "OPS-3", 45));
    EXPECT_EQ(jsonBody(*server.lastRequest())["comment"], "");
    EXPECT_EQ(jsonBody(*server.lastRequest())["started"], "2024-03-01T09:49:15.000Z");
    // Refused credentials name the account; a password where Cloud wants an
    // API token is refused like any other.
    credentials.password = GetParam() == Way::cloudAPIToken ? password : "expired";
    storeCredentials(*jira);
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); }, refusedCredentials(*jira)));
    EXPECT_TRUE(throwsFailureReason([&] { jira->postTime(*issue); }, refusedCredentials(*jira)));
}

INSTANTIATE_TEST_SUITE_P(Ways, JIRASignInTests,
                         ::testing::Values(Way::cloudAPIToken, Way::dataCenterPassword,
                                           Way::dataCenterPersonalAccessToken),
                         [](const auto& testInfo) { return std::string(wayNames[static_cast<int>(testInfo.param)]); });

// The session cookie of Data Center.

TEST_F(JIRATests, TheSessionCookieStandsInForTheCredentialsWhileItIsValid) {
    struct Case {
        const char* setCookie;  // what the project list sets
        int year;               // of the clock
        bool ignoresSessionCookies;
        bool searchSendsCredentials;
    };
    const Case cases[] = {
        {"atlassian.xsrf.token=BWP3|lin; Path=/", 2024, false, false},
        {"atlassian.xsrf.token=BWP3|lin; Path=/; Expires=Wed, 01 Jan 2048 00:00:00 GMT", 2024, false, false},
        {"atlassian.xsrf.token=BWP3|lin; Path=/; Expires=Wed, 01 Jan 2048 00:00:00 GMT", 2049, false, true},
        {"atlassian.xsrf.token=BWP3|lin; Path=/", 2024, true, true},
        {"JSESSIONID=6E3487971234567896704A9EB4AE501F; Path=/", 2024, false, true},
    };
    for (const Case& c : cases) {
        ManualClock clock(ManualClock::date(c.year, 1, 1));
        transport.clearAllCookies();
        server.clearRequests();
        FakeResponse projects = FakeResponse::json(fixture("jira/projects.json"));
        projects.headers.emplace_back("Set-Cookie", c.setCookie);
        server.route("GET", "/rest/api/latest/project", projects);
        server.route("GET", "/rest/api/latest/search.json", FakeResponse::json(fixture("jira/search-assigned.json")));
        auto jira = makeAccount<ZVJIRAIntegration>({{ZVJIRAIntegration::ignoresSessionCookiesKey, c.ignoresSessionCookies}});
        jira->loadRemoteProjects();
        EXPECT_EQ(server.requests("/rest/api/latest/project").at(0).header("Authorization"), expectedAuthorization());
        const FakeRequest search = server.requests("/rest/api/latest/search.json").at(0);
        EXPECT_EQ(search.header("Authorization"), c.searchSendsCredentials ? expectedAuthorization() : "") << c.setCookie;
        EXPECT_NE(search.header("Cookie").find(std::string(c.setCookie).substr(0, 10)), std::string::npos);
    }
}

TEST_F(JIRATests, TheCookieOfTheAnonymousServerInformationIsNoSession) {
    // Data Center sets its XSRF token cookie on the server information, which
    // is asked without credentials; a request that leant on it would be refused.
    serveSite(Deployment::dataCenter);
    auto jira = account(Way::dataCenterPassword);
    EXPECT_EQ(jira->detectDeploymentType(), ZVJIRADeploymentType::dataCenter);
    const auto cookies = transport.cookies(base() + "/rest/api/latest/filter/favourite");
    ASSERT_EQ(cookies.size(), 1u);
    EXPECT_TRUE(cookies[0].value.ends_with("|lout")) << cookies[0].value;
    EXPECT_EQ(jira->loadRemoteProjects().size(), 2u) << requestSummary(server.requests());
    for (const auto& request : server.requests()) {
        if (request.path == "/rest/api/2/serverInfo") continue;
        EXPECT_EQ(request.header("Authorization"), authorizationOf(Way::dataCenterPassword)) << request.path;
    }
}

TEST_F(JIRATests, ASessionTheServerEndedLogsInAgainWithTheCredentials) {
    serveSite(Deployment::dataCenter, {.setsSessionCookie = true});
    auto jira = account(Way::dataCenterPassword);
    jira->loadRemoteProjects();
    server.clearRequests();
    site->endSessions();
    EXPECT_EQ(jira->loadRemoteProjects().size(), 2u) << requestSummary(server.requests());
    // The project list leant on the ended session, was refused and went again
    // with the credentials, which started a new session for the search.
    const auto projectLists = server.requests("/rest/api/latest/project");
    ASSERT_EQ(projectLists.size(), 2u) << requestSummary(server.requests());
    EXPECT_FALSE(projectLists[0].hasHeader("Authorization"));
    EXPECT_EQ(projectLists[1].header("Authorization"), authorizationOf(Way::dataCenterPassword));
    const auto searches = server.requests("/rest/api/latest/search.json");
    ASSERT_EQ(searches.size(), 1u);
    EXPECT_FALSE(searches[0].hasHeader("Authorization"));
    EXPECT_TRUE(log.contains("the server ended the session; logging in again")) << log.joined();
}

// Broken, changed and hostile servers.

TEST_F(JIRATests, ARemovedSearchIsAnErrorNamingItNeverAnEmptyTree) {
    // A Cloud site that hides what it is, on a host of its own: taken for
    // Data Center, its old search answers 410 Gone.
    serveSite(Deployment::cloud, {.hidesServerInformation = true});
    auto jira = account(Way::cloudAPIToken);
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server has removed the endpoint /rest/api/latest/search.json (410 Gone)."));
    jira->setSynchronizationType(ZVJIRASynchronizationType::filters);
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server has removed the endpoint /rest/api/2/search (410 Gone)."));
}

TEST_F(JIRATests, PagingThatGoesNowhereEndsWithAnError) {
    // Cloud naming the same next page again; Data Center behind a proxy that
    // drops startAt, where every page is the first full one. Without an end:
    // thousands of pages and gigabytes.
    for (const Way way : {Way::cloudAPIToken, Way::dataCenterPassword}) {
        server.clearRequests();
        FakeJIRA& jiraSite = serveEmptySite(deploymentOf(way), {.searchPageCap = 10,
                                                                .repeatsPageToken = true,
                                                                .ignoresPaging = way == Way::dataCenterPassword});
        jiraSite.addProject({"WEB", "Website"});
        for (int number = 1; number <= 999; ++number) jiraSite.addIssue({"WEB-" + std::to_string(number), "Issue", "WEB"});
        auto jira = account(way);
        EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); }, repeatedPage));
        EXPECT_EQ(jiraSite.searchPagesServed(), 2u);
    }
    // Data Center's full first page asked for one more, at 999.
    EXPECT_EQ(server.requests("/rest/api/latest/search.json").at(1).queryValue("startAt"), "999");
    EXPECT_TRUE(log.contains("Page 2 repeats page 1; paging ends")) << log.joined();
}

TEST_F(JIRATests, AHugeReplyIsNoConnectionAndADeeplyNestedOneNoProjects) {
    // The debug log is on, as in every service test: five million levels once
    // overflowed the stack where a log line dumped the reply.
    serveSite(Deployment::dataCenter);
    auto jira = account(Way::dataCenterPassword);
    server.route("GET", "/rest/api/latest/project", FakeResponse::hugeContentLength(std::uint64_t{2} << 30));
    EXPECT_TRUE(throwsNoConnection([&] { jira->loadRemoteProjects(); }));
    server.route("GET", "/rest/api/latest/project", FakeResponse::deeplyNestedJSON(5'000'000));
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); }, "Invalid project data received."));
    EXPECT_LT(server.streamedBytes(), std::uint64_t{32} << 20);
    EXPECT_TRUE(log.contains("reply too large")) << log.joined();
    EXPECT_TRUE(log.contains("JSON nested deeper than 512 levels is refused")) << log.joined();
}

TEST_F(JIRATests, CloudProjectsArePagedUntilTheLastPage) {
    FakeJIRA& jiraSite = serveEmptySite(Deployment::cloud);
    for (int number = 0; number < 120; ++number) {
        const std::string key = "P" + std::to_string(number);
        jiraSite.addProject({key, "Project " + std::to_string(number)});
        jiraSite.addIssue({key + "-1", "Only issue", key});
    }
    auto jira = account(Way::cloudAPIToken);
    EXPECT_EQ(jira->loadRemoteProjects().size(), 120u);
    // The site sends 50 a page whatever is asked; each page starts after what came.
    const auto pages = server.requests("/rest/api/2/project/search");
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(pages[1].queryValue("startAt"), "50");
    EXPECT_EQ(pages[2].queryValue("startAt"), "100");
    EXPECT_TRUE(server.requests("/rest/api/latest/project").empty());
}

TEST_F(JIRATests, APostWithoutAnIDFailsAndFiltersWithoutAServerAreNoConnection) {
    auto jira = makeAccount<ZVJIRAIntegration>();
    auto issue = trackedProject(jira, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked");
    server.route("POST", "/rest/api/latest/issue/WEB-12/worklog", FakeResponse::json(R"({"self": "x"})", 201));
    EXPECT_TRUE(throwsFailureReason([&] { jira->postTime(*issue); }, "No ID found in response."));
    EXPECT_TRUE(log.contains("No ID found in ")) << log.joined();
    // Without a server: the contract of every service covers the projects and the post.
    jira->setAddress(deadAddress());
    jira->setSynchronizationType(ZVJIRASynchronizationType::filters);
    EXPECT_TRUE(throwsNoConnection([&] { jira->loadRemoteProjects(); }));
}

}  // namespace
