#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
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
    /// Renews the index of `searchAllProjects` now if a tree has changed, so
    /// that the first keystroke does not pay for it (the search field calls
    /// this when it gets the focus).
    static void prepareAllProjects();
};

/// The leaves of a list of accounts in the order a walk of their trees meets
/// them, each with its full path case-folded, all in one block of text, so
/// that a keystroke scans that block instead of walking the trees and
/// building every path again. The index renews itself when the list of
/// accounts differs or when any tree has changed since it was built; a
/// query that extends the previous one only looks at the previous matches.
class ZVProjectSearchIndex {
public:
    using ProjectPointer = ZVProjectQuickSearch::ProjectPointer;
    using IntegrationPointer = ZVProjectQuickSearch::IntegrationPointer;

    /// The leaves whose path contains the normalized query, ignoring case.
    std::vector<ProjectPointer> search(const std::string& normalizedQuery,
                                       const std::vector<IntegrationPointer>& integrations);
    /// Builds the index anew if it does not stand for these accounts as they are.
    void update(const std::vector<IntegrationPointer>& integrations);
    /// Number of leaves indexed; for tests and benchmarks.
    std::size_t size() const;
    /// How often the index was built; for tests.
    std::size_t buildCount() const;

    /// The index used by `ZVProjectQuickSearch`.
    static ZVProjectSearchIndex& shared();

private:
    bool _isCurrent(const std::vector<IntegrationPointer>& integrations) const;
    void _build(const std::vector<IntegrationPointer>& integrations);
    bool _entryContains(std::size_t entry, const std::string& foldedQuery) const;

    mutable std::mutex _mutex;
    std::vector<std::weak_ptr<ZVIntegration>> _integrations;
    std::uint64_t _generation = 0;
    bool _built = false;
    std::size_t _buildCount = 0;
    // Every leaf's folded path followed by a NUL, which no query holds, so
    // that a hit in the block always lies within one path.
    std::string _text;
    // Where each path begins in _text; one more than there are leaves.
    std::vector<std::size_t> _starts;
    std::vector<ProjectPointer> _leaves;
    // The last folded query and the entries it matched.
    std::string _lastQuery;
    std::vector<std::size_t> _lastMatches;
    bool _hasLastMatches = false;
};
