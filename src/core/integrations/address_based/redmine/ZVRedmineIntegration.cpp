#include "core/integrations/address_based/redmine/ZVRedmineIntegration.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVXML.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

// The names are the service's own: a unity build puts services side by side.
namespace redmine {
namespace {
constexpr const char* projectsPath = "/projects.xml";
constexpr const char* issuesPath = "/issues.xml";
// Asked with the doubled slash it has always had; the server folds it.
constexpr const char* activitiesPath = "//enumerations/time_entry_activities.xml";
constexpr const char* timeEntriesPath = "/time_entries.xml";
constexpr std::size_t pageSize = 100;

/// Pages numbered from 1 of at most 100 records; a shorter page is the
/// last. The server reads page P as the offset (P - 1) x limit, so a page
/// 0 would only repeat the first page.
ZVPagingStyle paging() {
    return {.kind = ZVPagingStyle::Kind::pageNumber,
            .parameter = "page",
            .sizeParameter = "limit",
            .pageSize = pageSize,
            .firstPage = 1,
            .shortPageIsLast = true};
}

std::string described(const pugi::xml_node& node) { return ZVXMLDocument::printed(node); }

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

/// Whether a project tracks issues: one that lists its modules must name
/// "issue_tracking"; one that lists none (an old server) is kept.
bool tracksIssues(const pugi::xml_node& project, const std::string& name) {
    if (ZVXMLDocument::nodes(project, "enabled_modules").empty()) return true;
    std::vector<std::string> modules;
    for (const auto& module : ZVXMLDocument::nodes(project, "enabled_modules/enabled_module"))
        modules.push_back(ZVXMLDocument::string(module, "@name").value_or(""));
    if (std::find(modules.begin(), modules.end(), "issue_tracking") != modules.end()) return true;
    ZVLog([&] {
        std::string list;
        for (const auto& module : modules) list += (list.empty() ? "" : ", ") + module;
        return "Project " + name + " doesn't have issue tracking enabled - " + list;
    });
    return false;
}

/// Shows, when the server's refusal says that the entry needs an activity
/// (in the words of older, "can't", and newer servers, "cannot"), how to
/// give the account a default one.
void explainMissingActivity(const std::string& refusal) {
    const std::string words = lowercased(refusal);
    if (words.find("activity can't be blank") == std::string::npos &&
        words.find("activity cannot be blank") == std::string::npos)
        return;
    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    ui.runModal({.messageText = ZVLocalizedString("You need to set default activity in your Redmine account."),
                 .informativeText = ZVLocalizedString(
                     "Unfortunately, Redmine requires either the default activity is set in your Redmine account, "
                     "or for Norvo to include activity ID when posting a time entry. The Redmine API, however, "
                     "doesn't support listing activities, so there's no way for Norvo to offer the list of "
                     "activities for you. Hence you indeed need to set the default activity in settings for your "
                     "Redmine account."),
                 .buttons = {ZVLocalizedString("OK")}});
}
}  // namespace
}  // namespace redmine

const std::vector<ZVIntegrationSetting>& ZVRedmineIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::synchronization(synchronizationTypeKey, ZVLocalizable("Projects"),
                                              ZVLocalizable("Projects and their open issues")),
        {onlyAssignedToMeKey, Kind::flag, ZVLocalizable("Only issues assigned to me"), "onlyAssignedToMeButton"},
        // Kept and stored as it always was; the activity is asked for at every post all the same.
        {asksForActivityKey, Kind::flag, ZVLocalizable("Ask for the activity before posting"), "askForActivityButton"},
    };
    return declared;
}

ZVRedmineIntegration::SynchronizationType ZVRedmineIntegration::synchronizationType() const {
    return choiceSetting(synchronizationTypeKey) == static_cast<std::int64_t>(SynchronizationType::issues)
               ? SynchronizationType::issues
               : SynchronizationType::projects;
}

void ZVRedmineIntegration::addAccountHeaders(ZVURLRequest& request) const {
    request.setUserAgent("Norvo");
    request.setHeader("X-Redmine-API-Key", credentialToken());
}

ZVIntegration::ProjectList ZVRedmineIntegration::loadRemoteProjects() {
    ZVServiceRequest request = ZVServiceRequest::get(redmine::projectsPath);
    // The key also goes in the query of this one call, as it always has.
    request.query = {{"include", "enabled_modules"}, {"limit", "100"}, {"page", "1"}, {"key", credentialToken()}};
    const bool withIssues = synchronizationType() != SynchronizationType::projects;
    ProjectList result;
    ZVListing::eachXMLPage(*this, request, redmine::paging(), "projects/project", [&](const auto& page) {
        for (const auto& node : page) {
            // The last of each, should a server send more than one.
            const auto id = ZVXMLDocument::string(node, "id[last()]");
            const auto name = ZVXMLDocument::string(node, "name[last()]");
            if (!id || id->empty() || !name) {
                ZVLog([&] { return "Missing name or ID in " + redmine::described(node); });
                continue;
            }
            if (!redmine::tracksIssues(node, *name)) continue;
            auto project = ZVIntegrationProject::create(*name, *id);
            project->setIntegration(weak_from_this());
            if (withIssues) {
                _addIssuesToProject(*project);
                // Nothing to post to in this mode.
                if (!project->hasSubprojects()) continue;
            }
            result.push_back(std::move(project));
        }
    });
    return result;
}

void ZVRedmineIntegration::_addIssuesToProject(ZVIntegrationProject& project) {
    ZVServiceRequest request = ZVServiceRequest::get(redmine::issuesPath);
    request.query = {{"project_id", project.projectID()}, {"limit", "100"}, {"page", "1"}};
    if (flagSetting(onlyAssignedToMeKey)) request.query.emplace_back("assigned_to_id", "me");
    ZVListing::eachXMLPage(*this, request, redmine::paging(), "issues/issue", [&](const auto& page) {
        for (const auto& node : page) {
            const auto id = ZVXMLDocument::string(node, "id[last()]");
            const auto subject = ZVXMLDocument::string(node, "subject[last()]");
            if (!id || id->empty() || !subject) {
                ZVLog([&] { return "Name or ID is missing " + redmine::described(node); });
                continue;
            }
            // Only the status named so: a server's other closed-like statuses stay.
            if (redmine::lowercased(ZVXMLDocument::string(node, "status/@name").value_or("")) == "closed") {
                ZVLog([&] {
                    return "Skipping issue " + *id + " in project " + project.name() + " since its status is closed.";
                });
                continue;
            }
            project.addSubproject(ZVIntegrationProject::create(*id + " - " + *subject, project.projectID(), *id));
        }
    });
}

std::optional<std::string> ZVRedmineIntegration::_selectActivity() {
    std::vector<std::string> names, ids;
    std::size_t preselected = 0;
    ZVListing::eachXMLPage(*this, ZVServiceRequest::get(redmine::activitiesPath), {},
                           "time_entry_activities/time_entry_activity", [&](const auto& activities) {
                               for (const auto& node : activities) {
                                   const auto name = ZVXMLDocument::string(node, "name");
                                   const auto id = ZVXMLDocument::string(node, "id");
                                   if (!name || !id) {
                                       ZVLog([&] {
                                           return "Activity node missing name or ID in " + redmine::described(node);
                                       });
                                       continue;
                                   }
                                   // A later default replaces an earlier one.
                                   if (ZVXMLDocument::string(node, "is_default") == "true") preselected = names.size();
                                   names.push_back(*name);
                                   ids.push_back(*id);
                               }
                           });
    if (names.empty())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("There are no activities defined in Redmine."));
    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    const auto chosen = ui.runModalWithChoice(
        {.messageText = ZVLocalizedString("Please, select activity:"),
         .buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Cancel")}},
        names, preselected);
    if (!chosen || ids.at(*chosen).empty()) return std::nullopt;
    return ids.at(*chosen);
}

void ZVRedmineIntegration::postTime(ZVIntegrationProject& project) {
    const std::string hours = ZVPostingText::decimalHours(project.time(), 2);
    // A "%@" in the note stands for the hours.
    const std::string comment = ZVPostingText::title(project, hours);
    // Cancel posts all the same, without an activity: the server's default then applies.
    const auto activity = _selectActivity();

    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    auto entry = document.append_child("time_entry");
    // By the account's mode, not the node's level: an issues account names an issue.
    if (synchronizationType() == SynchronizationType::projects)
        entry.append_child("project_id").text().set(project.projectID().c_str());
    else
        entry.append_child("issue_id").text().set(project.subprojectID().value_or("").c_str());
    entry.append_child("hours").text().set(hours.c_str());
    entry.append_child("comments").text().set(comment.c_str());
    if (activity) entry.append_child("activity_id").text().set(activity->c_str());
    std::ostringstream body;
    document.save(body, "", pugi::format_raw);
    ZVLog([&] { return "KDRedminePosterTemplate: Created body " + body.str() + "."; });

    std::optional<ZVXMLDocument> reply;
    try {
        ZVServiceRequest post = ZVServiceRequest::postXML(redmine::timeEntriesPath, body.str());
        post.headers = {{"Accept", "application/xml"}};
        reply = sendForXML(post);
    } catch (const ZVIntegrationError& error) {
        redmine::explainMissingActivity(error.localizedFailureReason().value_or(""));
        throw;
    }
    if (const auto refusal = reply->string("errors/error"); refusal && !refusal->empty()) {
        redmine::explainMissingActivity(*refusal);
        throw ZVIntegrationErrorWithFailureReason(*refusal);
    }
    if (reply->nodes("time_entry").size() != 1) throw ZVIntegrationGenericTimePostingError();
}
