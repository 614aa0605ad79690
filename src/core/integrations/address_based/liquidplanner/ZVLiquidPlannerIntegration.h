#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on LiquidPlanner (the classic product), through its JSON
/// interface on the service's one host. The tree has three levels:
/// workspace, project, task; only a task takes time. Before each post the
/// user picks one of the workspace's activities, and "Cancel" stops the post.
///
/// Every request carries the e-mail and password, or, when the account says
/// so, the password field as an API token of the user's, as a bearer token.
class ZVLiquidPlannerIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* usesAPITokenKey = "ZVLiquidPlannerUsesAPIToken";

    /// The host with "/api", the account's key in the key store; the
    /// interface's version is part of each path.
    std::string hardcodedAddress() const override { return "app.liquidplanner.com/api"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// The password field holds the API token when the account says so.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;

    bool usesAPIToken() const { return flagSetting(usesAPITokenKey); }
    ZVCredentialStyle credentialStyle() const override;
    /// The service names what it refused in the "message" of its error.
    std::string refusalMessagePath() const override { return "message"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// The workspace's activity that the user picks; throws when there is
    /// none to pick or the user cancels.
    std::string _selectActivityForWorkspaceWithID(const std::string& workspaceID);
};
