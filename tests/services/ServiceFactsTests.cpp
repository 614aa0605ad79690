#include <gtest/gtest.h>

#include <algorithm>

#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

namespace {

// The facts a user and the stored database meet, per service a user can add.
TEST(ServiceFactsTests, MatchTheTableAndComeBackFromTheirStoredClassName) {
    struct Facts {
        const char* className;
        const char* identifier;
        const char* name;
        ZVSSLSupport SSL;
        bool hasHardcodedAddress;
        const char* setupView;
        const char* placeholder;
    };
    const Facts table[] = {
        {"Norvo.ZVGenericAddressBasedIntegration", "com.tesselwick.norvo.generic", "Generic", ZVSSLSupport::optional,
         false, "Generic", "Your URL Without Trailing /"},
        {"Norvo.ZVAtTaskIntegration", "com.tesselwick.norvo.attask", "AtTask", ZVSSLSupport::optional, false, "AtTask",
         "<domain>.my.workfront.com"},
        {"Norvo.ZVJIRAIntegration", "com.tesselwick.norvo.jira", "JIRA", ZVSSLSupport::optional, false, "JIRA",
         "jira.example.com/jira"},
        {"Norvo.ZVKashflowIntegration", "com.tesselwick.norvo.kashflow", "KashFlow", ZVSSLSupport::mandatory, true,
         "Kashflow", "securedwebapp.com"},
    };
    TemporaryHome home;
    InMemoryKeychain keychain;
    const auto classes = ZVIntegrationRegistry::availableIntegrationClasses();
    for (const Facts& facts : table) {
        SCOPED_TRACE(facts.name);
        const auto row = std::find_if(classes.begin(), classes.end(),
                                      [&](const auto& entry) { return entry.className == facts.className; });
        ASSERT_NE(row, classes.end()) << "not in the list of services a user can add";
        // That an account of the row has the row's names is the registry's own test.
        EXPECT_EQ(row->integrationName, facts.name);
        EXPECT_EQ(row->integrationIdentifier, facts.identifier);
        const auto account = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(row->makeNew());
        ASSERT_NE(account, nullptr);
        EXPECT_EQ(account->authenticationType(), ZVAuthenticationType::usernamePassword);
        EXPECT_EQ(account->SSLSupport(), facts.SSL);
        EXPECT_EQ(account->hasHardcodedAddress(), facts.hasHardcodedAddress);
        EXPECT_EQ(account->additionalSetupViewNibName(), std::optional<std::string>(facts.setupView));
        EXPECT_EQ(account->addressPlaceholder(), facts.placeholder);
        EXPECT_EQ(account->usernameLabel(), "Username");
        EXPECT_TRUE(account->canPostEmptyTitle());
        EXPECT_TRUE(account->canPostTime());
        EXPECT_NO_THROW(account->usernamePasswordAuthentication());
        // A fixed host is the account's identifier and is always reached over https.
        if (account->hasHardcodedAddress()) {
            EXPECT_EQ(account->accountIdentifier(), facts.placeholder);
        } else {
            account->setAddress("server.example.com");
        }
        account->setSSLEnabled(false);
        EXPECT_EQ(account->URLScheme(), facts.SSL == ZVSSLSupport::mandatory ? "https" : "http");

        ZVDictionary dictionary = account->dictionaryRepresentation();
        dictionary["KDIntegrationClass"] = std::string(facts.className);
        const auto restored = ZVIntegration::integrationWithDictionary(dictionary);
        ASSERT_TRUE(restored);
        EXPECT_EQ(restored->className(), facts.className);
        EXPECT_EQ(restored->integrationID(), account->integrationID());
    }
}

}  // namespace
