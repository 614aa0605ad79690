#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZVXML.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on Paymo, through one of two unlike interfaces of the
/// service, chosen per account. API 3, for every new account, is JSON on
/// the service's application host with basic credentials: the e-mail and
/// password, or an API key as the user name with any word as the password.
/// API 2, kept for the accounts that still have it, is an XML interface on
/// a host of its own where each run logs in for a session token with the
/// user's API token and logs out again; the service has closed it, a server
/// that still answers it is reached the same way. The tree is the same in
/// both: open projects with their open tasks, and time goes to a task.
class ZVPaymoIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* versionKey = "KDPaymoIntegrationVersion";
    enum class Version : std::int64_t { v2 = 0, v3 = 1 };

    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// Says which credentials the chosen interface takes, and that API 2 is closed.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    /// Any stored value but `v2` reads as `v3`.
    Version accountVersion() const;

    /// The interface's host: the address, the scheme and the credentials follow the version.
    std::string hardcodedAddress() const override;
    ZVSSLSupport SSLSupport() const override;
    ZVCredentialStyle credentialStyle() const override;
    void addAccountHeaders(ZVURLRequest& request) const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    class Session;

    /// Logs in to API 2 and gives the session token; throws "Can't log in." without one.
    std::string _login();
    /// Ends the session of `token`; it only logs what went wrong, and never throws.
    void _logout(const std::string& token);
    ProjectList _synchronizeV2();
    /// Puts the open tasks of an API 2 project below it.
    void _addTasksToProject(ZVIntegrationProject& project, const std::string& token);
    /// Puts the open tasks of an API 3 project below it.
    void _loadTasksForProject(ZVIntegrationProject& project);
    void postTimeForProjectV2(ZVIntegrationProject& project);
    /// An API 2 call: the method's path with the API token, the session (when
    /// there is one) and `more` in the query.
    ZVServiceRequest _requestV2(const std::string& path, const std::string& token,
                                std::vector<std::pair<std::string, std::string>> more = {}) const;
};
