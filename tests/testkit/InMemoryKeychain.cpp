#include "testkit/InMemoryKeychain.h"

InMemoryKeychain::InMemoryKeychain(bool install) : _installed(install) {
    if (_installed) ZVKeychainAccess::install(this);
}

InMemoryKeychain::~InMemoryKeychain() {
    if (_installed && &ZVKeychainAccess::sharedAccess() == this) ZVKeychainAccess::install(nullptr);
}

std::optional<std::string> InMemoryKeychain::password(const std::string& username, const std::string& account) {
    std::lock_guard lock(_mutex);
    auto it = _items.find({username, account});
    if (it == _items.end()) return std::nullopt;
    return it->second;
}

bool InMemoryKeychain::savePassword(const std::string& password, const std::string& username,
                                    const std::string& account) {
    std::lock_guard lock(_mutex);
    ++_saveCount;
    if (_failsToSave) return false;
    _items[{username, account}] = password;
    return true;
}

bool InMemoryKeychain::removePassword(const std::string& username, const std::string& account) {
    std::lock_guard lock(_mutex);
    return _items.erase({username, account}) > 0;
}
