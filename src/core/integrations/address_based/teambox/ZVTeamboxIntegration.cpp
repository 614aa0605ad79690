#include "core/integrations/address_based/teambox/ZVTeamboxIntegration.h"

#include <algorithm>
#include <iterator>

#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace redbooth {
namespace {
constexpr const char* authorizationURL = "https://redbooth.com/oauth2/authorize";
constexpr const char* tokenURL = "https://redbooth.com/oauth2/token";
constexpr const char* projectsPath = "/api/3/projects";
constexpr const char* taskListsPath = "/api/3/task_lists?project_id=";
constexpr const char* tasksPath = "/api/3/tasks?task_list_id=";
constexpr const char* commentsPath = "/api/3/comments";
constexpr std::size_t pageSize = 100;
}  // namespace
}  // namespace redbooth

void ZVTeamboxIntegration::initialize() {
    ZVOAuth2BasedIntegration::initialize();
    setAddress(addressPlaceholder());
}

ZVOAuth2Configuration ZVTeamboxIntegration::authenticationConfiguration() const {
    // The service takes only the redirect address registered with the
    // application, so the answer comes back on the scheme.
    return {.authorizationBaseURL = redbooth::authorizationURL,
            .redirectionScheme = "norvoredbooth",
            .tokenEndpointURL = redbooth::tokenURL};
}

std::vector<nlohmann::json> ZVTeamboxIntegration::_objectsAtURL(const std::string& path) {
    const std::string missing = ZVLocalizedString("Can't load items, probably wrong credentials.");
    std::vector<nlohmann::json> all;
    ZVPaging::Guard guard;
    for (std::size_t page = 1;; ++page) {
        guard.beforePage();
        ZVServiceRequest request = ZVServiceRequest::get(path);
        request.query = {{"page", std::to_string(page)},
                         {"per_page", std::to_string(redbooth::pageSize)}};
        const nlohmann::json reply = sendForJSON(request, missing);
        const nlohmann::json* list = reply.is_array() ? &reply : ZVJSON::value(reply, "objects");
        if (!list || !list->is_array()) {
            ZVLog([&] { return "No objects in " + reply.dump(); });
            throw ZVIntegrationErrorWithFailureReason(missing);
        }
        if (list->empty()) return all;
        guard.notePage(ZVPaging::arrayFingerprint(*list));
        std::copy_if(list->begin(), list->end(), std::back_inserter(all),
                     [](const auto& item) { return item.is_object(); });
        if (list->size() < redbooth::pageSize) return all;
    }
}

ZVIntegration::ProjectList ZVTeamboxIntegration::loadRemoteProjects() {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    const auto self = shared_from_this();
    ProjectList result;
    auto projectItems = _objectsAtURL(redbooth::projectsPath);
    std::erase_if(projectItems, [](const nlohmann::json& item) {
        if (!ZVJSON::boolean(item, "archived")) return false;
        ZVLog([&] {
            return "Skipping archived project " +
                   ZVListing::text(ZVJSON::value(item, "name")).value_or("");
        });
        return true;
    });
    for (const auto& project : ZVListing::records(projectItems, {}, "Skipping project ")) {
        auto projectNode = ZVIntegrationProject::create(project.name, project.id);
        projectNode->setIntegration(self);
        // Task lists, then their tasks: a list or project with nothing to post to stays out.
        for (const auto& list : ZVListing::records(
                 _objectsAtURL(redbooth::taskListsPath + project.id), {}, "Skipping task list ")) {
            auto listNode = ZVIntegrationProject::create(list.name, project.id, list.id);
            for (const auto& task : ZVListing::records(
                     _objectsAtURL(redbooth::tasksPath + list.id + "&archived=false"), {},
                     "Skipping task ")) {
                auto taskNode = ZVIntegrationProject::create(task.name, project.id, list.id);
                taskNode->setAdditionalID(task.id);
                listNode->addSubproject(taskNode);
            }
            if (listNode->hasSubprojects()) projectNode->addSubproject(listNode);
        }
        if (projectNode->hasSubprojects()) result.push_back(projectNode);
    }
    return result;
}

void ZVTeamboxIntegration::postTime(ZVIntegrationProject& project) {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    const std::int64_t task = ZVPostingText::numericID(project.additionalID());
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        redbooth::commentsPath, {{"body", ZVPostingText::title(project)},
                                 {"minutes", ZVPostingText::wholeMinutes(project.time())},
                                 {"target_type", "task"},
                                 {"target_id", task}}));
    ZVPostingText::requireValue(reply, "id");
}
