#pragma once

#include <QWidget>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVLogView.h"

class QLineEdit;
class QPushButton;
class QToolButton;
class ZVApplicationCommands;
class ZVHeartBeatStateButton;
class ZVProjectPopUpButton;
class ZVReceiptDrawerWindow;
class ZVTimeTextField;
class ZVTimerViewController;

/// The main timer window: a small panel with the project picker, the live
/// clock with its start and stop button, the "What are you working on?"
/// field, the timer panel (quick search, recents, actions, gear) and the
/// log drawer beside it. Closing it hides it; the tray icon stays.
class ZVNorvoMainWindow final : public QWidget, public ZVLogView {
    Q_OBJECT
public:
    explicit ZVNorvoMainWindow(ZVApplicationCommands& commands, QWidget* parent = nullptr);
    ~ZVNorvoMainWindow() override;

    ZVProjectPopUpButton* projectListPopUpButton() const { return _projectListPopUpButton; }
    QToolButton* addIntegrationButton() const { return _addIntegrationButton; }
    ZVTimeTextField* timeTextField() const { return _timeTextField; }
    QPushButton* startStopButton() const { return _startStopButton; }
    QLineEdit* currentTaskTextField() const { return _currentTaskTextField; }
    ZVTimerViewController* timerViewController() const { return _timerViewController; }
    ZVHeartBeatStateButton* heartBeatStateButton() const { return _heartBeatStateButton; }
    ZVReceiptDrawerWindow* logDrawer() const { return _logDrawer; }
    /// The way to a first project, shown while there is no project at all.
    QWidget* gettingStarted() const { return _gettingStarted; }

    /// Floating above other windows, or at the normal level.
    void setKeptAboveOtherWindows(bool above);
    bool isLogDrawerShown() const;
    void setLogDrawerShown(bool shown);

    // ZVLogView
    void setLogText(const std::string& text) override;
    std::string currentTaskName() const override;
    void setCurrentTaskName(const std::string& name) override;
    int selectedTimePeriod() const override;
    std::optional<std::string> chooseCSVExportPath(const std::string& suggestedName) override;

Q_SIGNALS:
    void timePeriodChanged();
    void clearLogRequested();
    void exportLogRequested();
    void logDrawerToggled(bool shown);

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void _updateStartStopButton();
    void _updateGettingStarted();

    ZVApplicationCommands& _commands;
    ZVProjectPopUpButton* _projectListPopUpButton = nullptr;
    QToolButton* _addIntegrationButton = nullptr;
    ZVTimeTextField* _timeTextField = nullptr;
    QPushButton* _startStopButton = nullptr;
    QLineEdit* _currentTaskTextField = nullptr;
    ZVTimerViewController* _timerViewController = nullptr;
    ZVHeartBeatStateButton* _heartBeatStateButton = nullptr;
    QToolButton* _logButton = nullptr;
    QWidget* _gettingStarted = nullptr;
    ZVReceiptDrawerWindow* _logDrawer = nullptr;
    std::vector<ZVNotificationCenter::Token> _observations;
    bool _restyling = false;
};
