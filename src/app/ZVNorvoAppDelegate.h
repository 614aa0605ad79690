#pragma once

#include <QObject>
#include <QString>
#include <memory>

#include "ui_elements/ZVApplicationCommands.h"

class QDialog;
class ZVGlobalHotKeys;
struct ZVKeyCombo;
class ZVIdleTimeHandler;
class ZVKeyboardShortcutManager;
class ZVPreferencesWindow;
class ZVQtTimeActionDialogs;
class ZVLogController;
class ZVNorvoMainWindow;
class ZVPopover;
class ZVSleepObserver;
class ZVStatusItemController;
class ZVX11IdleTimeSource;

/// The application's start-up object and the receiver of its commands. It
/// builds the main window and the tray icon in their order, restores the
/// window's visibility, starts the idle check, follows sleep and wake, and
/// shows the release notes once when the launch is done; at quit it stores
/// the window's visibility, may warn about unposted time and waits for a
/// running synchronization.
class ZVNorvoAppDelegate final : public QObject, public ZVApplicationCommands {
    Q_OBJECT
public:
    /// How a quit request is answered.
    enum class TerminateReply { terminateNow, terminateCancel, terminateLater };

    /// `showsInTaskbar` is the dock-icon setting read before the main loop:
    /// without it the main window stays out of the taskbar and the tray icon
    /// is the program's only presence.
    explicit ZVNorvoAppDelegate(bool showsInTaskbar, QObject* parent = nullptr);
    ~ZVNorvoAppDelegate() override;

    static ZVNorvoAppDelegate* sharedDelegate();

    /// Creates the local account, the main window and its controls.
    void awakeFromNib();
    /// Tray icon, window visibility, idle check, sleep and wake.
    void applicationDidFinishLaunching();
    /// What's New, at the first launch of this version: shown once the
    /// launch is done, in a window that blocks nothing.
    void showReleaseNotesOnce();
    TerminateReply applicationShouldTerminate();
    void updateMainWindowLevel();

    ZVNorvoMainWindow* window() const { return _window.get(); }
    ZVStatusItemController* statusItemController() const { return _statusItemController.get(); }
    ZVLogController* logController() const { return _logController.get(); }
    bool hasTerminated() const { return _didTerminate; }
    /// Ends the program: the timer stops, the centre saves, the tray icon
    /// goes, the loop ends.
    void finishTermination();
    /// Ends the program at once, as at logout: no question, no waiting.
    void terminateWithoutQuestions();

    // ZVApplicationCommands
    void showTimerWindow() override;
    void addIntegration() override;
    void editIntegration(const std::shared_ptr<ZVIntegration>& integration) override;
    void manageNorvoProjects() override;
    void showAbout() override;
    void showPreferences() override;
    void showHelp() override;
    void showReleaseNotes() override;
    /// The installed changelog in a window of its own.
    static void showChangelog(QWidget* parent);
    void showQuickSearch() override;
    void terminate() override;
    void timeEntryTextHasChanged() override;
    ZVIntegrationProjectMenuItemTarget* projectListTarget() override;
    std::shared_ptr<ZVMenu> debugMenu() override;
    bool canSendTimeToLedgrin() override;
    void sendTimeToLedgrin() override;

    /// The one panel of account setup and editing, made at first use.
    ZVPopover* popover();
    /// The state report in a window of its own (Debug menu).
    void showStateReport();

    ZVKeyboardShortcutManager* keyboardShortcutManager() const { return _keyboardShortcutManager.get(); }
    ZVPreferencesWindow* preferencesWindow();
    /// Whether a recorded hot key is already taken, and by what.
    static QString hotKeyRefusal(const ZVKeyCombo& combo, const QString& autosaveName);

    void postTime();
    void clearCurrentTaskTextField();

private:
    void _rememberWindowVisibility();

    bool _showsInTaskbar;
    bool _didTerminate = false;
    std::unique_ptr<ZVNorvoMainWindow> _window;
    std::unique_ptr<ZVStatusItemController> _statusItemController;
    std::unique_ptr<ZVLogController> _logController;
    std::unique_ptr<ZVX11IdleTimeSource> _idleTimeSource;
    std::unique_ptr<ZVIdleTimeHandler> _idleTimeHandler;
    ZVSleepObserver* _sleepObserver = nullptr;
    std::unique_ptr<ZVKeyboardShortcutManager> _keyboardShortcutManager;
    std::unique_ptr<ZVPreferencesWindow> _preferencesWindow;
    std::unique_ptr<ZVPopover> _popover;
    std::unique_ptr<QDialog> _releaseNotesWindow;
};
