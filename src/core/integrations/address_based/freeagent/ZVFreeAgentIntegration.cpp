#include "core/integrations/address_based/freeagent/ZVFreeAgentIntegration.h"

#include <cstdlib>
#include <unordered_map>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVTime.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {
bool usesSandbox() {
    const char* sandbox = std::getenv("NORVO_FREEAGENT_SANDBOX");
    return sandbox && *sandbox && std::string(sandbox) != "0";
}

/// Every list pages by number from 1 and ends on its first empty page.
ZVPagingStyle pages(std::function<void(std::size_t)> log) {
    return {.kind = ZVPagingStyle::Kind::pageNumber, .parameter = "page", .sizeParameter = "per_page",
            .pageSize = 100, .beforePage = std::move(log)};
}
}  // namespace

void ZVFreeAgentIntegration::initialize() {
    ZVOAuth2BasedIntegration::initialize();
    // A new account shows contacts; a stored one without the key does not.
    setSettingValue(includesContactsKey, true);
}

std::string ZVFreeAgentIntegration::serviceBaseURL() const {
    return usesSandbox() ? "https://api.sandbox.freeagent.com" : "https://api.freeagent.com";
}

std::string ZVFreeAgentIntegration::hardcodedAddress() const { return serviceBaseURL().substr(std::string_view("https://").size()); }

std::string ZVFreeAgentIntegration::authenticationIdentifier() const {
    return integrationIdentifier() + (usesSandbox() ? "_sandbox" : "");
}

ZVOAuth2Configuration ZVFreeAgentIntegration::authenticationConfiguration() const {
    return {.authorizationBaseURL = serviceBaseURL() + "/v2/approve_app",
            .redirectionScheme = "norvofreeagent",
            .tokenEndpointURL = serviceBaseURL() + "/v2/token_endpoint",
            .usesLoopbackRedirect = true,
            .usesPKCE = true};
}

std::string ZVFreeAgentIntegration::notAuthorizedReason() const {
    return ZVLocalizedString(
        "You haven't authorized this account with FreeAgent. Edit this account and press the Authorize button.");
}

std::string ZVFreeAgentIntegration::malformedReplyReason() const {
    return ZVLocalizedString("FreeAgent returned invalid response object.");
}

const std::vector<ZVIntegrationSetting>& ZVFreeAgentIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        {includesContactsKey, ZVIntegrationSetting::Kind::flag, ZVLocalizable("Include contacts in the project hierarchy"),
         "includesContactsInProjectHierarchyButton"},
    };
    return declared;
}

nlohmann::json ZVFreeAgentIntegration::_getObjectAtURL(const std::string& path) {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    auto reply = sendForJSON(ZVServiceRequest::get(path));
    if (!reply.is_object()) throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
    return reply;
}

void ZVFreeAgentIntegration::_checkPermissionsLevel() {
    if (ZVJSON::integer(_getObjectAtURL("/v2/users/me"), "[user][permission_level]") > 2) return;
    throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString(
        "You haven't set the API permission high enough for Norvo. It has to be set to Contacts & Projects or higher."));
}

ZVIntegration::ProjectList ZVFreeAgentIntegration::loadRemoteProjects() {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    ZVLog([] { return std::string("Synchronization begins."); });
    struct Ended {
        ~Ended() { ZVLog([] { return std::string("Synchronization ended."); }); }
    } ended;
    if (includesContacts()) {
        ZVLog([] { return std::string("Synchronizing with clients."); });
        return _synchronizeWithClients();
    }
    ZVLog([] { return std::string("Synchronizing project only."); });
    return _synchronizeProjectsOnly();
}

ZVIntegration::ProjectList ZVFreeAgentIntegration::_synchronizeWithClients() {
    const auto self = shared_from_this();
    // Contacts: a name is the organisation's, else the person's.
    _checkPermissionsLevel();
    const auto contactItems = ZVListing::items(
        *this, ZVServiceRequest::get("/v2/contacts"),
        pages([](std::size_t page) { ZVLog([&] { return "Loading page nº " + std::to_string(page) + " of clients"; }); }),
        "contacts", ZVLocalizedString("Response contains no clients."));
    ProjectList contacts;
    for (const auto& item : contactItems) {
        auto name = ZVJSON::string(item, "organisation_name");
        if (!name || name->empty()) {
            const auto first = ZVJSON::string(item, "first_name"), last = ZVJSON::string(item, "last_name");
            if (first || last) name = first.value_or("") + " " + last.value_or("");
        }
        const auto url = ZVJSON::string(item, "url");
        if (!name || !url) {
            ZVLog([&] { return "No name or URL in " + item.dump(); });
            continue;
        }
        auto contact = ZVIntegrationProject::create(*name, *url);
        contact->setIntegration(self);
        contacts.push_back(contact);
    }
    ZVLog([&] { return "Loaded " + std::to_string(contacts.size()) + " clients."; });
    auto unassigned = ZVIntegrationProject::create(ZVLocalizedString("No Client Assigned"), noClientAssignedID);
    unassigned->setIntegration(self);

    std::unordered_map<std::string, ZVIntegrationProject::Pointer> contactsByURL;
    for (const auto& contact : contacts) contactsByURL.emplace(contact->projectID(), contact);
    const auto projects = _projectRecords("No name or URL in ");
    for (const auto& record : projects) {
        const auto found = record.others[0] ? contactsByURL.find(*record.others[0]) : contactsByURL.end();
        const ZVIntegrationProject::Pointer parent = found != contactsByURL.end() ? found->second : unassigned;
        auto project = ZVIntegrationProject::create(record.name, parent->projectID(), record.id);
        _loadTasksForProject(*project);
        if (project->hasSubprojects()) parent->addSubproject(project);
    }
    ProjectList result;
    for (const auto& contact : contacts)
        if (contact->hasSubprojects()) result.push_back(contact);
    if (unassigned->hasSubprojects()) result.push_back(unassigned);
    return result;
}

ZVIntegration::ProjectList ZVFreeAgentIntegration::_synchronizeProjectsOnly() {
    _checkPermissionsLevel();
    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& record : _projectRecords("Name or URL not found in ")) {
        auto project = ZVIntegrationProject::create(record.name, record.id);
        project->setIntegration(self);
        _loadTasksForProject(*project);
        if (project->hasSubprojects()) result.push_back(project);
    }
    return result;
}

std::vector<ZVRecord> ZVFreeAgentIntegration::_projectRecords(std::string_view skippedLine) {
    return ZVListing::records(
        ZVListing::items(*this, ZVServiceRequest::get("/v2/projects?view=active"),
                         pages([](std::size_t page) {
                             ZVLog([&] { return "Loading page nº " + std::to_string(page) + " of projects."; });
                         }),
                         "projects",
                         ZVLocalizedString("Can't find projects in response. Make sure you have enabled API access in "
                                           "FreeAgent's settings.")),
        {.idPath = "url", .otherPaths = {"contact"}}, skippedLine);
}

void ZVFreeAgentIntegration::_loadTasksForProject(ZVIntegrationProject& project) {
    const std::string url = project.subprojectID().value_or(project.projectID());
    const std::string id = url.substr(url.find_last_of('/') + 1);
    const std::string name = project.name();
    const auto tasks = ZVListing::records(
        ZVListing::items(*this, ZVServiceRequest::get("/v2/tasks?project=" + id),
                         pages([&](std::size_t page) {
                             ZVLog([&] { return "Loading page nº " + std::to_string(page) + " of tasks for project " + name; });
                         }),
                         "tasks", ZVLocalizedString("Response contains no tasks.")),
        {.idPath = "url", .otherPaths = {"status"}}, "taskDict is missing required information - ");
    for (const auto& task : tasks) {
        if (!task.others[0]) {
            ZVLog([&] { return "taskDict is missing required information - " + task.name; });
            continue;
        }
        if (*task.others[0] != "Active") {
            ZVLog([&] { return "Skipping task " + task.name + " as its status isn't active (" + *task.others[0] + ")"; });
            continue;
        }
        auto child = ZVIntegrationProject::create(task.name, project.projectID(),
                                                  project.subprojectID() ? project.subprojectID() : task.id);
        if (project.subprojectID()) child->setAdditionalID(task.id);
        project.addSubproject(child);
    }
    ZVLog([&] { return "Done loading tasks for " + name + ": " + std::to_string(project.subprojects().size()) + " tasks."; });
}

void ZVFreeAgentIntegration::postTime(ZVIntegrationProject& project) {
    // One timeslip a day's worth of time: the service takes no more in one.
    for (std::uint64_t left = project.time(); left > 0;) {
        const std::uint64_t part = std::min<std::uint64_t>(left, ZVTimeInterval::day);
        _postTime(part, project);
        left -= part;
    }
}

void ZVFreeAgentIntegration::_postTime(std::uint64_t seconds, ZVIntegrationProject& project) {
    ZVLog([] { return std::string("Preparing to post."); });
    const std::string hours = ZVPostingText::decimalHours(seconds, 7);
    const auto entry = project.lastTimeLogEntry();
    std::string comment = entry ? entry->text() : std::string();
    for (auto at = comment.find("%@"); at != std::string::npos; at = comment.find("%@", at + hours.size()))
        comment.replace(at, 2, hours);

    const auto me = _getObjectAtURL("/v2/users/me");
    const auto user = ZVJSON::string(me, "[user][url]");
    if (!user) {
        ZVLog([&] { return "Can't find user ID in " + me.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Cannot find user ID."));
    }
    if (!project.subprojectID())
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("The project you are posting to doesn't have a task ID (subproject ID)."));
    if (includesContacts() && !project.additionalID())
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("The project you are posting to doesn't have a task ID (additional ID)."));

    const nlohmann::json timeslip{
        {"timeslip",
         {{"hours", hours},
          {"dated_on", ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))},
          {"task", includesContacts() ? *project.additionalID() : *project.subprojectID()},
          {"project", includesContacts() ? *project.subprojectID() : project.projectID()},
          {"user", *user},
          {"comment", comment}}}};
    ZVLog([&] { return "Will be posting " + timeslip.dump(); });
    const auto reply = sendForJSON(ZVServiceRequest::postJSON("/v2/timeslips", timeslip));
    ZVLog([&] { return "Got response " + reply.dump(); });
    ZVPostingText::requireValue(reply, "timeslip");
}
