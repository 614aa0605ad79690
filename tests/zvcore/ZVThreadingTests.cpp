#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "ZVThreading.h"
#include "testkit/ManualClock.h"
#include "testkit/ManualMainQueue.h"
#include "testkit/ManualTimerFactory.h"

namespace {

TEST(ZVThreadingTests, blockOnMainThreadRunsAtOnceThereAndWaitsForItFromElsewhere) {
    ManualMainQueue queue;
    bool ran = false;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(queue.pendingCount(), 0u);

    // From a background thread it waits for the main thread to run the block.
    std::atomic<bool> ranOnMain{false};
    std::atomic<bool> returned{false};
    std::thread worker([&] {
        ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&] { ranOnMain = queue.isMainThread(); });
        returned = true;
    });
    ASSERT_TRUE(queue.waitForPost());
    EXPECT_FALSE(returned);
    EXPECT_EQ(queue.drain(), 1u);
    worker.join();
    EXPECT_TRUE(ranOnMain);
    EXPECT_TRUE(returned);
}

TEST(ZVThreadingTests, asyncMainBlocksQueueInOrder) {
    ManualMainQueue queue;
    std::vector<int> order;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([&] {
        order.push_back(1);
        ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([&] { order.push_back(3); });
    });
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(queue.drain(), 3u);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(ZVThreadingTests, asyncBlockRunsOnAnotherThread) {
    std::promise<std::thread::id> where;
    auto future = where.get_future();
    ZV_PERFORM_BLOCK_ASYNC([&] { where.set_value(std::this_thread::get_id()); });
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_NE(future.get(), std::this_thread::get_id());
}

TEST(ZVThreadingTests, defaultTimerFactoryFiresOnTheDefaultQueue) {
    std::promise<void> fired;
    auto future = fired.get_future();
    std::atomic<int> ticks{0};
    auto timer = ZVTimerFactory::shared().makeRepeatingTimer(0.01, [&] {
        if (++ticks == 2) fired.set_value();
    });
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    int after = ticks;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(ticks, after);
}

TEST(ZVThreadingTests, performLockedReturnsTheBlocksResult) {
    std::mutex lock;
    EXPECT_EQ(ZVPerformLocked(lock, [&] {
                  EXPECT_FALSE(lock.try_lock());
                  return 7;
              }),
              7);
    EXPECT_TRUE(lock.try_lock());
    lock.unlock();
}

class ManualTimerTests : public ::testing::Test {
protected:
    ManualClock clock;
    ManualTimerFactory timers{clock};
};

TEST_F(ManualTimerTests, repeatingTimerFiresOncePerIntervalWithTheClockAtItsTime) {
    std::vector<double> firedAt;
    const double start = clock.now().time_since_epoch().count();
    auto timer = ZVTimerFactory::shared().makeRepeatingTimer(0.5, [&] {
        firedAt.push_back(clock.now().time_since_epoch().count() - start);
    });
    clock.advance(0.4);
    EXPECT_TRUE(firedAt.empty());
    clock.advance(1.2);
    // Dates near 2024 as doubles carry about a microsecond of precision.
    ASSERT_EQ(firedAt.size(), 3u);
    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(firedAt[i], 0.5 * static_cast<double>(i + 1), 1e-5);
    EXPECT_NEAR(clock.now().time_since_epoch().count() - start, 1.6, 1e-5);
    // An hour of half-second ticks neither drops nor adds one.
    timers.advance(3600);
    EXPECT_EQ(firedAt.size(), 3u + 7200u);
    timer.reset();
    timers.advance(10);
    EXPECT_EQ(firedAt.size(), 3u + 7200u);
    EXPECT_EQ(timers.activeTimerCount(), 0u);
}

TEST_F(ManualTimerTests, delayedBlocksAndTimersInterleaveInTimeOrderAndATickMayEndItsTimer) {
    std::vector<std::string> events;
    std::unique_ptr<ZVRepeatingTimer> timer;
    timer = ZVTimerFactory::shared().makeRepeatingTimer(1.0, [&] {
        events.push_back("tick");
        if (events.size() == 3) timer->invalidate();
    });
    ZV_PERFORM_DELAYED_BLOCK(1.5, [&] { events.push_back("delayed"); });
    EXPECT_EQ(timers.pendingDelayedBlockCount(), 1u);
    clock.advance(10);
    EXPECT_EQ(events, (std::vector<std::string>{"tick", "delayed", "tick"}));
    EXPECT_EQ(timers.pendingDelayedBlockCount(), 0u);
}

TEST_F(ManualTimerTests, fireAllFiresWithoutMovingTheClock) {
    int ticks = 0;
    bool delayed = false;
    auto timer = ZVTimerFactory::shared().makeRepeatingTimer(300, [&] { ++ticks; });
    ZV_PERFORM_DELAYED_BLOCK(60, [&] { delayed = true; });
    ZVDate before = clock.now();
    timers.fireAll();
    EXPECT_EQ(ticks, 1);
    EXPECT_TRUE(delayed);
    EXPECT_EQ(clock.now(), before);
    timers.fireAll();
    EXPECT_EQ(ticks, 2);
}

TEST(ManualClockTests, installsItselfWhileItLives) {
    ZVDate start = ManualClock::date(1990, 1, 2, 3, 4, 5);
    {
        ManualClock clock(start);
        EXPECT_EQ(ZVNow(), start);
        clock.advance(60);
        EXPECT_DOUBLE_EQ((ZVNow() - start).count(), 60.0);
    }
    EXPECT_GT(ZVNow(), start + std::chrono::duration<double>(1e8));
}

}  // namespace
