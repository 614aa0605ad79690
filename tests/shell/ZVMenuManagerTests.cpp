#include <QPushButton>
#include <QTimer>

#include "IgnoredCommands.h"
#include "ShellTestEnvironment.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVMenuManager.h"
#include "app/ZVTimerViewController.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVKeyCombo.h"
#include "ui_elements/ZVProjectPopUpButton.h"
#include "ui_elements/ZVProjectSelectionAlert.h"

using namespace Qt::StringLiterals;

namespace {

class RecordingCommands : public IgnoredCommands, public ZVIntegrationProjectMenuItemTarget {
public:
    void showTimerWindow() override { ++windowShown; }
    void terminate() override { ++terminated; }
    ZVIntegrationProjectMenuItemTarget* projectListTarget() override { return this; }
    std::shared_ptr<ZVMenu> debugMenu() override {
        auto menu = std::make_shared<ZVMenu>();
        menu->addItem("Debug Logging", "toggleDebugLog", [](const ZVMenuItem&) {});
        return menu;
    }
    void selectProject(const ZVMenuItem& item) override {
        ZVIntegrationCenter::shared().setCurrentProject(item.representedProject());
    }

    int windowShown = 0;
    int terminated = 0;
};

class ZVMenuManagerTest : public ShellFixture {
protected:
    ZVMenuManagerTest() { ZVMenuManager::shared().setCommands(&commands); }
    ~ZVMenuManagerTest() override { ZVMenuManager::shared().setCommands(nullptr); }

    static constexpr ZVMenuManager::ApplicationMenuVisibility statusItem{true, true, true, true};
    static constexpr ZVMenuManager::ApplicationMenuVisibility gear{false, false, false, true};
    static constexpr ZVMenuManager::ApplicationMenuVisibility dock{true, true, true, false};

    RecordingCommands commands;
};

}  // namespace

TEST_F(ZVMenuManagerTest, StatusGearAndDockMenusWithoutProjectOrAccounts) {
    const auto menu = ZVMenuManager::shared().applicationMenu(statusItem);
    EXPECT_EQ(
        titles(*menu),
        "Start|Reset Timer...|-|Current Project: (none)|-|Recent Projects|-|Projects|-|No Accounts|Add "
        "Account...|-|-|Show Main Window|-|About Norvo|Release Notes|Norvo Help|-|Preferences...|-|Quit Norvo");
    EXPECT_FALSE(menu->itemWithTitle("Current Project: (none)")->isEnabled());
    EXPECT_FALSE(menu->itemWithTitle("No Accounts")->isEnabled());
    const auto& recents = menu->itemWithTitle("Recent Projects")->submenu;
    ASSERT_EQ(recents->size(), 1u);
    EXPECT_EQ(recents->items[0]->title, "No Recent Projects");
    EXPECT_FALSE(recents->items[0]->isEnabled());
    menu->itemWithTitle("Quit Norvo")->perform();
    EXPECT_EQ(commands.terminated, 1);
    const auto actions = ZVMenuManager::shared().actionMenu();
    EXPECT_EQ(titles(*actions), "No Project Selected");
    EXPECT_FALSE(actions->items[0]->isEnabled());
    // The gear and the dock show their sections only.
    const auto gearMenu = ZVMenuManager::shared().applicationMenu(gear);
    EXPECT_EQ(titles(*gearMenu),
              "Current Project: (none)|-|Show Main Window|-|About Norvo|Release Notes|Norvo "
              "Help|-|Preferences...|-|Quit Norvo");
    EXPECT_EQ(gearMenu->itemWithTitle("Debug"), nullptr) << "the debug tools wait for Shift";
    const auto dockMenu = ZVMenuManager::shared().applicationMenu(dock);
    EXPECT_EQ(dockMenu->itemWithTitle("Quit Norvo"), nullptr);
    EXPECT_NE(dockMenu->itemWithTitle("Start"), nullptr);
    // A hot key set for a command shows beside it.
    const ZVKeyCombo toggle{Qt::Key_T, Qt::ControlModifier | Qt::AltModifier};
    toggle.save(QStringLiteral("KeyboardShortcut"));
    EXPECT_EQ(ZVMenuManager::shared().applicationMenu(statusItem)->items[0]->title,
              "Start\t" + toggle.text().toStdString());
}

// While the database is read at start-up every place that shows projects
// says that they are loading, and none offers the hints of an empty start;
// once they are read the places show them.
TEST_F(ZVMenuManagerTest, EveryPlaceOfProjectsSaysTheyAreLoadingUntilTheDatabaseIsRead) {
    ZVIntegrationCenter::resetShared();
    ZVIntegrationCenter::loadSharedInBackground();
    ZVProjectPopUpButton selector(commands);
    ZVTimerViewController panel(commands);
    const std::string loading = "Loading projects…";

    const auto menu = ZVMenuManager::shared().applicationMenu(statusItem);
    EXPECT_EQ(titles(*menu), "Start|Reset Timer...|-|" + loading + "|-|Recent Projects|-|" + loading +
                                 "|Add Account...|-|-|Show Main Window|-|About Norvo|Release Notes|Norvo "
                                 "Help|-|Preferences...|-|Quit Norvo");
    EXPECT_FALSE(menu->itemWithTitle(loading)->isEnabled());
    EXPECT_EQ(titles(*menu->itemWithTitle("Recent Projects")->submenu), loading);
    EXPECT_EQ(titles(*ZVMenuManager::shared().actionMenu()), loading);
    EXPECT_EQ(titles(*selector.recreatedMenu()), loading);
    EXPECT_EQ(selector.text().toStdString(), loading);
    EXPECT_EQ(panel.searchField()->placeholderText().toStdString(), loading);
    EXPECT_TRUE(panel.searchField()->isReadOnly());

    ASSERT_TRUE(processEventsUntil([] { return ZVIntegrationCenter::shared().isLoaded(); }, 10000));
    EXPECT_EQ(titles(*ZVMenuManager::shared().actionMenu()), "No Project Selected");
    EXPECT_NE(ZVMenuManager::shared().applicationMenu(statusItem)->itemWithTitle("Current Project: (none)"), nullptr);
    EXPECT_EQ(selector.text(), u"No project selected"_s);
    EXPECT_EQ(panel.searchField()->placeholderText(), u"Search projects"_s);
    EXPECT_FALSE(panel.searchField()->isReadOnly());
}

TEST_F(ZVMenuManagerTest, LocalCurrentProjectHasRoundAndEditButNoPosting) {
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    project->setTimeWithoutSaving(600);
    ZVIntegrationCenter::shared().setCurrentProject(project);
    const auto menu = ZVMenuManager::shared().applicationMenu(statusItem);
    EXPECT_NE(menu->itemWithTitle("Current Project: Website"), nullptr);
    EXPECT_NE(menu->itemWithTitle("Round Timer..."), nullptr);
    EXPECT_NE(menu->itemWithTitle("Edit Time..."), nullptr);
    EXPECT_EQ(menu->itemWithTitle("Post time of current project"), nullptr);
    const auto actions = ZVMenuManager::shared().actionMenu();
    EXPECT_EQ(titles(*actions),
              "Start Timer|Reset Timer...|-|Move Time to Project...|Move Time From Project...|Copy Time to "
              "Project...|Copy Time From Project...|-|Round Time...|Edit Time...");
    EXPECT_FALSE(actions->items[3]->isAlternate);
    EXPECT_TRUE(actions->items[4]->isAlternate);
}

TEST_F(ZVMenuManagerTest, PostingItemsFollowTheTimeOfRemoteProjects) {
    auto account = addAccount("Jira");
    auto empty = addProject(account, "Empty");
    auto tracked = addProject(account, "Tracked");
    ZVIntegrationCenter::shared().setCurrentProject(empty);
    auto actions = ZVMenuManager::shared().actionMenu();
    EXPECT_EQ(actions->itemWithTitle("Post Time..."), nullptr) << "a project with time 0 has no post item";
    EXPECT_EQ(actions->itemWithTitle("Post All Times..."), nullptr);
    EXPECT_NE(ZVMenuManager::shared().applicationMenu(statusItem)->itemWithTitle("Post time of current project"),
              nullptr);
    tracked->setTimeWithoutSaving(90);
    actions = ZVMenuManager::shared().actionMenu();
    EXPECT_EQ(actions->itemWithTitle("Post Time..."), nullptr);
    EXPECT_NE(actions->itemWithTitle("Post All Times..."), nullptr) << "another project has time";
    const auto menu = ZVMenuManager::shared().applicationMenu(statusItem);
    const auto* accountItem = menu->itemWithTitle("Jira");
    ASSERT_NE(accountItem, nullptr);
    ASSERT_NE(accountItem->submenu, nullptr);
    EXPECT_EQ(menu->itemWithTitle("No Accounts"), nullptr);
}

TEST_F(ZVMenuManagerTest, RecentProjectsSelectThroughThePickerTarget) {
    auto first = addProject(ZVNorvoIntegration::sharedIntegration(), "First");
    auto second = addProject(ZVNorvoIntegration::sharedIntegration(), "Second");
    ZVIntegrationCenter::shared().setCurrentProject(first);
    ZVIntegrationCenter::shared().setCurrentProject(second);
    const auto items = ZVMenuManager::shared().recentProjectsMenuItems();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]->representedProject(), second);
    EXPECT_EQ(items[0]->state, ZVMenuItem::State::on);
    items[1]->perform();
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), first);
}

// The alert that asks for a project starts at the current one; a project
// chosen in its pull-down becomes the selected one while the alert stays
// up, and the caller reads it after the answer.
TEST_F(ZVMenuManagerTest, ProjectSelectionAlertKeepsTheChoiceForItsCaller) {
    auto website = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    auto jira = addAccount("Jira & Co");
    auto ticket = addProject(jira, "Ticket 7");
    ZVIntegrationCenter::shared().setCurrentProject(website);
    ZVProjectSelectionAlert alert;
    alert.setMessageText(u"Move time to which project?"_s);
    alert.setButtons({u"Move"_s, u"Cancel"_s});
    EXPECT_EQ(alert.projectSelectionPopUpButton()->text(), u"Website"_s);
    const auto menu = ZVProjectSelectionAlert::projectMenu(&alert, alert.selectedProject());
    EXPECT_EQ(titles(*menu), "Projects|-|Jira & Co");
    ZVMenuItem* item = itemOfProject(*menu->items[2]->submenu, ticket);
    ASSERT_NE(item, nullptr);
    QTimer::singleShot(0, &alert, [&] {
        item->perform();
        EXPECT_TRUE(alert.isVisible()) << "choosing a project leaves the alert up";
        alert.findChildren<QPushButton*>().back()->click();  // the last button made: "Cancel"
    });
    EXPECT_EQ(alert.runModal(), 1);
    EXPECT_EQ(alert.selectedProject(), ticket);
    EXPECT_EQ(alert.projectSelectionPopUpButton()->text(), u"Ticket 7"_s);
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), website) << "the caller decides what to do with it";
}
