#pragma once

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <memory>
#include <vector>

#include "core/heart_beat/ZVHeartBeatVein.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "ui_elements/ZVStatusItemView.h"

class QEvent;
class QIcon;
class QMenu;
class QTimer;
class QWidget;
class ZVApplicationCommands;
class ZVTimerViewController;

/// The program's permanent presence in the tray: an icon with the clock and
/// the running state, the application menu on the context click, the timer
/// panel in a popup on a click, start and stop on a middle click (or a click
/// with Shift), time editing on a click with Control. A spinner turns in
/// the icon while a synchronization runs.
class ZVStatusItemController final : public QObject, public ZVHeartBeatVein {
    Q_OBJECT
public:
    explicit ZVStatusItemController(ZVApplicationCommands& commands, QObject* parent = nullptr);
    ~ZVStatusItemController() override;

    static ZVStatusItemController* sharedController();

    QSystemTrayIcon& statusItem() { return *_statusItem; }
    const ZVStatusItemView& view() const { return _view; }
    QMenu* menu() const { return _menu.get(); }
    ZVTimerViewController* timerViewController() const;
    bool isPopoverShown() const;

    void showStatusItemPopover();
    void showQuickSearch();
    /// Applies the seconds and monochrome settings and redraws.
    void updateItemWidth();
    /// A banner as a balloon of the icon, where no notification service answers.
    void showMessage(const QString& title, const QString& text);

    void heartBeat(ZVHeartBeat& beat, const std::string& didUpdateTime) override;

    /// The tool tip: the current project's path, or "No Project".
    static QString toolTipText();

    /// The themed icon of a state ("com.tesselwick.Norvo-running", ...),
    /// with the "-dark" variant of light marks for a dark panel.
    static QString stateIconName(bool beating, bool syncing, bool darkPanel);
    /// The tray's icon: the live clock, and for the smallest trays, where
    /// the clock cannot be read, the themed icon of the state.
    static QIcon trayIcon(const ZVStatusItemView& view, bool darkPanel);
    /// Whether the panel is dark, as far as the desktop's palette tells.
    static bool panelIsDark();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void _activated(QSystemTrayIcon::ActivationReason reason);
    void _placeSyncingIndicator();
    void _removeSyncingIndicator();
    void _redraw();
    QWidget& _popover();
    void _takeKeyboard(int attemptsLeft);

    ZVApplicationCommands& _commands;
    std::unique_ptr<QSystemTrayIcon> _statusItem;
    std::unique_ptr<QMenu> _menu;
    ZVStatusItemView _view;
    QString _shownAppearance;
    QTimer* _spinnerTimer = nullptr;
    QPointer<QWidget> _popoverWindow;
    ZVTimerViewController* _timerViewController = nullptr;
    std::vector<ZVNotificationCenter::Token> _observations;
};
