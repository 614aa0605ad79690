#pragma once

#include <QPushButton>
#include <memory>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVMenu.h"

class QMenu;
class ZVApplicationCommands;

/// The main window's project picker and the target of every project menu.
/// Its title is the current project's name, its tool tip the project's
/// path. Its menu is built anew at each opening and whenever an account's
/// projects change: the local projects, the accounts, "Add Account...".
class ZVProjectPopUpButton final : public QPushButton, public ZVIntegrationProjectMenuItemTarget {
    Q_OBJECT
public:
    explicit ZVProjectPopUpButton(ZVApplicationCommands& commands, QWidget* parent = nullptr);
    ~ZVProjectPopUpButton() override;

    /// The menu as it is built now.
    std::shared_ptr<ZVMenu> recreatedMenu();
    QMenu* projectMenu() const { return _menu; }
    /// Title and tool tip from the current project.
    void updateTitle();

    void selectProject(const ZVMenuItem& item) override;
    bool respondsToMenuAction(const std::string& action) const override;
    void performMenuAction(const std::string& action, const ZVMenuItem& item) override;

private:
    ZVApplicationCommands& _commands;
    QMenu* _menu = nullptr;
    std::vector<ZVNotificationCenter::Token> _observations;
};
