#include "core/integrations/address_based/intervals/ZVIntervalsIntegration.h"

#include <ctime>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace intervals {
namespace {
constexpr const char* mePath = "/me/";
constexpr const char* projectsPath = "/project/";
constexpr const char* workTypesPath = "/projectworktype/";
constexpr const char* tasksPath = "/task/";
constexpr const char* timePath = "/time/";
// Lists come in one reply of up to this many items.
constexpr const char* listLimit = "999";

const ZVRecordShape workTypeShape{.idPath = "worktypeid", .namePath = "worktype"};
const ZVRecordShape taskShape{.idPath = "id", .namePath = "title"};
}  // namespace
}  // namespace intervals

const std::vector<ZVIntegrationSetting>& ZVIntervalsIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        {billableKey, ZVIntegrationSetting::Kind::flag, ZVLocalizable("Billable"),
         "billableButton"},
    };
    return declared;
}

void ZVIntervalsIntegration::addAccountHeaders(ZVURLRequest& request) const {
    // The service answers in JSON unless asked for XML.
    request.setHeader("Accept", "application/xml");
}

std::optional<std::string> ZVIntervalsIntegration::cachedUserID() const {
    std::lock_guard lock(_userIDLock);
    return _cachedUserID;
}

void ZVIntervalsIntegration::initializeWithDictionary(const ZVDictionary& dictionary) {
    ZVAddressBasedIntegration::initializeWithDictionary(dictionary);
    const std::string stored = ZVStringValue(dictionary, cachedUserIDKey);
    std::lock_guard lock(_userIDLock);
    if (!stored.empty()) _cachedUserID = stored;
}

ZVDictionary ZVIntervalsIntegration::dictionaryRepresentation() {
    ZVDictionary dictionary = ZVAddressBasedIntegration::dictionaryRepresentation();
    if (const auto userID = cachedUserID(); userID && !dictionary.empty())
        dictionary[cachedUserIDKey] = *userID;
    return dictionary;
}

std::string ZVIntervalsIntegration::_personID() {
    if (auto cached = cachedUserID()) {
        ZVLog([] { return std::string("User ID cached"); });
        return *cached;
    }
    ZVLog([] { return std::string("User ID not cached"); });
    const auto userID =
        sendForXML(ZVServiceRequest::get(intervals::mePath)).string("intervals/me/item/id");
    if (!userID || userID->empty())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Can't find user ID."));
    std::lock_guard lock(_userIDLock);
    _cachedUserID = *userID;
    return *userID;
}

std::vector<std::pair<std::string, std::string>> ZVIntervalsIntegration::_workTypesForProjectID(
    const std::string& projectID) {
    ZVServiceRequest request = ZVServiceRequest::get(intervals::workTypesPath);
    request.query = {{"limit", intervals::listLimit}, {"projectid", projectID}, {"active", "t"}};
    std::vector<std::pair<std::string, std::string>> workTypes;
    for (const auto& record :
         ZVListing::records(*this, request, "intervals/projectworktype/item",
                            intervals::workTypeShape, "Worktype missing ID or title in "))
        workTypes.emplace_back(record.id, record.name);
    if (workTypes.empty())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("No worktypes are defined."));
    return workTypes;
}

ZVIntegration::ProjectList ZVIntervalsIntegration::loadRemoteProjects() {
    const std::string person = _personID();
    ZVServiceRequest projectsRequest = ZVServiceRequest::get(intervals::projectsPath);
    projectsRequest.query = {{"limit", intervals::listLimit}, {"active", "true"}};
    const auto projectRecords = ZVListing::records(*this, projectsRequest, "intervals/project/item",
                                                   {}, "Missing name or ID in ");
    ProjectList projects = ZVListing::nodes(shared_from_this(), projectRecords);
    for (auto& project : projects) {
        const std::string& projectID = project->projectID();
        const auto workTypes = _workTypesForProjectID(projectID);
        ZVServiceRequest tasksRequest = ZVServiceRequest::get(intervals::tasksPath);
        tasksRequest.query = {{"limit", intervals::listLimit},
                              {"projectid", projectID},
                              {"assigneeid", person},
                              {"excludeclosed", "t"}};
        for (const auto& task :
             ZVListing::records(*this, tasksRequest, "intervals/task/item", intervals::taskShape,
                                "taskNode missing name or ID in ")) {
            for (const auto& [workTypeID, workType] : workTypes) {
                auto leaf = ZVIntegrationProject::create(task.name + " (" + workType + ")",
                                                         projectID, task.id);
                leaf->setAdditionalID(workTypeID);
                project->addSubproject(std::move(leaf));
            }
        }
    }
    return projects;
}

void ZVIntervalsIntegration::postTime(ZVIntegrationProject& project) {
    const auto now = static_cast<std::time_t>(ZVNow().time_since_epoch().count());
    const std::string body =
        ZVPostingText::xmlRecord("time", {{"worktypeid", project.additionalID().value_or("")},
                                          {"personid", _personID()},
                                          {"date", ZVPostingText::date(now)},
                                          {"time", ZVPostingText::decimalHours(project.time(), 2)},
                                          {"billable", isBillable() ? "1" : "0"},
                                          {"description", ZVPostingText::title(project)},
                                          {"taskid", project.subprojectID().value_or("")}});
    const auto reply = send(ZVServiceRequest::postXML(intervals::timePath, body));
    ZVLog([&] { return "Response " + reply.body; });
}
