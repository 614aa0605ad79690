#include "core/integrations/center/ZVIntegrationCenter.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string_view>
#include <thread>

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

ZVIntegrationCenter::EntryDigest digestOf(std::string_view entry) {
    return {entry.size(), std::hash<std::string_view>{}(entry)};
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

std::shared_ptr<ZVIntegrationProject> ZVIntegrationCenter::sharedCurrentProject() {
    const auto* center = sharedIfExists();
    return center ? center->currentProject() : nullptr;
}

ZVIntegrationCenter* ZVIntegrationCenter::sharedIfExists() { return sharedPointer().load(); }

void ZVIntegrationCenter::resetShared() {
    std::lock_guard<std::recursive_mutex> guard(sharedCreationMutex());
    ZVIntegrationCenter* center = sharedPointer().load();
    if (!center) return;
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
    const ZVBulkReadingAllocation allocation;
    _isReadingAccounts = true;
    ZVDictionary stored;
    if (!_readAccountsStreaming()) stored = readIntegrationsFromDisk();
    for (auto& [key, value] : stored) {
        const ZVDictionary* accountDictionary = value.dictionary();
        if (!accountDictionary) continue;
        if (auto integration = ZVIntegration::integrationWithDictionary(*accountDictionary)) {
            std::lock_guard<std::recursive_mutex> guard(_lock);
            _integrations.push_back(integration);
        }
        // The dictionary form of a large account is as big as the account
        // itself; it goes as soon as the account stands.
        value = ZVValue();
    }
    ZVNorvoIntegration::sharedIntegration();
    _isReadingAccounts = false;

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

    _observations.push_back(ZVNotificationCenter::shared().addObserver(ZVApplicationWillTerminateNotification,
                                                                       [this](const ZVNotification&) { save(); }));
    auto& timers = ZVTimerFactory::shared();
    _resyncTimer = timers.makeRepeatingTimer(static_cast<double>(_syncPeriod), [this] { _resyncIntegrations(); });
    _savingTimer = timers.makeRepeatingTimer(autosaveInterval, [this] { _autosave(); });
    _resyncIntegrations();
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
    ZVLog([&] { return "Removing " + integration->name(); });
    if (auto project = currentProject(); project && project->integration() == integration) setCurrentProject(nullptr);
    // One step under the lock, so that an account saved meanwhile keeps its entry.
    std::lock_guard<std::recursive_mutex> guard(_lock);
    updateIntegrationsOnDisk({{integration->integrationID(), std::nullopt}});
    auto found = std::find(_integrations.begin(), _integrations.end(), integration);
    if (found != _integrations.end()) _integrations.erase(found);
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
    std::lock_guard<std::recursive_mutex> guard(_lock);
    // Every account as its own save() would write it, but into the file in
    // one write rather than one write per account.
    std::vector<std::pair<IntegrationPointer, ZVIntegration::SaveSnapshot>> snapshots;
    for (const auto& integration : integrations()) {
        ZVLog([&] { return integration->name() + " - saving."; });
        snapshots.emplace_back(integration, integration->_takeSaveSnapshot());
    }
    std::map<std::string, std::optional<ZVValue>> changes;
    for (auto& [integration, snapshot] : snapshots) {
        if (integration->_claimWrite(snapshot.generation))
            changes[integration->integrationID()] = ZVValue(std::move(snapshot.representation));
    }
    if (!changes.empty()) updateIntegrationsOnDisk(std::move(changes));
    ZVPreferences::shared().setValue(ZVValue(_currentProjectPath()), currentProjectKey);
    ZVPreferences::shared().synchronize();
}

void ZVIntegrationCenter::_autosave() { saveAll(); }

void ZVIntegrationCenter::saveAll() {
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
    std::lock_guard<std::recursive_mutex> guard(_lock);
    std::error_code error;
    if (!std::filesystem::exists(_saveURL, error)) {
        _checkedDatabaseReadability = true;
        return {};
    }
    const std::optional<ZVPaths::FileStamp> stamp = ZVPaths::stampOf(_saveURL);
    std::string bytes;
    if (ZVPaths::readFile(_saveURL, bytes)) {
        // Where each account sits, when the file has the layout this program
        // writes: the next save then copies the others instead of reading
        // the file again.
        std::optional<ZVPropertyList::EntryRanges> ranges = ZVPropertyList::dictionaryEntryRanges(bytes);
        const std::optional<ZVValue> value = ZVPropertyList::readConsuming(bytes);
        if (std::optional<ZVDictionary> root = value ? databaseRoot(*value) : std::nullopt) {
            _checkedDatabaseReadability = true;
            const bool rangesMatch =
                ranges && ranges->size() == root->size() &&
                std::equal(ranges->begin(), ranges->end(), root->begin(),
                           [](const auto& range, const auto& entry) { return range.first == entry.first; });
            if (rangesMatch && stamp && ZVPaths::stampOf(_saveURL) == stamp) {
                _writtenDatabaseStamp = stamp;
                _writtenDatabaseRanges = std::move(*ranges);
            }
            return std::move(*root);
        }
    }
    // The program carries on without accounts, but the user's data is kept.
    if (_setAsideUnreadableDatabase()) _checkedDatabaseReadability = true;
    return {};
}

bool ZVIntegrationCenter::_readAccountsStreaming() {
    // Accounts and nodes are built without the centre's lock, which no
    // account or node lock may be taken under; the lock guards what is kept.
    std::error_code error;
    if (!std::filesystem::exists(_saveURL, error)) return false;
    const std::optional<ZVPaths::FileStamp> stamp = ZVPaths::stampOf(_saveURL);
    ZVPaths::MappedFile file(_saveURL);
    if (!stamp || !file.isOpen()) return false;
    const std::string_view bytes = file.text();
    std::optional<ZVPropertyList::EntryRanges> ranges = ZVPropertyList::dictionaryEntryRanges(bytes);
    file.releaseAll();
    // Each account is built as soon as its entry is read, and its
    // dictionary form dropped; the part of the file read is given back as
    // the reading goes on: a large file never stands in memory as a whole.
    std::vector<IntegrationPointer> accounts;
    std::vector<std::string> keys;
    std::map<std::string, EntryDigest> digests;
    bool allDictionaries = true;
    const bool read =
        ZVPropertyList::readDictionaryEntries(bytes, [&](std::string&& key, ZVValue&& value, std::size_t reached) {
            if (ranges) {
                const auto range = ranges->find(key);
                if (range != ranges->end())
                    digests[key] = digestOf(bytes.substr(range->second.offset, range->second.length));
            }
            keys.push_back(std::move(key));
            const ZVDictionary* accountDictionary = value.dictionary();
            if (!accountDictionary) allDictionaries = false;
            if (allDictionaries) {
                if (auto integration = ZVIntegration::integrationWithDictionary(*accountDictionary))
                    accounts.push_back(std::move(integration));
            }
            file.release(reached);
        });
    if (!read || !allDictionaries) {
        // The general reader decides; a node marked selected in what was
        // read so far must not stay the current project.
        if (auto project = currentProject()) {
            auto owner = project->integration();
            if (std::find(accounts.begin(), accounts.end(), owner) != accounts.end()) {
                std::lock_guard<std::mutex> currentGuard(_currentProjectMutex);
                _currentProject.reset();
            }
        }
        return false;
    }
    std::lock_guard<std::recursive_mutex> guard(_lock);
    _checkedDatabaseReadability = true;
    if (ranges && std::equal(ranges->begin(), ranges->end(), keys.begin(), keys.end(),
                             [](const auto& range, const std::string& key) { return range.first == key; }) &&
        ZVPaths::stampOf(_saveURL) == stamp) {
        _writtenDatabaseStamp = stamp;
        _writtenEntryDigests = std::move(digests);
        _writtenDatabaseRanges = std::move(*ranges);
    }
    _integrations.insert(_integrations.end(), accounts.begin(), accounts.end());
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
    ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::setAside, _saveURL, target, {}});
    return true;
}

bool ZVIntegrationCenter::_ensureDatabaseMayBeWritten() {
    if (!_checkedDatabaseReadability) readIntegrationsFromDisk();
    return _checkedDatabaseReadability;
}

void ZVIntegrationCenter::writeIntegrationsToDisk(const ZVDictionary& integrations) {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (!_ensureDatabaseMayBeWritten()) {
        ZVLog([&] { return "Not writing over the unreadable database " + _saveURL; });
        return;
    }
    std::map<std::string, std::string> entries;
    for (const auto& [identifier, value] : integrations)
        entries[identifier] = ZVPropertyList::dictionaryEntryXML(identifier, value);
    _writeDatabase(entries, {});
}

void ZVIntegrationCenter::updateIntegrationsOnDisk(std::map<std::string, std::optional<ZVValue>> changes) {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    if (!_ensureDatabaseMayBeWritten()) {
        ZVLog([&] { return "Not writing over the unreadable database " + _saveURL; });
        return;
    }
    std::map<std::string, std::string> entries;
    if (_writtenDatabaseStamp && ZVPaths::stampOf(_saveURL) == _writtenDatabaseStamp) {
        // Our own file: the other accounts are copied from it as they stand,
        // and an account whose entry would come out as it is on disk is not
        // written at all.
        ZVPropertyList::EntryRanges copied = _writtenDatabaseRanges;
        bool changed = false;
        for (const auto& [identifier, value] : changes) {
            if (!value) {
                changed |= copied.erase(identifier) > 0;
                continue;
            }
            std::string entry = ZVPropertyList::dictionaryEntryXML(identifier, *value);
            const auto written = _writtenEntryDigests.find(identifier);
            if (copied.contains(identifier) && written != _writtenEntryDigests.end() && written->second == digestOf(entry))
                continue;
            copied.erase(identifier);
            entries[identifier] = std::move(entry);
            changed = true;
        }
        if (changed) _writeDatabase(entries, copied);
        return;
    }
    // A file of another run or another program: read, change, write.
    ZVDictionary stored = readIntegrationsFromDisk();
    for (auto& [identifier, value] : changes) {
        if (value)
            stored[identifier] = std::move(*value);
        else
            stored.erase(identifier);
    }
    for (const auto& [identifier, value] : stored) entries[identifier] = ZVPropertyList::dictionaryEntryXML(identifier, value);
    _writeDatabase(entries, {});
}

void ZVIntegrationCenter::_writeDatabase(const std::map<std::string, std::string>& entries,
                                         const ZVPropertyList::EntryRanges& copied) {
    ZVPropertyList::EntryRanges ranges;
    if (ZVPropertyList::writeDictionaryFileEntries(_saveURL, databasePermissions, entries, copied, ranges)) {
        std::map<std::string, EntryDigest> digests;
        for (const auto& [identifier, entry] : entries) digests[identifier] = digestOf(entry);
        for (const auto& [identifier, range] : copied) {
            const auto known = _writtenEntryDigests.find(identifier);
            if (known != _writtenEntryDigests.end()) digests[identifier] = known->second;
        }
        _writtenEntryDigests = std::move(digests);
        _writtenDatabaseRanges = std::move(ranges);
        _writtenDatabaseStamp = ZVPaths::stampOf(_saveURL);
        if (_databaseWriteFailed) ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeRecovered, _saveURL, {}, {}});
        _databaseWriteFailed = false;
    } else {
        const std::string reason = std::strerror(errno);
        ZVLog([&] { return "Writing the database " + _saveURL + " failed: " + reason; });
        if (!_databaseWriteFailed)
            ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeFailed, _saveURL, {}, reason});
        _databaseWriteFailed = true;
        _writtenDatabaseStamp.reset();
        _writtenDatabaseRanges.clear();
        _writtenEntryDigests.clear();
    }
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
