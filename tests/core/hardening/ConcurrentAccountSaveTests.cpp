#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZVPropertyList.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/IntegrationTestFixture.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {

// An account without credentials, so that a save touches nothing but the
// database file.
class ZVStressedIntegration : public ZVTestIntegration {
public:
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
};

class ConcurrentAccountSaveTests : public IntegrationTestFixture {
protected:

    std::shared_ptr<ZVStressedIntegration> addedAccountWithOneProject(int index) {
        auto account = ZVIntegration::makeNew<ZVStressedIntegration>();
        account->setName("Account " + std::to_string(index));
        ZVIntegrationCenter::shared().addIntegration(account);
        account->addProject(ZVIntegrationProject::create("Project", "p" + std::to_string(index)));
        return account;
    }

    /// The store once what was saved is durable: the file and its journal.
    static ZVDictionary storedDatabase() { return ZVIntegrationCenter::shared().readIntegrationsFromDisk(); }

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

};

constexpr int threadCount = 4;
constexpr int savesPerThread = 60;

// Starts every body on a thread of its own at the same moment; `meanwhile`
// runs on this thread once they are off. Returns when all are done.
void runTogether(const std::vector<std::function<void()>>& bodies, const std::function<void()>& meanwhile = {}) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (const auto& body : bodies) {
        threads.emplace_back([&go, body] {
            while (!go) std::this_thread::yield();
            body();
        });
    }
    go = true;
    if (meanwhile) meanwhile();
    for (auto& thread : threads) thread.join();
}

// Each thread renames its account and moves its project's time round after
// round while one more account is removed in the middle of it all.
TEST_F(ConcurrentAccountSaveTests, AccountsSavedFromSeveralThreadsKeepTheirLatestStateAndARemovedOneStaysRemoved) {
    std::vector<std::shared_ptr<ZVStressedIntegration>> accounts;
    std::vector<std::function<void()>> bodies;
    for (int index = 0; index < threadCount; ++index) {
        auto account = addedAccountWithOneProject(index);
        accounts.push_back(account);
        bodies.push_back([account, index] {
            for (int round = 1; round <= savesPerThread; ++round) {
                account->availableProjects().front()->setTimeWithoutSaving(static_cast<std::uint64_t>(round));
                account->setName("Account " + std::to_string(index) + " round " + std::to_string(round));
                account->save();
            }
        });
    }
    const auto removed = addedAccountWithOneProject(threadCount);
    bodies.push_back([removed] {
        for (int round = 0; round < 20; ++round) removed->save();
    });
    runTogether(bodies, [&] {
        std::this_thread::yield();
        ZVIntegrationCenter::shared().removeIntegration(removed);
    });

    expectFileHoldsLatestState(accounts);
    const ZVDictionary stored = storedDatabase();
    EXPECT_EQ(stored.count(removed->integrationID()), 0u);
    for (const auto& account : accounts) {
        const ZVDictionary& entry = *stored.at(account->integrationID()).dictionary();
        EXPECT_EQ(entry.at(ZVIntegrationCachedProjectsKey).array()->front().dictionary()->at(ZVIntegrationProject::timeKey),
                  ZVValue(std::int64_t{savesPerThread}));
    }
}

TEST_F(ConcurrentAccountSaveTests, OneAccountSavedFromTwoThreadsEndsWithItsNewestSnapshot) {
    // Next to it the centre's own saves run, which hold the centre's lock
    // while they save each account.
    std::vector<std::shared_ptr<ZVStressedIntegration>> accounts{addedAccountWithOneProject(0),
                                                                 addedAccountWithOneProject(1)};
    std::atomic<std::uint64_t> counter{0};
    const auto saveFirst = [&] {
        for (int round = 0; round < savesPerThread; ++round) {
            accounts[0]->availableProjects().front()->setTimeWithoutSaving(++counter);
            accounts[0]->save();
        }
    };
    runTogether({saveFirst, saveFirst, [&] {
                     for (int round = 0; round < savesPerThread / 5; ++round) {
                         accounts[1]->availableProjects().front()->setTimeWithoutSaving(static_cast<std::uint64_t>(round));
                         ZVIntegrationCenter::shared().save();
                     }
                 }});
    expectFileHoldsLatestState(accounts);
}

}  // namespace
