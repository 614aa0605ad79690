#include "ShellTestEnvironment.h"

#include <QThread>
#include <cstdlib>
#include <stdlib.h>

#include "app/ZVQtMainQueue.h"
#include "ZVPreferences.h"
#include "app/ZVQtTimerFactory.h"
#include "core/sync/ZVSynchronizationThread.h"

namespace {

ZVQtMainQueue qtMainQueue;
ZVQtTimerFactory qtTimers;

class ShellEnvironment final : public ::testing::Environment {
public:
    void SetUp() override { shellApplication(); }
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
    shellApplication();
    // Refreshes see no connection at once instead of waiting for a name server.
    ZVPreferences::shared().setValue(std::string("http://127.0.0.1:9/"),
                                     ZVSynchronizationThread::connectionProbeAddressKey);
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

ZVIntegrationProject::Pointer ShellFixture::addProject(const std::shared_ptr<ZVIntegration>& account,
                                                       const std::string& name,
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
