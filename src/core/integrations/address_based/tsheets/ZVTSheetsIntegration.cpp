#include "core/integrations/address_based/tsheets/ZVTSheetsIntegration.h"

#include <ctime>
#include <vector>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace tsheets {
namespace {
constexpr const char* serviceDomain = "tsheets.com";
constexpr const char* serviceURL = "https://rest.tsheets.com";
constexpr const char* currentUserPath = "/api/v1/current_user";
constexpr const char* jobCodesPath = "/api/v1/jobcodes";
constexpr const char* timesheetsPath = "/api/v1/timesheets";
// The most job codes the service hands out in one page.
constexpr const char* pageSize = "200";
// Job codes three levels deep are the last that fit the tree's three ids.
constexpr int deepestLevel = 2;

/// The members of the object at the key path, each an object; nothing
/// otherwise. An empty list is read whether it comes as {} or as [].
std::optional<std::vector<nlohmann::json>> members(const nlohmann::json& reply,
                                                   std::string_view keyPath) {
    const nlohmann::json* found = ZVJSON::value(reply, keyPath);
    if (found && found->is_array() && found->empty()) return std::vector<nlohmann::json>{};
    if (!found || !found->is_object()) return std::nullopt;
    std::vector<nlohmann::json> result;
    for (const auto& member : *found) {
        if (!member.is_object()) return std::nullopt;
        result.push_back(member);
    }
    return result;
}
}  // namespace
}  // namespace tsheets

std::string ZVTSheetsIntegration::serviceBaseURL() const {
    return isHostedUnder(tsheets::serviceDomain) ? tsheets::serviceURL : baseURL();
}

std::optional<ZVCredentialPresentation> ZVTSheetsIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        ZVLocalizedString("TSheets is now QuickBooks Time. Enter the access token that an "
                          "administrator creates in its API add-on as the API token; the "
                          "password is no longer used."),
        {},
        ZVLocalizedString("Password (not used)"),
        {},
        {},
        {}};
}

void ZVTSheetsIntegration::_getToken() {
    if (!credentialToken().empty()) return;
    ZVLog([] { return std::string("Missing token in the account's credentials"); });
    throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Failed to obtain token."));
}

std::string ZVTSheetsIntegration::_login() {
    const auto reply = sendForJSON(ZVServiceRequest::get(tsheets::currentUserPath));
    const auto users = tsheets::members(reply, "[results][users]");
    const auto userID = users && !users->empty()
                            ? ZVListing::text(ZVJSON::value(users->front(), "id"))
                            : std::nullopt;
    if (!userID) {
        ZVLog([&] { return "Can't sign in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Failed to login."));
    }
    return *userID;
}

ZVIntegration::ProjectList ZVTSheetsIntegration::loadRemoteProjects() {
    _getToken();
    _login();
    return _loadJobCodesForLevel(0, nullptr);
}

ZVIntegration::ProjectList ZVTSheetsIntegration::_loadJobCodesForLevel(
    int level, const ZVIntegrationProject* parent) {
    ProjectList nodes;
    if (level < 0 || level > tsheets::deepestLevel) return nodes;
    const std::optional<std::string> parentID = level == 0   ? std::optional<std::string>("0")
                                                : level == 1 ? parent->projectID()
                                                             : parent->subprojectID();

    std::vector<nlohmann::json> jobCodes;
    ZVPaging::Guard guard;
    for (std::size_t page = 1;; ++page) {
        guard.beforePage();
        ZVServiceRequest request = ZVServiceRequest::get(tsheets::jobCodesPath);
        request.query = {{"parent_ids", parentID.value_or("")},
                         {"active", "yes"},
                         {"limit", tsheets::pageSize},
                         {"page", std::to_string(page)}};
        const auto reply = sendForJSON(request);
        auto listed = tsheets::members(reply, "[results][jobcodes]");
        if (!listed) {
            ZVLog([&] { return "Missing results in " + reply.dump(); });
            throw ZVIntegrationErrorWithFailureReason(
                ZVLocalizedString("Missing results in jobcodes listing."));
        }
        if (listed->empty()) break;
        guard.notePage(ZVPaging::fingerprint(*listed));
        jobCodes.insert(jobCodes.end(), listed->begin(), listed->end());
        if (!ZVJSON::boolean(reply, "more")) break;
    }

    bool metChildLevel = false;
    const auto self = shared_from_this();
    for (const auto& jobCode : jobCodes) {
        const auto ID = ZVListing::text(ZVJSON::value(jobCode, "id"));
        const auto name = ZVListing::text(ZVJSON::value(jobCode, "name"));
        if (!ID || !name) {
            ZVLog([&] { return "jobCode missing ID or name " + jobCode.dump(); });
            continue;
        }
        auto node = level == 0   ? ZVIntegrationProject::create(*name, *ID)
                    : level == 1 ? ZVIntegrationProject::create(*name, parent->projectID(), *ID)
                                 : ZVIntegrationProject::create(*name, parent->projectID(),
                                                                parent->subprojectID());
        if (level == 2) node->setAdditionalID(*ID);
        node->setIntegration(self);
        // The service says true; its older replies said 1.
        if (ZVJSON::integer(jobCode, "has_children") == 1) {
            metChildLevel = true;
            node->addSubprojectsFromArray(_loadJobCodesForLevel(level + 1, node.get()));
        }
        nodes.push_back(std::move(node));
    }
    // The words promise a partial tree, but the whole synchronization fails:
    // they stay as users have always read them.
    if (metChildLevel && level == tsheets::deepestLevel) {
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("There are too many levels of job codes for Norvo to handle. "
                              "Norvo can only handle up to three levels of job codes. Job codes "
                              "at levels 4+ will not be loaded. This message will only be shown "
                              "this one time."));
    }
    return nodes;
}

void ZVTSheetsIntegration::postTime(ZVIntegrationProject& project) {
    // Every post asks anew who the token belongs to.
    _getToken();
    const std::string userID = _login();
    const std::string jobCodeID =
        project.additionalID().value_or(project.subprojectID().value_or(project.projectID()));
    const nlohmann::json timesheet{
        {"type", "manual"},
        {"duration", project.time()},
        {"date", ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))},
        {"user_id", ZVPostingText::numericID(userID)},
        {"jobcode_id", ZVPostingText::numericID(jobCodeID)},
        {"notes", ZVPostingText::title(project)}};
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        tsheets::timesheetsPath, nlohmann::json{{"data", nlohmann::json::array({timesheet})}}));
    ZVLog([&] { return "Response " + reply.dump(); });
    // Each time sheet of the batch has a status of its own; the reply's is 200 either way.
    const auto created = tsheets::members(reply, "[results][timesheets]");
    if (!created || created->size() != 1 ||
        ZVJSON::integer(created->front(), "_status_code") != 200)
        throw ZVIntegrationGenericTimePostingError();
}
