#include "core/integrations/center/ZVDatabaseJournal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <set>

#include "ZVLog.h"
#include "ZVPaths.h"
#include "ZVPropertyList.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {

constexpr const char* beginMark = "begin";
constexpr const char* readyMark = "ready";
constexpr std::array<const char*, 9> operationNames = {"time",     "log+",     "log",      "fields",  "children",
                                                       "selected", "settings", "account+", "account-"};

using Project = ZVIntegrationProject;

std::string markPayload(const char* mark, std::uint64_t identifier, std::optional<std::uint64_t> size = std::nullopt) {
    ZVDictionary record{{ZVDatabaseJournal::operationKey, mark},
                        {ZVDatabaseJournal::identifierKey, static_cast<unsigned long long>(identifier)}};
    if (size) record[ZVDatabaseJournal::sizeKey] = static_cast<unsigned long long>(*size);
    return ZVPropertyList::writeXML(ZVValue(std::move(record)));
}

/// The list that holds a container's nodes: an account's top level or a node's children.
ZVValue* nodeList(ZVDictionary& container, bool isAccount) {
    const auto found = container.find(isAccount ? ZVIntegrationCachedProjectsKey : Project::subprojectsKey);
    return found == container.end() ? nullptr : &found->second;
}

/// The container at `path`: the account itself for an empty path.
ZVDictionary* containerAt(ZVDictionary& account, const ZVArray& path) {
    ZVDictionary* container = &account;
    bool isAccount = true;
    for (const ZVValue& step : path) {
        const std::optional<std::uint64_t> index = step.unsignedInteger();
        ZVValue* list = nodeList(*container, isAccount);
        ZVArray* nodes = list ? list->mutableArray() : nullptr;
        if (!index || !nodes) return nullptr;
        // Elements that are not dictionaries are skipped, as reading the tree skips them.
        std::uint64_t seen = 0;
        ZVDictionary* next = nullptr;
        for (ZVValue& node : *nodes) {
            if (!node.isDictionary()) continue;
            if (seen++ == *index) {
                next = node.mutableDictionary();
                break;
            }
        }
        if (!next) return nullptr;
        container = next;
        isAccount = false;
    }
    return container;
}

void setOptional(ZVDictionary& node, const ZVDictionary& fields, const char* key) {
    if (const auto found = fields.find(key); found != fields.end() && found->second.isString())
        node[key] = found->second;
    else
        node.erase(key);
}

std::uint64_t fileSize(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : static_cast<std::uint64_t>(size);
}

}  // namespace

const char* ZVDatabaseJournal::operationName(Operation operation) { return operationNames[static_cast<std::size_t>(operation)]; }

std::string ZVDatabaseJournal::encode(Operation operation, const std::string& account, const std::vector<std::size_t>& path,
                                      ZVValue value) {
    ZVArray places;
    places.reserve(path.size());
    for (const std::size_t place : path) places.emplace_back(static_cast<unsigned long long>(place));
    ZVDictionary record{{operationKey, operationName(operation)}, {accountKey, account}, {pathKey, std::move(places)}};
    if (!value.isNull()) record[valueKey] = std::move(value);
    return ZVPropertyList::writeXML(ZVValue(std::move(record)));
}

std::optional<ZVDictionary> ZVDatabaseJournal::decode(const std::string& payload) {
    std::optional<ZVValue> value = ZVPropertyList::read(payload);
    if (!value || !value->dictionary()) return std::nullopt;
    return *value->dictionary();
}

bool ZVDatabaseJournal::applyRecord(const ZVDictionary& record, ZVValue& account) {
    const std::string operation = ZVStringValue(record, operationKey);
    static const ZVValue none;
    const auto found = record.find(valueKey);
    const ZVValue& value = found == record.end() ? none : found->second;
    if (operation == operationName(Operation::accountAdd)) {
        if (!value.isDictionary()) return false;
        account = value;
        return true;
    }
    if (operation == operationName(Operation::accountRemove)) {
        account = ZVValue();
        return true;
    }
    ZVDictionary* stored = account.mutableDictionary();
    if (!stored) return false;
    if (operation == operationName(Operation::settings)) {
        const ZVDictionary* settings = value.dictionary();
        if (!settings) return false;
        ZVDictionary replaced = *settings;
        if (auto projects = stored->find(ZVIntegrationCachedProjectsKey); projects != stored->end())
            replaced[ZVIntegrationCachedProjectsKey] = std::move(projects->second);
        *stored = std::move(replaced);
        return true;
    }
    const ZVArray* path = ZVArrayValue(record, pathKey);
    if (!path) return false;
    ZVDictionary* container = containerAt(*stored, *path);
    if (!container) return false;
    if (operation == operationName(Operation::children)) {
        const ZVArray* children = value.array();
        if (!children) return false;
        const bool isAccount = path->empty();
        std::vector<ZVValue> kept;
        if (ZVValue* list = nodeList(*container, isAccount); list && list->array()) {
            for (const ZVValue& node : *list->array())
                if (node.isDictionary()) kept.push_back(node);
        }
        ZVArray laidOut;
        laidOut.reserve(children->size());
        for (const ZVValue& child : *children) {
            if (child.isDictionary()) {
                laidOut.push_back(child);
            } else if (const auto index = child.unsignedInteger(); index && *index < kept.size()) {
                laidOut.push_back(std::move(kept[*index]));
            }
        }
        (*container)[isAccount ? ZVIntegrationCachedProjectsKey : Project::subprojectsKey] = std::move(laidOut);
        return true;
    }
    if (path->empty()) return false;
    ZVDictionary& node = *container;
    if (operation == operationName(Operation::time)) {
        const auto seconds = value.unsignedInteger();
        if (!seconds) return false;
        node[Project::timeKey] = ZVValue(static_cast<unsigned long long>(*seconds));
    } else if (operation == operationName(Operation::logAppend)) {
        const ZVArray* entries = value.array();
        if (!entries) return false;
        ZVValue& log = node[Project::logKey];
        if (!log.isArray()) log = ZVArray();
        ZVArray& logEntries = *log.mutableArray();
        logEntries.insert(logEntries.end(), entries->begin(), entries->end());
    } else if (operation == operationName(Operation::logReplace)) {
        if (!value.isArray()) return false;
        node[Project::logKey] = value;
    } else if (operation == operationName(Operation::fields)) {
        const ZVDictionary* fields = value.dictionary();
        if (!fields) return false;
        node[Project::nameKey] = ZVStringValue(*fields, Project::nameKey);
        node[Project::projectIDKey] = ZVStringValue(*fields, Project::projectIDKey);
        setOptional(node, *fields, Project::subprojectIDKey);
        setOptional(node, *fields, Project::additionalIDKey);
        setOptional(node, *fields, Project::fourthIDKey);
    } else if (operation == operationName(Operation::selected)) {
        if (value.boolean().value_or(false))
            node[Project::isSelectedKey] = true;
        else
            node.erase(Project::isSelectedKey);
    } else {
        return false;
    }
    return true;
}

ZVDatabaseJournal::Replay::Replay(const std::vector<ZVDictionary>& records) {
    for (const ZVDictionary& record : records) {
        const auto account = ZVOptionalString(record, accountKey);
        if (!account) continue;
        _byAccount[*account].push_back(record);
        ++_count;
    }
}

void ZVDatabaseJournal::Replay::apply(const std::string& key, ZVValue& account) const {
    const auto found = _byAccount.find(key);
    if (found == _byAccount.end()) return;
    for (const ZVDictionary& record : found->second) {
        if (!applyRecord(record, account))
            ZVLog([&] { return "A journal record for " + key + " does not fit the stored account; it is skipped"; });
    }
}

std::vector<std::string> ZVDatabaseJournal::Replay::accounts() const {
    std::vector<std::string> keys;
    for (const auto& entry : _byAccount) keys.push_back(entry.first);
    return keys;
}

std::string ZVDatabaseJournal::baseOf(const std::string& path) {
    const auto stamp = ZVPaths::stampOf(path);
    if (!stamp) return {};
    return std::to_string(stamp->device) + ":" + std::to_string(stamp->inode) + ":" + std::to_string(stamp->size) + ":" +
           std::to_string(stamp->modificationNanoseconds);
}

namespace {

/// The records of a journal with its marks told apart.
struct ReadRecord {
    std::string payload;
    std::optional<ZVDictionary> record;
    std::string operation;
    std::uint64_t identifier = 0;
};

// The records of one save go into the journal as one: a batch, so that a
// crash in the middle of its write leaves all or none of them.
constexpr char batchMark = 'B';

/// The records inside a batch; nothing when it is damaged.
std::vector<std::string> unbatched(const std::string& batch) {
    std::vector<std::string> records;
    std::size_t offset = 1;
    while (offset + 8 <= batch.size()) {
        std::uint32_t length = 0;
        for (int index = 3; index >= 0; --index)
            length = (length << 8) | static_cast<unsigned char>(batch[offset + static_cast<std::size_t>(index)]);
        if (length > batch.size() - offset - 8) return {};
        records.push_back(batch.substr(offset + 8, length));
        offset += 8 + length;
    }
    return records;
}

std::vector<ReadRecord> readRecords(const ZVJournalFile::Contents& journal) {
    std::vector<ReadRecord> records;
    records.reserve(journal.records.size());
    std::vector<std::string> payloads;
    for (const std::string& payload : journal.records) {
        if (payload.starts_with(batchMark)) {
            for (std::string& record : unbatched(payload)) payloads.push_back(std::move(record));
        } else {
            payloads.push_back(payload);
        }
    }
    for (const std::string& payload : payloads) {
        ReadRecord read{payload, ZVDatabaseJournal::decode(payload), {}, 0};
        if (read.record) {
            read.operation = ZVStringValue(*read.record, ZVDatabaseJournal::operationKey);
            read.identifier = ZVUnsignedValue(*read.record, ZVDatabaseJournal::identifierKey);
        }
        records.push_back(std::move(read));
    }
    return records;
}

}  // namespace

std::optional<std::vector<std::string>> ZVDatabaseJournal::recordsAmending(const ZVJournalFile::Contents& journal,
                                                                           const std::string& databaseBase,
                                                                           std::uint64_t databaseSize) {
    const std::vector<ReadRecord> records = readRecords(journal);
    std::size_t first = 0;
    if (journal.base != databaseBase) {
        // The database was written whole after this journal began: the
        // "ready" mark of that write names its size, and what followed the
        // matching "begin" mark is not in it yet.
        std::optional<std::size_t> begin;
        for (std::size_t index = records.size(); index-- > 0 && !begin;) {
            if (records[index].operation != readyMark || !records[index].record) continue;
            if (ZVUnsignedValue(*records[index].record, sizeKey) != databaseSize) continue;
            for (std::size_t earlier = index; earlier-- > 0;) {
                if (records[earlier].operation == beginMark && records[earlier].identifier == records[index].identifier) {
                    begin = earlier;
                    break;
                }
            }
        }
        if (!begin) return std::nullopt;
        first = *begin + 1;
    }
    std::vector<std::string> amending;
    for (std::size_t index = first; index < records.size(); ++index) {
        if (records[index].operation == beginMark || records[index].operation == readyMark) continue;
        amending.push_back(records[index].payload);
    }
    return amending;
}

bool ZVDatabaseJournal::writeDatabase(const std::string& path, unsigned permissions, const Replay& replay,
                                      const std::function<bool(std::uint64_t size)>& beforeReplacing) {
    // Each account the journal changes is read, amended and written out one
    // at a time as the write reaches it; every other one is copied as bytes.
    std::map<std::string, ZVPropertyList::ValueSource> sources;
    ZVPropertyList::EntryRanges copied;
    std::error_code error;
    const std::vector<std::string> touchedAccounts = replay.accounts();
    // An account is a dictionary; what else a file of another layout holds
    // at the top is kept as it stands.
    const auto amended = [&replay](const std::string& key, ZVValue stored) {
        return [&replay, key, stored = std::move(stored)](ZVValue& account) mutable {
            const bool anyValue = !stored.isNull() && !stored.isDictionary();
            account = std::move(stored);
            replay.apply(key, account);
            if (!anyValue && !account.isDictionary()) account = ZVValue();
            return true;
        };
    };
    std::optional<ZVPaths::MappedFile> file;
    std::optional<ZVValue> root;
    if (std::filesystem::exists(path, error)) {
        file.emplace(path);
        if (!file->isOpen()) return false;
        const std::string_view bytes = file->text();
        if (std::optional<ZVPropertyList::EntryRanges> ranges = ZVPropertyList::dictionaryEntryRanges(bytes)) {
            const std::set<std::string> touched(touchedAccounts.begin(), touchedAccounts.end());
            for (const auto& entry : *ranges) {
                if (!touched.contains(entry.first)) {
                    copied.insert(entry);
                    continue;
                }
                const std::string_view text = bytes.substr(entry.second.offset, entry.second.length);
                sources[entry.first] = [&replay, key = entry.first, text](ZVValue& account) {
                    auto read = ZVPropertyList::readDictionaryEntry(text);
                    if (!read || read->first != key) {
                        errno = EINVAL;
                        return false;
                    }
                    account = std::move(read->second);
                    replay.apply(key, account);
                    if (!account.isDictionary()) account = ZVValue();
                    return true;
                };
            }
        } else {
            // Another layout: read whole, as the general reader does.
            root = ZVPropertyList::read(std::string(bytes));
            ZVDictionary* dictionary = root ? root->mutableDictionary() : nullptr;
            if (!dictionary) {
                errno = EINVAL;
                return false;
            }
            for (auto& [key, value] : *dictionary) sources[key] = amended(key, std::move(value));
        }
    }
    // Accounts that only the journal knows.
    for (const std::string& key : touchedAccounts)
        if (!sources.contains(key) && !copied.contains(key)) sources[key] = amended(key, ZVValue());
    // No file and nothing to put in it: nothing is created.
    if (!file) {
        bool anything = false;
        for (const auto& entry : sources) {
            ZVValue account;
            anything = anything || (entry.second(account) && !account.isNull());
        }
        if (!anything) return true;
    }
    ZVPropertyList::EntryRanges written;
    return ZVPropertyList::writeDictionaryFileValues(path, permissions, sources, copied, written, beforeReplacing);
}

ZVDatabaseJournal::ZVDatabaseJournal(std::string databasePath, unsigned permissions)
    : _databasePath(std::move(databasePath)), _path(_databasePath + ".journal"), _permissions(permissions) {}

ZVDatabaseJournal::~ZVDatabaseJournal() {
    waitForFullWrite();
    {
        std::lock_guard guard(_mutex);
        _stopping = true;
    }
    _changed.notify_all();
    if (_writer.joinable()) _writer.join();
}

namespace {
void moveAside(const std::string& path) {
    const std::string target = ZVPaths::setAsidePath(path);
    std::error_code error;
    std::filesystem::rename(path, target, error);
    if (error) {
        ZVLog([&] { return "Cannot move the journal " + path + " aside: " + error.message(); });
        ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::unreadableKept, path, {}, error.message()});
        return;
    }
    ZVLog([&] { return "The journal " + path + " could not be used; it was moved to " + target; });
    ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::setAside, path, target, {}});
}
}  // namespace

ZVDatabaseJournal::Loaded ZVDatabaseJournal::load() {
    Loaded loaded;
    const ZVJournalFile::Contents contents = ZVJournalFile::read(_path);
    if (contents.state == ZVJournalFile::Contents::State::missing) return loaded;
    std::optional<std::vector<std::string>> payloads;
    if (!(contents.state == ZVJournalFile::Contents::State::damaged && contents.validLength == 0))
        payloads = recordsAmending(contents, baseOf(_databasePath), fileSize(_databasePath));
    // A journal without records has nothing to lose: it just starts again.
    const bool empty = contents.records.empty() && contents.state != ZVJournalFile::Contents::State::damaged;
    if ((!payloads && !empty) || contents.state == ZVJournalFile::Contents::State::damaged) {
        moveAside(_path);
        loaded.setAside = true;
    }
    if (contents.state == ZVJournalFile::Contents::State::tornTail)
        ZVLog([] { return std::string("The journal's last record was cut short; it is dropped"); });
    if (!payloads) return loaded;
    std::vector<ZVDictionary> records;
    records.reserve(payloads->size());
    for (const std::string& payload : *payloads) {
        if (auto record = decode(payload)) records.push_back(std::move(*record));
        _startRecords += ZVJournalFile::framedRecord(payload);
    }
    loaded.replay = Replay(records);
    return loaded;
}

void ZVDatabaseJournal::setAsideUnread() {
    _startRecords.clear();
    const ZVJournalFile::Contents contents = ZVJournalFile::read(_path);
    // A journal without records has nothing to keep: it starts again.
    if (contents.state == ZVJournalFile::Contents::State::missing ||
        (contents.state != ZVJournalFile::Contents::State::damaged && contents.records.empty()))
        return;
    moveAside(_path);
}

void ZVDatabaseJournal::start() {
    if (_writer.joinable()) return;
    // The journal starts again from the database as it stands, with the
    // records that amend it: a torn tail, marks of an earlier full write and
    // a damaged rest are gone from it.
    // Done here, before anything can be appended: the file's length is
    // known from the start on. When it fails, the writer tries again.
    const bool started = _file.replace(_path, baseOf(_databasePath), _startRecords);
    {
        std::lock_guard guard(_mutex);
        if (started) {
            _fileSize = _file.size();
        } else {
            Job job;
            job.restart = true;
            job.bytes = _startRecords;
            _queuedBytes += job.bytes.size();
            _queue.push_front(std::move(job));
        }
        _startRecords.clear();
    }
    _writer = std::thread([this] { _writerLoop(); });
}

void ZVDatabaseJournal::restart() {
    if (!_writer.joinable()) return;
    Job job;
    job.restart = true;
    _waitFor(_enqueue(std::move(job)));
}

std::uint64_t ZVDatabaseJournal::_enqueue(Job job) {
    std::lock_guard guard(_mutex);
    job.sequence = ++_queuedSequence;
    _queuedBytes += job.bytes.size();
    const std::uint64_t sequence = job.sequence;
    _queue.push_back(std::move(job));
    _changed.notify_all();
    return sequence;
}

void ZVDatabaseJournal::append(std::vector<std::string> payloads) {
    if (payloads.empty()) return;
    Job job;
    if (payloads.size() == 1) {
        job.bytes = ZVJournalFile::framedRecord(payloads.front());
    } else {
        std::string batch(1, batchMark);
        for (const std::string& payload : payloads) batch += ZVJournalFile::framedRecord(payload);
        job.bytes = ZVJournalFile::framedRecord(batch);
    }
    _enqueue(std::move(job));
}

void ZVDatabaseJournal::_waitFor(std::uint64_t sequence) {
    std::unique_lock lock(_mutex);
    // While writes fail, one more attempt is all a caller waits for.
    const std::uint64_t attempts = _failedAttempts;
    _changed.wait(lock, [&] {
        return _doneSequence >= sequence || (_writeFailed && _failedAttempts > attempts) || !_writer.joinable();
    });
}

void ZVDatabaseJournal::waitUntilDurable() {
    std::uint64_t sequence;
    {
        std::lock_guard guard(_mutex);
        sequence = _queuedSequence;
    }
    _waitFor(sequence);
}

std::uint64_t ZVDatabaseJournal::size() const {
    std::lock_guard guard(_mutex);
    return _fileSize + _queuedBytes;
}

void ZVDatabaseJournal::_writerLoop() {
    bool failed = false;
    for (;;) {
        Job job;
        {
            std::unique_lock lock(_mutex);
            // After a failure the same records are tried again every second.
            if (failed)
                _changed.wait_for(lock, std::chrono::seconds(1), [&] { return _stopping; });
            else
                _changed.wait(lock, [&] { return _stopping || !_queue.empty(); });
            if (_queue.empty()) {
                if (_stopping) return;
                continue;
            }
            if (_stopping && failed) return;
            job = std::move(_queue.front());
            _queue.pop_front();
            // Plain records queued behind each other are written and synced together.
            while (!job.beginMark && !job.restart && !_queue.empty() && !_queue.front().beginMark &&
                   !_queue.front().restart) {
                job.bytes += _queue.front().bytes;
                job.sequence = _queue.front().sequence;
                _queue.pop_front();
            }
        }
        bool done;
        const int before = errno;
        if (job.restart) {
            std::string kept = job.bytes;
            bool known = true;
            if (job.restartAfter) {
                // Without the mark's place the old start stays: its "ready"
                // mark tells a later reader which records are new.
                const auto mark = _beginMarkEnds.find(*job.restartAfter);
                known = mark != _beginMarkEnds.end() && _file.readTail(mark->second, kept);
                if (known) kept = _withoutReadyMark(kept, *job.restartAfter);
            }
            done = !known || _file.replace(_path, baseOf(_databasePath), kept);
            if (done) _beginMarkEnds.clear();
        } else {
            done = _file.append(job.bytes) && _file.sync();
            if (done && job.beginMark) _beginMarkEnds[*job.beginMark] = _file.size();
        }
        const std::string reason = std::strerror(errno);
        errno = before;
        std::lock_guard guard(_mutex);
        if (!done) {
            // Kept at the front, in order: a later record may lean on it.
            // The user knows the database, not its journal: it is the
            // database that cannot be saved.
            if (!_writeFailed) {
                ZVLog([&] { return "Writing the journal " + _path + " failed: " + reason; });
                ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeFailed, _databasePath, {}, reason});
            }
            _writeFailed = true;
            ++_failedAttempts;
            failed = true;
            _queue.push_front(std::move(job));
        } else {
            if (_writeFailed) ZVPaths::reportProblem({ZVPaths::FileProblem::Kind::writeRecovered, _databasePath, {}, {}});
            _writeFailed = false;
            failed = false;
            _queuedBytes -= std::min(_queuedBytes, static_cast<std::uint64_t>(job.bytes.size()));
            _doneSequence = job.sequence;
            _fileSize = _file.size();
        }
        _changed.notify_all();
    }
}

std::string ZVDatabaseJournal::_withoutReadyMark(const std::string& framed, std::uint64_t mark) {
    // The new start needs no mark of the write it starts from.
    std::string kept;
    std::size_t offset = 0;
    while (offset + 8 <= framed.size()) {
        std::uint32_t length = 0;
        for (int index = 3; index >= 0; --index)
            length = (length << 8) | static_cast<unsigned char>(framed[offset + static_cast<std::size_t>(index)]);
        if (length > framed.size() - offset - 8) break;
        const std::string payload = framed.substr(offset + 8, length);
        const auto record = payload.starts_with(batchMark) ? std::nullopt : decode(payload);
        const bool ready = record && ZVStringValue(*record, operationKey) == readyMark &&
                           ZVUnsignedValue(*record, identifierKey) == mark;
        if (!ready) kept.append(framed, offset, 8 + length);
        offset += 8 + length;
    }
    kept.append(framed, offset, std::string::npos);
    return kept;
}

bool ZVDatabaseJournal::_fullWrite() {
    std::uint64_t mark;
    {
        std::lock_guard guard(_mutex);
        mark = _nextMark++;
    }
    Job begin;
    begin.bytes = ZVJournalFile::framedRecord(markPayload(beginMark, mark));
    begin.beginMark = mark;
    const std::uint64_t beginSequence = _enqueue(std::move(begin));
    _waitFor(beginSequence);
    {
        std::lock_guard guard(_mutex);
        if (_doneSequence < beginSequence) return false;
    }
    // The records up to the mark, read back from the file: the worker never
    // touches the accounts in memory, which the main thread goes on changing.
    ZVJournalFile::Contents contents = ZVJournalFile::read(_path);
    std::size_t end = contents.records.size();
    for (std::size_t index = 0; index < contents.records.size(); ++index) {
        const auto record = decode(contents.records[index]);
        if (record && ZVStringValue(*record, operationKey) == beginMark && ZVUnsignedValue(*record, identifierKey) == mark) {
            end = index;
            break;
        }
    }
    contents.records.resize(end);
    const auto payloads = recordsAmending(contents, baseOf(_databasePath), fileSize(_databasePath));
    if (!payloads) {
        errno = ESTALE;
        return false;
    }
    std::vector<ZVDictionary> records;
    for (const std::string& payload : *payloads)
        if (auto record = decode(payload)) records.push_back(std::move(*record));
    const Replay replay(records);
    contents = {};
    const bool written = writeDatabase(_databasePath, _permissions, replay, [&](std::uint64_t size) {
        Job ready;
        ready.bytes = ZVJournalFile::framedRecord(markPayload(readyMark, mark, size));
        const std::uint64_t sequence = _enqueue(std::move(ready));
        _waitFor(sequence);
        std::lock_guard guard(_mutex);
        return _doneSequence >= sequence;
    });
    if (!written) return false;
    Job restart;
    restart.restart = true;
    restart.restartAfter = mark;
    _waitFor(_enqueue(std::move(restart)));
    return true;
}

void ZVDatabaseJournal::startFullWrite(std::function<void(bool written)> finished) {
    std::lock_guard guard(_fullWriteMutex);
    if (_workerRunning || !_writer.joinable()) return;
    if (_worker.joinable()) _worker.join();
    _workerRunning = true;
    _worker = std::thread([this, finished = std::move(finished)] {
        const bool written = _fullWrite();
        {
            std::lock_guard workerGuard(_fullWriteMutex);
            _workerRunning = false;
            ++_fullWrites;
        }
        if (finished) finished(written);
    });
}

bool ZVDatabaseJournal::fullWriteNow() {
    waitForFullWrite();
    if (!_writer.joinable()) return false;
    const bool written = _fullWrite();
    std::lock_guard guard(_fullWriteMutex);
    ++_fullWrites;
    return written;
}

bool ZVDatabaseJournal::fullWriteIsRunning() const {
    std::lock_guard guard(_fullWriteMutex);
    return _workerRunning;
}

void ZVDatabaseJournal::waitForFullWrite() {
    std::thread worker;
    {
        std::lock_guard guard(_fullWriteMutex);
        worker = std::move(_worker);
    }
    if (worker.joinable()) worker.join();
}

std::uint64_t ZVDatabaseJournal::fullWriteCount() const {
    std::lock_guard guard(_fullWriteMutex);
    return _fullWrites;
}
