#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"

#include <strings.h>

#include <ctime>
#include <map>

#include "ZVClock.h"
#include "ZVHTTPSession.h"
#include "ZVHelpers.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {
// Data Center and Server.
constexpr const char* projectsPath = "/rest/api/latest/project";
constexpr const char* searchPath = "/rest/api/latest/search.json";
constexpr const char* favouriteFiltersPath = "/rest/api/latest/filter/favourite";
constexpr const char* issuePath = "/rest/api/latest/issue/";
// Cloud. Version 2 keeps the worklog's comment a plain string.
constexpr const char* cloudProjectsPath = "/rest/api/2/project/search";
constexpr const char* cloudSearchPath = "/rest/api/2/search/jql";
constexpr const char* cloudFavouriteFiltersPath = "/rest/api/2/filter/favourite";
constexpr const char* cloudIssuePath = "/rest/api/2/issue/";
// Both.
constexpr const char* serverInfoPath = "/rest/api/2/serverInfo";
constexpr const char* worklogPathAndQuery = "/worklog?adjustEstimate=auto&newEstimate&reduceBy";
constexpr const char* sessionCookieName = "atlassian.xsrf.token";
constexpr int issuesPageSize = 999;
// The largest page the Cloud search hands out; it may send fewer.
constexpr int cloudIssuesPageSize = 5000;
constexpr int cloudProjectsPageSize = 100;
constexpr std::size_t cloudProjectsMaximumPages = 1000;
// The search of Cloud answers with issue ids alone unless asked for fields.
constexpr const char* cloudIssueFields = "summary,project";
constexpr const char* cloudDeploymentName = "Cloud";
constexpr const char* dataCenterDeploymentName = "DataCenter";
// Extra time before the worklog's start, on purpose.
constexpr double startedMargin = 600;

/// The two fixed issue queries, already encoded for the URL.
struct JQLQuery {
    static constexpr const char* onlyAssignedIssues = "(resolution+is+empty)+and+assignee=currentUser()";
    static constexpr const char* unassignedIssues =
        "(resolution+is+empty)+and+(assignee=currentUser()+or+assignee+is+empty)";
};

/// The elements when the value is an array of objects only.
std::optional<std::vector<nlohmann::json>> arrayOfDictionaries(const nlohmann::json& value) {
    if (!value.is_array()) return std::nullopt;
    for (const auto& element : value)
        if (!element.is_object()) return std::nullopt;
    return std::vector<nlohmann::json>(value.begin(), value.end());
}

std::optional<std::string> textForm(const nlohmann::json* value) {
    if (!value) return std::nullopt;
    if (value->is_string()) return value->get<std::string>();
    if (value->is_number()) return value->dump();
    return std::nullopt;
}

/// An issue's node: "KEY - summary", under its parent's projectID.
ZVIntegrationProject::Pointer issueNode(const std::string& key, const std::string& summary,
                                        const ZVIntegrationProject& parent) {
    return ZVIntegrationProject::create(key + " - " + summary, parent.projectID(), key);
}

/// "yyyy-MM-dd'T'HH:mm:ss.000Z" of the moment in the local time zone: the
/// literal ".000Z" follows a local time, which is the form JIRA accepts.
std::string startedText(ZVDate moment) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(moment.time_since_epoch()).count();
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &local);
    return std::string(buffer) + ".000Z";
}

std::string deploymentName(ZVJIRADeploymentType type) {
    return type == ZVJIRADeploymentType::cloud ? cloudDeploymentName : dataCenterDeploymentName;
}

/// Whether the answer sets the server's session cookie.
bool setsSessionCookie(const ZVServiceReply& reply) {
    const std::string prefix = std::string(sessionCookieName) + "=";
    for (const auto& [name, value] : reply.headers)
        if (strcasecmp(name.c_str(), "Set-Cookie") == 0 && value.starts_with(prefix)) return true;
    return false;
}

std::string invalidIssueData() { return ZVLocalizedString("Invalid issue data received."); }

[[noreturn]] void throwInvalidIssueData(const nlohmann::json& page) {
    ZVLog([&] { return "Invalid issues dict " + page.dump(); });
    throw ZVIntegrationErrorWithFailureReason(invalidIssueData());
}
}  // namespace

std::string ZVJIRAIntegration::addressPlaceholder() const { return "jira.example.com/jira"; }

ZVJIRASynchronizationType ZVJIRAIntegration::synchronizationType() const {
    return synchronizationTypeRawValue() == 0 ? ZVJIRASynchronizationType::projects : ZVJIRASynchronizationType::filters;
}

const std::vector<ZVIntegrationSetting>& ZVJIRAIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::synchronization(synchronizationTypeKey, ZVLocalizable("Issues by project"),
                                              ZVLocalizable("Issues by favourite filter")),
        {includesUnassignedIssuesKey, Kind::flag, ZVLocalizable("Include unassigned issues"),
         "includesUnassignedIssuesButton"},
        {ignoresSessionCookiesKey, Kind::flag, ZVLocalizable("Send the credentials with every request"),
         "ignoresSessionCookiesButton"},
        {usesPersonalAccessTokenKey, Kind::flag, ZVLocalizable("Sign in with a personal access token"),
         "personalAccessTokenButton", std::nullopt, {}, true},
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVJIRAIntegration::credentialPresentation() const {
    if (presumedDeploymentType() == ZVJIRADeploymentType::cloud)
        return ZVCredentialPresentation{ZVLocalizedString("E-mail and API token"), ZVLocalizedString("E-mail"),
                                        ZVLocalizedString("API token"), ZVLocalizedString("Create an API Token..."),
                                        APITokenPageURL, {usesPersonalAccessTokenKey}};
    return ZVCredentialPresentation{
        ZVLocalizedString("User name and password, or a personal access token"), usernameLabel(),
        usesPersonalAccessToken() ? ZVLocalizedString("Personal access token") : ZVLocalizedString("Password"), {}, {}, {}};
}

void ZVJIRAIntegration::initializeWithDictionary(const ZVDictionary& dictionary) {
    ZVAddressBasedIntegration::initializeWithDictionary(dictionary);
    // An older database has no deployment; the next synchronization finds it.
    const std::string deployment = ZVStringValue(dictionary, deploymentTypeKey);
    setDeploymentType(deployment == cloudDeploymentName        ? ZVJIRADeploymentType::cloud
                      : deployment == dataCenterDeploymentName ? ZVJIRADeploymentType::dataCenter
                                                               : ZVJIRADeploymentType::unknown);
}

ZVDictionary ZVJIRAIntegration::dictionaryRepresentation() {
    ZVDictionary dictionary = ZVAddressBasedIntegration::dictionaryRepresentation();
    if (dictionary.empty()) return dictionary;
    if (const auto deployment = deploymentType(); deployment != ZVJIRADeploymentType::unknown)
        dictionary[deploymentTypeKey] = deploymentName(deployment);
    return dictionary;
}

ZVJIRADeploymentType ZVJIRAIntegration::presumedDeploymentType() const {
    if (isHostedUnder(cloudDomain)) return ZVJIRADeploymentType::cloud;
    const auto known = deploymentType();
    return known == ZVJIRADeploymentType::unknown ? ZVJIRADeploymentType::dataCenter : known;
}

ZVJIRADeploymentType ZVJIRAIntegration::detectDeploymentType() {
    ZVServiceRequest serverInfo = ZVServiceRequest::get(serverInfoPath);
    serverInfo.sendsCredentials = false;
    std::optional<std::string> answer;
    try {
        answer = ZVJSON::string(sendForJSON(serverInfo), "deploymentType");
    } catch (const ZVIntegrationError&) {
        // Hidden behind a proxy, or no answer: the requests that follow say more.
    }
    const ZVJIRADeploymentType detected =
        !answer                          ? presumedDeploymentType()
        : *answer == cloudDeploymentName ? ZVJIRADeploymentType::cloud
                                         : ZVJIRADeploymentType::dataCenter;
    ZVLog([&] {
        return name() + " is a " + deploymentName(detected) + " deployment (" +
               (answer ? "deploymentType " + *answer : std::string("no server information")) + ")";
    });
    setDeploymentType(detected);
    return detected;
}

bool ZVJIRAIntegration::isOnCloud() const {
    const auto known = deploymentType();
    return (known == ZVJIRADeploymentType::unknown ? presumedDeploymentType() : known) == ZVJIRADeploymentType::cloud;
}

ZVCredentialStyle ZVJIRAIntegration::credentialStyle() const {
    if (isOnCloud()) return {ZVCredentialStyle::Kind::basicUsernamePassword};
    if (usesPersonalAccessToken()) return {ZVCredentialStyle::Kind::bearerToken};
    if (_hasValidCookie()) return {};
    return {ZVCredentialStyle::Kind::basicUsernamePassword};
}

bool ZVJIRAIntegration::endsRefusedSession(const ZVCredentialStyle& sent) {
    // Only a request without credentials leant on the cookie.
    if (sent.kind != ZVCredentialStyle::Kind::none || !usesSessionCookie()) return false;
    ZVLog([&] { return name() + ": the server ended the session; logging in again"; });
    _invalidateCookie();
    return true;
}

std::string ZVJIRAIntegration::sessionOwner() const {
    return usernamePasswordAuthentication().username() + " at " + baseURL();
}

bool ZVJIRAIntegration::usesSessionCookie() const {
    return !isOnCloud() && !usesPersonalAccessToken() && !ignoresSessionCookies();
}

bool ZVJIRAIntegration::_hasValidCookie() const {
    if (!usesSessionCookie()) return false;
    {
        // The cookie of an anonymous request holds no session.
        std::lock_guard lock(_sessionLock);
        if (_loggedInAs != sessionOwner()) return false;
    }
    for (const auto& cookie : ZVHTTPSession::shared()->cookies(baseURL() + favouriteFiltersPath)) {
        if (cookie.name != sessionCookieName) continue;
        return !cookie.expires || *cookie.expires > ZVNow();
    }
    return false;
}

void ZVJIRAIntegration::_invalidateCookie() {
    {
        std::lock_guard lock(_sessionLock);
        _loggedInAs.clear();
    }
    ZVHTTPSession::shared()->clearCookies(baseURL() + favouriteFiltersPath);
}

nlohmann::json ZVJIRAIntegration::sendForJIRA(const ZVServiceRequest& request, const std::string& wrongShape) {
    const ZVServiceReply reply = send(request);
    // A session begins where the answer to the credentials sets the cookie.
    if (usesSessionCookie() && setsSessionCookie(reply)) {
        std::lock_guard lock(_sessionLock);
        _loggedInAs = sessionOwner();
    }
    auto json = reply.json();
    if (!json) throw ZVIntegrationErrorWithFailureReason(wrongShape);
    return std::move(*json);
}

ZVIntegration::ProjectList ZVJIRAIntegration::loadRemoteProjects() {
    detectDeploymentType();
    return synchronizationTypeRawValue() == 0 ? _synchronizeWithProjects() : _synchronizeWithFilters();
}

std::vector<nlohmann::json> ZVJIRAIntegration::projectObjects() {
    const std::string invalidProjects = ZVLocalizedString("Invalid project data received.");
    const auto invalid = [&](const nlohmann::json& reply) {
        ZVLog([&] { return "Projects aren't in an array! " + reply.dump(); });
        return ZVIntegrationErrorWithFailureReason(invalidProjects);
    };
    if (!isOnCloud()) {
        const auto reply = sendForJIRA(ZVServiceRequest::get(projectsPath), invalidProjects);
        auto projects = arrayOfDictionaries(reply);
        if (!projects) throw invalid(reply);
        return std::move(*projects);
    }
    std::vector<nlohmann::json> projects;
    ZVPaging::walkOffsetPages([&](std::size_t startAt) {
        const std::string path = std::string(cloudProjectsPath) + "?startAt=" + std::to_string(startAt) +
                                 "&maxResults=" + std::to_string(cloudProjectsPageSize);
        const auto page = sendForJIRA(ZVServiceRequest::get(path), invalidProjects);
        auto values = ZVJSON::arrayOfDictionaries(page, "values");
        if (!values) throw invalid(page);
        projects.insert(projects.end(), values->begin(), values->end());
        return ZVPaging::OffsetPage{values->size(), ZVJSON::boolean(page, "isLast"), ZVPaging::fingerprint(*values)};
    }, cloudProjectsMaximumPages);
    return projects;
}

void ZVJIRAIntegration::searchIssues(const std::string& encodedQuery, const IssuesHandler& takeIssues) {
    if (!isOnCloud()) {
        // A page short of the size asked for is the last one.
        ZVPaging::walkOffsetPages([&](std::size_t startAt) {
            const std::string path = std::string(searchPath) + "?jql=" + encodedQuery + "&startAt=" +
                                     std::to_string(startAt) + "&maxResults=" + std::to_string(issuesPageSize);
            const auto page = sendForJIRA(ZVServiceRequest::get(path), invalidIssueData());
            const auto issues = ZVJSON::arrayOfDictionaries(page, "issues");
            if (!issues) throwInvalidIssueData(page);
            takeIssues(*issues);
            return ZVPaging::OffsetPage{issues->size(), issues->size() < static_cast<std::size_t>(issuesPageSize),
                                        ZVPaging::fingerprint(*issues)};
        });
        return;
    }
    ZVPaging::walkTokenPages([&](const std::optional<std::string>& token) {
        std::string path = std::string(cloudSearchPath) + "?jql=" + encodedQuery + "&fields=" + cloudIssueFields +
                           "&maxResults=" + std::to_string(cloudIssuesPageSize);
        if (token) path += "&nextPageToken=" + ZVPercentEncoded(*token);
        const auto page = sendForJIRA(ZVServiceRequest::get(path), invalidIssueData());
        const auto issues = ZVJSON::arrayOfDictionaries(page, "issues");
        if (!issues) throwInvalidIssueData(page);
        takeIssues(*issues);
        return ZVPaging::TokenPage{issues->size(), ZVJSON::boolean(page, "isLast"),
                                   ZVJSON::string(page, "nextPageToken"), ZVPaging::fingerprint(*issues)};
    });
}

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithProjects() {
    const auto self = shared_from_this();
    ProjectList projects;
    std::map<std::string, ZVIntegrationProject::Pointer> projectsByKey;
    for (const auto& projectObject : projectObjects()) {
        const auto name = ZVJSON::string(projectObject, "name");
        const auto key = ZVJSON::string(projectObject, "key");
        if (!name || !key) {
            ZVLog([&] { return "projectDict missing name or key in " + projectObject.dump(); });
            continue;
        }
        auto project = ZVIntegrationProject::create(*name, *key);
        project->setIntegration(self);
        projects.push_back(project);
        projectsByKey[*key] = project;
    }

    const char* query = includesUnassignedIssues() ? JQLQuery::unassignedIssues : JQLQuery::onlyAssignedIssues;
    searchIssues(query, [&](const std::vector<nlohmann::json>& issues) {
        for (const auto& issue : issues) {
            const auto summary = ZVJSON::string(issue, "[fields][summary]");
            const auto key = ZVJSON::string(issue, "key");
            const auto projectKey = ZVJSON::string(issue, "[fields][project][key]");
            if (!summary || !key || !projectKey) {
                ZVLog([&] { return "issueDict missing summary or key " + issue.dump(); });
                continue;
            }
            const auto found = projectsByKey.find(*projectKey);
            if (found == projectsByKey.end()) {
                ZVLog([&] { return "Couldn't find project for issue " + *key; });
                continue;
            }
            auto issueProject = issueNode(*key, *summary, *found->second);
            issueProject->setIntegration(self);
            found->second->addSubproject(issueProject);
        }
    });

    ProjectList result;
    for (const auto& project : projects)
        if (project->hasSubprojects()) result.push_back(project);
    return result;
}

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithFilters() {
    const bool cloud = isOnCloud();
    const std::string invalidFilters = ZVLocalizedString("Invalid filter data received.");
    const auto reply =
        sendForJIRA(ZVServiceRequest::get(cloud ? cloudFavouriteFiltersPath : favouriteFiltersPath), invalidFilters);
    const auto filterObjects = arrayOfDictionaries(reply);
    if (!filterObjects) {
        ZVLog([&] { return "Filters aren't in an array! " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(invalidFilters);
    }

    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& filterObject : *filterObjects) {
        const auto name = ZVJSON::string(filterObject, "name");
        const auto filterID = textForm(ZVJSON::value(filterObject, "id"));
        const auto searchURL = ZVJSON::string(filterObject, "searchUrl");
        // Cloud's search address leads to the removed search; its own
        // search runs the filter by its id instead.
        if (!name || !filterID || (!searchURL && !cloud)) {
            ZVLog([&] { return "filterDict missing name or ID " + filterObject.dump(); });
            continue;
        }
        auto filter = ZVIntegrationProject::create(*name, *filterID);
        filter->setIntegration(self);
        const auto addIssues = [&](const std::vector<nlohmann::json>& issues) {
            for (const auto& issue : issues) {
                const auto summary = ZVJSON::string(issue, "[fields][summary]");
                const auto key = ZVJSON::string(issue, "key");
                if (!summary || !key) {
                    ZVLog([&] { return "issueDict missing summary or key " + issue.dump(); });
                    continue;
                }
                auto issueProject = issueNode(*key, *summary, *filter);
                issueProject->setIntegration(self);
                filter->addSubproject(issueProject);
            }
        };

        if (cloud) {
            searchIssues(ZVPercentEncoded("filter=" + *filterID), addIssues);
        } else {
            // The filter's own search address, as the server gave it, decides
            // how many issues come back. It gets the credentials only on the
            // account's own host.
            const auto page = sendForJIRA(ZVServiceRequest::get(*searchURL), invalidIssueData());
            const auto* issues = ZVJSON::value(page, "issues");
            if (!issues || !issues->is_array()) throwInvalidIssueData(page);
            addIssues(std::vector<nlohmann::json>(issues->begin(), issues->end()));
        }
        result.push_back(filter);
    }
    return result;
}

void ZVJIRAIntegration::postTime(ZVIntegrationProject& project) {
    if (!project.subprojectID()) ZVFatalError("postTime(for:) of JIRA needs an issue, not " + project.name());
    const std::uint64_t seconds = project.time();
    const ZVDate started = ZVNow() - std::chrono::duration<double>(static_cast<double>(seconds) + startedMargin);

    nlohmann::json body = nlohmann::json::object();
    body["comment"] = ZVPostingText::title(project);
    body["started"] = startedText(started);
    body["timeSpentSeconds"] = seconds;

    if (deploymentType() == ZVJIRADeploymentType::unknown) detectDeploymentType();
    const std::string path =
        (isOnCloud() ? cloudIssuePath : issuePath) + *project.subprojectID() + worklogPathAndQuery;
    ZVLog([&] { return "Will be posting " + body.dump() + " to URL: " + URLForPath(path); });

    const std::string noID = ZVLocalizedString("No ID found in response.");
    const auto reply = sendForJIRA(ZVServiceRequest::postJSON(path, std::move(body)), noID);
    if (!ZVJSON::value(reply, "id")) {
        ZVLog([&] { return "No ID found in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(noID);
    }
}
