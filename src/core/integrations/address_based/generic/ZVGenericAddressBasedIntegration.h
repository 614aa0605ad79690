#pragma once

#include <atomic>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on any server that speaks Norvo's own small HTTP protocol:
/// three calls with JSON replies (projects, tasks of a project, posting
/// time), all with basic authorization. The tree is projects with their
/// tasks, or projects alone.
class ZVGenericAddressBasedIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* synchronizeProjectsOnlyKey = "KDGenericAddressBasedIntegrationSynchronizeProjectsOnly";
    static constexpr const char* usesAlternateActionFieldNameKey =
        "KDGenericAddressBasedIntegrationUsesAlternateActionFieldName";

    std::string addressPlaceholder() const override;

    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// When true the tree has one level and no tasks are fetched.
    bool synchronizesProjectsOnly() const { return flagSetting(synchronizeProjectsOnlyKey); }
    void setSynchronizesProjectsOnly(bool value) { setSettingValue(synchronizeProjectsOnlyKey, value); }
    /// When true the action goes in the query as "command=", else "action=".
    bool usesAlternateActionFieldName() const { return flagSetting(usesAlternateActionFieldNameKey); }
    void setUsesAlternateActionFieldName(bool value) { setSettingValue(usesAlternateActionFieldNameKey, value); }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

    std::string malformedReplyReason() const override;

private:
    /// "/?action=<action>", or "/?command=" with the alternate field name.
    std::string actionPath(const std::string& action) const;
};
