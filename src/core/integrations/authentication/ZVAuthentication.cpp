#include "core/integrations/authentication/ZVAuthentication.h"

#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVOAuth2Authentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"

ZVAuthentication::ZVAuthentication(const ZVDictionary&, std::string accountInformation)
    : _accountInformation(std::move(accountInformation)) {}

std::shared_ptr<ZVAuthentication> ZVAuthentication::make(ZVAuthenticationType type, const ZVDictionary& dictionary,
                                                         const std::string& accountInformation) {
    switch (type) {
    case ZVAuthenticationType::usernamePassword:
        return std::make_shared<ZVUsernamePasswordAuthentication>(dictionary, accountInformation);
    case ZVAuthenticationType::apiToken:
        return std::make_shared<ZVAPITokenAuthentication>(dictionary, accountInformation);
    case ZVAuthenticationType::usernameAPIToken:
        return std::make_shared<ZVUsernameAPITokenAuthentication>(dictionary, accountInformation);
    case ZVAuthenticationType::usernamePasswordAPIToken:
        return std::make_shared<ZVUsernamePasswordAPITokenAuthentication>(dictionary, accountInformation);
    case ZVAuthenticationType::oAuth2:
        return std::make_shared<ZVOAuth2Authentication>(dictionary, accountInformation);
    case ZVAuthenticationType::none:
    case ZVAuthenticationType::other:
        break;
    }
    return nullptr;
}

std::string ZVAuthentication::accountInformation() const {
    std::lock_guard guard(_fieldsLock);
    return _accountInformation;
}

void ZVAuthentication::setAccountInformation(std::string accountInformation) {
    std::lock_guard guard(_fieldsLock);
    _accountInformation = std::move(accountInformation);
}
