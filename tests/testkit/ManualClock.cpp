#include "testkit/ManualClock.h"

#include "ZVHelpers.h"

ManualClock::ManualClock(ZVDate start, bool install) : _now(start), _installed(install) {
    if (_installed) ZVClock::install(this);
}

ManualClock::~ManualClock() {
    if (_installed && &ZVClock::shared() == this) ZVClock::install(nullptr);
}

ZVDate ManualClock::now() const {
    std::lock_guard lock(_mutex);
    return _now;
}

void ManualClock::advance(double seconds) {
    std::vector<std::pair<void*, Observer>> observers;
    ZVDate target;
    {
        std::lock_guard lock(_mutex);
        target = _now + std::chrono::duration<double>(seconds);
        if (_advancing || _observers.empty()) {
            // An advance from inside a firing timer just moves the time.
            _now = target;
            return;
        }
        _advancing = true;
        observers = _observers;
    }
    for (auto& entry : observers) entry.second(*this, target);
    std::lock_guard lock(_mutex);
    if (_now < target) _now = target;
    _advancing = false;
}

void ManualClock::set(ZVDate date) {
    std::lock_guard lock(_mutex);
    _now = date;
}

void ManualClock::addObserver(void* owner, Observer observer) {
    std::lock_guard lock(_mutex);
    _observers.emplace_back(owner, std::move(observer));
}

void ManualClock::removeObserver(void* owner) {
    std::lock_guard lock(_mutex);
    std::erase_if(_observers, [owner](const auto& entry) { return entry.first == owner; });
}

ZVDate ManualClock::date(int year, int month, int day, int hour, int minute, double second) {
    return ZVUTCDate(year, month, day, hour, minute, second);
}

ZVDate ManualClock::defaultStart() { return date(2024, 3, 1, 9, 0, 0); }
