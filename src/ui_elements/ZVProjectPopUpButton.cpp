#include "ui_elements/ZVProjectPopUpButton.h"

#include <QMenu>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "ui_elements/ZVMenuRenderer.h"
#include "ui_elements/ZVQtLocalization.h"

ZVProjectPopUpButton::ZVProjectPopUpButton(ZVApplicationCommands& commands, QWidget* parent)
    : QPushButton(parent), _commands(commands) {
    setObjectName(QStringLiteral("projectListPopUpButton"));
    setFocusPolicy(Qt::NoFocus);
    _menu = new QMenu(this);
    setMenu(_menu);
    ZVMenuRenderer::rebuildOnOpening(*_menu, [this] {
        _menu->setMinimumWidth(width());
        return recreatedMenu();
    });
    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterCurrentProjectDidChangeNotification,
                                                      [this](const ZVNotification&) { updateTitle(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterDidLoadNotification,
                                                      [this](const ZVNotification&) { updateTitle(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationAvailableProjectsDidChange,
                                                      [this](const ZVNotification&) { updateTitle(); }));
    // A refresh may have renamed the current project on its server.
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidEndNotification,
                                                      [this](const ZVNotification&) { updateTitle(); }));
    updateTitle();
}

ZVProjectPopUpButton::~ZVProjectPopUpButton() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
}

void ZVProjectPopUpButton::updateTitle() {
    if (!ZVIntegrationCenter::shared().isLoaded()) {
        setText(ZVLocalizedQString("Loading projects…"));
        setToolTip(QString());
        return;
    }
    auto project = ZVIntegrationCenter::shared().currentProject();
    setText(project ? ZVPlainTitle(project->name()) : ZVLocalizedQString("No project selected"));
    setToolTip(project ? QString::fromStdString(project->fullProjectPath()) : QString());
}

std::shared_ptr<ZVMenu> ZVProjectPopUpButton::recreatedMenu() {
    auto& center = ZVIntegrationCenter::shared();
    const auto currentProject = center.currentProject();
    auto menu = std::make_shared<ZVMenu>();
    if (!center.isLoaded()) {
        auto loading = std::make_shared<ZVMenuItem>(ZVLocalizedString("Loading projects…"));
        loading->enabled = false;
        menu->addItem(loading);
        return menu;
    }
    auto local = std::make_shared<ZVMenuItem>(ZVLocalizedString("Projects"));
    local->submenu = ZVNorvoIntegration::sharedIntegration()->lazyIntegrationMenu(this, currentProject, true);
    menu->addItem(local);
    menu->addSeparator();
    const auto integrations = center.integrations();
    for (const auto& integration : integrations) {
        auto item = std::make_shared<ZVMenuItem>(integration->name());
        item->submenu = integration->lazyIntegrationMenu(this, currentProject, true);
        item->representedObject = integration;
        menu->addItem(item);
    }
    if (integrations.empty()) menu->addItem(ZVLocalizedString("No Accounts"), "absurdium");
    menu->addSeparator();
    menu->addItem(ZVLocalizedString("Add Account..."), "_addAccount",
                  [this](const ZVMenuItem&) { _commands.addIntegration(); });
    return menu;
}

void ZVProjectPopUpButton::selectProject(const ZVMenuItem& item) {
    auto project = item.representedProject();
    ZVLog([&] {
        auto integration = project ? project->integration() : nullptr;
        return "Selecting project " + (project ? project->description() : std::string("nil")) + " of " +
               (integration ? integration->name() : std::string("nil")) + " integration.";
    });
    ZVIntegrationCenter::shared().setCurrentProject(project);
}

bool ZVProjectPopUpButton::respondsToMenuAction(const std::string& action) const {
    return action == "_editAccount:" || action == "manageNorvoProjects:";
}

void ZVProjectPopUpButton::performMenuAction(const std::string& action, const ZVMenuItem& item) {
    if (action == "_editAccount:") {
        if (auto integration = item.representedIntegration()) _commands.editIntegration(integration);
    } else if (action == "manageNorvoProjects:") {
        _commands.manageNorvoProjects();
    }
}
