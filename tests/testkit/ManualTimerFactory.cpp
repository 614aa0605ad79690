#include "testkit/ManualTimerFactory.h"

#include <algorithm>

class ManualTimerFactory::Handle : public ZVRepeatingTimer {
public:
    Handle(std::shared_ptr<Timer> timer, std::mutex& mutex) : _timer(std::move(timer)), _mutex(mutex) {}
    ~Handle() override { invalidate(); }
    void invalidate() override {
        std::lock_guard lock(_mutex);
        _timer->valid = false;
    }
    bool isValid() const override {
        std::lock_guard lock(_mutex);
        return _timer->valid;
    }

private:
    std::shared_ptr<Timer> _timer;
    std::mutex& _mutex;
};

ManualTimerFactory::ManualTimerFactory(ManualClock& clock) : _clock(clock) {
    _clock.addObserver(this, [this](ManualClock&, ZVDate target) { fireDue(target); });
    ZVTimerFactory::install(this);
}

ManualTimerFactory::~ManualTimerFactory() {
    _clock.removeObserver(this);
    if (&ZVTimerFactory::shared() == this) ZVTimerFactory::install(nullptr);
}

std::unique_ptr<ZVRepeatingTimer> ManualTimerFactory::makeRepeatingTimer(double intervalSeconds,
                                                                          std::function<void()> tick) {
    auto timer = std::make_shared<Timer>();
    timer->interval = intervalSeconds > 0 ? intervalSeconds : 0.001;
    timer->due = _clock.now() + std::chrono::duration<double>(timer->interval);
    timer->block = std::move(tick);
    timer->repeats = true;
    std::lock_guard lock(_mutex);
    _timers.push_back(timer);
    return std::make_unique<Handle>(timer, _mutex);
}

void ManualTimerFactory::performAfterDelay(double delaySeconds, std::function<void()> block) {
    auto timer = std::make_shared<Timer>();
    timer->interval = delaySeconds;
    timer->due = _clock.now() + std::chrono::duration<double>(std::max(0.0, delaySeconds));
    timer->block = std::move(block);
    timer->repeats = false;
    std::lock_guard lock(_mutex);
    _timers.push_back(timer);
}

void ManualTimerFactory::advance(double seconds) { _clock.advance(seconds); }

std::shared_ptr<ManualTimerFactory::Timer> ManualTimerFactory::nextDue(ZVDate target) {
    std::lock_guard lock(_mutex);
    std::erase_if(_timers, [](const auto& timer) { return !timer->valid; });
    std::shared_ptr<Timer> earliest;
    for (const auto& timer : _timers) {
        if (timer->due <= target && (!earliest || timer->due < earliest->due)) earliest = timer;
    }
    if (!earliest) return nullptr;
    if (earliest->repeats) {
        earliest->due += std::chrono::duration<double>(earliest->interval);
    } else {
        earliest->valid = false;
    }
    return earliest;
}

void ManualTimerFactory::fireDue(ZVDate target) {
    while (auto timer = nextDue(target)) {
        ZVDate firesAt = timer->repeats ? timer->due - std::chrono::duration<double>(timer->interval) : timer->due;
        if (_clock.now() < firesAt) _clock.set(firesAt);
        timer->block();
    }
}

void ManualTimerFactory::fireAll() {
    std::vector<std::shared_ptr<Timer>> timers;
    {
        std::lock_guard lock(_mutex);
        timers = _timers;
    }
    for (const auto& timer : timers) {
        bool run;
        {
            std::lock_guard lock(_mutex);
            run = timer->valid;
            if (!timer->repeats) timer->valid = false;
        }
        if (run) timer->block();
    }
}

size_t ManualTimerFactory::activeTimerCount() const {
    std::lock_guard lock(_mutex);
    return static_cast<size_t>(
        std::count_if(_timers.begin(), _timers.end(), [](const auto& t) { return t->valid && t->repeats; }));
}

size_t ManualTimerFactory::pendingDelayedBlockCount() const {
    std::lock_guard lock(_mutex);
    return static_cast<size_t>(
        std::count_if(_timers.begin(), _timers.end(), [](const auto& t) { return t->valid && !t->repeats; }));
}
