#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "testkit/TemporaryHome.h"

namespace {

TEST(ZVPathsTests, foldersFollowTheXDGVariables) {
    TemporaryHome home;
    EXPECT_EQ(ZVPaths::dataDirectory(), home.path() + "/.local/share/com.tesselwick.norvo");
    EXPECT_EQ(ZVPaths::configDirectory(), home.path() + "/.config/com.tesselwick.norvo");
    EXPECT_EQ(ZVPaths::cacheDirectory(), home.path() + "/.cache/com.tesselwick.norvo");
    EXPECT_TRUE(std::filesystem::is_directory(ZVPaths::cacheDirectory()));

    // A relative XDG path is ignored, as the rules say.
    setenv("XDG_DATA_HOME", "relative/path", 1);
    EXPECT_EQ(ZVPaths::dataDirectory(), home.path() + "/.local/share/com.tesselwick.norvo");
}

TEST(ZVPathsTests, mappedFileReadsTheSameAfterItsPagesAreGivenBack) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/large.txt";
    std::string content;
    for (int line = 0; content.size() < 3 * 65536; ++line) content += "line " + std::to_string(line) + "\n";
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, content));

    ZVPaths::MappedFile file(path);
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.text(), content);
    file.release(content.size() / 2);
    EXPECT_EQ(file.text(), content);
    // Replacing the file leaves the mapping on the version it opened.
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, "new"));
    file.releaseAll();
    EXPECT_EQ(file.text(), content);

    EXPECT_FALSE(ZVPaths::MappedFile(home.dataDirectory() + "/missing").isOpen());
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, ""));
    EXPECT_FALSE(ZVPaths::MappedFile(path).isOpen());
}

TEST(ZVPathsTests, failedAtomicWriteLeavesTheOldFile) {
    TemporaryHome home;
    const std::string folder = home.dataDirectory() + "/locked";
    std::filesystem::create_directories(folder);
    const std::string path = folder + "/Integrations.edb";
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, "old content"));
    // Without write permission on the folder no temporary file can be made.
    chmod(folder.c_str(), 0500);
    if (access(folder.c_str(), W_OK) == 0) {
        chmod(folder.c_str(), 0700);
        GTEST_SKIP() << "running as a user who ignores folder permissions (root)";
    }
    EXPECT_FALSE(ZVPaths::writeFileAtomically(path, "new content"));
    chmod(folder.c_str(), 0700);
    std::string bytes;
    ASSERT_TRUE(ZVPaths::readFile(path, bytes));
    EXPECT_EQ(bytes, "old content");
}

TEST(ZVPathsTests, atomicWriteReplacesTheFileWithTheAskedRightsAndLeavesNothingElse) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/file.txt";
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, "first"));
    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, "second", 0600));
    std::string bytes;
    ASSERT_TRUE(ZVPaths::readFile(path, bytes));
    EXPECT_EQ(bytes, "second");
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    // Writing over a folder fails and leaves it.
    std::filesystem::create_directories(home.dataDirectory() + "/folder/inside");
    EXPECT_FALSE(ZVPaths::writeFileAtomically(home.dataDirectory() + "/folder", "bytes"));
    EXPECT_TRUE(std::filesystem::is_directory(home.dataDirectory() + "/folder/inside"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.dataDirectory()),
                            std::filesystem::directory_iterator()),
              2)
        << "no temporary file is left beside the file and the folder";
}

TEST(ZVPreferencesTests, typedValuesWithDefaults) {
    TemporaryHome home;
    ZVPreferences& preferences = ZVPreferences::shared();
    EXPECT_FALSE(preferences.boolean("KDMissing"));
    EXPECT_TRUE(preferences.boolean("KDMissing", true));
    EXPECT_EQ(preferences.integer("KDMissing", 3600), 3600);
    preferences.setValue(ZVValue("text"), "KDText");
    EXPECT_EQ(preferences.integer("KDText", 5), 5);
    EXPECT_FALSE(preferences.boolean("KDText"));
    preferences.setInteger(1, "KDNumber");
    EXPECT_TRUE(preferences.boolean("KDNumber"));
    preferences.setValue(ZVValue(), "KDNumber");
    EXPECT_FALSE(preferences.value("KDNumber"));
}

TEST(ZVPreferencesTests, performWritesTheFileThatAFreshStoreReadsUnlessToldNotToSynchronize) {
    TemporaryHome home;
    ZVPreferences::shared().perform([](ZVPreferences& p) { p.setBoolean(true, "KDFlag"); }, false);
    EXPECT_FALSE(std::filesystem::exists(home.preferencesFile()));
    ZVPreferences::shared().reload();
    EXPECT_FALSE(ZVPreferences::shared().boolean("KDFlag"));

    ZVPreferences::shared().perform([](ZVPreferences& p) {
        p.setBoolean(true, "KDShowTimeInStatusBar");
        p.setInteger(900, "KDRoundingBase");
        p.setValue(ZVValue(ZVArray{"a", "b"}), "KDRecentIntegrations");
    });
    ASSERT_TRUE(std::filesystem::exists(home.preferencesFile()));
    ZVPreferences fresh(home.preferencesFile());
    EXPECT_TRUE(fresh.boolean("KDShowTimeInStatusBar"));
    EXPECT_EQ(fresh.integer("KDRoundingBase"), 900);
    EXPECT_EQ(fresh.value("KDRecentIntegrations"), ZVValue(ZVArray{"a", "b"}));
}

TEST(ZVPathsTests, writesThroughASymbolicLinkAndClearsOnlyItsOwnLeftovers) {
    TemporaryHome home;
    const std::string elsewhere = home.path() + "/synced";
    std::filesystem::create_directories(elsewhere);
    const std::string target = elsewhere + "/Integrations.edb";
    const std::string link = home.dataDirectory() + "/Integrations.edb";
    std::filesystem::create_symlink("../../../synced/Integrations.edb", link);
    ASSERT_TRUE(ZVPaths::writeFileAtomically(link, "through the link"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::string bytes;
    ASSERT_TRUE(ZVPaths::readFile(target, bytes));
    EXPECT_EQ(bytes, "through the link");

    // What a killed write leaves beside the target goes; look-alikes stay.
    const std::vector<std::string> stale{".Integrations.edb.a1B2c3", ".Integrations.edb.ZZZZZZ"};
    const std::vector<std::string> kept{".Integrations.edb.notes", ".Preferences.plist.a1B2c3", "Integrations.edb.x1y2z3"};
    for (const auto& name : stale) ASSERT_TRUE(ZVPaths::writeFileAtomically(elsewhere + "/" + name, "partial"));
    for (const auto& name : kept) ASSERT_TRUE(ZVPaths::writeFileAtomically(elsewhere + "/" + name, "other"));
    EXPECT_EQ(ZVPaths::removeStaleTemporaryFiles(link), stale.size());
    for (const auto& name : stale) EXPECT_FALSE(std::filesystem::exists(elsewhere + "/" + name)) << name;
    for (const auto& name : kept) EXPECT_TRUE(std::filesystem::exists(elsewhere + "/" + name)) << name;
    EXPECT_TRUE(std::filesystem::exists(target));
}

TEST(ZVPreferencesTests, anUnreadableFileIsMovedAsideReportedAndNeverOverwritten) {
    const std::string valid = ZVPropertyList::writeXML(ZVValue(ZVDictionary{{"KDNorvoIntegration", "projects"}}));
    const std::string unreadable[] = {
        valid.substr(0, valid.size() / 2),                                  // truncated
        valid + "<",                                                        // a stray byte after </plist>
        ZVPropertyList::writeXML(ZVValue(ZVArray{ZVValue("not a dictionary")})),  // the wrong root
    };
    for (const std::string& content : unreadable) {
        TemporaryHome home;
        std::vector<ZVPaths::FileProblem> problems;
        ZVPaths::setProblemObserver([&](const ZVPaths::FileProblem& problem) { problems.push_back(problem); });
        ASSERT_TRUE(ZVPaths::writeFileAtomically(home.preferencesFile(), content));
        ZVPreferences preferences(home.preferencesFile());
        ZVPaths::setProblemObserver(nullptr);

        EXPECT_FALSE(preferences.value("KDNorvoIntegration"));
        ASSERT_EQ(problems.size(), 1u);
        EXPECT_EQ(problems[0].kind, ZVPaths::FileProblem::Kind::setAside);
        EXPECT_EQ(problems[0].path, home.preferencesFile());
        EXPECT_TRUE(problems[0].setAsidePath.starts_with(home.preferencesFile() + ".unreadable-"));
        preferences.setInteger(2, "KDValue");
        EXPECT_TRUE(preferences.synchronize());
        std::string aside;
        ASSERT_TRUE(ZVPaths::readFile(problems[0].setAsidePath, aside));
        EXPECT_EQ(aside, content);
        EXPECT_EQ(ZVPreferences(home.preferencesFile()).integer("KDValue"), 2);
    }
}

TEST(ZVPreferencesTests, concurrentWritersLoseNothing) {
    TemporaryHome home;
    ZVPreferences& preferences = ZVPreferences::shared();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) preferences.setInteger(i, "key" + std::to_string(t) + "_" + std::to_string(i));
            preferences.synchronize();
        });
    }
    for (auto& thread : threads) thread.join();
    ZVPreferences fresh(home.preferencesFile());
    for (int t = 0; t < 4; ++t) EXPECT_EQ(fresh.integer("key" + std::to_string(t) + "_99", -1), 99);
}

}  // namespace
