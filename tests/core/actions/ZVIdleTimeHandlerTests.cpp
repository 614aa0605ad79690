#include <gtest/gtest.h>

#include <functional>

#include "ZVPreferences.h"
#include "core/actions/ZVIdleTimeHandler.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/ui/ZVIdleTimeSource.h"

namespace {

class ScriptedIdleTimeSource : public ZVIdleTimeSource {
public:
    std::optional<double> secondsSinceLastInput() override {
        ++reads;
        return seconds;
    }
    std::optional<double> seconds = 0.0;
    int reads = 0;
};

class IdleTest : public ::testing::Test {
protected:
    void SetUp() override {
        account = env.makeAccount("http://127.0.0.1:9");
        project = env.addProject(*account, "1", 420, "Writing");
        env.setCurrentProject(project);
        setIdleTime(5);
    }

    static void setIdleTime(std::int64_t value) { ZVPreferences::shared().setInteger(value, ZVIdleTimeHandler::idleTimeKey); }

    /// The user was away for `seconds` and is back now.
    void awayThenBack(double seconds) {
        env.clock.set(env.clock.now() + std::chrono::duration<double>(seconds));
        source.seconds = seconds;
        handler.idleCheck();
        source.seconds = 0.5;
        handler.idleCheck();
    }

    ZVHeartBeat& heartBeat() { return ZVHeartBeat::sharedHeartBeat(); }

    CoreTestEnvironment env;
    ScriptedIdleTimeSource source;
    ZVIdleTimeHandler handler{source};
    std::shared_ptr<TestServiceIntegration> account;
    std::shared_ptr<ZVIntegrationProject> project;
};

TEST_F(IdleTest, ThresholdReadsMinutesBelowSixtyAndSecondsFromThere) {
    const std::vector<std::pair<std::int64_t, double>> cases{{0, 0}, {5, 300}, {59, 3540}, {60, 60}, {300, 300}, {-3, 0}};
    for (const auto& [preference, threshold] : cases) {
        setIdleTime(preference);
        EXPECT_EQ(ZVIdleTimeHandler::_idleTimeThreshold(), threshold) << preference;
    }
}

TEST_F(IdleTest, NothingIsAskedWithoutARunningTimerProjectThresholdOrIdleSource) {
    awayThenBack(3600);  // the timer stopped
    EXPECT_EQ(handler.idleTimeInterval(), 0.5);
    const std::vector<std::pair<const char*, std::function<void()>>> situations{
        {"threshold zero", [&] { setIdleTime(0); }},
        {"no current project", [&] { ZVIntegrationCenter::shared().setCurrentProject(nullptr); }},
    };
    for (const auto& [situation, arrange] : situations) {
        SCOPED_TRACE(situation);
        setIdleTime(5);
        env.setCurrentProject(project);
        heartBeat().start();
        arrange();
        awayThenBack(100000);
    }
    // Without an idle source the check stays off.
    env.setCurrentProject(project);
    heartBeat().start();
    source.seconds = std::nullopt;
    handler.idleCheck();
    handler.idleCheck();
    EXPECT_TRUE(env.ui.alerts().empty());
}

TEST_F(IdleTest, MovingBackTakesTheTimeActuallyIdleButNeverGoesBelowZeroAndKeepTimeLeavesTheClock) {
    heartBeat().start();
    env.ui.answerWith("Move Timer Back");
    awayThenBack(600);
    ASSERT_EQ(env.ui.alerts().size(), 1u);
    const auto alert = env.ui.alerts()[0];
    EXPECT_EQ(alert.messageText,
              "Your computer has been idle for more than 5 minutes. Would you like to move the timer back the idle "
              "time?");
    EXPECT_EQ(alert.informativeText, "Your computer has been idle for 7 minutes.");
    EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Move Timer Back", "Keep Time"}));
    EXPECT_TRUE(alert.ignoresKeyPressesAtFirst);
    EXPECT_EQ(heartBeat().currentTime(), 0u);
    EXPECT_TRUE(heartBeat().isBeating());

    heartBeat().setCurrentTime(7200);
    env.ui.answerWith("Move Timer Back");
    awayThenBack(1500);
    EXPECT_EQ(env.ui.alerts().at(1).informativeText, "Your computer has been idle for 25 minutes.");
    EXPECT_EQ(heartBeat().currentTime(), 5700u);

    // Keep Time leaves the clock, and a check after the answer asks nothing.
    env.ui.answerWith("Keep Time");
    awayThenBack(400);
    handler.idleCheck();
    EXPECT_EQ(env.ui.alerts().size(), 3u);
    EXPECT_EQ(heartBeat().currentTime(), 5700u);
}

// Reading the idle time wakes the display server: it is read only once the
// user may have been away for the threshold, then at every check.
TEST_F(IdleTest, IdleTimeIsReadOnlyWhenItMayHavePassedTheThreshold) {
    source.seconds = 10;
    handler.idleCheck();
    const std::tuple<double, std::int64_t, int> checks[] = {
        {100, 5, 0},   // at most 110 s away of 300
        {188, 5, 0},   // 298 s: a second short of the threshold
        {1, 5, 1},     // 299 s: it may pass before the next check
        {0, 5, 0},     // the reading said 10 s again: 10 s away at most
        {400, 0, 0},   // the check is off
        {0, 5, 1},     // and on again: 410 s may have passed
    };
    for (const auto& [seconds, idleTime, reads] : checks) {
        env.clock.set(env.clock.now() + std::chrono::duration<double>(seconds));
        setIdleTime(idleTime);
        source.reads = 0;
        handler.idleCheck();
        EXPECT_EQ(source.reads, reads) << seconds << " s later";
    }
}

TEST_F(IdleTest, SleepLongerThanTenSecondsIsNotIdleTime) {
    heartBeat().start();
    source.seconds = 500;
    handler.idleCheck();
    handler.computerWillGoToSleep();
    env.clock.advance(400);
    handler.computerDidWakeUp();
    // The user's key press woke the machine: the reading before the sleep
    // is reduced by the sleep, and nothing is asked.
    source.seconds = 0.3;
    handler.idleCheck();
    EXPECT_TRUE(env.ui.alerts().empty());
    EXPECT_FALSE(handler.sleepStartDate());
}

TEST_F(IdleTest, ShortSleepIsKeptForALaterCheck) {
    handler.computerWillGoToSleep();
    env.clock.set(env.clock.now() + std::chrono::duration<double>(8));
    source.seconds = 50;
    handler.idleCheck();
    EXPECT_TRUE(handler.sleepStartDate());
    EXPECT_EQ(handler.idleTimeInterval(), 50);
    env.clock.set(env.clock.now() + std::chrono::duration<double>(7));
    handler.idleCheck();
    EXPECT_FALSE(handler.sleepStartDate());
    EXPECT_EQ(handler.idleTimeInterval(), 50);
}

}  // namespace
