#pragma once

#include <memory>

#include "ui_elements/ZVApplicationCommands.h"
#include "core/ui/ZVMenu.h"

/// Application commands that do nothing: for tests and benchmarks of parts
/// that need a delegate but none of its windows. Override what you watch.
class IgnoredCommands : public ZVApplicationCommands {
public:
    void showTimerWindow() override {}
    void addIntegration() override {}
    void editIntegration(const std::shared_ptr<ZVIntegration>&) override {}
    void manageNorvoProjects() override {}
    void showAbout() override {}
    void showPreferences() override {}
    void showHelp() override {}
    void showReleaseNotes() override {}
    void showQuickSearch() override {}
    void terminate() override {}
    void timeEntryTextHasChanged() override {}
    ZVIntegrationProjectMenuItemTarget* projectListTarget() override { return nullptr; }
    std::shared_ptr<ZVMenu> debugMenu() override { return std::make_shared<ZVMenu>(); }
};
