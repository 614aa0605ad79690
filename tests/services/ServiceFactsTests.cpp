#include <gtest/gtest.h>

#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

namespace {

struct ServiceFacts {
    std::function<std::shared_ptr<ZVAddressBasedIntegration>()> make;
    const char* className;
    const char* identifier;
    const char* name;
    ZVAuthenticationType authentication;
    ZVSSLSupport SSL;
    bool hasHardcodedAddress;
    const char* setupView;
    const char* placeholder;
};

template <class T>
std::function<std::shared_ptr<ZVAddressBasedIntegration>()> maker() {
    return [] { return ZVIntegration::makeNew<T>(); };
}

class ServiceFactsTests : public ::testing::TestWithParam<ServiceFacts> {
protected:
    TemporaryHome home;
    InMemoryKeychain keychain;
};

TEST_P(ServiceFactsTests, MatchTheTableOfServices) {
    const ServiceFacts& facts = GetParam();
    const auto account = facts.make();

    EXPECT_EQ(account->className(), facts.className);
    EXPECT_EQ(account->integrationIdentifier(), facts.identifier);
    EXPECT_EQ(account->integrationName(), facts.name);
    EXPECT_EQ(account->authenticationType(), facts.authentication);
    EXPECT_EQ(account->SSLSupport(), facts.SSL);
    EXPECT_EQ(account->hasHardcodedAddress(), facts.hasHardcodedAddress);
    EXPECT_EQ(account->additionalSetupViewNibName(), std::optional<std::string>(facts.setupView));
    EXPECT_EQ(account->addressPlaceholder(), facts.placeholder);
    EXPECT_EQ(account->usernameLabel(), "Username");
    EXPECT_TRUE(account->canPostEmptyTitle());
    EXPECT_TRUE(account->canPostTime());
    EXPECT_EQ(account->name(), std::string("My ") + facts.name + " Account");
    EXPECT_NO_THROW(account->usernamePasswordAuthentication());
}

TEST_P(ServiceFactsTests, AreInTheListOfServicesAUserCanAdd) {
    const ServiceFacts& facts = GetParam();
    const auto classes = ZVIntegrationRegistry::availableIntegrationClasses();
    const auto found = std::find_if(classes.begin(), classes.end(),
                                    [&](const auto& entry) { return entry.className == facts.className; });
    ASSERT_NE(found, classes.end());
    EXPECT_EQ(found->integrationName, facts.name);
    EXPECT_EQ(found->makeNew()->className(), facts.className);
}

TEST_P(ServiceFactsTests, ComeBackFromTheirStoredClassName) {
    const ServiceFacts& facts = GetParam();
    auto account = facts.make();
    if (!account->hasHardcodedAddress()) account->setAddress("server.example.com");
    ZVDictionary dictionary = account->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string(facts.className);

    const auto restored = ZVIntegration::integrationWithDictionary(dictionary);

    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->className(), facts.className);
    EXPECT_EQ(restored->integrationID(), account->integrationID());
}

INSTANTIATE_TEST_SUITE_P(
    Services, ServiceFactsTests,
    ::testing::Values(ServiceFacts{maker<ZVGenericAddressBasedIntegration>(), "Norvo.ZVGenericAddressBasedIntegration",
                                   "com.tesselwick.norvo.generic", "Generic", ZVAuthenticationType::usernamePassword,
                                   ZVSSLSupport::optional, false, "Generic", "Your URL Without Trailing /"},
                      ServiceFacts{maker<ZVJIRAIntegration>(), "Norvo.ZVJIRAIntegration", "com.tesselwick.norvo.jira",
                                   "JIRA", ZVAuthenticationType::usernamePassword, ZVSSLSupport::optional, false, "JIRA",
                                   "jira.example.com/jira"},
                      ServiceFacts{maker<ZVKashflowIntegration>(), "Norvo.ZVKashflowIntegration",
                                   "com.tesselwick.norvo.kashflow", "KashFlow", ZVAuthenticationType::usernamePassword,
                                   ZVSSLSupport::mandatory, true, "Kashflow", "securedwebapp.com"}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(KashflowFacts, AlwaysUsesHTTPSOnItsFixedHost) {
    TemporaryHome home;
    InMemoryKeychain keychain;
    auto account = ZVIntegration::makeNew<ZVKashflowIntegration>();
    account->setSSLEnabled(false);
    EXPECT_EQ(account->URLScheme(), "https");
    EXPECT_EQ(account->accountIdentifier(), "securedwebapp.com");
}

}  // namespace
