#include "core/integrations/address_based/freckle/ZVFreckleIntegration.h"

#include <ctime>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace freckle {
namespace {
constexpr const char* serviceDomain = "nokotime.com";
// Accounts set up before the service took its new name keep this address.
constexpr const char* formerServiceDomain = "letsfreckle.com";
constexpr const char* serviceURL = "https://api.nokotime.com";
constexpr const char* projectsPath = "/v2/projects";
constexpr const char* entriesPath = "/v2/entries";
// The most projects the service hands out in one page.
constexpr std::size_t projectPageSize = 1000;
}  // namespace
}  // namespace freckle

std::string ZVFreckleIntegration::serviceBaseURL() const {
    const bool isServices =
        isHostedUnder(freckle::serviceDomain) || isHostedUnder(freckle::formerServiceDomain);
    return isServices ? freckle::serviceURL : baseURL();
}

std::optional<ZVCredentialPresentation> ZVFreckleIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString(
            "Freckle is now Noko. Use a personal access token from Integrations & Apps, "
            "Noko API, in Noko."),
        .usernameLabel = usernameLabel()};
}

void ZVFreckleIntegration::addAccountHeaders(ZVURLRequest& request) const {
    // The service wants to know whom to ask about a client that misbehaves.
    const std::string email = usernameAPITokenAuthentication().username();
    request.setUserAgent(email.empty() ? "Norvo" : "Norvo (" + email + ")");
}

ZVIntegration::ProjectList ZVFreckleIntegration::loadRemoteProjects() {
    const ZVPagingStyle paging{
        .kind = ZVPagingStyle::Kind::linkHeader,
        .sizeParameter = "per_page",
        .pageSize = freckle::projectPageSize,
        .afterPage = [](const nlohmann::json& reply) {
            ZVLog([&] { return "Received project list " + reply.dump() + "."; });
        }};
    // Archived projects take no entries, so they stay out of the tree.
    ZVServiceRequest request = ZVServiceRequest::get(freckle::projectsPath);
    request.query = {{"enabled", "true"}};
    const auto projects = ZVListing::items(*this, request, paging, "");
    return ZVListing::nodes(shared_from_this(),
                            ZVListing::records(projects, {}, "Missing name or ID in "));
}

void ZVFreckleIntegration::postTime(ZVIntegrationProject& project) {
    // Whole minutes, the seconds dropped, as the service always took them.
    const nlohmann::json entry{
        {"date", ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))},
        {"minutes", project.time() / 60},
        {"project_id", ZVPostingText::numericID(project.projectID())},
        {"description", ZVPostingText::title(project)}};
    send(ZVServiceRequest::postJSON(freckle::entriesPath, entry));
}
