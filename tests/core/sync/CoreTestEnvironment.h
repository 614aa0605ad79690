#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/integrations/IntegrationTestDoubles.h"
#include "testkit/ManualMainQueue.h"

class TestServiceIntegration;

/// Everything a test of the time tracking core runs in: the timer's
/// environment, a manual main queue, and the runs of the synchronization
/// counted, so that a test can wait for them.
struct CoreTestEnvironment : TimerTestEnvironment {
    CoreTestEnvironment();
    ~CoreTestEnvironment();

    /// The centre, with its first (empty) refresh run through.
    ZVIntegrationCenter& center();
    /// Runs main-queue blocks until `done` holds; false after `timeoutSeconds`.
    bool pumpUntil(const std::function<bool()>& done, double timeoutSeconds = 10);
    /// Runs main-queue blocks until no synchronization is in progress.
    bool waitForSynchronization();
    /// An account of the test service at `baseURL`, not in the centre.
    std::shared_ptr<TestServiceIntegration> makeAccount(const std::string& baseURL);
    /// The same, added to the centre (which refreshes it once); waits for that refresh.
    std::shared_ptr<TestServiceIntegration> addAccount(const std::string& baseURL);
    /// A node of the account with that time.
    std::shared_ptr<ZVIntegrationProject> addProject(TestServiceIntegration& account, const std::string& id,
                                                     std::uint64_t time, const std::string& name = {});
    void setCurrentProject(const std::shared_ptr<ZVIntegrationProject>& project);

    ManualMainQueue mainQueue;

private:
    // Every run posts its start and its end; the count of runs in progress
    // drops a moment before the end is posted, so a wait also waits for
    // the end notification of every run that has started.
    std::atomic<int> _startedRuns{0};
    std::atomic<int> _endedRuns{0};
    std::vector<std::uint64_t> _observerTokens;
};
