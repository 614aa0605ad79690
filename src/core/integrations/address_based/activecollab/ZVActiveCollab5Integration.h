#pragma once

#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on ActiveCollab 5 and later, hosted (the application host
/// with the account's number as the path) or on the user's own server,
/// through the JSON interface under "/api/v1/". A hosted account logs in
/// through the central login host and trades the intent it gives for a
/// token; a server of the user's issues the token at once. The tree is
/// projects, their open tasks, and one leaf per job type below each task,
/// since a time record needs a job type.
class ZVActiveCollab5Integration : public ZVAddressBasedIntegration {
public:
    /// Kept with the account, shared with the older ActiveCollab; no post reads it.
    static constexpr const char* billingKey = "KDActiveCollabBillingType";

    std::string addressPlaceholder() const override { return "app.activecollab.com/account_id"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;

    /// The token travels in a header of the service's own; it is kept in
    /// memory and issued anew when the server refuses it.
    ZVCredentialStyle credentialStyle() const override {
        return {.kind = ZVCredentialStyle::Kind::session,
                .sessionStyle = ZVCredentialStyle::Kind::tokenHeader,
                .sessionName = "X-Angie-AuthApiToken"};
    }
    std::string logIn() override;
    std::string refusalMessagePath() const override { return "message"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
