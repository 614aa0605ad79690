#include "core/integrations/address_based/harvest/ZVHarvestIntegration.h"

#include <ctime>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace harvest {
namespace {
constexpr const char* serviceDomain = "harvestapp.com";
constexpr const char* serviceURL = "https://api.harvestapp.com";
constexpr const char* projectAssignmentsPath = "/v2/users/me/project_assignments";
constexpr const char* timeEntriesPath = "/v2/time_entries";
constexpr const char* developersURL = "https://id.getharvest.com/developers";

const ZVRecordShape projectShape{.idPath = "[project][id]", .namePath = "[project][name]"};
const ZVRecordShape taskShape{.idPath = "[task][id]", .namePath = "[task][name]"};
}  // namespace
}  // namespace harvest

std::string ZVHarvestIntegration::serviceBaseURL() const {
    return isHostedUnder(harvest::serviceDomain) ? harvest::serviceURL : baseURL();
}

const std::vector<ZVIntegrationSetting>& ZVHarvestIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        {.key = accountIDKey,
         .kind = ZVIntegrationSetting::Kind::text,
         .label = ZVLocalizable("Account ID"),
         .controlName = "accountIDField",
         .belongsToCredentials = true},
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVHarvestIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString("Harvest closed sign-in by password in 2019. Use a personal "
                                  "access token and the account ID from Developers in Harvest ID."),
        .usernameLabel = usernameLabel(),
        .secretLabel = ZVLocalizedString("Personal access token"),
        .linkTitle = ZVLocalizedString("Create a Token..."),
        .linkURL = harvest::developersURL};
}

void ZVHarvestIntegration::addAccountHeaders(ZVURLRequest& request) const {
    request.setHeader("Harvest-Account-Id", accountID());
    // The service wants to know whom to ask about a client that misbehaves.
    const std::string email = usernamePasswordAuthentication().username();
    request.setUserAgent(email.empty() ? "Norvo" : "Norvo (" + email + ")");
}

ZVIntegration::ProjectList ZVHarvestIntegration::loadRemoteProjects() {
    ZVLog([&] {
        return "Getting projects for " + usernamePasswordAuthentication().username() + " at " +
               address();
    });
    const ZVPagingStyle paging{
        .kind = ZVPagingStyle::Kind::nextURL,
        .nextPath = "[links][next]",
        .afterPage = [](const nlohmann::json& reply) {
            ZVLog([&] { return "Got projects " + reply.dump(); });
        }};
    const auto assignments = ZVListing::items(
        *this, ZVServiceRequest::get(harvest::projectAssignmentsPath), paging, "project_assignments");

    ProjectList projects;
    const auto self = shared_from_this();
    for (const auto& assignment : assignments) {
        const auto project =
            ZVListing::records({assignment}, harvest::projectShape, "projectNode missing name or ID ");
        if (project.empty()) continue;
        auto node = ZVIntegrationProject::create(project.front().name, project.front().id);
        node->setIntegration(self);

        std::vector<nlohmann::json> taskAssignments;
        if (const auto* listed = ZVJSON::value(assignment, "task_assignments");
            listed && listed->is_array()) {
            for (const auto& taskAssignment : *listed) {
                // Time cannot be booked on a task that the project has archived.
                if (ZVJSON::value(taskAssignment, "is_active") && !ZVJSON::boolean(taskAssignment, "is_active")) {
                    ZVLog([&] { return "Skipping archived task assignment " + taskAssignment.dump(); });
                    continue;
                }
                taskAssignments.push_back(taskAssignment);
            }
        }
        for (const auto& task :
             ZVListing::records(taskAssignments, harvest::taskShape, "taskNode missing name or ID ")) {
            auto child = ZVIntegrationProject::create(task.name, project.front().id, task.id);
            child->setIntegration(self);
            node->addSubproject(std::move(child));
        }
        projects.push_back(std::move(node));
    }
    return projects;
}

void ZVHarvestIntegration::postTime(ZVIntegrationProject& project) {
    std::string notes = ZVPostingText::title(project);
    if (notes.empty()) notes = "No notes";
    const nlohmann::json entry{
        {"project_id", ZVPostingText::numericID(project.projectID())},
        {"task_id", ZVPostingText::numericID(project.subprojectID())},
        {"spent_date",
         ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))},
        {"hours", static_cast<double>(project.time()) / 3600.0},
        {"notes", notes}};
    ZVLog([&] { return "Will be posting - " + entry.dump(); });
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(harvest::timeEntriesPath, entry));
    ZVLog([&] { return "Result - " + reply.dump(); });
    ZVPostingText::requireValue(reply, "id");
}
