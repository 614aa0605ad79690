#include "core/integrations/address_based/minutedock/ZVMinuteDockIntegration.h"

#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace minutedock {
namespace {
constexpr const char* apiPath = "/api/v1/";
constexpr const char* entriesPath = "/api/v1/entries.json";
}  // namespace
}  // namespace minutedock

const std::vector<ZVIntegrationSetting>& ZVMinuteDockIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::credentialSwitch(
            usesAccessTokenKey, ZVLocalizable("Sign in with a personal access token"),
            "accessTokenButton"),
        {includesClientsKey, ZVIntegrationSetting::Kind::flag,
         ZVLocalizable("Include clients in the listing"), "includeClientsButton"},
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVMinuteDockIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString(
            "The API key from your MinuteDock profile, or a personal access token "
            "from Manage Access Tokens")};
}

ZVCredentialStyle ZVMinuteDockIntegration::credentialStyle() const {
    if (usesAccessToken()) return {ZVCredentialStyle::Kind::bearerToken};
    return {ZVCredentialStyle::Kind::queryParameter, "api_key"};
}

std::vector<nlohmann::json> ZVMinuteDockIntegration::_itemsAtEndpoint(const std::string& endpoint) {
    const auto reply = sendForJSON(ZVServiceRequest::get(minutedock::apiPath + endpoint + ".json"));
    if (reply.is_object()) {
        if (const auto message = ZVListing::text(ZVJSON::value(reply, "message")))
            throw ZVIntegrationErrorWithFailureReason(*message);
    }
    if (!reply.is_array()) throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
    return {reply.begin(), reply.end()};
}

std::shared_ptr<ZVIntegrationProject> ZVMinuteDockIntegration::_branch(
    const std::string& name, const std::string& projectID,
    const std::vector<nlohmann::json>& items) {
    auto branch = ZVIntegrationProject::create(name, projectID);
    branch->setIntegration(shared_from_this());
    for (const auto& item : items) {
        const auto itemName = ZVListing::text(ZVJSON::value(item, "name"));
        const auto code = ZVListing::text(ZVJSON::value(item, "short_code"));
        const auto id = ZVListing::text(ZVJSON::value(item, "id"));
        if (!itemName || !code || !id || itemName->empty() || id->empty()) {
            ZVLog([&] { return "No name or short_code in " + item.dump(); });
            continue;
        }
        auto child = ZVIntegrationProject::create(*itemName + " (#" + *code + ")", projectID, *id);
        child->setIntegration(shared_from_this());
        branch->addSubproject(std::move(child));
    }
    if (branch->subprojects().empty()) return nullptr;
    return branch;
}

ZVIntegration::ProjectList ZVMinuteDockIntegration::loadRemoteProjects() {
    const auto projects = _itemsAtEndpoint("projects");
    const auto tasks = _itemsAtEndpoint("tasks");
    ProjectList branches;
    const auto add = [&branches](std::shared_ptr<ZVIntegrationProject> branch) {
        if (branch) branches.push_back(std::move(branch));
    };
    add(_branch(ZVLocalizedString("Tasks"), tasksBranchID, tasks));
    add(_branch(ZVLocalizedString("Projects"), projectsBranchID, projects));
    if (includeClientsInListing())
        add(_branch(ZVLocalizedString("Clients"), clientsBranchID, _itemsAtEndpoint("contacts")));
    return branches;
}

void ZVMinuteDockIntegration::postTime(ZVIntegrationProject& project) {
    const std::string& branch = project.projectID();
    const char* itemField = branch == tasksBranchID      ? "entry[task_ids][]"
                            : branch == projectsBranchID ? "entry[project_id]"
                            : branch == clientsBranchID  ? "entry[client_id]"
                                                         : nullptr;
    if (!itemField || !project.subprojectID())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Internal inconsistency."));
    std::string note = ZVPostingText::title(project);
    if (note.empty()) note = "No notes";
    const auto reply = sendForJSON(ZVServiceRequest::postForm(
        minutedock::entriesPath, {{"entry[description]", note},
                                  {"entry[duration]", std::to_string(project.time())},
                                  {itemField, *project.subprojectID()}}));
    ZVLog([&] { return "Result " + reply.dump(); });
    ZVPostingText::requireValue(reply, "id");
}
