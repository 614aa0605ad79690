#include "core/sync/ZVIntegrationSyncHelper.h"

#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVThreading.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

namespace {

bool isBlankIdentifier(const std::optional<std::string>& identifier) { return !identifier || identifier->empty(); }

void appendComponent(std::string& key, const std::string& component) {
    key += std::to_string(component.size());
    key += ':';
    key += component;
}

std::string listDescription(const ZVIntegrationSyncHelper::ProjectList& projects) {
    std::string text = "(";
    for (std::size_t index = 0; index < projects.size(); ++index) {
        if (index > 0) text += ", ";
        text += projects[index]->description();
    }
    return text + ")";
}

void showRemovedCurrentProjectAlert(const std::string& name) {
    ZVUserInterface::shared().runModalMessage(
        ZVLocalizedFormat("\"%@\" is no longer available - it has been removed from the server.", {name}));
}

}  // namespace

ZVIntegrationSyncHelper::ZVIntegrationSyncHelper(std::shared_ptr<ZVIntegration> anIntegration)
    : integration(std::move(anIntegration)) {}

// isEqualToProject sorts nodes into three kinds: with no sub- and additional
// identifier (only projectID counts), with a subprojectID alone (projectID and
// subprojectID count), and with an additionalID (all three count, an absent
// subprojectID differing from an empty one). Within a kind the relation is
// plain equality of those fields, across kinds it never holds.
std::string ZVIntegrationSyncHelper::identityKey(const ZVIntegrationProject& project) {
    std::string key;
    const auto& subprojectID = project.subprojectID();
    const auto& additionalID = project.additionalID();
    if (isBlankIdentifier(subprojectID) && isBlankIdentifier(additionalID)) {
        key = "P";
        appendComponent(key, project.projectID());
    } else if (isBlankIdentifier(additionalID)) {
        key = "S";
        appendComponent(key, project.projectID());
        appendComponent(key, *subprojectID);
    } else {
        key = subprojectID ? "A" : "a";
        appendComponent(key, project.projectID());
        if (subprojectID) appendComponent(key, *subprojectID);
        appendComponent(key, *additionalID);
    }
    return key;
}

void ZVIntegrationSyncHelper::mergeProjects(ProjectList& projects, const ProjectPointer& parentProject,
                                            const ProjectList& remoteProjects) {
    ZVLog([&] { return "Synchronizing " + listDescription(projects) + " with " + listDescription(remoteProjects); });

    // The first node of each identity in list order, so that a remote node
    // finds the same node that a walk through the list would find first.
    std::unordered_map<std::string, ProjectPointer> firstLocalByKey;
    firstLocalByKey.reserve(projects.size() + remoteProjects.size());
    for (const auto& local : projects) firstLocalByKey.try_emplace(identityKey(*local), local);

    std::unordered_set<std::string> remoteKeys;
    remoteKeys.reserve(remoteProjects.size());

    for (const auto& remote : remoteProjects) {
        auto key = identityKey(*remote);
        remoteKeys.insert(key);
        auto found = firstLocalByKey.find(key);
        if (found == firstLocalByKey.end()) {
            remote->setParentProject(parentProject);
            projects.push_back(remote);
            firstLocalByKey.emplace(std::move(key), remote);
            continue;
        }
        const ProjectPointer& local = found->second;
        // A node listed twice in one fetch meets itself: nothing to merge.
        if (local == remote) continue;
        local->setName(remote->name());
        if (local->hasSubprojects() || remote->hasSubprojects()) {
            std::lock_guard<std::mutex> guard(local->lock());
            ZVIntegrationSyncHelper helper(local->requiredIntegration());
            helper.mergeProjects(local->mutableSubprojects(), local, remote->subprojects());
        }
    }

    std::unordered_map<const ZVIntegrationProject*, int> toRemove;
    for (const auto& local : projects) {
        if (remoteKeys.count(identityKey(*local)) > 0) continue;
        if (local->hasSubprojects()) local->clearEmptySubprojects();
        bool remove = false;
        if (local->time() == 0 && !local->hasSubprojects()) {
            remove = true;
        } else {
            remove = _shouldRemoveProject(*local);
        }
        if (remove) ++toRemove[local.get()];
    }
    if (toRemove.empty()) return;

    if (auto* center = ZVIntegrationCenter::sharedIfExists()) {
        auto current = center->currentProject();
        if (current && toRemove.count(current.get()) > 0) {
            const std::string name = current->name();
            ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([name] {
                if (auto* mainCenter = ZVIntegrationCenter::sharedIfExists()) mainCenter->setCurrentProject(nullptr);
                showRemovedCurrentProjectAlert(name);
            });
        }
    }

    // Each entry of the removal list takes away the first element that is
    // that very node, so a node listed twice is removed twice.
    ProjectList kept;
    kept.reserve(projects.size());
    for (auto& local : projects) {
        auto pending = toRemove.find(local.get());
        if (pending != toRemove.end() && pending->second > 0) {
            --pending->second;
            continue;
        }
        kept.push_back(std::move(local));
    }
    projects = std::move(kept);
}

bool ZVIntegrationSyncHelper::_shouldRemoveProject(const ZVIntegrationProject& project) {
    const std::string accountName = integration ? integration->name() : std::string();
    ZVAlert alert;
    alert.messageText = ZVLocalizedFormat(
        "%@ cannot find '%@' at the remote site, but you have time logged on this project. Do you wish to remove "
        "it anyway?",
        {accountName, project.name()});
    alert.informativeText = ZVLocalizedString("This action cannot be undone.");
    alert.buttons = {ZVLocalizedString("Keep"), ZVLocalizedString("Remove")};
    alert.ignoresKeyPressesAtFirst = true;
    ZVAlertResponse response;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&] {
        ZVUserInterface::shared().activateApplication();
        response = ZVUserInterface::shared().runModal(alert);
    });
    return response.buttonIndex == 1;
}
