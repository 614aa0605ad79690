// The synchronization skeleton of an account: what every service shares
// around its own loadRemoteProjects().

#include <algorithm>
#include <exception>
#include <filesystem>
#include <mutex>
#include <system_error>


#include "ZVDownloadCenter.h"
#include "ZVHelpers.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVThreading.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/sync/ZVIntegrationSyncHelper.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "core/ui/ZVUserInterface.h"

namespace {

// The next requests must not be answered from a cache; the only cache on
// disk is a "Cache.db" in the application's cache folder.
void dropURLCache() {
    std::error_code ignored;
    std::filesystem::remove(std::filesystem::path(ZVPaths::cacheDirectory()) / "Cache.db", ignored);
}

}  // namespace

void ZVIntegration::synchronize() {
    if (ZVMainQueue::shared().isMainThread()) {
        ZVIntegrationCenter::shared().synchronizeIntegration(shared_from_this());
        return;
    }
    dropURLCache();

    // The desktop knows when the computer has no network at all; otherwise
    // only the account's own server can tell whether it is reachable from
    // here (an intranet, a VPN, this very computer).
    if (auto* ui = ZVUserInterface::sharedIfInstalled(); ui && ui->desktopIsOffline()) {
        ZVLog([] { return std::string("The desktop reports no network connection."); });
        setSynchronizationProblem(ZVLocalizedString("The computer has no network connection."));
        return;
    }
    const std::optional<std::string> address = ZVSynchronizationThread::connectionProbeOverride()
                                                    ? ZVSynchronizationThread::connectionProbeOverride()
                                                    : connectionProbeURL();
    if (address && !ZVDownloadCenter(this).sendHeadRequest(*address)) {
        ZVLog([&] { return name() + " cannot reach " + *address; });
        setSynchronizationProblem(ZVLocalizedFormat("Norvo could not reach %@.", {*address}));
        return;
    }

    ZVLog([this] { return name() + " will start synchronization now."; });
    try {
        auto remoteProjects = loadRemoteProjects();
        setSynchronizationProblem(std::nullopt);
        std::lock_guard<std::recursive_mutex> guard(lock());
        _mergeWithRemoteProjects(std::move(remoteProjects));
    } catch (const ZVIntegrationError& error) {
        _synchronizationEndedWithAnError(error);
    } catch (const std::exception& error) {
        // A service's slip (a reply read the wrong way) must not end the
        // thread: it counts as a reply of the wrong shape.
        ZVLog([&] { return name() + " failed to load: " + error.what(); });
        _synchronizationEndedWithAnError(ZVIntegrationGenericSyncError());
    }
    ZVLog([this] { return name() + " has finished synchronization."; });
}

std::optional<std::string> ZVIntegration::synchronizationProblem() const {
    std::lock_guard<std::mutex> guard(_fieldsLock);
    return _synchronizationProblem;
}

void ZVIntegration::setSynchronizationProblem(std::optional<std::string> problem) {
    std::lock_guard<std::mutex> guard(_fieldsLock);
    _synchronizationProblem = std::move(problem);
}

void ZVIntegration::_mergeWithRemoteProjects(ProjectList remoteProjects) {
    ZVIntegrationSyncHelper helper(shared_from_this());
    helper.mergeProjects(_projects, nullptr, remoteProjects);
    const std::weak_ptr<ZVIntegration> self = weak_from_this();
    for (const auto& project : _projects) {
        project->setIntegration(self);
        for (const auto& child : project->subprojects()) child->setIntegration(self);
    }
    std::stable_sort(_projects.begin(), _projects.end(),
                     [](const auto& first, const auto& second) { return ZVCaseInsensitiveLess(first->name(), second->name()); });
    ZVIntegrationProject::noteTreeChange();
}

void ZVIntegration::_synchronizationEndedWithAnError(const ZVIntegrationError& error) {
    if (ZVPreferences::shared().boolean(ZVSynchronizationThread::silenceSyncErrorsKey)) return;
    ZVAlert alert;
    alert.messageText = ZVLocalizedFormat("%@ could not update the project list.", {name()});
    const auto& reason = error.localizedFailureReason();
    alert.informativeText = reason && !reason->empty()
                                ? *reason
                                : ZVLocalizedString(
                                      "Please, check your Internet connection and login information and try again.");
    alert.buttons = {ZVLocalizedString("OK")};
    ZVUserInterface::runModalOnMainThread(alert);
}

void ZVIntegrationProject::mergeSubprojectsWithRemoteProjects(const List& remoteProjects) {
    std::lock_guard<std::mutex> guard(lock());
    ZVIntegrationSyncHelper helper(requiredIntegration());
    helper.mergeProjects(mutableSubprojects(), shared_from_this(), remoteProjects);
    noteTreeChange();
}
