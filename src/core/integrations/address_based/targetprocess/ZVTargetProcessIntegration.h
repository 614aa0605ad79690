#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on TargetProcess, through its JSON interface under "/api/v1/".
/// The tree does not follow the service's projects: what is assigned to the
/// user and "Open" or "In Progress" is sorted into fixed categories by its
/// entity type (bugs, features, requests, stories, tasks), and the open
/// projects the user owns make a category of their own. Time goes out as a
/// time record on the item, or on the project.
///
/// Every request carries the user name and password, or, when the account
/// says so, the password field as a personal access token in the address.
/// The user name finds the user on the service's user list either way.
class ZVTargetProcessIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* usesAccessTokenKey = "ZVTargetProcessUsesAccessToken";

    std::string addressPlaceholder() const override { return "<account>.tpondemand.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// The password field holds the access token when the account says so.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;

    bool usesAccessToken() const { return flagSetting(usesAccessTokenKey); }
    ZVCredentialStyle credentialStyle() const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// The entities of the endpoint ("Users", "Assignables"), with the fields
    /// the include string ("[Name,EntityState]") names when there is one.
    /// The service hands out at most a fixed number of them in one reply,
    /// and that one reply is all that is read.
    std::vector<nlohmann::json> _itemsAtEndpoint(const std::string& endpoint,
                                                 const std::string& includeString = {});
    /// Whether the state of that id is "Open" or "In Progress".
    static bool _isStateValidForStateID(const std::string& stateID,
                                        const std::vector<nlohmann::json>& states);
};
