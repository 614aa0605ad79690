#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on Toggl Track, through its JSON interface (version 9) on the
/// service's one host. The tree has three levels: workspace, project and
/// active task; only a task takes time. A project without tasks and a
/// workspace without projects are left out, so a plan without tasks shows
/// an empty tree.
///
/// Every request carries the user's API token as the basic user name, with
/// the word "api_token" as the password.
class ZVTogglIntegration : public ZVAddressBasedIntegration {
public:
    std::string hardcodedAddress() const override { return "api.track.toggl.com"; }
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::basicTokenAndWord, "api_token"};
    }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// Every record of the list at `suffix` (below the interface's path),
    /// page by page where `paged`. The text "null" is the service's empty
    /// list; any other reply that is no array of records fails the sync.
    std::vector<nlohmann::json> _loadDataWithURLSuffix(const std::string& suffix,
                                                       bool paged = false);
};
