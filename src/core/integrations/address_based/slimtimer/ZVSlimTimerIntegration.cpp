#include "core/integrations/address_based/slimtimer/ZVSlimTimerIntegration.h"

#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace slimtimer {
namespace {
constexpr const char* projectsPath = "/projects";
}  // namespace
}  // namespace slimtimer

std::string ZVSlimTimerIntegration::serviceBaseURL() const {
    std::string server = textSetting(serverKey);
    while (!server.empty() && server.back() == '/') server.pop_back();
    if (server.empty()) return baseURL();
    return server.starts_with("http://") || server.starts_with("https://") ? server : "http://" + server;
}

const std::vector<ZVIntegrationSetting>& ZVSlimTimerIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        {.key = serverKey,
         .kind = ZVIntegrationSetting::Kind::text,
         .label = ZVLocalizable("Server"),
         .controlName = "serverField",
         .belongsToCredentials = true},
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVSlimTimerIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString("SlimTimer has closed this API; a server that still speaks it can be named below.")};
}

ZVCredentialStyle ZVSlimTimerIntegration::credentialStyle() const {
    // The token is both the user name and the password, so the word beside it is the token itself.
    return {ZVCredentialStyle::Kind::basicTokenAndWord, credentialToken()};
}

ZVIntegration::ProjectList ZVSlimTimerIntegration::loadRemoteProjects() {
    const auto reply = sendForJSON(ZVServiceRequest::get(slimtimer::projectsPath));
    const nlohmann::json* projects = ZVJSON::value(reply, "projects");
    if (!projects || !projects->is_array()) {
        ZVLog([&] { return "No projects in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("No projects in response."));
    }
    const std::vector<nlohmann::json> entries(projects->begin(), projects->end());
    return ZVListing::nodes(shared_from_this(), ZVListing::records(entries, {}, "Missing name or ID in "));
}

void ZVSlimTimerIntegration::postTime(ZVIntegrationProject& project) {
    const nlohmann::json item{
        {"project_item",
         {{"title", ZVPostingText::title(project)}, {"hours", static_cast<double>(project.time()) / 3600.0}}}};
    const auto reply = sendForJSON(
        ZVServiceRequest::postJSON(std::string(slimtimer::projectsPath) + "/" + project.projectID() + "/hours", item));
    ZVLog([&] { return "Posted with response " + reply.dump(); });
    ZVPostingText::requireValue(reply, "id");
}
