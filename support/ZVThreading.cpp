#include "ZVThreading.h"

#include <atomic>
#include <condition_variable>
#include <future>
#include <thread>

namespace {

// Until the shell installs its event-loop queue, blocks run at once and the
// first thread that asks counts as the main thread.
class ZVImmediateMainQueue final : public ZVMainQueue {
public:
    void post(std::function<void()> block) override {
        mainThread();
        block();
    }
    bool isMainThread() const override { return std::this_thread::get_id() == mainThread(); }

private:
    static std::thread::id mainThread() {
        static const std::thread::id first = std::this_thread::get_id();
        return first;
    }
};

ZVImmediateMainQueue immediateQueue;
std::atomic<ZVMainQueue*> installedQueue{nullptr};

// A timer on its own thread that posts each tick to the main queue.
class ZVThreadTimer final : public ZVRepeatingTimer {
public:
    ZVThreadTimer(double interval, std::function<void()> tick) : _state(std::make_shared<State>()) {
        auto state = _state;
        auto period = std::chrono::duration<double>(interval > 0 ? interval : 0.001);
        std::thread([state, period, tick = std::move(tick)] {
            std::unique_lock lock(state->mutex);
            auto next = std::chrono::steady_clock::now() + period;
            while (state->valid) {
                if (state->wake.wait_until(lock, next, [&] { return !state->valid; })) break;
                next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
                lock.unlock();
                ZVMainQueue::shared().post([state, tick] {
                    if (state->valid) tick();
                });
                lock.lock();
            }
        }).detach();
    }
    ~ZVThreadTimer() override { invalidate(); }

    void invalidate() override {
        {
            std::lock_guard lock(_state->mutex);
            _state->valid = false;
        }
        _state->wake.notify_all();
    }
    bool isValid() const override { return _state->valid; }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::atomic<bool> valid{true};
    };
    std::shared_ptr<State> _state;
};

class ZVThreadTimerFactory final : public ZVTimerFactory {
public:
    std::unique_ptr<ZVRepeatingTimer> makeRepeatingTimer(double intervalSeconds,
                                                         std::function<void()> tick) override {
        return std::make_unique<ZVThreadTimer>(intervalSeconds, std::move(tick));
    }
    void performAfterDelay(double delaySeconds, std::function<void()> block) override {
        std::thread([delaySeconds, block = std::move(block)]() mutable {
            if (delaySeconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(delaySeconds));
            ZVMainQueue::shared().post(std::move(block));
        }).detach();
    }
};

ZVThreadTimerFactory threadTimerFactory;
std::atomic<ZVTimerFactory*> installedFactory{nullptr};

}  // namespace

ZVMainQueue& ZVMainQueue::shared() {
    ZVMainQueue* queue = installedQueue.load(std::memory_order_acquire);
    return queue ? *queue : immediateQueue;
}

void ZVMainQueue::install(ZVMainQueue* queue) { installedQueue.store(queue, std::memory_order_release); }

ZVTimerFactory& ZVTimerFactory::shared() {
    ZVTimerFactory* factory = installedFactory.load(std::memory_order_acquire);
    return factory ? *factory : threadTimerFactory;
}

void ZVTimerFactory::install(ZVTimerFactory* factory) { installedFactory.store(factory, std::memory_order_release); }

void ZV_PERFORM_BLOCK_ASYNC(std::function<void()> block) { std::thread(std::move(block)).detach(); }

void ZV_PERFORM_BLOCK_ON_MAIN_THREAD(std::function<void()> block) {
    ZVMainQueue& queue = ZVMainQueue::shared();
    if (queue.isMainThread()) {
        block();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    auto finished = done->get_future();
    queue.post([block = std::move(block), done] {
        block();
        done->set_value();
    });
    finished.wait();
}

void ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC(std::function<void()> block) {
    ZVMainQueue::shared().post(std::move(block));
}

void ZV_PERFORM_DELAYED_BLOCK(double delaySeconds, std::function<void()> block) {
    ZVTimerFactory::shared().performAfterDelay(delaySeconds, std::move(block));
}
