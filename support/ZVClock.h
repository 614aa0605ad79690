#pragma once

#include "ZVValue.h"

/// The wall clock. Everything that reads "now" asks this, so that tests can
/// move time by hand.
class ZVClock {
public:
    virtual ~ZVClock() = default;
    virtual ZVDate now() const = 0;

    static ZVClock& shared();
    /// Installs a clock (not owned). nullptr restores the system clock.
    static void install(ZVClock* clock);
};

inline ZVDate ZVNow() { return ZVClock::shared().now(); }
