#include <gtest/gtest.h>

#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

namespace {

class AddressBasedIntegrationTests : public ::testing::Test {
protected:
    AddressBasedIntegrationTests() {
        ZVTestAddressBasedIntegration::nextAuthenticationType = ZVAuthenticationType::usernamePassword;
        ZVTestAddressBasedIntegration::nextSSLSupport = ZVSSLSupport::optional;
        ZVTestAddressBasedIntegration::nextHardcodedAddress.reset();
    }
    ~AddressBasedIntegrationTests() override { ZVTestAddressBasedIntegration::nextHardcodedAddress.reset(); }

    TemporaryHome home;
    InMemoryKeychain keychain;
    TestIntegrationClasses classes;
};

TEST(AddressCleaning, RemovesSchemesAndOneTrailingSlashOnlyFromWhatBeginsWithHttp) {
    struct Case {
        const char* typed;
        const char* stored;
    };
    const Case cases[] = {
        {"https://myserver/", "myserver"},
        {"http://myserver", "myserver"},
        {"myserver/", "myserver/"},
        {"myserver", "myserver"},
        {"http://a/https://b/", "a/b"},
        {"https://host.example.com/jira//", "host.example.com/jira/"},
        {"httpd/", "httpd"},
        {"HTTP://upper/", "HTTP://upper/"},
        {"ftp://files/", "ftp://files/"},
        {"", ""},
        {"http", "http"},
        {"https://", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        EXPECT_EQ(ZVAddressBasedIntegration::cleanedAddress(c.typed), c.stored);
    }
}

TEST_F(AddressBasedIntegrationTests, SchemeIsHttpOnlyWhenSSLIsOffAndNotMandatory) {
    struct Case {
        ZVSSLSupport support;
        bool enabled;
        const char* scheme;
    };
    const Case cases[] = {
        {ZVSSLSupport::mandatory, false, "https"}, {ZVSSLSupport::mandatory, true, "https"},
        {ZVSSLSupport::none, true, "https"},       {ZVSSLSupport::none, false, "http"},
        {ZVSSLSupport::optional, true, "https"},   {ZVSSLSupport::optional, false, "http"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.support));
        ZVTestAddressBasedIntegration::nextSSLSupport = c.support;
        auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
        EXPECT_TRUE(account->isSSLEnabled());  // the default of a new account
        account->setSSLEnabled(c.enabled);
        EXPECT_EQ(account->URLScheme(), c.scheme);
    }
}

TEST_F(AddressBasedIntegrationTests, AddressIsTheAccountIdentifierAndBuildsURLs) {
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    account->setAddress("https://tracker.example.com/jira/");
    account->setSSLEnabled(false);
    EXPECT_EQ(account->address(), "tracker.example.com/jira");
    EXPECT_EQ(account->accountIdentifier(), "tracker.example.com/jira");
    EXPECT_EQ(account->baseURL(), "http://tracker.example.com/jira");
    EXPECT_EQ(account->URLForPath("/rest/api/2/project"), "http://tracker.example.com/jira/rest/api/2/project");
    EXPECT_EQ(account->URLForPath("/search", "jql=assignee%3Dada&maxResults=50"),
              "http://tracker.example.com/jira/search?jql=assignee%3Dada&maxResults=50");
    EXPECT_EQ(account->URLForPath("/issues.json?limit=100", "page=2"),
              "http://tracker.example.com/jira/issues.json?limit=100&page=2");
    EXPECT_EQ(account->addressPlaceholder(), "URL without leading http or trailing /");
}

TEST_F(AddressBasedIntegrationTests, HostIsTheAddressWithoutPortPathAndCase) {
    struct Case {
        const char* address;
        const char* host;
        bool underAtlassianNet;
    };
    const Case cases[] = {
        {"acme.atlassian.net", "acme.atlassian.net", true},
        {"https://Acme.Atlassian.NET/", "acme.atlassian.net", true},
        {"acme.atlassian.net.:443/jira", "acme.atlassian.net", true},
        {"atlassian.net", "atlassian.net", true},
        {"notatlassian.net", "notatlassian.net", false},
        {"atlassian.net.example.com", "atlassian.net.example.com", false},
        {"jira.example.com:8080/jira", "jira.example.com", false},
        {"ada@jira.example.com/x", "jira.example.com", false},
        {"127.0.0.1:4711", "127.0.0.1", false},
        {"[::1]:8080/jira", "[::1]", false},
        {"", "", false},
    };
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    for (const Case& c : cases) {
        account->setAddress(c.address);
        EXPECT_EQ(account->host(), c.host) << c.address;
        EXPECT_EQ(account->isHostedUnder("atlassian.net"), c.underAtlassianNet) << c.address;
    }
}

TEST_F(AddressBasedIntegrationTests, FixedHostReplacesTheAddressEverywhere) {
    ZVTestAddressBasedIntegration::nextHardcodedAddress = "api.service.example";
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    account->setAddress("https://typed.example.com/");
    EXPECT_EQ(account->address(), "api.service.example");
    EXPECT_EQ(account->accountIdentifier(), "api.service.example");
    EXPECT_EQ(account->addressPlaceholder(), "api.service.example");
    // The credential keys its secrets by the fixed host from the start.
    EXPECT_EQ(account->authentication()->accountInformation(), "api.service.example");

    const ZVDictionary dictionary = account->dictionaryRepresentation();
    EXPECT_FALSE(dictionary.contains("KDIntegrationAddress"));
    EXPECT_EQ(dictionary.at("KDIntegrationUseSSL"), ZVValue(true));
}

TEST_F(AddressBasedIntegrationTests, AccountWithoutAnAddressWritesNothing) {
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    account->setName("Nameless");
    EXPECT_TRUE(account->dictionaryRepresentation().empty());
    EXPECT_EQ(ZVIntegration::integrationWithDictionary(account->dictionaryRepresentation()), nullptr);
}

TEST_F(AddressBasedIntegrationTests, DictionaryRoundTripKeepsAddressSSLAndUserName) {
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    account->setAddress("http://tracker.example.com/");
    account->setSSLEnabled(false);
    account->usernamePasswordAuthentication().setUsername("ada");
    const ZVDictionary dictionary = account->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at("KDIntegrationAddress"), ZVValue("tracker.example.com"));
    EXPECT_EQ(dictionary.at("KDIntegrationUseSSL"), ZVValue(false));
    EXPECT_EQ(dictionary.at("KDIntegrationClass"), ZVValue("Norvo.ZVTestAddressBasedIntegration"));

    keychain.savePassword("s3cret", "ada", "tracker.example.com");
    auto read = ZVIntegration::integrationWithDictionary(dictionary);
    auto* address = dynamic_cast<ZVTestAddressBasedIntegration*>(read.get());
    ASSERT_NE(address, nullptr);
    EXPECT_EQ(address->address(), "tracker.example.com");
    EXPECT_FALSE(address->isSSLEnabled());
    EXPECT_EQ(address->integrationID(), account->integrationID());
    // The stored address keyed the secret while the credential was read.
    EXPECT_EQ(address->usernamePasswordAuthentication().password(), "s3cret");
}

TEST_F(AddressBasedIntegrationTests, OldDictionaryIsCleanedReadsSSLOffWithoutItsKeyAndNamesAnUnnamedAccount) {
    const ZVDictionary old{{"KDIntegrationClass", "Norvo.ZVTestAddressBasedIntegration"},
                           {"KDIntegrationName", ""},
                           {"KDIntegrationAddress", "https://old.example.com/"}};
    auto read = std::dynamic_pointer_cast<ZVTestAddressBasedIntegration>(ZVIntegration::integrationWithDictionary(old));
    ASSERT_NE(read, nullptr);
    EXPECT_FALSE(read->isSSLEnabled());
    EXPECT_EQ(read->address(), "old.example.com");
    EXPECT_EQ(read->name(), "Address Test (old.example.com)");
    // The credential was made from the address as stored, before cleaning.
    EXPECT_EQ(read->authentication()->accountInformation(), "https://old.example.com/");
}

}  // namespace
