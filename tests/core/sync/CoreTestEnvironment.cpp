#include "core/sync/CoreTestEnvironment.h"

#include <chrono>

#include "core/notifications/ZVNotificationCenter.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/sync/ZVSynchronizationThread.h"

CoreTestEnvironment::CoreTestEnvironment() {
    // Nothing may leave the machine: the connection probe asks a closed
    // loopback port unless a test points it at its fake server.
    ZVSynchronizationThread::setConnectionProbeOverride("http://127.0.0.1:9/");
    auto& notifications = ZVNotificationCenter::shared();
    _observerTokens.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidStartNotification,
                                                        [this](const ZVNotification&) { ++_startedRuns; }));
    _observerTokens.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidEndNotification,
                                                        [this](const ZVNotification&) { ++_endedRuns; }));
}

CoreTestEnvironment::~CoreTestEnvironment() {
    if (ZVIntegrationCenter::sharedIfExists()) waitForSynchronization();
    resetSharedObjects();
    for (auto token : _observerTokens) ZVNotificationCenter::shared().removeObserver(token);
}

ZVIntegrationCenter& CoreTestEnvironment::center() {
    auto& center = ZVIntegrationCenter::shared();
    waitForSynchronization();
    return center;
}

bool CoreTestEnvironment::pumpUntil(const std::function<bool()>& done, double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    while (true) {
        mainQueue.drain();
        if (done()) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        mainQueue.waitForPost(0.01);
    }
}

bool CoreTestEnvironment::waitForSynchronization() {
    auto* center = ZVIntegrationCenter::sharedIfExists();
    if (!center) return true;
    return pumpUntil([this, center] {
        return !center->synchronizationIsInProgress() && _endedRuns.load() == _startedRuns.load();
    });
}

std::shared_ptr<TestServiceIntegration> CoreTestEnvironment::makeAccount(const std::string& baseURL) {
    auto account = ZVIntegration::makeNew<TestServiceIntegration>();
    account->baseURL = baseURL;
    return account;
}

std::shared_ptr<TestServiceIntegration> CoreTestEnvironment::addAccount(const std::string& baseURL) {
    auto account = makeAccount(baseURL);
    center().addIntegration(account);
    waitForSynchronization();
    return account;
}

std::shared_ptr<ZVIntegrationProject> CoreTestEnvironment::addProject(TestServiceIntegration& account,
                                                                      const std::string& id, std::uint64_t time,
                                                                      const std::string& name) {
    auto project = ZVIntegrationProject::create(name.empty() ? "Project " + id : name, id);
    project->setIntegration(account.weak_from_this());
    project->setTimeWithoutSaving(time);
    account.addProject(project);
    return project;
}

void CoreTestEnvironment::setCurrentProject(const std::shared_ptr<ZVIntegrationProject>& project) {
    center().setCurrentProject(project);
}
