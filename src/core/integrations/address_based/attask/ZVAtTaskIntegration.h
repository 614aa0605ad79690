#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on AtTask, today Adobe Workfront, through its JSON interface
/// under "/attask/api/v22.0". The user's work list gives the tree: a node
/// per project of the list, the list's tasks below it; the assigned mode
/// adds a branch "General Hours" with the hour types. Time goes out as an
/// hour on the task, or as a general hour of its hour type.
///
/// The account signs in with its user name and password, which gives a
/// session that every request names in the "SessionID" header and every
/// write also in its address. Each synchronization and each post first signs
/// out the session left by the one before and signs in anew; a
/// synchronization also signs out at its end. With an API key instead, the
/// key goes in the address of every request and there is no session.
class ZVAtTaskIntegration : public ZVAddressBasedIntegration {
public:
    /// The key has no service word in it, as it always was stored.
    static constexpr const char* synchronizeAllTasksKey = "KDSynchronizeAllTasks";
    static constexpr const char* usesAPIKeyKey = "ZVAtTaskUsesAPIKey";
    /// The project id of the branch of general hours.
    static constexpr const char* generalHoursID = "KDAtTaskInternalGeneralHoursID";

    std::string addressPlaceholder() const override { return "<domain>.my.workfront.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// The password field holds the API key when the account says so.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;

    /// True for a new account; an account stored without the key reads false.
    bool synchronizesAllTasks() const { return flagSetting(synchronizeAllTasksKey); }
    bool usesAPIKey() const { return flagSetting(usesAPIKeyKey); }

    ZVCredentialStyle credentialStyle() const override;
    std::string logIn() override;
    bool endsRefusedSession(const ZVCredentialStyle& sent) override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initialize() override;

private:
    /// The project nodes in the order the work list first names them.
    using ProjectTable = std::vector<std::shared_ptr<ZVIntegrationProject>>;

    /// Ends the session of an earlier call, so that the next request signs in anew.
    void _loadToken();
    /// Logs the session out, whatever the server answers, and forgets it.
    void _signOut();
    std::optional<std::vector<nlohmann::json>> _loadWorkspace();
    std::optional<std::vector<nlohmann::json>> _loadGeneralHours();
    /// Every object of the listing, page after page; nothing when a page
    /// cannot be read.
    std::optional<std::vector<nlohmann::json>> _loadAtTaskObjectsAtURL(
        const std::string& path, const std::string& fields = {});
    ProjectList _synchronizeTasksWithPostprocessingBlock(
        const std::function<void(ProjectTable&)>& block);
    void _synchronizeAssignedTasks(ProjectTable& projects);

    std::atomic<bool> _signingOut{false};
};
