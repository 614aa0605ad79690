#include "app/ZVMenuManager.h"

#include <QGuiApplication>

#include "ui_elements/ZVKeyCombo.h"

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/posting/ZVTimePosting.h"
#include "core/ui/ZVMenu.h"

namespace {

// A command's title with the hot key that the user set for it, in the
// column where menus show keys.
std::string withHotKey(const std::string& title, const char* autosaveName) {
    const QString keys = ZVKeyCombo::load(QString::fromUtf8(autosaveName)).text();
    return keys.isEmpty() ? title : title + "\t" + keys.toStdString();
}

std::string L(const char* english) { return ZVLocalizedString(english); }

std::shared_ptr<ZVMenuItem> disabledItem(const std::string& title) {
    auto item = std::make_shared<ZVMenuItem>(title);
    item->enabled = false;
    return item;
}

std::shared_ptr<ZVMenuItem> commandItem(const std::string& title, const std::string& action,
                                        std::function<void()> command) {
    return std::make_shared<ZVMenuItem>(title, action, [command = std::move(command)](const ZVMenuItem&) { command(); });
}

// What stands where projects would, while the database is still read.
std::shared_ptr<ZVMenuItem> loadingItem() { return disabledItem(L("Loading projects…")); }

bool canPostTime(const std::shared_ptr<ZVIntegrationProject>& project) {
    auto integration = project ? project->integration() : nullptr;
    return integration && integration->canPostTime();
}

}  // namespace

ZVMenuManager& ZVMenuManager::shared() {
    static ZVMenuManager manager;
    return manager;
}

ZVApplicationCommands& ZVMenuManager::_requiredCommands() const {
    if (!_commands) ZVFatalError("The menu manager has no application commands");
    return *_commands;
}

std::shared_ptr<ZVMenu> ZVMenuManager::applicationMenu(const ApplicationMenuVisibility& visibility) const {
    ZVApplicationCommands& commands = _requiredCommands();
    auto& center = ZVIntegrationCenter::shared();
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    const auto currentProject = center.currentProject();
    auto menu = std::make_shared<ZVMenu>();

    if (visibility.showTimerActions) {
        menu->addItem(commandItem(withHotKey(heartBeat.isBeating() ? L("Stop") : L("Start"), "KeyboardShortcut"),
                                  "toggleTimer",
                                  [] { ZVActionCenter::shared().toggleTimer(); }));
        menu->addItem(commandItem(L("Reset Timer..."), "resetTimer", [] { ZVActionCenter::shared().resetTimer(); }));
        menu->addSeparator();
    }
    const bool loading = !center.isLoaded();
    menu->addItem(loading ? loadingItem()
                          : disabledItem(ZVLocalizedFormat("Current Project: %@",
                                                           {currentProject ? currentProject->name() : L("(none)")})));
    if (visibility.showTimerActions && canPostTime(currentProject)) {
        menu->addItem(commandItem(withHotKey(L("Post time of current project"), "PostTimeShortcut"), "postTime",
                                  [&commands, currentProject] {
            commands.timeEntryTextHasChanged();
            ZVTimePosting::postTime(*currentProject);
        }));
    }
    menu->addSeparator();

    if (visibility.showRecentProjects) {
        auto item = std::make_shared<ZVMenuItem>(L("Recent Projects"));
        item->submenu = std::make_shared<ZVMenu>(L("Recent Projects"));
        for (auto& recent : recentProjectsMenuItems(commands.projectListTarget())) item->submenu->addItem(recent);
        menu->addItem(item);
        menu->addSeparator();
    }

    if (visibility.showAllProjects) {
        ZVIntegrationProjectMenuItemTarget* target = commands.projectListTarget();
        if (loading) {
            menu->addItem(loadingItem());
        } else {
            auto local = std::make_shared<ZVMenuItem>(L("Projects"));
            local->submenu = ZVNorvoIntegration::sharedIntegration()->lazyIntegrationMenu(target, currentProject, true);
            menu->addItem(local);
            menu->addSeparator();
            const auto integrations = center.integrations();
            for (const auto& integration : integrations) {
                auto item = std::make_shared<ZVMenuItem>(integration->name());
                item->submenu = integration->lazyIntegrationMenu(target, currentProject, true);
                item->representedObject = integration;
                menu->addItem(item);
            }
            if (integrations.empty()) menu->addItem(disabledItem(L("No Accounts")));
        }
        menu->addItem(commandItem(L("Add Account..."), "addIntegration", [&commands] { commands.addIntegration(); }));
        menu->addSeparator();
    }

    if (visibility.showTimerActions) {
        if (currentProject) {
            menu->addItem(commandItem(L("Round Timer..."), "showTimeRounding",
                                      [currentProject] { ZVActionCenter::shared().roundTime(currentProject); }));
            menu->addItem(commandItem(L("Edit Time..."), "showTimeEditing",
                                      [] { ZVActionCenter::shared().showTimeEditing(); }));
        }
        menu->addSeparator();
    }

    menu->addItem(commandItem(L("Show Main Window"), "showTimerWindow", [&commands] { commands.showTimerWindow(); }));
    menu->addSeparator();
    menu->addItem(commandItem(L("About Norvo"), "about", [&commands] { commands.showAbout(); }));
    // The debug tools are for a user who was asked for a log: they show
    // when Shift is held as the menu opens.
    if (QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ShiftModifier)) {
        auto debug = std::make_shared<ZVMenuItem>(L("Debug"));
        debug->submenu = commands.debugMenu();
        menu->addItem(debug);
    }
    menu->addItem(commandItem(L("Release Notes"), "showReleaseNotes", [&commands] { commands.showReleaseNotes(); }));
    menu->addItem(commandItem(L("Norvo Help"), "showHelp", [&commands] { commands.showHelp(); }));
    menu->addSeparator();
    menu->addItem(commandItem(L("Preferences..."), "showPreferences", [&commands] { commands.showPreferences(); }));
    if (visibility.showQuitItem) {
        menu->addSeparator();
        menu->addItem(commandItem(L("Quit Norvo"), "terminate", [&commands] { commands.terminate(); }));
    }
    return menu;
}

std::shared_ptr<ZVMenu> ZVMenuManager::actionMenu() const {
    ZVApplicationCommands& commands = _requiredCommands();
    auto menu = std::make_shared<ZVMenu>();
    if (!ZVIntegrationCenter::shared().isLoaded()) {
        menu->addItem(loadingItem());
        return menu;
    }
    const auto project = ZVIntegrationCenter::shared().currentProject();
    if (!project) {
        menu->addItem(disabledItem(L("No Project Selected")));
        return menu;
    }
    auto& actions = ZVActionCenter::shared();
    menu->addItem(commandItem(ZVHeartBeat::sharedHeartBeat().isBeating() ? L("Stop Timer") : L("Start Timer"),
                              "toggleTimer", [] { ZVActionCenter::shared().toggleTimer(); }));
    menu->addItem(commandItem(L("Reset Timer..."), "resetTimer", [] { ZVActionCenter::shared().resetTimer(); }));
    menu->addSeparator();

    struct TimeChange {
        const char* title;
        ZVTimeAction action;
        ZVTimeActionDirection direction;
        bool alternate;
    };
    const TimeChange changes[] = {
        {ZVLocalizable("Move Time to Project..."), ZVTimeAction::move, ZVTimeActionDirection::fromCurrentProject, false},
        {ZVLocalizable("Move Time From Project..."), ZVTimeAction::move, ZVTimeActionDirection::toCurrentProject, true},
        {ZVLocalizable("Copy Time to Project..."), ZVTimeAction::copy, ZVTimeActionDirection::fromCurrentProject, false},
        {ZVLocalizable("Copy Time From Project..."), ZVTimeAction::copy, ZVTimeActionDirection::toCurrentProject, true},
    };
    for (const TimeChange& change : changes) {
        auto item = commandItem(L(change.title), "changeTime", [&actions, change] {
            actions.changeTime(change.action, change.direction);
        });
        item->isAlternate = change.alternate;
        menu->addItem(item);
    }
    menu->addSeparator();
    menu->addItem(commandItem(L("Round Time..."), "showTimeRounding",
                              [project] { ZVActionCenter::shared().roundTime(project); }));
    menu->addItem(commandItem(L("Edit Time..."), "showTimeEditing", [] { ZVActionCenter::shared().showTimeEditing(); }));
    if (canPostTime(project) && project->time() != 0) {
        menu->addItem(commandItem(L("Post Time..."), "postTime", [&commands, project] {
            commands.timeEntryTextHasChanged();
            ZVTimePosting::postTime(*project);
        }));
    }
    std::size_t postable = 0;
    for (const auto& integration : ZVIntegrationCenter::shared().integrations())
        if (integration->canPostTime()) postable += integration->projectsWithNonZeroTime().size();
    if (postable > 0)
        menu->addItem(commandItem(L("Post All Times..."), "postAllTimes", [] { ZVActionCenter::shared().postAllTimes(); }));
    if (commands.canSendTimeToLedgrin()) {
        menu->addSeparator();
        menu->addItem(commandItem(L("Send Time to Ledgrin 2…"), "sendTimeToLedgrin2",
                                  [&commands] { commands.sendTimeToLedgrin(); }));
    }
    return menu;
}

std::vector<std::shared_ptr<ZVMenuItem>> ZVMenuManager::recentProjectsMenuItems(
    ZVIntegrationProjectMenuItemTarget* target) const {
    auto& center = ZVIntegrationCenter::shared();
    const auto selected = center.currentProject();
    std::vector<std::shared_ptr<ZVMenuItem>> items;
    if (!center.isLoaded()) return {loadingItem()};
    for (const auto& project : center.recentProjects()) items.push_back(project->menuItem(target, selected));
    if (items.empty()) items.push_back(disabledItem(L("No Recent Projects")));
    return items;
}

std::vector<std::shared_ptr<ZVMenuItem>> ZVMenuManager::recentProjectsMenuItems() const {
    return recentProjectsMenuItems(_requiredCommands().projectListTarget());
}
