#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"

namespace {
constexpr const char* storedUsernameKey = "KDAuthenticationUsername";
}

ZVUsernameAPITokenAuthentication::ZVUsernameAPITokenAuthentication(const ZVDictionary& dictionary,
                                                                   std::string accountInformation)
    : ZVAPITokenAuthentication(dictionary, std::move(accountInformation)),
      _username(ZVStringValue(dictionary, storedUsernameKey)) {}

std::string ZVUsernameAPITokenAuthentication::username() const {
    std::lock_guard guard(_fieldsLock);
    return _username;
}

void ZVUsernameAPITokenAuthentication::setUsername(std::string username) {
    std::lock_guard guard(_fieldsLock);
    _username = std::move(username);
}

std::optional<std::string> ZVUsernameAPITokenAuthentication::usernameLabel() const {
    std::lock_guard guard(_fieldsLock);
    return _usernameLabel;
}

void ZVUsernameAPITokenAuthentication::setUsernameLabel(std::optional<std::string> label) {
    std::lock_guard guard(_fieldsLock);
    _usernameLabel = std::move(label);
}

ZVDictionary ZVUsernameAPITokenAuthentication::dictionaryRepresentation() {
    return {{storedUsernameKey, username()}};
}
