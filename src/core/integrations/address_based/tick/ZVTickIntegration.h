#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on Tick, through its JSON interface "/<subscription>/api/v2/"
/// on the service's one host. The tree has three levels: client, open
/// project and open task; only a task takes time.
///
/// The user gives the e-mail and password of the Tick login. Once at each
/// synchronization they go, as basic credentials, to the list of the
/// user's roles, which names the subscription and its API token; every
/// other request carries that token and the user's e-mail in the
/// User-Agent, which the service asks of every client.
class ZVTickIntegration : public ZVAddressBasedIntegration {
public:
    /// The subscription to use when the login has several; the first when empty.
    static constexpr const char* subscriptionIDKey = "ZVTickSubscriptionID";

    std::string addressPlaceholder() const override { return "yourcompany.tickspot.com"; }
    /// The service answers on one host for every subscription: an address
    /// of its domain (a stored "<company>.tickspot.com" too) reaches it
    /// there; any other address is a server of the user's own.
    std::string serviceBaseURL() const override;
    std::optional<std::string> connectionProbeURL() const override { return serviceBaseURL() + "/"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {.kind = ZVCredentialStyle::Kind::session,
                .sessionStyle = ZVCredentialStyle::Kind::authorizationScheme,
                .sessionName = "Token token=%@"};
    }
    /// The token of the subscription, from the roles of the login.
    std::string logIn() override;
    bool endsRefusedSession(const ZVCredentialStyle& sent) override;
    void addAccountHeaders(ZVURLRequest& request) const override;

    std::string subscriptionID() const { return textSetting(subscriptionIDKey); }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    struct Role {
        std::string subscriptionID;
        std::string token;
    };
    /// The role in use; read from the login's roles when none is held.
    Role _currentRole();
    /// The path of `resource` below the subscription's interface.
    std::string _resourcePath(const std::string& resource);
    void _forgetRole();

    mutable std::mutex _roleLock;
    std::optional<Role> _role;
};
