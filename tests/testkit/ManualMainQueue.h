#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "ZVThreading.h"

/// A main queue that keeps posted blocks until the test drains it. The
/// thread that made it is the main thread. Installs itself while it lives.
class ManualMainQueue : public ZVMainQueue {
public:
    ManualMainQueue();
    ~ManualMainQueue() override;
    ManualMainQueue(const ManualMainQueue&) = delete;
    ManualMainQueue& operator=(const ManualMainQueue&) = delete;

    void post(std::function<void()> block) override;
    bool isMainThread() const override;

    /// Runs queued blocks, including those they post, until none is left.
    /// Returns how many ran.
    size_t drain();
    /// Runs the oldest queued block; false when none was queued.
    bool runOne();
    size_t pendingCount() const;
    /// Waits (really) until a block is queued or the timeout passes; for
    /// tests whose background threads post to the main thread.
    bool waitForPost(double timeoutSeconds = 5.0);

private:
    mutable std::mutex _mutex;
    std::condition_variable _posted;
    std::deque<std::function<void()>> _blocks;
    std::thread::id _mainThread;
};
