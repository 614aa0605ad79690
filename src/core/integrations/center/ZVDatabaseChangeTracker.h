#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

class ZVIntegration;
class ZVIntegrationProject;
class ZVLogEntry;

/// Knows the accounts as the database and its journal hold them, and finds
/// what changed in memory since: a walk that compares each node with what
/// it remembers of it (its time, the counts of changes to its fields and
/// its log, its children by identity) and answers the journal's records
/// for the differences. A walk of 100,000 nodes costs a few milliseconds;
/// the running time alone costs one lookup.
class ZVDatabaseChangeTracker {
public:
    using IntegrationPointer = std::shared_ptr<ZVIntegration>;
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;

    /// The time that a node holds now: the running clock's for the current
    /// project while the timer runs, which leads the node's own.
    struct RunningTime {
        const ZVIntegrationProject* project = nullptr;
        std::uint64_t seconds = 0;
    };

    /// Takes the accounts as they stand as what is stored.
    void remember(const std::vector<IntegrationPointer>& accounts, const ProjectPointer& selected);
    /// The records of what changed since, and remembers the new state. The
    /// list of accounts is the whole list; only the trees of `walked` are
    /// compared (all when it is absent). An account whose tree a
    /// synchronization is changing is left for the next call.
    std::vector<std::string> collect(const std::vector<IntegrationPointer>& accounts,
                                     const std::optional<std::vector<IntegrationPointer>>& walked,
                                     const ProjectPointer& selected, RunningTime running);
    /// The record of a node's time alone; nothing when it did not change,
    /// absent when the node is not known yet (a walk must find it first).
    std::optional<std::vector<std::string>> collectTime(const ProjectPointer& project, std::uint64_t seconds);
    /// Whether the store knows this node as the selected one.
    bool isStoredSelection(const ProjectPointer& project);

private:
    struct NodeState {
        ProjectPointer node;
        const ZVIntegrationProject* parent = nullptr;
        std::uint64_t time = 0;
        std::uint64_t fieldsRevision = 0;
        std::uint64_t logRevision = 0;
        std::size_t logSize = 0;
        const ZVLogEntry* lastEntry = nullptr;
        std::vector<const ZVIntegrationProject*> children;
    };
    struct AccountState {
        IntegrationPointer account;
        std::string settings;
        std::vector<const ZVIntegrationProject*> top;
        std::unordered_map<const ZVIntegrationProject*, NodeState> nodes;
    };
    struct Walk {
        AccountState& state;
        const std::string& identifier;
        RunningTime running;
        std::vector<std::size_t> path;
        std::vector<std::string>& records;
    };

    static std::string settingsOf(ZVIntegration& account);
    void _rememberAccount(const IntegrationPointer& account);
    void _rememberSubtree(AccountState& state, const ProjectPointer& node, const ZVIntegrationProject* parent,
                          RunningTime running);
    void _forgetSubtree(AccountState& state, const ZVIntegrationProject* node, const ZVIntegrationProject* parent);
    void _walkChildren(Walk& walk, const ZVIntegrationProject* parent, const std::vector<ProjectPointer>& live);
    void _walkNode(Walk& walk, const ProjectPointer& node);
    /// The node's places as the stored tree has them; absent when unknown.
    std::optional<std::vector<std::size_t>> _pathOf(const AccountState& state, const ZVIntegrationProject* node) const;
    AccountState* _stateOf(const ZVIntegrationProject& node, std::string& identifier);
    void _recordSelection(const std::string& identifier, const ZVIntegrationProject* node, bool selected,
                          std::vector<std::string>& records);

    std::mutex _mutex;
    std::map<std::string, AccountState> _accounts;
    std::set<std::string> _postponed;
    std::string _selectedAccount;
    const ZVIntegrationProject* _selected = nullptr;
};
