#include "core/integrations/local/ZVNorvoIntegration.h"

#include <algorithm>

#include "ZVHelpers.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

namespace {
std::recursive_mutex sharedIntegrationLock;
std::shared_ptr<ZVNorvoIntegration> sharedLocalIntegration;

void showNameRefusal(const std::string& message) {
    ZVUserInterface::shared().runModalMessage(ZVLocalizedString(message),
                                              ZVLocalizedString("Please, choose a different name."));
}
}  // namespace

std::shared_ptr<ZVNorvoIntegration> ZVNorvoIntegration::sharedIntegration() {
    std::lock_guard guard(sharedIntegrationLock);
    if (sharedLocalIntegration) return sharedLocalIntegration;

    // Stored before its projects are read: a node read as the selected one
    // reaches the centre, which may ask for this account again.
    sharedLocalIntegration = makeNew<ZVNorvoIntegration>();
    const auto stored = ZVPreferences::shared().value(ZVNorvoIntegrationPreferencesKey);
    if (stored && stored->array()) {
        for (const ZVValue& value : *stored->array()) {
            if (const ZVDictionary* dictionary = value.dictionary())
                sharedLocalIntegration->_projects.push_back(
                    ZVIntegrationProject::createWithDictionary(*dictionary, sharedLocalIntegration));
        }
    }
    return sharedLocalIntegration;
}

void ZVNorvoIntegration::resetSharedIntegration() {
    std::lock_guard guard(sharedIntegrationLock);
    sharedLocalIntegration.reset();
}

std::string ZVNorvoIntegration::integrationName() const { return ZVLocalizedString("Projects"); }

void ZVNorvoIntegration::initialize() {
    setName(integrationName());
    setIntegrationID(ZVNorvoIntegrationID);
}

void ZVNorvoIntegration::save() {
    ZVLog([&] { return name() + " - saving."; });
    std::lock_guard guard(lock());
    ZVArray projects;
    projects.reserve(_projects.size());
    for (const auto& project : _projects) projects.emplace_back(project->dictionaryRepresentation());
    ZVPreferences::shared().perform(
        [&projects](ZVPreferences& preferences) {
            preferences.setValue(ZVValue(std::move(projects)), ZVNorvoIntegrationPreferencesKey);
        },
        true);
}

void ZVNorvoIntegration::addProjectAction() {
    ZVAlert question;
    question.messageText = ZVLocalizedString("Enter the project name:");
    question.buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Cancel")};
    const auto projectName = ZVUserInterface::shared().runModalWithTextField(question, "", false);
    if (!projectName) return;
    if (projectName->empty()) {
        showNameRefusal(ZVLocalizable("The project name cannot be empty."));
        return;
    }
    bool taken = false;
    {
        std::lock_guard guard(lock());
        taken = std::any_of(_projects.begin(), _projects.end(),
                            [&](const auto& project) { return project->name() == *projectName; });
    }
    if (taken) {
        showNameRefusal(ZVLocalizable("A project with this name already exists."));
        return;
    }
    auto project = ZVIntegrationProject::create(*projectName, ZVMakeUUID());
    project->setIntegration(weak_from_this());
    ZVIntegrationCenter::shared().setCurrentProject(project);
    addProject(project);
}

void ZVNorvoIntegration::moveProjectAtIndex(std::size_t from, std::size_t to) {
    std::lock_guard guard(lock());
    ZVMove(_projects, from, to);
    ZVIntegrationProject::noteTreeChange();
}

std::shared_ptr<ZVMenu> ZVNorvoIntegration::integrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                                            const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                                            bool includeUtilityMenuItems) {
    auto menu = std::make_shared<ZVMenu>(name());
    std::weak_ptr<ZVNorvoIntegration> weakSelf = std::static_pointer_cast<ZVNorvoIntegration>(shared_from_this());
    {
        std::lock_guard guard(lock());
        for (const auto& project : _projects) {
            auto item = project->menuItem(target, selectedProject);
            if (selectedProject && selectedProject == project) item->state = ZVMenuItem::State::on;
            menu->addItem(std::move(item));
            if (!includeUtilityMenuItems) continue;
            ZVMenuItem& remove =
                menu->addItem(ZVLocalizedFormat("Remove '%@'...", {project->name()}), "_removeProject:",
                              [weakSelf](const ZVMenuItem& chosen) {
                                  if (auto account = weakSelf.lock()) account->_removeProject(chosen);
                              });
            remove.isAlternate = true;
            remove.representedObject = project;
            remove.integration = shared_from_this();
        }
    }
    if (menu->empty()) {
        ZVMenuItem& empty = menu->addItem(ZVLocalizedString("No Projects"), "absurdium");
        empty.enabled = false;
    }
    if (!includeUtilityMenuItems) return menu;

    menu->addSeparator();
    menu->addItem(ZVLocalizedString("Add Project..."), "_addNorvoProject:", [weakSelf](const ZVMenuItem&) {
        if (auto account = weakSelf.lock()) account->addProjectAction();
    });
    ZVMenuItem& manage = menu->addItem(ZVLocalizedString("Manage Projects..."), "manageNorvoProjects:");
    if (target && target->respondsToMenuAction("manageNorvoProjects:"))
        manage.handler = [target](const ZVMenuItem& item) { target->performMenuAction("manageNorvoProjects:", item); };
    return menu;
}

void ZVNorvoIntegration::_removeProject(const ZVMenuItem& menuItem) {
    auto project = menuItem.representedProject();
    if (!project) ZVFatalError("_removeProject: the menu item carries no project");

    ZVAlert alert;
    alert.messageText = ZVLocalizedFormat("Do you really want to remove the project '%@'?", {project->name()});
    alert.informativeText =
        ZVLocalizedString("This action cannot be undone. The time associated with this project will be lost as well.");
    alert.buttons = {ZVLocalizedString("Cancel"), ZVLocalizedString("Remove")};
    if (ZVUserInterface::shared().runModal(alert).buttonIndex == 0) return;

    ZVIntegrationCenter& center = ZVIntegrationCenter::shared();
    if (center.currentProject() == project) {
        ZVHeartBeat& heartBeat = ZVHeartBeat::sharedHeartBeat();
        heartBeat.stop();
        heartBeat.setCurrentTime(0);
        center.setCurrentProject(nullptr);
    }
    removeProject(project);
}
