#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

class ZVIntegration;
class ZVIntegrationCenter;

/// The background refresh of the centre's accounts. At most one
/// synchronization runs in the whole process: the centre's counter, tested
/// and raised in one critical section of its sync lock, is the bound, and a
/// refresh that finds one running is dropped without a trace; there is no
/// queue. Accounts are refreshed one after the other on that one thread,
/// between a "did start" and a "did end" notification on the main thread.
class ZVSynchronizationThread {
public:
    using IntegrationList = std::vector<std::shared_ptr<ZVIntegration>>;

    /// All accounts, in the background; driven by the resync timer and once at start.
    static void _resyncIntegrations(ZVIntegrationCenter& center);
    /// One account at the user's request; on the main thread. Tells the
    /// user, and starts nothing, while a synchronization runs.
    static void synchronizeIntegration(ZVIntegrationCenter& center, const std::shared_ptr<ZVIntegration>& integration);

    /// What lets a quit that waited for the synchronization go on (the
    /// application's reply to its pending termination). Called on the main thread.
    static void setTerminationReply(std::function<void(bool)> reply);

    /// Tests point the connection test of every account at an address of
    /// their own; otherwise each account asks its own server
    /// (connectionProbeURL()): Norvo talks to no host the user did not name.
    static void setConnectionProbeOverride(std::optional<std::string> address);
    static std::optional<std::string> connectionProbeOverride();
    /// Synchronizes an account as soon as the synchronization under way
    /// ends, without asking the user (a newly saved account).
    static void synchronizeAfterTheRunningOne(const std::shared_ptr<ZVIntegration>& integration);
    /// When on, a failing refresh leaves nothing but a log line.
    static constexpr const char* silenceSyncErrorsKey = "ZVSilenceSyncErrors";

private:
    // The test and the raise of the counter happen on the caller's thread,
    // before the background thread exists, so that the thread never meets a
    // centre that went away before it started, and a lost race is impossible.
    static bool _beginSynchronization(ZVIntegrationCenter& center);
    static void _resyncIntegrationsThread(ZVIntegrationCenter& center, const IntegrationList& integrations);
    static void _synchronizeIntegrationInSingleThread(ZVIntegrationCenter& center,
                                                      const std::shared_ptr<ZVIntegration>& integration);
    static void _endSynchronization(ZVIntegrationCenter& center);
    /// Gives back the count taken by `_beginSynchronization`; true when no run is left.
    static bool _endSynchronizationCount(ZVIntegrationCenter& center);
    static void _warnUserAboutOngoingSynchronization();
    /// Posts the notification on the main thread and waits for it.
    static void _notifyAboutSyncing(const std::string& name);
    static void _replyToPendingTerminationIfNeeded(bool terminateAfterSyncing);
};
