#include "app/ZVNorvoAppDelegate.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QDBusMessage>
#include <QDBusConnection>
#include <QUrl>
#include <QPlainTextEdit>
#include <QFontDatabase>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <cstdlib>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "app/ZVKeyboardShortcutManager.h"
#include "app/ZVMenuManager.h"
#include "app/ZVNorvoMainWindow.h"
#include "app/ZVQtUserInterface.h"
#include "app/ZVSleepObserver.h"
#include "app/ZVStateReportWindow.h"
#include "app/ZVX11IdleTimeSource.h"
#include "core/actions/ZVActionCenter.h"
#include "core/actions/ZVIdleTimeHandler.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/log/ZVLogController.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "core/ui/ZVMenu.h"
#include "integration_editing/ZVIntegrationEditViewController.h"
#include "integration_editing/ZVNorvoProjectManagementViewController.h"
#include "integration_editing/ZVIntegrationSetupViewController.h"
#include "integration_editing/ZVPopover.h"
#include "preferences/ZVNorvoPreferences.h"
#include "preferences/ZVPreferencesWindow.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "ui_elements/ZVKeyCombo.h"
#include "ui_elements/ZVShortcutRecorder.h"
#include "ui_elements/ZVProjectPopUpButton.h"
#include "app/ZVStatusItemController.h"

namespace {
ZVNorvoAppDelegate* sharedDelegateInstance = nullptr;

// The help and the release notes are installed with the program, in the
// share folder beside its bin folder.
QString installedFile(const char* relative) {
    return QString::fromStdString(ZVPaths::sharedDataDirectory()) + QStringLiteral("/norvo/") + QString::fromUtf8(relative);
}

ZVAlertResponse runAlert(const std::string& message, const std::string& informative,
                         std::vector<std::string> buttons) {
    ZVAlert alert;
    alert.messageText = message;
    alert.informativeText = informative;
    alert.buttons = std::move(buttons);
    return ZVUserInterface::shared().runModal(alert);
}
}  // namespace

ZVNorvoAppDelegate::ZVNorvoAppDelegate(bool showsInTaskbar, QObject* parent)
    : QObject(parent), _showsInTaskbar(showsInTaskbar) {}

ZVNorvoAppDelegate::~ZVNorvoAppDelegate() {
    ZVSynchronizationThread::setTerminationReply({});
    ZVMenuManager::shared().setCommands(nullptr);
    _popover.reset();
    _releaseNotesWindow.reset();
    _preferencesWindow.reset();
    _keyboardShortcutManager.reset();
    _idleTimeHandler.reset();
    _logController.reset();
    _statusItemController.reset();
    _window.reset();
    if (sharedDelegateInstance == this) sharedDelegateInstance = nullptr;
}

ZVNorvoAppDelegate* ZVNorvoAppDelegate::sharedDelegate() { return sharedDelegateInstance; }

void ZVNorvoAppDelegate::awakeFromNib() {
    sharedDelegateInstance = this;
    ZVMenuManager::shared().setCommands(this);
    ZVNorvoIntegration::sharedIntegration();
    // The picker in the window uses the centre, which so exists from here on;
    // it shows that the projects are loading until the database is read.
    _window = std::make_unique<ZVNorvoMainWindow>(*this);
    if (!_showsInTaskbar) _window->setWindowFlag(Qt::Tool, true);
    _logController = std::make_unique<ZVLogController>(*_window);
    connect(_window.get(), &ZVNorvoMainWindow::timePeriodChanged, this, [this] { _logController->timePeriodChanged(); });
    connect(_window.get(), &ZVNorvoMainWindow::clearLogRequested, this, [this] { _logController->clear(); });
    connect(_window.get(), &ZVNorvoMainWindow::exportLogRequested, this, [this] { _logController->exportToCSV(); });
    connect(_window.get(), &ZVNorvoMainWindow::logDrawerToggled, this, [](bool shown) {
        ZVPreferences::shared().perform(
            [shown](ZVPreferences& store) { ZVNorvoPreferences(store).setReceiptDrawerVisible(shown); });
    });
    _logController->awake();
    if (auto* ui = dynamic_cast<ZVQtUserInterface*>(ZVUserInterface::sharedIfInstalled()))
        ui->setParentWindow(_window.get());
    updateMainWindowLevel();
    ZVSynchronizationThread::setTerminationReply([this](bool terminate) {
        if (terminate) finishTermination();
    });
}

void ZVNorvoAppDelegate::applicationDidFinishLaunching() {
    _statusItemController = std::make_unique<ZVStatusItemController>(*this);
    if (auto* ui = dynamic_cast<ZVQtUserInterface*>(ZVUserInterface::sharedIfInstalled())) {
        ui->notifications().setFallback([this](const QString& title, const QString& text) {
            if (_statusItemController) _statusItemController->showMessage(title, text);
        });
    }
    _keyboardShortcutManager = std::make_unique<ZVKeyboardShortcutManager>(*this, [this] { postTime(); });
    ZVActionCenter::shared().installHandlers();

    const ZVNorvoPreferences preferences = ZVNorvoPreferences::shared();
    // Without a tray to come back from, a hidden window would leave no way in.
    if (preferences.mainWindowIsVisible() || !QSystemTrayIcon::isSystemTrayAvailable()) showTimerWindow();
    if (preferences.isReceiptDrawerVisible()) _window->setLogDrawerShown(true);

    _idleTimeSource = std::make_unique<ZVX11IdleTimeSource>();
    _idleTimeHandler = std::make_unique<ZVIdleTimeHandler>(*_idleTimeSource);
    _idleTimeHandler->start();
    _sleepObserver = new ZVSleepObserver(
        [] { ZVNotificationCenter::shared().post(ZVWorkspaceWillSleepNotification); },
        [] { ZVNotificationCenter::shared().post(ZVWorkspaceDidWakeNotification); }, this);

    ZV_PERFORM_DELAYED_BLOCK(3.0, [] {
        // With a large database the current project is known only later.
        ZVIntegrationCenter::shared().performWhenLoaded([] {
            if (auto project = ZVIntegrationCenter::shared().currentProject())
                ZVActionCenter::shared().showSystemNotification(project);
        });
    });
}

void ZVNorvoAppDelegate::updateMainWindowLevel() {
    if (_window) _window->setKeptAboveOtherWindows(ZVNorvoPreferences::shared().keepMainWindowAboveOtherWindows());
}

void ZVNorvoAppDelegate::_rememberWindowVisibility() {
    const bool visible = _window && _window->isVisible();
    ZVPreferences::shared().perform(
        [visible](ZVPreferences& store) { ZVNorvoPreferences(store).setMainWindowIsVisible(visible); });
}

ZVNorvoAppDelegate::TerminateReply ZVNorvoAppDelegate::applicationShouldTerminate() {
    _rememberWindowVisibility();

    auto& center = ZVIntegrationCenter::shared();
    if (ZVNorvoPreferences::shared().warnsAboutUnpostedTimesBeforeQuitting()) {
        std::vector<std::shared_ptr<ZVIntegration>> integrations;
        {
            std::lock_guard<std::recursive_mutex> guard(center.lock());
            integrations = center.integrations();
        }
        bool unposted = false;
        for (const auto& integration : integrations) {
            if (integration->containsProjectWithUnpostedTime()) {
                unposted = true;
                break;
            }
        }
        if (unposted) {
            const auto answer = runAlert(
                ZVLocalizedString("You have some projects with tracked time that is not posted. Do you wish to "
                                  "quit anyway?"),
                {}, {ZVLocalizedString("Cancel"), ZVLocalizedString("Quit")});
            if (answer.buttonIndex == 0) return TerminateReply::terminateCancel;
        }
    }

    if (center.synchronizationIsInProgress()) {
        center.setTerminateAfterSyncing(true);
        ZVLog([] { return std::string("Quitting after the running synchronization"); });
        return TerminateReply::terminateLater;
    }
    return TerminateReply::terminateNow;
}

void ZVNorvoAppDelegate::terminate() {
    if (_didTerminate) return;
    if (applicationShouldTerminate() == TerminateReply::terminateNow) finishTermination();
}

void ZVNorvoAppDelegate::terminateWithoutQuestions() {
    if (_didTerminate) return;
    _rememberWindowVisibility();
    // The session is ending: nobody is there to answer, and a running
    // synchronization is not waited for; what it merged so far is saved.
    finishTermination();
}

void ZVNorvoAppDelegate::finishTermination() {
    if (_didTerminate) return;
    _didTerminate = true;
    // The running seconds and the open run go to disk with the save below.
    ZVHeartBeat::sharedHeartBeat().stopBeforeQuitting();
    ZVNotificationCenter::shared().post(ZVApplicationWillTerminateNotification);
    if (_statusItemController) _statusItemController->statusItem().hide();
    // exit() rather than quit(): quit() first asks every window to close and
    // gives up when one stays open, which would leave Norvo running after
    // it has said goodbye and deaf to the next signal.
    QCoreApplication::exit(0);
}

void ZVNorvoAppDelegate::showTimerWindow() {
    if (!_window) return;
    _window->show();
    _window->raise();
    _window->activateWindow();
}

ZVPopover* ZVNorvoAppDelegate::popover() {
    if (!_popover) _popover = std::make_unique<ZVPopover>(_window.get());
    return _popover.get();
}

void ZVNorvoAppDelegate::addIntegration() {
    showTimerWindow();
    ZVPopover* panel = popover();
    if (panel->isShown()) {
        panel->closePopover();
        return;
    }
    const auto classes = ZVIntegrationCenter::shared().availableIntegrationClasses();
    if (classes.empty()) return;
    panel->setContentViewController(new ZVIntegrationSetupViewController(classes.front().makeNew(), panel));
    panel->showRelativeTo(_window ? _window->addIntegrationButton() : nullptr);
}

void ZVNorvoAppDelegate::editIntegration(const std::shared_ptr<ZVIntegration>& integration) {
    showTimerWindow();
    ZVPopover* panel = popover();
    if (panel->isShown()) {
        runAlert(ZVLocalizedFormat("You need to save or discard changes to currently edited integration before "
                                   "editing '%@'",
                                   {integration->name()}),
                 {}, {ZVLocalizedString("OK")});
        return;
    }
    panel->setContentViewController(new ZVIntegrationEditViewController(integration, panel));
    panel->showRelativeTo(_window ? static_cast<QWidget*>(_window->projectListPopUpButton()) : nullptr);
}

void ZVNorvoAppDelegate::manageNorvoProjects() {
    showTimerWindow();
    ZVPopover* panel = popover();
    if (panel->isShown()) {
        runAlert(ZVLocalizedString("You need to save or discard changes to currently edited integration before "
                                   "managing local Norvo projects"),
                 {}, {ZVLocalizedString("OK")});
        return;
    }
    panel->setContentViewController(new ZVNorvoProjectManagementViewController(ZVNorvoIntegration::sharedIntegration()));
    panel->showRelativeTo(_window ? static_cast<QWidget*>(_window->projectListPopUpButton()) : nullptr);
}

void ZVNorvoAppDelegate::showAbout() {
    QMessageBox::about(_window.get(), ZVLocalizedQString("About Norvo"),
                       QStringLiteral("<b>Norvo</b> %1<br>%2")
                           .arg(QStringLiteral(NORVO_VERSION), ZVLocalizedQString("A personal time tracker.")));
}

ZVPreferencesWindow* ZVNorvoAppDelegate::preferencesWindow() {
    if (!_preferencesWindow) {
        ZVPreferencesWindow::Hooks hooks;
        hooks.statusItemChanged = [this] {
            if (_statusItemController) _statusItemController->updateItemWidth();
        };
        hooks.updateMainWindowLevel = [this] { updateMainWindowLevel(); };
        hooks.hotKeysChanged = [this] {
            if (_keyboardShortcutManager) _keyboardShortcutManager->_reregisterKeyCombo();
        };
        if (_keyboardShortcutManager && !_keyboardShortcutManager->isAvailable())
            hooks.hotKeysUnavailableReason = _keyboardShortcutManager->unavailableReason();
        hooks.relaunchRequested = [this] {
            ZVHeartBeat::sharedHeartBeat().stop();
            ZVIntegrationCenter::shared().saveBeforeQuitting();
            updateMainWindowLevel();
            // The user starts the program again: the file manager shows its file.
            const QString program = QCoreApplication::applicationFilePath();
            QDBusMessage show = QDBusMessage::createMethodCall(
                QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
                QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
            show << QStringList{QUrl::fromLocalFile(program).toString()} << QString();
            if (QDBusConnection::sessionBus().call(show, QDBus::Block, 3000).type() == QDBusMessage::ErrorMessage)
                ZVUserInterface::shared().openURL(
                    QUrl::fromLocalFile(QFileInfo(program).absolutePath()).toString().toStdString());
            runAlert(ZVLocalizedFormat("%@ will now quit. Please, launch it again manually.",
                                       {QCoreApplication::applicationName().toStdString()}),
                     program.toStdString(), {ZVLocalizedString("OK")});
            ZVPreferences::shared().synchronize();
            std::_Exit(0);
        };
        _preferencesWindow = std::make_unique<ZVPreferencesWindow>(hooks);
        for (int i = 0; i < 5; ++i) {
            ZVShortcutRecorder* recorder = _preferencesWindow->recorder(i);
            const QString name = recorder->autosaveName();
            recorder->setValidator([name](const ZVKeyCombo& combo) { return hotKeyRefusal(combo, name); });
        }
    }
    return _preferencesWindow.get();
}

QString ZVNorvoAppDelegate::hotKeyRefusal(const ZVKeyCombo& combo, const QString& autosaveName) {
    struct MenuShortcut {
        ZVKeyCombo combo;
        const char* title;
    };
    const MenuShortcut menuShortcuts[] = {{{Qt::Key_Q, Qt::ControlModifier}, ZVLocalizable("Quit Norvo")},
                                          {{Qt::Key_Comma, Qt::ControlModifier}, ZVLocalizable("Preferences...")}};
    for (const MenuShortcut& shortcut : menuShortcuts) {
        if (shortcut.combo == combo)
            return QString::fromStdString(
                ZVLocalizedFormat("This shortcut is used by the menu item \"%@\".", {ZVLocalizedString(shortcut.title)}));
    }
    for (const auto& definition : ZVKeyboardShortcutManager::definitions) {
        const QString other = QString::fromUtf8(definition.autosaveName);
        if (other != autosaveName && ZVKeyCombo::load(other) == combo)
            return ZVLocalizedQString("This shortcut is already used by another Norvo shortcut.");
    }
    return {};
}

void ZVNorvoAppDelegate::showPreferences() {
    ZVPreferencesWindow* window = preferencesWindow();
    window->show();
    window->raise();
    window->activateWindow();
}

void ZVNorvoAppDelegate::showHelp() {
    ZVUserInterface::shared().openURL(QUrl::fromLocalFile(installedFile("help/index.html")).toString().toStdString());
}

void ZVNorvoAppDelegate::showChangelog(QWidget* parent) {
    QFile file(installedFile("changelog"));
    const QString text = file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll())
                                                        : ZVLocalizedQString("The release notes are not installed.");
    auto* dialog = new QDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName(QStringLiteral("changelogWindow"));
    dialog->setWindowTitle(ZVLocalizedQString("Release Notes"));
    auto* layout = new QVBoxLayout(dialog);
    auto* view = new QPlainTextEdit(text, dialog);
    view->setObjectName(QStringLiteral("changelogText"));
    view->setReadOnly(true);
    view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    view->setMinimumSize(560, 300);
    layout->addWidget(view);
    auto* buttons = new QDialogButtonBox(dialog);
    buttons->addButton(ZVLocalizedQString("Close"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    layout->addWidget(buttons);
    dialog->show();
}

void ZVNorvoAppDelegate::showReleaseNotesOnce() {
    auto& store = ZVPreferences::shared();
    if (store.value(ZVNorvoPreferences::releaseNotesKey)) return;
    showReleaseNotes();
    // Seen once it is on screen: a session that ends with it still open
    // has shown it.
    store.setBoolean(true, ZVNorvoPreferences::releaseNotesKey);
    store.synchronize();
}

void ZVNorvoAppDelegate::showReleaseNotes() {
    if (!_releaseNotesWindow) {
        _releaseNotesWindow = std::make_unique<QDialog>(_window && _window->isVisible() ? _window.get() : nullptr);
        QDialog& dialog = *_releaseNotesWindow;
        dialog.setWindowTitle(ZVLocalizedQString("What's New in Norvo"));
        auto* layout = new QVBoxLayout(&dialog);
        auto* text = new QLabel(ZVLocalizedQString(
            "Norvo keeps one timer running against your current project. Add a project of your own with \"Add "
            "Project...\" or the projects of an account with \"Add Account...\", both in the timer window; then "
            "start the timer and say what you are working on. Later projects are chosen in the project menu or "
            "found with the quick search."));
        text->setWordWrap(true);
        text->setMinimumWidth(360);
        layout->addWidget(text);
        auto* buttons = new QDialogButtonBox(&dialog);
        QPushButton* notes = buttons->addButton(ZVLocalizedQString("Release Notes"), QDialogButtonBox::ActionRole);
        QPushButton* done = buttons->addButton(ZVLocalizedQString("Done"), QDialogButtonBox::AcceptRole);
        done->setDefault(true);
        connect(notes, &QPushButton::clicked, &dialog, [this] { showChangelog(_releaseNotesWindow.get()); });
        connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
        layout->addWidget(buttons);
    }
    // Nothing waits for it: the user reads it and closes it when it suits.
    _releaseNotesWindow->show();
    _releaseNotesWindow->raise();
    _releaseNotesWindow->activateWindow();
}

void ZVNorvoAppDelegate::showQuickSearch() {
    if (_statusItemController && QSystemTrayIcon::isSystemTrayAvailable()) {
        _statusItemController->showQuickSearch();
    } else {
        showTimerWindow();
    }
}

void ZVNorvoAppDelegate::timeEntryTextHasChanged() {
    if (_window) ZVActionCenter::shared().timeEntryTextHasChanged(_window->currentTaskName());
}

void ZVNorvoAppDelegate::postTime() {
    ZVActionCenter::shared().postTime(_window ? _window->currentTaskName() : std::string());
}

void ZVNorvoAppDelegate::clearCurrentTaskTextField() {
    if (_window) _window->setCurrentTaskName({});
}

ZVIntegrationProjectMenuItemTarget* ZVNorvoAppDelegate::projectListTarget() {
    return _window ? _window->projectListPopUpButton() : nullptr;
}

std::shared_ptr<ZVMenu> ZVNorvoAppDelegate::debugMenu() {
    auto menu = std::make_shared<ZVMenu>(ZVLocalizedString("Debug"));
    auto& logging = menu->addItem(ZVLocalizedString("Debug Logging"), "toggleDebugLog",
                                  [](const ZVMenuItem&) { ZVLogSetEnabled(!ZVLogIsEnabled()); });
    logging.state = ZVLogIsEnabled() ? ZVMenuItem::State::on : ZVMenuItem::State::off;
    menu->addItem(ZVLocalizedString("Show Application State..."), "showStateReport",
                  [this](const ZVMenuItem&) { showStateReport(); });
    return menu;
}

void ZVNorvoAppDelegate::showStateReport() {
    ZVStateReportWindow window(_window && _window->isVisible() ? _window.get() : nullptr);
    window.exec();
}

bool ZVNorvoAppDelegate::canSendTimeToLedgrin() { return ZVLedgrinIntegration::sharedIntegration().canReceiveTime(); }

void ZVNorvoAppDelegate::sendTimeToLedgrin() {
    timeEntryTextHasChanged();
    const auto project = ZVIntegrationCenter::shared().currentProject();
    if (!project) return;
    ZVLedgrinIntegration::sharedIntegration().addInvoiceItem(
        ZVLedgrinIntegration::timeEntry(*project, ZVNorvoPreferences::shared().hourPrice()));
}
