#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"

#include <strings.h>

#include <ctime>
#include <map>

#include "ZVClock.h"
#include "ZVDownloadCenter.h"
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
// Cloud's answer to basic authentication with a password.
constexpr const char* cloudPasswordRefusal = "Basic authentication with passwords is deprecated";
constexpr const char* cloudDeploymentName = "Cloud";
constexpr const char* dataCenterDeploymentName = "DataCenter";
constexpr int unauthorizedStatus = 401;
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

/// Whether the last answer set the server's session cookie.
bool setsSessionCookie(const ZVDownloadCenter& center) {
    const std::string prefix = std::string(sessionCookieName) + "=";
    for (const auto& [name, value] : center.lastResponseHeaders())
        if (strcasecmp(name.c_str(), "Set-Cookie") == 0 && value.starts_with(prefix)) return true;
    return false;
}

[[noreturn]] void throwInvalidIssueData(const nlohmann::json& page) {
    ZVLog([&] { return "Invalid issues dict " + page.dump(); });
    throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid issue data received."));
}
}  // namespace

std::string ZVJIRAIntegration::addressPlaceholder() const { return "jira.example.com/jira"; }

ZVJIRASynchronizationType ZVJIRAIntegration::synchronizationType() const {
    return synchronizationTypeRawValue() == 0 ? ZVJIRASynchronizationType::projects : ZVJIRASynchronizationType::filters;
}

const std::vector<ZVIntegrationSetting>& ZVJIRAIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {synchronizationTypeKey, Kind::choice, ZVLocalizable("Synchronize"), "synchronizationTypePopUp", std::nullopt,
         {{static_cast<std::int64_t>(ZVJIRASynchronizationType::projects), ZVLocalizable("Issues by project")},
          {static_cast<std::int64_t>(ZVJIRASynchronizationType::filters), ZVLocalizable("Issues by favourite filter")}}},
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

std::string ZVJIRAIntegration::JIRABaseURL() const {
    // The scheme follows isSSLEnabled alone.
    return std::string(isSSLEnabled() ? "https" : "http") + "://" + address();
}

ZVJIRADeploymentType ZVJIRAIntegration::presumedDeploymentType() const {
    if (isHostedUnder(cloudDomain)) return ZVJIRADeploymentType::cloud;
    const auto known = deploymentType();
    return known == ZVJIRADeploymentType::unknown ? ZVJIRADeploymentType::dataCenter : known;
}

ZVJIRADeploymentType ZVJIRAIntegration::detectDeploymentType() {
    const std::string url = JIRABaseURL() + serverInfoPath;
    const auto info = downloadCenter().downloadJSONDictionary(url);
    const auto answer = info && lastResponseSucceeded() ? ZVJSON::string(*info, "deploymentType") : std::nullopt;
    ZVJIRADeploymentType detected;
    if (answer) {
        detected = *answer == cloudDeploymentName ? ZVJIRADeploymentType::cloud : ZVJIRADeploymentType::dataCenter;
    } else {
        detected = presumedDeploymentType();
    }
    ZVLog([&] {
        return name() + " is a " + deploymentName(detected) + " deployment (" +
               (answer ? "deploymentType " + *answer : std::string("no server information")) + ")";
    });
    setDeploymentType(detected);
    return detected;
}

std::string ZVJIRAIntegration::sessionOwner() const {
    return usernamePasswordAuthentication().username() + " at " + JIRABaseURL();
}

bool ZVJIRAIntegration::usesSessionCookie(ZVJIRADeploymentType deployment) const {
    return deployment != ZVJIRADeploymentType::cloud && !usesPersonalAccessToken() && !ignoresSessionCookies();
}

bool ZVJIRAIntegration::_hasValidCookie() {
    if (ignoresSessionCookies()) return false;
    {
        // The cookie of an anonymous request holds no session.
        std::lock_guard lock(_sessionLock);
        if (_loggedInAs != sessionOwner()) return false;
    }
    const std::string cookieURL = JIRABaseURL() + favouriteFiltersPath;
    for (const auto& cookie : downloadCenter().cookies(cookieURL)) {
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
    downloadCenter().clearCookies(JIRABaseURL() + favouriteFiltersPath);
}

void ZVJIRAIntegration::addCredentialsUnlessLoggedIn(ZVURLRequest& request) {
    if (_hasValidCookie()) return;
    const auto& credentials = usernamePasswordAuthentication();
    request.setUsername(credentials.username(), credentials.password());
}

ZVJIRAIntegration::RequestModifier ZVJIRAIntegration::credentialsModifier(ZVJIRADeploymentType deployment) {
    // Cloud and personal access tokens send the credentials with every
    // request and never lean on a session cookie.
    if (deployment == ZVJIRADeploymentType::cloud) return basicAuthenticationFromCredentials();
    if (usesPersonalAccessToken()) return bearerAuthentication(usernamePasswordAuthentication().password());
    return [this](ZVURLRequest& request) { addCredentialsUnlessLoggedIn(request); };
}

void ZVJIRAIntegration::requireAcceptedCredentials(ZVJIRADeploymentType deployment) {
    ZVDownloadCenter& center = downloadCenter();
    if (center.lastHTTPStatusCode() != unauthorizedStatus) return;
    const std::string body = center.lastResponse() ? center.lastResponse()->body : std::string();
    ZVLog([&] { return "Credentials refused: " + body; });
    // Cloud says so whatever it was detected as; a password on Data Center
    // keeps its old way through the reply's shape.
    if (body.find(cloudPasswordRefusal) != std::string::npos)
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("Jira Cloud needs an API token instead of your password"));
    if (deployment == ZVJIRADeploymentType::cloud)
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("Jira Cloud did not accept the e-mail address and API token."));
    if (usesPersonalAccessToken())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Jira did not accept the personal access token."));
    throw ZVIntegrationAuthenticationError();
}

nlohmann::json ZVJIRAIntegration::requireReply(const std::string& url, const RequestModifier& modifier,
                                               ZVJIRADeploymentType deployment, bool dictionaryOnly) {
    ZVDownloadCenter& center = downloadCenter();
    const auto download = [&] {
        return dictionaryOnly ? center.downloadJSONDictionary(url, modifier) : center.downloadJSON(url, modifier);
    };
    // The modifier sends the credentials exactly when this is false.
    bool leansOnSession = usesSessionCookie(deployment) && _hasValidCookie();
    auto reply = download();
    if (leansOnSession && center.lastHTTPStatusCode() == unauthorizedStatus) {
        ZVLog([&] { return name() + ": the server ended the session; logging in again"; });
        _invalidateCookie();
        leansOnSession = false;
        reply = download();
    }
    // A session begins where the answer to the credentials sets the cookie.
    if (usesSessionCookie(deployment) && !leansOnSession && lastResponseSucceeded() && setsSessionCookie(center)) {
        std::lock_guard lock(_sessionLock);
        _loggedInAs = sessionOwner();
    }
    requireAcceptedCredentials(deployment);
    requireEndpointNotGone(url);
    if (!reply) throw ZVIntegrationNoConnectionError();
    return std::move(*reply);
}

ZVIntegration::ProjectList ZVJIRAIntegration::loadRemoteProjects() {
    const ZVJIRADeploymentType deployment = detectDeploymentType();
    return synchronizationTypeRawValue() == 0 ? _synchronizeWithProjects(deployment)
                                              : _synchronizeWithFilters(deployment);
}

std::vector<nlohmann::json> ZVJIRAIntegration::projectObjects(ZVJIRADeploymentType deployment,
                                                              const RequestModifier& modifier) {
    const auto invalid = [](const nlohmann::json& reply) {
        ZVLog([&] { return "Projects aren't in an array! " + reply.dump(); });
        return ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid project data received."));
    };
    if (deployment != ZVJIRADeploymentType::cloud) {
        const auto reply = requireReply(JIRABaseURL() + projectsPath, modifier, deployment, false);
        auto projects = arrayOfDictionaries(reply);
        if (!projects) throw invalid(reply);
        return std::move(*projects);
    }
    std::vector<nlohmann::json> projects;
    ZVPaging::walkOffsetPages([&](std::size_t startAt) {
        const std::string url = JIRABaseURL() + cloudProjectsPath + "?startAt=" + std::to_string(startAt) +
                                "&maxResults=" + std::to_string(cloudProjectsPageSize);
        const auto page = requireReply(url, modifier, deployment, true);
        auto values = ZVJSON::arrayOfDictionaries(page, "values");
        if (!values) throw invalid(page);
        projects.insert(projects.end(), values->begin(), values->end());
        return ZVPaging::OffsetPage{values->size(), ZVJSON::boolean(page, "isLast"), ZVPaging::fingerprint(*values)};
    }, cloudProjectsMaximumPages);
    return projects;
}

void ZVJIRAIntegration::searchIssues(ZVJIRADeploymentType deployment, const std::string& encodedQuery,
                                     const RequestModifier& modifier, const IssuesHandler& takeIssues) {
    const std::string base = JIRABaseURL();
    if (deployment != ZVJIRADeploymentType::cloud) {
        // A page short of the size asked for is the last one.
        ZVPaging::walkOffsetPages([&](std::size_t startAt) {
            const std::string url = base + searchPath + "?jql=" + encodedQuery + "&startAt=" + std::to_string(startAt) +
                                    "&maxResults=" + std::to_string(issuesPageSize);
            const auto page = requireReply(url, modifier, deployment, true);
            const auto issues = ZVJSON::arrayOfDictionaries(page, "issues");
            if (!issues) throwInvalidIssueData(page);
            takeIssues(*issues);
            return ZVPaging::OffsetPage{issues->size(), issues->size() < static_cast<std::size_t>(issuesPageSize),
                                        ZVPaging::fingerprint(*issues)};
        });
        return;
    }
    ZVPaging::walkTokenPages([&](const std::optional<std::string>& token) {
        std::string url = base + cloudSearchPath + "?jql=" + encodedQuery + "&fields=" + cloudIssueFields +
                          "&maxResults=" + std::to_string(cloudIssuesPageSize);
        if (token) url += "&nextPageToken=" + ZVPercentEncoded(*token);
        const auto page = requireReply(url, modifier, deployment, true);
        const auto issues = ZVJSON::arrayOfDictionaries(page, "issues");
        if (!issues) throwInvalidIssueData(page);
        takeIssues(*issues);
        return ZVPaging::TokenPage{issues->size(), ZVJSON::boolean(page, "isLast"),
                                   ZVJSON::string(page, "nextPageToken"), ZVPaging::fingerprint(*issues)};
    });
}

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithProjects(ZVJIRADeploymentType deployment) {
    const auto modifier = credentialsModifier(deployment);
    const auto self = shared_from_this();
    ProjectList projects;
    std::map<std::string, ZVIntegrationProject::Pointer> projectsByKey;
    for (const auto& projectObject : projectObjects(deployment, modifier)) {
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
    searchIssues(deployment, query, modifier, [&](const std::vector<nlohmann::json>& issues) {
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

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithFilters(ZVJIRADeploymentType deployment) {
    const bool cloud = deployment == ZVJIRADeploymentType::cloud;
    const auto modifier = credentialsModifier(deployment);
    const auto reply =
        requireReply(JIRABaseURL() + (cloud ? cloudFavouriteFiltersPath : favouriteFiltersPath), modifier, deployment, false);
    const auto filterObjects = arrayOfDictionaries(reply);
    if (!filterObjects) {
        ZVLog([&] { return "Filters aren't in an array! " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid filter data received."));
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
            searchIssues(deployment, ZVPercentEncoded("filter=" + *filterID), modifier, addIssues);
        } else {
            // The filter's own search decides how many issues come back.
            const auto page = requireReply(*searchURL, modifier, deployment, true);
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

    ZVJIRADeploymentType deployment = deploymentType();
    if (deployment == ZVJIRADeploymentType::unknown) deployment = detectDeploymentType();
    const bool cloud = deployment == ZVJIRADeploymentType::cloud;
    const std::string url =
        JIRABaseURL() + (cloud ? cloudIssuePath : issuePath) + *project.subprojectID() + worklogPathAndQuery;
    ZVLog([&] { return "Will be posting " + body.dump() + " to URL: " + url; });

    const auto reply = requireReply(
        url,
        chain({credentialsModifier(deployment),
               [&](ZVURLRequest& request) {
                   request.method = "POST";
                   request.addJSONContentToHeader();
                   request.setJSONBody(body);
                   request.setUserAgent(infoPageUserAgent());
               }}),
        deployment, true);
    if (!ZVJSON::value(reply, "id")) {
        ZVLog([&] { return "No ID found in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("No ID found in response."));
    }
}
