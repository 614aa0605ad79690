#include "core/integrations/address_based/activecollab/ZVActiveCollab5Integration.h"

#include <cstdio>

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVKeychainAccess.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/activecollab/ZVActiveCollabIntegration.h"
#include "core/integrations/address_based/common/ZVListing.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace activecollab5 {
namespace {
constexpr const char* cloudDomain = "activecollab.com";
constexpr const char* cloudLoginURL = "https://my.activecollab.com/api/v1/external/login";
constexpr const char* api = "/api/v1/";
constexpr const char* clientName = "Norvo";
constexpr const char* clientVendor = "Ostrand Software";

/// Leaves out what is completed or trashed, with a log line.
void dropFinished(std::vector<nlohmann::json>& items, const char* kind) {
    std::erase_if(items, [kind](const nlohmann::json& item) {
        if (!ZVJSON::boolean(item, "is_completed") && !ZVJSON::boolean(item, "is_trashed"))
            return false;
        ZVLog([&] {
            return std::string("Skipping ") + kind + " " +
                   ZVListing::text(ZVJSON::value(item, "name")).value_or("") +
                   " as it's completed or trashed.";
        });
        return true;
    });
}
}  // namespace
}  // namespace activecollab5

const std::vector<ZVIntegrationSetting>& ZVActiveCollab5Integration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{ZVActiveCollabIntegration::billingSetting()};
    return declared;
}

std::optional<std::string> ZVActiveCollab5Integration::_storedSecret(const char* item) const {
    auto stored = ZVKeychainAccess::sharedAccess().password(item, integrationID());
    if (stored && stored->empty()) return std::nullopt;
    return stored;
}

void ZVActiveCollab5Integration::_storeSecret(const char* item, const std::string& value) const {
    auto& keychain = ZVKeychainAccess::sharedAccess();
    if (value.empty())
        keychain.removePassword(item, integrationID());
    else if (!keychain.savePassword(value, item, integrationID()))
        ZVLog([&] { return name() + ": the key store did not take " + item; });
}

void ZVActiveCollab5Integration::initializeWithDictionary(const ZVDictionary& dictionary) {
    ZVAddressBasedIntegration::initializeWithDictionary(dictionary);
    for (const char* item : {intentItem, APITokenItem})
        if (const std::string stored = ZVStringValue(dictionary, item); !stored.empty()) _storeSecret(item, stored);
}

bool ZVActiveCollab5Integration::endsRefusedSession(const ZVCredentialStyle& sent) {
    _storeSecret(APITokenItem, {});
    _storeSecret(intentItem, {});
    return ZVAddressBasedIntegration::endsRefusedSession(sent);
}

std::string ZVActiveCollab5Integration::logIn() {
    if (auto stored = _storedSecret(APITokenItem)) return std::move(*stored);
    const auto& credential = usernamePasswordAuthentication();
    const auto token = [this](ZVServiceRequest request) {
        // The login carries the credentials in its body, not in the session's header.
        request.sendsCredentials = false;
        request.purpose = ZVServiceRequest::Purpose::loading;
        const auto issued = ZVJSON::string(sendForJSON(request), "token");
        if (!issued || issued->empty()) throw ZVIntegrationAuthenticationError();
        _storeSecret(APITokenItem, *issued);
        return *issued;
    };
    if (!isHostedUnder(activecollab5::cloudDomain))
        return token(ZVServiceRequest::postJSON(std::string(activecollab5::api) + "issue-token",
                                                {{"username", credential.username()},
                                                 {"password", credential.password()},
                                                 {"client_name", activecollab5::clientName},
                                                 {"client_vendor", activecollab5::clientVendor}}));
    // A hosted account: the central login names an intent, which the account's host trades for a
    // token.
    const auto trade = [&](const std::string& intent) {
        return token(ZVServiceRequest::postJSON(std::string(activecollab5::api) + "issue-token-intent",
                                                {{"intent", intent},
                                                 {"client_name", activecollab5::clientName},
                                                 {"client_vendor", activecollab5::clientVendor}}));
    };
    if (const auto stored = _storedSecret(intentItem)) {
        try {
            return trade(*stored);
        } catch (const ZVIntegrationError&) {
            // A stale intent: the central login gives a new one.
            _storeSecret(intentItem, {});
        }
    }
    ZVServiceRequest login = ZVServiceRequest::postJSON(
        activecollab5::cloudLoginURL, {{"email", credential.username()}, {"password", credential.password()}});
    login.sendsCredentials = false;
    const auto intent = ZVJSON::string(sendForJSON(login), "[user][intent]");
    if (!intent || intent->empty()) throw ZVIntegrationAuthenticationError();
    _storeSecret(intentItem, *intent);
    return trade(*intent);
}

ZVIntegration::ProjectList ZVActiveCollab5Integration::loadRemoteProjects() {
    const std::string api = activecollab5::api;
    auto jobTypeItems = ZVListing::items(*this, ZVServiceRequest::get(api + "job-types"), {}, "");
    std::erase_if(jobTypeItems,
                  [](const nlohmann::json& type) { return ZVJSON::boolean(type, "is_archived"); });
    const auto jobTypes = ZVListing::records(jobTypeItems, {}, "Missing job type name or ID in ");
    if (jobTypes.empty())
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("Couldn't load any job types."));

    auto projectItems = ZVListing::items(*this, ZVServiceRequest::get(api + "projects"), {}, "");
    activecollab5::dropFinished(projectItems, "project");
    const auto projects = ZVListing::records(projectItems, {}, "Missing project name or ID in ");
    std::vector<ZVRecord> tasks, jobs;
    for (const auto& project : projects) {
        auto taskItems = ZVListing::items(
            *this, ZVServiceRequest::get(api + "projects/" + project.id + "/tasks"), {}, "tasks");
        activecollab5::dropFinished(taskItems, "task");
        for (auto& task : ZVListing::records(taskItems, {}, "Missing task name or ID in ")) {
            task.parentID = project.id;
            // Every job type below every task: a time record names both.
            for (const auto& type : jobTypes) jobs.push_back({type.id, type.name, task.id, {}});
            tasks.push_back(std::move(task));
        }
    }
    auto tree = ZVListing::threeLevels(shared_from_this(), projects, tasks, jobs);
    std::erase_if(tree, [](const ZVIntegrationProject::Pointer& project) {
        if (project->hasSubprojects()) return false;
        ZVLog([&] { return "Skipping project " + project->name() + " as there are no tasks."; });
        return true;
    });
    return tree;
}

void ZVActiveCollab5Integration::postTime(ZVIntegrationProject& project) {
    // Only a job type's leaf names a task and a job type.
    const std::int64_t task = ZVPostingText::numericID(project.subprojectID());
    const std::int64_t jobType = ZVPostingText::numericID(project.additionalID());
    const std::uint64_t minutes =
        project.time() / 60;  // Seconds beyond the last whole minute are dropped.
    char value[32];
    std::snprintf(value, sizeof value, "%llu:%02llu", static_cast<unsigned long long>(minutes / 60),
                  static_cast<unsigned long long>(minutes % 60));
    const nlohmann::json record{
        {"task_id", task},
        {"value", value},
        {"job_type_id", jobType},
        {"record_date",
         ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()))}};
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        std::string(activecollab5::api) + "projects/" + project.projectID() + "/time-records",
        record));
    ZVPostingText::requireValue(reply, "single");
}
