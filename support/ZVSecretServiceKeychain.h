#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "ZVFileKeychain.h"
#include "ZVKeychainAccess.h"

/// The key store on the desktop's Secret Service (libsecret). Items carry
/// the attributes "username" and "account". Where no Secret Service answers,
/// or it refuses to store, the items go to a ZVFileKeychain instead; that is
/// logged once.
class ZVSecretServiceKeychain : public ZVKeychainAccess {
public:
    explicit ZVSecretServiceKeychain(std::string fallbackFilePath = {});

    std::optional<std::string> password(const std::string& username, const std::string& account) override;
    bool savePassword(const std::string& password, const std::string& username, const std::string& account) override;
    bool removePassword(const std::string& username, const std::string& account) override;

    /// Whether a Secret Service answers on the session bus (asked once).
    bool isSecretServiceAvailable();

private:
    void noteFallback(const std::string& why);

    std::recursive_mutex _mutex;
    std::optional<bool> _available;
    bool _fallbackLogged = false;
    ZVFileKeychain _fallback;
};
