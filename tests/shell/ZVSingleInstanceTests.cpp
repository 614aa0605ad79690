#include <QFile>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

#include "ShellTestEnvironment.h"
#include "app/ZVSingleInstance.h"

namespace {

using namespace Qt::StringLiterals;

class SingleInstanceTests : public ::testing::Test {
protected:
    /// Runs `work` on a thread of its own, as a later start runs in its own
    /// process, while the event loop here answers for the running one.
    static bool runBeside(const std::function<void()>& work, const std::function<bool()>& until = [] { return true; }) {
        std::atomic<bool> done{false};
        std::thread other([&] {
            work();
            done = true;
        });
        const bool finished = processEventsUntil([&] { return done.load() && until(); }, 6000);
        other.join();
        return finished;
    }
    /// The running instance, counting the activations that reach it.
    std::unique_ptr<ZVSingleInstance> startRunning() {
        auto running = std::make_unique<ZVSingleInstance>(runtime.path());
        EXPECT_TRUE(running->becomePrimaryInstance());
        QObject::connect(running.get(), &ZVSingleInstance::activationRequested, [this] { ++activations; });
        QObject::connect(running.get(), &ZVSingleInstance::URLReceived, [this](const QString& url) { urls << url; });
        return running;
    }

    QTemporaryDir runtime;
    int activations = 0;
    QStringList urls;
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
    // The other session's socket is not there to be reached, and the attempt gives up in time.
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(second.activateRunningInstance(300));
    EXPECT_LT(timer.elapsed(), 3000);
}

TEST_F(SingleInstanceTests, LaterStartAsksTheRunningOneToComeToTheFront) {
    const auto running = startRunning();
    bool reached = false;
    EXPECT_TRUE(runBeside([&] {
        ZVSingleInstance secondStart(runtime.path());
        if (!secondStart.becomePrimaryInstance()) reached = secondStart.activateRunningInstance(5000);
    }));
    EXPECT_TRUE(reached);
    EXPECT_EQ(activations, 1);
}

TEST_F(SingleInstanceTests, AnAddressALaterStartWasOpenedWithReachesTheRunningOneWhole) {
    const auto running = startRunning();
    const QString answer = u"norvoredbooth://oauth2/callback?code=x%20y&state=\u00e9t\u00e9"_s;
    const QString tooLong = u"norvoredbooth://oauth2/callback?code="_s + QString(9000, u'a');
    bool sent = false, refused = true;
    EXPECT_TRUE(runBeside([&] {
        ZVSingleInstance secondStart(runtime.path());
        sent = secondStart.openURLInRunningInstance(answer, 5000);
        refused = !secondStart.openURLInRunningInstance(tooLong, 5000) &&
                  !secondStart.openURLInRunningInstance(u"a://b\nactivate"_s, 5000);
    }, [&] { return !urls.isEmpty(); }));
    EXPECT_TRUE(sent);
    EXPECT_TRUE(refused);
    EXPECT_EQ(urls, QStringList{answer});
    EXPECT_EQ(activations, 0) << "an address does not bring the window forward by itself";
}

TEST_F(SingleInstanceTests, SocketLeftByACrashedInstanceIsReplaced) {
    {
        QFile leftover(ZVSingleInstance(runtime.path()).socketPath());
        ASSERT_TRUE(leftover.open(QIODevice::WriteOnly));
    }
    const auto running = startRunning();
    EXPECT_TRUE(runBeside([&] { ZVSingleInstance(runtime.path()).activateRunningInstance(5000); },
                          [&] { return activations == 1; }));
}

TEST_F(SingleInstanceTests, StrayTextOnTheSocketBringsNothingToTheFront) {
    const auto running = startRunning();
    EXPECT_TRUE(runBeside([&] {
        QLocalSocket socket;
        socket.connectToServer(running->socketPath());
        if (socket.waitForConnected(2000)) {
            socket.write(QByteArray(200, 'x'));
            socket.waitForBytesWritten(2000);
            socket.waitForDisconnected(2000);
        }
    }));
    EXPECT_EQ(activations, 0);
}

}  // namespace
