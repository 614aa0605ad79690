#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"

#include "ZVDownloadCenter.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {
constexpr const char* actionFieldName = "action";
constexpr const char* alternateActionFieldName = "command";
constexpr const char* listProjectsAction = "list_projects";
// The project's identifier follows, as it stands.
constexpr const char* listTasksForProjectAction = "list_tasks_for_project&id=";
constexpr const char* postTimeAction = "post_time";

/// The text form of an "id" that may be a string or a number.
std::optional<std::string> identifierText(const nlohmann::json& object) {
    const auto* identifier = ZVJSON::value(object, "id");
    if (!identifier) return std::nullopt;
    if (identifier->is_string()) return identifier->get<std::string>();
    if (identifier->is_number()) return identifier->dump();
    return std::nullopt;
}
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
    const std::string noProjects = ZVLocalizedString("Returned dictionary doesn't contain any projects.");
    const auto reply = sendForJSON(ZVServiceRequest::get(actionPath(listProjectsAction)));
    const auto projects = reply.is_object() ? ZVJSON::arrayOfDictionaries(reply, "projects") : std::nullopt;
    if (!reply.is_object()) throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
    if (!projects) throw ZVIntegrationErrorWithFailureReason(noProjects);

    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& projectObject : *projects) {
        const auto name = ZVJSON::string(projectObject, "name");
        const auto projectID = identifierText(projectObject);
        if (!name || !projectID) {
            ZVLog([&] { return "Missing name or ID in " + projectObject.dump(); });
            continue;
        }
        auto project = ZVIntegrationProject::create(*name, *projectID);
        project->setIntegration(self);
        if (synchronizesProjectsOnly()) {
            result.push_back(project);
            continue;
        }

        const std::string notTasks = ZVLocalizedString("Returned tasks object isn't a dictionary.");
        const std::string tasksPath = actionPath(listTasksForProjectAction + *projectID);
        ZVLog([&] { return "Will be loading tasks from " + URLForPath(tasksPath); });
        const auto tasksReply = sendForJSON(ZVServiceRequest::get(tasksPath), notTasks);
        if (!tasksReply.is_object()) throw ZVIntegrationErrorWithFailureReason(notTasks);
        const auto tasks = ZVJSON::arrayOfDictionaries(tasksReply, "tasks");
        // The same words as for a reply without projects, on purpose.
        if (!tasks) throw ZVIntegrationErrorWithFailureReason(noProjects);
        for (const auto& taskObject : *tasks) {
            const auto taskName = ZVJSON::string(taskObject, "name");
            const auto taskID = identifierText(taskObject);
            if (!taskName || !taskID) {
                ZVLog([&] { return "Missing name or ID in " + taskObject.dump(); });
                continue;
            }
            project->addSubproject(ZVIntegrationProject::create(*taskName, *projectID, *taskID));
        }
        if (project->hasSubprojects()) {
            // The words don't match the branch; kept as the protocol's log has always read.
            ZVLog([&] { return "Skipping project " + *name + " since it has no tasks."; });
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
