#pragma once

#include <optional>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on mite, through its XML interface on the account's own host
/// ("<account>.mite.de"). The tree is every active project with every
/// service below it, as the service books time on a project and a kind of
/// work; time goes out as a time entry of whole minutes.
///
/// Every request carries the user's API key in the "X-MiteApiKey" header
/// and names Norvo in its User-Agent, which the service asks of every client.
class ZVMiteIntegration : public ZVAddressBasedIntegration {
public:
    std::string addressPlaceholder() const override { return "yourcompany.mite.de"; }
    /// The service speaks only https, and an account of the service's older
    /// domain ("<account>.mite.yo.lk") lives at the same name under the new
    /// one. Any other address is a server of the user's own, reached as set.
    std::string serviceBaseURL() const override;
    std::optional<std::string> connectionProbeURL() const override {
        return serviceBaseURL() + "/";
    }
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::tokenHeader, "X-MiteApiKey"};
    }
    void addAccountHeaders(ZVURLRequest& request) const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
