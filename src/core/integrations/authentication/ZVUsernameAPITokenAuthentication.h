#pragma once

#include <optional>

#include "core/integrations/authentication/ZVAPITokenAuthentication.h"

/// A user name beside an API token. The token's key-store item is the one
/// of ZVAPITokenAuthentication; the user name is stored in the dictionary
/// under "KDAuthenticationUsername".
class ZVUsernameAPITokenAuthentication : public ZVAPITokenAuthentication {
public:
    ZVUsernameAPITokenAuthentication(const ZVDictionary& dictionary, std::string accountInformation);

    std::string username() const;
    void setUsername(std::string username);
    /// The label in front of the user name field; the account's usernameLabel.
    std::optional<std::string> usernameLabel() const;
    void setUsernameLabel(std::optional<std::string> label);

    /// Only the user name; unlike the base, it doesn't store the token.
    ZVDictionary dictionaryRepresentation() override;
    std::string setupViewNibName() const override { return "UsernameAPITokenAuthentication"; }

private:
    std::string _username;
    std::optional<std::string> _usernameLabel;
};
