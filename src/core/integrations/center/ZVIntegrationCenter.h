#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ZVPaths.h"
#include "ZVPropertyList.h"
#include "ZVThreading.h"
#include "ZVValue.h"
#include "core/integrations/center/ZVDatabaseChangeTracker.h"
#include "core/integrations/center/ZVDatabaseJournal.h"
#include "core/notifications/ZVNotificationCenter.h"

class ZVIntegration;
class ZVIntegrationProject;
struct ZVIntegrationClass;

/// The process-wide owner of the remote accounts. It reads and writes the
/// database file "Integrations.edb", keeps the current project and the
/// recent projects, saves every 300 seconds and starts the periodic refresh
/// of the accounts. The local account stands beside it and is never one of
/// its accounts.
///
/// Saving costs what changed: the changes go as small records into the
/// journal "Integrations.edb.journal" beside the database, durable within
/// seconds, and the database is written whole on a worker thread from the
/// file and the journal when the journal has grown (past 64 MB or a tenth of
/// the database) and at quit. Reading the accounts reads the database, then
/// the journal.
///
/// At the program's start the reading runs on a worker thread while the
/// windows are up; the accounts join on the main thread when it ends. Until
/// then the centre is not loaded: it holds no account, no current project,
/// and writes nothing at all, so that an early quit cannot put an empty tree
/// in place of the user's database.
class ZVIntegrationCenter {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;
    using IntegrationPointer = std::shared_ptr<ZVIntegration>;

    /// The one centre. The first call builds it, stores it and only then
    /// reads the accounts, so that what the reading reaches can use it.
    static ZVIntegrationCenter& shared();
    /// Drops the shared centre with its timers and observers (tests), after
    /// a running synchronization has ended (waiting at most 10 seconds); the
    /// next call of shared() reads everything again.
    static void resetShared();
    /// Builds the shared centre without reading it and starts reading the
    /// database and the journal on a worker thread; the accounts, the
    /// recents and the current project follow on the main thread, then the
    /// timers and the first refresh, and ZVIntegrationCenterDidLoadNotification
    /// is posted there. The centre that exists already is returned as it is.
    static ZVIntegrationCenter& loadSharedInBackground();
    /// Ends a reading that runs (a quit while the database is read): what
    /// it read is dropped and nothing is written. The worker stops at the
    /// next account; this waits for it at most `patience` and answers
    /// whether it ended. When it did not, it is left to the end of the
    /// process, which must then end without destroying static objects
    /// (std::_Exit): the worker still uses them.
    static bool abandonLoading(std::chrono::milliseconds patience = std::chrono::milliseconds::max());
    /// The shared centre when it has been built, else nullptr; builds nothing.
    static ZVIntegrationCenter* sharedIfExists();
    /// The current project of the shared centre; none before the centre is
    /// made (so that asking never reads the database).
    static std::shared_ptr<ZVIntegrationProject> sharedCurrentProject();

    ~ZVIntegrationCenter();
    ZVIntegrationCenter(const ZVIntegrationCenter&) = delete;
    ZVIntegrationCenter& operator=(const ZVIntegrationCenter&) = delete;

    /// Whether the accounts have been read. Until then nothing is saved.
    bool isLoaded() const { return _loaded; }
    /// Whether the shared centre exists and is still reading its accounts.
    static bool sharedIsLoading();

    /// Runs `block` on the main thread once the accounts are read: at once
    /// when they are. Blocks still waiting at a quit are dropped.
    void performWhenLoaded(std::function<void()> block);

    /// A node stored as selected has been made from its stored form. While
    /// the accounts are read the first such node becomes the current project
    /// when the reading ends; otherwise it becomes current when none is.
    void storedSelectionWasRead(const ProjectPointer& project);

    ProjectPointer currentProject() const;
    /// Stops a running timer, writes its time into the old project, loads
    /// the new project's time, updates the recents and runs the timer on.
    void setCurrentProject(const ProjectPointer& project);

    /// A snapshot of the remote accounts in the order of reading and adding.
    std::vector<IntegrationPointer> integrations() const;
    /// A snapshot of the recent projects, most recent first, at most 10.
    std::vector<ProjectPointer> recentProjects() const;

    /// The account classes the user can add, sorted by their display name.
    std::vector<ZVIntegrationClass> availableIntegrationClasses() const;

    void addIntegration(const IntegrationPointer& integration);
    void removeIntegration(const IntegrationPointer& integration);

    /// Saves every account (into the journal) and stores the current
    /// project's identifiers.
    void save();
    /// Saves one account: its secrets into the key store and what changed
    /// in it into the journal, made durable at once.
    void saveIntegration(const IntegrationPointer& integration);
    /// What quit and logout do: save, then write the database whole on the
    /// calling thread and empty the journal. What was tracked is in the
    /// database when this returns.
    void saveBeforeQuitting();
    /// Brings the running timer's seconds into the journal (the heart beat,
    /// every few seconds while it runs), so that a crash loses no more.
    void journalRunningTime(std::uint64_t seconds);
    /// Returns when everything saved so far is durable and a full write of
    /// the database that runs has ended (tests and tools).
    void waitUntilSaved();
    /// The journal beside the database (tests and tools).
    ZVDatabaseJournal& journal();
    /// What the autosave does: the running time into the current project,
    /// every account, the recent projects and the preferences.
    void saveAll();
    /// The stored root dictionary: the database file with the journal's
    /// records applied; empty when the file is missing or unreadable.
    ZVDictionary readIntegrationsFromDisk();
    /// Writes the root dictionary atomically as the whole store, and starts
    /// the journal again from it; failures leave the old file.
    void writeIntegrationsToDisk(const ZVDictionary& integrations);

    /// Refreshes one account at the user's request (main thread).
    void synchronizeIntegration(const IntegrationPointer& integration);
    bool synchronizationIsInProgress() const;
    bool terminateAfterSyncing() const { return _terminateAfterSyncing; }
    void setTerminateAfterSyncing(bool value) { _terminateAfterSyncing = value; }

    /// Guards the accounts, the recents and the file. Recursive.
    std::recursive_mutex& lock() const { return _lock; }
    /// Where the database lives.
    const std::string& saveURL() const { return _saveURL; }
    /// Seconds between two refreshes of all accounts, fixed at start.
    std::int64_t syncPeriod() const { return _syncPeriod; }

    /// What shows the desktop banner for a newly chosen project; nothing is
    /// shown while none is installed.
    void setSystemNotificationHandler(std::function<void(const ProjectPointer&)> handler) {
        _systemNotificationHandler = std::move(handler);
    }

    static constexpr const char* databaseFileName = "Integrations.edb";
    static constexpr const char* currentProjectKey = "KDIntegrationCenterCurrentProject";
    static constexpr const char* recentIntegrationsKey = "KDRecentIntegrations";
    static constexpr const char* syncPeriodKey = "KDIntegrationCenterSyncPeriod";
    static constexpr std::int64_t defaultSyncPeriod = 3600;
    static constexpr std::int64_t shortestSyncPeriod = 300;
    static constexpr double autosaveInterval = 300;
    static constexpr std::size_t maximumRecentProjects = 10;
    /// The journal is written into the database whole when it passes this
    /// size or a tenth of the database, whichever is smaller, but never
    /// below the floor: replaying a few kilobytes costs nothing.
    static constexpr std::uint64_t largestJournal = 64ull << 20;
    static constexpr std::uint64_t journalFloor = 64ull << 10;
    /// Seconds between two records of the running time.
    static constexpr std::uint64_t runningTimeJournalInterval = 5;
    /// Seconds between two writes of a running local project's time: each is
    /// a whole rewrite of the preferences, which costs more than a record.
    static constexpr std::uint64_t localRunningTimeSaveInterval = 10;

private:
    // The refresh thread counts itself in `_number_of_sync_threads` under `_syncLock`.
    friend class ZVSynchronizationThread;

    ZVIntegrationCenter();
    void innerInit();

    /// What the reading of the database gives, before it joins the centre.
    struct ReadAccounts {
        std::vector<IntegrationPointer> accounts;
        ProjectPointer storedSelection;
        std::unique_ptr<ZVDatabaseJournal> journal;
    };
    /// Reads the journal and the database into accounts that no one else
    /// sees yet; runs on any thread.
    ReadAccounts _readAccounts();
    /// Takes the accounts in and starts the centre's life: the recents, the
    /// current project, the timers and the first refresh (main thread).
    void _finishLoading(ReadAccounts read);

    void _restoreRecentProjects();
    void _restoreCurrentProject();
    void _autosave();
    /// False, with a log line, until the accounts are read.
    bool _savingIsAllowed() const;
    void _resyncIntegrations();
    void _saveRecentProjects();
    /// Builds the accounts straight from the file, one entry at a time,
    /// with the journal's records applied to each; false (holding no
    /// account) when the file is missing or not in the plain layout, which
    /// the general reader then handles.
    bool _readAccountsStreaming(const ZVDatabaseJournal::Replay& replay, std::vector<IntegrationPointer>& accounts);
    /// The database file's root dictionary alone.
    ZVDictionary _readDatabaseFile();
    /// Appends what changed in these accounts (all when absent) to the journal.
    void _journalChanges(const std::optional<std::vector<IntegrationPointer>>& walked);
    /// Starts a full write in the background when the journal has grown too large.
    void _fullWriteIfDue();
    /// Renames an existing database that cannot be read to
    /// "Integrations.edb.unreadable-<time>"; false when that fails.
    bool _setAsideUnreadableDatabase();
    /// Moves an unreadable existing database aside once; false when it can
    /// neither be read nor moved, so that nothing may overwrite it.
    bool _ensureDatabaseMayBeWritten();
    ZVArray _currentProjectPath() const;

    ProjectPointer _currentProject;
    std::vector<IntegrationPointer> _integrations;
    std::vector<ProjectPointer> _recentProjects;
    mutable std::recursive_mutex _lock;
    std::int64_t _number_of_sync_threads = 0;
    mutable std::mutex _syncLock;
    std::unique_ptr<ZVRepeatingTimer> _resyncTimer;
    std::unique_ptr<ZVRepeatingTimer> _savingTimer;
    std::atomic<bool> _terminateAfterSyncing{false};
    std::string _saveURL;

    // `_currentProject` is read from the refresh thread without `lock`.
    mutable std::mutex _currentProjectMutex;
    std::int64_t _syncPeriod = defaultSyncPeriod;
    bool _checkedDatabaseReadability = false;
    bool _databaseWasSetAside = false;
    // The last write of the database failed; the user has been told.
    std::atomic<bool> _databaseWriteFailed{false};
    std::unique_ptr<ZVDatabaseJournal> _journal;
    ZVDatabaseChangeTracker _tracker;
    std::mutex _journalingLock;
    // The running time of a local project that the preferences last received.
    std::uint64_t _localRunningTimeSaved = 0;
    // While the accounts are read, the first node marked selected is kept
    // here; it becomes the current project without touching the stored
    // recents, which are restored next.
    std::atomic<bool> _isReadingAccounts{false};
    ProjectPointer _storedSelection;
    std::atomic<bool> _loaded{false};
    std::atomic<bool> _loadingAbandoned{false};
    std::thread _loader;
    std::atomic<bool> _loaderEnded{false};
    std::vector<std::function<void()>> _whenLoaded;
    std::function<void(const ProjectPointer&)> _systemNotificationHandler;
    std::vector<ZVNotificationCenter::Token> _observations;
};
