#include "core/integrations/address_based/liquidplanner/ZVLiquidPlannerIntegration.h"

#include <algorithm>

#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

// The names are the service's own: a unity build puts services side by side.
namespace liquidplanner {
namespace {
constexpr const char* workspacesPath = "/v1/workspaces";

std::string workspacePath(const std::string& workspaceID, const std::string& rest) {
    return std::string(workspacesPath) + "/" + workspaceID + "/" + rest;
}

/// Every record of a list, which the service gives whole in one array.
std::vector<nlohmann::json> list(ZVAddressBasedIntegration& account, const std::string& path) {
    return ZVListing::items(account, ZVServiceRequest::get(path), {}, "");
}

std::optional<std::string> text(const nlohmann::json& object, std::string_view key) {
    return ZVListing::text(ZVJSON::value(object, key));
}
}  // namespace
}  // namespace liquidplanner

const std::vector<ZVIntegrationSetting>& ZVLiquidPlannerIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::credentialSwitch(
            usesAPITokenKey, ZVLocalizable("Sign in with an API token"), "apiTokenButton"),
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVLiquidPlannerIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        ZVLocalizedString("Email and password, or an API token from My API Tokens"),
        usernameLabel(),
        usesAPIToken() ? ZVLocalizedString("API token") : ZVLocalizedString("Password")};
}

ZVCredentialStyle ZVLiquidPlannerIntegration::credentialStyle() const {
    if (usesAPIToken()) return {ZVCredentialStyle::Kind::bearerToken};
    return {ZVCredentialStyle::Kind::basicUsernamePassword};
}

ZVIntegration::ProjectList ZVLiquidPlannerIntegration::loadRemoteProjects() {
    ProjectList workspaces;
    const auto workspaceRecords =
        ZVListing::records(liquidplanner::list(*this, liquidplanner::workspacesPath), {},
                           "No name or ID in workspaceDict ");
    for (const auto& workspaceRecord : workspaceRecords) {
        const std::string& workspaceID = workspaceRecord.id;
        ZVLog([&] {
            return "=== PROCESSING WORKSPACE " + workspaceRecord.name + " (ID: " + workspaceID +
                   ") ===";
        });
        ProjectList projects;
        for (const auto& record : ZVListing::records(
                 liquidplanner::list(*this, liquidplanner::workspacePath(workspaceID, "projects")),
                 {}, "No name or ID in projectDict ")) {
            auto project = ZVIntegrationProject::create(record.name, workspaceID, record.id);
            project->setIntegration(shared_from_this());
            projects.push_back(std::move(project));
        }

        for (const auto& task :
             liquidplanner::list(*this, liquidplanner::workspacePath(workspaceID, "tasks"))) {
            const auto name = liquidplanner::text(task, "name");
            if (ZVJSON::boolean(task, "is_done")) {
                ZVLog([&] { return "Skipping task " + name.value_or("nil") + " as it's done."; });
                continue;
            }
            const auto projectID = liquidplanner::text(task, "project_id");
            if (!projectID) {
                ZVLog([&] { return "Task " + name.value_or("nil") + " has no project ID "; });
                continue;
            }
            // A task inside a folder or a package counts by its project alone.
            const auto parent = std::find_if(
                projects.begin(), projects.end(),
                [&](const auto& project) { return project->subprojectID() == projectID; });
            if (parent == projects.end()) {
                ZVLog([&] {
                    return "Skipping task " + name.value_or("nil") +
                           " as the parent project cannot be found ";
                });
                continue;
            }
            const auto taskID = liquidplanner::text(task, "id");
            if (!name || !taskID) {
                ZVLog([&] { return "No name or ID in taskDict " + task.dump(); });
                continue;
            }
            auto node = ZVIntegrationProject::create(*name, workspaceID, *projectID);
            node->setAdditionalID(*taskID);
            (*parent)->addSubproject(std::move(node));
        }

        std::erase_if(projects, [](const auto& project) {
            if (project->hasSubprojects()) return false;
            ZVLog([&] {
                return "Project " + project->name() +
                       " (ID: " + project->subprojectID().value_or("") + ") has no subprojects.";
            });
            return true;
        });
        if (projects.empty()) continue;
        auto workspace = ZVIntegrationProject::create(workspaceRecord.name, workspaceID);
        workspace->setIntegration(shared_from_this());
        for (auto& project : projects) workspace->addSubproject(std::move(project));
        workspaces.push_back(std::move(workspace));
    }
    return workspaces;
}

std::string ZVLiquidPlannerIntegration::_selectActivityForWorkspaceWithID(
    const std::string& workspaceID) {
    std::vector<std::string> names, ids;
    for (const auto& activity :
         liquidplanner::list(*this, liquidplanner::workspacePath(workspaceID, "activities"))) {
        const auto name = liquidplanner::text(activity, "name");
        const auto id = liquidplanner::text(activity, "id");
        if (!name || !id) {
            ZVLog([&] { return "Activity dict has no name or ID " + activity.dump(); });
            continue;
        }
        names.push_back(*name);
        ids.push_back(*id);
    }
    if (ids.empty())
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedFormat("No activities for workspace %@ found.", {workspaceID}));
    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    const auto chosen =
        ui.runModalWithChoice({.messageText = ZVLocalizedString("Please, select activity:"),
                               .buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Cancel")}},
                              names, 0);
    if (!chosen) throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("User cancelled."));
    return ids.at(*chosen);
}

void ZVLiquidPlannerIntegration::postTime(ZVIntegrationProject& project) {
    if (!project.additionalID())
        ZVFatalError("postTime(for:) of LiquidPlanner needs a task, not " + project.name());
    const std::string activity = _selectActivityForWorkspaceWithID(project.projectID());
    const nlohmann::json work{{"comment", ZVPostingText::title(project)},
                              {"activity_id", activity},
                              {"work", static_cast<double>(project.time()) / 3600.0}};
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        liquidplanner::workspacePath(project.projectID(),
                                     "tasks/" + *project.additionalID() + "/track_time"),
        work));
    ZVLog([&] { return "Posted with response (" + reply.dump() + ")"; });
    ZVPostingText::requireValue(reply, "id");
}
