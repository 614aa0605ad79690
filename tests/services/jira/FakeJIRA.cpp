#include "services/jira/FakeJIRA.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>

#include <nlohmann/json.hpp>

namespace {
constexpr const char* notAuthenticated =
    R"({"errorMessages":["You are not authenticated. Authentication required to perform this operation."],"errors":{}})";
constexpr const char* searchRemoved =
    R"({"errorMessages":["The requested API has been removed. Please migrate to the /rest/api/3/search/jql API. )"
    R"(A full migration guideline is available at https://developer.atlassian.com/changelog/#CHANGE-2046"],"errors":{}})";
constexpr size_t dataCenterSearchCap = 1000;
constexpr size_t cloudProjectPageCap = 50;
constexpr const char* sessionCookieName = "atlassian.xsrf.token";
// Cloud's tokens are opaque; these hold characters that must be encoded in a query.
const std::string tokenPrefix = "CAEaAggD+/=";

std::string projectID(size_t index) { return std::to_string(10000 + index); }

/// A JSON answer with the content type JIRA sends.
FakeResponse reply(std::string body, int status = 200) {
    FakeResponse response = FakeResponse::json(std::move(body), status);
    response.contentType = "application/json;charset=UTF-8";
    return response;
}
}  // namespace

struct FakeJIRA::State {
    std::mutex mutex;
    Deployment deployment;
    std::string baseURL;
    std::set<std::string> accepted;
    std::vector<Project> projects;
    std::vector<Issue> issues;
    std::vector<Filter> filters;
    Behaviour behaviour;
    size_t searchPagesServed = 0;
    /// Counts the ends of all sessions: a cookie of an earlier one logs nobody in.
    int sessionGeneration = 0;

    /// The session cookie's value: JIRA's XSRF token ends in "lin" for a
    /// logged-in user and in "lout" for an anonymous one.
    std::string sessionCookie(bool loggedIn) const {
        return std::string(sessionCookieName) + "=BWP3-NZB2-6EDY-6C7K|" +
               (loggedIn ? "s" + std::to_string(sessionGeneration) + "|lin" : std::string("a0|lout"));
    }

    /// Whether the request brings the cookie of a live session (the lock held).
    bool bringsSession(const FakeRequest& request) const {
        return behaviour.setsSessionCookie && request.header("Cookie").find(sessionCookie(true)) != std::string::npos;
    }

    /// Nothing when the request may go on, else the refusal.
    std::optional<FakeResponse> refusal(const FakeRequest& request) {
        std::lock_guard lock(mutex);
        const std::string authorization = request.header("Authorization");
        if (accepted.contains(authorization)) return std::nullopt;
        if (!request.hasHeader("Authorization") && bringsSession(request)) return std::nullopt;
        return reply(notAuthenticated, 401);
    }

    nlohmann::json projectJSON(const std::string& key) const {
        for (size_t index = 0; index < projects.size(); ++index) {
            if (projects[index].key != key) continue;
            return {{"self", baseURL + "/rest/api/2/project/" + projectID(index)},
                    {"id", projectID(index)},
                    {"key", key},
                    {"name", projects[index].name},
                    {"projectTypeKey", "software"}};
        }
        return {{"key", key}};
    }

    nlohmann::json issueJSON(size_t index, bool withFields) const {
        const Issue& issue = issues[index];
        const std::string id = std::to_string(20000 + index);
        nlohmann::json json = {{"expand", "operations,versionedRepresentations,editmeta,changelog,renderedFields"},
                               {"id", id},
                               {"self", baseURL + "/rest/api/2/issue/" + id},
                               {"key", issue.key}};
        if (!withFields) return {{"id", id}};
        json["fields"] = {{"summary", issue.summary}, {"project", projectJSON(issue.projectKey)}};
        if (deployment == Deployment::dataCenter) {
            json["fields"]["status"] = {{"name", "Open"}, {"id", "1"}};
            json["fields"]["resolution"] = nullptr;
        }
        return json;
    }

    /// The issues a query finds, in order; nothing for a query it doesn't know.
    std::optional<std::vector<size_t>> matches(std::string jql) const {
        std::replace(jql.begin(), jql.end(), '+', ' ');
        std::vector<size_t> found;
        if (const auto at = jql.find("filter"); at != std::string::npos) {
            std::string id = jql.substr(jql.find('=', at) + 1);
            id.erase(0, id.find_first_not_of(' '));
            for (size_t index = 0; index < issues.size(); ++index) {
                const auto& filterIDs = issues[index].filterIDs;
                if (std::find(filterIDs.begin(), filterIDs.end(), id) != filterIDs.end()) found.push_back(index);
            }
            return found;
        }
        if (jql.find("assignee=currentUser()") == std::string::npos) return std::nullopt;
        const bool unassignedToo = jql.find("assignee is empty") != std::string::npos;
        for (size_t index = 0; index < issues.size(); ++index)
            if (issues[index].assignedToUser || unassignedToo) found.push_back(index);
        return found;
    }

    static size_t numberParameter(const FakeRequest& request, const char* name, size_t fallback) {
        const std::string text = request.queryValue(name);
        return text.empty() ? fallback : static_cast<size_t>(std::strtoul(text.c_str(), nullptr, 10));
    }

    FakeResponse serverInfo(const FakeRequest& request) {
        std::lock_guard lock(mutex);
        if (behaviour.hidesServerInformation) return FakeResponse::text("Not Found", 404);
        const bool cloud = deployment == Deployment::cloud;
        FakeResponse answer = reply(nlohmann::json({{"baseUrl", baseURL},
                                                  {"version", cloud ? "1001.0.0-SNAPSHOT" : "9.12.15"},
                                                  {"versionNumbers", cloud ? nlohmann::json{1001, 0, 0}
                                                                           : nlohmann::json{9, 12, 15}},
                                                  {"deploymentType", cloud ? "Cloud" : "Server"},
                                                  {"buildNumber", cloud ? 100285 : 9120015},
                                                  {"serverTitle", "Jira"}})
                                      .dump());
        // Anonymous, as every visitor without a session is: the XSRF token
        // cookie says so, and logs no one in.
        if (!bringsSession(request)) answer.headers.emplace_back("Set-Cookie", sessionCookie(false) + "; Path=/");
        return answer;
    }

    FakeResponse cloudSearch(const FakeRequest& request) {
        std::lock_guard lock(mutex);
        const auto found = matches(request.queryText("jql"));
        if (!found) return reply(R"({"errorMessages":["Error in the JQL Query."],"errors":{}})", 400);
        const std::string token = request.queryText("nextPageToken");
        size_t start = 0;
        ++searchPagesServed;
        if (!token.empty() && !behaviour.ignoresPaging) {
            if (!token.starts_with(tokenPrefix))
                return reply(R"({"errorMessages":["Invalid nextPageToken."],"errors":{}})", 400);
            start = std::strtoul(token.c_str() + tokenPrefix.size(), nullptr, 10);
        }
        const size_t size = std::min({numberParameter(request, "maxResults", 50), behaviour.searchPageCap,
                                      found->size() - std::min(start, found->size())});
        const bool withFields = request.queryValue("fields").find("summary") != std::string::npos;
        nlohmann::json page = {{"issues", nlohmann::json::array()}};
        for (size_t at = start; at < start + size; ++at) page["issues"].push_back(issueJSON((*found)[at], withFields));
        const bool isLast = start + size >= found->size();
        page["isLast"] = isLast;
        // Ignoring the paging, it still names a new token each time.
        const size_t next = behaviour.repeatsPageToken ? size
                            : behaviour.ignoresPaging  ? searchPagesServed * size
                                                       : start + size;
        if (!isLast) page["nextPageToken"] = tokenPrefix + std::to_string(next);
        return reply(page.dump());
    }

    FakeResponse pagedSearch(const FakeRequest& request) { return dataCenterSearch(request, true); }
    FakeResponse filterSearch(const FakeRequest& request) { return dataCenterSearch(request, false); }

    FakeResponse dataCenterSearch(const FakeRequest& request, bool paged) {
        std::lock_guard lock(mutex);
        const auto found = matches(request.queryText("jql"));
        if (!found) return reply(R"({"errorMessages":["Error in the JQL Query."],"errors":{}})", 400);
        const size_t start = paged && !behaviour.ignoresPaging ? numberParameter(request, "startAt", 0) : 0;
        ++searchPagesServed;
        const size_t size = std::min({paged ? numberParameter(request, "maxResults", 50) : found->size(),
                                      dataCenterSearchCap, found->size() - std::min(start, found->size())});
        nlohmann::json page = {{"expand", "schema,names"}, {"startAt", start}, {"maxResults", size},
                               {"total", found->size()}, {"issues", nlohmann::json::array()}};
        for (size_t at = start; at < start + size; ++at) page["issues"].push_back(issueJSON((*found)[at], true));
        return reply(page.dump());
    }

    FakeResponse projectList(const FakeRequest&) {
        std::lock_guard lock(mutex);
        nlohmann::json list = nlohmann::json::array();
        for (const auto& project : projects) list.push_back(projectJSON(project.key));
        return reply(list.dump());
    }

    FakeResponse projectSearch(const FakeRequest& request) {
        std::lock_guard lock(mutex);
        const size_t start = numberParameter(request, "startAt", 0);
        const size_t maxResults = std::min(numberParameter(request, "maxResults", 50), cloudProjectPageCap);
        const size_t size = std::min(maxResults, projects.size() - std::min(start, projects.size()));
        nlohmann::json page = {{"self", baseURL + "/rest/api/2/project/search?startAt=" + std::to_string(start)},
                               {"maxResults", maxResults}, {"startAt", start}, {"total", projects.size()},
                               {"isLast", start + size >= projects.size()}, {"values", nlohmann::json::array()}};
        for (size_t at = start; at < start + size; ++at) page["values"].push_back(projectJSON(projects[at].key));
        return reply(page.dump());
    }

    FakeResponse favouriteFilters(const FakeRequest&) {
        std::lock_guard lock(mutex);
        nlohmann::json list = nlohmann::json::array();
        for (const auto& filter : filters)
            list.push_back({{"self", baseURL + "/rest/api/2/filter/" + filter.id},
                            {"id", filter.id},
                            {"name", filter.name},
                            {"jql", "filter = " + filter.id},
                            {"viewUrl", baseURL + "/issues/?filter=" + filter.id},
                            {"searchUrl", baseURL + "/rest/api/2/search?jql=filter+%3D+" + filter.id},
                            {"favourite", true}});
        return reply(list.dump());
    }

    FakeResponse worklog(const FakeRequest& request, size_t issueIndex) {
        if (auto refused = refusal(request)) return *refused;
        const auto body = nlohmann::json::parse(request.body, nullptr, false);
        if (body.is_discarded() || !body.contains("timeSpentSeconds") || !body.contains("started"))
            return reply(R"({"errorMessages":[],"errors":{"timeLogged":"You must indicate the time spent working."}})", 400);
        std::lock_guard lock(mutex);
        nlohmann::json created = {{"self", baseURL + "/rest/api/2/issue/" + std::to_string(20000 + issueIndex) + "/worklog/100028"},
                                  {"id", "100028"},
                                  {"issueId", std::to_string(20000 + issueIndex)},
                                  {"timeSpentSeconds", body["timeSpentSeconds"]},
                                  {"started", body["started"]}};
        if (body.contains("comment")) created["comment"] = body["comment"];
        return reply(created.dump(), 201);
    }
};

FakeJIRA::FakeJIRA(FakeServer& server, Deployment deployment) : FakeJIRA(server, deployment, Behaviour{}) {}

FakeJIRA::FakeJIRA(FakeServer& server, Deployment deployment, Behaviour behaviour)
    : _server(server), _state(std::make_shared<State>()) {
    _state->deployment = deployment;
    _state->behaviour = behaviour;
    _state->baseURL = server.baseURL();
    auto state = _state;
    const auto answer = [&server, state](const char* method, const std::string& path,
                                         FakeResponse (State::*reply)(const FakeRequest&)) {
        server.route(method, path, [state, reply](const FakeRequest& request) {
            if (auto refused = state->refusal(request)) return *refused;
            FakeResponse response = ((*state).*reply)(request);
            std::lock_guard lock(state->mutex);
            if (state->behaviour.setsSessionCookie && response.status < 300)
                response.headers.emplace_back("Set-Cookie", state->sessionCookie(true) + "; Path=/");
            return response;
        });
    };
    server.route("GET", "/rest/api/2/serverInfo", [state](const FakeRequest& request) { return state->serverInfo(request); });
    answer("GET", "/rest/api/2/filter/favourite", &State::favouriteFilters);
    answer("GET", "/rest/api/latest/filter/favourite", &State::favouriteFilters);
    answer("GET", "/rest/api/latest/project", &State::projectList);
    if (deployment == Deployment::cloud) {
        answer("GET", "/rest/api/2/search/jql", &State::cloudSearch);
        answer("GET", "/rest/api/2/project/search", &State::projectSearch);
        for (const char* removed : {"/rest/api/2/search", "/rest/api/3/search", "/rest/api/latest/search",
                                    "/rest/api/latest/search.json"})
            server.route("*", removed, reply(searchRemoved, 410));
    } else {
        answer("GET", "/rest/api/latest/search.json", &State::pagedSearch);
        // Where the favourite filters' search addresses lead.
        answer("GET", "/rest/api/2/search", &State::filterSearch);
    }
}

void FakeJIRA::accept(const std::string& authorization) {
    std::lock_guard lock(_state->mutex);
    _state->accepted.insert(authorization);
}

void FakeJIRA::addProject(Project project) {
    std::lock_guard lock(_state->mutex);
    _state->projects.push_back(std::move(project));
}

void FakeJIRA::addIssue(Issue issue) {
    size_t index;
    std::string key = issue.key;
    {
        std::lock_guard lock(_state->mutex);
        index = _state->issues.size();
        _state->issues.push_back(std::move(issue));
    }
    auto state = _state;
    const char* api = _state->deployment == Deployment::cloud ? "/rest/api/2/issue/" : "/rest/api/latest/issue/";
    _server.route("POST", api + key + "/worklog",
                  [state, index](const FakeRequest& request) { return state->worklog(request, index); });
}

void FakeJIRA::addFilter(Filter filter) {
    std::lock_guard lock(_state->mutex);
    _state->filters.push_back(std::move(filter));
}

size_t FakeJIRA::searchPagesServed() const {
    std::lock_guard lock(_state->mutex);
    return _state->searchPagesServed;
}

void FakeJIRA::endSessions() {
    std::lock_guard lock(_state->mutex);
    ++_state->sessionGeneration;
}
