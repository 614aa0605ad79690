#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <thread>
#include <unistd.h>

#include "ZVFileKeychain.h"
#include "ZVSecretServiceKeychain.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/LogCapture.h"
#include "testkit/TemporaryHome.h"

namespace {

// The same behaviour is asked of every store.
void exerciseStore(ZVKeychainAccess& store, const std::string& account) {
    EXPECT_FALSE(store.password("anna", account));
    ASSERT_TRUE(store.savePassword("first secret", "anna", account));
    EXPECT_EQ(store.password("anna", account), "first secret");
    ASSERT_TRUE(store.savePassword("second secret", "anna", account));
    EXPECT_EQ(store.password("anna", account), "second secret");
    ASSERT_TRUE(store.savePassword("bob's", "bob", account));
    EXPECT_EQ(store.password("bob", account), "bob's");
    EXPECT_FALSE(store.password("anna", account + ".other"));
    EXPECT_TRUE(store.removePassword("anna", account));
    EXPECT_FALSE(store.password("anna", account));
    EXPECT_EQ(store.password("bob", account), "bob's");
    EXPECT_FALSE(store.removePassword("anna", account));
    store.removePassword("bob", account);
}

TEST(ZVKeychainTests, fileStoreIsPrivateToTheUser) {
    TemporaryHome home;
    ZVFileKeychain store;
    exerciseStore(store, "com.tesselwick.norvo.jira");
    store.savePassword("kept", "carol", "com.tesselwick.norvo.redmine");
    struct stat info {};
    ASSERT_EQ(stat(store.filePath().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    // It survives a restart: a new store on the same file reads it.
    EXPECT_EQ(ZVFileKeychain().password("carol", "com.tesselwick.norvo.redmine"), "kept");
}

TEST(ZVKeychainTests, inMemoryStoreBehavesTheSame) {
    InMemoryKeychain store(false);
    exerciseStore(store, "com.tesselwick.norvo.jira");
    store.setFailsToSave(true);
    EXPECT_FALSE(store.savePassword("x", "anna", "a"));
}

TEST(ZVKeychainTests, withoutASessionBusSecretsGoToTheFileAndThatIsLoggedOnce) {
    TemporaryHome home;
    struct Restored {
        const char* name;
        const char* old = std::getenv(name);
        std::optional<std::string> value = old ? std::optional<std::string>(old) : std::nullopt;
        ~Restored() { value ? setenv(name, value->c_str(), 1) : unsetenv(name); }
    } address{"DBUS_SESSION_BUS_ADDRESS"}, runtime{"XDG_RUNTIME_DIR"};
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    setenv("XDG_RUNTIME_DIR", home.path().c_str(), 1);

    LogCapture log;
    {
        ZVSecretServiceKeychain store;
        EXPECT_FALSE(store.isSecretServiceAvailable());
        exerciseStore(store, "com.tesselwick.norvo.fallback");
        store.savePassword("s3cret-value", "dave", "com.tesselwick.norvo.fallback");
        EXPECT_EQ(ZVFileKeychain().password("dave", "com.tesselwick.norvo.fallback"), "s3cret-value");
    }
    EXPECT_EQ(log.count("Secret Service is not available"), 1u) << log.joined();
    EXPECT_EQ(log.count("s3cret-value"), 0u) << log.joined();
}

TEST(ZVKeychainTests, secretServiceStoresAndReplacesItems) {
    TemporaryHome home;
    ZVSecretServiceKeychain store;
    if (!store.isSecretServiceAvailable())
        GTEST_SKIP() << "no Secret Service on the session bus; scripts/test.sh starts gnome-keyring for this test";
    const std::string account = "com.tesselwick.norvo.test-" + std::to_string(::getpid());
    exerciseStore(store, account);
    ASSERT_TRUE(store.savePassword("in the keyring", "erin", account));
    // Nothing went to the fallback file.
    EXPECT_FALSE(std::filesystem::exists(ZVFileKeychain().filePath()));
    EXPECT_EQ(ZVSecretServiceKeychain().password("erin", account), "in the keyring");
    EXPECT_TRUE(store.removePassword("erin", account));
}

TEST(ZVKeychainTests, concurrentUseIsSafe) {
    TemporaryHome home;
    ZVFileKeychain store;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) store.savePassword(std::to_string(i), "user" + std::to_string(t), "acct");
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < 4; ++t) EXPECT_EQ(store.password("user" + std::to_string(t), "acct"), "19");
}

}  // namespace
