#include <gtest/gtest.h>

#include "ZVPreferences.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "testkit/FakeServer.h"

namespace {

class SynchronizationTest : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("*", "/", FakeResponse::text(""));
        server.route("GET", "/projects", FakeResponse::json(R"([{"id":"1","name":"Alpha"},{"id":"2","name":"Beta"}])"));
        ZVSynchronizationThread::setConnectionProbeOverride(server.url("/"));
        // The centre refreshes once when it is made; the counts start after that run.
        env.center();
        auto& notifications = ZVNotificationCenter::shared();
        tokens.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidStartNotification,
                                                   [this](const ZVNotification&) { ++started; }));
        tokens.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidEndNotification,
                                                   [this](const ZVNotification&) { ++ended; }));
    }
    void TearDown() override {
        for (auto token : tokens) ZVNotificationCenter::shared().removeObserver(token);
        ZVSynchronizationThread::setTerminationReply(nullptr);
    }

    /// Runs the account's refresh on a thread of its own, answering the
    /// main-thread work meanwhile.
    void synchronizeInBackground(const std::shared_ptr<TestServiceIntegration>& account) {
        std::atomic<bool> done{false};
        std::thread thread([&] {
            account->synchronize();
            done = true;
        });
        EXPECT_TRUE(env.pumpUntil([&] { return done.load(); }));
        thread.join();
    }

    size_t projectRequests() { return server.requests("/projects").size(); }

    CoreTestEnvironment env;
    FakeServer server;
    std::vector<ZVNotificationCenter::Token> tokens;
    int started = 0;
    int ended = 0;
};

TEST_F(SynchronizationTest, AddingAnAccountFetchesItsTreeBetweenStartAndEnd) {
    auto account = env.addAccount(server.baseURL());
    EXPECT_EQ(server.requests("/").size(), 1u);
    EXPECT_EQ(server.requests("/")[0].method, "HEAD");
    const auto projects = account->availableProjects();
    ASSERT_EQ(projects.size(), 2u);
    EXPECT_EQ(projects[0]->name(), "Alpha");
    EXPECT_EQ(projects[0]->integration(), account);
    EXPECT_EQ(started, 1);
    EXPECT_EQ(ended, 1);
    EXPECT_FALSE(env.center().synchronizationIsInProgress());
}

TEST_F(SynchronizationTest, RefreshKeepsTimeAndSortsTheTopLevelByName) {
    auto account = env.makeAccount(server.baseURL());
    auto kept = env.addProject(*account, "2", 300, "beta (old)");
    server.route("GET", "/projects", FakeResponse::json(R"([{"id":"2","name":"beta"},{"id":"3","name":"Alpha"}])"));
    synchronizeInBackground(account);
    const auto projects = account->availableProjects();
    ASSERT_EQ(projects.size(), 2u);
    EXPECT_EQ(projects[0]->name(), "Alpha");
    EXPECT_EQ(projects[1], kept);
    EXPECT_EQ(kept->name(), "beta");
    EXPECT_EQ(kept->time(), 300u);
}

TEST_F(SynchronizationTest, WithoutConnectionNothingIsFetchedOrShown) {
    ZVSynchronizationThread::setConnectionProbeOverride("http://127.0.0.1:9/");
    auto account = env.makeAccount(server.baseURL());
    auto kept = env.addProject(*account, "9", 0);
    synchronizeInBackground(account);
    EXPECT_EQ(projectRequests(), 0u);
    EXPECT_EQ(account->availableProjects(), ZVIntegration::ProjectList{kept});
    EXPECT_TRUE(env.ui.alerts().empty());
    // The account and the state report say so instead of an alert.
    EXPECT_EQ(account->synchronizationProblem(), "Norvo could not reach http://127.0.0.1:9/.");
    const auto menu = account->integrationMenu(nullptr, nullptr);
    ASSERT_FALSE(menu->items.empty());
    EXPECT_EQ(menu->items[0]->title, "Norvo could not reach http://127.0.0.1:9/.");
    EXPECT_FALSE(menu->items[0]->enabled);

    ZVSynchronizationThread::setConnectionProbeOverride(server.url("/"));
    synchronizeInBackground(account);
    EXPECT_EQ(account->synchronizationProblem(), std::nullopt) << "a refresh that reached the server clears it";
}

TEST_F(SynchronizationTest, FailedLoadTellsTheUserUnlessSilencedAndLeavesTheTree) {
    struct Case {
        std::string reply;
        std::string expectedText;  // empty: errors silenced, nothing shown
    };
    const std::vector<Case> cases{
        {R"({"error":"The token has expired."})", "The token has expired."},
        {R"({"unexpected":true})", "Please, check your Internet connection and login information and try again."},
        {R"({"error":"down"})", ""},
    };
    for (const auto& testCase : cases) {
        env.ui.clearRecords();
        ZVPreferences::shared().setBoolean(testCase.expectedText.empty(), ZVSynchronizationThread::silenceSyncErrorsKey);
        server.route("GET", "/projects", FakeResponse::json(testCase.reply, 500));
        auto account = env.makeAccount(server.baseURL());
        account->setName("Work");
        auto kept = env.addProject(*account, "1", 0);
        synchronizeInBackground(account);
        EXPECT_EQ(account->loadCount, 1);
        if (testCase.expectedText.empty()) {
            EXPECT_TRUE(env.ui.alerts().empty());
            continue;
        }
        ASSERT_EQ(env.ui.alerts().size(), 1u);
        EXPECT_EQ(env.ui.alerts()[0].messageText, "Work could not update the project list.");
        EXPECT_EQ(env.ui.alerts()[0].informativeText, testCase.expectedText);
        EXPECT_EQ(account->availableProjects(), ZVIntegration::ProjectList{kept});
    }
}

// While a refresh runs, "Synchronize Now" warns and the resync timer does
// nothing at all: one run, one request.
TEST_F(SynchronizationTest, SynchronizeNowOrATimerTickDuringARunStartsNothing) {
    auto account = env.addAccount(server.baseURL());
    FakeResponse slow = FakeResponse::json(R"([{"id":"1","name":"Alpha"}])");
    slow.delaySeconds = 0.5;
    server.route("GET", "/projects", slow);
    const size_t requestsBefore = projectRequests();
    const int startedBefore = started;

    account->synchronize();  // on the main thread: hands over to the centre
    // Straight to the centre: env.center() would wait for the run to end.
    EXPECT_TRUE(ZVIntegrationCenter::shared().synchronizationIsInProgress());
    env.timers.advance(static_cast<double>(ZVIntegrationCenter::shared().syncPeriod()));
    EXPECT_TRUE(env.ui.alerts().empty());
    account->synchronize();
    EXPECT_EQ(env.ui.alertMessages(), std::vector<std::string>{"Norvo is already synchronizing projects."});
    env.waitForSynchronization();
    EXPECT_EQ(projectRequests(), requestsBefore + 1);
    EXPECT_EQ(started, startedBefore + 1);
    EXPECT_EQ(ended, startedBefore + 1);
}

TEST_F(SynchronizationTest, TerminationWaitsForTheRunAndSkipsTheRemainingAccounts) {
    auto account = env.addAccount(server.baseURL());
    std::vector<bool> replies;
    ZVSynchronizationThread::setTerminationReply([&](bool reply) { replies.push_back(reply); });
    const size_t requestsBefore = projectRequests();

    env.center().setTerminateAfterSyncing(true);
    env.timers.advance(static_cast<double>(env.center().syncPeriod()));
    ASSERT_TRUE(env.pumpUntil([&] { return !replies.empty(); }));
    EXPECT_EQ(replies, std::vector<bool>{true});
    // The flag is tested before the first account as well.
    EXPECT_EQ(projectRequests(), requestsBefore);
    EXPECT_FALSE(env.center().synchronizationIsInProgress());
}

}  // namespace
