#include "core/integrations/address_based/redmine/ZVRedmineIntegration.h"

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
namespace redmine {
namespace {
constexpr const char* projectsPath = "/projects.json?include=enabled_modules";
// Open issues of every project (the server's default status filter), each naming its project.
constexpr const char* issuesPath = "/issues.json?status_id=open";
constexpr const char* activitiesPath = "/enumerations/time_entry_activities.json";
constexpr const char* timeEntriesPath = "/time_entries.json";

/// Pages numbered from 1 of at most 100 records, with the size of the
/// whole list in "total_count". The server reads page P as the offset
/// (P - 1) x limit, so a page 0 would only repeat the first page.
ZVPagingStyle paging() {
    return {.kind = ZVPagingStyle::Kind::pageNumber,
            .parameter = "page",
            .sizeParameter = "limit",
            .pageSize = 100,
            .firstPage = 1,
            .totalPath = "total_count"};
}

/// Whether the server's refusal says that the entry needs an activity, in
/// the words of older ("can't") and newer ("cannot") servers.
bool asksForActivity(std::string reason) {
    std::transform(reason.begin(), reason.end(), reason.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return reason.find("activity can't be blank") != std::string::npos ||
           reason.find("activity cannot be blank") != std::string::npos;
}

/// Whether a project tracks issues: one that lists its modules must name
/// "issue_tracking"; one that lists none (an old server) is kept.
bool tracksIssues(const nlohmann::json& project) {
    const nlohmann::json* modules = ZVJSON::value(project, "enabled_modules");
    if (!modules || !modules->is_array()) return true;
    const bool tracks =
        std::any_of(modules->begin(), modules->end(), [](const nlohmann::json& module) {
            return ZVJSON::string(module, "name") == "issue_tracking";
        });
    if (!tracks)
        ZVLog([&] {
            return "Project " + ZVListing::text(ZVJSON::value(project, "name")).value_or("") +
                   " doesn't have issue tracking enabled - " + modules->dump();
        });
    return tracks;
}
}  // namespace
}  // namespace redmine

const std::vector<ZVIntegrationSetting>& ZVRedmineIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {synchronizationTypeKey,
         Kind::choice,
         ZVLocalizable("Synchronize"),
         "synchronizationTypePopUp",
         std::nullopt,
         {{static_cast<std::int64_t>(SynchronizationType::projects), ZVLocalizable("Projects")},
          {static_cast<std::int64_t>(SynchronizationType::issues),
           ZVLocalizable("Projects and their open issues")}}},
        {onlyAssignedToMeKey, Kind::flag, ZVLocalizable("Only issues assigned to me"),
         "onlyAssignedToMeButton"},
        // Kept and stored as it always was; the activity is asked for at every post all the same.
        {asksForActivityKey, Kind::flag, ZVLocalizable("Ask for the activity before posting"),
         "askForActivityButton"},
    };
    return declared;
}

ZVRedmineIntegration::SynchronizationType ZVRedmineIntegration::synchronizationType() const {
    return choiceSetting(synchronizationTypeKey) ==
                   static_cast<std::int64_t>(SynchronizationType::issues)
               ? SynchronizationType::issues
               : SynchronizationType::projects;
}

ZVIntegration::ProjectList ZVRedmineIntegration::loadRemoteProjects() {
    auto projectItems = ZVListing::items(*this, ZVServiceRequest::get(redmine::projectsPath),
                                         redmine::paging(), "projects");
    std::erase_if(projectItems,
                  [](const nlohmann::json& project) { return !redmine::tracksIssues(project); });
    const auto projects = ZVListing::records(projectItems, {}, "Missing name or ID in ");
    if (synchronizationType() == SynchronizationType::projects)
        return ZVListing::nodes(shared_from_this(), projects);

    std::string path = redmine::issuesPath;
    if (flagSetting(onlyAssignedToMeKey)) path += "&assigned_to_id=me";
    auto issues = ZVListing::records(
        ZVListing::items(*this, ZVServiceRequest::get(path), redmine::paging(), "issues"),
        {.namePath = "subject", .parentPath = "[project][id]", .otherPaths = {"[status][name]"}},
        "Name or ID is missing ");
    std::erase_if(issues, [](const ZVRecord& issue) {
        std::string status = issue.others[0].value_or("");
        std::transform(status.begin(), status.end(), status.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        if (status != "closed") return false;
        ZVLog([&] { return "Skipping issue " + issue.id + " since its status is closed."; });
        return true;
    });
    for (auto& issue : issues) issue.name = issue.id + " - " + issue.name;
    // A project without open issues has nothing to post to in this mode.
    return ZVListing::twoLevels(shared_from_this(), projects, issues, false);
}

std::optional<std::string> ZVRedmineIntegration::_selectActivity() {
    const auto items = ZVListing::items(*this, ZVServiceRequest::get(redmine::activitiesPath), {},
                                        "time_entry_activities");
    const auto activities = ZVListing::records(items, {}, "Activity node missing name or ID in ");
    if (activities.empty())
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("There are no activities defined in Redmine."));
    // A later default replaces an earlier one.
    std::optional<std::string> defaultID;
    for (const auto& item : items)
        if (ZVJSON::boolean(item, "is_default"))
            defaultID = ZVListing::text(ZVJSON::value(item, "id"));
    std::vector<std::string> names;
    std::size_t preselected = 0;
    for (const auto& activity : activities) {
        if (activity.id == defaultID) preselected = names.size();
        names.push_back(activity.name);
    }
    ZVAlert alert{.messageText = ZVLocalizedString("Please, select activity:"),
                  .buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Cancel")}};
    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    const auto chosen = ui.runModalWithChoice(alert, names, preselected);
    if (!chosen) return std::nullopt;
    return activities.at(*chosen).id;
}

void ZVRedmineIntegration::postTime(ZVIntegrationProject& project) {
    // Cancel posts all the same, without an activity: the server's default then applies.
    const auto activity = _selectActivity();
    nlohmann::json entry{{"hours", ZVPostingText::decimalHours(project.time(), 2)},
                         {"comments", ZVPostingText::title(project)}};
    if (project.subprojectID())
        entry["issue_id"] = *project.subprojectID();
    else
        entry["project_id"] = project.projectID();
    if (activity) entry["activity_id"] = *activity;
    ZVLog([&] { return "Redmine: Created body " + entry.dump() + "."; });
    try {
        const auto reply = sendForJSON(
            ZVServiceRequest::postJSON(redmine::timeEntriesPath, {{"time_entry", entry}}));
        ZVPostingText::requireValue(reply, "[time_entry][id]");
    } catch (const ZVIntegrationError& error) {
        if (redmine::asksForActivity(error.localizedFailureReason().value_or(""))) {
            auto& ui = ZVUserInterface::shared();
            ui.activateApplication();
            ui.runModal(
                {.messageText =
                     ZVLocalizedString("You need to set default activity in your Redmine account."),
                 .informativeText = ZVLocalizedString(
                     "Unfortunately, Redmine requires either the default activity is set in your "
                     "Redmine account, or for Norvo to include activity ID when posting a time "
                     "entry. The Redmine API, however, doesn't support listing activities, so "
                     "there's no way for Norvo to offer the list of activities for you. Hence you "
                     "indeed need to set the default activity in settings for your Redmine "
                     "account."),
                 .buttons = {ZVLocalizedString("OK")}});
        }
        throw;
    }
}
