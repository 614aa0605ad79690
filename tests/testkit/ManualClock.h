#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "ZVClock.h"

/// A clock that moves only when a test says so. It installs itself as the
/// shared clock while it lives (unless told not to). Observers (the manual
/// timer factory) hear each advance so that timers fire at their times.
class ManualClock : public ZVClock {
public:
    /// Starts at 2024-03-01 09:00:00 UTC unless given another time.
    explicit ManualClock(ZVDate start = defaultStart(), bool install = true);
    ~ManualClock() override;
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    ZVDate now() const override;
    /// Moves the clock forward; observers fire whatever falls due on the way.
    void advance(double seconds);
    /// Sets the time without telling the observers.
    void set(ZVDate date);

    using Observer = std::function<void(ManualClock& clock, ZVDate target)>;
    /// The observer must leave the clock at or before `target`.
    void addObserver(void* owner, Observer observer);
    void removeObserver(void* owner);

    static ZVDate defaultStart();
    static ZVDate date(int year, int month, int day, int hour = 0, int minute = 0, double second = 0);

private:
    mutable std::recursive_mutex _mutex;
    ZVDate _now;
    bool _installed;
    bool _advancing = false;
    std::vector<std::pair<void*, Observer>> _observers;
};
