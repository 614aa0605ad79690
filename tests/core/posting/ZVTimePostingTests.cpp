#include <gtest/gtest.h>

#include "ZVTime.h"

#include <nlohmann/json.hpp>

#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/posting/ZVTimePosting.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "testkit/FakeServer.h"

namespace {

class PostingTest : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("POST", "/time", FakeResponse::json("{}"));
        account = env.makeAccount(server.baseURL());
        account->setName("Work");
        project = env.addProject(*account, "42", 1000, "Design");
    }

    std::vector<nlohmann::json> postedBodies() {
        std::vector<nlohmann::json> bodies;
        for (const auto& request : server.requests("/time")) bodies.push_back(nlohmann::json::parse(request.body));
        return bodies;
    }

    void addRun(const std::string& title) {
        auto run = std::make_shared<ZVTimeLogEntry>(project);
        run->setStopDate(env.clock.now());
        run->setText(title);
        project->addLogEntry(run);
    }

    static void setPreference(const char* key, bool value) { ZVPreferences::shared().setBoolean(value, key); }

    CoreTestEnvironment env;
    FakeServer server;
    std::shared_ptr<TestServiceIntegration> account;
    std::shared_ptr<ZVIntegrationProject> project;
};

TEST_F(PostingTest, NoTimeLeavesTheTimerRunningButPostingStopsIt) {
    auto running = env.addProject(*account, "7", 0, "Other");
    env.setCurrentProject(running);
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    ZVTimePosting::postTime(*running);  // no time: no prompt, no request
    EXPECT_TRUE(heartBeat.isBeating());
    EXPECT_TRUE(env.ui.textPrompts().empty());
    EXPECT_TRUE(env.ui.alerts().empty());
    EXPECT_EQ(server.requestCount(), 0u);

    ZVTimePosting::postTime(*project);  // even another project's
    EXPECT_FALSE(heartBeat.isBeating());
    ASSERT_EQ(postedBodies().size(), 1u);
    EXPECT_EQ(postedBodies()[0]["project"], std::string("42"));
}

TEST_F(PostingTest, EmptyLogGetsOneRunAsLongAsTheTimeWithTheEnteredTitle) {
    env.ui.answerTextPromptWith("Sketches");
    ZVTimePosting::postTime(*project);
    ASSERT_EQ(project->logEntries().size(), 1u);
    auto run = project->lastTimeLogEntry();
    ASSERT_TRUE(run);
    ASSERT_TRUE(run->stopDate());
    EXPECT_DOUBLE_EQ((*run->stopDate() - run->startDate()).count(), 1000.0);
    EXPECT_EQ(run->text(), "Sketches");
    ASSERT_EQ(postedBodies().size(), 1u);
    EXPECT_EQ(postedBodies()[0]["title"], std::string("Sketches"));
    EXPECT_EQ(postedBodies()[0]["seconds"], 1000);
}

TEST_F(PostingTest, PromptShowsThePathAndTheLastTitle) {
    addRun("Last title");
    ZVTimePosting::postTime(*project);
    ASSERT_EQ(env.ui.textPrompts().size(), 1u);
    const auto prompt = env.ui.textPrompts()[0];
    EXPECT_EQ(prompt.initialText, "Last title");
    EXPECT_EQ(prompt.alert.messageText, "Please, enter title for the posted time (Work \u2794 Design)");
    EXPECT_EQ(prompt.alert.informativeText, "Time to post: " + ZVTime::timeString(project->time()));
    EXPECT_EQ(prompt.alert.buttons, (std::vector<std::string>{"OK", "Cancel"}));
}

TEST_F(PostingTest, TitlePromptFollowsTheSettingAndTheService) {
    struct Case {
        bool dontConfirm;
        std::string title;
        bool acceptsEmptyTitle;
        bool prompted;
    };
    const std::vector<Case> cases{
        {false, "Known", true, true},  {false, "", true, true},   {true, "Known", true, false},
        {true, "Known", false, false}, {true, "", true, false},   {true, "", false, true},
    };
    for (const auto& testCase : cases) {
        env.ui.clearRecords();
        server.clearRequests();
        auto node = env.addProject(*account, "case", 60);
        if (!testCase.title.empty()) {
            auto run = std::make_shared<ZVTimeLogEntry>(node);
            run->setText(testCase.title);
            node->addLogEntry(run);
        }
        setPreference(ZVTimePosting::dontConfirmMessageBeforePostingKey, testCase.dontConfirm);
        account->acceptsEmptyTitle = testCase.acceptsEmptyTitle;
        env.ui.answerTextPromptWith(testCase.title.empty() ? "Typed" : testCase.title);
        ZVTimePosting::postTime(*node);
        EXPECT_EQ(env.ui.textPrompts().size(), testCase.prompted ? 1u : 0u)
            << testCase.dontConfirm << " '" << testCase.title << "' " << testCase.acceptsEmptyTitle;
        EXPECT_EQ(server.requestCount(), 1u);
        env.ui.discardUnusedAnswers();
    }
}

TEST_F(PostingTest, EmptyTitleIsRefusedWhereTheServiceNeedsOne) {
    account->acceptsEmptyTitle = false;
    setPreference(ZVTimePosting::dontConfirmMessageBeforePostingKey, true);
    env.ui.answerTextPromptWith("");
    ZVTimePosting::postTime(*project);
    EXPECT_EQ(env.ui.textPrompts().size(), 1u);
    ASSERT_EQ(env.ui.alerts().size(), 1u);
    EXPECT_EQ(env.ui.alerts()[0].messageText, "Sorry, but the description mustn't be empty.");
    EXPECT_EQ(env.ui.alerts()[0].informativeText,
              "Fill the description either in the main window (the What are you working on? field), or in the "
              "confirming message, unless it is turned off in the preferences.");
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_TRUE(project->logEntries().empty());
}

TEST_F(PostingTest, CancelAtThePromptStopsTheTimerAndSendsNothing) {
    env.setCurrentProject(project);
    ZVHeartBeat::sharedHeartBeat().start();
    env.ui.answerTextPromptWith(std::nullopt);
    ZVTimePosting::postTime(*project);
    EXPECT_FALSE(ZVHeartBeat::sharedHeartBeat().isBeating());
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(PostingTest, RoundingUsesTheDurationInMinutesAsTheBaseAndMovesTheClockOfTheCurrentProject) {
    struct Case {
        std::int64_t direction;
        std::int64_t duration;
        std::uint64_t expected;
    };
    // 1000 seconds: 15 minutes is a base of 900; a direction that is no
    // case rounds up.
    const std::vector<Case> cases{{0, 15, 900}, {1, 15, 1800}, {2, 15, 900}, {7, 15, 1800}, {1, 0, 1000}};
    ZVPreferences::shared().setBoolean(true, ZVTimePosting::automaticallyRoundTimeKey);
    for (const auto& testCase : cases) {
        project->setTimeWithoutSaving(1000);
        server.clearRequests();
        ZVPreferences::shared().setInteger(testCase.direction, ZVTimePosting::automaticRoundingDirectionKey);
        ZVPreferences::shared().setInteger(testCase.duration, ZVTimePosting::automaticRoundingDurationKey);
        ZVTimePosting::postTime(*project);
        EXPECT_EQ(project->time(), testCase.expected) << testCase.direction << "/" << testCase.duration;
        ASSERT_EQ(postedBodies().size(), 1u);
        EXPECT_EQ(postedBodies()[0]["seconds"], testCase.expected);
    }
    // Rounding the current project moves the clock.
    env.setCurrentProject(project);
    ZVPreferences::shared().setInteger(60, ZVTimePosting::automaticRoundingDurationKey);
    ZVTimePosting::postTime(*project);
    EXPECT_EQ(ZVHeartBeat::sharedHeartBeat().currentTime(), 3600u);
}

TEST_F(PostingTest, FailureOffersTryAgainWhichResendsWithoutRoundingAgain) {
    server.routeSequence("POST", "/time",
                         {FakeResponse::json(R"({"error":"Locked period."})", 422), FakeResponse::json("{}")});
    ZVPreferences::shared().setBoolean(true, ZVTimePosting::automaticallyRoundTimeKey);
    ZVPreferences::shared().setInteger(1, ZVTimePosting::automaticRoundingDirectionKey);
    ZVPreferences::shared().setInteger(15, ZVTimePosting::automaticRoundingDurationKey);
    // Were the time rounded again at the retry, this larger base would show.
    env.ui.setAlertObserver([](const ZVAlert&) {
        ZVPreferences::shared().setInteger(60, ZVTimePosting::automaticRoundingDurationKey);
    });
    env.ui.answerWith("Try Again");
    ZVTimePosting::postTime(*project);

    ASSERT_EQ(env.ui.alerts().size(), 1u);
    const auto alert = env.ui.alerts()[0];
    EXPECT_EQ(alert.messageText, "Could not post time for 'Design'. Locked period.");
    EXPECT_EQ(alert.informativeText,
              std::string("Check login information, internet connection and Design's availability. If you believe "
                          "it's a bug, please, go to Preferences > Advanced, enable debug logging, try this action "
                          "again and submit a ticket with the debug log at ") +
                  ZVTimePosting::supportAddress + ".");
    EXPECT_EQ(alert.buttons, (std::vector<std::string>{"OK", "Try Again"}));
    const auto bodies = postedBodies();
    ASSERT_EQ(bodies.size(), 2u);
    EXPECT_EQ(bodies[0]["seconds"], 1800);
    EXPECT_EQ(bodies[1], bodies[0]);
    EXPECT_EQ(project->time(), 1800u);
}

TEST_F(PostingTest, GivingUpKeepsTimeAndTheNewTitle) {
    server.route("POST", "/time", FakeResponse::json("{}", 500));
    ZVPreferences::shared().setBoolean(true, ZVTimePosting::resetTimerUponPostingKey);
    env.ui.answerTextPromptWith("Kept title");
    env.ui.answerWith("OK");
    ZVTimePosting::postTime(*project);
    EXPECT_EQ(env.ui.alertMessages(), std::vector<std::string>{"Could not post time for 'Design'."});
    EXPECT_EQ(project->time(), 1000u);
    EXPECT_EQ(project->lastEntryTitle(), "Kept title");
    EXPECT_TRUE(env.ui.banners().empty());
}

TEST_F(PostingTest, ResetAfterPostingTheCurrentProjectClearsTheClock) {
    env.setCurrentProject(project);
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    env.timers.advance(5);
    ZVPreferences::shared().setBoolean(true, ZVTimePosting::resetTimerUponPostingKey);
    int changes = 0;
    auto token = ZVNotificationCenter::shared().addObserver(ZVIntegrationProjectTimeDidChangeNotification,
                                                           [&](const ZVNotification&) { ++changes; });
    ZVTimePosting::postTime(*project);
    ZVNotificationCenter::shared().removeObserver(token);
    EXPECT_EQ(postedBodies().at(0)["seconds"], 1005);
    EXPECT_EQ(project->time(), 0u);
    EXPECT_FALSE(heartBeat.isBeating());
    EXPECT_EQ(heartBeat.currentTimeString(), "00:00:00");
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(project->logEntries().size(), 1u);  // the run of the stop, no reset entry
}

TEST_F(PostingTest, ConfirmationBannerUnlessTurnedOff) {
    ZVTimePosting::postTime(*project);
    ASSERT_EQ(env.ui.banners().size(), 1u);
    EXPECT_EQ(env.ui.banners()[0].first, "Posted successfully");

    env.ui.clearRecords();
    ZVPreferences::shared().setBoolean(true, ZVTimePosting::dontShowPostingConfirmationKey);
    ZVTimePosting::postTime(*project);
    EXPECT_TRUE(env.ui.banners().empty());
    EXPECT_EQ(server.requestCount(), 2u);  // without reset the same seconds go out again
}

TEST_F(PostingTest, PostAllTimesShowsOneFailurePerProject) {
    server.route("POST", "/time", FakeResponse::json("{}", 500));
    env.addProject(*account, "43", 20, "Build");
    env.addProject(*account, "44", 0, "Idle");
    ZVTimePosting::postAllTimes(*account);
    EXPECT_EQ(env.ui.alertMessages(),
              (std::vector<std::string>{"Could not post time for 'Design'.", "Could not post time for 'Build'."}));
    EXPECT_EQ(server.requestCount(), 2u);
}

}  // namespace
