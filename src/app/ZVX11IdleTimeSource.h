#pragma once

#include <memory>

#include "core/ui/ZVIdleTimeSource.h"

/// Input idle time from the X server's screen saver extension. On Wayland,
/// or without an X server, it answers nothing and the idle check stays off.
class ZVX11IdleTimeSource final : public ZVIdleTimeSource {
public:
    ZVX11IdleTimeSource();
    ~ZVX11IdleTimeSource() override;
    ZVX11IdleTimeSource(const ZVX11IdleTimeSource&) = delete;
    ZVX11IdleTimeSource& operator=(const ZVX11IdleTimeSource&) = delete;

    std::optional<double> secondsSinceLastInput() override;
    bool isAvailable() const;

private:
    struct Connection;
    std::unique_ptr<Connection> _connection;
};
