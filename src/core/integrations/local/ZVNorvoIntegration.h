#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "core/integrations/ZVIntegration.h"

inline constexpr const char* ZVNorvoIntegrationPreferencesKey = "KDNorvoIntegration";
inline constexpr const char* ZVNorvoIntegrationID = "KD_NORVO_LOCAL_INTEGRATION";

/// The built-in account of local projects: a flat list the user keeps by
/// hand, on which time is tracked but never posted. There is one, stored in
/// the preferences store under "KDNorvoIntegration" rather than in the
/// database, and never synchronized; the centre doesn't hold it.
class ZVNorvoIntegration : public ZVIntegration {
public:
    /// The one local account, read from the preferences store on first use.
    static std::shared_ptr<ZVNorvoIntegration> sharedIntegration();
    /// Drops the shared account (tests); the next call reads the store again.
    static void resetSharedIntegration();

    std::string className() const override { return "Norvo.ZVNorvoIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.local"; }
    /// The localized "Projects".
    std::string integrationName() const override;
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    std::string basicSetupViewNibName() const override { return {}; }
    std::string accountIdentifier() const override { return ZVNorvoIntegrationID; }
    bool canPostTime() const override { return false; }
    bool isLocalAccount() const override { return true; }

    /// Writes the projects' dictionary forms to "KDNorvoIntegration".
    void save() override;
    /// "Add Project...": asks for a name, refuses an empty or taken one, then
    /// makes the project, selects it as the current project and adds it.
    void addProjectAction();
    /// Reorders the list; saves nothing by itself.
    void moveProjectAtIndex(std::size_t from, std::size_t to);
    /// The local projects, each with an alternate "Remove '%@'..." item;
    /// with the utility items "Add Project..." and "Manage Projects...".
    std::shared_ptr<ZVMenu> integrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                            const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                            bool includeUtilityMenuItems = false) override;
    /// "Remove '%@'...": asks, clears the project from the timer when it is
    /// the current one, then removes it.
    void _removeProject(const ZVMenuItem& menuItem);

protected:
    /// Plain setup: fixed name and identifier, no credentials.
    void initialize() override;
};
