#pragma once

#include "core/integrations/authentication/ZVAuthentication.h"

/// A single API token. Key-store item: user name and account are both
/// accountInformation; the dictionary form is empty.
class ZVAPITokenAuthentication : public ZVAuthentication {
public:
    ZVAPITokenAuthentication(const ZVDictionary& dictionary, std::string accountInformation);

    std::string APIToken() const;
    void setAPIToken(std::string token);

    /// Stores the token first, so that writing the account stores it too.
    ZVDictionary dictionaryRepresentation() override;
    void saveKeychainInformation() override;
    std::string setupViewNibName() const override { return "APITokenAuthentication"; }

private:
    std::string _APIToken;
};
