#pragma once

#include <string>
#include <utility>

/// What an OAuth2 credential needs of its account: whether the account is
/// bound to an authorized client account, and the "Authorize" action of the
/// credential's setup view.
class ZVIntegrationWithOAuth2 {
public:
    virtual ~ZVIntegrationWithOAuth2() = default;
    virtual bool hasAuthorizedAccount() = 0;
    virtual void authorize() = 0;
    /// An application the user registered with the service: its client id
    /// and secret, which take the place of the build's. Empty when none.
    virtual std::pair<std::string, std::string> ownClientCredentials() const = 0;
    /// Keeps them in the key store; an empty id goes back to the build's.
    virtual void setOwnClient(const std::string& clientID, const std::string& secret) = 0;
};
