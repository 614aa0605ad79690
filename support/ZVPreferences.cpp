#include "ZVPreferences.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "ZVLog.h"
#include "ZVPaths.h"
#include "ZVPropertyList.h"

namespace {

std::mutex& sharedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::unique_ptr<ZVPreferences>& sharedStore() {
    static std::unique_ptr<ZVPreferences> store;
    return store;
}

// Stores replaced by resetShared stay alive: code may still hold a reference.
std::vector<std::unique_ptr<ZVPreferences>>& retiredStores() {
    static std::vector<std::unique_ptr<ZVPreferences>> stores;
    return stores;
}

}  // namespace

ZVPreferences& ZVPreferences::shared() {
    std::lock_guard lock(sharedMutex());
    auto& store = sharedStore();
    if (!store) store = std::make_unique<ZVPreferences>(ZVPaths::configDirectory() + "/Preferences.plist");
    return *store;
}

void ZVPreferences::resetShared(const std::string& filePath) {
    std::lock_guard lock(sharedMutex());
    auto& store = sharedStore();
    if (store) retiredStores().push_back(std::move(store));
    store = std::make_unique<ZVPreferences>(filePath);
}

ZVPreferences::ZVPreferences(std::string filePath) : _filePath(std::move(filePath)) { reload(); }

bool ZVPreferences::boolean(const std::string& key, bool defaultValue) const {
    std::lock_guard lock(_mutex);
    return ZVBoolValue(_values, key, defaultValue);
}

std::int64_t ZVPreferences::integer(const std::string& key, std::int64_t defaultValue) const {
    std::lock_guard lock(_mutex);
    return ZVIntegerValue(_values, key, defaultValue);
}

std::optional<ZVValue> ZVPreferences::value(const std::string& key) const {
    std::lock_guard lock(_mutex);
    auto it = _values.find(key);
    if (it == _values.end()) return std::nullopt;
    return it->second;
}

void ZVPreferences::setBoolean(bool value, const std::string& key) { setValue(ZVValue(value), key); }

void ZVPreferences::setInteger(std::int64_t value, const std::string& key) { setValue(ZVValue(value), key); }

void ZVPreferences::setValue(const ZVValue& value, const std::string& key) {
    std::lock_guard lock(_mutex);
    if (value.isNull()) {
        _values.erase(key);
    } else {
        _values[key] = value;
    }
}

void ZVPreferences::removeValue(const std::string& key) {
    std::lock_guard lock(_mutex);
    _values.erase(key);
}

void ZVPreferences::perform(const std::function<void(ZVPreferences&)>& block, bool andSynchronize) {
    std::lock_guard lock(_mutex);
    block(*this);
    if (andSynchronize) synchronize();
}

bool ZVPreferences::synchronize() {
    std::lock_guard lock(_mutex);
    // The folder may have been removed while the program runs; a save puts it back.
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(_filePath).parent_path(), ignored);
    // Readable by the user alone: the preferences name accounts and projects.
    if (_keepsUnreadableFile) {
        ZVLog([&] { return "Not writing over the unreadable preferences " + _filePath; });
        return false;
    }
    const bool written = ZVPropertyList::writeFile(ZVValue(_values), _filePath, 0600);
    if (!written) {
        const std::string reason = std::strerror(errno);
        ZVLog([&] { return "Could not write the preferences to " + _filePath + ": " + reason; });
        if (!_writeFailed) ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeFailed, _filePath, {}, reason});
    } else if (_writeFailed) {
        ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeRecovered, _filePath, {}, {}});
    }
    _writeFailed = !written;
    return written;
}

void ZVPreferences::reload() {
    std::lock_guard lock(_mutex);
    _values.clear();
    _keepsUnreadableFile = false;
    std::error_code error;
    if (!std::filesystem::exists(_filePath, error)) return;
    auto stored = ZVPropertyList::readFile(_filePath);
    if (stored && stored->dictionary()) {
        _values = *stored->dictionary();
        return;
    }
    // Settings and local projects with their time live in this file: an
    // unreadable one is moved aside, never written over with the defaults.
    const std::string aside = ZVPaths::setAsidePath(_filePath);
    std::filesystem::rename(_filePath, aside, error);
    if (error) {
        _keepsUnreadableFile = true;
        ZVLog([&] { return "Cannot move the unreadable preferences " + _filePath + " aside: " + error.message(); });
        ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::unreadableKept, _filePath, {}, error.message()});
        return;
    }
    ZVLog([&] { return "The preferences " + _filePath + " could not be read; they were moved to " + aside; });
    ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::setAside, _filePath, aside, {}});
}
