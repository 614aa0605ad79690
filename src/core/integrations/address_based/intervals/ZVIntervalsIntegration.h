#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on Intervals, through its XML interface on the service's one
/// host. The tree has two levels: the active projects, and below each one
/// leaf for every open task of the user's and every work type the project
/// allows, as the service books time on a task in a kind of work.
///
/// Every request carries the user's API token as the basic user name, with
/// the letter "X" as the password. The id of the user, which the task list
/// and each time entry need, is asked once and kept with the account.
class ZVIntervalsIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* billableKey = "KDIntervalsBillable";
    static constexpr const char* cachedUserIDKey = "KDIntervalsCachedUserID";

    std::string hardcodedAddress() const override { return "api.myintervals.com"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::basicTokenAndWord, "X"};
    }
    void addAccountHeaders(ZVURLRequest& request) const override;
    ZVDictionary dictionaryRepresentation() override;

    /// Whether posted time counts as billable.
    bool isBillable() const { return flagSetting(billableKey); }
    std::optional<std::string> cachedUserID() const;

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    /// The user's person id: the kept one, else the one the service names
    /// for the token, which is then kept.
    std::string _personID();
    /// The work types of the project, as (id, name); none fails the sync.
    std::vector<std::pair<std::string, std::string>> _workTypesForProjectID(
        const std::string& projectID);

    mutable std::mutex _userIDLock;
    std::optional<std::string> _cachedUserID;
};
