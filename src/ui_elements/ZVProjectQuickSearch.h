#pragma once

#include <memory>
#include <string>
#include <vector>

class ZVIntegration;
class ZVIntegrationProject;

/// The quick search over all projects: every leaf whose full path contains
/// the query, ignoring case. Any way of typing the path separator (">",
/// " >", "> ", " > ") matches the " ➔ " of the path. Accounts are searched
/// in the centre's order with the local account last; results come as found.
class ZVProjectQuickSearch {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;
    using IntegrationPointer = std::shared_ptr<ZVIntegration>;

    /// The query with each spelling of the separator turned into " ➔ ".
    static std::string normalizedQuery(const std::string& query);
    /// Searches the given accounts in their order.
    static std::vector<ProjectPointer> search(const std::string& query,
                                              const std::vector<IntegrationPointer>& integrations);
    /// Searches the centre's accounts and then the local account.
    static std::vector<ProjectPointer> searchAllProjects(const std::string& query);
};
