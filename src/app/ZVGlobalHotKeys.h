#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <map>
#include <memory>

#include "ui_elements/ZVKeyCombo.h"

class QSocketNotifier;

/// System-wide hot keys. On X11 each combination is grabbed on the root
/// window, also with Caps Lock and Num Lock on, through a connection of its
/// own whose key presses are read on the main thread. On Wayland there is no
/// such grab: the hot keys are then unavailable and say so.
class ZVGlobalHotKeys final : public QObject {
    Q_OBJECT
public:
    explicit ZVGlobalHotKeys(QObject* parent = nullptr);
    ~ZVGlobalHotKeys() override;

    bool isAvailable() const;
    /// Why hot keys cannot work here; empty when they can.
    QString unavailableReason() const { return _unavailableReason; }

    /// Grabs the combination and calls the handler at each press. Answers an
    /// identifier, or a negative status when the combination cannot be
    /// grabbed (no X server, unknown key, or taken by another program).
    int registerHotKey(const ZVKeyCombo& combo, std::function<void()> handler);
    void unregisterHotKey(int identifier);

    /// Calls the handler of a registered combination as a key press would.
    bool dispatch(unsigned keycode, unsigned modifierState);

private:
    void _readEvents();

    struct Connection;
    struct Registration {
        unsigned keycode = 0;
        unsigned modifiers = 0;
        std::function<void()> handler;
    };
    std::unique_ptr<Connection> _connection;
    QSocketNotifier* _notifier = nullptr;
    std::map<int, Registration> _registrations;
    int _nextIdentifier = 1;
    QString _unavailableReason;
};
