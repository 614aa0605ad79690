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

TEST_F(CrashSafetyTests, DatabaseKilledWhileSavingIsTheOldOrTheNewVersion) {
    ZVIntegrationCenter& center = ZVIntegrationCenter::shared();
    const std::string path = center.saveURL();
    expectEveryKillLeavesACompleteVersion(
        path, [&](std::int64_t version) { center.writeIntegrationsToDisk(databaseVersion(version)); },
        databaseVersion, [&] { return storedRoot(path); });
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
