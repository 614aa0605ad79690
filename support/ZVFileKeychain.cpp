#include "ZVFileKeychain.h"

#include <sys/stat.h>

#include "ZVPaths.h"
#include "ZVPropertyList.h"

ZVFileKeychain::ZVFileKeychain(std::string filePath) : _filePath(std::move(filePath)) {}

std::string ZVFileKeychain::filePath() const {
    return _filePath.empty() ? ZVPaths::dataDirectory() + "/Keychain.plist" : _filePath;
}

namespace {
ZVDictionary readItems(const std::string& path) {
    auto stored = ZVPropertyList::readFile(path);
    if (stored && stored->dictionary()) return *stored->dictionary();
    return {};
}
}  // namespace

std::optional<std::string> ZVFileKeychain::password(const std::string& username, const std::string& account) {
    std::lock_guard lock(_mutex);
    ZVDictionary items = readItems(filePath());
    const ZVDictionary* accountItems = ZVDictionaryValue(items, account);
    if (!accountItems) return std::nullopt;
    return ZVOptionalString(*accountItems, username);
}

bool ZVFileKeychain::savePassword(const std::string& password, const std::string& username,
                                  const std::string& account) {
    std::lock_guard lock(_mutex);
    const std::string path = filePath();
    ZVDictionary items = readItems(path);
    ZVValue& accountItems = items[account];
    if (!accountItems.isDictionary()) accountItems = ZVDictionary();
    (*accountItems.mutableDictionary())[username] = password;
    return ZVPropertyList::writeFile(ZVValue(std::move(items)), path, 0600);
}

bool ZVFileKeychain::removePassword(const std::string& username, const std::string& account) {
    std::lock_guard lock(_mutex);
    const std::string path = filePath();
    ZVDictionary items = readItems(path);
    auto it = items.find(account);
    if (it == items.end() || !it->second.dictionary() || !it->second.dictionary()->count(username)) return false;
    it->second.mutableDictionary()->erase(username);
    if (it->second.dictionary()->empty()) items.erase(it);
    return ZVPropertyList::writeFile(ZVValue(std::move(items)), path, 0600);
}
