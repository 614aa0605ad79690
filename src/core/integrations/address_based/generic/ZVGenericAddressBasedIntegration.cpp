#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {
constexpr const char* actionFieldName = "action";
constexpr const char* alternateActionFieldName = "command";
constexpr const char* listProjectsAction = "list_projects";
// The project's identifier follows, as it stands.
constexpr const char* listTasksForProjectAction = "list_tasks_for_project&id=";
constexpr const char* postTimeAction = "post_time";
}  // namespace

std::string ZVGenericAddressBasedIntegration::addressPlaceholder() const {
    return ZVLocalizedString("Your URL Without Trailing /");
}

const std::vector<ZVIntegrationSetting>& ZVGenericAddressBasedIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {synchronizeProjectsOnlyKey, Kind::flag, ZVLocalizable("Synchronize projects only, without tasks"),
         "synchronizeProjectsOnlyButton"},
        {usesAlternateActionFieldNameKey, Kind::flag, ZVLocalizable("Send the action as \"command\""),
         "usesAlternateActionFieldNameButton"},
    };
    return declared;
}

std::string ZVGenericAddressBasedIntegration::actionPath(const std::string& action) const {
    return std::string("/?") + (usesAlternateActionFieldName() ? alternateActionFieldName : actionFieldName) + "=" + action;
}

std::string ZVGenericAddressBasedIntegration::malformedReplyReason() const {
    return ZVLocalizedString("Returned object isn't a dictionary.");
}

ZVIntegration::ProjectList ZVGenericAddressBasedIntegration::loadRemoteProjects() {
    // A reply without its list reads the same for projects and for tasks, on purpose.
    const std::string noList = ZVLocalizedString("Returned dictionary doesn't contain any projects.");
    const std::string notTasks = ZVLocalizedString("Returned tasks object isn't a dictionary.");
    constexpr const char* skipped = "Missing name or ID in ";
    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& record : ZVListing::records(
             ZVListing::items(*this, ZVServiceRequest::get(actionPath(listProjectsAction)), {}, "projects", noList), {},
             skipped)) {
        auto project = ZVIntegrationProject::create(record.name, record.id);
        project->setIntegration(self);
        if (synchronizesProjectsOnly()) {
            result.push_back(project);
            continue;
        }
        const std::string tasksPath = actionPath(listTasksForProjectAction + record.id);
        ZVLog([&] { return "Will be loading tasks from " + URLForPath(tasksPath); });
        const auto tasks = ZVListing::items(*this, ZVServiceRequest::get(tasksPath), {}, "tasks", noList, notTasks);
        for (const auto& task : ZVListing::records(tasks, {}, skipped))
            project->addSubproject(ZVIntegrationProject::create(task.name, record.id, task.id));
        if (project->hasSubprojects()) {
            // The words don't match the branch; kept as the protocol's log has always read.
            ZVLog([&] { return "Skipping project " + record.name + " since it has no tasks."; });
            result.push_back(project);
        }
    }
    return result;
}

void ZVGenericAddressBasedIntegration::postTime(ZVIntegrationProject& project) {
    nlohmann::json body = nlohmann::json::object();
    body["project_id"] = project.projectID();
    if (!synchronizesProjectsOnly() && project.subprojectID()) body["task_id"] = *project.subprojectID();
    body["description"] = ZVPostingText::title(project);
    body["hours"] = ZVPostingText::decimalText(static_cast<double>(project.time()) / 3600.0);
    // The protocol answers a post with JSON.
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(actionPath(postTimeAction), std::move(body)),
                                   ZVLocalizedString("Did not receive a valid JSON response."));
    ZVLog([&] { return "Response " + reply.dump(); });
}
