#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "testkit/FakeServer.h"

/// A JIRA site on a fake server, in one of its two deployments, answering
/// in each one's documented shapes:
///
/// - Cloud: server information "Cloud"; the issue search at
///   /rest/api/2/search/jql paged by nextPageToken and isLast, with issue
///   ids alone unless fields are asked for and pages capped below what is
///   asked; projects at /rest/api/2/project/search paged by startAt and
///   isLast (and the older project list, which Cloud still has); 410 Gone
///   on the removed searches.
/// - Data Center: server information "Server"; projects, search and
///   favourite filters under /rest/api/latest, paged by startAt; the
///   filters' search addresses at /rest/api/2/search.
///
/// Both list favourite filters and take worklogs on every issue, and
/// refuse a request whose Authorization header is not one of the accepted
/// ones (server information excepted, which is public).
class FakeJIRA {
public:
    enum class Deployment { cloud, dataCenter };

    struct Project {
        std::string key;
        std::string name;
    };
    struct Issue {
        std::string key;
        std::string summary;
        std::string projectKey;
        bool assignedToUser = true;
        /// Ids of the favourite filters whose search finds it.
        std::vector<std::string> filterIDs = {};
    };
    struct Filter {
        std::string id;
        std::string name;
    };

    /// How the site departs from a healthy one.
    struct Behaviour {
        /// Cloud: the most issues one search page holds, whatever was asked.
        size_t searchPageCap = 100;
        /// Cloud: every page names the same next page token.
        bool repeatsPageToken = false;
        /// Without server information, as behind a proxy that hides it.
        bool hidesServerInformation = false;
        /// Every reply to a logged-in request sets the session cookie, and a
        /// request that brings it back is logged in without credentials. (The
        /// server information always sets the cookie of an anonymous visitor,
        /// which logs no one in.)
        bool setsSessionCookie = false;
        /// A broken search: every page is the first one, whatever startAt or
        /// nextPageToken asks for, though Cloud names a new token each time.
        bool ignoresPaging = false;
    };

    FakeJIRA(FakeServer& server, Deployment deployment);
    FakeJIRA(FakeServer& server, Deployment deployment, Behaviour behaviour);

    /// Authorization header values that log in.
    void accept(const std::string& authorization);

    void addProject(Project project);
    /// Adds the issue and the route of its worklogs.
    void addIssue(Issue issue);
    void addFilter(Filter filter);

    /// The server forgets every session: their cookies log no one in.
    void endSessions();
    /// The search pages answered so far (filters' searches included).
    size_t searchPagesServed() const;

private:
    struct State;
    FakeServer& _server;
    std::shared_ptr<State> _state;
};
