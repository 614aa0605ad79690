#include "core/integrations/address_based/targetprocess/ZVTargetProcessIntegration.h"

#include <algorithm>
#include <array>
#include <memory>

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
namespace targetprocess {
namespace {
constexpr const char* api = "/api/v1/";
constexpr const char* usersEndpoint = "Users";
constexpr const char* statesEndpoint = "EntityStates";
constexpr const char* assignablesEndpoint = "Assignables";
constexpr const char* assignablesInclude = "[AssignedUser,Name,EntityType,EntityState]";
constexpr const char* projectsEndpoint = "Projects";
constexpr const char* timesEndpoint = "Times";
// The service gives at most 1000 entities a reply; this many is all that is read.
constexpr const char* take = "999";

// The categories of the tree, in their order; each word is the project id
// of its node and is never translated.
constexpr const char* bugs = "Bugs";
constexpr const char* features = "Features";
constexpr const char* projects = "Projects";
constexpr const char* requests = "Requests";
constexpr const char* stories = "Stories";
constexpr const char* tasks = "Tasks";
constexpr std::array categories{bugs, features, projects, requests, stories, tasks};

// The category of an assignable's entity type, or nothing.
const char* categoryOfType(const std::string& type) {
    if (type == "Bug") return bugs;
    if (type == "Request") return requests;
    if (type == "Feature") return features;
    if (type == "UserStory") return stories;
    if (type == "Task") return tasks;
    return nullptr;
}

bool isOpenStateName(const std::optional<std::string>& name) {
    return name && (*name == "In Progress" || *name == "Open");
}

std::optional<std::string> text(const nlohmann::json& object, std::string_view keyPath) {
    return ZVListing::text(ZVJSON::value(object, keyPath));
}
}  // namespace
}  // namespace targetprocess

const std::vector<ZVIntegrationSetting>& ZVTargetProcessIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> declared{
        ZVIntegrationSetting::credentialSwitch(
            usesAccessTokenKey, ZVLocalizable("Sign in with a personal access token"),
            "accessTokenButton"),
    };
    return declared;
}

std::optional<ZVCredentialPresentation> ZVTargetProcessIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        ZVLocalizedString("User name and password, or a personal access token"), usernameLabel(),
        usesAccessToken() ? ZVLocalizedString("Access token") : ZVLocalizedString("Password")};
}

ZVCredentialStyle ZVTargetProcessIntegration::credentialStyle() const {
    if (usesAccessToken()) return {ZVCredentialStyle::Kind::queryParameter, "access_token"};
    return {ZVCredentialStyle::Kind::basicUsernamePassword};
}

std::vector<nlohmann::json> ZVTargetProcessIntegration::_itemsAtEndpoint(
    const std::string& endpoint, const std::string& includeString) {
    ZVServiceRequest request = ZVServiceRequest::get(targetprocess::api + endpoint);
    request.query = {{"take", targetprocess::take}, {"skip", "0"}};
    if (!includeString.empty()) request.query.emplace_back("include", includeString);
    // Without being asked for JSON the service answers in XML.
    request.headers.emplace_back("Accept", "application/json");
    const std::string invalid = ZVLocalizedString("Invalid response received from Target Process.");
    const auto reply = sendForJSON(request, invalid);
    auto items = ZVJSON::arrayOfDictionaries(reply, "Items");
    if (!items) {
        ZVLog([&] { return "Can't get items in " + reply.dump(); });
        throw ZVIntegrationErrorWithFailureReason(invalid);
    }
    return std::move(*items);
}

bool ZVTargetProcessIntegration::_isStateValidForStateID(
    const std::string& stateID, const std::vector<nlohmann::json>& states) {
    const auto number = ZVStringIntegerValue(stateID);
    const auto state =
        std::find_if(states.begin(), states.end(), [&](const nlohmann::json& candidate) {
            return number && ZVJSON::optionalInteger(candidate, "Id") == number;
        });
    if (state == states.end()) {
        ZVLog([&] {
            return "Couldn't find entity state for ID " + stateID + " in " +
                   nlohmann::json(states).dump();
        });
        return false;
    }
    return targetprocess::isOpenStateName(ZVJSON::string(*state, "Name"));
}

ZVIntegration::ProjectList ZVTargetProcessIntegration::loadRemoteProjects() {
    const std::string username = usernamePasswordAuthentication().username();
    const auto users = _itemsAtEndpoint(targetprocess::usersEndpoint);
    auto user = std::find_if(users.begin(), users.end(), [&](const nlohmann::json& candidate) {
        return ZVJSON::string(candidate, "Email") == username;
    });
    if (user == users.end()) {
        user = std::find_if(users.begin(), users.end(), [&](const nlohmann::json& candidate) {
            return ZVJSON::string(candidate, "Login") == username;
        });
    }
    const auto userID = user == users.end() ? std::nullopt : targetprocess::text(*user, "Id");
    if (!userID) {
        ZVLog([&] { return "Couldn't find user " + username; });
        throw ZVIntegrationErrorWithFailureReason(
            ZVLocalizedString("Couldn't find you on the user list."));
    }

    const auto states = _itemsAtEndpoint(targetprocess::statesEndpoint);
    ProjectList categories;
    for (const char* word : targetprocess::categories) {
        auto node = ZVIntegrationProject::create(word, word);
        node->setIntegration(shared_from_this());
        categories.push_back(std::move(node));
    }
    const auto category = [&](const char* word) {
        return *std::find_if(categories.begin(), categories.end(),
                             [&](const auto& node) { return node->projectID() == word; });
    };

    for (const auto& entry :
         _itemsAtEndpoint(targetprocess::assignablesEndpoint, targetprocess::assignablesInclude)) {
        const auto stateID = ZVListing::text(
            ZVJSON::firstNonNilValue(entry, {"[EntityState][Id]", "[EntityState][Items][0][Id]"}));
        if (!stateID) {
            ZVLog([&] { return "Can't find state ID in " + entry.dump(); });
            continue;
        }
        if (!_isStateValidForStateID(*stateID, states)) continue;
        // The include string does not ask for the field, so this leaves out
        // nothing; it is kept with the sense it always had.
        if (ZVJSON::integer(entry, "IsActive") == 1) continue;
        const auto assignees = ZVJSON::arrayOfDictionaries(entry, "[AssignedUser][Items]");
        if (!assignees) {
            ZVLog([&] { return "Can't find item dicts in " + entry.dump(); });
            continue;
        }
        if (std::none_of(assignees->begin(), assignees->end(), [&](const nlohmann::json& assignee) {
                return targetprocess::text(assignee, "Id") == userID;
            }))
            continue;
        const auto name = targetprocess::text(entry, "Name");
        const auto ID = targetprocess::text(entry, "Id");
        if (!name || !ID) {
            ZVLog([&] { return "Missing name or ID in " + entry.dump(); });
            continue;
        }
        const char* word =
            targetprocess::categoryOfType(ZVJSON::string(entry, "[EntityType][Name]").value_or(""));
        if (!word) {
            ZVLog([&] { return "Unknown entity type " + entry.dump(); });
            continue;
        }
        category(word)->addSubproject(ZVIntegrationProject::create(*name, word, *ID));
    }

    // Unlike an assignable above, a project counts only while it is active.
    for (const auto& entry : _itemsAtEndpoint(targetprocess::projectsEndpoint)) {
        if (!targetprocess::isOpenStateName(ZVJSON::string(entry, "[EntityState][Name]"))) continue;
        if (ZVJSON::integer(entry, "IsActive") != 1) continue;
        if (targetprocess::text(entry, "[Owner][Id]") != userID) continue;
        const auto name = targetprocess::text(entry, "Name");
        const auto ID = targetprocess::text(entry, "Id");
        if (!name || !ID) {
            ZVLog([&] { return "Missing name or ID in " + entry.dump(); });
            continue;
        }
        category(targetprocess::projects)
            ->addSubproject(ZVIntegrationProject::create(*name, targetprocess::projects, *ID));
    }

    std::erase_if(categories, [](const auto& node) { return !node->hasSubprojects(); });
    return categories;
}

void ZVTargetProcessIntegration::postTime(ZVIntegrationProject& project) {
    const std::string hours = ZVPostingText::decimalHours(project.time(), 2);
    const char* target = project.projectID() == targetprocess::projects ? "Project" : "Assignable";
    const nlohmann::json time{{"Description", ZVPostingText::title(project, hours)},
                              {"Spent", static_cast<double>(project.time()) / 3600.0},
                              {target, {{"Id", ZVPostingText::numericID(project.subprojectID())}}}};
    const auto reply = sendForJSON(ZVServiceRequest::postJSON(
        std::string(targetprocess::api) + targetprocess::timesEndpoint, time));
    ZVLog([&] { return "Got response " + reply.dump(); });
    ZVPostingText::requireValue(reply, "Id");
}
