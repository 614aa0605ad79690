#include "testkit/ManualMainQueue.h"

#include <chrono>
#include <condition_variable>

ManualMainQueue::ManualMainQueue() : _mainThread(std::this_thread::get_id()) { ZVMainQueue::install(this); }

ManualMainQueue::~ManualMainQueue() {
    if (&ZVMainQueue::shared() == this) ZVMainQueue::install(nullptr);
}

void ManualMainQueue::post(std::function<void()> block) {
    {
        std::lock_guard lock(_mutex);
        _blocks.push_back(std::move(block));
    }
    _posted.notify_all();
}

bool ManualMainQueue::isMainThread() const { return std::this_thread::get_id() == _mainThread; }

bool ManualMainQueue::runOne() {
    std::function<void()> block;
    {
        std::lock_guard lock(_mutex);
        if (_blocks.empty()) return false;
        block = std::move(_blocks.front());
        _blocks.pop_front();
    }
    block();
    return true;
}

size_t ManualMainQueue::drain() {
    size_t count = 0;
    while (runOne()) ++count;
    return count;
}

size_t ManualMainQueue::pendingCount() const {
    std::lock_guard lock(_mutex);
    return _blocks.size();
}

bool ManualMainQueue::waitForPost(double timeoutSeconds) {
    std::unique_lock lock(_mutex);
    return _posted.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), [&] { return !_blocks.empty(); });
}
