#include "core/sync/ZVSynchronizationThread.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVThreading.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVUserInterface.h"

namespace {
std::mutex terminationReplyMutex;
std::function<void(bool)> terminationReply;
std::mutex probeMutex;
std::optional<std::string> probeOverride;
std::mutex waitingMutex;
std::vector<std::weak_ptr<ZVIntegration>> waitingIntegrations;
}  // namespace

void ZVSynchronizationThread::setConnectionProbeOverride(std::optional<std::string> address) {
    std::lock_guard<std::mutex> guard(probeMutex);
    probeOverride = std::move(address);
}

std::optional<std::string> ZVSynchronizationThread::connectionProbeOverride() {
    std::lock_guard<std::mutex> guard(probeMutex);
    return probeOverride;
}

void ZVSynchronizationThread::synchronizeAfterTheRunningOne(const std::shared_ptr<ZVIntegration>& integration) {
    std::lock_guard<std::mutex> guard(waitingMutex);
    waitingIntegrations.push_back(integration);
}

void ZVSynchronizationThread::setTerminationReply(std::function<void(bool)> reply) {
    std::lock_guard<std::mutex> guard(terminationReplyMutex);
    terminationReply = std::move(reply);
}

void ZVSynchronizationThread::_resyncIntegrations(ZVIntegrationCenter& center) {
    if (!_beginSynchronization(center)) {
        // A tick that falls into a running synchronization does nothing,
        // apart from answering a quit that waits.
        _replyToPendingTerminationIfNeeded(center.terminateAfterSyncing());
        return;
    }
    auto integrations = center.integrations();
    if (integrations.empty()) {
        // Nothing to fetch: the notifications come without a thread, on the
        // next turn of the main loop (this may run inside the centre's own
        // set-up). The run counts from that turn on, so that a centre that
        // is dropped before it never waits for a run that will not come.
        _endSynchronizationCount(center);
        ZVIntegrationCenter* expected = &center;
        ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([expected] {
            if (ZVIntegrationCenter::sharedIfExists() != expected) return;
            if (!_beginSynchronization(*expected)) {
                _replyToPendingTerminationIfNeeded(expected->terminateAfterSyncing());
                return;
            }
            _resyncIntegrationsThread(*expected, {});
        });
        return;
    }
    ZV_PERFORM_BLOCK_ASYNC(
        [&center, integrations = std::move(integrations)] { _resyncIntegrationsThread(center, integrations); });
}

void ZVSynchronizationThread::synchronizeIntegration(ZVIntegrationCenter& center,
                                                     const std::shared_ptr<ZVIntegration>& integration) {
    if (center.synchronizationIsInProgress() || !_beginSynchronization(center)) {
        _warnUserAboutOngoingSynchronization();
        return;
    }
    ZV_PERFORM_BLOCK_ASYNC([&center, integration] { _synchronizeIntegrationInSingleThread(center, integration); });
}

bool ZVSynchronizationThread::_beginSynchronization(ZVIntegrationCenter& center) {
    std::lock_guard<std::mutex> guard(center._syncLock);
    if (center._number_of_sync_threads > 0) return false;
    ++center._number_of_sync_threads;
    return true;
}

void ZVSynchronizationThread::_resyncIntegrationsThread(ZVIntegrationCenter& center,
                                                        const IntegrationList& integrations) {
    _notifyAboutSyncing(ZVIntegrationCenterSynchronizationDidStartNotification);
    for (const auto& integration : integrations) {
        if (center.terminateAfterSyncing()) break;
        integration->synchronize();
    }
    _endSynchronization(center);
}

void ZVSynchronizationThread::_synchronizeIntegrationInSingleThread(ZVIntegrationCenter& center,
                                                                    const std::shared_ptr<ZVIntegration>& integration) {
    _notifyAboutSyncing(ZVIntegrationCenterSynchronizationDidStartNotification);
    integration->synchronize();
    _endSynchronization(center);
}

bool ZVSynchronizationThread::_endSynchronizationCount(ZVIntegrationCenter& center) {
    std::lock_guard<std::mutex> guard(center._syncLock);
    --center._number_of_sync_threads;
    return center._number_of_sync_threads == 0;
}

void ZVSynchronizationThread::_endSynchronization(ZVIntegrationCenter& center) {
    const bool ended = _endSynchronizationCount(center);
    const bool terminateAfterSyncing = center.terminateAfterSyncing();
    if (ended) _notifyAboutSyncing(ZVIntegrationCenterSynchronizationDidEndNotification);
    _replyToPendingTerminationIfNeeded(terminateAfterSyncing);
    if (!ended || terminateAfterSyncing) return;
    IntegrationList waiting;
    {
        std::lock_guard<std::mutex> guard(waitingMutex);
        for (const auto& weak : waitingIntegrations)
            if (auto integration = weak.lock()) waiting.push_back(std::move(integration));
        waitingIntegrations.clear();
    }
    if (waiting.empty()) return;
    ZVIntegrationCenter* expected = &center;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([expected, waiting] {
        if (ZVIntegrationCenter::sharedIfExists() != expected) return;
        if (!_beginSynchronization(*expected)) {
            for (const auto& integration : waiting) synchronizeAfterTheRunningOne(integration);
            return;
        }
        ZV_PERFORM_BLOCK_ASYNC([expected, waiting] { _resyncIntegrationsThread(*expected, waiting); });
    });
}

void ZVSynchronizationThread::_replyToPendingTerminationIfNeeded(bool terminateAfterSyncing) {
    if (!terminateAfterSyncing) return;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([] {
        std::function<void(bool)> reply;
        {
            std::lock_guard<std::mutex> guard(terminationReplyMutex);
            reply = terminationReply;
        }
        if (reply) reply(true);
    });
}

void ZVSynchronizationThread::_warnUserAboutOngoingSynchronization() {
    ZVUserInterface::shared().runModalMessage(ZVLocalizedString("Norvo is already synchronizing projects."));
}

void ZVSynchronizationThread::_notifyAboutSyncing(const std::string& name) {
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&name] { ZVNotificationCenter::shared().post(name); });
}
