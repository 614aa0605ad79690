#pragma once

#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"

/// A user name, a password and an API token. Both secrets share one
/// key-store item (user name, accountInformation) holding
/// APIToken + "|" + password; reading splits at every "|" and takes the first
/// piece as the token and the last as the password.
class ZVUsernamePasswordAPITokenAuthentication : public ZVUsernamePasswordAuthentication {
public:
    ZVUsernamePasswordAPITokenAuthentication(const ZVDictionary& dictionary, std::string accountInformation);

    std::string APIToken() const;
    void setAPIToken(std::string token);

    void saveKeychainInformation() override;
    std::string setupViewNibName() const override { return "UserPasswordAPITokenAuthentication"; }

private:
    std::string _APIToken;
};
