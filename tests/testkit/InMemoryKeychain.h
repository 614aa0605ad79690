#pragma once

#include <map>
#include <mutex>
#include <utility>

#include "ZVKeychainAccess.h"

/// A key store in memory. Installs itself as the shared one while it lives.
class InMemoryKeychain : public ZVKeychainAccess {
public:
    explicit InMemoryKeychain(bool install = true);
    ~InMemoryKeychain() override;
    InMemoryKeychain(const InMemoryKeychain&) = delete;
    InMemoryKeychain& operator=(const InMemoryKeychain&) = delete;

    std::optional<std::string> password(const std::string& username, const std::string& account) override;
    bool savePassword(const std::string& password, const std::string& username, const std::string& account) override;
    bool removePassword(const std::string& username, const std::string& account) override;

    /// Makes every save fail, as a locked key store would.
    void setFailsToSave(bool fails) {
        std::lock_guard lock(_mutex);
        _failsToSave = fails;
    }
    size_t itemCount() const {
        std::lock_guard lock(_mutex);
        return _items.size();
    }
    size_t saveCount() const {
        std::lock_guard lock(_mutex);
        return _saveCount;
    }

private:
    mutable std::mutex _mutex;
    std::map<std::pair<std::string, std::string>, std::string> _items;  // (username, account)
    bool _installed;
    bool _failsToSave = false;
    size_t _saveCount = 0;
};
