#include "core/integrations/center/ZVDatabaseChangeTracker.h"

#include <algorithm>

#include "ZVPropertyList.h"
#include "ZVValue.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVDatabaseJournal.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVLogEntry.h"

namespace {

using Operation = ZVDatabaseJournal::Operation;

std::uint64_t timeOf(const ZVIntegrationProject& node, ZVDatabaseChangeTracker::RunningTime running) {
    return &node == running.project ? running.seconds : node.time();
}

ZVDictionary fieldsOf(const ZVIntegrationProject& node) {
    ZVDictionary fields{{ZVIntegrationProject::nameKey, node.name()},
                        {ZVIntegrationProject::projectIDKey, node.projectID()}};
    if (node.subprojectID()) fields[ZVIntegrationProject::subprojectIDKey] = *node.subprojectID();
    if (node.additionalID()) fields[ZVIntegrationProject::additionalIDKey] = *node.additionalID();
    if (node.fourthID()) fields[ZVIntegrationProject::fourthIDKey] = *node.fourthID();
    return fields;
}

ZVArray entriesFrom(const std::vector<std::shared_ptr<ZVLogEntry>>& log, std::size_t first) {
    ZVArray entries;
    entries.reserve(log.size() - std::min(first, log.size()));
    for (std::size_t index = first; index < log.size(); ++index) entries.emplace_back(log[index]->dictionaryRepresentation());
    return entries;
}

}  // namespace

std::string ZVDatabaseChangeTracker::settingsOf(ZVIntegration& account) {
    return ZVPropertyList::writeXML(ZVValue(account.settingsRepresentation()));
}

void ZVDatabaseChangeTracker::remember(const std::vector<IntegrationPointer>& accounts, const ProjectPointer& selected) {
    std::lock_guard guard(_mutex);
    _accounts.clear();
    _postponed.clear();
    for (const auto& account : accounts) _rememberAccount(account);
    _selected = selected.get();
    _selectedAccount.clear();
    if (selected)
        if (auto owner = selected->integration()) _selectedAccount = owner->integrationID();
}

void ZVDatabaseChangeTracker::_rememberAccount(const IntegrationPointer& account) {
    AccountState& state = _accounts[account->integrationID()];
    state = AccountState{};
    state.account = account;
    state.settings = settingsOf(*account);
    const auto projects = account->availableProjects();
    state.nodes.reserve(projects.size());
    for (const auto& project : projects) {
        state.top.push_back(project.get());
        _rememberSubtree(state, project, nullptr, {});
    }
}

void ZVDatabaseChangeTracker::_rememberSubtree(AccountState& state, const ProjectPointer& node,
                                               const ZVIntegrationProject* parent, RunningTime running) {
    NodeState& known = state.nodes[node.get()];
    known.node = node;
    known.parent = parent;
    known.time = timeOf(*node, running);
    known.fieldsRevision = node->fieldsRevision();
    known.logRevision = node->logRevision();
    known.logSize = node->logEntries().size();
    known.lastEntry = node->logEntries().empty() ? nullptr : node->logEntries().back().get();
    known.children.clear();
    for (const auto& child : node->subprojects()) {
        known.children.push_back(child.get());
        _rememberSubtree(state, child, node.get(), running);
    }
}

void ZVDatabaseChangeTracker::_forgetSubtree(AccountState& state, const ZVIntegrationProject* node,
                                             const ZVIntegrationProject* parent) {
    const auto found = state.nodes.find(node);
    // A node moved elsewhere is remembered at its new place already.
    if (found == state.nodes.end() || found->second.parent != parent) return;
    const std::vector<const ZVIntegrationProject*> children = std::move(found->second.children);
    state.nodes.erase(found);
    for (const auto* child : children) _forgetSubtree(state, child, node);
}

std::vector<std::string> ZVDatabaseChangeTracker::collect(const std::vector<IntegrationPointer>& accounts,
                                                          const std::optional<std::vector<IntegrationPointer>>& walked,
                                                          const ProjectPointer& selected, RunningTime running) {
    std::lock_guard guard(_mutex);
    std::vector<std::string> records;

    // The selection moves first off the old node, while its place is known,
    // and onto the new one after the trees are laid out.
    std::string selectedAccount;
    if (selected)
        if (auto owner = selected->integration()) selectedAccount = owner->integrationID();
    const bool selectionChanged = selected.get() != _selected || selectedAccount != _selectedAccount;
    if (selectionChanged && _selected) _recordSelection(_selectedAccount, _selected, false, records);

    std::set<std::string> present;
    for (const auto& account : accounts) {
        const std::string identifier = account->integrationID();
        present.insert(identifier);
        const auto known = _accounts.find(identifier);
        if (known != _accounts.end() && known->second.account == account) continue;
        records.push_back(ZVDatabaseJournal::encode(Operation::accountAdd, identifier, {},
                                                    ZVValue(account->dictionaryRepresentation())));
        _rememberAccount(account);
    }
    for (auto known = _accounts.begin(); known != _accounts.end();) {
        if (present.contains(known->first)) {
            ++known;
            continue;
        }
        records.push_back(ZVDatabaseJournal::encode(Operation::accountRemove, known->first, {}, ZVValue()));
        _postponed.erase(known->first);
        known = _accounts.erase(known);
    }

    std::vector<IntegrationPointer> toWalk = walked.value_or(accounts);
    for (const std::string& identifier : _postponed) {
        const auto known = _accounts.find(identifier);
        if (known != _accounts.end() && std::ranges::find(toWalk, known->second.account) == toWalk.end())
            toWalk.push_back(known->second.account);
    }
    _postponed.clear();
    for (const auto& account : toWalk) {
        const std::string identifier = account->integrationID();
        const auto known = _accounts.find(identifier);
        if (known == _accounts.end() || known->second.account != account) continue;
        // A synchronization that holds the account's lock is changing its
        // tree (and may wait for the user on this thread): look next time.
        std::unique_lock lock(account->lock(), std::try_to_lock);
        if (!lock) {
            _postponed.insert(identifier);
            continue;
        }
        AccountState& state = known->second;
        std::string settings = settingsOf(*account);
        if (settings != state.settings) {
            records.push_back(ZVDatabaseJournal::encode(Operation::settings, identifier, {},
                                                        ZVValue(account->settingsRepresentation())));
            state.settings = std::move(settings);
        }
        Walk walk{state, identifier, running, {}, records};
        _walkChildren(walk, nullptr, account->availableProjects());
    }

    if (selectionChanged) {
        _selected = selected.get();
        _selectedAccount = selectedAccount;
        if (_selected) _recordSelection(_selectedAccount, _selected, true, records);
    }
    return records;
}

void ZVDatabaseChangeTracker::_recordSelection(const std::string& identifier, const ZVIntegrationProject* node,
                                               bool selected, std::vector<std::string>& records) {
    const auto state = _accounts.find(identifier);
    if (state == _accounts.end()) return;
    if (auto path = _pathOf(state->second, node))
        records.push_back(ZVDatabaseJournal::encode(Operation::selected, identifier, *path, ZVValue(selected)));
}

void ZVDatabaseChangeTracker::_walkChildren(Walk& walk, const ZVIntegrationProject* parent,
                                            const std::vector<ProjectPointer>& live) {
    std::vector<const ZVIntegrationProject*>& known = parent ? walk.state.nodes.at(parent).children : walk.state.top;
    const bool same = std::equal(live.begin(), live.end(), known.begin(), known.end(),
                                 [](const ProjectPointer& node, const ZVIntegrationProject* old) { return node.get() == old; });
    std::vector<bool> fresh(live.size(), false);
    if (!same) {
        // The new order names each kept child by its old place and gives a
        // new one whole.
        std::unordered_map<const ZVIntegrationProject*, std::size_t> oldPlaces;
        for (std::size_t index = 0; index < known.size(); ++index) oldPlaces.emplace(known[index], index);
        ZVArray laidOut;
        laidOut.reserve(live.size());
        for (std::size_t index = 0; index < live.size(); ++index) {
            const auto old = oldPlaces.find(live[index].get());
            if (old != oldPlaces.end()) {
                laidOut.emplace_back(static_cast<unsigned long long>(old->second));
                oldPlaces.erase(old);
            } else {
                laidOut.emplace_back(live[index]->dictionaryRepresentation());
                fresh[index] = true;
            }
        }
        walk.records.push_back(
            ZVDatabaseJournal::encode(Operation::children, walk.identifier, walk.path, ZVValue(std::move(laidOut))));
        for (const auto& [gone, place] : oldPlaces) _forgetSubtree(walk.state, gone, parent);
        // `known` may be a member of a node state: fetch it again after the
        // map changed.
        std::vector<const ZVIntegrationProject*>& children =
            parent ? walk.state.nodes.at(parent).children : walk.state.top;
        children.clear();
        for (const auto& node : live) children.push_back(node.get());
        for (std::size_t index = 0; index < live.size(); ++index)
            if (fresh[index]) _rememberSubtree(walk.state, live[index], parent, walk.running);
    }
    for (std::size_t index = 0; index < live.size(); ++index) {
        if (fresh[index]) continue;
        walk.path.push_back(index);
        _walkNode(walk, live[index]);
        walk.path.pop_back();
    }
}

void ZVDatabaseChangeTracker::_walkNode(Walk& walk, const ProjectPointer& node) {
    NodeState& known = walk.state.nodes.at(node.get());
    const bool fieldsChanged = node->fieldsRevision() != known.fieldsRevision;
    if (fieldsChanged) {
        walk.records.push_back(
            ZVDatabaseJournal::encode(Operation::fields, walk.identifier, walk.path, ZVValue(fieldsOf(*node))));
        known.fieldsRevision = node->fieldsRevision();
    }
    const std::uint64_t time = timeOf(*node, walk.running);
    if (time != known.time) {
        walk.records.push_back(ZVDatabaseJournal::encode(Operation::time, walk.identifier, walk.path,
                                                         ZVValue(static_cast<unsigned long long>(time))));
        known.time = time;
    }
    const std::uint64_t logRevision = node->logRevision();
    const auto& log = node->logEntries();
    // Some entries name their project in their text: a rename rewrites the log.
    if (logRevision != known.logRevision || (fieldsChanged && !log.empty())) {
        // Entries only added at the end: each addition counted once, and
        // the entry that was last is still in its place.
        const bool appended = !fieldsChanged && log.size() > known.logSize && logRevision - known.logRevision == log.size() - known.logSize &&
                              (known.logSize == 0 || log[known.logSize - 1].get() == known.lastEntry);
        walk.records.push_back(ZVDatabaseJournal::encode(appended ? Operation::logAppend : Operation::logReplace,
                                                         walk.identifier, walk.path,
                                                         ZVValue(entriesFrom(log, appended ? known.logSize : 0))));
        known.logRevision = logRevision;
        known.logSize = log.size();
        known.lastEntry = log.empty() ? nullptr : log.back().get();
    }
    const auto& children = node->subprojects();
    if (!children.empty() || !known.children.empty()) _walkChildren(walk, node.get(), children);
}

std::optional<std::vector<std::size_t>> ZVDatabaseChangeTracker::_pathOf(const AccountState& state,
                                                                          const ZVIntegrationProject* node) const {
    std::vector<std::size_t> path;
    for (const ZVIntegrationProject* current = node; current;) {
        const auto found = state.nodes.find(current);
        if (found == state.nodes.end()) return std::nullopt;
        const auto& siblings = found->second.parent ? state.nodes.at(found->second.parent).children : state.top;
        const auto place = std::ranges::find(siblings, current);
        if (place == siblings.end()) return std::nullopt;
        path.push_back(static_cast<std::size_t>(place - siblings.begin()));
        current = found->second.parent;
    }
    std::ranges::reverse(path);
    return path;
}

ZVDatabaseChangeTracker::AccountState* ZVDatabaseChangeTracker::_stateOf(const ZVIntegrationProject& node,
                                                                         std::string& identifier) {
    const auto account = node.integration();
    if (!account) return nullptr;
    identifier = account->integrationID();
    const auto found = _accounts.find(identifier);
    if (found == _accounts.end() || found->second.account != account) return nullptr;
    return &found->second;
}

std::optional<std::vector<std::string>> ZVDatabaseChangeTracker::collectTime(const ProjectPointer& project,
                                                                              std::uint64_t seconds) {
    std::lock_guard guard(_mutex);
    std::string identifier;
    AccountState* state = project ? _stateOf(*project, identifier) : nullptr;
    if (!state) return std::nullopt;
    const auto known = state->nodes.find(project.get());
    if (known == state->nodes.end()) return std::nullopt;
    if (known->second.time == seconds) return std::vector<std::string>{};
    const auto path = _pathOf(*state, project.get());
    if (!path) return std::nullopt;
    known->second.time = seconds;
    return std::vector<std::string>{ZVDatabaseJournal::encode(Operation::time, identifier, *path,
                                                              ZVValue(static_cast<unsigned long long>(seconds)))};
}

bool ZVDatabaseChangeTracker::isStoredSelection(const ProjectPointer& project) {
    std::lock_guard guard(_mutex);
    return project.get() == _selected;
}
