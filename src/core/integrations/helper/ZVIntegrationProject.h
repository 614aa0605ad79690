#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZVValue.h"

class ZVIntegration;
class ZVIntegrationProjectMenuItemTarget;
class ZVLogEntry;
class ZVMenuItem;
class ZVTimeLogEntry;

/// A node of a project tree: a project, task, ticket or invoice of an
/// account, with up to four remote identifiers, its children, its own
/// tracked seconds and its log. Nodes live in shared pointers and have
/// identity: there is never a copy of a node. A node points to its parent
/// and to its account weakly.
class ZVIntegrationProject : public std::enable_shared_from_this<ZVIntegrationProject> {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    using Pointer = std::shared_ptr<ZVIntegrationProject>;
    using List = std::vector<Pointer>;

    /// An unnamed node with a fresh UUID as its `projectID`.
    static Pointer create();
    static Pointer create(std::string name, std::string projectID,
                          std::optional<std::string> subprojectID = std::nullopt);
    /// A node with its log and subtree read from its dictionary form. A node
    /// marked selected becomes the current project when there is none yet.
    static Pointer createWithDictionary(const ZVDictionary& dictionary,
                                        const std::weak_ptr<ZVIntegration>& integration);

    ZVIntegrationProject(Passkey, std::string name, std::string projectID, std::optional<std::string> subprojectID);
    ~ZVIntegrationProject();
    ZVIntegrationProject(const ZVIntegrationProject&) = delete;
    ZVIntegrationProject& operator=(const ZVIntegrationProject&) = delete;

    /// The owning account; nullptr while it is not set or when it is gone.
    std::shared_ptr<ZVIntegration> integration() const { return _integration.lock(); }
    void setIntegration(const std::weak_ptr<ZVIntegration>& integration) { _integration = integration; }
    /// The account, which must be there: its absence is a fatal programming error.
    std::shared_ptr<ZVIntegration> requiredIntegration() const;

    /// Guards `logEntries` and `subprojects` in the locked operations below.
    /// Not recursive.
    std::mutex& lock() const { return _lock; }

    const std::vector<std::shared_ptr<ZVLogEntry>>& logEntries() const { return _logEntries; }
    /// Replaces the log (editing and clearing of the log).
    void setLogEntries(std::vector<std::shared_ptr<ZVLogEntry>> entries) {
        _logEntries = std::move(entries);
        noteLogChange();
    }

    const std::string& name() const { return _name; }
    void setName(std::string name) {
        _name = std::move(name);
        ++_fieldsRevision;
        noteTreeChange();
    }
    Pointer parentProject() const { return _parentProject.lock(); }
    void setParentProject(const std::weak_ptr<ZVIntegrationProject>& parent) { _parentProject = parent; }
    const std::string& projectID() const { return _projectID; }
    void setProjectID(std::string projectID) {
        _projectID = std::move(projectID);
        ++_fieldsRevision;
    }
    const std::optional<std::string>& subprojectID() const { return _subprojectID; }
    void setSubprojectID(std::optional<std::string> value) {
        _subprojectID = std::move(value);
        ++_fieldsRevision;
    }
    const std::optional<std::string>& additionalID() const { return _additionalID; }
    void setAdditionalID(std::optional<std::string> value) {
        _additionalID = std::move(value);
        ++_fieldsRevision;
    }
    const std::optional<std::string>& fourthID() const { return _fourthID; }
    void setFourthID(std::optional<std::string> value) {
        _fourthID = std::move(value);
        ++_fieldsRevision;
    }

    /// Counts that grow with every change of the name or an identifier, and
    /// of the log or one of its entries: what the database's journal compares
    /// to find what changed since it last looked.
    std::uint64_t fieldsRevision() const { return _fieldsRevision.load(std::memory_order_relaxed); }
    std::uint64_t logRevision() const { return _logRevision.load(std::memory_order_relaxed); }
    void noteLogChange() { _logRevision.fetch_add(1, std::memory_order_relaxed); }

    const List& subprojects() const { return _subprojects; }
    /// The children for in-place merging and reordering; callers hold `lock`
    /// and call `noteTreeChange()` when they are done.
    List& mutableSubprojects() { return _subprojects; }

    /// A count that grows after every change of a tree's shape or of a name
    /// on it, in any account. What is derived from the trees (the quick
    /// search's index of paths) compares it to know when to renew itself.
    static std::uint64_t treeGeneration() { return _treeGeneration.load(std::memory_order_acquire); }
    static void noteTreeChange() { _treeGeneration.fetch_add(1, std::memory_order_acq_rel); }

    std::uint64_t time() const { return _time.load(); }
    /// The most a node holds, about 31,700 years: any sum of the times of
    /// millions of nodes stays far inside 64 bits. Longer times are cut to it.
    static constexpr std::uint64_t maximumTime = 1'000'000'000'000;
    /// The stored time of a node's dictionary, brought into 0...maximumTime.
    static std::uint64_t storedTime(const ZVDictionary& dictionary, const std::string& name);
    /// Stores the seconds; a change of 3 seconds or more saves the account,
    /// so that the timer's ticks never write to disk one by one.
    void setTime(std::uint64_t seconds);
    /// Stores the seconds and nothing else; the caller saves the account.
    void setTimeWithoutSaving(std::uint64_t seconds);

    bool hasSubprojects() const { return !_subprojects.empty(); }
    /// The account's name (or "Projects" for the local account), then each
    /// node's name from the top down, joined by " ➔ ".
    std::string fullProjectPath() const;
    /// Whether a descendant at any depth, not the node itself, has time.
    bool containsSubprojectWithUnpostedTime() const;
    std::shared_ptr<ZVTimeLogEntry> lastTimeLogEntry() const;
    std::string lastEntryTitle() const;
    /// The whole log as text, with a header line and a total line.
    std::string logString() const;
    /// The total line's time: hours (counted modulo 60), minutes or seconds.
    std::string totalTimeString() const;

    void addLogEntry(const std::shared_ptr<ZVLogEntry>& entry);
    void removeLogEntry(const std::shared_ptr<ZVLogEntry>& entry);
    void addSubproject(const Pointer& project);
    /// Appends the nodes as children; their account is left as the caller set it.
    void addSubprojectsFromArray(const List& projects);
    void removeSubproject(const Pointer& project);
    /// Drops every descendant branch without time, bottom up.
    void clearEmptySubprojects();
    void sortSubprojectsByName();
    /// Merges freshly fetched children into `subprojects`, under `lock`, as
    /// a refresh merges an account's top level (defined with the synchronization).
    void mergeSubprojectsWithRemoteProjects(const List& remoteProjects);
    /// Sends the node's time to its account's service, with the user's
    /// prompts (defined with the posting).
    void postTime();

    /// Whether both nodes stand for the same remote object, judged by
    /// `projectID`, `subprojectID` and `additionalID` alone.
    bool isEqualToProject(const ZVIntegrationProject& other) const;

    /// The node's item in a project menu: a leaf is titled with its name and
    /// time and selects the project through the target; a branch shows the
    /// number of its children and opens a submenu of them.
    std::shared_ptr<ZVMenuItem> menuItem(ZVIntegrationProjectMenuItemTarget* target, const Pointer& selectedProject);
    /// The Option-key item "Post time for '%@'" of a leaf with time; nothing otherwise.
    std::shared_ptr<ZVMenuItem> alternateMenuItem();

    ZVDictionary dictionaryRepresentation() const;
    /// For log lines only.
    std::string description() const;

    static constexpr const char* nameKey = "KDIntegrationProjectName";
    static constexpr const char* projectIDKey = "KDIntegrationProjectID";
    static constexpr const char* subprojectIDKey = "KDIntegrationSubprojectID";
    static constexpr const char* additionalIDKey = "KDIntegrationAdditionalID";
    static constexpr const char* fourthIDKey = "KDIntegrationFourthID";
    static constexpr const char* timeKey = "KDIntegrationProjectTime";
    static constexpr const char* isSelectedKey = "KDIntegrationProjectIsSelected";
    static constexpr const char* logKey = "KDIntegrationProjectLog";
    static constexpr const char* subprojectsKey = "KDIntegrationProjectSubprojects";
    /// Separator of the path components in `fullProjectPath`.
    static constexpr const char* pathSeparator = " \u2794 ";

private:
    std::weak_ptr<ZVIntegration> _integration;
    mutable std::mutex _lock;
    std::vector<std::shared_ptr<ZVLogEntry>> _logEntries;
    std::string _name;
    std::weak_ptr<ZVIntegrationProject> _parentProject;
    std::string _projectID;
    std::optional<std::string> _subprojectID;
    std::optional<std::string> _additionalID;
    std::optional<std::string> _fourthID;
    List _subprojects;
    // Read by the refresh thread while the main thread's timer writes it.
    std::atomic<std::uint64_t> _time{0};
    std::atomic<std::uint64_t> _fieldsRevision{0};
    std::atomic<std::uint64_t> _logRevision{0};
    static inline std::atomic<std::uint64_t> _treeGeneration{0};
};
