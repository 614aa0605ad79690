#include "core/integrations/address_based/tick/ZVTickIntegration.h"

#include <algorithm>
#include <ctime>
#include <map>

#include "ZVClock.h"
#include "ZVHelpers.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace tick {
namespace {
constexpr const char* serviceDomain = "tickspot.com";
constexpr const char* serviceURL = "https://www.tickspot.com";
constexpr const char* rolesPath = "/api/v2/roles.json";
}  // namespace
}  // namespace tick

std::string ZVTickIntegration::serviceBaseURL() const {
    return isHostedUnder(tick::serviceDomain) ? tick::serviceURL : baseURL();
}

const std::vector<ZVIntegrationSetting>& ZVTickIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        {.key = subscriptionIDKey,
         .kind = ZVIntegrationSetting::Kind::text,
         .label = ZVLocalizable("Subscription ID"),
         .controlName = "subscriptionIDField",
         .belongsToCredentials = true},
    };
    return declared;
}

void ZVTickIntegration::addAccountHeaders(ZVURLRequest& request) const {
    const std::string email = usernamePasswordAuthentication().username();
    request.setUserAgent(email.empty() ? "Norvo" : "Norvo (" + email + ")");
}

ZVTickIntegration::Role ZVTickIntegration::_currentRole() {
    {
        std::lock_guard guard(_roleLock);
        if (_role) return *_role;
    }
    ZVServiceRequest request = ZVServiceRequest::get(tick::rolesPath);
    // The one request that takes the login itself rather than a token.
    request.credentialStyle = ZVCredentialStyle{ZVCredentialStyle::Kind::basicUsernamePassword};
    const std::string wanted = subscriptionID();
    for (const auto& role : ZVListing::items(*this, request, {}, "")) {
        const auto subscription = ZVListing::text(ZVJSON::value(role, "subscription_id"));
        const auto token = ZVJSON::string(role, "api_token");
        if (!subscription || !token || token->empty() || (!wanted.empty() && *subscription != wanted)) continue;
        ZVLog([&] { return "Using subscription " + *subscription + " of " + ZVJSON::string(role, "company").value_or("?"); });
        std::lock_guard guard(_roleLock);
        _role = Role{*subscription, *token};
        return *_role;
    }
    if (wanted.empty()) throw ZVIntegrationAuthenticationError();
    throw ZVIntegrationErrorWithFailureReason(
        ZVLocalizedFormat("The Tick login of this account has no subscription %@.", {wanted}));
}

std::string ZVTickIntegration::logIn() { return _currentRole().token; }

bool ZVTickIntegration::endsRefusedSession(const ZVCredentialStyle& sent) {
    _forgetRole();
    return ZVAddressBasedIntegration::endsRefusedSession(sent);
}

void ZVTickIntegration::_forgetRole() {
    std::lock_guard guard(_roleLock);
    _role.reset();
}

std::string ZVTickIntegration::_resourcePath(const std::string& resource) {
    return "/" + _currentRole().subscriptionID + "/api/v2/" + resource;
}

ZVIntegration::ProjectList ZVTickIntegration::loadRemoteProjects() {
    // A synchronization reads the roles afresh: a token may have been renewed.
    _forgetRole();
    endSession();

    std::map<std::string, std::string> clientNames;
    for (const auto& client :
         ZVListing::records(ZVListing::items(*this, ZVServiceRequest::get(_resourcePath("clients.json")), {}, ""), {},
                            "Missing client name "))
        clientNames[client.id] = client.name;

    const auto listed = ZVListing::items(*this, ZVServiceRequest::get(_resourcePath("projects.json")),
                                         {.kind = ZVPagingStyle::Kind::pageNumber, .parameter = "page"}, "");
    if (listed.empty()) {
        ZVLog([&] { return "No projects in " + nlohmann::json(listed).dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Project listing contains no projects."));
    }

    const auto self = shared_from_this();
    ProjectList clients;
    std::map<std::string, ZVIntegrationProject::Pointer> clientsByID;
    for (const auto& project : ZVListing::records(listed, {.parentPath = "client_id"}, "Node missing name, ID or client ID ")) {
        const auto clientName = clientNames.find(project.parentID);
        if (clientName == clientNames.end()) {
            ZVLog([&] { return "Missing client name " + project.parentID + " of project " + project.id; });
            continue;
        }
        auto tasks = ZVListing::items(
            *this, ZVServiceRequest::get(_resourcePath("projects/" + project.id + "/tasks.json")), {}, "");
        auto node = ZVIntegrationProject::create(project.name, project.parentID, project.id);
        node->setIntegration(self);
        for (const auto& task : ZVListing::records(tasks, {.otherPaths = {"date_closed"}}, "Missing name or ID in ")) {
            if (task.others[0] && !task.others[0]->empty()) {
                ZVLog([&] { return "Skipping task " + task.name + " since it's closed."; });
                continue;
            }
            auto leaf = ZVIntegrationProject::create(task.name, project.parentID, project.id);
            leaf->setAdditionalID(task.id);
            leaf->setIntegration(self);
            node->addSubproject(std::move(leaf));
        }
        if (!node->hasSubprojects()) {
            ZVLog([&] { return "Couldn't load any tasks, ignoring project " + project.name + " (" + project.id + ")"; });
            continue;
        }
        auto& client = clientsByID[project.parentID];
        if (!client) {
            client = ZVIntegrationProject::create(clientName->second, project.parentID);
            client->setIntegration(self);
            clients.push_back(client);
        }
        client->addSubproject(std::move(node));
    }
    std::stable_sort(clients.begin(), clients.end(), [](const auto& first, const auto& second) {
        return ZVCaseInsensitiveLess(first->name(), second->name());
    });
    return clients;
}

void ZVTickIntegration::postTime(ZVIntegrationProject& project) {
    const nlohmann::json entry{
        {"date", ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))},
        {"hours", static_cast<double>(project.time()) / 3600.0},
        {"notes", ZVPostingText::title(project)},
        {"task_id", ZVPostingText::numericID(project.additionalID())}};
    const auto reply = send(ZVServiceRequest::postJSON(_resourcePath("entries.json"), entry));
    ZVLog([&] { return "Response: " + reply.body; });
}
