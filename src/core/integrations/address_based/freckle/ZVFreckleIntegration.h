#pragma once

#include <optional>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on Noko (called Freckle when the account was made), through
/// its JSON interface "/v2/" on the service's one host. The tree is flat:
/// the projects the user may book on; time goes out as an entry of whole
/// minutes on a project.
///
/// Every request carries the user's personal access token in the service's
/// own "X-NokoToken" header and the user's e-mail in the User-Agent, which
/// the service asks of every client.
class ZVFreckleIntegration : public ZVAddressBasedIntegration {
public:
    std::string addressPlaceholder() const override { return "yourcompany.nokotime.com"; }
    bool leavesOutProjectsWithoutOpenTasks() const override { return false; }
    /// The service answers on one host for every account: an address of
    /// its domain, or of the old one a stored account may hold, reaches it
    /// there over https; any other address is a server of the user's own.
    std::string serviceBaseURL() const override;
    std::optional<std::string> connectionProbeURL() const override {
        return serviceBaseURL() + "/";
    }
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::tokenHeader, "X-NokoToken"};
    }
    void addAccountHeaders(ZVURLRequest& request) const override;
    /// The service says what it refused in the "message" of its error.
    std::string refusalMessagePath() const override { return "message"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
