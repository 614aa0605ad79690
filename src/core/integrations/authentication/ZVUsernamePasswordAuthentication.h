#pragma once

#include <optional>

#include "core/integrations/authentication/ZVAuthentication.h"

/// A user name and a password. The password's key-store item has the user
/// name as user name and accountInformation as account; the user name is
/// stored in the dictionary under "KDAuthenticationUsername".
class ZVUsernamePasswordAuthentication : public ZVAuthentication {
public:
    ZVUsernamePasswordAuthentication(const ZVDictionary& dictionary, std::string accountInformation);

    std::string username() const;
    void setUsername(std::string username);
    std::string password() const;
    void setPassword(std::string password);
    /// The label in front of the user name field; the account's usernameLabel.
    std::optional<std::string> usernameLabel() const;
    void setUsernameLabel(std::optional<std::string> label);

    ZVDictionary dictionaryRepresentation() override;
    void saveKeychainInformation() override;
    std::string setupViewNibName() const override { return "UserPasswordAuthentication"; }

private:
    std::string _username;
    std::string _password;
    std::optional<std::string> _usernameLabel;
};
