#pragma once

#include <mutex>
#include <string>

#include "ZVKeychainAccess.h"

/// A key store in a property-list file readable by the user alone (mode
/// 0600). Used where no Secret Service answers.
class ZVFileKeychain : public ZVKeychainAccess {
public:
    /// An empty path means "Keychain.plist" in the data folder, found at each use.
    explicit ZVFileKeychain(std::string filePath = {});

    std::optional<std::string> password(const std::string& username, const std::string& account) override;
    bool savePassword(const std::string& password, const std::string& username, const std::string& account) override;
    bool removePassword(const std::string& username, const std::string& account) override;

    std::string filePath() const;

private:
    std::string _filePath;
    std::mutex _mutex;
};
