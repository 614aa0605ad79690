#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/integrations/address_based/ZVOAuth2BasedIntegration.h"
#include "core/integrations/address_based/common/ZVListing.h"

/// An account on FreeAgent, an online accounting service with a JSON
/// interface behind OAuth2. The tree is contacts, their projects and the
/// projects' active tasks (or projects and tasks alone); time goes out as
/// timeslips, one for each day's worth of it.
class ZVFreeAgentIntegration : public ZVOAuth2BasedIntegration {
public:
    static constexpr const char* includesContactsKey = "KDFreeAgentIncludesContactsInProjectHierarchy";
    /// The top node of the projects whose contact is not listed.
    static constexpr const char* noClientAssignedID = "---KDNoClientAssignedID---";

    std::string hardcodedAddress() const override;
    std::string addressPlaceholder() const override { return "yourcompany.freeagent.com"; }
    /// The interface's host, or its sandbox when NORVO_FREEAGENT_SANDBOX is set.
    std::string serviceBaseURL() const override;
    std::string authenticationIdentifier() const override;
    ZVOAuth2Configuration authenticationConfiguration() const override;
    std::string notAuthorizedReason() const override;
    std::string malformedReplyReason() const override;

    const std::vector<ZVIntegrationSetting>& settings() const override;
    bool includesContacts() const { return flagSetting(includesContactsKey); }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initialize() override;

private:
    nlohmann::json _getObjectAtURL(const std::string& path);
    void _checkPermissionsLevel();
    ProjectList _synchronizeWithClients();
    ProjectList _synchronizeProjectsOnly();
    /// The active projects, each with its contact's address as the first other value.
    std::vector<ZVRecord> _projectRecords(std::string_view skippedLine);
    void _loadTasksForProject(ZVIntegrationProject& project);
    void _postTime(std::uint64_t seconds, ZVIntegrationProject& project);
};
