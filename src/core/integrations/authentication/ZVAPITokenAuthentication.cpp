#include "core/integrations/authentication/ZVAPITokenAuthentication.h"

#include "ZVKeychainAccess.h"

ZVAPITokenAuthentication::ZVAPITokenAuthentication(const ZVDictionary& dictionary, std::string accountInformation)
    : ZVAuthentication(dictionary, accountInformation),
      _APIToken(ZVKeychainAccess::sharedAccess().password(accountInformation, accountInformation).value_or("")) {}

std::string ZVAPITokenAuthentication::APIToken() const {
    std::lock_guard guard(_fieldsLock);
    return _APIToken;
}

void ZVAPITokenAuthentication::setAPIToken(std::string token) {
    std::lock_guard guard(_fieldsLock);
    _APIToken = std::move(token);
}

ZVDictionary ZVAPITokenAuthentication::dictionaryRepresentation() {
    saveKeychainInformation();
    return {};
}

void ZVAPITokenAuthentication::saveKeychainInformation() {
    const std::string token = APIToken();
    const std::string account = accountInformation();
    if (!token.empty()) ZVKeychainAccess::sharedAccess().savePassword(token, account, account);
}
