#include "core/integrations/address_based/paymo/ZVPaymoIntegration.h"

#include <array>
#include <ctime>
#include <sstream>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace paymo {
namespace {
constexpr const char* v2Host = "api.paymo.biz";
constexpr const char* v3Host = "app.paymoapp.com/api";

constexpr const char* loginPath = "/service/paymo.auth.login";
constexpr const char* logoutPath = "/service/paymo.auth.logout";
constexpr const char* projectsV2Path = "/service/paymo.projects.getList";
constexpr const char* tasksV2Path = "/service/paymo.tasks.findByProject";
constexpr const char* entriesV2Path = "/service/paymo.entries.add";

constexpr const char* projectsPath = "/projects";
constexpr const char* entriesPath = "/entries";

std::string described(const pugi::xml_node& node) { return ZVXMLDocument::printed(node); }

std::string localTime(std::time_t moment) {
    std::tm parts{};
    localtime_r(&moment, &parts);
    std::array<char, 32> buffer{};
    return {buffer.data(),
            std::strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

std::optional<std::string> text(const nlohmann::json& object, const char* key) {
    return ZVListing::text(ZVJSON::value(object, key));
}

std::time_t now() { return static_cast<std::time_t>(ZVNow().time_since_epoch().count()); }

/// An API 2 record: its name and id, and one flag, as attributes.
ZVRecordShape recordV2(const char* flag) {
    return {.idPath = "@id", .namePath = "@name", .otherPaths = {flag}};
}
}  // namespace
}  // namespace paymo

/// One API 2 session: logged in when made, logged out when it goes, on
/// every way out of a run, a failed one too.
class ZVPaymoIntegration::Session {
public:
    explicit Session(ZVPaymoIntegration& owner) : account(owner), token(owner._login()) {}
    ~Session() { account._logout(token); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ZVPaymoIntegration& account;
    const std::string token;
};

const std::vector<ZVIntegrationSetting>& ZVPaymoIntegration::settings() const {
    // API 3 comes first and is what a new account gets; a stored account
    // keeps the number it was saved with.
    static const std::vector<ZVIntegrationSetting> declared{
        {versionKey,
         ZVIntegrationSetting::Kind::choice,
         ZVLocalizable("Version"),
         "versionPopUp",
         ZVValue(static_cast<std::int64_t>(Version::v3)),
         {{static_cast<std::int64_t>(Version::v3), ZVLocalizable("API 3")},
          {static_cast<std::int64_t>(Version::v2), ZVLocalizable("API 2")}},
         true},
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVPaymoIntegration::credentialPresentation() const {
    if (accountVersion() == Version::v2)
        return ZVCredentialPresentation{
            .hint = ZVLocalizedString(
                "Paymo has closed API 2; a server that still answers it is reached with your "
                "user name, password and API key."),
            .usernameLabel = ZVLocalizedString("Username")};
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString(
            "Your e-mail and password, or an API key of your Paymo account as the user name "
            "and any word as the password. The API token is for API 2 alone."),
        .usernameLabel = ZVLocalizedString("Email or API key")};
}

ZVPaymoIntegration::Version ZVPaymoIntegration::accountVersion() const {
    return choiceSetting(versionKey) == static_cast<std::int64_t>(Version::v2) ? Version::v2
                                                                               : Version::v3;
}

std::string ZVPaymoIntegration::hardcodedAddress() const {
    return accountVersion() == Version::v2 ? paymo::v2Host : paymo::v3Host;
}

ZVSSLSupport ZVPaymoIntegration::SSLSupport() const {
    return accountVersion() == Version::v2 ? ZVSSLSupport::none : ZVSSLSupport::mandatory;
}

ZVCredentialStyle ZVPaymoIntegration::credentialStyle() const {
    // API 2 names its key and session in the address of each call.
    if (accountVersion() == Version::v2) return {};
    return {ZVCredentialStyle::Kind::basicUsernamePassword};
}

void ZVPaymoIntegration::addAccountHeaders(ZVURLRequest& request) const {
    // The service answers in JSON unless told otherwise; it is asked for all the same.
    if (accountVersion() == Version::v3) request.setHeader("Accept", "application/json");
}

ZVServiceRequest ZVPaymoIntegration::_requestV2(
    const std::string& path, const std::string& token,
    std::vector<std::pair<std::string, std::string>> more) const {
    ZVServiceRequest request = ZVServiceRequest::get(path);
    request.query = {{"api_key", usernamePasswordAPITokenAuthentication().APIToken()}};
    if (!token.empty()) request.query.emplace_back("auth_token", token);
    request.query.insert(request.query.end(), more.begin(), more.end());
    return request;
}

std::string ZVPaymoIntegration::_login() {
    const auto& credential = usernamePasswordAPITokenAuthentication();
    const auto reply =
        send(_requestV2(paymo::loginPath, {},
                        {{"username", credential.username()}, {"password", credential.password()}}))
            .xml();
    const auto token = reply ? reply->string("response/token") : std::nullopt;
    if (!token || token->empty())
        throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Can't log in."));
    return *token;
}

void ZVPaymoIntegration::_logout(const std::string& token) {
    ZVLog([] { return std::string("Logging out"); });
    std::optional<ZVXMLDocument> reply;
    try {
        reply = send(_requestV2(paymo::logoutPath, token)).xml();
    } catch (const ZVIntegrationError&) {
        // What the user hears of is the outcome of the run.
    }
    const auto status = reply ? reply->string("response/@status") : std::nullopt;
    if (!reply) {
        ZVLog([] { return std::string("Can't sign out, couldn't load any data."); });
    } else if (status != "ok") {
        ZVLog([&] { return "Couldn't log out. Status code: " + status.value_or(""); });
    } else {
        ZVLog([] { return std::string("Successfully logged out."); });
    }
}

ZVIntegration::ProjectList ZVPaymoIntegration::loadRemoteProjects() {
    if (accountVersion() == Version::v2) return _synchronizeV2();
    const auto reply = sendForJSON(ZVServiceRequest::get(paymo::projectsPath));
    const auto items = ZVJSON::arrayOfDictionaries(reply, "[projects]");
    if (!items) {
        ZVLog([&] { return "Invalid response " + reply.dump(); });
        throw ZVIntegrationGenericSyncError();
    }
    ProjectList projects;
    for (const auto& item : *items) {
        const auto name = paymo::text(item, "name");
        const auto id = paymo::text(item, "id");
        if (!name || !id) {
            ZVLog([&] { return "Missing name or ID in " + item.dump(); });
            continue;
        }
        if (!ZVJSON::boolean(item, "active")) {
            ZVLog(
                [&] { return "Skipping project " + *name + " since it's not marked as active."; });
            continue;
        }
        auto project = ZVIntegrationProject::create(*name, *id);
        project->setIntegration(weak_from_this());
        _loadTasksForProject(*project);
        if (!project->hasSubprojects()) {
            ZVLog([&] { return "Skipping project " + *name + " since it's got no tasks."; });
            continue;
        }
        projects.push_back(std::move(project));
    }
    return projects;
}

void ZVPaymoIntegration::_loadTasksForProject(ZVIntegrationProject& project) {
    ZVServiceRequest request =
        ZVServiceRequest::get(paymo::projectsPath + ("/" + project.projectID()));
    request.query = {{"include", "tasks"}};
    const auto tasks = ZVJSON::arrayOfDictionaries(sendForJSON(request), "[projects][0][tasks]");
    for (const auto& task : tasks.value_or(std::vector<nlohmann::json>{})) {
        const auto name = paymo::text(task, "name");
        const auto id = paymo::text(task, "id");
        if (!name || !id) {
            ZVLog([&] { return "Missing name or ID in " + task.dump(); });
        } else if (ZVJSON::boolean(task, "complete")) {
            ZVLog([&] { return "Skipping task " + *name + " since it's marked as complete."; });
        } else {
            project.addSubproject(ZVIntegrationProject::create(*name, project.projectID(), *id));
        }
    }
}

ZVIntegration::ProjectList ZVPaymoIntegration::_synchronizeV2() {
    const Session session(*this);
    const auto reply = sendForXML(_requestV2(paymo::projectsV2Path, session.token));
    if (reply.nodes("response/projects/project").empty()) {
        ZVLog([&] { return "No projects - " + paymo::described(reply.root()) + "."; });
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("Paymo's response contained no projects."));
    }
    ProjectList projects;
    for (const auto& record :
         ZVListing::records(reply, "response/projects/project", paymo::recordV2("@retired"),
                            "No name or ID in ")) {
        // A retired project is left out without a word.
        if (record.others[0] == "1") continue;
        auto project = ZVIntegrationProject::create(record.name, record.id);
        project->setIntegration(weak_from_this());
        _addTasksToProject(*project, session.token);
        projects.push_back(std::move(project));
    }
    return projects;
}

void ZVPaymoIntegration::_addTasksToProject(ZVIntegrationProject& project,
                                            const std::string& token) {
    const auto reply =
        sendForXML(_requestV2(paymo::tasksV2Path, token, {{"project_id", project.projectID()}}));
    for (const auto& record :
         ZVListing::records(reply, "response/tasks/task", paymo::recordV2("@complete"),
                            "Missing name or ID in ")) {
        if (record.others[0] != "1")
            project.addSubproject(
                ZVIntegrationProject::create(record.name, project.projectID(), record.id));
    }
}

void ZVPaymoIntegration::postTime(ZVIntegrationProject& project) {
    if (accountVersion() == Version::v2) return postTimeForProjectV2(project);
    // This interface takes a day and a length: the note stays behind.
    const auto reply = sendForJSON(ZVServiceRequest::postForm(
        paymo::entriesPath, {{"task_id", project.subprojectID().value_or("")},
                             {"date", ZVPostingText::date(paymo::now())},
                             {"duration", std::to_string(project.time())}}));
    if (!reply.is_object() || !reply.contains("entries")) {
        ZVLog([&] { return "Invalid response " + reply.dump(); });
        throw ZVIntegrationGenericTimePostingError();
    }
}

void ZVPaymoIntegration::postTimeForProjectV2(ZVIntegrationProject& project) {
    const Session session(*this);
    const std::time_t now = paymo::now();
    // The old interface took entries over plain HTTP alone, whatever the account says.
    ZVServiceRequest request =
        _requestV2(std::string("http://") + paymo::v2Host + paymo::entriesV2Path, session.token,
                   {{"start", paymo::localTime(now - static_cast<std::time_t>(project.time()))},
                    {"end", paymo::localTime(now)},
                    {"task_id", project.subprojectID().value_or("")},
                    {"added_manually", "0"},
                    {"description", ZVPostingText::title(project)}});
    request.purpose = ZVServiceRequest::Purpose::posting;
    const auto reply = sendForXML(request);
    if (reply.nodes("response/entry").empty()) {
        ZVLog([&] { return "Invalid response " + paymo::described(reply.root()); });
        throw ZVIntegrationGenericTimePostingError();
    }
}
