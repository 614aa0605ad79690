#include "preferences/ZVLaunchAtLogin.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

#include "ZVPaths.h"

namespace {

std::string configHome() {
    const char* value = std::getenv("XDG_CONFIG_HOME");
    if (value && value[0] == '/') return value;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.config";
}

std::vector<std::string> configDirectories() {
    const char* value = std::getenv("XDG_CONFIG_DIRS");
    std::string list = value && *value ? value : "/etc/xdg";
    std::vector<std::string> directories;
    std::stringstream stream(list);
    std::string item;
    while (std::getline(stream, item, ':'))
        if (!item.empty() && item[0] == '/') directories.push_back(item);
    return directories;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// An entry starts the program unless it is hidden or switched off by the
// GNOME key that some session managers write instead of Hidden.
bool entryStartsProgram(const std::string& path) {
    std::string text;
    if (!ZVPaths::readFile(path, text)) return false;
    std::istringstream lines(text);
    std::string line;
    bool inMainGroup = false;
    while (std::getline(lines, line)) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const auto equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = trimmed(line.substr(0, equals));
        const std::string value = trimmed(line.substr(equals + 1));
        if (key == "Hidden" && value == "true") return false;
        if (key == "X-GNOME-Autostart-enabled" && value == "false") return false;
    }
    return true;
}

bool systemEntryExists() {
    std::error_code error;
    for (const auto& directory : configDirectories())
        if (std::filesystem::exists(directory + "/autostart/" + ZVLaunchAtLogin::entryFileName, error)) return true;
    return false;
}

bool systemEntryStartsProgram() {
    // The first directory that holds the entry is the one that counts.
    std::error_code error;
    for (const auto& directory : configDirectories()) {
        const std::string path = directory + "/autostart/" + ZVLaunchAtLogin::entryFileName;
        if (std::filesystem::exists(path, error)) return entryStartsProgram(path);
    }
    return false;
}

}  // namespace

namespace ZVLaunchAtLogin {

std::string userEntryPath() { return configHome() + "/autostart/" + entryFileName; }

bool isEnabled() {
    std::error_code error;
    const std::string path = userEntryPath();
    if (std::filesystem::exists(path, error)) return entryStartsProgram(path);
    return systemEntryStartsProgram();
}

bool setEnabled(bool enabled, const std::string& executablePath) {
    const std::string path = userEntryPath();
    std::error_code error;
    if (!enabled && !systemEntryExists()) {
        std::filesystem::remove(path, error);
        return !error;
    }
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    std::string text = entryText(executablePath);
    if (!enabled) text += "Hidden=true\n";
    return ZVPaths::writeFileAtomically(path, text, 0644);
}

std::string quotedExecArgument(const std::string& argument) {
    // Reserved characters ask for double quotes, and inside them ", `, $
    // and \ take a backslash.
    const std::string reserved = " \t\n\"'\\><~|&;$*?#()`";
    if (!argument.empty() && argument.find_first_of(reserved) == std::string::npos) return argument;
    std::string quoted = "\"";
    for (char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    quoted += '"';
    return quoted;
}

std::string entryText(const std::string& executablePath) {
    // The Exec value is a desktop entry string as well, whose own escape
    // doubles every backslash once more.
    std::string exec;
    for (char c : quotedExecArgument(executablePath)) {
        if (c == '\\') exec += '\\';
        exec += c;
    }
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Norvo\n"
           "Comment=Start Norvo at login\n"
           "Icon=com.tesselwick.Norvo\n"
           "Exec=" + exec + "\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

}  // namespace ZVLaunchAtLogin
