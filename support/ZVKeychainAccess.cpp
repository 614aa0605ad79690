#include "ZVKeychainAccess.h"

#include <atomic>

#include "ZVSecretServiceKeychain.h"

namespace {
std::atomic<ZVKeychainAccess*> installedAccess{nullptr};
}

ZVKeychainAccess& ZVKeychainAccess::sharedAccess() {
    if (ZVKeychainAccess* access = installedAccess.load(std::memory_order_acquire)) return *access;
    static ZVSecretServiceKeychain defaultAccess;
    return defaultAccess;
}

void ZVKeychainAccess::install(ZVKeychainAccess* access) { installedAccess.store(access, std::memory_order_release); }
