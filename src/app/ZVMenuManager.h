#pragma once

#include <memory>
#include <vector>

class ZVApplicationCommands;
class ZVIntegrationProjectMenuItemTarget;
class ZVMenu;
class ZVMenuItem;

/// Builds the application menu (dock, gear button, status item), the action
/// menu and the recent-projects items, anew at each request, so that they
/// always show the state of the moment.
class ZVMenuManager {
public:
    /// Which sections a menu wants.
    struct ApplicationMenuVisibility {
        bool showTimerActions = false;
        bool showRecentProjects = false;
        bool showAllProjects = false;
        bool showQuitItem = false;
    };

    static ZVMenuManager& shared();

    /// The delegate whose commands the menus run (not owned).
    void setCommands(ZVApplicationCommands* commands) { _commands = commands; }

    std::shared_ptr<ZVMenu> applicationMenu(const ApplicationMenuVisibility& visibility) const;
    std::shared_ptr<ZVMenu> actionMenu() const;
    /// The recent projects as items for the target, or one disabled "No Recent Projects".
    std::vector<std::shared_ptr<ZVMenuItem>> recentProjectsMenuItems(ZVIntegrationProjectMenuItemTarget* target) const;
    std::vector<std::shared_ptr<ZVMenuItem>> recentProjectsMenuItems() const;

private:
    ZVApplicationCommands& _requiredCommands() const;
    ZVApplicationCommands* _commands = nullptr;
};
