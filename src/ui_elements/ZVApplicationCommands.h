#pragma once

#include <memory>

class ZVIntegration;
class ZVIntegrationProjectMenuItemTarget;
class ZVMenu;

/// The commands of the application delegate that menus and hot keys reach.
class ZVApplicationCommands {
public:
    virtual ~ZVApplicationCommands() = default;

    virtual void showTimerWindow() = 0;
    virtual void addIntegration() = 0;
    virtual void editIntegration(const std::shared_ptr<ZVIntegration>& integration) = 0;
    virtual void manageNorvoProjects() = 0;
    virtual void showAbout() = 0;
    virtual void showPreferences() = 0;
    virtual void showHelp() = 0;
    virtual void showReleaseNotes() = 0;
    virtual void showQuickSearch() = 0;
    virtual void terminate() = 0;
    /// Joins the current task field's text to the log of the current project.
    virtual void timeEntryTextHasChanged() = 0;
    /// The target of every project menu: the main window's project picker.
    virtual ZVIntegrationProjectMenuItemTarget* projectListTarget() = 0;
    /// The debug menu, a new copy at each call.
    virtual std::shared_ptr<ZVMenu> debugMenu() = 0;
    /// Whether the sibling accounting application can take time.
    virtual bool canSendTimeToLedgrin() { return false; }
    virtual void sendTimeToLedgrin() {}
};
