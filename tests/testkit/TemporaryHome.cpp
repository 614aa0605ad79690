#include "testkit/TemporaryHome.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "ZVPaths.h"
#include "ZVPreferences.h"

namespace {
const char* const variables[] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"};
}

TemporaryHome::TemporaryHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "norvo-home-XXXXXX").string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary home");
    _path = name.data();
    for (const char* variable : variables) {
        const char* value = std::getenv(variable);
        _savedEnvironment[variable] = value ? std::optional<std::string>(value) : std::nullopt;
    }
    setenv("HOME", _path.c_str(), 1);
    setenv("XDG_DATA_HOME", (_path + "/.local/share").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (_path + "/.config").c_str(), 1);
    setenv("XDG_CACHE_HOME", (_path + "/.cache").c_str(), 1);
    // The application's folders exist, as they do once the program has started.
    ZVPaths::dataDirectory();
    ZVPaths::configDirectory();
    ZVPaths::cacheDirectory();
    ZVPreferences::resetShared(preferencesFile());
    // Nothing may leave the machine: a refresh's connection probe asks a
    // closed loopback port unless a test points it at its fake server.
    ZVPreferences::shared().setValue(std::string("http://127.0.0.1:9/"), "ZVConnectionProbeAddress");
}

TemporaryHome::~TemporaryHome() {
    for (const auto& [variable, value] : _savedEnvironment) {
        if (value) {
            setenv(variable.c_str(), value->c_str(), 1);
        } else {
            unsetenv(variable.c_str());
        }
    }
    // The default path, computed without creating folders in the real home.
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    std::string base = config && config[0] == '/' ? config : std::string(home ? home : "/tmp") + "/.config";
    ZVPreferences::resetShared(base + "/" + ZVPaths::applicationFolderName + "/Preferences.plist");
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

std::string TemporaryHome::dataDirectory() const { return ZVPaths::dataDirectory(); }
std::string TemporaryHome::configDirectory() const { return ZVPaths::configDirectory(); }
std::string TemporaryHome::cacheDirectory() const { return ZVPaths::cacheDirectory(); }
std::string TemporaryHome::preferencesFile() const { return _path + "/.config/" + ZVPaths::applicationFolderName + "/Preferences.plist"; }
