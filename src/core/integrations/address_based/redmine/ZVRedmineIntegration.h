#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on a self-hosted Redmine server, through its REST interface
/// in XML with the user's API key. The tree is the projects that track
/// issues, or those projects with their open issues; time goes out as a
/// time entry on a project or an issue, in the activity the user picks
/// from the server's list before each post.
class ZVRedmineIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* synchronizationTypeKey = "KDRedmineSynchronizationType";
    static constexpr const char* asksForActivityKey = "KDRedmineAskForActivityBeforePosting";
    static constexpr const char* onlyAssignedToMeKey = "KDRedmineOnlySynchronizesTasksAssignedToMe";
    enum class SynchronizationType { projects = 0, issues = 1 };

    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// Any stored value but `issues` reads as `projects`.
    SynchronizationType synchronizationType() const;

    /// The key goes as the user name of basic credentials, with a word
    /// that the server ignores as the password, and in its own header.
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::basicTokenAndWord, "XXX"};
    }
    void addAccountHeaders(ZVURLRequest& request) const override;
    /// Redmine names what it refused in a list of messages.
    std::string refusalMessagePath() const override { return "errors/error"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// The project's open issues below it.
    void _addIssuesToProject(ZVIntegrationProject& project);
    /// The activity the user picks for a time entry; nothing when cancelled.
    std::optional<std::string> _selectActivity();
};
