#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on a server of ActiveCollab 2 or 3 of the user's own,
/// through the old XML interface of "api.php" with the user's API token in
/// the query. Version 2 lists projects and their tickets; version 3
/// projects, their tasks and one leaf per job type below each task, since a
/// time record needs a job type. The hosted service no longer answers this
/// interface.
class ZVActiveCollabIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* versionKey = "KDActiveCollabVersion";
    static constexpr const char* billingKey = "KDActiveCollabBillingType";
    enum class Version { version2 = 0, version3 = 1 };
    enum class BillingType { notBillable = 0, billable = 1, billableAndPending = 2, billed = 3 };

    std::string addressPlaceholder() const override { return "activecollab.example.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// Both generations of the service ask how new time records are billed, under one key.
    static const ZVIntegrationSetting& billingSetting();
    /// Says that the hosted service closed this interface.
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    /// Any stored value but `version3` reads as `version2`.
    Version activeCollabVersion() const;
    /// A stored value of 4 or above reads as `notBillable`.
    BillingType billing() const;

    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::queryParameter, "auth_api_token"};
    }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// The logged-in user's id; nothing when the server does not name it.
    std::optional<std::string> _getUserID();
    /// Projects with their tickets (version 2), or with their tasks and a
    /// leaf per job type (version 3).
    ProjectList _loadRemoteProjects(Version version);
};
