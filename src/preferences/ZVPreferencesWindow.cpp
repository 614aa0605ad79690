#include "preferences/ZVPreferencesWindow.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>
#include <cmath>

#include "ZVHTTPSession.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPreferences.h"
#include "preferences/ZVHotKeyDefinitions.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/ui/ZVUserInterface.h"
#include "preferences/ZVLaunchAtLogin.h"
#include "preferences/ZVNorvoPreferences.h"
#include "ui_elements/ZVShortcutRecorder.h"

namespace {
QCheckBox* checkBox(const char* title, const char* name) {
    auto* box = new QCheckBox(ZVLocalizedQString(title));
    box->setObjectName(QString::fromUtf8(name));
    return box;
}

constexpr int roundingMinutes[] = {1, 5, 6, 10, 15, 30, 60};
}  // namespace

ZVPreferencesWindow::ZVPreferencesWindow(Hooks hooks, QWidget* parent) : QDialog(parent), _hooks(std::move(hooks)) {
    setWindowTitle(ZVLocalizedQString("Preferences"));
    setObjectName(QStringLiteral("preferencesWindow"));
    _tabs = new QTabWidget(this);
    // Every tab's title is read whole, in every language: the window is as
    // wide as its tabs and never scrolls them.
    _tabs->setUsesScrollButtons(false);
    _tabs->setElideMode(Qt::ElideNone);
    _tabs->addTab(_makeGeneralPane(), ZVLocalizedQString("General"));
    _tabs->addTab(_makeShortcutsPane(), ZVLocalizedQString("Keyboard Shortcuts"));
    _tabs->addTab(_makeLedgrinPane(), ZVLocalizedQString("Ledgrin Integration"));
    _tabs->addTab(_makeAdvancedPane(), ZVLocalizedQString("Advanced"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(_tabs);
    layout->setSizeConstraint(QLayout::SetMinimumSize);
    loadPreferences();
}

QWidget* ZVPreferencesWindow::_makeGeneralPane() {
    auto* pane = new QWidget();
    auto* layout = new QVBoxLayout(pane);
    _startAtLoginButton = checkBox("Start Norvo at login", "startAtLoginButton");
    _showSecondsButton = checkBox("Show seconds in the status item", "showSecondsButton");
    _useMonochromeColorsButton = checkBox("Use monochrome colors", "useMonochromeColorsButton");
    _showIconInDockButton = checkBox("Show Norvo in the taskbar", "showIconInDockButton");
    _keepMainWindowAtopButton = checkBox("Keep the time window above other windows", "keepMainWindowAtopButton");
    _playPrintSoundButton = checkBox("Play print sound when showing the log", "playPrintSoundButton");
    _confirmPostingMessage = checkBox("Confirm the message before posting", "confirmPostingMessage");
    _showPostingConfirmation = checkBox("Show a confirmation after posting", "showPostingConfirmation");
    _resetTimerAfterPostingButton = checkBox("Reset the timer after posting", "resetTimerAfterPostingButton");
    _automaticallyRoundTimeButton = checkBox("Round time before posting", "automaticallyRoundTimeButton");
    _automaticRoundingContainer = new QWidget();
    auto* rounding = new QFormLayout(_automaticRoundingContainer);
    _timeRoundingDirectionPopUpButton = new QComboBox();
    _timeRoundingDirectionPopUpButton->addItem(ZVLocalizedQString("Nearest"), 0);
    _timeRoundingDirectionPopUpButton->addItem(ZVLocalizedQString("Up"), 1);
    _timeRoundingDirectionPopUpButton->addItem(ZVLocalizedQString("Down"), 2);
    _timeRoundingDurationPopUpButton = new QComboBox();
    for (int minutes : roundingMinutes)
        _timeRoundingDurationPopUpButton->addItem(
            QString::fromStdString(ZVLocalizedPluralFormat("%@ minute", "%@ minutes", static_cast<unsigned long>(minutes),
                                                           {std::to_string(minutes)})),
            minutes);
    rounding->addRow(ZVLocalizedQString("Direction:"), _timeRoundingDirectionPopUpButton);
    rounding->addRow(ZVLocalizedQString("To a multiple of:"), _timeRoundingDurationPopUpButton);

    for (QWidget* widget : std::initializer_list<QWidget*>{
             _startAtLoginButton, _showSecondsButton, _useMonochromeColorsButton, _showIconInDockButton, _keepMainWindowAtopButton,
             _playPrintSoundButton, _confirmPostingMessage, _showPostingConfirmation, _resetTimerAfterPostingButton,
             _automaticallyRoundTimeButton, _automaticRoundingContainer})
        layout->addWidget(widget);
    layout->addStretch();

    connect(_automaticallyRoundTimeButton, &QCheckBox::toggled, _automaticRoundingContainer, &QWidget::setEnabled);
    connect(_showSecondsButton, &QCheckBox::toggled, this, [this](bool on) {
        if (_loading) return;
        ZVPreferences::shared().perform([on](ZVPreferences& s) { ZVNorvoPreferences(s).setDisplaysSecondsInMenuBar(on); });
        if (_hooks.statusItemChanged) _hooks.statusItemChanged();
    });
    connect(_useMonochromeColorsButton, &QCheckBox::toggled, this, [this](bool on) {
        if (_loading) return;
        ZVPreferences::shared().perform([on](ZVPreferences& s) { ZVNorvoPreferences(s).setUsesMonochromeColors(on); });
        if (_hooks.statusItemChanged) _hooks.statusItemChanged();
    });
    connect(_startAtLoginButton, &QCheckBox::toggled, this, [this](bool on) {
        if (_loading) return;
        // The autostart file is the setting: it is written at once, and a
        // failed write leaves the box showing what the desktop will do.
        if (!ZVLaunchAtLogin::setEnabled(on, QCoreApplication::applicationFilePath().toStdString())) {
            _loading = true;
            _startAtLoginButton->setChecked(ZVLaunchAtLogin::isEnabled());
            _loading = false;
        }
    });
    connect(_showIconInDockButton, &QCheckBox::toggled, this, [this] {
        if (!_loading) _toggleDockIcon();
    });
    return pane;
}

QWidget* ZVPreferencesWindow::_makeShortcutsPane() {
    auto* pane = new QWidget();
    auto* layout = new QVBoxLayout(pane);
    if (!_hooks.hotKeysUnavailableReason.isEmpty()) {
        auto* notice = new QLabel(_hooks.hotKeysUnavailableReason);
        notice->setObjectName(QStringLiteral("hotKeysUnavailableLabel"));
        notice->setWordWrap(true);
        layout->addWidget(notice);
    }
    auto* form = new QFormLayout();
    const char* titles[] = {ZVLocalizable("Start or stop the timer:"), ZVLocalizable("Quick search:"),
                            ZVLocalizable("Post time:"), ZVLocalizable("Show current project:"),
                            ZVLocalizable("Synchronize now:")};
    for (int i = 0; i < 5; ++i) {
        auto* recorder = new ZVShortcutRecorder();
        const QString name = QString::fromUtf8(ZVHotKeyDefinitions[static_cast<std::size_t>(i)].autosaveName);
        recorder->setObjectName(name);
        recorder->setAutosaveName(name);
        if (_hooks.validateHotKey) recorder->setValidator(_hooks.validateHotKey);
        connect(recorder, &ZVShortcutRecorder::keyComboDidChange, this, [this, recorder] {
            recorder->saveKeyCombo();
            if (_hooks.hotKeysChanged) _hooks.hotKeysChanged();
        });
        _recorders[i] = recorder;
        form->addRow(ZVLocalizedQString(titles[i]), recorder);
    }
    layout->addLayout(form);
    layout->addStretch();
    return pane;
}

QWidget* ZVPreferencesWindow::_makeLedgrinPane() {
    auto* pane = new QWidget();
    auto* form = new QFormLayout(pane);
    _hourPriceField = new QLineEdit();
    _hourPriceField->setObjectName(QStringLiteral("hourPriceField"));
    _hourPriceField->setPlaceholderText(ZVLocalizedQString("None"));
    form->addRow(ZVLocalizedQString("Hour price:"), _hourPriceField);
    _ledgrinInstalledLabel = new QLabel(ZVLocalizedQString("Ledgrin is not installed."));
    _ledgrinInstalledLabel->setObjectName(QStringLiteral("ledgrinInstalledLabel"));
    form->addRow(_ledgrinInstalledLabel);
    return pane;
}

QWidget* ZVPreferencesWindow::_makeAdvancedPane() {
    auto* pane = new QWidget();
    auto* form = new QFormLayout(pane);
    _postTimeOnTimerStopButton = checkBox("Post time when the timer stops", "postTimeOnTimerStopButton");
    _warnAboutUnpostedTimeBeforeQuittingButton =
        checkBox("Warn about unposted time before quitting", "warnAboutUnpostedTimeBeforeQuittingButton");
    _silenceSyncErrorsButton = checkBox("Do not show synchronization errors", "silenceSyncErrorsButton");
    _idleTimeIntervalTextField = new QLineEdit();
    _idleTimeIntervalTextField->setObjectName(QStringLiteral("idleTimeIntervalTextField"));
    _syncTimeIntervalTextField = new QLineEdit();
    _syncTimeIntervalTextField->setObjectName(QStringLiteral("syncTimeIntervalTextField"));
    form->addRow(_postTimeOnTimerStopButton);
    form->addRow(ZVLocalizedQString("Idle time (seconds):"), _idleTimeIntervalTextField);
    form->addRow(_warnAboutUnpostedTimeBeforeQuittingButton);
    form->addRow(ZVLocalizedQString("Synchronize every (seconds):"), _syncTimeIntervalTextField);
    form->addRow(_silenceSyncErrorsButton);
    // A service that keeps a bad session in its cookie signs in afresh.
    auto* clearCookies = new QPushButton(ZVLocalizedQString("Clear Cookies"));
    clearCookies->setObjectName(QStringLiteral("clearCookiesButton"));
    connect(clearCookies, &QPushButton::clicked, this, [] {
        auto session = ZVHTTPSession::shared();
        session->clearAllCookies();
        ZVLog([] { return std::string("Remaining cookie count: 0"); });
    });
    form->addRow(clearCookies);
    return pane;
}

void ZVPreferencesWindow::loadPreferences() {
    _loading = true;
    const ZVNorvoPreferences p = ZVNorvoPreferences::shared();
    _startAtLoginButton->setChecked(ZVLaunchAtLogin::isEnabled());
    _showSecondsButton->setChecked(p.displaysSecondsInMenuBar());
    _playPrintSoundButton->setChecked(p.playsPrintSoundWhenShowingLog());
    _showIconInDockButton->setChecked(p.showDockIcon());
    _resetTimerAfterPostingButton->setChecked(p.resetsTimerUponSuccessfullyPostingTime());
    _automaticallyRoundTimeButton->setChecked(p.automaticallyRoundTimeBeforePosting());
    _automaticRoundingContainer->setEnabled(p.automaticallyRoundTimeBeforePosting());
    const int direction = _timeRoundingDirectionPopUpButton->findData(static_cast<int>(p.automaticRoundingDirection()));
    _timeRoundingDirectionPopUpButton->setCurrentIndex(std::max(direction, 0));
    const int duration = _timeRoundingDurationPopUpButton->findData(static_cast<int>(p.automaticRoundingDuration()));
    _timeRoundingDurationPopUpButton->setCurrentIndex(std::max(duration, 0));
    _useMonochromeColorsButton->setChecked(p.usesMonochromeColors());
    _showPostingConfirmation->setChecked(p.displayPostingConfirmationNotification());
    _confirmPostingMessage->setChecked(p.displayConfirmationMessageBeforePosting());
    _keepMainWindowAtopButton->setChecked(p.keepMainWindowAboveOtherWindows());
    for (ZVShortcutRecorder* recorder : _recorders) recorder->loadKeyCombo();
    const auto price = p.hourPrice();
    _hourPriceField->setText(price ? QString::number(*price) : QString());
    auto& ledgrin = ZVLedgrinIntegration::sharedIntegration();
    if (ledgrin.isInstalled()) {
        _ledgrinInstalledLabel->setText(ledgrin.isInstalledVersionIntegrable()
                                            ? ZVLocalizedQString("Installed")
                                            : ZVLocalizedQString("Installed, but version 2.2.2+ is required."));
    }
    _postTimeOnTimerStopButton->setChecked(p.automaticallyPostTimeAfterStoppingTimer());
    _warnAboutUnpostedTimeBeforeQuittingButton->setChecked(p.warnsAboutUnpostedTimesBeforeQuitting());
    _silenceSyncErrorsButton->setChecked(p.silenceSyncErrors());
    _idleTimeIntervalTextField->setText(QString::number(p.idleTimeDuration()));
    _syncTimeIntervalTextField->setText(QString::number(static_cast<double>(p.timeIntervalBetweenSyncs())));
    _loading = false;
}

void ZVPreferencesWindow::savePreferences() {
    ZVPreferences::shared().perform([this](ZVPreferences& store) {
        ZVNorvoPreferences p(store);
        p.setPlaysPrintSoundWhenShowingLog(_playPrintSoundButton->isChecked());
        p.setResetsTimerUponSuccessfullyPostingTime(_resetTimerAfterPostingButton->isChecked());
        p.setDisplayConfirmationMessageBeforePosting(_confirmPostingMessage->isChecked());
        p.setDisplayPostingConfirmationNotification(_showPostingConfirmation->isChecked());
        p.setAutomaticallyRoundTimeBeforePosting(_automaticallyRoundTimeButton->isChecked());
        p.setAutomaticRoundingDirection(
            static_cast<ZVTimeRoundingDirection>(_timeRoundingDirectionPopUpButton->currentData().toInt()));
        p.setAutomaticRoundingDuration(_timeRoundingDurationPopUpButton->currentData().toInt());
        p.setKeepMainWindowAboveOtherWindows(_keepMainWindowAtopButton->isChecked());
        bool ok = false;
        const double price = _hourPriceField->text().trimmed().toDouble(&ok);
        p.setHourPrice(ok ? std::optional<double>(price) : std::nullopt);
    });
    if (_hooks.updateMainWindowLevel) _hooks.updateMainWindowLevel();
    ZVPreferences::shared().perform([this](ZVPreferences& store) {
        ZVNorvoPreferences p(store);
        p.setAutomaticallyPostTimeAfterStoppingTimer(_postTimeOnTimerStopButton->isChecked());
        p.setWarnsAboutUnpostedTimesBeforeQuitting(_warnAboutUnpostedTimeBeforeQuittingButton->isChecked());
        p.setSilenceSyncErrors(_silenceSyncErrorsButton->isChecked());
        bool ok = false;
        const qlonglong idle = _idleTimeIntervalTextField->text().trimmed().toLongLong(&ok);
        if (ok) p.setIdleTimeDuration(idle);
        const double period = _syncTimeIntervalTextField->text().trimmed().toDouble(&ok);
        if (ok) p.setTimeIntervalBetweenSyncs(static_cast<std::int64_t>(std::trunc(period)));
    });
}

void ZVPreferencesWindow::_toggleDockIcon() {
    const bool show = _showIconInDockButton->isChecked();
    ZVPreferences::shared().perform([show](ZVPreferences& s) { ZVNorvoPreferences(s).setShowDockIcon(show); });
    ZVAlert alert;
    alert.messageText = ZVLocalizedString("For the changes to take effect, Norvo needs to relaunch.");
    alert.informativeText = ZVLocalizedString("You don't need to relaunch now.");
    alert.buttons = {ZVLocalizedString("Relaunch"), ZVLocalizedString("Don't Relaunch")};
    if (ZVUserInterface::shared().runModal(alert).buttonIndex != 0) return;
    savePreferences();
    if (_hooks.relaunchRequested) _hooks.relaunchRequested();
}

void ZVPreferencesWindow::showEvent(QShowEvent* event) {
    loadPreferences();
    QDialog::showEvent(event);
}

void ZVPreferencesWindow::done(int result) {
    savePreferences();
    QDialog::done(result);
}
