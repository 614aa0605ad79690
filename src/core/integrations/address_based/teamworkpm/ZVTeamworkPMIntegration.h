#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on TeamworkPM, today Teamwork.com, through its JSON interface
/// on the account's own site. The tree holds the projects, or, in the to-do
/// mode, the task lists of each project with the open tasks of the user
/// below them; time goes out as a billable entry on the project or the task.
///
/// Two ids of the user are at work: the person id of "/authenticate.json"
/// names the author of a posted entry, the one of "/me.json" picks the
/// tasks of the user. Both are asked for, as the service has always
/// answered them apart.
class ZVTeamworkPMIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* synchronizationTypeKey = "KDTeamworkPMSynchronizationType";
    enum class SynchronizationType : std::int64_t { projects = 0, todos = 1 };

    std::string addressPlaceholder() const override { return "<site>.teamwork.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// A stored value the service does not know reads as the projects.
    SynchronizationType synchronizationType() const;

    /// The API key as the user name with a word the service ignores.
    ZVCredentialStyle credentialStyle() const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// Asks the service once in the life of the account; throws without an answer.
    std::string _getUserID();
    /// The records under `key` of a listing, page after page; nothing, and
    /// `missingLine` in the log, when a page holds no such list. A reply
    /// that is no JSON object fails.
    std::optional<std::vector<nlohmann::json>> _loadItemsFromURL(const ZVServiceRequest& request,
                                                                 const char* key,
                                                                 std::string_view missingLine);
    /// The task lists of a project with the open tasks of `accountID`.
    void _addTodoLists(ZVIntegrationProject& project, const std::string& accountID);

    std::mutex _userIDLock;
    std::optional<std::string> _userID;
};
