#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on SlimTimer, through its JSON interface on the service's
/// one host. The tree is flat: the user's projects, each taking hours.
///
/// The service has closed this interface; an account still loads, keeps
/// its time and works with a server that speaks it, which the user may
/// name in place of the service's host. Every request carries the API
/// token as both the basic user name and the password.
class ZVSlimTimerIntegration : public ZVAddressBasedIntegration {
public:
    bool leavesOutProjectsWithoutOpenTasks() const override { return false; }
    /// A server of the user's that speaks the interface; the service's host when empty.
    static constexpr const char* serverKey = "ZVSlimTimerServer";

    std::string hardcodedAddress() const override { return "www.slimtimer.com"; }
    /// The service's host never answered https.
    std::string URLScheme() const override { return "http"; }
    /// The named server ("host", "host:port" or a whole "https://..."
    /// address), else the service's host.
    std::string serviceBaseURL() const override;
    std::optional<std::string> connectionProbeURL() const override { return serviceBaseURL() + "/"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
