#include "core/integrations/center/ZVIntegrationCenter.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <set>
#include <string_view>
#include <thread>
#include <utility>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "core/ui/ZVUserInterface.h"

namespace {

constexpr const char* supportAddress = "support@tesselwick.com";

/// Thrown out of the reading when the program quits before it ends.
struct ReadingAbandoned {};
constexpr unsigned databasePermissions = 0600;

std::atomic<ZVIntegrationCenter*>& sharedPointer() {
    static std::atomic<ZVIntegrationCenter*> pointer{nullptr};
    return pointer;
}

std::recursive_mutex& sharedCreationMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

std::vector<std::string> splitPath(const std::string& path) {
    const std::string pathSeparator = ZVIntegrationProject::pathSeparator;
    std::vector<std::string> components;
    std::size_t start = 0;
    for (std::size_t found; (found = path.find(pathSeparator, start)) != std::string::npos;
         start = found + pathSeparator.size()) {
        components.push_back(path.substr(start, found - start));
    }
    components.push_back(path.substr(start));
    return components;
}

/// The root of the database when it has the expected shape: string keys to dictionaries.
std::optional<ZVDictionary> databaseRoot(const ZVValue& value) {
    const ZVDictionary* root = value.dictionary();
    if (!root) return std::nullopt;
    for (const auto& entry : *root) {
        if (!entry.second.isDictionary()) return std::nullopt;
    }
    return *root;
}

template <typename Value, typename Predicate>
ZVIntegrationProject::Pointer firstProject(const std::vector<ZVIntegrationProject::Pointer>& projects, const Value& value,
                                           Predicate matches) {
    auto found = std::find_if(projects.begin(), projects.end(),
                              [&](const ZVIntegrationProject::Pointer& project) { return matches(*project, value); });
    return found == projects.end() ? nullptr : *found;
}

}  // namespace

ZVIntegrationCenter& ZVIntegrationCenter::shared() {
    if (ZVIntegrationCenter* center = sharedPointer().load()) return *center;
    std::lock_guard<std::recursive_mutex> guard(sharedCreationMutex());
    if (ZVIntegrationCenter* center = sharedPointer().load()) return *center;
    // Stored before the accounts are read: reading them reaches back here.
    auto* center = new ZVIntegrationCenter();
    sharedPointer().store(center);
    center->innerInit();
    return *center;
}

ZVIntegrationCenter& ZVIntegrationCenter::loadSharedInBackground() {
    std::lock_guard<std::recursive_mutex> guard(sharedCreationMutex());
    if (ZVIntegrationCenter* center = sharedPointer().load()) return *center;
    auto* center = new ZVIntegrationCenter();
    sharedPointer().store(center);
    center->_isReadingAccounts = true;
    center->_loader = std::thread([center] {
        struct Ending {
            std::atomic<bool>& ended;
            ~Ending() { ended = true; }
        } ending{center->_loaderEnded};
        std::shared_ptr<ReadAccounts> read;
        try {
            read = std::make_shared<ReadAccounts>(center->_readAccounts());
        } catch (const ReadingAbandoned&) {
            ZVLog([] { return std::string("The reading of the database was abandoned"); });
            return;
        }
        if (center->_loadingAbandoned) return;
        ZVLog([&] { return "Read " + std::to_string(read->accounts.size()) + " accounts; handing them over"; });
        ZVMainQueue::shared().post([center, read] {
            // A centre dropped meanwhile (tests) or a quit that came first takes nothing.
            if (sharedIfExists() != center || center->_loadingAbandoned) return;
            center->_finishLoading(std::move(*read));
        });
    });
    return *center;
}

bool ZVIntegrationCenter::abandonLoading(std::chrono::milliseconds patience) {
    ZVIntegrationCenter* center = sharedPointer().load();
    if (!center || !center->_loader.joinable()) return true;
    if (!center->_loaded) center->_loadingAbandoned = true;
    if (patience != std::chrono::milliseconds::max()) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!center->_loaderEnded && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (!center->_loaderEnded) {
            ZVLog([] { return std::string("The reading of the database is left to the end of the process"); });
            center->_loader.detach();
            return false;
        }
    }
    center->_loader.join();
    return true;
}

bool ZVIntegrationCenter::sharedIsLoading() {
    const ZVIntegrationCenter* center = sharedPointer().load();
    return center && !center->_loaded;
}

std::shared_ptr<ZVIntegrationProject> ZVIntegrationCenter::sharedCurrentProject() {
    const auto* center = sharedIfExists();
    return center ? center->currentProject() : nullptr;
}

ZVIntegrationCenter* ZVIntegrationCenter::sharedIfExists() { return sharedPointer().load(); }

void ZVIntegrationCenter::resetShared() {
    std::lock_guard<std::recursive_mutex> guard(sharedCreationMutex());
    ZVIntegrationCenter* center = sharedPointer().load();
    if (!center) return;
    abandonLoading();
    // A running synchronization uses the centre to its end; give it time to finish.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (center->synchronizationIsInProgress() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    delete sharedPointer().exchange(nullptr);
}

ZVIntegrationCenter::ZVIntegrationCenter() {
    const std::string folder = ZVPaths::dataDirectory();
    std::error_code error;
    if (folder.empty() || !std::filesystem::is_directory(folder, error)) {
        ZVAlert alert;
        alert.messageText =
            ZVLocalizedString("This system appears to be corrupted. Please, contact our support at ") + supportAddress;
        alert.informativeText = ZVLocalizedString("Cannot fetch database path.");
        alert.buttons = {ZVLocalizedString("Quit")};
        alert.style = ZVAlert::Style::critical;
        ZVUserInterface::shared().runModal(alert);
        std::exit(0);
    }
    _saveURL = folder + "/" + databaseFileName;
}

ZVIntegrationCenter::~ZVIntegrationCenter() {
    if (_loader.joinable()) {
        _loadingAbandoned = true;
        _loader.join();
    }
    // A whole write that runs reports back to this object.
    if (_journal) _journal->waitForFullWrite();
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
    if (_resyncTimer) _resyncTimer->invalidate();
    if (_savingTimer) _savingTimer->invalidate();
}

namespace {

/// While the database is read, millions of small blocks are made and freed
/// between larger ones, and glibc's allocator would sort its small free
/// blocks again at every larger request (a third of the reading time of a
/// large database). Small free blocks go straight back to the heap instead
/// while this lives.
class ZVBulkReadingAllocation {
public:
    ZVBulkReadingAllocation() {
#ifdef __GLIBC__
        mallopt(M_MXFAST, 0);
#endif
    }
    ~ZVBulkReadingAllocation() {
#ifdef __GLIBC__
        mallopt(M_MXFAST, defaultFastBlockSize);
#endif
    }
    ZVBulkReadingAllocation(const ZVBulkReadingAllocation&) = delete;
    ZVBulkReadingAllocation& operator=(const ZVBulkReadingAllocation&) = delete;

private:
    // glibc's own default: 64 * sizeof(size_t) / 4.
    static constexpr int defaultFastBlockSize = static_cast<int>(64 * sizeof(std::size_t) / 4);
};

}  // namespace

void ZVIntegrationCenter::innerInit() {
    _isReadingAccounts = true;
    _finishLoading(_readAccounts());
}

ZVIntegrationCenter::ReadAccounts ZVIntegrationCenter::_readAccounts() {
    const ZVBulkReadingAllocation allocation;
    ReadAccounts read;
    read.journal = std::make_unique<ZVDatabaseJournal>(_saveURL, databasePermissions);
    ZVDatabaseJournal::Loaded journal = read.journal->load();
    if (!_readAccountsStreaming(journal.replay, read.accounts)) {
        ZVDictionary stored = _readDatabaseFile();
        if (_databaseWasSetAside) {
            // The records amend a file that is gone; they stay aside with it.
            read.journal->setAsideUnread();
            journal.replay = {};
        }
        for (const std::string& key : journal.replay.accounts()) journal.replay.apply(key, stored[key]);
        for (auto& entry : stored) {
            if (_loadingAbandoned) throw ReadingAbandoned{};
            const ZVDictionary* accountDictionary = entry.second.dictionary();
            if (!accountDictionary) continue;
            if (auto integration = ZVIntegration::integrationWithDictionary(*accountDictionary))
                read.accounts.push_back(std::move(integration));
            // The dictionary form of a large account is as big as the account
            // itself; it goes as soon as the account stands.
            entry.second = ZVValue();
        }
    }
    {
        std::lock_guard<std::mutex> guard(_currentProjectMutex);
        read.storedSelection = std::move(_storedSelection);
    }
#ifdef __GLIBC__
    // The reading made and freed far more than the accounts keep; what it
    // freed goes back to the system instead of staying with a program that
    // runs all day (about 40% of what a large database left resident).
    malloc_trim(0);
#endif
    return read;
}

void ZVIntegrationCenter::_finishLoading(ReadAccounts read) {
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        _integrations.insert(_integrations.end(), read.accounts.begin(), read.accounts.end());
    }
    _journal = std::move(read.journal);
    _loaded = true;
    // Still "reading": the node stored as selected becomes current without
    // a banner and without touching the stored recents.
    if (read.storedSelection && !currentProject()) setCurrentProject(read.storedSelection);
    ZVNorvoIntegration::sharedIntegration();
    _isReadingAccounts = false;
    // The node marked selected in the file is the one the store knows as
    // selected, whatever the preferences make current next.
    _tracker.remember(integrations(), currentProject());
    _journal->start();

    _restoreRecentProjects();
    _restoreCurrentProject();
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        if (_recentProjects.empty()) {
            if (auto project = currentProject()) _recentProjects.push_back(project);
        }
        std::vector<ProjectPointer> distinct;
        for (const auto& project : _recentProjects) {
            if (std::find(distinct.begin(), distinct.end(), project) == distinct.end()) distinct.push_back(project);
        }
        if (distinct.size() > maximumRecentProjects) distinct.resize(maximumRecentProjects);
        _recentProjects = std::move(distinct);
    }

    // A change of the period takes effect at the next start.
    _syncPeriod = ZVPreferences::shared().integer(syncPeriodKey, defaultSyncPeriod);
    if (_syncPeriod < shortestSyncPeriod) _syncPeriod = defaultSyncPeriod;

    _observations.push_back(ZVNotificationCenter::shared().addObserver(
        ZVApplicationWillTerminateNotification, [this](const ZVNotification&) { saveBeforeQuitting(); }));
    auto& timers = ZVTimerFactory::shared();
    _resyncTimer = timers.makeRepeatingTimer(static_cast<double>(_syncPeriod), [this] { _resyncIntegrations(); });
    _savingTimer = timers.makeRepeatingTimer(autosaveInterval, [this] { _autosave(); });
    _resyncIntegrations();
    ZVNotificationCenter::shared().post(ZVIntegrationCenterDidLoadNotification);
    for (auto& block : std::exchange(_whenLoaded, {})) block();
}

void ZVIntegrationCenter::performWhenLoaded(std::function<void()> block) {
    if (_loaded)
        block();
    else
        _whenLoaded.push_back(std::move(block));
}

void ZVIntegrationCenter::storedSelectionWasRead(const ProjectPointer& project) {
    if (_isReadingAccounts) {
        // The worker reads the accounts while the main thread may build the
        // local account's projects.
        std::lock_guard<std::mutex> guard(_currentProjectMutex);
        if (!_storedSelection) _storedSelection = project;
        return;
    }
    if (!currentProject()) setCurrentProject(project);
}

void ZVIntegrationCenter::_restoreRecentProjects() {
    const std::optional<ZVValue> stored = ZVPreferences::shared().value(recentIntegrationsKey);
    const ZVArray* paths = stored ? stored->array() : nullptr;
    if (!paths) return;
    auto localAccount = ZVNorvoIntegration::sharedIntegration();

    std::lock_guard<std::recursive_mutex> guard(_lock);
    for (const ZVValue& value : *paths) {
        const std::string* path = value.string();
        if (!path) continue;
        const std::vector<std::string> components = splitPath(*path);
        if (components.size() < 2) continue;

        IntegrationPointer account;
        for (const auto& integration : _integrations) {
            if (integration->name() == components[0]) {
                account = integration;
                break;
            }
        }
        if (!account && localAccount && components[0] == localAccount->name()) account = localAccount;
        if (!account) continue;

        auto byName = [](const ZVIntegrationProject& project, const std::string& name) { return project.name() == name; };
        ProjectPointer node = firstProject(account->availableProjects(), components[1], byName);
        for (std::size_t index = 2; node && index < components.size(); ++index) {
            node = firstProject(node->subprojects(), components[index], byName);
        }
        if (node) _recentProjects.push_back(node);
    }
}

void ZVIntegrationCenter::_restoreCurrentProject() {
    const std::optional<ZVValue> stored = ZVPreferences::shared().value(currentProjectKey);
    const ZVArray* path = stored ? stored->array() : nullptr;
    if (!path || path->empty()) return;
    std::vector<std::string> identifiers;
    for (const ZVValue& value : *path) {
        const std::string* identifier = value.string();
        if (!identifier) return;
        identifiers.push_back(*identifier);
    }

    IntegrationPointer account;
    for (const auto& integration : integrations()) {
        if (integration->integrationID() == identifiers[0]) {
            account = integration;
            break;
        }
    }
    if (!account && identifiers[0] == ZVNorvoIntegrationID) account = ZVNorvoIntegration::sharedIntegration();
    if (!account || identifiers.size() < 2) return;

    ProjectPointer node = firstProject(account->availableProjects(), identifiers[1],
                                       [](const ZVIntegrationProject& project, const std::string& identifier) {
                                           return project.projectID() == identifier;
                                       });
    if (node && identifiers.size() >= 3) {
        node = firstProject(node->subprojects(), identifiers[2],
                            [](const ZVIntegrationProject& project, const std::string& identifier) {
                                return project.subprojectID() == identifier;
                            });
    }
    if (node && identifiers.size() >= 4) {
        node = firstProject(node->subprojects(), identifiers[3],
                            [](const ZVIntegrationProject& project, const std::string& identifier) {
                                return project.additionalID() == identifier;
                            });
    }
    if (node) setCurrentProject(node);
}

ZVIntegrationCenter::ProjectPointer ZVIntegrationCenter::currentProject() const {
    std::lock_guard<std::mutex> guard(_currentProjectMutex);
    return _currentProject;
}

void ZVIntegrationCenter::setCurrentProject(const ProjectPointer& project) {
    // The stored current project is restored when the reading ends.
    if (!_loaded) {
        ZVLog([] { return std::string("Not changing the current project: the accounts are still being read"); });
        return;
    }
    ZVHeartBeat& heartBeat = ZVHeartBeat::sharedHeartBeat();
    const bool wasRunning = heartBeat.isBeating();
    heartBeat.stop();

    if (auto previous = currentProject()) previous->setTime(heartBeat.currentTime());

    {
        std::lock_guard<std::mutex> guard(_currentProjectMutex);
        _currentProject = project;
    }
    heartBeat._currentTime = project ? project->time() : 0;
    if (heartBeat.isBeating()) heartBeat._restartMeasurement(heartBeat._currentTime);
    heartBeat._notifyVeins();

    if (project && !_isReadingAccounts) {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        auto found = std::find(_recentProjects.begin(), _recentProjects.end(), project);
        if (found != _recentProjects.end()) {
            std::rotate(_recentProjects.begin(), found, found + 1);
        } else {
            _recentProjects.insert(_recentProjects.begin(), project);
            if (_recentProjects.size() > maximumRecentProjects) _recentProjects.pop_back();
        }
        _saveRecentProjects();
        ZVPreferences::shared().synchronize();
    }

    if (project) {
        if (wasRunning) heartBeat.start();
        if (_systemNotificationHandler && !_isReadingAccounts) _systemNotificationHandler(project);
    }
    ZVNotificationCenter::shared().post(ZVIntegrationCenterCurrentProjectDidChangeNotification);
}

std::vector<ZVIntegrationCenter::IntegrationPointer> ZVIntegrationCenter::integrations() const {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    return _integrations;
}

std::vector<ZVIntegrationCenter::ProjectPointer> ZVIntegrationCenter::recentProjects() const {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    return _recentProjects;
}

std::vector<ZVIntegrationClass> ZVIntegrationCenter::availableIntegrationClasses() const {
    static const std::vector<ZVIntegrationClass> classes = ZVIntegrationRegistry::availableIntegrationClasses();
    return classes;
}

void ZVIntegrationCenter::addIntegration(const IntegrationPointer& integration) {
    // Saved into a store that is not read yet, the account would be lost.
    if (!_loaded) {
        performWhenLoaded([this, integration] { addIntegration(integration); });
        return;
    }
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        _integrations.push_back(integration);
    }
    ZVLog([&] { return "Added " + integration->name(); });
    integration->save();
    // A new account shows its projects at once; one saved while a refresh
    // runs follows right after it, without a word to the user.
    if (synchronizationIsInProgress())
        ZVSynchronizationThread::synchronizeAfterTheRunningOne(integration);
    else
        integration->synchronize();
}

void ZVIntegrationCenter::removeIntegration(const IntegrationPointer& integration) {
    if (!_loaded) return;
    ZVLog([&] { return "Removing " + integration->name(); });
    if (auto project = currentProject(); project && project->integration() == integration) setCurrentProject(nullptr);
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        auto found = std::find(_integrations.begin(), _integrations.end(), integration);
        if (found != _integrations.end()) _integrations.erase(found);
    }
    _journalChanges(std::vector<IntegrationPointer>{});
    _journal->waitUntilDurable();
}

ZVArray ZVIntegrationCenter::_currentProjectPath() const {
    const auto project = currentProject();
    if (!project) return {};
    const auto account = project->integration();
    if (!account) return {};
    ZVArray path{account->integrationID(), project->projectID()};
    if (project->subprojectID()) {
        path.emplace_back(*project->subprojectID());
        if (project->additionalID()) path.emplace_back(*project->additionalID());
    }
    return path;
}

void ZVIntegrationCenter::save() {
    if (!_savingIsAllowed()) return;
    for (const auto& integration : integrations()) {
        ZVLog([&] { return integration->name() + " - saving."; });
        integration->_saveSecrets();
    }
    _journalChanges(std::nullopt);
    std::lock_guard<std::recursive_mutex> guard(_lock);
    ZVPreferences::shared().setValue(ZVValue(_currentProjectPath()), currentProjectKey);
    ZVPreferences::shared().synchronize();
}

void ZVIntegrationCenter::saveIntegration(const IntegrationPointer& integration) {
    if (!_savingIsAllowed()) return;
    integration->_saveSecrets();
    _journalChanges(std::vector<IntegrationPointer>{integration});
}

void ZVIntegrationCenter::_journalChanges(const std::optional<std::vector<IntegrationPointer>>& walked) {
    if (!_journal) return;
    ZVDatabaseChangeTracker::RunningTime running;
    const auto project = currentProject();
    if (project && ZVHeartBeat::sharedHeartBeat().isBeating())
        running = {project.get(), ZVHeartBeat::sharedHeartBeat().currentTime()};
    {
        // Records go into the journal in the order they were found: a later
        // one may name a place that an earlier one made.
        std::lock_guard guard(_journalingLock);
        std::vector<std::string> records = _tracker.collect(integrations(), walked, project, running);
        if (!records.empty()) _journal->append(std::move(records));
    }
    _fullWriteIfDue();
}

void ZVIntegrationCenter::journalRunningTime(std::uint64_t seconds) {
    if (!_loaded) return;
    const auto project = currentProject();
    if (!project) return;
    // Local projects live in the preferences, a small file that the journal
    // does not cover: their running time is written there every few beats.
    if (auto account = project->integration(); account && account->isLocalAccount()) {
        project->setTimeWithoutSaving(seconds);
        if (seconds >= _localRunningTimeSaved + localRunningTimeSaveInterval || seconds < _localRunningTimeSaved) {
            _localRunningTimeSaved = seconds;
            account->save();
        }
        return;
    }
    if (!_journal) return;
    // A run on a newly chosen project comes back after a crash on that project.
    {
        std::lock_guard guard(_journalingLock);
        std::optional<std::vector<std::string>> records;
        if (_tracker.isStoredSelection(project)) records = _tracker.collectTime(project, seconds);
        if (records) {
            _journal->append(std::move(*records));
            return;
        }
    }
    // A node that the journal does not know yet comes with its account.
    if (auto account = project->integration()) _journalChanges(std::vector<IntegrationPointer>{account});
}

void ZVIntegrationCenter::_fullWriteIfDue() {
    std::error_code error;
    const auto databaseSize = std::filesystem::file_size(_saveURL, error);
    const std::uint64_t limit =
        std::max(journalFloor, std::min(largestJournal, error ? std::uint64_t{0} : static_cast<std::uint64_t>(databaseSize) / 10));
    // A whole write that failed is tried again at each save until it succeeds.
    if ((_journal->size() <= limit && !_databaseWriteFailed) || _journal->fullWriteIsRunning()) return;
    ZVLog([&] { return "The journal holds " + std::to_string(_journal->size()) + " bytes; writing the database whole"; });
    _journal->startFullWrite([this](bool written) {
        if (written) {
            if (_databaseWriteFailed.exchange(false))
                ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeRecovered, _saveURL, {}, {}});
            return;
        }
        // The journal still holds everything; the user hears of it once.
        const std::string reason = std::strerror(errno);
        ZVLog([&] { return "Writing the database " + _saveURL + " failed: " + reason; });
        if (!_databaseWriteFailed.exchange(true))
            ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeFailed, _saveURL, {}, reason});
    });
}

void ZVIntegrationCenter::saveBeforeQuitting() {
    if (!_savingIsAllowed()) return;
    save();
    if (!_journal || !_ensureDatabaseMayBeWritten()) return;
    _journal->waitUntilDurable();
    // The whole write reads the accounts it amends much as a start does.
    const bool written = [this] {
        const ZVBulkReadingAllocation allocation;
        return _journal->fullWriteNow();
    }();
    if (!written) {
        // The journal still holds everything; the next start reads it.
        const std::string reason = std::strerror(errno);
        ZVLog([&] { return "Writing the database " + _saveURL + " at quit failed: " + reason; });
        if (!_databaseWriteFailed.exchange(true))
            ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeFailed, _saveURL, {}, reason});
    } else if (_databaseWriteFailed.exchange(false)) {
        ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeRecovered, _saveURL, {}, {}});
    }
}

void ZVIntegrationCenter::waitUntilSaved() {
    if (!_journal) return;
    _journal->waitUntilDurable();
    _journal->waitForFullWrite();
}

ZVDatabaseJournal& ZVIntegrationCenter::journal() {
    if (!_journal) ZVFatalError("The journal is made with the accounts");
    return *_journal;
}

void ZVIntegrationCenter::_autosave() { saveAll(); }

bool ZVIntegrationCenter::_savingIsAllowed() const {
    // Before the accounts are read the centre holds none: saving now would
    // write an empty tree and no current project over the user's.
    if (_loaded) return true;
    ZVLog([] { return std::string("Not saving: the accounts are still being read"); });
    return false;
}

void ZVIntegrationCenter::saveAll() {
    if (!_savingIsAllowed()) return;
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (auto project = currentProject()) project->setTime(ZVHeartBeat::sharedHeartBeat().currentTime());
    save();
    _saveRecentProjects();
    ZVPreferences::shared().synchronize();
}

void ZVIntegrationCenter::_saveRecentProjects() {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    ZVArray paths;
    paths.reserve(_recentProjects.size());
    for (const auto& project : _recentProjects) paths.emplace_back(project->fullProjectPath());
    ZVPreferences::shared().setValue(ZVValue(std::move(paths)), recentIntegrationsKey);
}

ZVDictionary ZVIntegrationCenter::readIntegrationsFromDisk() {
    // File and journal read as one: after what was saved is durable and a
    // whole write has swapped both.
    if (_journal) {
        _journal->waitUntilDurable();
        _journal->waitForFullWrite();
    }
    ZVDictionary stored = _readDatabaseFile();
    if (!_journal) return stored;
    const ZVJournalFile::Contents contents = ZVJournalFile::read(_journal->path());
    const auto payloads = ZVDatabaseJournal::recordsAmending(contents, ZVDatabaseJournal::baseOf(_saveURL),
                                                             static_cast<std::uint64_t>(ZVPaths::stampOf(_saveURL).value_or(ZVPaths::FileStamp{}).size));
    if (!payloads) return stored;
    std::vector<ZVDictionary> records;
    for (const std::string& payload : *payloads)
        if (auto record = ZVDatabaseJournal::decode(payload)) records.push_back(std::move(*record));
    const ZVDatabaseJournal::Replay replay(records);
    for (const std::string& key : replay.accounts()) {
        replay.apply(key, stored[key]);
        if (stored[key].isNull()) stored.erase(key);
    }
    return stored;
}

ZVDictionary ZVIntegrationCenter::_readDatabaseFile() {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    std::error_code error;
    if (!std::filesystem::exists(_saveURL, error)) {
        _checkedDatabaseReadability = true;
        return {};
    }
    std::string bytes;
    if (ZVPaths::readFile(_saveURL, bytes)) {
        const std::optional<ZVValue> value = ZVPropertyList::readConsuming(bytes);
        if (std::optional<ZVDictionary> root = value ? databaseRoot(*value) : std::nullopt) {
            _checkedDatabaseReadability = true;
            return std::move(*root);
        }
    }
    // The program carries on without accounts, but the user's data is kept.
    if (_setAsideUnreadableDatabase()) _checkedDatabaseReadability = true;
    return {};
}

bool ZVIntegrationCenter::_readAccountsStreaming(const ZVDatabaseJournal::Replay& replay,
                                                 std::vector<IntegrationPointer>& accounts) {
    // Accounts and nodes are built without the centre's lock, which no
    // account or node lock may be taken under; the lock guards what is kept.
    std::error_code error;
    if (!std::filesystem::exists(_saveURL, error)) return false;
    ZVPaths::MappedFile file(_saveURL);
    if (!file.isOpen()) return false;
    const std::string_view bytes = file.text();
    // Each account is built as soon as its entry is read, and its
    // dictionary form dropped; the part of the file read is given back as
    // the reading goes on: a large file never stands in memory as a whole.
    std::set<std::string> keys;
    bool allDictionaries = true;
    // An account's top-level nodes are built one by one as they are read,
    // before the account's own settings (which follow them in the file), so
    // that its dictionary form never stands whole beside the nodes built
    // from it. The nodes of an account that the journal amends are kept in
    // their stored form instead: the records apply to that.
    const std::set<std::string> amended = [&] {
        const auto named = replay.accounts();
        return std::set<std::string>(named.begin(), named.end());
    }();
    ZVIntegration::ProjectList built;
    ZVArray held;
    const auto node = [&](const std::string& key, ZVValue&& value, std::size_t reached) {
        if (_loadingAbandoned) throw ReadingAbandoned{};
        if (amended.contains(key)) {
            held.push_back(std::move(value));
            return;
        }
        if (const ZVDictionary* dictionary = value.dictionary())
            built.push_back(ZVIntegrationProject::createWithDictionary(*dictionary, {}));
        value = ZVValue();
        file.release(reached);
    };
    const auto build = [&](ZVValue& value) {
        const ZVDictionary* accountDictionary = value.dictionary();
        if (!accountDictionary) allDictionaries = false;
        if (allDictionaries) {
            if (auto integration = ZVIntegration::integrationWithDictionary(*accountDictionary)) {
                integration->adoptLoadedProjects(std::exchange(built, {}));
                accounts.push_back(std::move(integration));
            }
        }
    };
    const auto entry = [&](std::string&& key, ZVValue&& value, std::size_t reached) {
        if (_loadingAbandoned) throw ReadingAbandoned{};
        if (amended.contains(key)) {
            if (ZVDictionary* dictionary = value.mutableDictionary(); dictionary && !held.empty())
                (*dictionary)[ZVIntegrationCachedProjectsKey] = ZVValue(std::move(held));
            replay.apply(key, value);
        }
        held.clear();
        keys.insert(std::move(key));
        // An account that the journal removed is read as nothing.
        if (!value.isNull()) build(value);
        if (!built.empty()) {
            // Nodes of an account that could not be read: none of them may
            // become the current project.
            built.clear();
            std::lock_guard<std::mutex> guard(_currentProjectMutex);
            if (_storedSelection && !_storedSelection->integration()) _storedSelection.reset();
        }
        file.release(reached);
    };
    const bool read = ZVPropertyList::readDictionaryEntries(bytes, ZVIntegrationCachedProjectsKey, node, entry);
    // Accounts that only the journal holds come after the file's.
    for (const std::string& key : replay.accounts()) {
        if (!read || !allDictionaries || keys.contains(key)) continue;
        ZVValue value;
        replay.apply(key, value);
        if (!value.isNull()) build(value);
    }
    if (!read || !allDictionaries) {
        // The general reader decides; a node marked selected in what was
        // read so far must not become the current project.
        accounts.clear();
        std::lock_guard<std::mutex> guard(_currentProjectMutex);
        _storedSelection.reset();
        return false;
    }
    std::lock_guard<std::recursive_mutex> guard(_lock);
    _checkedDatabaseReadability = true;
    return true;
}

bool ZVIntegrationCenter::_setAsideUnreadableDatabase() {
    const std::string target = ZVPaths::setAsidePath(_saveURL);
    std::error_code error;
    std::filesystem::rename(_saveURL, target, error);
    if (error) {
        ZVLog([&] { return "Cannot move the unreadable database " + _saveURL + " aside: " + error.message(); });
        ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::unreadableKept, _saveURL, {}, error.message()});
        return false;
    }
    ZVLog([&] { return "The database " + _saveURL + " could not be read; it was moved to " + target; });
    _databaseWasSetAside = true;
    ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::setAside, _saveURL, target, {}});
    return true;
}

bool ZVIntegrationCenter::_ensureDatabaseMayBeWritten() {
    if (!_checkedDatabaseReadability) _readDatabaseFile();
    return _checkedDatabaseReadability;
}

void ZVIntegrationCenter::writeIntegrationsToDisk(const ZVDictionary& integrations) {
    if (!_savingIsAllowed()) return;
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (!_ensureDatabaseMayBeWritten()) {
        ZVLog([&] { return "Not writing over the unreadable database " + _saveURL; });
        return;
    }
    if (_journal) _journal->waitForFullWrite();
    std::map<std::string, std::string> entries;
    for (const auto& [identifier, value] : integrations)
        entries[identifier] = ZVPropertyList::dictionaryEntryXML(identifier, value);
    ZVPropertyList::EntryRanges written;
    if (!ZVPropertyList::writeDictionaryFileEntries(_saveURL, databasePermissions, entries, {}, written)) {
        const std::string reason = std::strerror(errno);
        ZVLog([&] { return "Writing the database " + _saveURL + " failed: " + reason; });
        return;
    }
    // This dictionary is the whole store now.
    if (_journal) _journal->restart();
}

bool ZVIntegrationCenter::synchronizationIsInProgress() const {
    std::lock_guard<std::mutex> guard(_syncLock);
    return _number_of_sync_threads > 0;
}

// The background refresh of all accounts starts here, from the resync timer
// and once at start.
void ZVIntegrationCenter::_resyncIntegrations() { ZVSynchronizationThread::_resyncIntegrations(*this); }

void ZVIntegrationCenter::synchronizeIntegration(const IntegrationPointer& integration) {
    ZVSynchronizationThread::synchronizeIntegration(*this, integration);
}
