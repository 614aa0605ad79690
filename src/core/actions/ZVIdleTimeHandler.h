#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "ZVThreading.h"
#include "ZVValue.h"
#include "core/notifications/ZVNotificationCenter.h"

class ZVIdleTimeSource;

/// Notices when the user comes back after being away longer than the idle
/// time the user set, and offers to take the time away off the running
/// clock. Time asleep is not idle time: the timer stops for sleep, so the
/// input idle reading is reduced by the sleep before it is judged.
class ZVIdleTimeHandler {
public:
    /// The source is not owned and must outlive the handler.
    explicit ZVIdleTimeHandler(ZVIdleTimeSource& idleTimeSource);
    ~ZVIdleTimeHandler();
    ZVIdleTimeHandler(const ZVIdleTimeHandler&) = delete;
    ZVIdleTimeHandler& operator=(const ZVIdleTimeHandler&) = delete;

    /// Starts the check once a second and follows the desktop's sleep and wake.
    /// The idle time is read only when it may have passed the threshold.
    void start();

    /// The check: at the first reading after input resumed, an idle time
    /// above the threshold with the timer running brings the question.
    void idleCheck();
    void computerWillGoToSleep();
    void computerDidWakeUp();

    /// Seconds from the preference "IdleTime": 60 or more are seconds, less
    /// are minutes. 0 (or less) means that the check is off.
    static double _idleTimeThreshold();

    double idleTimeInterval() const { return _idleTimeInterval; }
    const std::optional<ZVDate>& sleepStartDate() const { return _sleepStartDate; }

    static constexpr const char* idleTimeKey = "IdleTime";
    /// A reading below this means the user has just touched the machine.
    static constexpr double returnedWithinSeconds = 2.0;
    /// Shorter sleeps are not subtracted yet.
    static constexpr double shortestAccountedSleep = 10.0;

private:
    void _adjustIdleTimeBySleepTime();
    void _handleIdleTime();

    ZVIdleTimeSource& _idleTimeSource;
    double _idleTimeInterval = 0;
    std::optional<ZVDate> _sleepStartDate;
    std::optional<ZVDate> _lastReadingDate;
    std::unique_ptr<ZVRepeatingTimer> _idleTimer;
    std::vector<ZVNotificationCenter::Token> _observations;
};
