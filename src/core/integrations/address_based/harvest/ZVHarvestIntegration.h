#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on Harvest, through its JSON interface "/v2/" on the
/// service's one host. The tree is the user's own project assignments:
/// each project with the tasks assigned to it; time goes out as a time
/// entry of the user on a project's task.
///
/// Every request carries a personal access token of the user's (kept where
/// the password was) as a bearer token, the id of the Harvest account it
/// is for, and the user's e-mail in the User-Agent, which the service asks
/// of every client.
class ZVHarvestIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* accountIDKey = "ZVHarvestAccountID";

    std::string addressPlaceholder() const override { return "yourcompany.harvestapp.com"; }
    /// The service answers on one host for every account: an address of
    /// its domain (a stored "<company>.harvestapp.com" too) reaches it there,
    /// over https; any other address is a server of the user's own.
    std::string serviceBaseURL() const override;
    const std::vector<ZVIntegrationSetting>& settings() const override;
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::bearerToken};
    }
    void addAccountHeaders(ZVURLRequest& request) const override;
    /// The service says what it refused in the "message" of its error.
    std::string refusalMessagePath() const override { return "message"; }

    std::string accountID() const { return textSetting(accountIDKey); }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
