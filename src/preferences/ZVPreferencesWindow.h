#pragma once

#include <QDialog>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTabWidget;
class QWidget;
class ZVShortcutRecorder;
struct ZVKeyCombo;

/// The preference window with its panes: General, Keyboard Shortcuts,
/// Ledgrin and Advanced. Controls are loaded from the store when the window
/// opens and saved when it closes; the seconds, monochrome and taskbar
/// settings act at once.
class ZVPreferencesWindow final : public QDialog {
    Q_OBJECT
public:
    struct Hooks {
        /// The status item applies the seconds or monochrome setting.
        std::function<void()> statusItemChanged;
        /// The main window's level follows the keep-atop setting.
        std::function<void()> updateMainWindowLevel;
        /// The hot keys are registered again after a change.
        std::function<void()> hotKeysChanged;
        /// Why global hot keys are off here, or empty.
        QString hotKeysUnavailableReason;
        /// Answers whether a combination is refused, and why.
        std::function<QString(const ZVKeyCombo&)> validateHotKey;
        /// Asks to relaunch after the taskbar setting changed.
        std::function<void()> relaunchRequested;
    };

    explicit ZVPreferencesWindow(Hooks hooks, QWidget* parent = nullptr);

    void loadPreferences();
    void savePreferences();

    QTabWidget* tabs() const { return _tabs; }
    ZVShortcutRecorder* recorder(int index) const { return _recorders[index]; }

protected:
    void showEvent(QShowEvent* event) override;
    void done(int result) override;

private:
    QWidget* _makeGeneralPane();
    QWidget* _makeShortcutsPane();
    QWidget* _makeLedgrinPane();
    QWidget* _makeAdvancedPane();
    void _toggleDockIcon();

    Hooks _hooks;
    QTabWidget* _tabs = nullptr;
    bool _loading = false;
    // General
    QCheckBox* _startAtLoginButton = nullptr;
    QCheckBox* _showSecondsButton = nullptr;
    QCheckBox* _playPrintSoundButton = nullptr;
    QCheckBox* _showIconInDockButton = nullptr;
    QCheckBox* _resetTimerAfterPostingButton = nullptr;
    QCheckBox* _automaticallyRoundTimeButton = nullptr;
    QWidget* _automaticRoundingContainer = nullptr;
    QComboBox* _timeRoundingDirectionPopUpButton = nullptr;
    QComboBox* _timeRoundingDurationPopUpButton = nullptr;
    QCheckBox* _useMonochromeColorsButton = nullptr;
    QCheckBox* _showPostingConfirmation = nullptr;
    QCheckBox* _confirmPostingMessage = nullptr;
    QCheckBox* _keepMainWindowAtopButton = nullptr;
    // Shortcuts
    ZVShortcutRecorder* _recorders[5] = {};
    // Ledgrin
    QLineEdit* _hourPriceField = nullptr;
    QLabel* _ledgrinInstalledLabel = nullptr;
    // Advanced
    QCheckBox* _postTimeOnTimerStopButton = nullptr;
    QLineEdit* _idleTimeIntervalTextField = nullptr;
    QCheckBox* _warnAboutUnpostedTimeBeforeQuittingButton = nullptr;
    QLineEdit* _syncTimeIntervalTextField = nullptr;
    QCheckBox* _silenceSyncErrorsButton = nullptr;
};
