#include "core/integrations/address_based/mavenlink/ZVMavenlinkIntegration.h"

#include <algorithm>
#include <unordered_map>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace mavenlink {
namespace {
constexpr const char* authorizationURL = "https://app.mavenlink.com/oauth/authorize";
constexpr const char* tokenURL = "https://app.mavenlink.com/oauth/token";
constexpr const char* storiesPath = "/api/v1/stories.json?include=assignees,workspace";
constexpr const char* timeEntriesPath = "/api/v1/time_entries.json";
// The server gives at most this many records a page, whatever is asked.
constexpr std::size_t largestPage = 200;

/// The records of a reply's map of one kind ("stories": {"12": {...}}), by id.
void collect(const nlohmann::json& reply, const char* kind,
             std::unordered_map<std::string, nlohmann::json>& into) {
    const nlohmann::json* records = ZVJSON::value(reply, kind);
    if (!records || !records->is_object()) return;
    for (const auto& [id, record] : records->items())
        if (record.is_object()) into.insert_or_assign(id, record);
}
}  // namespace
}  // namespace mavenlink

ZVOAuth2Configuration ZVMavenlinkIntegration::authenticationConfiguration() const {
    // The service takes only the redirect address registered with the
    // application, so the answer comes back on the scheme.
    return {.authorizationBaseURL = mavenlink::authorizationURL,
            .redirectionScheme = "norvomavenlink",
            .tokenEndpointURL = mavenlink::tokenURL,
            .tokenNeverExpires = true};
}

std::string ZVMavenlinkIntegration::notAuthorizedReason() const {
    return ZVLocalizedString(
        "You haven't authorized this account with Mavenlink. Edit this account and press the "
        "Authorize button.");
}

ZVIntegration::ProjectList ZVMavenlinkIntegration::loadRemoteProjects() {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    // A reply lists references ({"key": "stories", "id": "12"}) in "results";
    // the records sit in maps by id beside it, their workspaces included.
    std::unordered_map<std::string, nlohmann::json> stories, workspaces;
    const auto references =
        ZVListing::items(*this, ZVServiceRequest::get(mavenlink::storiesPath),
                         {.kind = ZVPagingStyle::Kind::pageNumber,
                          .parameter = "page",
                          .sizeParameter = "per_page",
                          .pageSize = mavenlink::largestPage,
                          .totalPath = "count",
                          .afterPage =
                              [&](const nlohmann::json& reply) {
                                  mavenlink::collect(reply, "stories", stories);
                                  mavenlink::collect(reply, "workspaces", workspaces);
                              }},
                         "results");

    const auto self = shared_from_this();
    std::unordered_map<std::string, ZVIntegrationProject::Pointer> nodes;
    for (const auto& entry : workspaces) {
        const std::string& id = entry.first;
        const nlohmann::json& workspace = entry.second;
        const auto title = ZVListing::text(ZVJSON::value(workspace, "title"));
        if (!title) {
            ZVLog([&] { return "No title in workspace " + workspace.dump(); });
            continue;
        }
        if (ZVJSON::boolean(workspace, "archived")) {
            ZVLog([&] { return "Skipping workspace " + *title + " since it's archived."; });
            continue;
        }
        auto node = ZVIntegrationProject::create(*title, id);
        node->setIntegration(self);
        nodes.emplace(id, node);
    }
    for (const auto& reference : references) {
        const auto id = ZVListing::text(ZVJSON::value(reference, "id"));
        const auto found =
            id && ZVJSON::string(reference, "key") == "stories" ? stories.find(*id) : stories.end();
        if (found == stories.end()) continue;
        const auto title = ZVListing::text(ZVJSON::value(found->second, "title"));
        const auto workspaceID =
            ZVListing::text(ZVJSON::value(found->second, "workspace_id")).value_or("");
        const auto parent = nodes.find(workspaceID);
        if (!title || parent == nodes.end()) {
            ZVLog([&] {
                return "Failed to find workspace (" + workspaceID + ") for story (" + *id + ")";
            });
            continue;
        }
        parent->second->addSubproject(ZVIntegrationProject::create(*title, workspaceID, *id));
    }
    ProjectList result;
    for (auto& entry : nodes) {
        const ZVIntegrationProject::Pointer& workspace = entry.second;
        if (!workspace->hasSubprojects()) {
            ZVLog([&] {
                return "Workspace " + workspace->name() + " has no subprojects, skipping.";
            });
            continue;
        }
        result.push_back(workspace);
    }
    // The maps carry no order of their own.
    std::sort(result.begin(), result.end(),
              [](const auto& a, const auto& b) { return a->name() < b->name(); });
    return result;
}

void ZVMavenlinkIntegration::postTime(ZVIntegrationProject& project) {
    if (!account()) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    // "2026-11-25" becomes "11/25/2026".
    const std::string day =
        ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()));
    const std::string performed =
        day.substr(5, 2) + "/" + day.substr(8, 2) + "/" + day.substr(0, 4);
    const auto reply = sendForJSON(ZVServiceRequest::postForm(
        mavenlink::timeEntriesPath, {{"time_entry[date_performed]", performed},
                                     {"time_entry[time_in_minutes]",
                                      std::to_string(ZVPostingText::wholeMinutes(project.time()))},
                                     {"time_entry[story_id]", project.subprojectID().value_or("")},
                                     {"time_entry[workspace_id]", project.projectID()},
                                     {"time_entry[notes]", ZVPostingText::title(project)}}));
    if (!ZVJSON::value(reply, "errors")) return;
    ZVLog([&] { return "Posting was refused: " + reply.dump(); });
    const auto words = ZVJSON::string(reply, refusalMessagePath());
    if (!words || words->empty()) throw ZVIntegrationGenericTimePostingError();
    throw ZVIntegrationErrorWithFailureReason(*words);
}
