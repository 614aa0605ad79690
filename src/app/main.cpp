#include <QApplication>
#include <QIcon>
#include <QTimer>

#include "ZVApplicationState.h"
#include "ZVLocalization.h"
#include "ZVPaths.h"
#include "app/ZVDBusService.h"
#include "app/ZVDesktopLedgrinEnvironment.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVQtMainQueue.h"
#include "app/ZVQtTimeActionDialogs.h"
#include "app/ZVQtTimerFactory.h"
#include "app/ZVQtUserInterface.h"
#include "app/ZVSingleInstance.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/state/ZVNorvoApplicationStateProvider.h"
#include "preferences/ZVNorvoPreferences.h"

int main(int argc, char** argv) {
    auto stateProvider = std::make_shared<ZVNorvoApplicationStateProvider>();
    stateProvider->setApplicationName("Norvo");
    stateProvider->setApplicationVersion(NORVO_VERSION);
    stateProvider->setPreferencesSource([] { return ZVNorvoPreferences::shared().dictionaryRepresentation(); });
    ZVApplicationSetup::setApplicationStateProvider(stateProvider);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Norvo"));
    QApplication::setApplicationVersion(QStringLiteral(NORVO_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.tesselwick.Norvo"));
    // The icons ship in share/icons beside the program's bin folder, which
    // need not be one of the desktop's data folders.
    const QString share = QString::fromStdString(ZVPaths::sharedDataDirectory());
    QIcon::setThemeSearchPaths(QStringList{share + QStringLiteral("/icons")} + QIcon::themeSearchPaths());
    QApplication::setWindowIcon(QIcon::fromTheme(
        QStringLiteral("com.tesselwick.Norvo"),
        QIcon(share + QStringLiteral("/icons/hicolor/scalable/apps/com.tesselwick.Norvo.svg"))));
    ZVPrepareLocalization();
    // The tray icon stays when the window closes; quitting is a command.
    QApplication::setQuitOnLastWindowClosed(false);

    // A second copy would write the same database: it hands over and quits.
    ZVSingleInstance singleInstance;
    if (!singleInstance.becomePrimaryInstance()) {
        singleInstance.activateRunningInstance();
        return 0;
    }

    ZVQtMainQueue mainQueue;
    ZVMainQueue::install(&mainQueue);
    ZVQtTimerFactory timers;
    ZVTimerFactory::install(&timers);
    ZVQtUserInterface userInterface;
    ZVUserInterface::install(&userInterface);
    ZVQtTimeActionDialogs timeActionDialogs;
    ZVTimeActionDialogs::install(&timeActionDialogs);
    ZVLedgrinIntegration::sharedIntegration().setEnvironment(std::make_shared<ZVDesktopLedgrinEnvironment>());

    // Read before the main loop: a change needs a relaunch.
    const bool showsInTaskbar = ZVNorvoPreferences::shared().showDockIcon();

    int result = 0;
    {
        ZVNorvoAppDelegate delegate(showsInTaskbar);
        delegate.awakeFromNib();
        QObject::connect(&singleInstance, &ZVSingleInstance::activationRequested, &delegate,
                         [&delegate] { delegate.showTimerWindow(); });
        ZVDBusService scriptingService(delegate);
        QTimer::singleShot(0, &delegate, [&delegate, &scriptingService] {
            delegate.applicationDidFinishLaunching();
            // Scripts see the name only now, so that no call of theirs runs
            // (and opens an alert) in the middle of the launch.
            scriptingService.registerOn(QDBusConnection::sessionBus());
            delegate.showReleaseNotesOnce();
        });
        // A session that ends the program without the quit command still saves.
        QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, [&delegate] { delegate.finishTermination(); });
        result = QApplication::exec();
    }
    ZVLedgrinIntegration::sharedIntegration().setEnvironment(nullptr);
    ZVTimeActionDialogs::install(nullptr);
    ZVUserInterface::install(nullptr);
    ZVTimerFactory::install(nullptr);
    ZVMainQueue::install(nullptr);
    return result;
}
