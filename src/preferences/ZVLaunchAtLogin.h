#pragma once

#include <string>

/// "Start Norvo at login", kept where the desktop looks for it: a desktop
/// entry in the user's autostart folder. The file is the setting, so a file
/// that the user removed or hid by hand reads as off.
namespace ZVLaunchAtLogin {
inline constexpr const char* entryFileName = "com.tesselwick.Norvo.desktop";

/// $XDG_CONFIG_HOME/autostart/com.tesselwick.Norvo.desktop (default ~/.config/...).
std::string userEntryPath();
/// Whether the desktop starts Norvo at login: the user's entry decides when
/// there is one, otherwise an entry of the same name in $XDG_CONFIG_DIRS.
bool isEnabled();
/// On: writes the user's entry, starting `executablePath`. Off: removes it,
/// or writes a hidden entry when a system-wide one would start Norvo anyway.
/// False when the file could not be written or removed.
bool setEnabled(bool enabled, const std::string& executablePath);

/// The text of the entry that starts `executablePath`.
std::string entryText(const std::string& executablePath);
/// One argument of an Exec line, quoted where the desktop entry rules ask for it.
std::string quotedExecArgument(const std::string& argument);
}  // namespace ZVLaunchAtLogin
