#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "ZVThreading.h"
#include "testkit/ManualClock.h"

/// Timers driven by a ManualClock: advancing the clock (here or on the clock
/// itself) fires every repeating timer and delayed block that falls due, in
/// time order, with the clock set to each one's time. Blocks run on the
/// calling thread. Installs itself while it lives.
class ManualTimerFactory : public ZVTimerFactory {
public:
    explicit ManualTimerFactory(ManualClock& clock);
    ~ManualTimerFactory() override;
    ManualTimerFactory(const ManualTimerFactory&) = delete;
    ManualTimerFactory& operator=(const ManualTimerFactory&) = delete;

    std::unique_ptr<ZVRepeatingTimer> makeRepeatingTimer(double intervalSeconds, std::function<void()> tick) override;
    void performAfterDelay(double delaySeconds, std::function<void()> block) override;

    /// Same as clock.advance(seconds).
    void advance(double seconds);
    /// Fires each valid repeating timer once and runs every pending delayed
    /// block, without moving the clock.
    void fireAll();
    /// Repeating timers that are still valid.
    size_t activeTimerCount() const;
    size_t pendingDelayedBlockCount() const;

private:
    struct Timer {
        double interval;
        ZVDate due;
        std::function<void()> block;
        bool repeats;
        bool valid = true;
    };
    class Handle;

    void fireDue(ZVDate target);
    std::shared_ptr<Timer> nextDue(ZVDate target);

    ManualClock& _clock;
    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Timer>> _timers;
};
