#include <gtest/gtest.h>

#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVOAuth2Authentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "testkit/InMemoryKeychain.h"

namespace {
const std::string account = "jira.example.com/jira";
const ZVDictionary withUser{{"KDAuthenticationUsername", "ada"}};

class AuthenticationTests : public ::testing::Test {
protected:
    InMemoryKeychain keychain;
};

TEST_F(AuthenticationTests, MakesTheCredentialClassOfEachAuthenticationType) {
    struct Case {
        ZVAuthenticationType type;
        std::string setupViewName;  // empty: no credential object
    };
    const Case cases[] = {
        {ZVAuthenticationType::none, ""},
        {ZVAuthenticationType::usernamePassword, "UserPasswordAuthentication"},
        {ZVAuthenticationType::apiToken, "APITokenAuthentication"},
        {ZVAuthenticationType::usernameAPIToken, "UsernameAPITokenAuthentication"},
        {ZVAuthenticationType::usernamePasswordAPIToken, "UserPasswordAPITokenAuthentication"},
        {ZVAuthenticationType::oAuth2, "OAuth2Authentication"},
        {ZVAuthenticationType::other, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.type));
        auto credential = ZVAuthentication::make(c.type, {}, account);
        if (c.setupViewName.empty()) {
            EXPECT_EQ(credential, nullptr);
        } else {
            ASSERT_NE(credential, nullptr);
            EXPECT_EQ(credential->setupViewNibName(), c.setupViewName);
            EXPECT_EQ(credential->accountInformation(), account);
        }
    }
    EXPECT_EQ(ZVAuthenticationTypeFromRawValue(5), ZVAuthenticationType::oAuth2);
    EXPECT_EQ(ZVAuthenticationTypeFromRawValue(7), std::nullopt);
}

TEST_F(AuthenticationTests, SecretsAreStoredAndReadBackUnderTheUserNameAndAccountOfEachClass) {
    ZVAPITokenAuthentication token({}, account);
    token.setAPIToken("t0ken");
    token.saveKeychainInformation();
    EXPECT_EQ(keychain.password(account, account), "t0ken");
    EXPECT_EQ(ZVAPITokenAuthentication({}, account).APIToken(), "t0ken");

    ZVUsernameAPITokenAuthentication userToken(withUser, "other.example.com");
    userToken.setAPIToken("user-token");
    userToken.saveKeychainInformation();
    EXPECT_EQ(keychain.password("other.example.com", "other.example.com"), "user-token");
    EXPECT_EQ(keychain.password("ada", "other.example.com"), std::nullopt);
    ZVUsernameAPITokenAuthentication userTokenRead(withUser, "other.example.com");
    EXPECT_EQ(userTokenRead.APIToken(), "user-token");
    EXPECT_EQ(userTokenRead.username(), "ada");

    ZVUsernamePasswordAuthentication password(withUser, account);
    password.setPassword("s3cret");
    password.saveKeychainInformation();
    EXPECT_EQ(keychain.password("ada", account), "s3cret");
    ZVUsernamePasswordAuthentication passwordRead(withUser, account);
    EXPECT_EQ(passwordRead.password(), "s3cret");
    EXPECT_EQ(passwordRead.username(), "ada");
    EXPECT_EQ(keychain.itemCount(), 3u);
}

TEST_F(AuthenticationTests, CombinedSecretIsTokenBarPasswordAndSplitsAtTheFirstAndLastBar) {
    struct Written {
        std::string token, password, stored;
    };
    const Written written[] = {{"abc", "xyz", "abc|xyz"}, {"abc", "x|y", "abc|x|y"}, {"abc", "", "abc|"}};
    for (const auto& w : written) {
        SCOPED_TRACE(w.stored);
        ZVUsernamePasswordAPITokenAuthentication combined({{"KDAuthenticationUsername", "grace"}}, account);
        combined.setAPIToken(w.token);
        combined.setPassword(w.password);
        combined.saveKeychainInformation();
        EXPECT_EQ(keychain.password("grace", account), w.stored);
    }
    struct Read {
        std::string stored, token, password;
    };
    const Read cases[] = {
        {"abc|xyz", "abc", "xyz"},
        {"abc|x|y", "abc", "y"},  // what stands between the first and last bar is lost
        {"abc|", "abc", ""},
        {"|xyz", "", "xyz"},
        {"lonely", "lonely", "lonely"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.stored);
        keychain.savePassword(c.stored, "ada", account);
        ZVUsernamePasswordAPITokenAuthentication credential(withUser, account);
        EXPECT_EQ(credential.APIToken(), c.token);
        EXPECT_EQ(credential.password(), c.password);
    }
}

TEST_F(AuthenticationTests, WithoutAUserNameTheStoreIsNeitherAskedNorWritten) {
    keychain.savePassword("s3cret", "", account);
    ZVUsernamePasswordAuthentication credential({}, account);
    EXPECT_EQ(credential.password(), "");
    credential.setPassword("new");
    credential.saveKeychainInformation();

    ZVUsernamePasswordAPITokenAuthentication combined({}, account);
    combined.setAPIToken("abc");
    combined.saveKeychainInformation();
    EXPECT_EQ(keychain.itemCount(), 1u);
    EXPECT_EQ(keychain.password("", account), "s3cret");
}

TEST_F(AuthenticationTests, NoDictionaryHoldsASecretAndAMissingTokenIsNotWrittenBack) {
    ZVAPITokenAuthentication token({}, account);
    EXPECT_EQ(token.APIToken(), "");
    token.saveKeychainInformation();
    EXPECT_EQ(keychain.saveCount(), 0u);
    token.setAPIToken("t0ken");
    EXPECT_TRUE(token.dictionaryRepresentation().empty());
    EXPECT_EQ(keychain.password(account, account), "t0ken");

    ZVUsernameAPITokenAuthentication userToken(withUser, "second.example.com");
    userToken.setAPIToken("later");
    EXPECT_EQ(userToken.dictionaryRepresentation(), withUser);
    ZVUsernamePasswordAuthentication password(withUser, "third.example.com");
    password.setPassword("later");
    EXPECT_EQ(password.dictionaryRepresentation(), withUser);
    ZVUsernamePasswordAPITokenAuthentication combined(withUser, "fourth.example.com");
    combined.setPassword("later");
    EXPECT_EQ(combined.dictionaryRepresentation(), withUser);

    EXPECT_EQ(keychain.itemCount(), 1u);
}

TEST_F(AuthenticationTests, ChangedUserNameAddsANewItemAndAnEmptySecretNeverOverwritesAStoredOne) {
    ZVUsernamePasswordAuthentication credential(withUser, account);
    credential.setPassword("s3cret");
    credential.saveKeychainInformation();
    credential.setUsername("grace");
    credential.saveKeychainInformation();
    EXPECT_EQ(keychain.password("ada", account), "s3cret");
    EXPECT_EQ(keychain.password("grace", account), "s3cret");

    ZVUsernamePasswordAuthentication emptied(withUser, account);
    emptied.setPassword("");
    emptied.saveKeychainInformation();
    EXPECT_EQ(keychain.password("ada", account), "s3cret");
}

TEST_F(AuthenticationTests, OAuth2CodeIsStoredOnlyWhenThere) {
    ZVOAuth2Authentication none({}, account);
    EXPECT_EQ(none.code(), std::nullopt);
    EXPECT_TRUE(none.dictionaryRepresentation().empty());

    ZVOAuth2Authentication stored({{"KDCode", "client-account-7"}}, account);
    EXPECT_EQ(stored.code(), "client-account-7");
    EXPECT_EQ(stored.dictionaryRepresentation(), (ZVDictionary{{"KDCode", "client-account-7"}}));
    stored.saveKeychainInformation();
    EXPECT_EQ(keychain.saveCount(), 0u);

    ZVOAuth2Authentication wrongType({{"KDCode", 42}}, account);
    EXPECT_EQ(wrongType.code(), std::nullopt);
}

}  // namespace
