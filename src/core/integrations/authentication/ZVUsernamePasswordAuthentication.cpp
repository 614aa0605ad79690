#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"

#include "ZVKeychainAccess.h"

namespace {
constexpr const char* usernameKey = "KDAuthenticationUsername";
}

ZVUsernamePasswordAuthentication::ZVUsernamePasswordAuthentication(const ZVDictionary& dictionary,
                                                                   std::string accountInformation)
    : ZVAuthentication(dictionary, accountInformation), _username(ZVStringValue(dictionary, usernameKey)) {
    if (!_username.empty())
        _password = ZVKeychainAccess::sharedAccess().password(_username, accountInformation).value_or("");
}

std::string ZVUsernamePasswordAuthentication::username() const {
    std::lock_guard guard(_fieldsLock);
    return _username;
}

void ZVUsernamePasswordAuthentication::setUsername(std::string username) {
    std::lock_guard guard(_fieldsLock);
    _username = std::move(username);
}

std::string ZVUsernamePasswordAuthentication::password() const {
    std::lock_guard guard(_fieldsLock);
    return _password;
}

void ZVUsernamePasswordAuthentication::setPassword(std::string password) {
    std::lock_guard guard(_fieldsLock);
    _password = std::move(password);
}

std::optional<std::string> ZVUsernamePasswordAuthentication::usernameLabel() const {
    std::lock_guard guard(_fieldsLock);
    return _usernameLabel;
}

void ZVUsernamePasswordAuthentication::setUsernameLabel(std::optional<std::string> label) {
    std::lock_guard guard(_fieldsLock);
    _usernameLabel = std::move(label);
}

ZVDictionary ZVUsernamePasswordAuthentication::dictionaryRepresentation() {
    return {{usernameKey, username()}};
}

void ZVUsernamePasswordAuthentication::saveKeychainInformation() {
    const std::string user = username();
    const std::string secret = password();
    if (!user.empty() && !secret.empty())
        ZVKeychainAccess::sharedAccess().savePassword(secret, user, accountInformation());
}
