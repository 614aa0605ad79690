#include "core/integrations/address_based/teamworkpm/ZVTeamworkPMIntegration.h"

#include <array>
#include <ctime>

#include "ZVClock.h"
#include "ZVHelpers.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace teamworkpm {
namespace {
constexpr const char* authenticatePath = "/authenticate.json";
constexpr const char* mePath = "/me.json";
constexpr const char* projectsPath = "/projects.json";
// The service ignores the password of an API key; its documentation sends "X".
constexpr const char* passwordWord = "X";
// A listing names its page and the number of pages in these headers.
constexpr const char* pageHeader = "X-Page";
constexpr const char* pagesHeader = "X-Pages";

std::string listsPath(const std::string& projectID) {
    return "/projects/" + projectID + "/tasklists.json";
}
std::string projectEntriesPath(const std::string& projectID) {
    return "/projects/" + projectID + "/time_entries.json";
}
std::string taskEntriesPath(const std::string& taskID) {
    return "/tasks/" + taskID + "/time_entries.json";
}

std::optional<std::string> text(const nlohmann::json& object, const char* key) {
    return ZVListing::text(ZVJSON::value(object, key));
}

std::string invalidData() {
    return ZVLocalizedString("TeamworkPM's response contains invalid data.");
}

/// Whether the reply's headers say that pages follow this one.
bool hasMorePages(const ZVServiceReply& reply) {
    const auto page = reply.header(pageHeader);
    const auto pages = reply.header(pagesHeader);
    if (!page || !pages) return false;
    const auto number = ZVStringIntegerValue(*page);
    const auto count = ZVStringIntegerValue(*pages);
    return number && count && *number < *count;
}

std::string clock(std::time_t moment, const char* format) {
    std::tm parts{};
    localtime_r(&moment, &parts);
    std::array<char, 32> buffer{};
    return std::string(buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &parts));
}
}  // namespace
}  // namespace teamworkpm

const std::vector<ZVIntegrationSetting>& ZVTeamworkPMIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::synchronization(synchronizationTypeKey, ZVLocalizable("Projects"),
                                              ZVLocalizable("Projects, task lists and my open tasks")),
    };
    return declared;
}

ZVTeamworkPMIntegration::SynchronizationType ZVTeamworkPMIntegration::synchronizationType() const {
    return choiceSetting(synchronizationTypeKey) ==
                   static_cast<std::int64_t>(SynchronizationType::todos)
               ? SynchronizationType::todos
               : SynchronizationType::projects;
}

ZVCredentialStyle ZVTeamworkPMIntegration::credentialStyle() const {
    return {ZVCredentialStyle::Kind::basicTokenAndWord, teamworkpm::passwordWord};
}

std::optional<std::vector<nlohmann::json>> ZVTeamworkPMIntegration::_loadItemsFromURL(
    const ZVServiceRequest& request, const char* key, std::string_view missingLine) {
    std::vector<nlohmann::json> items;
    ZVPaging::Guard guard;
    for (std::size_t page = 1;; ++page) {
        guard.beforePage();
        ZVServiceRequest asked = request;
        if (page > 1) asked.query.emplace_back("page", std::to_string(page));
        const ZVServiceReply reply = send(asked);
        const auto body = reply.json();
        if (!body || !body->is_object()) {
            ZVLog([&] { return "Cannot cast result to dictionary - " + reply.body; });
            throw ZVIntegrationErrorWithFailureReason(teamworkpm::invalidData());
        }
        const auto list = ZVJSON::arrayOfDictionaries(*body, key);
        if (!list) {
            ZVLog([&] { return std::string(missingLine) + body->dump(); });
            return std::nullopt;
        }
        if (list->empty()) return items;
        guard.notePage(ZVPaging::fingerprint(*list));
        items.insert(items.end(), list->begin(), list->end());
        if (!teamworkpm::hasMorePages(reply)) return items;
    }
}

std::string ZVTeamworkPMIntegration::_getUserID() {
    std::lock_guard lock(_userIDLock);
    if (_userID) return *_userID;
    const auto reply =
        sendForJSON(ZVServiceRequest::get(teamworkpm::authenticatePath), teamworkpm::invalidData());
    const auto userID = ZVListing::text(ZVJSON::value(reply, "[account][userId]"));
    if (!userID || userID->empty()) {
        ZVLog([&] { return "No userID in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Can't load user ID."));
    }
    _userID = userID;
    return *userID;
}

ZVIntegration::ProjectList ZVTeamworkPMIntegration::loadRemoteProjects() {
    _getUserID();
    const auto me =
        sendForJSON(ZVServiceRequest::get(teamworkpm::mePath), teamworkpm::invalidData());
    const auto accountID = ZVListing::text(ZVJSON::value(me, "[person][id]"));
    if (!accountID || accountID->empty()) {
        ZVLog([&] { return "Can't find account ID in " + me.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Can't find account ID."));
    }

    ProjectList projects;
    const auto items = _loadItemsFromURL(ZVServiceRequest::get(teamworkpm::projectsPath),
                                         "projects", "No projects in ");
    if (!items) return projects;
    const auto self = shared_from_this();
    for (const auto& item : *items) {
        const auto name = teamworkpm::text(item, "name");
        const auto id = teamworkpm::text(item, "id");
        if (!name || !id) {
            ZVLog([&] { return "[project] Missing name or ID in " + item.dump(); });
            continue;
        }
        auto node = ZVIntegrationProject::create(*name, *id);
        node->setIntegration(self);
        if (synchronizationType() == SynchronizationType::todos) {
            _addTodoLists(*node, *accountID);
            // Time of this mode goes to a task: a project without one could take none.
            if (!node->hasSubprojects()) {
                ZVLog([&] { return "Skipping project " + *name + " since it has no todo lists."; });
                continue;
            }
        }
        projects.push_back(std::move(node));
    }
    return projects;
}

void ZVTeamworkPMIntegration::_addTodoLists(ZVIntegrationProject& project,
                                            const std::string& accountID) {
    ZVServiceRequest request = ZVServiceRequest::get(teamworkpm::listsPath(project.projectID()));
    request.query = {
        {"responsible-party-id", accountID}, {"showTasks", "yes"}, {"getSubTasks", "yes"}};
    const auto lists = _loadItemsFromURL(request, "tasklists", "No todo lists in ");
    if (!lists) return;
    for (const auto& list : *lists) {
        const auto name = teamworkpm::text(list, "name");
        const auto id = teamworkpm::text(list, "id");
        const auto tasks = ZVJSON::arrayOfDictionaries(list, "todo-items");
        if (!name || !id || !tasks) {
            ZVLog([&] { return "[todolist] Missing name, ID or items in " + list.dump(); });
            continue;
        }
        auto listNode = ZVIntegrationProject::create(*name, project.projectID(), *id);
        for (const auto& task : *tasks) {
            const auto content = teamworkpm::text(task, "content");
            const auto taskID = teamworkpm::text(task, "id");
            if (!content || !taskID) {
                ZVLog([&] { return "[todo] Missing name, ID or items in " + task.dump(); });
                continue;
            }
            // Today's replies say true or false, older ones a number.
            if (ZVJSON::integer(task, "completed") >= 1) continue;
            auto taskNode = ZVIntegrationProject::create(*content, project.projectID(), *id);
            taskNode->setAdditionalID(*taskID);
            listNode->addSubproject(taskNode);
        }
        if (!listNode->hasSubprojects()) {
            ZVLog([&] { return "Skipping todo list " + *name + " since it has no items."; });
            continue;
        }
        project.addSubproject(listNode);
    }
}

void ZVTeamworkPMIntegration::postTime(ZVIntegrationProject& project) {
    const std::uint64_t seconds = project.time();
    const std::string hours = ZVPostingText::decimalHours(seconds, 2);
    const std::string description = ZVPostingText::title(project, hours);
    std::string path;
    if (synchronizationType() == SynchronizationType::todos) {
        // A node kept from the projects mode until the next synchronization names no task.
        if (!project.additionalID()) {
            ZVLog([&] { return "No task to post to in " + project.name(); });
            throw ZVIntegrationGenericTimePostingError();
        }
        path = teamworkpm::taskEntriesPath(*project.additionalID());
    } else {
        path = teamworkpm::projectEntriesPath(project.projectID());
    }
    const std::string userID = _getUserID();

    const auto now = static_cast<std::time_t>(ZVNow().time_since_epoch().count());
    const nlohmann::json entry{{"time-entry",
                                {{"description", description},
                                 {"person-id", userID},
                                 {"date", teamworkpm::clock(now, "%Y%m%d")},
                                 {"time", teamworkpm::clock(now, "%H:%M")},
                                 {"hours", std::to_string(seconds / 3600)},
                                 {"minutes", std::to_string(seconds % 3600 / 60)},
                                 // Every entry is billable; the account has no say.
                                 {"isbillable", "1"}}}};
    const ZVServiceReply reply = send(ZVServiceRequest::postJSON(path, entry));
    ZVLog([&] { return "Response " + reply.body; });
}
