#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"

#include <ctime>
#include <map>

#include "ZVClock.h"
#include "ZVDownloadCenter.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {
constexpr const char* projectsPath = "/rest/api/latest/project";
constexpr const char* searchPath = "/rest/api/latest/search.json";
constexpr const char* favouriteFiltersPath = "/rest/api/latest/filter/favourite";
constexpr const char* issuePath = "/rest/api/latest/issue/";
constexpr const char* worklogPathAndQuery = "/worklog?adjustEstimate=auto&newEstimate&reduceBy";
constexpr const char* sessionCookieName = "atlassian.xsrf.token";
constexpr int issuesPageSize = 999;
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
}  // namespace

std::string ZVJIRAIntegration::addressPlaceholder() const { return "jira.example.com/jira"; }

ZVJIRASynchronizationType ZVJIRAIntegration::synchronizationType() const {
    return _synchronizationType == 0 ? ZVJIRASynchronizationType::projects : ZVJIRASynchronizationType::filters;
}

void ZVJIRAIntegration::initializeWithDictionary(const ZVDictionary& dictionary) {
    ZVAddressBasedIntegration::initializeWithDictionary(dictionary);
    _synchronizationType = static_cast<int>(ZVIntegerValue(dictionary, synchronizationTypeKey));
    _includesUnassignedIssues = ZVBoolValue(dictionary, includesUnassignedIssuesKey);
    _ignoresSessionCookies = ZVBoolValue(dictionary, ignoresSessionCookiesKey);
}

ZVDictionary ZVJIRAIntegration::dictionaryRepresentation() {
    ZVDictionary dictionary = ZVAddressBasedIntegration::dictionaryRepresentation();
    if (dictionary.empty()) return dictionary;
    dictionary[synchronizationTypeKey] = synchronizationTypeRawValue();
    dictionary[includesUnassignedIssuesKey] = includesUnassignedIssues();
    dictionary[ignoresSessionCookiesKey] = ignoresSessionCookies();
    return dictionary;
}

std::string ZVJIRAIntegration::JIRABaseURL() const {
    // The scheme follows isSSLEnabled alone.
    return std::string(isSSLEnabled() ? "https" : "http") + "://" + address();
}

bool ZVJIRAIntegration::_hasValidCookie() {
    if (ignoresSessionCookies()) return false;
    const std::string cookieURL = JIRABaseURL() + favouriteFiltersPath;
    for (const auto& cookie : downloadCenter().cookies(cookieURL)) {
        if (cookie.name != sessionCookieName) continue;
        return !cookie.expires || *cookie.expires > ZVNow();
    }
    return false;
}

void ZVJIRAIntegration::addCredentialsUnlessLoggedIn(ZVURLRequest& request) {
    if (_hasValidCookie()) return;
    const auto& credentials = usernamePasswordAuthentication();
    request.setUsername(credentials.username(), credentials.password());
}

ZVIntegration::ProjectList ZVJIRAIntegration::loadRemoteProjects() {
    return synchronizationTypeRawValue() == 0 ? _synchronizeWithProjects() : _synchronizeWithFilters();
}

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithProjects() {
    const std::string base = JIRABaseURL();
    auto modifier = [this](ZVURLRequest& request) { addCredentialsUnlessLoggedIn(request); };
    ZVDownloadCenter& center = downloadCenter();

    const auto reply = center.downloadJSON(base + projectsPath, modifier);
    if (!reply) throw ZVIntegrationNoConnectionError();
    const auto projectObjects = arrayOfDictionaries(*reply);
    if (!projectObjects) {
        ZVLog([&] { return "Projects aren't in an array! " + reply->dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid project data received."));
    }

    const auto self = shared_from_this();
    ProjectList projects;
    std::map<std::string, ZVIntegrationProject::Pointer> projectsByKey;
    for (const auto& projectObject : *projectObjects) {
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
    for (int startAt = 0;; startAt += issuesPageSize) {
        const std::string url = base + searchPath + "?jql=" + query + "&startAt=" + std::to_string(startAt) +
                                "&maxResults=" + std::to_string(issuesPageSize);
        const auto page = center.downloadJSONDictionary(url, modifier);
        if (!page) throw ZVIntegrationNoConnectionError();
        const auto issues = ZVJSON::arrayOfDictionaries(*page, "issues");
        if (!issues) {
            ZVLog([&] { return "Invalid issues dict " + page->dump(); });
            throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid issue data received."));
        }
        for (const auto& issue : *issues) {
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
        if (issues->size() < static_cast<size_t>(issuesPageSize)) break;
    }

    ProjectList result;
    for (const auto& project : projects)
        if (project->hasSubprojects()) result.push_back(project);
    return result;
}

ZVIntegration::ProjectList ZVJIRAIntegration::_synchronizeWithFilters() {
    const std::string base = JIRABaseURL();
    auto modifier = [this](ZVURLRequest& request) { addCredentialsUnlessLoggedIn(request); };
    ZVDownloadCenter& center = downloadCenter();

    const auto reply = center.downloadJSON(base + favouriteFiltersPath, modifier);
    if (!reply) throw ZVIntegrationNoConnectionError();
    const auto filterObjects = arrayOfDictionaries(*reply);
    if (!filterObjects) {
        ZVLog([&] { return "Filters aren't in an array! " + reply->dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid filter data received."));
    }

    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& filterObject : *filterObjects) {
        const auto name = ZVJSON::string(filterObject, "name");
        const auto filterID = textForm(ZVJSON::value(filterObject, "id"));
        const auto searchURL = ZVJSON::string(filterObject, "searchUrl");
        if (!name || !filterID || !searchURL) {
            ZVLog([&] { return "filterDict missing name or ID " + filterObject.dump(); });
            continue;
        }
        auto filter = ZVIntegrationProject::create(*name, *filterID);
        filter->setIntegration(self);

        // The filter's own search decides how many issues come back.
        const auto page = center.downloadJSONDictionary(*searchURL, modifier);
        if (!page) throw ZVIntegrationNoConnectionError();
        const auto* issues = ZVJSON::value(*page, "issues");
        if (!issues || !issues->is_array()) {
            ZVLog([&] { return "Invalid issues dict " + page->dump(); });
            throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid issue data received."));
        }
        for (const auto& issue : *issues) {
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

    const std::string url = JIRABaseURL() + issuePath +
                            *project.subprojectID() + worklogPathAndQuery;
    ZVLog([&] { return "Will be posting " + body.dump() + " to URL: " + url; });

    ZVDownloadCenter& center = downloadCenter();
    const auto reply = center.downloadJSONDictionary(url, [&](ZVURLRequest& request) {
        addCredentialsUnlessLoggedIn(request);
        request.method = "POST";
        request.addJSONContentToHeader();
        request.setJSONBody(body);
        request.setUserAgent(infoPageUserAgent());
    });
    if (!reply) throw ZVIntegrationNoConnectionError();
    if (!ZVJSON::value(*reply, "id")) {
        ZVLog([&] { return "No ID found in " + reply->dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("No ID found in response."));
    }
}
