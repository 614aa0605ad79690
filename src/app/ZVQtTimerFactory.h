#pragma once

#include "ZVThreading.h"

/// Timers on QTimer in the main thread's event loop. Qt runs that loop also
/// inside modal dialogs and open menus, so the timers keep firing there.
class ZVQtTimerFactory final : public ZVTimerFactory {
public:
    std::unique_ptr<ZVRepeatingTimer> makeRepeatingTimer(double intervalSeconds,
                                                         std::function<void()> tick) override;
    void performAfterDelay(double delaySeconds, std::function<void()> block) override;
};
