#include <QFile>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

#include "ShellTestEnvironment.h"
#include "app/ZVSingleInstance.h"

namespace {

class SingleInstanceTests : public ::testing::Test {
protected:
    SingleInstanceTests() { shellApplication(); }

    QTemporaryDir runtime;
};

TEST_F(SingleInstanceTests, OnlyOneHolderOfTheLockUntilItEnds) {
    ASSERT_TRUE(runtime.isValid());
    auto first = std::make_unique<ZVSingleInstance>(runtime.path());
    ZVSingleInstance second(runtime.path());

    EXPECT_TRUE(first->becomePrimaryInstance());
    EXPECT_FALSE(second.becomePrimaryInstance());
    EXPECT_FALSE(second.isPrimaryInstance());
    EXPECT_TRUE(QFile::exists(first->socketPath()));

    first.reset();
    EXPECT_FALSE(QFile::exists(second.socketPath()));
    EXPECT_TRUE(second.becomePrimaryInstance());
}

TEST_F(SingleInstanceTests, TwoSessionsWithTheirOwnRuntimeFoldersMeetAtTheLockBesideTheData) {
    QTemporaryDir otherRuntime;
    QTemporaryDir data;
    ZVSingleInstance first(runtime.path(), data.path());
    ZVSingleInstance second(otherRuntime.path(), data.path());
    EXPECT_TRUE(first.becomePrimaryInstance());
    EXPECT_FALSE(second.becomePrimaryInstance());
    EXPECT_TRUE(first.lockFilePath().startsWith(data.path()));
    // The other session's socket is not there to be reached.
    EXPECT_FALSE(second.activateRunningInstance(200));
}

TEST_F(SingleInstanceTests, LaterStartAsksTheRunningOneToComeToTheFront) {
    ZVSingleInstance running(runtime.path());
    ASSERT_TRUE(running.becomePrimaryInstance());
    int activations = 0;
    QObject::connect(&running, &ZVSingleInstance::activationRequested, [&] { ++activations; });

    // The later start blocks while it waits for the answer, as in its own
    // process; the running one answers from its event loop here.
    std::atomic<bool> done{false};
    bool reached = false;
    std::thread later([&] {
        ZVSingleInstance secondStart(runtime.path());
        if (!secondStart.becomePrimaryInstance()) reached = secondStart.activateRunningInstance(5000);
        done = true;
    });
    EXPECT_TRUE(processEventsUntil([&] { return done.load(); }, 6000));
    later.join();

    EXPECT_TRUE(reached);
    EXPECT_EQ(activations, 1);
}

TEST_F(SingleInstanceTests, SocketLeftByACrashedInstanceIsReplaced) {
    {
        QFile leftover(ZVSingleInstance(runtime.path()).socketPath());
        ASSERT_TRUE(leftover.open(QIODevice::WriteOnly));
    }
    ZVSingleInstance running(runtime.path());
    ASSERT_TRUE(running.becomePrimaryInstance());
    int activations = 0;
    QObject::connect(&running, &ZVSingleInstance::activationRequested, [&] { ++activations; });

    std::atomic<bool> done{false};
    std::thread later([&] {
        ZVSingleInstance(runtime.path()).activateRunningInstance(5000);
        done = true;
    });
    EXPECT_TRUE(processEventsUntil([&] { return activations == 1 && done.load(); }, 6000));
    later.join();
}

TEST_F(SingleInstanceTests, ActivationWithoutARunningInstanceGivesUpInTime) {
    ZVSingleInstance alone(runtime.path());
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(alone.activateRunningInstance(300));
    EXPECT_LT(timer.elapsed(), 3000);
}

TEST_F(SingleInstanceTests, StrayTextOnTheSocketBringsNothingToTheFront) {
    ZVSingleInstance running(runtime.path());
    ASSERT_TRUE(running.becomePrimaryInstance());
    int activations = 0;
    QObject::connect(&running, &ZVSingleInstance::activationRequested, [&] { ++activations; });

    std::atomic<bool> done{false};
    std::thread stranger([&] {
        QLocalSocket socket;
        socket.connectToServer(running.socketPath());
        if (socket.waitForConnected(2000)) {
            socket.write(QByteArray(200, 'x'));
            socket.waitForBytesWritten(2000);
            socket.waitForDisconnected(2000);
        }
        done = true;
    });
    EXPECT_TRUE(processEventsUntil([&] { return done.load(); }, 6000));
    stranger.join();
    EXPECT_EQ(activations, 0);
}

}  // namespace
