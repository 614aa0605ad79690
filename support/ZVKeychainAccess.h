#pragma once

#include <optional>
#include <string>

/// The desktop key store (Secret Service through libsecret). Items are
/// found by user name and account; saving replaces an item with the same
/// pair. Thread-safe.
class ZVKeychainAccess {
public:
    virtual ~ZVKeychainAccess() = default;
    virtual std::optional<std::string> password(const std::string& username, const std::string& account) = 0;
    virtual bool savePassword(const std::string& password, const std::string& username,
                              const std::string& account) = 0;
    virtual bool removePassword(const std::string& username, const std::string& account) = 0;

    /// The Secret Service store unless another one was installed.
    static ZVKeychainAccess& sharedAccess();
    /// Installs another store (tests use an in-memory one). nullptr restores the default.
    static void install(ZVKeychainAccess* access);
};
