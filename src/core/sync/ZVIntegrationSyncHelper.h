#pragma once

#include <memory>
#include <string>
#include <vector>

class ZVIntegration;
class ZVIntegrationProject;

/// Merges a freshly fetched tree into the local one, so that tracked time
/// and logs, which exist only locally, survive each refresh. Nodes match by
/// their remote identifiers, never by name; each remote node takes the
/// first matching local node in list order. Made for one merge (and one for
/// each nested merge), then dropped.
class ZVIntegrationSyncHelper {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;
    using ProjectList = std::vector<ProjectPointer>;

    explicit ZVIntegrationSyncHelper(std::shared_ptr<ZVIntegration> integration);

    /// Adopts new remote nodes at the end of `projects`, renames the ones
    /// found, merges their children, and removes vanished nodes: silently
    /// when they hold no time, after asking the user otherwise. Runs on the
    /// synchronization thread with the account's lock held (and each
    /// ancestor's lock in nested merges).
    void mergeProjects(ProjectList& projects, const ProjectPointer& parentProject, const ProjectList& remoteProjects);

    /// A key that two nodes share exactly when isEqualToProject holds
    /// between them, so that matches are found through a hash index.
    static std::string identityKey(const ZVIntegrationProject& project);

    /// "Keep" or "Remove" for a vanished node with time, asked on the main
    /// thread while the calling thread waits. True means remove.
    bool _shouldRemoveProject(const ZVIntegrationProject& project);

private:
    std::shared_ptr<ZVIntegration> integration;
};
