#include <gtest/gtest.h>

#include "core/integrations/IntegrationTestFixture.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/state/ZVNorvoApplicationStateProvider.h"

namespace {

class ZVNorvoApplicationStateProviderTest : public IntegrationTestFixture {
protected:
    std::string item(const std::string& name) const {
        for (const auto& candidate : provider.stateItems())
            if (candidate.name == name) return candidate.value;
        ADD_FAILURE() << "no item " << name;
        return {};
    }

    ZVNorvoApplicationStateProvider provider;
};

}  // namespace

TEST_F(ZVNorvoApplicationStateProviderTest, ItemsFollowTheBaseWithOnlyTheLocalAccountAndNoCurrentProject) {
    ZVIntegrationCenter::shared();
    const auto items = provider.stateItems();
    ASSERT_GE(items.size(), 4u);
    EXPECT_EQ(items.front().name, "Application");
    EXPECT_EQ(items[items.size() - 2].name, "Active Integrations");
    EXPECT_EQ(items.back().name, "Current Project");
    EXPECT_EQ(item("Active Integrations"), "\tNorvo.ZVNorvoIntegration '" +
                                               ZVNorvoIntegration::sharedIntegration()->name() +
                                               "' - project count: 0");
    EXPECT_EQ(item("Current Project"), "None");
}

TEST_F(ZVNorvoApplicationStateProviderTest, AccountsWithProjectCountsAndTheCurrentProjectWithItsTime) {
    auto account = addedAccount();
    account->setName("Work");
    auto project = ZVIntegrationProject::create("Website", "web");
    project->setIntegration(account);
    account->addProject(project);
    account->addProject(ZVIntegrationProject::create("Shop", "shop"));
    project->setTimeWithoutSaving(3725);
    ZVIntegrationCenter::shared().setCurrentProject(project);

    const std::string accounts = item("Active Integrations");
    EXPECT_NE(accounts.find("\n\tNorvo.ZVTestIntegration 'Work' - project count: 2"), std::string::npos) << accounts;
    EXPECT_EQ(item("Current Project"), "Project from Norvo.ZVTestIntegration 'Work' - 01:02:05");
}

TEST_F(ZVNorvoApplicationStateProviderTest, ReportNeverHoldsCredentials) {
    auto account = addedAccount();
    auto& credentials = account->usernamePasswordAuthentication();
    credentials.setUsername("alice");
    credentials.setPassword("s3cret-pass");
    account->save();
    provider.setPreferencesSource([] { return ZVDictionary{{"hourPrice", ZVValue(42.0)}}; });

    const std::string report = provider.stateReport();
    EXPECT_EQ(report.find("s3cret-pass"), std::string::npos) << report;
    EXPECT_EQ(report.find("alice"), std::string::npos) << report;
    EXPECT_NE(report.find("hourPrice = 42"), std::string::npos) << report;
    EXPECT_NE(report.find("Active Integrations:\n"), std::string::npos) << report;
}
