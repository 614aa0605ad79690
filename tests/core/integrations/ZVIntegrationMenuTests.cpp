#include <string>
#include <vector>

#include "core/integrations/IntegrationTestFixture.h"

namespace {

std::vector<std::string> titles(const ZVMenu& menu) {
    std::vector<std::string> result;
    for (const auto& item : menu.items) result.push_back(item->isSeparator ? "---" : item->title);
    return result;
}

class IntegrationMenuTests : public IntegrationTestFixture {
protected:
    RecordingTarget target;
};

TEST_F(IntegrationMenuTests, AccountWithoutProjectsShowsNoProjectsDisabledThenItsUtilityItems) {
    auto account = ZVIntegration::makeNew<ZVTestIntegration>();
    auto bare = account->integrationMenu(&target, nullptr);
    EXPECT_EQ(titles(*bare), (std::vector<std::string>{"No Projects"}));
    EXPECT_EQ(bare->items[0]->action, "absurdium");
    EXPECT_FALSE(bare->items[0]->isEnabled());

    auto full = account->integrationMenu(&target, nullptr, true);
    EXPECT_EQ(titles(*full), (std::vector<std::string>{"No Projects", "---", "Synchronize Now", "Post All Times",
                                                       "Edit Account...", "Remove Account..."}));
}

TEST_F(IntegrationMenuTests, ProjectsAreListedWithTheSelectedOneOnAndAlternatePostingItems) {
    auto account = ZVIntegration::makeNew<ZVTestIntegration>();
    auto timed = makeNode("Timed", "1", 90);
    auto idle = makeNode("Idle", "2");
    auto branch = makeNode("Branch", "3");
    branch->addSubproject(makeNode("Leaf", "3", 5, "a"));
    account->addProject(timed);
    account->addProject(idle);
    account->addProject(branch);

    auto menu = account->integrationMenu(&target, idle);
    ASSERT_EQ(menu->size(), 4u);
    EXPECT_EQ(menu->items[0]->representedProject(), timed);
    EXPECT_EQ(menu->items[0]->state, ZVMenuItem::State::off);
    EXPECT_TRUE(menu->items[1]->isAlternate);
    EXPECT_EQ(menu->items[1]->title, "Post time for 'Timed'");
    EXPECT_EQ(menu->items[1]->representedProject(), timed);
    EXPECT_EQ(menu->items[2]->representedProject(), idle);
    EXPECT_EQ(menu->items[2]->state, ZVMenuItem::State::on);
    EXPECT_EQ(menu->items[3]->title, "Branch (1)");
    ASSERT_NE(menu->items[3]->submenu, nullptr);

    menu->items[2]->perform();
    ASSERT_EQ(target.selected.size(), 1u);
    EXPECT_EQ(target.selected[0], idle);
}

TEST_F(IntegrationMenuTests, UtilityItemsReachTheAccountAndTheTarget) {
    auto account = addedAccount();
    account->addProject(makeNode("Timed", "1", 90));
    auto menu = account->integrationMenu(&target, nullptr, true);
    // The menu made lazily is the same menu.
    const ZVSubmenu lazy = account->lazyIntegrationMenu(&target, nullptr, true);
    EXPECT_FALSE(lazy.isBuilt());
    EXPECT_EQ(titles(*lazy), titles(*menu));

    ZVMenuItem* synchronize = menu->itemWithTitle("Synchronize Now");
    ASSERT_NE(synchronize, nullptr);
    const int before = account->synchronizeCount;
    synchronize->perform();
    EXPECT_EQ(account->synchronizeCount, before + 1);

    ZVMenuItem* edit = menu->itemWithTitle("Edit Account...");
    ASSERT_NE(edit, nullptr);
    edit->perform();
    EXPECT_EQ(target.actions, (std::vector<std::string>{"_editAccount:"}));
    EXPECT_EQ(target.edited, account);

    // Without an installed handler "Post All Times" shows disabled.
    EXPECT_FALSE(menu->itemWithTitle("Post All Times")->isEnabled());
    std::shared_ptr<ZVIntegration> posted;
    ZVIntegration::setPostAllTimesHandler([&](const std::shared_ptr<ZVIntegration>& which) { posted = which; });
    auto withHandler = account->integrationMenu(&target, nullptr, true);
    withHandler->itemWithTitle("Post All Times")->perform();
    ZVIntegration::setPostAllTimesHandler({});
    EXPECT_EQ(posted, account);
}

TEST_F(IntegrationMenuTests, RemoveAccountAsksAndOnlyRemoveRemoves) {
    auto account = addedAccount();
    auto menu = account->integrationMenu(&target, nullptr, true);
    ZVMenuItem* remove = menu->itemWithTitle("Remove Account...");
    ASSERT_NE(remove, nullptr);

    ui.answerWith("Cancel");
    remove->perform();
    ASSERT_EQ(ui.alerts().size(), 1u);
    EXPECT_EQ(ui.alerts()[0].messageText, "Do you really want to remove account 'My Test Account'?");
    EXPECT_EQ(ui.alerts()[0].informativeText, "All recorded times will be discarded. This action cannot be undone.");
    EXPECT_EQ(ui.alerts()[0].buttons, (std::vector<std::string>{"Cancel", "Remove"}));
    EXPECT_EQ(ZVIntegrationCenter::shared().integrations().size(), 1u);

    ui.answerWith("Remove");
    remove->perform();
    EXPECT_TRUE(ZVIntegrationCenter::shared().integrations().empty());
    EXPECT_FALSE(ZVIntegrationCenter::shared().readIntegrationsFromDisk().contains(account->integrationID()));
}

}  // namespace

TEST_F(IntegrationMenuTests, ABranchBuildsItsSubmenuAtTheFirstLookAndShowsTheTreeOfThatMoment) {
    auto account = ZVIntegration::makeNew<ZVTestIntegration>();
    auto branch = makeNode("Branch", "3");
    auto leaf = makeNode("Leaf", "3", 5, "a");
    branch->addSubproject(leaf);
    account->addProject(branch);

    auto menu = account->integrationMenu(&target, leaf);
    const ZVSubmenu& submenu = menu->items[0]->submenu;
    ASSERT_TRUE(submenu);
    EXPECT_FALSE(submenu.isBuilt()) << "a closed branch costs no items";
    EXPECT_TRUE(menu->items[0]->isEnabled()) << "a branch with an unbuilt submenu still opens";

    branch->addSubproject(makeNode("Later", "3", 0, "b"));
    EXPECT_EQ(titles(*submenu), (std::vector<std::string>{"Leaf \u2014 00:00:05", "Post time for 'Leaf'", "Later \u2014 00:00:00"}));
    EXPECT_TRUE(submenu.isBuilt());
    EXPECT_EQ(submenu->items[0]->state, ZVMenuItem::State::on) << "the selected leaf is marked inside the branch";

    // Copies share what was built: the renderer's copy and the model agree.
    const ZVSubmenu copy = submenu;
    branch->addSubproject(makeNode("Too Late", "3", 0, "c"));
    EXPECT_EQ(copy->size(), 3u);
    EXPECT_EQ(copy.menu().get(), submenu.menu().get());
}

