#pragma once

#include <array>

/// The five global hot keys, in the order of registration, each stored
/// under "ShortcutRecorder <autosaveName>"; the preferences record them and
/// the application registers them.
enum class ZVHotKey { toggleTimer, quickSearch, postTime, showCurrentProject, syncNow };

struct ZVHotKeyDefinition {
    ZVHotKey hotKey;
    const char* autosaveName;
};

inline constexpr std::array<ZVHotKeyDefinition, 5> ZVHotKeyDefinitions{{
    {ZVHotKey::toggleTimer, "KeyboardShortcut"},
    {ZVHotKey::quickSearch, "QuickSearchKeyboardShortcut"},
    {ZVHotKey::postTime, "PostTimeShortcut"},
    {ZVHotKey::showCurrentProject, "ShowProjectShortcut"},
    {ZVHotKey::syncNow, "SyncNowShortcut"},
}};
