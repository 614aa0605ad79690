#pragma once

#include "ZVThreading.h"

/// The main queue on the Qt event loop: blocks are posted as queued calls on
/// the application object and run in the order they were posted.
class ZVQtMainQueue final : public ZVMainQueue {
public:
    void post(std::function<void()> block) override;
    bool isMainThread() const override;
};
