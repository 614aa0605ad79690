#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ZVJournalFile.h"
#include "ZVValue.h"

/// What changed in the database since it was last written whole, as records
/// in "Integrations.edb.journal" beside it: a node's time, log entries added
/// or the log replaced, a node's name and identifiers, a node's children (the
/// ones kept by their place, new ones in full), the selected node, an
/// account's settings, an account added or removed. A node is found by its
/// places among its siblings from the account's top down; siblings that are
/// not dictionaries do not count, as the reading of accounts skips them.
///
/// Records are appended and made durable on a writer thread. The whole file
/// is written again on a worker thread from the file and the records: the
/// records up to a "begin" mark go into it, a "ready" mark with the new file's
/// size is made durable before the new file replaces the old one, and the
/// journal then starts again from the new file with the records that came
/// after the "begin" mark. Whatever the moment a process is killed, the
/// database and the journal read together give everything that was durable.
class ZVDatabaseJournal {
public:
    /// Keys and operations of a record.
    static constexpr const char* operationKey = "op";
    static constexpr const char* accountKey = "account";
    static constexpr const char* pathKey = "path";
    static constexpr const char* valueKey = "value";
    static constexpr const char* identifierKey = "id";
    static constexpr const char* sizeKey = "size";

    enum class Operation { time, logAppend, logReplace, fields, children, selected, settings, accountAdd, accountRemove };
    static const char* operationName(Operation operation);

    /// A record's bytes in the journal.
    static std::string encode(Operation operation, const std::string& account, const std::vector<std::size_t>& path,
                              ZVValue value);
    static std::optional<ZVDictionary> decode(const std::string& payload);

    /// The records of a journal, by account, for applying to the stored
    /// accounts.
    class Replay {
    public:
        Replay() = default;
        explicit Replay(const std::vector<ZVDictionary>& records);
        bool empty() const { return _byAccount.empty(); }
        std::size_t recordCount() const { return _count; }
        /// Applies the records of the account stored under `key`; a null
        /// value stands for an account that is not (or no longer) there.
        void apply(const std::string& key, ZVValue& account) const;
        /// Every account that a record names.
        std::vector<std::string> accounts() const;

    private:
        std::map<std::string, std::vector<ZVDictionary>> _byAccount;
        std::size_t _count = 0;
    };

    /// Applies one record to an account's stored form. False when the record
    /// does not fit (a place that is not there): it is skipped.
    static bool applyRecord(const ZVDictionary& record, ZVValue& account);

    /// Which of the journal's records amend the database file whose stamp is
    /// `databaseBase`: all of them when the journal starts from that file;
    /// when it starts from an older one, those after the "begin" mark whose
    /// "ready" mark names this file's size (the file was written, the journal
    /// not yet started again); nothing (absent) when the journal belongs to
    /// no version of this file.
    static std::optional<std::vector<std::string>> recordsAmending(const ZVJournalFile::Contents& journal,
                                                                   const std::string& databaseBase,
                                                                   std::uint64_t databaseSize);
    /// The stamp of the file at `path` as a journal's base; empty when there is no file.
    static std::string baseOf(const std::string& path);

    /// Writes the database at `path` anew from its content and the records:
    /// accounts without records are copied as bytes. `beforeReplacing` is told
    /// the new file's size before it replaces the old one. False when the
    /// file cannot be read or written (errno says why); the old file stays.
    static bool writeDatabase(const std::string& path, unsigned permissions, const Replay& replay,
                              const std::function<bool(std::uint64_t size)>& beforeReplacing);

    /// The journal of the database at `databasePath`; nothing is read or
    /// started before load().
    explicit ZVDatabaseJournal(std::string databasePath, unsigned permissions);
    /// Ends the threads after the queued records are durable and a running
    /// full write has ended.
    ~ZVDatabaseJournal();
    ZVDatabaseJournal(const ZVDatabaseJournal&) = delete;
    ZVDatabaseJournal& operator=(const ZVDatabaseJournal&) = delete;

    const std::string& path() const { return _path; }

    /// What the journal read at start-up said.
    struct Loaded {
        Replay replay;
        /// The journal could not be used as a whole and was moved aside; the
        /// records that could be read were kept, so the database must be
        /// written whole soon.
        bool setAside = false;
    };
    /// Reads the journal against the database as it stands now. A damaged or
    /// foreign journal is moved aside (and the user told); a cut-short last
    /// record is dropped.
    Loaded load();
    /// Moves the journal aside unread (the database it amends could not be read).
    void setAsideUnread();
    /// Starts appending: from here on the journal amends the database as it
    /// stands now.
    void start();

    /// Starts the journal again, empty, from the database as it now stands
    /// (after the database was written by other means); returns when done.
    void restart();
    /// Queues records; the writer thread appends them and makes them durable.
    void append(std::vector<std::string> payloads);
    /// Returns when everything queued so far is durable (or failed).
    void waitUntilDurable();
    /// The journal's bytes on disk, with what is queued.
    std::uint64_t size() const;

    /// Writes the database whole on a worker thread; nothing when one runs.
    /// `finished` is called on that thread with the outcome.
    void startFullWrite(std::function<void(bool written)> finished = {});
    /// Writes the database whole on the calling thread, after a running full
    /// write has ended; the journal is then empty. For quitting.
    bool fullWriteNow();
    bool fullWriteIsRunning() const;
    /// Waits for a running full write (tests and quit).
    void waitForFullWrite();
    /// How many full writes ended (tests).
    std::uint64_t fullWriteCount() const;

private:
    struct Job {
        std::string bytes;
        // A "begin" mark: the writer notes where it ends, for starting again.
        std::optional<std::uint64_t> beginMark;
        // Start the file again from the database as it now stands, with
        // `bytes` as its records, or with what followed this "begin" mark.
        bool restart = false;
        std::optional<std::uint64_t> restartAfter;
        std::uint64_t sequence = 0;
    };
    void _writerLoop();
    std::uint64_t _enqueue(Job job);
    void _waitFor(std::uint64_t sequence);
    bool _fullWrite();
    static std::string _withoutReadyMark(const std::string& framed, std::uint64_t mark);

    std::string _databasePath;
    std::string _path;
    unsigned _permissions;

    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Job> _queue;
    std::uint64_t _queuedSequence = 0;
    std::uint64_t _doneSequence = 0;
    std::uint64_t _queuedBytes = 0;
    bool _stopping = false;
    bool _writeFailed = false;
    std::uint64_t _failedAttempts = 0;
    std::thread _writer;
    // Owned by the writer thread once it runs.
    ZVJournalFile _file;
    std::map<std::uint64_t, std::uint64_t> _beginMarkEnds;
    std::uint64_t _fileSize = 0;

    // One full write at a time.
    mutable std::mutex _fullWriteMutex;
    std::thread _worker;
    bool _workerRunning = false;
    std::uint64_t _fullWrites = 0;
    std::uint64_t _nextMark = 1;
    // The records read at start-up, framed, for the journal's new start.
    std::string _startRecords;
};
