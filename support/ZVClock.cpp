#include "ZVClock.h"

#include <atomic>

namespace {

class ZVSystemClock final : public ZVClock {
public:
    ZVDate now() const override { return ZVDate(std::chrono::system_clock::now().time_since_epoch()); }
};

ZVSystemClock systemClock;
std::atomic<ZVClock*> installedClock{nullptr};

}  // namespace

ZVClock& ZVClock::shared() {
    ZVClock* clock = installedClock.load(std::memory_order_acquire);
    return clock ? *clock : systemClock;
}

void ZVClock::install(ZVClock* clock) { installedClock.store(clock, std::memory_order_release); }
