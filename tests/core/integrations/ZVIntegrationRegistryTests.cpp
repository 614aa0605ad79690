#include <gtest/gtest.h>

#include <set>

#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

namespace {

TEST(IntegrationRegistry, TableHoldsEveryServiceOnceUnderItsOwnIdentifier) {
    const auto& services = ZVIntegrationRegistry::services();
    EXPECT_EQ(services.size(), 50u);
    std::set<std::string> classNames, identifiers;
    for (const auto& service : services) {
        SCOPED_TRACE(service.className);
        EXPECT_TRUE(classNames.insert(service.className).second);
        EXPECT_TRUE(identifiers.insert(service.identifier).second);
        EXPECT_TRUE(std::string(service.className).starts_with("Norvo.ZV"));
        const std::string identifier = service.identifier;
        EXPECT_TRUE(identifier.starts_with("com.tesselwick.norvo.") || identifier.starts_with("com.ostrand.norvo."));
    }
}

TEST(IntegrationRegistry, RowsCarryTheFactsOfTheirService) {
    struct Case {
        const char* className;
        const char* identifier;
        const char* name;
        ZVAuthenticationType authentication;
        ZVSSLSupport ssl;
        bool fixed;
        const char* label;
        const char* view;
        bool canPostEmptyTitle;
    };
    using A = ZVAuthenticationType;
    using S = ZVSSLSupport;
    const Case cases[] = {
        {"Norvo.ZVJIRAIntegration", "com.tesselwick.norvo.jira", "JIRA", A::usernamePassword, S::optional, false,
         nullptr, "JIRA", true},
        {"Norvo.ZVTeamboxIntegration", "com.tesselwick.norvo.teambox", "Redbooth", A::oAuth2, S::mandatory, false,
         nullptr, nullptr, true},
        {"Norvo.ZVKimaiDownloader", "com.ostrand.norvo.kimai", "Kimai", A::usernamePassword, S::optional, false,
         nullptr, nullptr, true},
        {"Norvo.ZVTogglIntegration", "com.tesselwick.norvo.toggl", "Toggl", A::apiToken, S::mandatory, true, nullptr,
         "Assembla", true},
        {"Norvo.ZVTriggerAppIntegration", "com.tesselwick.norvo.triggerapp", "TriggerApp", A::usernameAPIToken,
         S::mandatory, true, "User Token", nullptr, true},
        {"Norvo.ZVWorkflowMaxIntegration", "com.tesselwick.norvo.workflowmax", "WorkflowMax", A::usernameAPIToken,
         S::none, true, "Email", "WorkflowMax", true},
        {"Norvo.ZVTSheetsIntegration", "com.tesselwick.norvo.tsheets", "TSheets", A::usernamePasswordAPIToken,
         S::optional, false, nullptr, nullptr, true},
        {"Norvo.ZVUnfuddleIntegration", "com.tesselwick.norvo.unfuddle", "Unfuddle", A::usernamePassword,
         S::optional, false, nullptr, nullptr, false},
        {"Norvo.ZVLiquidPlannerIntegration", "com.tesselwick.norvo.liquidplanner", "LiquidPlanner",
         A::usernamePassword, S::mandatory, true, "Email", nullptr, false},
        {"Norvo.ZVRoninIntegration", "com.tesselwick.norvo.ronin", "Ronin", A::apiToken, S::mandatory, false, nullptr,
         nullptr, false},
    };
    auto same = [](const char* a, const char* b) { return (!a && !b) || (a && b && std::string(a) == b); };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.className);
        const ZVIntegrationServiceInfo* info = ZVIntegrationRegistry::serviceForClassName(c.className);
        ASSERT_NE(info, nullptr);
        EXPECT_STREQ(info->identifier, c.identifier);
        EXPECT_STREQ(info->name, c.name);
        EXPECT_EQ(info->authenticationType, c.authentication);
        EXPECT_EQ(info->sslSupport, c.ssl);
        EXPECT_EQ(info->hasHardcodedAddress, c.fixed);
        EXPECT_TRUE(same(info->usernameLabel, c.label));
        EXPECT_TRUE(same(info->setupViewName, c.view));
        EXPECT_EQ(info->canPostEmptyTitle, c.canPostEmptyTitle);
    }
    EXPECT_EQ(ZVIntegrationRegistry::serviceForClassName("Norvo.ZVNorvoIntegration"), nullptr);
}

TEST(IntegrationRegistry, EveryBuiltClassMakesAccountsOfItsOwnName) {
    TemporaryHome home;
    InMemoryKeychain keychain;
    for (const auto& integrationClass : ZVIntegrationRegistry::integrationClasses()) {
        SCOPED_TRACE(integrationClass.className);
        auto account = integrationClass.makeNew();
        ASSERT_NE(account, nullptr);
        EXPECT_EQ(account->className(), integrationClass.className);
        EXPECT_EQ(account->integrationName(), integrationClass.integrationName);
        EXPECT_EQ(account->integrationIdentifier(), integrationClass.integrationIdentifier);
        EXPECT_EQ(account->name(), "My " + integrationClass.integrationName + " Account");
        const bool needsCredential = account->authenticationType() != ZVAuthenticationType::none &&
                                     account->authenticationType() != ZVAuthenticationType::other;
        EXPECT_EQ(account->authentication() != nullptr, needsCredential);
    }
}

TEST(IntegrationRegistry, AvailableClassesAreSortedByNameIgnoringCaseAndTestClassesLeaveWithTheirScope) {
    {
        ZVIntegrationRegistry::ScopedTestClass lower{ZVIntegrationClass::of<ZVTestIntegration>(
            "Norvo.ZVLowerTestIntegration", "com.tesselwick.norvo.lowertest", "aardvark")};
        ZVIntegrationRegistry::ScopedTestClass upper{ZVIntegrationClass::of<ZVTestIntegration>(
            "Norvo.ZVUpperTestIntegration", "com.tesselwick.norvo.uppertest", "Abacus")};
        ZVIntegrationRegistry::ScopedTestClass last{ZVIntegrationClass::of<ZVTestIntegration>(
            "Norvo.ZVLastTestIntegration", "com.tesselwick.norvo.lasttest", "zzz")};

        const auto classes = ZVIntegrationRegistry::availableIntegrationClasses();
        ASSERT_GE(classes.size(), 3u);
        EXPECT_EQ(classes.front().integrationName, "aardvark");
        EXPECT_EQ(classes[1].integrationName, "Abacus");
        EXPECT_EQ(classes.back().integrationName, "zzz");
        for (std::size_t i = 1; i < classes.size(); ++i) {
            std::string previous = classes[i - 1].integrationName, current = classes[i].integrationName;
            for (auto* text : {&previous, &current})
                for (auto& character : *text) character = static_cast<char>(std::tolower(character));
            EXPECT_LE(previous, current);
        }
        EXPECT_TRUE(ZVIntegrationRegistry::classNamed("Norvo.ZVLastTestIntegration").has_value());
    }
    EXPECT_FALSE(ZVIntegrationRegistry::classNamed("Norvo.ZVLastTestIntegration").has_value());
}

}  // namespace
