#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on MinuteDock, through its JSON interface "/api/v1/" on the
/// service's one host. The tree has fixed branches, "Tasks", "Projects" and,
/// when the account says so, "Clients", each with the account's items of
/// that kind; an entry goes out tagged with the one item it was tracked on.
///
/// Every request carries the user's API key as the query parameter
/// "api_key", or, when the account says so, a personal access token of the
/// user's as a bearer token.
class ZVMinuteDockIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* includesClientsKey = "KDMinuteDockIncludesClientsInTheListing";
    static constexpr const char* usesAccessTokenKey = "ZVMinuteDockUsesAccessToken";
    // The project ids of the branches, which say what an item is.
    static constexpr const char* tasksBranchID = "--TASKS--";
    static constexpr const char* projectsBranchID = "--PROJECTS--";
    static constexpr const char* clientsBranchID = "--CLIENTS--";

    std::string hardcodedAddress() const override { return "minutedock.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override;
    /// The service says what it refused in the "message" of its reply.
    std::string refusalMessagePath() const override { return "message"; }

    bool includeClientsInListing() const { return flagSetting(includesClientsKey); }
    bool usesAccessToken() const { return flagSetting(usesAccessTokenKey); }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// The list at "/api/v1/<endpoint>.json". A reply that holds a "message"
    /// in place of the list fails with the service's words.
    std::vector<nlohmann::json> _itemsAtEndpoint(const std::string& endpoint);
    /// The branch named `name` with a child for each usable item; none when
    /// no item is usable.
    std::shared_ptr<ZVIntegrationProject> _branch(const std::string& name,
                                                  const std::string& projectID,
                                                  const std::vector<nlohmann::json>& items);
};
