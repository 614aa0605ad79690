#pragma once

#include <string>
#include <vector>

#include "core/integrations/address_based/ZVOAuth2BasedIntegration.h"

/// An account on Redbooth (once Teambox, whose identifier and stored keys
/// it keeps), a task service with a JSON interface behind OAuth2. The tree
/// is projects, their task lists and the lists' open tasks; time goes out
/// as a comment on the task that carries the minutes.
class ZVTeamboxIntegration : public ZVOAuth2BasedIntegration {
public:
    std::string addressPlaceholder() const override { return "redbooth.com"; }
    /// The service lives on one host, whatever the address field holds.
    std::string serviceBaseURL() const override { return "https://redbooth.com"; }
    ZVOAuth2Configuration authenticationConfiguration() const override;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    /// A new account has the service's host as its address, which an
    /// account needs to be stored at all.
    void initialize() override;

private:
    /// Every record of a list, page after page: a reply is the list itself
    /// or an object that holds it at "objects".
    std::vector<nlohmann::json> _objectsAtURL(const std::string& path);
};
