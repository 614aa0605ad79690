#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// How a JIRA account builds its tree. The raw values are stored.
enum class ZVJIRASynchronizationType : int { projects = 0, filters = 1 };

/// Where a JIRA server runs. Cloud sites have their own search and project
/// endpoints and sign in with an e-mail address and an API token; Data
/// Center and Server keep the older endpoints and take a password or a
/// personal access token.
enum class ZVJIRADeploymentType : int { unknown = 0, cloud = 1, dataCenter = 2 };

/// An account on a JIRA server, through its REST interface. The tree is
/// either the user's open issues grouped by project, or the issues of the
/// user's favourite filters; time goes to an issue as a worklog.
///
/// Each synchronization first asks the server what it is. On Cloud every
/// request carries the e-mail address and API token. On Data Center and
/// Server the requests send the user name and password, or, when the account
/// says so, the password field as a personal access token; with a password
/// they lean on the server's session cookie while it is valid.
///
/// The session cookie counts only once the answer to a request with the user
/// name and password has set it: the same cookie set by an anonymous request
/// (the server information sets one) is no session. A request that leant on
/// the cookie and was refused is sent again with the credentials.
class ZVJIRAIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* synchronizationTypeKey = "KDJIRASynchronizationType";
    static constexpr const char* includesUnassignedIssuesKey = "KDJIRAIncludesUnassignedIssues";
    static constexpr const char* ignoresSessionCookiesKey = "ZVJIRAIgnoresSessionCookies";
    /// "Cloud" or "DataCenter"; left out until the server has been asked.
    static constexpr const char* deploymentTypeKey = "ZVJIRADeploymentType";
    static constexpr const char* usesPersonalAccessTokenKey = "ZVJIRAUsesPersonalAccessToken";
    /// Where an Atlassian account makes its API tokens.
    static constexpr const char* APITokenPageURL = "https://id.atlassian.com/manage-profile/security/api-tokens";
    /// The domain under which every Cloud site lives.
    static constexpr const char* cloudDomain = "atlassian.net";

    std::string addressPlaceholder() const override;

    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// Cloud asks for an e-mail address and an API token, Data Center and
    /// Server for a user name with a password or a personal access token.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;

    /// When true, every request sends the credentials.
    bool ignoresSessionCookies() const { return flagSetting(ignoresSessionCookiesKey); }
    void setIgnoresSessionCookies(bool value) { setSettingValue(ignoresSessionCookiesKey, value); }
    /// When true, the project mode also fetches issues assigned to nobody.
    bool includesUnassignedIssues() const { return flagSetting(includesUnassignedIssuesKey); }
    void setIncludesUnassignedIssues(bool value) { setSettingValue(includesUnassignedIssuesKey, value); }
    /// The stored raw value; anything but 0 builds the tree from filters.
    std::int64_t synchronizationTypeRawValue() const { return choiceSetting(synchronizationTypeKey); }
    ZVJIRASynchronizationType synchronizationType() const;
    void setSynchronizationType(ZVJIRASynchronizationType type) {
        setSettingValue(synchronizationTypeKey, static_cast<std::int64_t>(type));
    }
    /// On Data Center and Server: the password field holds a personal
    /// access token, sent as a bearer token instead of the user name and
    /// password. Cloud ignores it.
    bool usesPersonalAccessToken() const { return flagSetting(usesPersonalAccessTokenKey); }
    void setUsesPersonalAccessToken(bool value) { setSettingValue(usesPersonalAccessTokenKey, value); }

    /// What the server said it is at the last synchronization; unknown
    /// before the first one.
    ZVJIRADeploymentType deploymentType() const { return static_cast<ZVJIRADeploymentType>(_deploymentType.load()); }
    void setDeploymentType(ZVJIRADeploymentType type) { _deploymentType = static_cast<int>(type); }
    /// What the account is taken for without asking: Cloud on a host under
    /// atlassian.net, else what the server said last, else Data Center.
    ZVJIRADeploymentType presumedDeploymentType() const;
    /// Asks the server (without credentials, as the answer is public) and
    /// keeps its answer; when it gives none, keeps the presumed type.
    ZVJIRADeploymentType detectDeploymentType();

    /// Basic e-mail and API token on Cloud; on Data Center and Server a
    /// bearer personal access token, or basic user name and password unless
    /// the session cookie logs the request in.
    ZVCredentialStyle credentialStyle() const override;
    /// A request that leant on the session cookie was refused: the server
    /// ended the session, so the request goes again with the credentials.
    bool endsRefusedSession(const ZVCredentialStyle& sent) override;

    ZVDictionary dictionaryRepresentation() override;
    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    using IssuesHandler = std::function<void(const std::vector<nlohmann::json>& issues)>;

    /// Whether the account is on Cloud: as detected, else as presumed.
    bool isOnCloud() const;
    /// Whether the requests may lean on the session cookie at all: Data
    /// Center or Server with a password, the cookies not ignored.
    bool usesSessionCookie() const;
    /// Whether the server's session cookie may log the requests in: the
    /// answer to the account's credentials set it, and it is still there.
    bool _hasValidCookie() const;
    /// Forgets the session and clears the server's cookies.
    void _invalidateCookie();
    /// Whose session a cookie of the server would hold: address and user.
    std::string sessionOwner() const;
    /// The reply to the request as JSON, through send() and its error
    /// policy; a reply that is no JSON fails with `wrongShape`. An answer
    /// that sets the session cookie begins a session.
    nlohmann::json sendForJIRA(const ZVServiceRequest& request, const std::string& wrongShape);
    /// The projects as the server lists them, each an object.
    std::vector<nlohmann::json> projectObjects();
    /// Runs the query (already encoded for the URL) page by page, handing
    /// each page's issues over.
    void searchIssues(const std::string& encodedQuery, const IssuesHandler& takeIssues);
    ProjectList _synchronizeWithProjects();
    ProjectList _synchronizeWithFilters();

    std::atomic<int> _deploymentType{0};
    /// The sessionOwner() whose credentials were answered with the session
    /// cookie; empty while none were, or since the server ended the session.
    mutable std::mutex _sessionLock;
    std::string _loggedInAs;
};
