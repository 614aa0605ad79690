#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

/// The main thread's queue. The shell installs one that posts to the Qt event
/// loop; tests install a queue they drain by hand. Until one is installed the
/// default runs blocks at once on the calling thread, and the thread that
/// first touched the queue counts as the main thread.
class ZVMainQueue {
public:
    virtual ~ZVMainQueue() = default;
    /// Queues the block to run on the main thread later.
    virtual void post(std::function<void()> block) = 0;
    /// Whether the calling thread is the main thread.
    virtual bool isMainThread() const = 0;

    static ZVMainQueue& shared();
    /// Installs the queue (not owned; must outlive its use). nullptr restores the default.
    static void install(ZVMainQueue* queue);
};

/// Runs `block` on a background thread and returns at once.
void ZV_PERFORM_BLOCK_ASYNC(std::function<void()> block);
/// Runs `block` on the main thread and returns when it is done; on the main
/// thread it runs at once.
void ZV_PERFORM_BLOCK_ON_MAIN_THREAD(std::function<void()> block);
/// Queues `block` on the main thread.
void ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC(std::function<void()> block);
/// Runs `block` on the main thread after `delaySeconds`.
void ZV_PERFORM_DELAYED_BLOCK(double delaySeconds, std::function<void()> block);

/// A repeating timer. It fires on the main thread, also while a modal dialog
/// or a menu is open. Destroying it stops it.
class ZVRepeatingTimer {
public:
    virtual ~ZVRepeatingTimer() = default;
    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

/// Makes repeating timers and one-shot delays. The shell installs one on
/// QTimer; tests install a manual one driven by the manual clock.
class ZVTimerFactory {
public:
    virtual ~ZVTimerFactory() = default;
    virtual std::unique_ptr<ZVRepeatingTimer> makeRepeatingTimer(double intervalSeconds,
                                                                 std::function<void()> tick) = 0;
    /// Runs `block` once on the main thread after `delaySeconds`.
    virtual void performAfterDelay(double delaySeconds, std::function<void()> block) = 0;

    static ZVTimerFactory& shared();
    static void install(ZVTimerFactory* factory);
};

/// Takes the lock, runs the block, releases.
template <typename Lock, typename Block>
auto ZVPerformLocked(Lock& lock, Block&& block) {
    std::lock_guard<Lock> guard(lock);
    return block();
}
