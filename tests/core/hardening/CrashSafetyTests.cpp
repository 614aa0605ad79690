#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "core/integrations/IntegrationTestFixture.h"
#include "core/integrations/center/ZVDatabaseJournal.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {

// A database of the size of a busy user's: many accounts, each with a tree
// of projects and log records. Every value that can change carries the
// version number, so that two versions differ all over the file.
ZVDictionary databaseVersion(std::int64_t version) {
    ZVDictionary root;
    for (int account = 0; account < 20; ++account) {
        ZVArray projects;
        for (int project = 0; project < 15; ++project) {
            ZVArray log;
            for (int entry = 0; entry < 3; ++entry) {
                log.emplace_back(ZVDictionary{
                    {"KDLogEntryClass", std::string("Norvo.ZVTimeLogEntry")},
                    {"KDLogEntryText", "Work item " + std::to_string(entry) + " of version " + std::to_string(version)},
                    {"KDLogEntryTime", ZVValue(version * 60 + entry)},
                });
            }
            projects.emplace_back(ZVDictionary{
                {"KDIntegrationProjectName", "Project " + std::to_string(project)},
                {"KDIntegrationProjectID", std::to_string(account * 1000 + project)},
                {"KDIntegrationProjectTime", ZVValue(version + project)},
                {"KDIntegrationProjectLog", std::move(log)},
            });
        }
        const std::string uid = "00000000-0000-4000-8000-" + std::to_string(100000000000 + account);
        root[uid] = ZVDictionary{
            {"KDIntegrationName", "Account " + std::to_string(account) + " v" + std::to_string(version)},
            {"KDIntegrationUID", uid},
            {"KDIntegrationClass", std::string("Norvo.ZVGenericIntegration")},
            {"KDIntegrationCachedProjects", std::move(projects)},
        };
    }
    return root;
}

ZVDictionary preferencesVersion(std::int64_t version) {
    ZVDictionary values;
    for (int key = 0; key < 400; ++key) {
        values["KDSetting" + std::to_string(key)] = ZVValue(version * 1000 + key);
    }
    values["KDRecentIntegrations"] = ZVArray(50, ZVValue("Account ➔ Project of version " + std::to_string(version)));
    return values;
}

// What a killed writer told before it died: the last version it began to
// write and the last one whose write returned.
struct WriterProgress {
    std::int64_t started = -1;
    std::int64_t finished = -1;
};

struct Message {
    char kind;  // 's' before a write, 'f' after it
    std::int64_t version;
};
constexpr ssize_t messageSize = sizeof(Message);

// Runs `write` for versions first, first + 1, ... in a child process, kills
// the child with SIGKILL after `delay` and returns what it reported.
WriterProgress runWriterUntilKilled(std::int64_t first, std::chrono::microseconds delay,
                                    const std::function<void(std::int64_t)>& write) {
    int channel[2];
    if (::pipe(channel) != 0) {
        ADD_FAILURE() << "pipe failed";
        return {};
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        for (std::int64_t version = first;; ++version) {
            Message message{'s', version};
            if (::write(channel[1], &message, sizeof message) != messageSize) ::_exit(2);
            write(version);
            message.kind = 'f';
            if (::write(channel[1], &message, sizeof message) != messageSize) ::_exit(2);
        }
    }
    ::close(channel[1]);
    WriterProgress progress;
    // Waiting for the first report makes sure that the kill falls into the
    // writing loop rather than into the start of the process.
    Message message{};
    if (::read(channel[0], &message, sizeof message) == messageSize) progress.started = message.version;
    std::this_thread::sleep_for(delay);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the writer ended on its own";
    while (::read(channel[0], &message, sizeof message) == messageSize) {
        if (message.kind == 's') progress.started = message.version;
        if (message.kind == 'f') progress.finished = message.version;
    }
    ::close(channel[0]);
    return progress;
}

// Kills writers at random moments, round after round, and checks after each
// kill that the file holds one complete version: the last one written, or
// the one being written when the kill came.
void expectEveryKillLeavesACompleteVersion(const std::string& path,
                                           const std::function<void(std::int64_t)>& write,
                                           const std::function<ZVDictionary(std::int64_t)>& version,
                                           const std::function<std::optional<ZVDictionary>()>& readBack) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delayMicroseconds(0, 30000);

    write(0);
    std::int64_t onDisk = 0;
    int killsWithinAWrite = 0;
    constexpr int rounds = 20;
    for (int round = 0; round < rounds; ++round) {
        const WriterProgress progress =
            runWriterUntilKilled(onDisk + 1, std::chrono::microseconds(delayMicroseconds(random)), write);
        ASSERT_GE(progress.started, onDisk + 1);
        const std::int64_t lastComplete = progress.finished >= 0 ? progress.finished : onDisk;
        if (progress.finished < progress.started) ++killsWithinAWrite;

        const std::optional<ZVDictionary> stored = readBack();
        ASSERT_TRUE(stored.has_value()) << "round " << round << ": " << path << " does not parse";
        if (*stored == version(lastComplete)) {
            onDisk = lastComplete;
        } else {
            ASSERT_TRUE(*stored == version(progress.started))
                << "round " << round << ": the file is neither version " << lastComplete << " nor "
                << progress.started;
            onDisk = progress.started;
        }
    }
    // Most kills must have hit a write in progress, or the test proves little.
    EXPECT_GT(killsWithinAWrite, rounds / 2);

    // What the killed writes left beside the file goes at the next start,
    // and the file stays as it is.
    const std::filesystem::path file(path);
    const std::string prefix = "." + file.filename().string() + ".";
    std::size_t leftovers = 0;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        leftovers += entry.path().filename().string().starts_with(prefix);
    EXPECT_EQ(ZVPaths::removeStaleTemporaryFiles(path), leftovers);
    EXPECT_EQ(ZVPaths::removeStaleTemporaryFiles(path), 0u);
    EXPECT_TRUE(readBack() == version(onDisk));
}

std::optional<ZVDictionary> storedRoot(const std::string& path) {
    const auto value = ZVPropertyList::readFile(path);
    if (!value || !value->dictionary()) return std::nullopt;
    return *value->dictionary();
}

class CrashSafetyTests : public IntegrationTestFixture {};

TEST_F(CrashSafetyTests, DatabaseKilledWhileWrittenWholeIsTheOldOrTheNewVersion) {
    const std::string path = home.dataDirectory() + "/Integrations.edb";
    // The whole write with every account replaced: each one is serialized.
    const auto write = [&](std::int64_t version) {
        std::vector<ZVDictionary> records;
        for (const auto& [key, account] : databaseVersion(version))
            records.push_back({{"op", "account+"}, {"account", key}, {"value", account}});
        ZVDatabaseJournal::writeDatabase(path, 0600, ZVDatabaseJournal::Replay(records), {});
    };
    expectEveryKillLeavesACompleteVersion(path, write, databaseVersion, [&] { return storedRoot(path); });
}

// A child process tracks time, adds runs and nodes and has the database
// written whole now and then; it is killed at random moments, in the middle
// of journal writes and of whole writes. Every change that the journal had
// made durable before the kill is there at the next start, and nothing that
// was never made.
TEST_F(CrashSafetyTests, KilledWhileJournalingOrWritingWholeLosesNothingThatWasDurable) {
    const auto center = [] { return &ZVIntegrationCenter::shared(); };
    // The refresh that each start begins waits for this thread's queue.
    const auto dropCenter = [&] {
        while (center()->synchronizationIsInProgress()) {
            mainQueue.waitForPost(0.05);
            mainQueue.drain();
        }
        ZVIntegrationCenter::resetShared();
    };
    {
        auto account = ZVIntegration::makeNew<ZVTestIntegration>();
        account->addProject(makeNode("Timer", "t"));
        account->addProject(makeNode("Nodes", "n"));
        center()->addIntegration(account);
        center()->saveBeforeQuitting();
    }
    // No thread of the centre may cross the fork: each child makes its own.
    dropCenter();

    const auto work = [&](std::int64_t version) {
        const auto account = center()->integrations().at(0);
        const auto timer = account->availableProjects().at(0);
        timer->setTimeWithoutSaving(static_cast<std::uint64_t>(version) * 10);
        auto run = std::make_shared<ZVTimeLogEntry>();
        run->setText(std::to_string(version));
        timer->addLogEntry(run);
        if (version % 3 == 0) account->availableProjects().at(1)->addSubproject(makeNode(std::to_string(version), "v"));
        account->save();
        center()->journal().waitUntilDurable();
        if (version % 2 == 0) center()->journal().startFullWrite();
    };

    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delayMicroseconds(0, 40000);
    std::int64_t next = 1;
    std::uint64_t fullWrites = 0;
    // On a busy machine fewer writes fit before a kill: more rounds then,
    // until the kills have fallen among whole writes as well.
    constexpr int rounds = 30;
    for (int round = 0; round < rounds || (fullWrites <= rounds / 2 && round < 4 * rounds); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const WriterProgress progress =
            runWriterUntilKilled(next, std::chrono::microseconds(delayMicroseconds(random)), work);
        ASSERT_GE(progress.started, next);

        const auto account = center()->integrations().at(0);
        const auto timer = account->availableProjects().at(0);
        std::vector<std::int64_t> runs;
        for (const auto& entry : timer->logEntries()) runs.push_back(std::stoll(entry->text()));
        const std::int64_t last = runs.empty() ? 0 : runs.back();
        // The runs come in order, none lost and none twice, up to the last
        // one that was durable or the one under way.
        for (std::size_t index = 0; index < runs.size(); ++index) ASSERT_EQ(runs[index], static_cast<std::int64_t>(index) + 1);
        EXPECT_GE(last, std::max(progress.finished, next - 1));
        EXPECT_LE(last, progress.started);
        EXPECT_EQ(timer->time(), static_cast<std::uint64_t>(last) * 10);
        std::size_t expectedNodes = 0;
        for (std::int64_t version = 1; version <= last; ++version) expectedNodes += version % 3 == 0;
        EXPECT_EQ(account->availableProjects().at(1)->subprojects().size(), expectedNodes);
        fullWrites += static_cast<std::uint64_t>(progress.started / 2 - (next - 1) / 2);
        next = last + 1;
        dropCenter();
    }
    EXPECT_GT(fullWrites, static_cast<std::uint64_t>(rounds / 2));
}

TEST_F(CrashSafetyTests, PreferencesKilledWhileSynchronizingAreTheOldOrTheNewVersion) {
    const std::string path = home.preferencesFile();
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ZVPreferences preferences(path);
    expectEveryKillLeavesACompleteVersion(
        path,
        [&](std::int64_t version) {
            for (const auto& [key, value] : preferencesVersion(version)) preferences.setValue(value, key);
            preferences.synchronize();
        },
        preferencesVersion, [&] { return storedRoot(path); });
}

}  // namespace
