#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ZVOAuth2Client.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/authentication/ZVIntegrationWithOAuth2.h"

/// The base of the services that log in through OAuth2. The account keeps
/// only which login of the service's OAuth2 client it is bound to (the
/// credential's code); the tokens live in the key store, in the client's
/// care. Every request carries the login's access token, refreshed shortly
/// before it runs out and once more when the service refuses it.
class ZVOAuth2BasedIntegration : public ZVAddressBasedIntegration, public ZVIntegrationWithOAuth2 {
public:
    using Account = ZVOAuth2Client::Account;

    /// The service's OAuth2 configuration; each service gives its own.
    virtual ZVOAuth2Configuration authenticationConfiguration() const = 0;
    /// The client's name: the service's identifier.
    virtual std::string authenticationIdentifier() const { return integrationIdentifier(); }
    /// The OAuth2 client of the service, registered on first use with the
    /// client id and secret the user entered, else those of the build.
    ZVOAuth2Client& authenticationClient() const;

    /// The login the account is bound to; none until the user authorized,
    /// and none when the client has no login of the stored code.
    std::shared_ptr<Account> account();
    void setAccount(std::shared_ptr<Account> account);

    bool hasAuthorizedAccount() override { return account() != nullptr; }
    /// Opens the service's page in the browser to authorize Norvo; an
    /// account that is already authorized only says so.
    void authorize() override;

    /// An application the user registered with the service, in the key
    /// store; it takes the place of the build's.
    std::optional<std::pair<std::string, std::string>> ownClient() const;
    void setOwnClient(const std::string& clientID, const std::string& secret) override;
    std::pair<std::string, std::string> ownClientCredentials() const override {
        return ownClient().value_or(std::pair<std::string, std::string>{});
    }

    /// Every request carries the login's access token.
    ZVCredentialStyle credentialStyle() const override;
    /// The login's access token: refreshed when it runs out within a
    /// minute, or when the service refused the one given last. Without a
    /// login, the service's words for it; a refused refresh ends the login.
    std::string logIn() override;
    /// Whether the token in use runs out within a minute.
    bool sessionNeedsRenewal() override;
    /// The failure reason of an account that was never authorized.
    virtual std::string notAuthorizedReason() const;

private:
    std::mutex _accountLock;
    bool _accountLookedUp = false;
    std::shared_ptr<Account> _account;
    std::string _lastToken;
};
