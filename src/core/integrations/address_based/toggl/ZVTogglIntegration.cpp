#include "core/integrations/address_based/toggl/ZVTogglIntegration.h"

#include <ctime>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace toggl {
namespace {
constexpr const char* apiPath = "/api/v9/";
constexpr const char* profilePageURL = "https://track.toggl.com/profile";
constexpr const char* workspacesSuffix = "me/workspaces";
// The most projects the service hands out in one page; it gives 151 unasked.
constexpr std::size_t projectPageSize = 200;

std::string workspaceSuffix(const std::string& workspaceID, const std::string& rest) {
    return "workspaces/" + workspaceID + "/" + rest;
}
}  // namespace
}  // namespace toggl

std::optional<ZVCredentialPresentation> ZVTogglIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        ZVLocalizedString("The API token at the bottom of your Toggl Track profile page"),
        {},
        {},
        ZVLocalizedString("Open the Profile Page"),
        toggl::profilePageURL,
        {}};
}

std::vector<nlohmann::json> ZVTogglIntegration::_loadDataWithURLSuffix(const std::string& suffix,
                                                                       bool paged) {
    std::vector<nlohmann::json> all;
    ZVPaging::Guard guard;
    for (std::size_t page = 1;; ++page) {
        guard.beforePage();
        ZVServiceRequest request = ZVServiceRequest::get(toggl::apiPath + suffix);
        // Archived projects stay out, as they always did.
        if (paged)
            request.query = {{"active", "true"},
                             {"page", std::to_string(page)},
                             {"per_page", std::to_string(toggl::projectPageSize)}};
        const ZVServiceReply reply = send(request);
        if (reply.body == "null") return all;
        const auto list = reply.json();
        if (!list)
            throw ZVIntegrationErrorWithFailureReason(
                ZVLocalizedFormat("Invalid data received for %@.", {suffix}));
        if (!list->is_array()) {
            ZVLog([&] { return "Can't cast obj to array " + list->dump(); });
            throw ZVIntegrationErrorWithFailureReason(
                ZVLocalizedFormat("Invalid data type received for %@", {suffix}));
        }
        if (list->empty()) return all;
        guard.notePage(ZVPaging::arrayFingerprint(*list));
        all.insert(all.end(), list->begin(), list->end());
        if (!paged || list->size() < toggl::projectPageSize) return all;
    }
}

ZVIntegration::ProjectList ZVTogglIntegration::loadRemoteProjects() {
    const auto self = shared_from_this();
    ProjectList workspaces;
    for (const auto& workspaceRecord :
         ZVListing::records(_loadDataWithURLSuffix(toggl::workspacesSuffix), {},
                            "Missing workspace name or ID ")) {
        auto workspace = ZVIntegrationProject::create(workspaceRecord.name, workspaceRecord.id);
        workspace->setIntegration(self);
        for (const auto& projectRecord :
             ZVListing::records(_loadDataWithURLSuffix(
                                    toggl::workspaceSuffix(workspaceRecord.id, "projects"), true),
                                {}, "Missing project name or ID ")) {
            auto project = ZVIntegrationProject::create(projectRecord.name, workspaceRecord.id,
                                                        projectRecord.id);
            project->setIntegration(self);
            auto tasks = _loadDataWithURLSuffix(toggl::workspaceSuffix(
                workspaceRecord.id, "projects/" + projectRecord.id + "/tasks"));
            // A finished task takes no more time.
            std::erase_if(
                tasks, [](const nlohmann::json& task) { return !ZVJSON::boolean(task, "active"); });
            for (const auto& taskRecord :
                 ZVListing::records(tasks, {}, "Missing task name or ID ")) {
                auto task = ZVIntegrationProject::create(taskRecord.name, workspaceRecord.id,
                                                         projectRecord.id);
                task->setAdditionalID(taskRecord.id);
                task->setIntegration(self);
                project->addSubproject(std::move(task));
            }
            if (!project->hasSubprojects()) {
                ZVLog([&] {
                    return "Skipping project " + projectRecord.name +
                           " since it contains no tasks.";
                });
                continue;
            }
            workspace->addSubproject(std::move(project));
        }
        if (!workspace->hasSubprojects()) {
            ZVLog([&] {
                return "Skipping workspace " + workspaceRecord.name +
                       " since it contains no projects.";
            });
            continue;
        }
        workspaces.push_back(std::move(workspace));
    }
    return workspaces;
}

void ZVTogglIntegration::postTime(ZVIntegrationProject& project) {
    const auto now = static_cast<std::time_t>(ZVNow().time_since_epoch().count());
    const auto seconds = project.time();
    const nlohmann::json entry{
        {"workspace_id", ZVPostingText::numericID(project.projectID())},
        {"project_id", ZVPostingText::numericID(project.subprojectID())},
        {"task_id", ZVPostingText::numericID(project.additionalID())},
        {"start", ZVPostingText::dateTime(now - static_cast<std::time_t>(seconds),
                                          ZVPostingText::Zone::colonOffset)},
        {"duration", seconds},
        // The user's words go out as written: "%@" stays, unlike at other services.
        {"description", ZVPostingText::title(project, "%@")},
        {"created_with", "Norvo"}};
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        toggl::apiPath + toggl::workspaceSuffix(project.projectID(), "time_entries"), entry));
    ZVLog([&] { return "Response " + reply.dump(); });
    ZVPostingText::requireValue(reply, "id");
}
