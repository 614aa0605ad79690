#include "ShellTestEnvironment.h"

#include <stdlib.h>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <cstdlib>

#include "ZVPreferences.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVQtMainQueue.h"
#include "app/ZVQtTimerFactory.h"
#include "core/sync/ZVSynchronizationThread.h"

using namespace Qt::StringLiterals;

namespace {

ZVQtMainQueue qtMainQueue;
ZVQtTimerFactory qtTimers;

class ShellEnvironment final : public ::testing::Environment {
public:
    void SetUp() override {
        // Tests switch these while Qt's, D-Bus's and the key store's threads
        // read the environment (gettext reads LANGUAGE at every lookup).
        // Adding a variable reallocates the environment under those readers;
        // replacing the value of one that exists does not. So each is
        // defined, empty meaning unset, before the first thread starts.
        for (const char* name : {"LANGUAGE", "XDG_CONFIG_DIRS"})
            if (!std::getenv(name)) setenv(name, "", 1);
        shellApplication();
    }
};

[[maybe_unused]] const auto* registeredEnvironment = ::testing::AddGlobalTestEnvironment(new ShellEnvironment);

}  // namespace

QApplication& shellApplication() {
    static int argc = 1;
    static char name[] = "shell_tests";
    static char* argv[] = {name, nullptr};
    static QApplication* application = [] {
        if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
        auto* app = new QApplication(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);
        ZVMainQueue::install(&qtMainQueue);
        ZVTimerFactory::install(&qtTimers);
        return app;
    }();
    return *application;
}

bool processEventsUntil(const std::function<bool()>& condition, int timeoutMilliseconds) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMilliseconds) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}

ShellFixture::ShellFixture() {
    // Refreshes see no connection at once instead of waiting for a name server.
    ZVSynchronizationThread::setConnectionProbeOverride("http://127.0.0.1:9/");
    ZVIntegrationCenter::resetShared();
    ZVNorvoIntegration::resetSharedIntegration();
    ZVHeartBeat::resetSharedHeartBeat();
}

ShellFixture::~ShellFixture() {
    ZVIntegrationCenter::resetShared();
    ZVNorvoIntegration::resetSharedIntegration();
    ZVHeartBeat::resetSharedHeartBeat();
}

std::shared_ptr<ZVShellTestIntegration> ShellFixture::addAccount(const std::string& name) {
    auto account = ZVIntegration::makeNew<ZVShellTestIntegration>();
    account->setName(name);
    ZVIntegrationCenter::shared().addIntegration(account);
    return account;
}

ZVIntegrationProject::Pointer addProject(const std::shared_ptr<ZVIntegration>& account, const std::string& name,
                                         const ZVIntegrationProject::Pointer& parent) {
    auto project = ZVIntegrationProject::create(name, name + "-id");
    project->setIntegration(account);
    if (parent) {
        parent->addSubproject(project);
    } else {
        account->addProject(project);
    }
    return project;
}

QStringList words(const char* line) { return QString::fromUtf8(line).split(QLatin1Char(' ')); }

QString buildTreePath(const QString& relative) {
    const QString self = QFileInfo(u"/proc/self/exe"_s).canonicalFilePath();
    return QFileInfo(QFileInfo(self).dir().absoluteFilePath(relative)).absoluteFilePath();
}

std::string titles(const ZVMenu& menu) {
    std::string result;
    for (const auto& item : menu.items) result += (result.empty() ? "" : "|") + (item->isSeparator ? "-" : item->title);
    return result;
}

ZVMenuItem* itemOfProject(const ZVMenu& menu, const ZVIntegrationProject::Pointer& project) {
    for (const auto& item : menu.items)
        if (item->representedProject() == project) return item.get();
    return nullptr;
}

ScopedVariable::ScopedVariable(const char* name, const std::string& value) : _name(name) {
    if (const char* old = std::getenv(name)) _old = old;
    setenv(name, value.c_str(), 1);
}

void ScopedVariable::restore() {
    if (_old)
        setenv(_name, _old->c_str(), 1);
    else
        unsetenv(_name);
}

LaunchedAppFixture::LaunchedAppFixture() {
    delegate = std::make_unique<ZVNorvoAppDelegate>(true);
    delegate->awakeFromNib();
    delegate->applicationDidFinishLaunching();
    waitForRefresh();
}

LaunchedAppFixture::~LaunchedAppFixture() {
    waitForRefresh();
    delegate.reset();
}

void LaunchedAppFixture::waitForRefresh() {
    EXPECT_TRUE(processEventsUntil([] { return !ZVIntegrationCenter::shared().synchronizationIsInProgress(); }, 10000));
}
