#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "services/jira/FakeJIRA.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ManualClock.h"

namespace {

using Deployment = FakeJIRA::Deployment;

/// How an account signs in to the fake site.
enum class Way { cloudAPIToken, dataCenterPassword, dataCenterPersonalAccessToken };

std::string wayName(Way way) {
    switch (way) {
        case Way::cloudAPIToken: return "CloudAPIToken";
        case Way::dataCenterPassword: return "DataCenterPassword";
        case Way::dataCenterPersonalAccessToken: return "DataCenterPersonalAccessToken";
    }
    return "?";
}

const char* const projectTree =
    "Website [WEB|-|-]\n"
    "  WEB-12 - Broken link on the pricing page [WEB|WEB-12|-]\n"
    "  WEB-15 - New footer [WEB|WEB-15|-]\n"
    "Operations [OPS|-|-]\n"
    "  OPS-3 - Renew the TLS certificate [OPS|OPS-3|-]\n";

const char* const filterTree =
    "My open bugs [10000|-|-]\n"
    "  WEB-12 - Broken link on the pricing page [10000|WEB-12|-]\n"
    "  WEB-20 - Unassigned crash [10000|WEB-20|-]\n"
    "Release 2.0 [10010|-|-]\n"
    "  OPS-3 - Renew the TLS certificate [10010|OPS-3|-]\n";

class JIRADeploymentTests : public ServiceTestCase {
protected:
    // An API token of an Atlassian account and a personal access token of
    // Data Center, each with characters that a careless encoding breaks.
    const std::string APIToken = "ATATT3xFfGF0T9pY+cloud/token=";
    const std::string personalAccessToken = "NjM4MDY1NDYxMjM0OkYLq+kD0qWXpat/x=";
    const std::string password = credentials.password;

    std::string base() const { return "http://" + serverAddress(); }

    /// A site with the projects, issues and filters every test expects:
    /// "Archive" has no open issue, WEB-20 is assigned to nobody, HR-1 is in
    /// no listed project.
    std::unique_ptr<FakeJIRA> serveSite(Deployment deployment) {
        auto site = std::make_unique<FakeJIRA>(server, deployment);
        site->accept(basicAuthorization(credentials.username, deployment == Deployment::cloud ? APIToken : password));
        if (deployment == Deployment::cloud) {
            site->refuseAsPassword(basicAuthorization(credentials.username, password));
        } else {
            site->accept("Bearer " + personalAccessToken);
        }
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
        return site;
    }

    static Deployment deploymentOf(Way way) {
        return way == Way::cloudAPIToken ? Deployment::cloud : Deployment::dataCenter;
    }

    /// An account that signs in the given way, with the secret in the key store.
    std::shared_ptr<ZVJIRAIntegration> account(Way way, ZVDictionary settings = {}) {
        credentials.password = way == Way::cloudAPIToken                   ? APIToken
                               : way == Way::dataCenterPersonalAccessToken ? personalAccessToken
                                                                           : password;
        if (way == Way::dataCenterPersonalAccessToken) settings[ZVJIRAIntegration::usesPersonalAccessTokenKey] = true;
        return makeAccount<ZVJIRAIntegration>(settings);
    }

    std::string authorizationOf(Way way) const {
        switch (way) {
            case Way::cloudAPIToken: return basicAuthorization(credentials.username, APIToken);
            case Way::dataCenterPassword: return basicAuthorization(credentials.username, password);
            case Way::dataCenterPersonalAccessToken: return "Bearer " + personalAccessToken;
        }
        return {};
    }

    /// The requests to that path, for counting pages.
    std::vector<FakeRequest> requestsTo(const std::string& path) const { return server.requests(path); }
};

// Each way of signing in.

class JIRASignInTests : public JIRADeploymentTests, public ::testing::WithParamInterface<Way> {};

TEST_P(JIRASignInTests, ProjectModeBuildsTheSameTree) {
    auto site = serveSite(deploymentOf(GetParam()));
    auto jira = account(GetParam());

    const auto tree = jira->loadRemoteProjects();

    EXPECT_EQ(treeDescription(tree), projectTree) << requestSummary(server.requests());
    EXPECT_TRUE(everyNodeBelongsTo(tree, jira));
    EXPECT_TRUE(log.contains("Couldn't find project for issue HR-1")) << log.joined();
    EXPECT_EQ(jira->deploymentType(), GetParam() == Way::cloudAPIToken ? ZVJIRADeploymentType::cloud
                                                                        : ZVJIRADeploymentType::dataCenter);
}

TEST_P(JIRASignInTests, FilterModeBuildsTheSameTree) {
    auto site = serveSite(deploymentOf(GetParam()));
    auto jira = account(GetParam(), {{ZVJIRAIntegration::synchronizationTypeKey, 1}});

    EXPECT_EQ(treeDescription(jira->loadRemoteProjects()), filterTree) << requestSummary(server.requests());
}

TEST_P(JIRASignInTests, UnassignedIssuesJoinTheirProject) {
    auto site = serveSite(deploymentOf(GetParam()));
    auto jira = account(GetParam(), {{ZVJIRAIntegration::includesUnassignedIssuesKey, true}});

    const auto tree = jira->loadRemoteProjects();

    ASSERT_EQ(tree.size(), 2u);
    EXPECT_EQ(tree.front()->subprojects().size(), 3u);
    EXPECT_EQ(tree.front()->subprojects().back()->subprojectID(), "WEB-20");
}

TEST_P(JIRASignInTests, EveryRequestButTheServerInformationCarriesTheCredentials) {
    auto site = serveSite(deploymentOf(GetParam()));
    site->setSetsSessionCookie(true);
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
    auto site = std::make_unique<FakeJIRA>(server, deploymentOf(GetParam()));
    site->accept(authorizationOf(GetParam()));
    site->addProject({"WEB", "Website"});
    for (int number = 1; number <= 2000; ++number)
        site->addIssue({"WEB-" + std::to_string(number), "Issue " + std::to_string(number), "WEB"});
    site->setSearchPageCap(700);
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
        const auto searches = requestsTo("/rest/api/2/search/jql");
        ASSERT_EQ(searches.size(), 3u) << requestSummary(server.requests());
        EXPECT_EQ(searches[0].query.count("nextPageToken"), 0u);
        EXPECT_EQ(searches[1].queryText("nextPageToken"), "CAEaAggD+/=700");
        EXPECT_EQ(searches[2].queryText("nextPageToken"), "CAEaAggD+/=1400");
        for (const auto& search : searches) {
            EXPECT_EQ(search.queryText("jql"), "(resolution is empty) and assignee=currentUser()");
            EXPECT_EQ(search.queryValue("fields"), "summary,project");
            EXPECT_EQ(search.queryValue("maxResults"), "5000");
        }
        EXPECT_TRUE(requestsTo("/rest/api/latest/search.json").empty());
    } else {
        const auto searches = requestsTo("/rest/api/latest/search.json");
        ASSERT_EQ(searches.size(), 3u) << requestSummary(server.requests());
        EXPECT_EQ(searches[2].queryValue("startAt"), "1998");
    }
}

TEST_P(JIRASignInTests, PostsTheWorklogMemberByMember) {
    const char* zone = std::getenv("TZ");
    const std::optional<std::string> savedZone = zone ? std::optional<std::string>(zone) : std::nullopt;
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    ManualClock clock(ManualClock::date(2024, 3, 1, 9));
    auto site = serveSite(deploymentOf(GetParam()));
    auto jira = account(GetParam());
    jira->loadRemoteProjects();
    server.clearRequests();
    auto issue = trackedProject(jira, "WEB-12 - Broken link", "WEB", "WEB-12", 3600, "worked %@");

    jira->postTime(*issue);

    if (savedZone) {
        setenv("TZ", savedZone->c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    const bool cloud = GetParam() == Way::cloudAPIToken;
    ASSERT_EQ(server.requestCount(), 1u) << requestSummary(server.requests());
    const FakeRequest request = *server.lastRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, cloud ? "/rest/api/2/issue/WEB-12/worklog" : "/rest/api/latest/issue/WEB-12/worklog");
    EXPECT_EQ(transport.URLs().back(), base() + request.path + "?adjustEstimate=auto&newEstimate&reduceBy");
    EXPECT_EQ(request.header("Authorization"), authorizationOf(GetParam()));
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("User-Agent"), jira->infoPageUserAgent());
    const nlohmann::json body = jsonBody(request);
    ASSERT_TRUE(body.is_object());
    EXPECT_EQ(body.size(), 3u) << body.dump();
    // A plain string on both: the v2 path keeps the comment out of rich text.
    ASSERT_TRUE(body["comment"].is_string()) << body.dump();
    EXPECT_EQ(body["comment"], "worked 01:00:00");
    EXPECT_EQ(body["started"], "2024-03-01T08:50:00.000Z");
    ASSERT_TRUE(body["timeSpentSeconds"].is_number_integer());
    EXPECT_EQ(body["timeSpentSeconds"], 3600);
}

INSTANTIATE_TEST_SUITE_P(Ways, JIRASignInTests,
                         ::testing::Values(Way::cloudAPIToken, Way::dataCenterPassword,
                                           Way::dataCenterPersonalAccessToken),
                         [](const auto& testInfo) { return wayName(testInfo.param); });

// Finding the deployment.

TEST_F(JIRADeploymentTests, TheServerInformationDecides) {
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
        FakeServer site;
        std::optional<FakeJIRA> jiraSite;
        if (c.site) jiraSite.emplace(site, *c.site);
        std::string address = "127.0.0.1:" + std::to_string(site.port());
        if (c.host) {
            address = c.host;
            transport.redirect(std::string("http://") + c.host, site.baseURL());
        }
        ZVDictionary settings;
        if (c.stored) settings[ZVJIRAIntegration::deploymentTypeKey] = c.stored;
        auto jira = makeAccountAt<ZVJIRAIntegration>(address, settings);

        EXPECT_EQ(jira->detectDeploymentType(), c.expected) << c.description;
        EXPECT_EQ(jira->deploymentType(), c.expected) << c.description;
        ASSERT_EQ(site.requestCount(), 1u) << c.description;
        EXPECT_EQ(site.lastRequest()->path, "/rest/api/2/serverInfo");
        EXPECT_FALSE(site.lastRequest()->hasHeader("Authorization")) << c.description;
    }
}

TEST_F(JIRADeploymentTests, AnOlderDatabaseWithoutTheDeploymentLoadsAndFindsItAtTheNextSync) {
    auto site = serveSite(Deployment::cloud);
    credentials.password = APIToken;
    auto written = makeAccount<ZVJIRAIntegration>();
    ZVDictionary old = written->dictionaryRepresentation();
    old.erase(ZVJIRAIntegration::deploymentTypeKey);
    old.erase(ZVJIRAIntegration::usesPersonalAccessTokenKey);

    auto jira = ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(old);
    EXPECT_EQ(jira->deploymentType(), ZVJIRADeploymentType::unknown);
    EXPECT_FALSE(jira->usesPersonalAccessToken());
    EXPECT_FALSE(jira->dictionaryRepresentation().contains(ZVJIRAIntegration::deploymentTypeKey));

    EXPECT_EQ(treeDescription(jira->loadRemoteProjects()), projectTree);
    const ZVDictionary saved = jira->dictionaryRepresentation();
    EXPECT_EQ(saved.at(ZVJIRAIntegration::deploymentTypeKey), ZVValue("Cloud"));
    EXPECT_EQ(ZVIntegration::makeWithDictionary<ZVJIRAIntegration>(saved)->deploymentType(),
              ZVJIRADeploymentType::cloud);
}

TEST_F(JIRADeploymentTests, APostBeforeAnySyncFindsTheDeploymentFirst) {
    auto site = serveSite(Deployment::cloud);
    auto jira = account(Way::cloudAPIToken);
    auto issue = trackedProject(jira, "OPS-3 - TLS", "OPS", "OPS-3", 60, "renewed");

    jira->postTime(*issue);

    EXPECT_EQ(requestSummary(server.requests()),
              "GET /rest/api/2/serverInfo\n"
              "POST /rest/api/2/issue/OPS-3/worklog?adjustEstimate=auto&newEstimate=&reduceBy=\n");
}

TEST_F(JIRADeploymentTests, ThePersonalAccessTokenLivesInTheKeyStoreOnly) {
    auto jira = account(Way::dataCenterPersonalAccessToken);
    jira->save();
    const ZVDictionary dictionary = jira->dictionaryRepresentation();

    EXPECT_EQ(dictionary.at(ZVJIRAIntegration::usesPersonalAccessTokenKey), ZVValue(true));
    const std::string stored = ZVValue(dictionary).description();
    EXPECT_NE(stored.find(credentials.username), std::string::npos) << stored;
    EXPECT_EQ(stored.find("NjM4MDY1"), std::string::npos) << stored;
    EXPECT_EQ(keychain.password(credentials.username, jira->accountIdentifier()), personalAccessToken);
}

// What the user reads when it fails.

TEST_F(JIRADeploymentTests, APasswordOnCloudAsksForAnAPIToken) {
    auto site = serveSite(Deployment::cloud);
    credentials.password = password;
    auto jira = makeAccount<ZVJIRAIntegration>();
    auto issue = trackedProject(jira, "WEB-12 - Broken link", "WEB", "WEB-12", 60, "x");

    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "Jira Cloud needs an API token instead of your password"));
    EXPECT_TRUE(throwsFailureReason([&] { jira->postTime(*issue); },
                                    "Jira Cloud needs an API token instead of your password"));
    // Even where the server information is hidden and the host says nothing.
    site->hideServerInformation();
    auto undetected = makeAccount<ZVJIRAIntegration>();
    EXPECT_TRUE(throwsFailureReason([&] { undetected->loadRemoteProjects(); },
                                    "Jira Cloud needs an API token instead of your password"));
    EXPECT_EQ(undetected->deploymentType(), ZVJIRADeploymentType::dataCenter);
}

TEST_F(JIRADeploymentTests, RefusedTokensSayWhichCredentialFailed) {
    {
        auto site = serveSite(Deployment::cloud);
        credentials.password = "ATATT-revoked";
        EXPECT_TRUE(throwsFailureReason([&] { makeAccount<ZVJIRAIntegration>()->loadRemoteProjects(); },
                                        "Jira Cloud did not accept the e-mail address and API token."));
    }
    FakeServer dataCenter;
    FakeJIRA site(dataCenter, Deployment::dataCenter);
    site.accept("Bearer " + personalAccessToken);
    credentials.password = "expired-token";
    auto jira = makeAccountAt<ZVJIRAIntegration>("127.0.0.1:" + std::to_string(dataCenter.port()),
                                                 {{ZVJIRAIntegration::usesPersonalAccessTokenKey, true}});
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "Jira did not accept the personal access token."));
    // A refused password is refused credentials, not a reply of the wrong shape.
    jira->setUsesPersonalAccessToken(false);
    EXPECT_TRUE(throwsAuthenticationError([&] { jira->loadRemoteProjects(); }));
    site.addIssue({"WEB-12", "Broken link", "WEB"});
    auto issue = trackedProject(jira, "WEB-12 - Broken link", "WEB", "WEB-12", 60, "x");
    EXPECT_TRUE(throwsAuthenticationError([&] { jira->postTime(*issue); }));
}

// The session cookie of Data Center.

TEST_F(JIRADeploymentTests, TheCookieOfTheAnonymousServerInformationIsNoSession) {
    // Data Center sets its XSRF token cookie on the server information, which
    // is asked without credentials; a request that leant on it would be refused.
    auto site = serveSite(Deployment::dataCenter);
    auto jira = account(Way::dataCenterPassword);

    EXPECT_EQ(jira->detectDeploymentType(), ZVJIRADeploymentType::dataCenter);
    const auto cookies = transport.cookies(base() + "/rest/api/latest/filter/favourite");
    ASSERT_EQ(cookies.size(), 1u);
    EXPECT_EQ(cookies[0].name, "atlassian.xsrf.token");
    EXPECT_TRUE(cookies[0].value.ends_with("|lout")) << cookies[0].value;

    EXPECT_EQ(treeDescription(jira->loadRemoteProjects()), projectTree) << requestSummary(server.requests());
    const auto projectLists = requestsTo("/rest/api/latest/project");
    ASSERT_EQ(projectLists.size(), 1u);
    EXPECT_EQ(projectLists[0].header("Authorization"), authorizationOf(Way::dataCenterPassword));
    for (const auto& search : requestsTo("/rest/api/latest/search.json"))
        EXPECT_EQ(search.header("Authorization"), authorizationOf(Way::dataCenterPassword));
}

TEST_F(JIRADeploymentTests, ASessionTheServerEndedLogsInAgainWithTheCredentials) {
    auto site = serveSite(Deployment::dataCenter);
    site->setSetsSessionCookie(true);
    auto jira = account(Way::dataCenterPassword);
    jira->loadRemoteProjects();
    server.clearRequests();
    site->endSessions();

    EXPECT_EQ(treeDescription(jira->loadRemoteProjects()), projectTree) << requestSummary(server.requests());

    // The project list leant on the ended session, was refused and went again
    // with the credentials, which started a new session for the search.
    const auto projectLists = requestsTo("/rest/api/latest/project");
    ASSERT_EQ(projectLists.size(), 2u) << requestSummary(server.requests());
    EXPECT_FALSE(projectLists[0].hasHeader("Authorization"));
    EXPECT_EQ(projectLists[1].header("Authorization"), authorizationOf(Way::dataCenterPassword));
    const auto searches = requestsTo("/rest/api/latest/search.json");
    ASSERT_EQ(searches.size(), 1u);
    EXPECT_FALSE(searches[0].hasHeader("Authorization"));
    EXPECT_TRUE(log.contains("the server ended the session; logging in again")) << log.joined();
}

TEST_F(JIRADeploymentTests, ARemovedSearchIsAnErrorNamingItNeverAnEmptyTree) {
    // A Cloud site that hides what it is, on a host of its own: taken for
    // Data Center, its old search answers 410 Gone.
    auto site = serveSite(Deployment::cloud);
    site->hideServerInformation();
    auto jira = account(Way::cloudAPIToken);

    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server has removed the endpoint /rest/api/latest/search.json (410 Gone)."));

    jira->setSynchronizationType(ZVJIRASynchronizationType::filters);
    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server has removed the endpoint /rest/api/2/search (410 Gone)."));
}

TEST_F(JIRADeploymentTests, ARepeatingPageTokenEndsTheSearchWithAnError) {
    auto site = std::make_unique<FakeJIRA>(server, Deployment::cloud);
    site->accept(basicAuthorization(credentials.username, APIToken));
    site->addProject({"WEB", "Website"});
    for (int number = 1; number <= 30; ++number) site->addIssue({"WEB-" + std::to_string(number), "Issue", "WEB"});
    site->setSearchPageCap(10);
    site->setRepeatsPageToken(true);
    auto jira = account(Way::cloudAPIToken);

    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server sent the same page twice, so the list could not be loaded completely."));
    EXPECT_EQ(requestsTo("/rest/api/2/search/jql").size(), 2u);
}

// Broken and hostile servers.

TEST_F(JIRADeploymentTests, ADataCenterSearchThatIgnoresStartAtEndsOnTheRepeatedPage) {
    // Behind a proxy that drops startAt, every page is the first full one:
    // without an end, thousands of pages and gigabytes.
    auto site = std::make_unique<FakeJIRA>(server, Deployment::dataCenter);
    site->accept(authorizationOf(Way::dataCenterPassword));
    site->addProject({"WEB", "Website"});
    for (int number = 1; number <= 999; ++number)
        site->addIssue({"WEB-" + std::to_string(number), "Issue " + std::to_string(number), "WEB"});
    site->setIgnoresPaging(true);
    auto jira = account(Way::dataCenterPassword);

    EXPECT_TRUE(throwsFailureReason([&] { jira->loadRemoteProjects(); },
                                    "The server sent the same page twice, so the list could not be loaded completely."));
    const auto searches = requestsTo("/rest/api/latest/search.json");
    ASSERT_EQ(searches.size(), 2u);
    EXPECT_EQ(searches[1].queryValue("startAt"), "999");
    EXPECT_TRUE(log.contains("Page 2 repeats page 1; paging ends")) << log.joined();
}

TEST_F(JIRADeploymentTests, AHugeOrDeeplyNestedReplyIsNoConnection) {
    // The debug log is on, as in every service test: five million levels once
    // overflowed the stack where a log line dumped the reply.
    auto site = serveSite(Deployment::dataCenter);
    auto jira = account(Way::dataCenterPassword);
    for (const FakeResponse& reply :
         {FakeResponse::hugeContentLength(std::uint64_t{2} << 30), FakeResponse::deeplyNestedJSON(5'000'000)}) {
        server.route("GET", "/rest/api/latest/project", reply);
        EXPECT_TRUE(throwsNoConnection([&] { jira->loadRemoteProjects(); }));
    }
    EXPECT_LT(server.streamedBytes(), std::uint64_t{32} << 20);
    EXPECT_TRUE(log.contains("reply too large")) << log.joined();
    EXPECT_TRUE(log.contains("JSON nested deeper than 512 levels is refused")) << log.joined();
}

TEST_F(JIRADeploymentTests, CloudProjectsArePagedUntilTheLastPage) {
    auto site = std::make_unique<FakeJIRA>(server, Deployment::cloud);
    site->accept(basicAuthorization(credentials.username, APIToken));
    for (int number = 0; number < 120; ++number) {
        const std::string key = "P" + std::to_string(number);
        site->addProject({key, "Project " + std::to_string(number)});
        site->addIssue({key + "-1", "Only issue", key});
    }
    auto jira = account(Way::cloudAPIToken);

    const auto tree = jira->loadRemoteProjects();

    EXPECT_EQ(tree.size(), 120u);
    // The site sends 50 a page whatever is asked; each page starts after what came.
    const auto pages = requestsTo("/rest/api/2/project/search");
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(pages[1].queryValue("startAt"), "50");
    EXPECT_EQ(pages[2].queryValue("startAt"), "100");
    EXPECT_TRUE(requestsTo("/rest/api/latest/project").empty());
}

}  // namespace
