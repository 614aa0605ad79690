#pragma once

#include <string>

#include "core/integrations/address_based/ZVOAuth2BasedIntegration.h"

/// An account on Mavenlink (now Kantata OX), a project service with a JSON
/// interface behind OAuth2. Its workspaces are the top level, their stories
/// (tasks) below them; time goes out as a time entry on a story.
class ZVMavenlinkIntegration : public ZVOAuth2BasedIntegration {
public:
    std::string hardcodedAddress() const override { return "api.mavenlink.com"; }
    /// The interface lives on a host of its own.
    std::string serviceBaseURL() const override { return "https://api.mavenlink.com"; }
    ZVOAuth2Configuration authenticationConfiguration() const override;
    std::string notAuthorizedReason() const override;
    std::string refusalMessagePath() const override { return "[errors][0][message]"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;
};
