#pragma once

/// What an OAuth2 credential needs of its account: whether the account is
/// bound to an authorized client account, and the "Authorize" action of the
/// credential's setup view.
class ZVIntegrationWithOAuth2 {
public:
    virtual ~ZVIntegrationWithOAuth2() = default;
    virtual bool hasAuthorizedAccount() = 0;
    virtual void authorize() = 0;
};
