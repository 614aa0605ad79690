#pragma once

#include <optional>

/// Tells how long the user has not touched keyboard or mouse. The shell
/// installs one for the desktop it runs on; tests install a scripted one.
class ZVIdleTimeSource {
public:
    virtual ~ZVIdleTimeSource() = default;
    /// Seconds since the last input event, or nothing where the desktop does
    /// not tell (for instance on Wayland): the idle check then stays off.
    virtual std::optional<double> secondsSinceLastInput() = 0;
};
