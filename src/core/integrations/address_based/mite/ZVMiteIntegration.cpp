#include "core/integrations/address_based/mite/ZVMiteIntegration.h"

#include "ZVDownloadCenter.h"
#include "ZVLog.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace mite {
namespace {
constexpr std::string_view serviceDomain = "mite.de";
constexpr std::string_view formerDomain = "mite.yo.lk";
constexpr const char* projectsPath = "/projects.xml";
constexpr const char* servicesPath = "/services.xml";
constexpr const char* timeEntriesPath = "/time_entries.xml";
}  // namespace
}  // namespace mite

std::string ZVMiteIntegration::serviceBaseURL() const {
    const std::string name = host();
    if (isHostedUnder(mite::formerDomain) && name.size() > mite::formerDomain.size())
        return "https://" + name.substr(0, name.size() - mite::formerDomain.size()) +
               std::string(mite::serviceDomain);
    return isHostedUnder(mite::serviceDomain) ? "https://" + name : baseURL();
}

void ZVMiteIntegration::addAccountHeaders(ZVURLRequest& request) const {
    request.setUserAgent(ZVDownloadCenter::defaultUserAgent());
}

ZVIntegration::ProjectList ZVMiteIntegration::loadRemoteProjects() {
    ZVServiceRequest projectsRequest = ZVServiceRequest::get(mite::projectsPath);
    // The key also goes in the query of this one call, as it always has.
    projectsRequest.query = {{"api_key", credentialToken()}};
    const auto projects = ZVListing::records(*this, projectsRequest, "projects/project", {},
                                             "projNode is missing name or ID ");
    const auto services =
        ZVListing::records(*this, ZVServiceRequest::get(mite::servicesPath), "services/service", {},
                           "serviceNode is missing name or ID ");
    return ZVListing::products(shared_from_this(), projects, services);
}

void ZVMiteIntegration::postTime(ZVIntegrationProject& project) {
    // Whole minutes: the seconds of a begun minute are dropped. The service
    // names the text of an entry "note"; an element it does not know it
    // drops without a word.
    const std::string body = ZVPostingText::xmlRecord(
        "time-entry", {{"minutes", std::to_string(project.time() / 60)},
                       {"note", ZVPostingText::title(project)},
                       {"project-id", project.projectID()},
                       {"service-id", project.subprojectID().value_or("")}});
    const auto reply = send(ZVServiceRequest::postXML(mite::timeEntriesPath, body));
    ZVLog([&] { return "Response " + reply.body; });
}
