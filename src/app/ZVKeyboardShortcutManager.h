#pragma once

#include <QObject>
#include <QString>
#include <array>
#include <functional>
#include <memory>

#include "preferences/ZVHotKeyDefinitions.h"

class ZVApplicationCommands;
class ZVGlobalHotKeys;

/// The five global hot keys: toggle the timer, quick search, post time,
/// show the current project and synchronize its account. Each combination
/// is stored under "ShortcutRecorder <name>"; an unset one is no hot key.
/// While a modal dialog is up the hot keys do nothing.
class ZVKeyboardShortcutManager final : public QObject {
    Q_OBJECT
public:
    using HotKey = ZVHotKey;
    using Definition = ZVHotKeyDefinition;
    static constexpr const auto& definitions = ZVHotKeyDefinitions;

    ZVKeyboardShortcutManager(ZVApplicationCommands& commands, std::function<void()> postTime,
                              QObject* parent = nullptr);
    ~ZVKeyboardShortcutManager() override;

    static ZVKeyboardShortcutManager* shared();

    /// Registers all five again from the stored combinations.
    void _reregisterKeyCombo();
    /// What a press of the hot key does.
    void perform(HotKey hotKey);

    bool isAvailable() const;
    QString unavailableReason() const;
    /// The identifier of the registration of each hot key, or a negative status.
    int registrationStatus(HotKey hotKey) const { return _references[static_cast<std::size_t>(hotKey)]; }

private:
    ZVApplicationCommands& _commands;
    std::function<void()> _postTime;
    std::unique_ptr<ZVGlobalHotKeys> _hotKeys;
    std::array<int, 5> _references{{0, 0, 0, 0, 0}};
};
