// The menu items of a project node; the menus of the accounts are made of them.

#include "ZVLocalization.h"
#include "ZVTime.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/posting/ZVTimePosting.h"
#include "core/ui/ZVMenu.h"

std::shared_ptr<ZVMenuItem> ZVIntegrationProject::menuItem(ZVIntegrationProjectMenuItemTarget* target,
                                                           const Pointer& selectedProject) {
    auto item = std::make_shared<ZVMenuItem>(name());
    auto self = shared_from_this();
    item->representedObject = self;
    item->toolTip = fullProjectPath();

    if (hasSubprojects()) {
        item->title = name() + " (" + std::to_string(subprojects().size()) + ")";
        // The children's items are made when the submenu is first looked
        // into: a large tree costs only the levels the user opens.
        item->submenu = ZVSubmenu::lazy([self, target, selectedProject] {
            auto submenu = std::make_shared<ZVMenu>(self->name());
            for (const auto& subproject : self->subprojects()) {
                submenu->addItem(subproject->menuItem(target, selectedProject));
                if (auto alternate = subproject->alternateMenuItem()) submenu->addItem(std::move(alternate));
            }
            return submenu;
        });
        return item;
    }

    item->title = name() + " \u2014 " + ZVTime::timeString(time());
    item->secondaryTitleStart = name().size();
    item->action = "selectProject:";
    if (target) item->handler = [target](const ZVMenuItem& chosen) { target->selectProject(chosen); };
    if (selectedProject && selectedProject == self) item->state = ZVMenuItem::State::on;
    return item;
}

std::shared_ptr<ZVMenuItem> ZVIntegrationProject::alternateMenuItem() {
    if (time() == 0 || hasSubprojects()) return nullptr;
    std::weak_ptr<ZVIntegrationProject> weakSelf = weak_from_this();
    auto item = std::make_shared<ZVMenuItem>(ZVLocalizedFormat("Post time for '%@'", {name()}), "postTime",
                                             [weakSelf](const ZVMenuItem&) {
                                                 if (auto project = weakSelf.lock()) ZVTimePosting::postTime(*project);
                                             });
    item->representedObject = shared_from_this();
    item->integration = integration();
    item->isAlternate = true;
    return item;
}
