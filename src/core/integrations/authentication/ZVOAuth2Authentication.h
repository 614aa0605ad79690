#pragma once

#include <optional>

#include "core/integrations/authentication/ZVAuthentication.h"

class ZVIntegrationWithOAuth2;

/// The OAuth2 binding of an account: `code` is the identifier of the OAuth2
/// client account that holds the tokens (in the key store, kept by the
/// client). Stored as "KDCode"; it has no key-store item of its own.
class ZVOAuth2Authentication : public ZVAuthentication {
public:
    ZVOAuth2Authentication(const ZVDictionary& dictionary, std::string accountInformation);

    std::optional<std::string> code() const;
    void setCode(std::optional<std::string> code);

    /// The owning account, set by the account after construction; not owned.
    ZVIntegrationWithOAuth2* integration() const { return _integration; }
    void setIntegration(ZVIntegrationWithOAuth2* integration) { _integration = integration; }

    ZVDictionary dictionaryRepresentation() override;
    std::string setupViewNibName() const override { return "OAuth2Authentication"; }

private:
    std::optional<std::string> _code;
    ZVIntegrationWithOAuth2* _integration = nullptr;
};
