#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "ZVValue.h"

/// The preferences store: a typed property list in
/// $XDG_CONFIG_HOME/com.tesselwick.norvo/Preferences.plist, written
/// atomically. An unreadable file is moved aside at reading (and the user
/// told through ZVPaths::reportProblem), never overwritten. Thread-safe. Changes are kept in memory and written by
/// synchronize() or perform(andSynchronize).
class ZVPreferences {
public:
    static ZVPreferences& shared();

    /// A store on another file; tests use this with a temporary directory.
    explicit ZVPreferences(std::string filePath);

    bool boolean(const std::string& key, bool defaultValue = false) const;
    std::int64_t integer(const std::string& key, std::int64_t defaultValue = 0) const;
    std::optional<ZVValue> value(const std::string& key) const;

    void setBoolean(bool value, const std::string& key);
    void setInteger(std::int64_t value, const std::string& key);
    /// Stores the value; a null value removes the key.
    void setValue(const ZVValue& value, const std::string& key);
    void removeValue(const std::string& key);

    /// Runs the block with the store, then writes the store out.
    void perform(const std::function<void(ZVPreferences&)>& block, bool andSynchronize = true);
    /// Writes the store to disk atomically. Returns false when writing failed.
    bool synchronize();
    /// Drops the in-memory state and reads the file again.
    void reload();

    const std::string& filePath() const { return _filePath; }

    /// Points shared() at another file (tests); the old shared store is dropped.
    static void resetShared(const std::string& filePath);

private:
    std::string _filePath;
    mutable std::recursive_mutex _mutex;
    ZVDictionary _values;
    // The file could be neither read nor moved aside: it is left alone.
    bool _keepsUnreadableFile = false;
    bool _writeFailed = false;
};
