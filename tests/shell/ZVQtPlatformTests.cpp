#include <QDialog>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <thread>
#include <vector>

#include "ShellTestEnvironment.h"
#include "ZVThreading.h"

TEST(ZVQtMainQueue, RunsPostedBlocksInOrderOnTheMainThread) {
    std::vector<int> order;
    std::vector<bool> onMain;
    for (int i = 0; i < 5; ++i) {
        ZVMainQueue::shared().post([&, i] {
            order.push_back(i);
            onMain.push_back(QThread::currentThread() == qApp->thread());
        });
    }
    std::thread worker([&] {
        ZVMainQueue::shared().post([&] {
            order.push_back(99);
            onMain.push_back(QThread::currentThread() == qApp->thread());
        });
    });
    worker.join();
    EXPECT_TRUE(order.empty()) << "posting must not run the block at once";
    ASSERT_TRUE(processEventsUntil([&] { return order.size() == 6; }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 99}));
    EXPECT_EQ(onMain, std::vector<bool>(6, true));
    EXPECT_TRUE(ZVMainQueue::shared().isMainThread());
}

TEST(ZVQtMainQueue, BlockOnMainThreadFromAWorkerWaitsForTheBlock) {
    std::atomic<bool> blockRan{false};
    std::atomic<bool> ranOnMain{false};
    std::atomic<bool> sawCompletion{false};
    std::atomic<bool> workerDone{false};
    std::thread worker([&] {
        EXPECT_FALSE(ZVMainQueue::shared().isMainThread());
        ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&] {
            QThread::msleep(30);
            ranOnMain = QThread::currentThread() == qApp->thread();
            blockRan = true;
        });
        sawCompletion = blockRan.load();
        workerDone = true;
    });
    ASSERT_TRUE(processEventsUntil([&] { return workerDone.load(); }));
    worker.join();
    EXPECT_TRUE(ranOnMain);
    EXPECT_TRUE(sawCompletion) << "the call returned before the block had run";
}

TEST(ZVQtTimerFactory, RepeatingTimerFiresDuringANestedModalDialog) {
    int ticks = 0;
    int ticksWhileModal = 0;
    QDialog dialog;
    auto timer = ZVTimerFactory::shared().makeRepeatingTimer(0.02, [&] {
        ++ticks;
        if (dialog.isVisible()) ++ticksWhileModal;
    });
    QTimer::singleShot(250, &dialog, &QDialog::accept);
    dialog.exec();
    EXPECT_GE(ticksWhileModal, 3);
    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    const int afterInvalidate = ticks;
    processEventsUntil([] { return false; }, 100);
    EXPECT_EQ(ticks, afterInvalidate) << "an invalidated timer fired";
}

TEST(ZVQtTimerFactory, DestroyingATimerStopsIt) {
    int ticks = 0;
    {
        auto timer = ZVTimerFactory::shared().makeRepeatingTimer(0.01, [&] { ++ticks; });
        ASSERT_TRUE(processEventsUntil([&] { return ticks >= 2; }));
    }
    const int afterDestruction = ticks;
    processEventsUntil([] { return false; }, 80);
    EXPECT_EQ(ticks, afterDestruction);
}

// The half-second clock and a one-second timer wake the program together:
// each tick of the slower one comes in the same dispatch as one of the
// faster, and a timer invalidated by its own tick fires no more.
TEST(ZVQtTimerFactory, TimersOfWholeHalfSecondsShareTheirWakeUps) {
    shellApplication();
    int halfTicks = 0, wholeTicks = 0, wholeTicksAlone = 0, selfEndingTicks = 0;
    bool halfTickedThisDispatch = false;
    auto half = ZVTimerFactory::shared().makeRepeatingTimer(0.5, [&] {
        ++halfTicks;
        halfTickedThisDispatch = true;
        QTimer::singleShot(0, [&] { halfTickedThisDispatch = false; });
    });
    std::unique_ptr<ZVRepeatingTimer> selfEnding;
    selfEnding = ZVTimerFactory::shared().makeRepeatingTimer(0.5, [&] {
        ++selfEndingTicks;
        selfEnding->invalidate();
    });
    // Made out of step with the clock, as the idle check is.
    processEventsUntil([] { return false; }, 200);
    auto whole = ZVTimerFactory::shared().makeRepeatingTimer(1.0, [&] {
        ++wholeTicks;
        if (!halfTickedThisDispatch) ++wholeTicksAlone;
    });
    ASSERT_TRUE(processEventsUntil([&] { return wholeTicks >= 2; }, 5000));
    EXPECT_EQ(wholeTicksAlone, 0);
    EXPECT_GE(halfTicks, 3);
    EXPECT_EQ(selfEndingTicks, 1);
}

TEST(ZVQtTimerFactory, DelayedBlockRunsOnceOnTheMainThreadAfterTheDelay) {
    std::atomic<int> runs{0};
    std::atomic<bool> onMain{false};
    QElapsedTimer elapsed;
    elapsed.start();
    std::thread worker([&] {
        ZVTimerFactory::shared().performAfterDelay(0.1, [&] {
            ++runs;
            onMain = QThread::currentThread() == qApp->thread();
        });
    });
    worker.join();
    ASSERT_TRUE(processEventsUntil([&] { return runs.load() == 1; }));
    EXPECT_GE(elapsed.elapsed(), 90);
    EXPECT_TRUE(onMain);
    processEventsUntil([] { return false; }, 150);
    EXPECT_EQ(runs.load(), 1);
}
