#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ZVJournalFile.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVDatabaseJournal.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVFileProblemAlerts.h"
#include "testkit/ManualMainQueue.h"

namespace {

using Pointer = ZVIntegrationProject::Pointer;
namespace fs = std::filesystem;

const std::string arrow = " \u2794 ";

class IntegrationCenterTest : public testing::Test {
protected:
    ZVIntegrationCenter& center() { return ZVIntegrationCenter::shared(); }
    std::string databasePath() { return environment.home.dataDirectory() + "/Integrations.edb"; }

    /// Drops every shared object and the in-memory preferences, as a new
    /// process would find them.
    void restart() {
        TimerTestEnvironment::resetSharedObjects();
        ZVPreferences::resetShared(environment.home.preferencesFile());
    }

    /// The database file once everything saved is written into it whole.
    std::optional<ZVDictionary> storedDatabase() {
        if (auto* shared = ZVIntegrationCenter::sharedIfExists()) {
            shared->waitUntilSaved();
            shared->journal().fullWriteNow();
        }
        auto value = ZVPropertyList::readFile(databasePath());
        if (!value || !value->dictionary()) return std::nullopt;
        return *value->dictionary();
    }

    /// The stored form of the account's top-level project at `index`; empty without a file.
    ZVDictionary storedProject(const std::shared_ptr<ZVIntegration>& account, std::size_t index) {
        const auto stored = storedDatabase();
        if (!stored) return {};
        const ZVDictionary& entry = *stored->at(account->integrationID()).dictionary();
        return *ZVArrayValue(entry, "KDIntegrationCachedProjects")->at(index).dictionary();
    }
    std::uint64_t storedTime(const std::shared_ptr<ZVIntegration>& account, std::size_t index) {
        return ZVUnsignedValue(storedProject(account, index), "KDIntegrationProjectTime");
    }

    /// A file's bytes; empty when it is missing.
    static std::string contents(const std::string& path) {
        std::string bytes;
        ZVPaths::readFile(path, bytes);
        return bytes;
    }

    void writeDatabase(const ZVDictionary& root) { ASSERT_TRUE(ZVPropertyList::writeFile(ZVValue(root), databasePath())); }

    void setStoredPreference(const std::string& key, const ZVValue& value) {
        ZVPreferences::shared().setValue(value, key);
        ZVPreferences::shared().synchronize();
    }

    /// An account with two top-level projects, the first with a child and a
    /// grandchild, and logs on some of them.
    std::shared_ptr<RecordingIntegration> accountWithTree(const std::string& name) {
        auto account = RecordingIntegration::makeWithDictionary<RecordingIntegration>(
            {{"KDIntegrationUID", name}, {"KDIntegrationName", name}});
        account->writesThrough = true;
        auto website = ZVIntegrationProject::create("Website", "w");
        website->setIntegration(account);
        auto checkout = ZVIntegrationProject::create("Checkout", "w", "c");
        checkout->setTimeWithoutSaving(1800);
        auto payment = ZVIntegrationProject::create("Payment", "w", "c");
        payment->setAdditionalID("p");
        payment->setFourthID("invoice-9");
        checkout->addSubproject(payment);
        website->addSubproject(checkout);
        auto run = std::make_shared<ZVTimeLogEntry>();
        run->setText("Form validation");
        run->setStopDate(environment.clock.now() + std::chrono::duration<double>(1800));
        checkout->addLogEntry(run);
        checkout->addLogEntry(std::make_shared<ZVResetLogEntry>(checkout));
        auto support = ZVIntegrationProject::create("Support", "s");
        support->setIntegration(account);
        support->setTimeWithoutSaving(60);
        account->addProject(website);
        account->addProject(support);
        return account;
    }

    /// The refresh that the end of a reading starts ends on the main queue.
    static void waitForTheFirstRefresh(ManualMainQueue& mainQueue) {
        while (ZVIntegrationCenter::shared().synchronizationIsInProgress()) {
            mainQueue.waitForPost(0.05);
            mainQueue.drain();
        }
    }

    static Pointer child(const Pointer& project, std::size_t index = 0) { return project->subprojects().at(index); }
    static Pointer top(const std::shared_ptr<ZVIntegration>& account, std::size_t index = 0) {
        return account->availableProjects().at(index);
    }

    static std::vector<std::string> paths(const std::vector<Pointer>& projects) {
        std::vector<std::string> result;
        for (const auto& project : projects) result.push_back(project->fullProjectPath());
        return result;
    }

    TimerTestEnvironment environment;
    ZVIntegrationRegistry::ScopedTestClass registration = RecordingIntegration::registration();
};

// Start-up.

TEST_F(IntegrationCenterTest, WithoutAFileThereIsOnlyTheLocalAccount) {
    EXPECT_TRUE(center().integrations().empty());
    EXPECT_TRUE(ZVNorvoIntegration::sharedIntegration());
    EXPECT_EQ(center().currentProject(), nullptr);
    EXPECT_EQ(center().saveURL(), databasePath());

    auto stranger = RecordingIntegration::make("Not added", true);
    stranger->save();
    center().save();
    EXPECT_FALSE(fs::exists(databasePath()));
}

TEST_F(IntegrationCenterTest, SyncPeriodsBelowFiveMinutesFallBackToAnHour) {
    EXPECT_EQ(center().syncPeriod(), 3600) << "without a stored period";
    const std::pair<std::int64_t, std::int64_t> cases[] = {{299, 3600}, {300, 300}, {7200, 7200}, {-1, 3600}};
    for (const auto& [stored, period] : cases) {
        restart();
        setStoredPreference("KDIntegrationCenterSyncPeriod", ZVValue(stored));
        EXPECT_EQ(center().syncPeriod(), period) << stored;
    }
}

TEST_F(IntegrationCenterTest, AccountsWithTreesAndLogsSurviveARestart) {
    auto first = accountWithTree("Client A");
    auto second = accountWithTree("Client B");
    center().addIntegration(first);
    center().addIntegration(second);
    EXPECT_EQ(first->synchronizeCount, 1);

    const Pointer payment = child(child(top(first)));
    center().setCurrentProject(top(second, 1));
    center().setCurrentProject(payment);
    center().save();

    std::map<std::string, ZVDictionary> before;
    for (const auto& account : {first, second}) before[account->integrationID()] = account->dictionaryRepresentation();
    const std::vector<std::string> recentPaths = paths(center().recentProjects());

    restart();
    std::map<std::string, ZVDictionary> after;
    for (const auto& account : center().integrations()) after[account->integrationID()] = account->dictionaryRepresentation();
    EXPECT_EQ(after, before);

    const Pointer current = center().currentProject();
    ASSERT_TRUE(current);
    EXPECT_EQ(current->fullProjectPath(), "Client A" + arrow + "Website" + arrow + "Checkout" + arrow + "Payment");
    EXPECT_EQ(current->additionalID(), "p");
    EXPECT_EQ(paths(center().recentProjects()), recentPaths);
    EXPECT_EQ(recentPaths, (std::vector<std::string>{payment->fullProjectPath(), "Client B" + arrow + "Support"}));
    EXPECT_EQ(ZVHeartBeat::sharedHeartBeat().currentTime(), 0u);
}

// Every kind of change goes into the journal as it happens and the database
// file stays as it is until it is written whole; the store (file and
// journal read together) then equals what is in memory, also after a
// restart and after the whole write, and old readers read that file.
TEST_F(IntegrationCenterTest, EveryKindOfChangeReachesTheStoreThroughTheJournalAlone) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    center().journal().fullWriteNow();
    const std::string written = contents(databasePath());
    ASSERT_FALSE(written.empty());
    const std::string identifier = account->integrationID();
    const auto expectStored = [&](const std::string& step) {
        SCOPED_TRACE(step);
        center().waitUntilSaved();
        const ZVDictionary stored = center().readIntegrationsFromDisk();
        ASSERT_TRUE(stored.contains(identifier));
        EXPECT_EQ(stored.at(identifier), ZVValue(account->dictionaryRepresentation()));
    };
    const Pointer website = top(account);
    const Pointer checkout = child(website);
    const Pointer payment = child(checkout);
    const std::vector<std::pair<std::string, std::function<void()>>> steps = {
        {"time of a grandchild", [&] { payment->setTime(300); }},
        {"a run added", [&] {
             auto run = std::make_shared<ZVTimeLogEntry>();
             run->setText("Refunds");
             payment->addLogEntry(run);
             account->save();
         }},
        {"the run retitled in place", [&] {
             std::dynamic_pointer_cast<ZVTimeLogEntry>(payment->logEntries().back())->setText("Refunds, again");
             account->save();
         }},
        {"an entry removed", [&] {
             checkout->removeLogEntry(checkout->logEntries().front());
             account->save();
         }},
        {"renamed with new identifiers", [&] {
             checkout->setName("Checkout & <Cart>");
             checkout->setSubprojectID(std::nullopt);
             checkout->setFourthID("4");
             account->save();
         }},
        {"a node added with its own child", [&] {
             auto invoices = ZVIntegrationProject::create("Invoices", "i");
             invoices->addSubproject(ZVIntegrationProject::create("March", "i", "m"));
             checkout->addSubproject(invoices);
             account->save();
         }},
        {"a node moved to another parent", [&] {
             checkout->removeSubproject(payment);
             top(account, 1)->addSubproject(payment);
             account->save();
         }},
        {"a top-level node removed", [&] { account->removeProject(website); }},
        {"the selection moved", [&] { center().setCurrentProject(payment); center().save(); }},
        {"the account renamed", [&] { account->setName("Client A, renamed"); account->save(); }},
    };
    for (const auto& [name, change] : steps) {
        change();
        expectStored(name);
    }
    EXPECT_EQ(contents(databasePath()), written);
    EXPECT_GT(center().journal().size(), ZVJournalFile::header("").size());

    // A second account comes and goes through the journal as well.
    auto other = accountWithTree("Client B");
    center().addIntegration(other);
    EXPECT_TRUE(center().readIntegrationsFromDisk().contains(other->integrationID()));
    center().removeIntegration(other);
    EXPECT_FALSE(center().readIntegrationsFromDisk().contains(other->integrationID()));

    const ZVValue expected(account->dictionaryRepresentation());
    restart();
    ASSERT_EQ(center().integrations().size(), 1u);
    EXPECT_EQ(ZVValue(center().integrations()[0]->dictionaryRepresentation()), expected);
    EXPECT_EQ(center().currentProject()->name(), "Payment");

    center().saveBeforeQuitting();
    const auto left = ZVDatabaseJournal::recordsAmending(ZVJournalFile::read(databasePath() + ".journal"),
                                                         ZVDatabaseJournal::baseOf(databasePath()), fs::file_size(databasePath()));
    ASSERT_TRUE(left);
    EXPECT_TRUE(left->empty());
    EXPECT_EQ(ZVPropertyList::readFile(databasePath())->operator[](identifier), expected);
}

// While the timer runs its seconds reach the journal every few seconds on
// the beat's own tick, without a write of the database: a process killed
// now loses no more than that.
TEST_F(IntegrationCenterTest, RunningTimeIsJournaledEveryFewSecondsWithoutWritingTheDatabase) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    center().journal().fullWriteNow();
    const auto stamp = ZVPaths::stampOf(databasePath());
    const Pointer support = top(account, 1);
    center().setCurrentProject(support);
    ZVHeartBeat::sharedHeartBeat().start();
    environment.timers.advance(61);
    center().waitUntilSaved();
    const std::uint64_t stored = ZVUnsignedValue(
        *ZVArrayValue(*center().readIntegrationsFromDisk().at(account->integrationID()).dictionary(),
                      "KDIntegrationCachedProjects")->at(1).dictionary(),
        "KDIntegrationProjectTime");
    EXPECT_GE(stored + ZVIntegrationCenter::runningTimeJournalInterval, 60u + 61u);
    EXPECT_EQ(support->time(), 60u);
    EXPECT_EQ(ZVPaths::stampOf(databasePath()), stamp);

    // The next start finds the journaled time on the project and the clock.
    restart();
    EXPECT_EQ(top(center().integrations()[0], 1)->time(), stored);
    EXPECT_EQ(ZVHeartBeat::sharedHeartBeat().currentTime(), stored);
}

// Local projects live in the preferences, outside the journal: a running
// one's seconds are written there every few seconds.
TEST_F(IntegrationCenterTest, RunningTimeOfALocalProjectReachesThePreferencesEveryFewSeconds) {
    auto local = ZVIntegrationProject::create("Local", "local-1");
    local->setIntegration(ZVNorvoIntegration::sharedIntegration());
    ZVNorvoIntegration::sharedIntegration()->addProject(local);
    center().setCurrentProject(local);
    ZVHeartBeat::sharedHeartBeat().start();
    environment.timers.advance(61);
    const auto stored = ZVPreferences::shared().value(ZVNorvoIntegrationPreferencesKey);
    ASSERT_TRUE(stored && stored->array() && !stored->array()->empty());
    EXPECT_GE(ZVUnsignedValue(*stored->array()->back().dictionary(), "KDIntegrationProjectTime") +
                  ZVIntegrationCenter::localRunningTimeSaveInterval,
              61u);
}

TEST_F(IntegrationCenterTest, DatabaseIsAPrivateXMLPropertyListOtherReadersAccept) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    center().saveBeforeQuitting();

    struct stat status {};
    ASSERT_EQ(::stat(databasePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    const std::string text = contents(databasePath());
    EXPECT_NE(text.find("<plist"), std::string::npos);
    EXPECT_NE(text.find("<key>" + account->integrationID() + "</key>"), std::string::npos);

    if (std::system("command -v plistutil > /dev/null 2>&1") != 0) GTEST_SKIP() << "plistutil is not installed";
    const std::string converted = environment.home.path() + "/converted.plist";
    const std::string command = "plistutil -i '" + databasePath() + "' -o '" + converted + "' -f bin";
    ASSERT_EQ(std::system(command.c_str()), 0);
    // Back through our own reader from the other tool's binary form.
    auto value = ZVPropertyList::readFile(converted);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, ZVValue(*storedDatabase()));
}

TEST_F(IntegrationCenterTest, UnreadableDatabaseIsMovedAsideKeptAndTheUserTold) {
    // Broken text, and a property list of the wrong shape.
    const std::string files[] = {"<?xml version=\"1.0\"?><plist><dict><key>broken",
                                 ZVPropertyList::writeXML(ZVValue(ZVDictionary{{"some-account", "not a dictionary"}}))};
    std::vector<fs::path> setAside;
    for (std::size_t round = 0; round < std::size(files); ++round) {
        const std::string& garbage = files[round];
        SCOPED_TRACE(garbage);
        restart();
        environment.ui.clearRecords();
        {
            std::ofstream file(ZVPaths::dataDirectory() + "/Integrations.edb");
            file << garbage;
        }
        ZVFileProblemAlerts::install();
        EXPECT_TRUE(center().integrations().empty());
        ZVFileProblemAlerts::uninstall();
        EXPECT_FALSE(fs::exists(databasePath()));
        ASSERT_EQ(environment.ui.alerts().size(), 1u);
        EXPECT_EQ(environment.ui.alerts()[0].messageText, "Norvo could not read “Integrations.edb” and moved it aside.");

        for (const auto& entry : fs::directory_iterator(environment.home.dataDirectory())) {
            const bool isNew = std::find(setAside.begin(), setAside.end(), entry.path()) == setAside.end();
            if (isNew && entry.path().filename().string().starts_with("Integrations.edb.unreadable-"))
                setAside.push_back(entry.path());
        }
        ASSERT_EQ(setAside.size(), round + 1);
        EXPECT_NE(environment.ui.alerts()[0].informativeText.find(setAside.back().string()), std::string::npos);
        EXPECT_EQ(contents(setAside.back()), garbage);
    }

    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    auto stored = storedDatabase();
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->size(), 1u);
    EXPECT_TRUE(fs::exists(setAside[0]));
}

// The data folder made full: a small file system of its own where this
// process may mount one (root), else a folder without write rights.
class FullDataFolder {
public:
    explicit FullDataFolder(std::string folder) : _folder(std::move(folder)) {
        fs::create_directories(_folder);
        if (::geteuid() == 0) {
            _mounted = std::system(("mount -t tmpfs -o size=256k tmpfs '" + _folder + "' 2>/dev/null").c_str()) == 0;
        } else {
            _usable = true;
        }
        _usable = _usable || _mounted;
    }
    ~FullDataFolder() {
        release();
        // The centre keeps its journal open in the folder.
        ZVIntegrationCenter::resetShared();
        if (_mounted) std::system(("umount '" + _folder + "'").c_str());
    }
    bool usable() const { return _usable; }
    void fill() {
        if (!_mounted) {
            ::chmod(_folder.c_str(), 0500);
            return;
        }
        std::ofstream filler(_folder + "/filler", std::ios::binary);
        const std::string block(4096, 'x');
        while (filler.write(block.data(), static_cast<std::streamsize>(block.size())) && filler.flush()) {
        }
    }
    void release() {
        ::chmod(_folder.c_str(), 0700);
        std::error_code ignored;
        fs::remove(_folder + "/filler", ignored);
    }

private:
    std::string _folder;
    bool _mounted = false;
    bool _usable = false;
};

TEST_F(IntegrationCenterTest, AFailedSaveIsToldOnceKeepsTheTimeAndIsRetriedUntilItSucceeds) {
    FullDataFolder disk(environment.home.dataDirectory());
    if (!disk.usable()) GTEST_SKIP() << "no way to make the data folder full here";
    ZVFileProblemAlerts::install();
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    ASSERT_EQ(storedTime(account, 1), 60u);

    disk.fill();
    top(account, 1)->setTime(7200);
    top(account, 1)->setTime(7300);
    // The journal's few bytes may still fit; the whole database does not.
    center().saveBeforeQuitting();
    center().waitUntilSaved();
    ASSERT_EQ(environment.ui.alerts().size(), 1u);
    EXPECT_EQ(environment.ui.alerts()[0].messageText, "Norvo cannot save “Integrations.edb”.");
    EXPECT_EQ(top(account, 1)->time(), 7300u);
    // The old file stands whole while nothing new fits.
    EXPECT_NE(contents(databasePath()).find("<integer>60</integer>"), std::string::npos);

    environment.timers.advance(ZVFileProblemAlerts::retryInterval);
    center().waitUntilSaved();
    EXPECT_EQ(environment.ui.alerts().size(), 1u);
    disk.release();
    environment.timers.advance(ZVFileProblemAlerts::retryInterval);
    center().waitUntilSaved();
    ZVFileProblemAlerts::uninstall();
    ASSERT_EQ(environment.ui.banners().size(), 1u);
    EXPECT_EQ(environment.ui.banners()[0].first + ": " + environment.ui.banners()[0].second,
              "Norvo saves again: “Integrations.edb” is up to date.");
    EXPECT_EQ(storedTime(account, 1), 7300u);
}

// What each stored value may hold is the business of the accounts', the
// projects' and the records' own readers; here only that they get it from the file.
TEST_F(IntegrationCenterTest, StartReadsNamesWithMarkupAndOldRecordsFromTheFile) {
    const ZVDate start{std::chrono::duration<double>(1.7e9)};
    const ZVDictionary project{
        {"KDIntegrationProjectName", "\u00c4rger & <Co> \"quoted\" \u65e5\u672c"},
        {"KDIntegrationProjectID", "p"},
        {"KDIntegrationSubprojectID", 7},
        {"KDIntegrationProjectLog", ZVArray{ZVDictionary{{"KDLogEntryClass", "KDTimeLogEntry"},
                                                         {"KDLogEntryText", "old"},
                                                         {"KDLogEntryStartDate", start}},
                                            ZVDictionary{{"KDLogEntryClass", "KDNoSuchLogEntry"}}}}};
    writeDatabase({{"a", ZVDictionary{{"KDIntegrationClass", RecordingIntegration::storedClassName},
                                       {"KDIntegrationUID", "a"},
                                       {"KDIntegrationName", "Kunden & Co"},
                                       {"KDIntegrationCachedProjects", ZVArray{project}}}}});

    ASSERT_EQ(center().integrations().size(), 1u);
    EXPECT_EQ(center().integrations()[0]->name(), "Kunden & Co");
    const Pointer loaded = top(center().integrations()[0]);
    EXPECT_EQ(loaded->name(), "\u00c4rger & <Co> \"quoted\" \u65e5\u672c");
    EXPECT_FALSE(loaded->subprojectID());
    ASSERT_EQ(loaded->logEntries().size(), 1u);
    const auto* old = dynamic_cast<const ZVTimeLogEntry*>(loaded->logEntries()[0].get());
    ASSERT_TRUE(old);
    EXPECT_EQ(old->text(), "old");
    EXPECT_EQ(old->startDate(), start);
}

TEST_F(IntegrationCenterTest, NothingIsWrittenWhenNothingChanged) {
    auto account = accountWithTree("Client A");
    account->writesThrough = true;
    center().addIntegration(account);
    // What reached the disk: the database's version and the journal's length.
    const auto identity = [this] {
        center().waitUntilSaved();
        return std::make_pair(ZVPaths::stampOf(databasePath()), center().journal().size());
    };
    const auto written = identity();
    center().save();
    account->save();
    EXPECT_EQ(identity(), written);

    top(account, 1)->setTimeWithoutSaving(61);
    center().save();
    EXPECT_GT(identity().second, written.second);
    EXPECT_EQ(storedTime(account, 1), 61u);

    // A new run knows what it read and writes nothing either.
    restart();
    const auto afterRestart = identity();
    center().save();
    EXPECT_EQ(identity(), afterRestart);
    // Another program's change to the file is not lost.
    writeDatabase({{"other", ZVDictionary{{"KDIntegrationClass", "Norvo.ZVFutureIntegration"}}},
                   {account->integrationID(), ZVValue(account->dictionaryRepresentation())}});
    top(center().integrations()[0], 1)->setTimeWithoutSaving(62);
    center().save();
    EXPECT_EQ(storedDatabase()->count("other"), 1u);
}

TEST_F(IntegrationCenterTest, AnAccountThatFailedToLoadKeepsItsEntryByteForByte) {
    auto known = RecordingIntegration::makeWithDictionary<RecordingIntegration>(
        {{"KDIntegrationUID", "known"}, {"KDIntegrationName", "Known"}});
    writeDatabase({{"known", ZVValue(known->dictionaryRepresentation())},
                   {"future", ZVDictionary{{"KDIntegrationClass", "Norvo.ZVFutureIntegration"},
                                           {"KDIntegrationName", "Zukunft & <mehr> \u00e9"},
                                           {"KDIntegrationFutureSetting", ZVArray{1.5, ZVData{1, 2}}},
                                           // Its nodes are read before its class is: the one
                                           // marked selected has no account to be current in.
                                           {"KDIntegrationCachedProjects",
                                            ZVArray{ZVDictionary{{"KDIntegrationProjectName", "Orphan"},
                                                                 {"KDIntegrationProjectIsSelected", true}}}}}}});
    const auto bytesOfFuture = [this] {
        const std::string bytes = contents(databasePath());
        const auto ranges = ZVPropertyList::dictionaryEntryRanges(bytes);
        EXPECT_TRUE(ranges && ranges->contains("future"));
        if (!ranges || !ranges->contains("future")) return std::string();
        return bytes.substr(ranges->at("future").offset, ranges->at("future").length);
    };
    const std::string before = bytesOfFuture();
    ASSERT_EQ(center().integrations().size(), 1u);
    EXPECT_FALSE(center().currentProject());
    auto loaded = std::dynamic_pointer_cast<RecordingIntegration>(center().integrations()[0]);
    loaded->setName("Known, renamed");
    loaded->writesThrough = true;
    loaded->save();
    center().save();
    EXPECT_EQ(bytesOfFuture(), before);
    const auto database = storedDatabase();
    ASSERT_TRUE(database);
    EXPECT_EQ(ZVStringValue(*database->at("known").dictionary(), "KDIntegrationName"), "Known, renamed");
}

// The current project and the recents.

TEST_F(IntegrationCenterTest, TwelveSelectionsLeaveTheTenNewest) {
    auto account = RecordingIntegration::make("Work");
    std::vector<Pointer> projects;
    for (int index = 0; index < 12; ++index) {
        auto project = ZVIntegrationProject::create("P" + std::to_string(index), std::to_string(index));
        project->setIntegration(account);
        projects.push_back(project);
        center().setCurrentProject(project);
    }
    std::vector<Pointer> expected(projects.rbegin(), projects.rbegin() + 10);
    EXPECT_EQ(center().recentProjects(), expected);

    center().setCurrentProject(projects[5]);
    expected.erase(std::find(expected.begin(), expected.end(), projects[5]));
    expected.insert(expected.begin(), projects[5]);
    EXPECT_EQ(center().recentProjects(), expected);

    const auto stored = ZVPreferences::shared().value("KDRecentIntegrations");
    ASSERT_TRUE(stored && stored->array());
    ASSERT_EQ(stored->array()->size(), 10u);
    EXPECT_EQ(stored->array()->front(), ZVValue("Work" + arrow + "P5"));
}

TEST_F(IntegrationCenterTest, ChangingProjectWhileRunningStopsWritesAndRunsOn) {
    auto account = RecordingIntegration::make("Work");
    auto first = ZVIntegrationProject::create("First", "1");
    first->setIntegration(account);
    first->setTimeWithoutSaving(100);
    auto second = ZVIntegrationProject::create("Second", "2");
    second->setIntegration(account);
    second->setTimeWithoutSaving(50);

    int stateChanges = 0;
    int projectChanges = 0;
    auto& notifications = ZVNotificationCenter::shared();
    const auto stateToken = notifications.addObserver(ZVHeartBeatStateDidChangeNotification,
                                                      [&](const ZVNotification&) { ++stateChanges; });
    const auto projectToken = notifications.addObserver(ZVIntegrationCenterCurrentProjectDidChangeNotification,
                                                        [&](const ZVNotification&) { ++projectChanges; });
    std::vector<Pointer> banners;
    center().setSystemNotificationHandler([&](const Pointer& project) { banners.push_back(project); });

    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    center().setCurrentProject(first);
    heartBeat.start();
    environment.timers.advance(5);
    center().setCurrentProject(second);

    EXPECT_EQ(first->time(), 105u);
    EXPECT_TRUE(heartBeat.isBeating());
    EXPECT_EQ(heartBeat.currentTime(), 50u);
    EXPECT_EQ(stateChanges, 3);  // start, stop, start
    environment.timers.advance(2);
    EXPECT_EQ(heartBeat.currentTime(), 52u);

    center().setCurrentProject(nullptr);
    EXPECT_FALSE(heartBeat.isBeating());
    EXPECT_EQ(second->time(), 52u);
    EXPECT_EQ(heartBeat.currentTime(), 0u);
    EXPECT_EQ(projectChanges, 3);
    EXPECT_EQ(banners, (std::vector<Pointer>{first, second}));
    EXPECT_EQ(center().recentProjects(), (std::vector<Pointer>{second, first}));

    notifications.removeObserver(stateToken);
    notifications.removeObserver(projectToken);
}

struct CurrentProjectPathCase {
    const char* label;
    ZVValue stored;
    const char* restored;  // the name of the project made current, or nullptr
};
void PrintTo(const CurrentProjectPathCase& row, std::ostream* out) { *out << row.label; }

class IntegrationCenterStoredCurrentProjectTest : public IntegrationCenterTest,
                                                  public testing::WithParamInterface<CurrentProjectPathCase> {};

// The database carries no selection mark here: only the stored identifiers
// can name the current project.
TEST_P(IntegrationCenterStoredCurrentProjectTest, IsRestoredByItsIdentifiersOrNotAtAllAndSilently) {
    auto account = accountWithTree("acc");
    writeDatabase({{"acc", ZVValue(account->dictionaryRepresentation())}});
    setStoredPreference("KDIntegrationCenterCurrentProject", GetParam().stored);

    restart();  // the centre reads both files as at the next start
    const Pointer current = center().currentProject();
    if (GetParam().restored) {
        ASSERT_TRUE(current);
        EXPECT_EQ(current->name(), GetParam().restored);
        EXPECT_EQ(paths(center().recentProjects()), (std::vector<std::string>{current->fullProjectPath()}));
    } else {
        EXPECT_EQ(current, nullptr);
    }
    EXPECT_TRUE(environment.ui.alerts().empty());
    EXPECT_EQ(center().integrations().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, IntegrationCenterStoredCurrentProjectTest,
    testing::Values(CurrentProjectPathCase{"threeLevelsDown", ZVValue(ZVArray{"acc", "w", "c", "p"}), "Payment"},
                    CurrentProjectPathCase{"twoLevelsDown", ZVValue(ZVArray{"acc", "w", "c"}), "Checkout"},
                    CurrentProjectPathCase{"topLevel", ZVValue(ZVArray{"acc", "s"}), "Support"},
                    CurrentProjectPathCase{"emptyArray", ZVValue(ZVArray{}), nullptr},
                    CurrentProjectPathCase{"accountOnly", ZVValue(ZVArray{"acc"}), nullptr},
                    CurrentProjectPathCase{"unknownAccount", ZVValue(ZVArray{"gone", "w"}), nullptr},
                    CurrentProjectPathCase{"unknownProject", ZVValue(ZVArray{"acc", "x"}), nullptr},
                    CurrentProjectPathCase{"missingSubproject", ZVValue(ZVArray{"acc", "s", "c"}), nullptr},
                    CurrentProjectPathCase{"notStrings", ZVValue(ZVArray{"acc", 5}), nullptr},
                    CurrentProjectPathCase{"notAnArray", ZVValue("acc"), nullptr}),
    [](const testing::TestParamInfo<CurrentProjectPathCase>& row) { return std::string(row.param.label); });

TEST_F(IntegrationCenterTest, RecentsResolveByNameToTheFirstMatchingAccount) {
    ZVDictionary root;
    for (const char* identifier : {"uid-1", "uid-2"}) {
        auto account = RecordingIntegration::makeWithDictionary<RecordingIntegration>(
            {{"KDIntegrationUID", identifier}, {"KDIntegrationName", "Same"}});
        auto project = ZVIntegrationProject::create("Plan", identifier);
        project->setIntegration(account);
        account->addProject(project);
        auto odd = ZVIntegrationProject::create("A" + arrow + "B", std::string(identifier) + "-odd");
        odd->setIntegration(account);
        account->addProject(odd);
        root[identifier] = account->dictionaryRepresentation();
    }
    writeDatabase(root);
    setStoredPreference("KDRecentIntegrations",
                        ZVArray{"Same" + arrow + "Plan", "Same" + arrow + "A" + arrow + "B", "Nobody" + arrow + "Plan",
                                "Same" + arrow + "Plan" + arrow + "Missing", "Same", ZVValue(3)});

    const auto recents = center().recentProjects();
    ASSERT_EQ(recents.size(), 1u);
    EXPECT_EQ(recents[0]->projectID(), "uid-1");
}

TEST_F(IntegrationCenterTest, RemovingAnAccountClearsItsCurrentProjectAndItsEntry) {
    auto first = accountWithTree("Client A");
    auto second = accountWithTree("Client B");
    center().addIntegration(first);
    center().addIntegration(second);

    center().setCurrentProject(top(second));
    center().removeIntegration(first);
    EXPECT_EQ(center().currentProject(), top(second));

    center().setCurrentProject(child(top(first)));
    ZVHeartBeat::sharedHeartBeat().start();
    center().removeIntegration(second);  // not the current project's account
    EXPECT_EQ(center().currentProject(), child(top(first)));

    center().addIntegration(second);
    center().setCurrentProject(top(second, 1));
    center().removeIntegration(second);
    EXPECT_EQ(center().currentProject(), nullptr);
    EXPECT_FALSE(ZVHeartBeat::sharedHeartBeat().isBeating());
    EXPECT_TRUE(center().integrations().empty());
    EXPECT_TRUE(center().readIntegrationsFromDisk().empty());
}

// Saving.

TEST_F(IntegrationCenterTest, AutosaveEveryFiveMinutesAndQuitWriteTheTimeAndTheCurrentProject) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    const Pointer support = top(account, 1);
    center().setCurrentProject(support);
    ZVHeartBeat::sharedHeartBeat().start();

    environment.timers.advance(301);
    EXPECT_GE(support->time(), 60u + 299u);
    EXPECT_LE(support->time(), 60u + 300u);
    // The store has the autosave's time or, from the beat's journal, a later one.
    EXPECT_GE(storedTime(account, 1), support->time());
    EXPECT_LE(storedTime(account, 1), ZVHeartBeat::sharedHeartBeat().currentTime());
    EXPECT_TRUE(ZVBoolValue(storedProject(account, 1), "KDIntegrationProjectIsSelected"));

    ZVPreferences::resetShared(environment.home.preferencesFile());  // what reached the disk
    const auto current = ZVPreferences::shared().value("KDIntegrationCenterCurrentProject");
    ASSERT_TRUE(current);
    EXPECT_EQ(*current, ZVValue(ZVArray{account->integrationID(), "s"}));
    EXPECT_EQ(*ZVPreferences::shared().value("KDRecentIntegrations"), ZVValue(ZVArray{"Client A" + arrow + "Support"}));

    // Quitting saves the identifiers of a project chosen since.
    center().setCurrentProject(child(top(account)));
    ZVNotificationCenter::shared().post(ZVApplicationWillTerminateNotification);
    ZVPreferences::resetShared(environment.home.preferencesFile());
    EXPECT_EQ(*ZVPreferences::shared().value("KDIntegrationCenterCurrentProject"),
              ZVValue(ZVArray{account->integrationID(), "w", "c"}));
}

// At the program's start the database is read on a worker thread. Until
// the accounts join on the main thread nothing may be written: not the
// database, not the journal, not the current project in the preferences,
// whatever asks for a save, a quit included. A start of the timer waits for
// the projects; a quit during the reading leaves every file as it was.
TEST_F(IntegrationCenterTest, ReadingInTheBackgroundWritesNothingUntilTheAccountsAreThere) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    center().setCurrentProject(top(account, 1));
    center().saveBeforeQuitting();
    const ZVDictionary storedAccount = account->dictionaryRepresentation();
    auto local = ZVNorvoIntegration::sharedIntegration();
    local->addProject(ZVIntegrationProject::create("Writing", "local-w"));
    const std::string files[] = {databasePath(), databasePath() + ".journal", environment.home.preferencesFile()};
    std::map<std::string, std::string> before;
    for (const std::string& file : files) before[file] = contents(file);
    ASSERT_FALSE(before[databasePath()].empty());

    for (const bool quitsDuringTheReading : {true, false}) {
        SCOPED_TRACE(quitsDuringTheReading ? "quit during the reading" : "reading to its end");
        restart();
        ManualMainQueue mainQueue;
        int loadedNotifications = 0;
        const auto observation = ZVNotificationCenter::shared().addObserver(
            ZVIntegrationCenterDidLoadNotification, [&](const ZVNotification&) { ++loadedNotifications; });
        bool waitedForTheAccounts = false;

        ZVIntegrationCenter& loading = ZVIntegrationCenter::loadSharedInBackground();
        EXPECT_EQ(&ZVIntegrationCenter::shared(), &loading);
        EXPECT_FALSE(loading.isLoaded());
        EXPECT_TRUE(ZVIntegrationCenter::sharedIsLoading());
        EXPECT_TRUE(loading.integrations().empty());
        loading.performWhenLoaded([&] { waitedForTheAccounts = loading.integrations().size() == 1; });
        loading.setCurrentProject(ZVNorvoIntegration::sharedIntegration()->availableProjects().at(0));
        EXPECT_EQ(loading.currentProject(), nullptr);
        loading.addIntegration(accountWithTree("Client B"));
        EXPECT_TRUE(loading.integrations().empty()) << "an account added meanwhile joins after the reading";
        loading.save();
        loading.saveAll();
        loading.saveBeforeQuitting();
        loading.writeIntegrationsToDisk({});
        loading.journalRunningTime(99);
        ZVNotificationCenter::shared().post(ZVApplicationWillTerminateNotification);
        ZVHeartBeat& heartBeat = ZVHeartBeat::sharedHeartBeat();
        heartBeat.start();
        EXPECT_FALSE(heartBeat.isBeating());
        EXPECT_TRUE(heartBeat.startsWhenLoaded());
        if (quitsDuringTheReading) ZVIntegrationCenter::abandonLoading();
        ZVPreferences::shared().synchronize();
        for (const std::string& file : files) EXPECT_EQ(contents(file), before[file]) << file;

        if (quitsDuringTheReading) {
            mainQueue.drain();
            EXPECT_FALSE(loading.isLoaded());
            EXPECT_EQ(loadedNotifications, 0);
            EXPECT_FALSE(waitedForTheAccounts);
            EXPECT_FALSE(heartBeat.isBeating());
        } else {
            ASSERT_TRUE(mainQueue.waitForPost());
            mainQueue.drain();
            ASSERT_TRUE(loading.isLoaded());
            EXPECT_FALSE(ZVIntegrationCenter::sharedIsLoading());
            EXPECT_EQ(loadedNotifications, 1);
            EXPECT_TRUE(waitedForTheAccounts) << "blocks that wait run after the accounts joined";
            ASSERT_EQ(loading.integrations().size(), 2u);
            EXPECT_EQ(loading.integrations()[0]->dictionaryRepresentation(), storedAccount);
            ASSERT_TRUE(loading.currentProject());
            EXPECT_EQ(loading.currentProject()->fullProjectPath(), "Client A" + arrow + "Support");
            EXPECT_TRUE(heartBeat.isBeating()) << "the start that waited happened on the restored project";
            EXPECT_FALSE(heartBeat.startsWhenLoaded());
            EXPECT_TRUE(environment.ui.alerts().empty());
            // From here on the centre saves as ever.
            heartBeat.stop();
            loading.saveBeforeQuitting();
            EXPECT_NE(contents(databasePath()), before[databasePath()]);
            waitForTheFirstRefresh(mainQueue);
        }
        ZVNotificationCenter::shared().removeObserver(observation);
        TimerTestEnvironment::resetSharedObjects();
    }
}

TEST_F(IntegrationCenterTest, AStopBeforeTheProjectsAreReadCallsOffTheStartThatWaits) {
    auto account = accountWithTree("Client A");
    center().addIntegration(account);
    center().setCurrentProject(top(account, 1));
    center().saveBeforeQuitting();
    restart();
    ManualMainQueue mainQueue;
    ZVIntegrationCenter& loading = ZVIntegrationCenter::loadSharedInBackground();
    ZVHeartBeat& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    heartBeat.stop();
    EXPECT_FALSE(heartBeat.startsWhenLoaded());
    ASSERT_TRUE(mainQueue.waitForPost());
    mainQueue.drain();
    ASSERT_TRUE(loading.isLoaded());
    EXPECT_FALSE(heartBeat.isBeating());
    waitForTheFirstRefresh(mainQueue);
    TimerTestEnvironment::resetSharedObjects();
}

}  // namespace
