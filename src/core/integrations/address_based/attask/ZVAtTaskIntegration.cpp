#include "core/integrations/address_based/attask/ZVAtTaskIntegration.h"

#include <algorithm>

#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace attask {
namespace {
// The newest version of the interface; the unversioned path lands on a
// default that moves with every release.
constexpr const char* api = "/attask/api/v22.0";
constexpr const char* loginPath = "/login";
constexpr const char* logoutPath = "/logout";
// The items of the user's own work list, tasks and issues, each naming its project.
constexpr const char* workListPath = "/work/myWork";
constexpr const char* workListFields = "project,status,priority";
constexpr const char* hourTypesPath = "/hourt/search";
constexpr const char* hourPath = "/hour";
constexpr const char* generalHoursName = "General Hours";
// The most a listing hands out at once; more come with "$$FIRST".
constexpr std::size_t pageSize = 2000;

std::string path(const char* endpoint) { return std::string(api) + endpoint; }

std::optional<std::string> text(const nlohmann::json& object, const char* key) {
    auto value = ZVListing::text(ZVJSON::value(object, key));
    if (value && value->empty()) return std::nullopt;
    return value;
}
}  // namespace
}  // namespace attask

void ZVAtTaskIntegration::initialize() {
    ZVAddressBasedIntegration::initialize();
    // Only a new account: one stored without the key keeps the assigned mode.
    setSettingValue(synchronizeAllTasksKey, true);
}

const std::vector<ZVIntegrationSetting>& ZVAtTaskIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {synchronizeAllTasksKey, Kind::flag, ZVLocalizable("Synchronize all tasks"),
         "synchronizeAllTasksButton"},
        ZVIntegrationSetting::credentialSwitch(
            usesAPIKeyKey, ZVLocalizable("Sign in with an API key"), "apiKeyButton"),
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVAtTaskIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        ZVLocalizedString("User name and password, or an API key"), usernameLabel(),
        usesAPIKey() ? ZVLocalizedString("API key") : ZVLocalizedString("Password")};
}

ZVCredentialStyle ZVAtTaskIntegration::credentialStyle() const {
    if (usesAPIKey()) return {ZVCredentialStyle::Kind::queryParameter, "apiKey"};
    return {.kind = ZVCredentialStyle::Kind::session,
            .sessionStyle = ZVCredentialStyle::Kind::tokenHeader,
            .sessionName = "SessionID",
            .sessionWriteParameter = "sessionID"};
}

std::string ZVAtTaskIntegration::logIn() {
    const auto& credential = usernamePasswordAuthentication();
    ZVServiceRequest login{
        .method = "POST",
        .path = attask::path(attask::loginPath),
        .query = {{"username", credential.username()}, {"password", credential.password()}},
        .sendsCredentials = false};
    const auto reply = sendForJSON(login, ZVLocalizedString("Cannot sign in."));
    const auto session = ZVJSON::string(reply, "[data][sessionID]");
    if (!session || session->empty()) {
        ZVLog([&] { return "Can't find session ID in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Invalid sign in response."));
    }
    return *session;
}

bool ZVAtTaskIntegration::endsRefusedSession(const ZVCredentialStyle& sent) {
    // A refused sign-out only forgets the session: signing in to sign out again is no use.
    if (_signingOut) {
        endSession();
        return false;
    }
    return ZVAddressBasedIntegration::endsRefusedSession(sent);
}

void ZVAtTaskIntegration::_loadToken() {
    // A session is never taken over from an earlier synchronization or post:
    // it is signed out, and the first request of this one signs in anew.
    _signOut();
}

void ZVAtTaskIntegration::_signOut() {
    if (!hasSession()) return;
    // The account changed to an API key since: a request now carries the
    // key, not the session, so the session is left to run out on the server.
    if (usesAPIKey()) {
        endSession();
        return;
    }
    _signingOut = true;
    try {
        send(ZVServiceRequest::get(attask::path(attask::logoutPath)));
    } catch (const ZVIntegrationError&) {
        // The session ends here all the same.
    }
    _signingOut = false;
    endSession();
}

std::optional<std::vector<nlohmann::json>> ZVAtTaskIntegration::_loadAtTaskObjectsAtURL(
    const std::string& path, const std::string& fields) {
    std::vector<nlohmann::json> objects;
    bool readable = true;
    ZVPaging::walkOffsetPages([&](std::size_t first) {
        ZVServiceRequest request = ZVServiceRequest::get(path);
        if (!fields.empty()) request.query.emplace_back("fields", fields);
        request.query.emplace_back("$$FIRST", std::to_string(first));
        request.query.emplace_back("$$LIMIT", std::to_string(attask::pageSize));
        ZVLog([&] {
            std::string query;
            for (const auto& parameter : request.query)
                query += (query.empty() ? "" : "&") + parameter.first + "=" + parameter.second;
            return "Will be getting objects from url " + URLForPath(path, query);
        });
        const ZVServiceReply reply = send(request);
        const auto body = reply.json();
        const nlohmann::json* data = body ? ZVJSON::value(*body, "data") : nullptr;
        const bool isList = data && data->is_array() &&
                            std::all_of(data->begin(), data->end(), [](const nlohmann::json& item) {
                                return item.is_object();
                            });
        if (!isList) {
            ZVLog([&] { return "No data in " + reply.body; });
            readable = false;
            return ZVPaging::OffsetPage{0, true};
        }
        ZVLog([&] { return "Received data: " + data->dump(); });
        objects.insert(objects.end(), data->begin(), data->end());
        return ZVPaging::OffsetPage{data->size(), data->size() < attask::pageSize,
                                    ZVPaging::arrayFingerprint(*data)};
    });
    if (!readable) return std::nullopt;
    return objects;
}

std::optional<std::vector<nlohmann::json>> ZVAtTaskIntegration::_loadWorkspace() {
    return _loadAtTaskObjectsAtURL(attask::path(attask::workListPath), attask::workListFields);
}

std::optional<std::vector<nlohmann::json>> ZVAtTaskIntegration::_loadGeneralHours() {
    return _loadAtTaskObjectsAtURL(attask::path(attask::hourTypesPath));
}

ZVIntegration::ProjectList ZVAtTaskIntegration::loadRemoteProjects() {
    if (synchronizesAllTasks()) {
        ZVLog([] { return std::string("Synchronizing all tasks."); });
        return _synchronizeTasksWithPostprocessingBlock([](ProjectTable&) {});
    }
    ZVLog([] { return std::string("Synchronizing assigned tasks."); });
    return _synchronizeTasksWithPostprocessingBlock(
        [this](ProjectTable& projects) { _synchronizeAssignedTasks(projects); });
}

ZVIntegration::ProjectList ZVAtTaskIntegration::_synchronizeTasksWithPostprocessingBlock(
    const std::function<void(ProjectTable&)>& block) {
    _loadToken();
    ProjectTable projects;
    // An unreadable work list is an empty one, as the server sent nothing to keep.
    for (const auto& item : _loadWorkspace().value_or(std::vector<nlohmann::json>{})) {
        const nlohmann::json* project = ZVJSON::value(item, "project");
        if (!project || !project->is_object()) {
            ZVLog([&] { return "Can't find projectDict in " + item.dump(); });
            continue;
        }
        const auto name = attask::text(item, "name");
        const auto taskID = attask::text(item, "ID");
        const auto projectID = attask::text(*project, "ID");
        if (!name || !taskID || !projectID) {
            ZVLog([&] { return "Can't find name, projectID, or subprojectID in " + item.dump(); });
            continue;
        }
        auto node = std::find_if(projects.begin(), projects.end(), [&](const auto& known) {
            return known->projectID() == *projectID;
        });
        if (node == projects.end()) {
            const auto projectName = attask::text(*project, "name");
            if (!projectName) {
                ZVLog([&] { return "Can't find project name in " + item.dump(); });
                continue;
            }
            auto made = ZVIntegrationProject::create(*projectName, *projectID);
            made->setIntegration(shared_from_this());
            projects.push_back(std::move(made));
            node = std::prev(projects.end());
        }
        (*node)->addSubproject(ZVIntegrationProject::create(*name, *projectID, *taskID));
    }
    block(projects);
    _signOut();
    return projects;
}

void ZVAtTaskIntegration::_synchronizeAssignedTasks(ProjectTable& projects) {
    auto branch = ZVIntegrationProject::create(attask::generalHoursName, generalHoursID);
    branch->setIntegration(shared_from_this());
    const auto hourTypes = _loadGeneralHours();
    if (!hourTypes) return;
    ZVLog([&] { return "Got remote general hours: " + nlohmann::json(*hourTypes).dump(); });
    for (const auto& hourType : *hourTypes) {
        const auto name = attask::text(hourType, "name");
        const auto ID = attask::text(hourType, "ID");
        if (!name || !ID) {
            ZVLog([&] { return "genHourDict is missing name or ID: " + hourType.dump(); });
            continue;
        }
        branch->addSubproject(ZVIntegrationProject::create(*name, generalHoursID, *ID));
    }
    if (branch->hasSubprojects()) projects.push_back(std::move(branch));
}

void ZVAtTaskIntegration::postTime(ZVIntegrationProject& project) {
    _loadToken();
    if (!project.subprojectID())
        ZVFatalError("An hour of AtTask goes to a task or an hour type, not to a project.");
    // A general hour is of an hour type and on no task.
    const char* target = project.projectID() == generalHoursID ? "hourTypeID" : "taskID";
    ZVServiceRequest hour{.method = "POST",
                          .path = attask::path(attask::hourPath),
                          .query = {{"hours", ZVPostingText::decimalHours(project.time(), 2)},
                                    {target, *project.subprojectID()},
                                    {"description", ZVPostingText::title(project)}},
                          .purpose = ZVServiceRequest::Purpose::posting};
    const auto reply = sendForJSON(hour);
    ZVLog([&] { return "Response " + reply.dump(); });
}
