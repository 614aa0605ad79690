#pragma once

#include <atomic>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// How a JIRA account builds its tree. The raw values are stored.
enum class ZVJIRASynchronizationType : int { projects = 0, filters = 1 };

/// An account on a JIRA server, through its REST interface. The tree is
/// either the user's open issues grouped by project, or the issues of the
/// user's favourite filters; time goes to an issue as a worklog. While the
/// server's session cookie is valid, requests log in with it instead of
/// sending the credentials.
class ZVJIRAIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* synchronizationTypeKey = "KDJIRASynchronizationType";
    static constexpr const char* includesUnassignedIssuesKey = "KDJIRAIncludesUnassignedIssues";
    static constexpr const char* ignoresSessionCookiesKey = "ZVJIRAIgnoresSessionCookies";

    std::string className() const override { return "Norvo.ZVJIRAIntegration"; }
    std::string addressPlaceholder() const override;

    /// When true, every request sends the credentials.
    bool ignoresSessionCookies() const { return _ignoresSessionCookies; }
    void setIgnoresSessionCookies(bool value) { _ignoresSessionCookies = value; }
    /// When true, the project mode also fetches issues assigned to nobody.
    bool includesUnassignedIssues() const { return _includesUnassignedIssues; }
    void setIncludesUnassignedIssues(bool value) { _includesUnassignedIssues = value; }
    /// The stored raw value; anything but 0 builds the tree from filters.
    int synchronizationTypeRawValue() const { return _synchronizationType; }
    ZVJIRASynchronizationType synchronizationType() const;
    void setSynchronizationType(ZVJIRASynchronizationType type) { _synchronizationType = static_cast<int>(type); }

    ZVDictionary dictionaryRepresentation() override;
    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    /// scheme://address, the scheme from isSSLEnabled alone.
    std::string JIRABaseURL() const;
    /// Whether the server's session cookie may log the requests in.
    bool _hasValidCookie();
    /// Adds the credentials unless the session cookie logs the request in.
    void addCredentialsUnlessLoggedIn(ZVURLRequest& request);
    ProjectList _synchronizeWithProjects();
    ProjectList _synchronizeWithFilters();

    std::atomic<bool> _ignoresSessionCookies{false};
    std::atomic<bool> _includesUnassignedIssues{false};
    std::atomic<int> _synchronizationType{0};
};
