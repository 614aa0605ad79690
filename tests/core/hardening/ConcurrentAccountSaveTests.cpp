#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZVPropertyList.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ManualClock.h"
#include "testkit/ManualMainQueue.h"
#include "testkit/ManualTimerFactory.h"
#include "testkit/ScriptedUserInterface.h"
#include "testkit/TemporaryHome.h"

namespace {

// An account without credentials and without a remote side, so that a save
// touches nothing but the database file.
class ZVStressedIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.ZVStressedIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.stressed"; }
    std::string integrationName() const override { return "Stressed"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    std::string accountIdentifier() const override { return "stressed"; }
    std::string basicSetupViewNibName() const override { return "Stressed"; }
    void synchronize() override {}
};

class ConcurrentAccountSaveTests : public ::testing::Test {
protected:
    ConcurrentAccountSaveTests() {
        ZVIntegrationCenter::resetShared();
        ZVNorvoIntegration::resetSharedIntegration();
    }
    ~ConcurrentAccountSaveTests() override {
        ZVIntegrationCenter::resetShared();
        ZVNorvoIntegration::resetSharedIntegration();
        ZVHeartBeat::resetSharedHeartBeat();
    }

    std::shared_ptr<ZVStressedIntegration> addedAccountWithOneProject(int index) {
        auto account = ZVIntegration::makeNew<ZVStressedIntegration>();
        account->setName("Account " + std::to_string(index));
        ZVIntegrationCenter::shared().addIntegration(account);
        account->addProject(ZVIntegrationProject::create("Project", "p" + std::to_string(index)));
        return account;
    }

    static ZVDictionary storedDatabase() {
        const auto root = ZVPropertyList::readFile(ZVIntegrationCenter::shared().saveURL());
        if (!root || !root->dictionary()) return {};
        return *root->dictionary();
    }

    static void expectFileHoldsLatestState(const std::vector<std::shared_ptr<ZVStressedIntegration>>& accounts) {
        const ZVDictionary stored = storedDatabase();
        EXPECT_EQ(stored.size(), accounts.size());
        for (const auto& account : accounts) {
            const auto entry = stored.find(account->integrationID());
            ASSERT_NE(entry, stored.end()) << account->name() << " is missing from the file";
            // Compared in its stored form: dates keep whole seconds there.
            const auto latest = ZVPropertyList::read(ZVPropertyList::writeXML(ZVValue(account->dictionaryRepresentation())));
            EXPECT_TRUE(latest && entry->second == *latest) << account->name() << " is stored with an older state";
        }
    }

    TemporaryHome home;
    InMemoryKeychain keychain;
    ManualClock clock;
    ManualTimerFactory timers{clock};
    ManualMainQueue mainQueue;
    ScriptedUserInterface ui;
};

constexpr int threadCount = 4;
constexpr int savesPerThread = 60;

TEST_F(ConcurrentAccountSaveTests, AccountsSavedFromSeveralThreadsAllKeepTheirLatestState) {
    std::vector<std::shared_ptr<ZVStressedIntegration>> accounts;
    for (int index = 0; index < threadCount; ++index) accounts.push_back(addedAccountWithOneProject(index));

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < threadCount; ++index) {
        threads.emplace_back([&, index] {
            while (!go) std::this_thread::yield();
            const auto& account = accounts[static_cast<std::size_t>(index)];
            for (int round = 1; round <= savesPerThread; ++round) {
                account->availableProjects().front()->setTimeWithoutSaving(static_cast<std::uint64_t>(round));
                account->setName("Account " + std::to_string(index) + " round " + std::to_string(round));
                account->save();
            }
        });
    }
    go = true;
    for (auto& thread : threads) thread.join();

    expectFileHoldsLatestState(accounts);
    const ZVDictionary stored = storedDatabase();
    for (const auto& account : accounts) {
        const auto found = stored.find(account->integrationID());
        ASSERT_NE(found, stored.end());
        const ZVDictionary& entry = *found->second.dictionary();
        const ZVArray& projects = *entry.at(ZVIntegrationCachedProjectsKey).array();
        EXPECT_EQ(projects.front().dictionary()->at(ZVIntegrationProject::timeKey).integer(),
                  std::optional<std::int64_t>(savesPerThread));
    }
}

TEST_F(ConcurrentAccountSaveTests, OneAccountSavedFromTwoThreadsEndsWithItsNewestSnapshot) {
    // Next to it the centre's own saves run, which hold the centre's lock
    // while they save each account.
    std::vector<std::shared_ptr<ZVStressedIntegration>> accounts{addedAccountWithOneProject(0),
                                                                 addedAccountWithOneProject(1)};
    std::atomic<std::uint64_t> counter{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < 2; ++index) {
        threads.emplace_back([&] {
            while (!go) std::this_thread::yield();
            for (int round = 0; round < savesPerThread; ++round) {
                accounts[0]->availableProjects().front()->setTimeWithoutSaving(++counter);
                accounts[0]->save();
            }
        });
    }
    threads.emplace_back([&] {
        while (!go) std::this_thread::yield();
        for (int round = 0; round < savesPerThread / 5; ++round) {
            accounts[1]->availableProjects().front()->setTimeWithoutSaving(static_cast<std::uint64_t>(round));
            ZVIntegrationCenter::shared().save();
        }
    });
    go = true;
    for (auto& thread : threads) thread.join();

    expectFileHoldsLatestState(accounts);
}

TEST_F(ConcurrentAccountSaveTests, AccountRemovedWhileOthersSaveStaysRemovedAndTheOthersStay) {
    std::vector<std::shared_ptr<ZVStressedIntegration>> accounts;
    for (int index = 0; index < threadCount; ++index) accounts.push_back(addedAccountWithOneProject(index));
    const auto removed = addedAccountWithOneProject(threadCount);

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < threadCount; ++index) {
        threads.emplace_back([&, index] {
            while (!go) std::this_thread::yield();
            const auto& account = accounts[static_cast<std::size_t>(index)];
            for (int round = 1; round <= savesPerThread / 3; ++round) {
                account->availableProjects().front()->setTimeWithoutSaving(static_cast<std::uint64_t>(round));
                account->save();
            }
        });
    }
    threads.emplace_back([&] {
        while (!go) std::this_thread::yield();
        for (int round = 0; round < 20; ++round) removed->save();
    });
    go = true;
    std::this_thread::yield();
    ZVIntegrationCenter::shared().removeIntegration(removed);
    for (auto& thread : threads) thread.join();

    expectFileHoldsLatestState(accounts);
    EXPECT_EQ(storedDatabase().count(removed->integrationID()), 0u);
}

}  // namespace
