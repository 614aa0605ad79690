#pragma once

#include <map>
#include <optional>
#include <string>

/// A throw-away home folder: HOME and the XDG data, config and cache
/// folders point into a fresh temporary directory, and the shared
/// preferences store uses a file there. Everything is restored and removed
/// on destruction.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    const std::string& path() const { return _path; }
    /// The application folders inside it (created on demand).
    std::string dataDirectory() const;
    std::string configDirectory() const;
    std::string cacheDirectory() const;
    std::string preferencesFile() const;

private:
    std::string _path;
    std::map<std::string, std::optional<std::string>> _savedEnvironment;
};
