#include <QApplication>
#include <QIcon>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ZVLog.h"
#include "ZVOAuth2Client.h"
#include "ZVThreading.h"
#include "ZVPreferences.h"

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
#include "app/ZVTerminationSignals.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/ui/ZVFileProblemAlerts.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/state/ZVNorvoApplicationStateProvider.h"
#include "preferences/ZVNorvoPreferences.h"

namespace {
/// Gives an address that came in on a login's scheme to the login that
/// waits for it; the trade of its code for tokens runs off the main thread.
void ZVOpenRedirectURL(const std::string& url) {
    // The query holds the code: only the rest goes into the log.
    const std::string shown = url.substr(0, url.find('?'));
    ZVLog([&] { return "Received " + shown + " from the desktop"; });
    ZV_PERFORM_BLOCK_ASYNC([url, shown] {
        const bool taken = ZVOAuth2Client::handleRedirectURL(url);
        ZVLog([&] { return shown + (taken ? " answered a waiting login" : ": no login waits for it"); });
    });
}
}  // namespace

int main(int argc, char** argv) {
    auto stateProvider = std::make_shared<ZVNorvoApplicationStateProvider>();
    stateProvider->setApplicationName("Norvo");
    stateProvider->setApplicationVersion(NORVO_VERSION);
    stateProvider->setPreferencesSource([] { return ZVNorvoPreferences::shared().dictionaryRepresentation(); });
    ZVApplicationSetup::setApplicationStateProvider(stateProvider);

    // Over X11, a window painted through shared memory has the server
    // answer every paint with an event, which wakes two threads each time
    // the clock changes. Norvo's windows are small enough to send whole.
    if (!qEnvironmentVariableIsSet("QT_XCB_NO_MITSHM")) qputenv("QT_XCB_NO_MITSHM", "1");
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
    // The lock sits beside the data, so that two sessions with different
    // runtime folders still meet at it.
    const std::string dataFolder = ZVPaths::dataDirectory();
    ZVSingleInstance singleInstance(ZVSingleInstance::defaultRuntimeDirectory(), QString::fromStdString(dataFolder));
    // The desktop starts "norvo <address>" for the schemes of the desktop
    // entry: the answer of a login that the running Norvo waits for.
    QString openedURL;
    for (const QString& argument : QApplication::arguments().mid(1))
        if (argument.contains(QStringLiteral("://"))) openedURL = argument;
    if (!singleInstance.becomePrimaryInstance()) {
        const bool reached = openedURL.isEmpty() ? singleInstance.activateRunningInstance()
                                                 : singleInstance.openURLInRunningInstance(openedURL);
        if (!reached) {
            std::fprintf(stderr, "norvo: another Norvo is already running on %s and cannot be reached from here\n",
                         dataFolder.c_str());
            return 1;
        }
        return 0;
    }
    // Logout, shutdown and kill end the timer and save, as the quit command does.
    ZVTerminationSignals terminationSignals;

    ZVQtMainQueue mainQueue;
    ZVMainQueue::install(&mainQueue);
    ZVQtTimerFactory timers;
    ZVTimerFactory::install(&timers);
    ZVQtUserInterface userInterface;
    ZVUserInterface::install(&userInterface);
    ZVQtTimeActionDialogs timeActionDialogs;
    ZVTimeActionDialogs::install(&timeActionDialogs);
    ZVLedgrinIntegration::sharedIntegration().setEnvironment(std::make_shared<ZVDesktopLedgrinEnvironment>());
    ZVFileProblemAlerts::install();
    // Only this process writes these files now: what an interrupted write
    // left beside them can go.
    for (const std::string& file : {dataFolder + "/" + ZVIntegrationCenter::databaseFileName, ZVPreferences::shared().filePath()})
        if (const std::size_t removed = ZVPaths::removeStaleTemporaryFiles(file))
            ZVLog([&] { return "Removed " + std::to_string(removed) + " temporary files of " + file; });

    // Read before the main loop: a change needs a relaunch.
    const bool showsInTaskbar = ZVNorvoPreferences::shared().showDockIcon();

    // The database can be large: it is read behind the window and the tray,
    // which show at once and say that the projects are loading.
    ZVIntegrationCenter::loadSharedInBackground();

    int result = 0;
    bool readingEnded = true;
    {
        ZVNorvoAppDelegate delegate(showsInTaskbar);
        delegate.awakeFromNib();
        QObject::connect(&singleInstance, &ZVSingleInstance::activationRequested, &delegate,
                         [&delegate] { delegate.showTimerWindow(); });
        QObject::connect(&singleInstance, &ZVSingleInstance::URLReceived, &delegate,
                         [](const QString& url) { ZVOpenRedirectURL(url.toStdString()); });
        if (!openedURL.isEmpty())
            QTimer::singleShot(0, &delegate, [openedURL] { ZVOpenRedirectURL(openedURL.toStdString()); });
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
        QObject::connect(&terminationSignals, &ZVTerminationSignals::terminationRequested, &delegate,
                         [&delegate] { delegate.terminateWithoutQuestions(); });
        result = QApplication::exec();
        // A quit while the database is read: what was read is dropped and
        // nothing was written. A large account can take seconds to read,
        // longer than a logout should wait for what nobody will use.
        readingEnded = ZVIntegrationCenter::abandonLoading(std::chrono::milliseconds(300));
        // The timers of the heart beat belong to the application object.
        ZVHeartBeat::sharedHeartBeat().stopBeforeQuitting();
        ZVHeartBeat::resetSharedHeartBeat();
    }
    ZVFileProblemAlerts::uninstall();
    ZVLedgrinIntegration::sharedIntegration().setEnvironment(nullptr);
    ZVTimeActionDialogs::install(nullptr);
    ZVUserInterface::install(nullptr);
    ZVTimerFactory::install(nullptr);
    ZVMainQueue::install(nullptr);
    if (!readingEnded) {
        // The reading still runs on objects that static destructors would
        // take from under it; it writes nothing, so the process just ends.
        std::fflush(nullptr);
        std::_Exit(result);
    }
    return result;
}
