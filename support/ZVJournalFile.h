#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// An append-only file of small records beside a larger file that it
/// amends. A header names the version of that file the records apply to
/// (its `base`); each record carries its length and a CRC-32 of its bytes,
/// so that a record that a crash cut short, or that the disk gave back
/// damaged, is known and ends the reading. Writing is left to the caller's
/// thread: nothing here locks.
class ZVJournalFile {
public:
    struct Contents {
        enum class State {
            /// No file, or an empty one.
            missing,
            /// The header and every record are whole.
            intact,
            /// The records end in one that is cut short or does not match its
            /// checksum, and nothing follows it: a write that a crash interrupted.
            tornTail,
            /// The header is not ours, or a bad record is followed by more
            /// bytes: the file is damaged, not merely cut short.
            damaged,
        };
        State state = State::missing;
        std::string base;
        std::vector<std::string> records;
        /// The offset just after each record.
        std::vector<std::uint64_t> recordEnds;
        /// The bytes up to the end of the last whole record (the header's
        /// end when there is none).
        std::uint64_t validLength = 0;
    };

    /// Reads the whole file at `path`.
    static Contents read(const std::string& path);
    /// The CRC-32 (IEEE, as zlib computes it) of the bytes.
    static std::uint32_t checksum(std::string_view bytes);
    /// The header that begins a file with this base.
    static std::string header(std::string_view base);
    /// One record as it stands in the file. An empty record is not allowed:
    /// zeros that a crash left at the end of a file must never read as records.
    static std::string framedRecord(std::string_view payload);

    ZVJournalFile() = default;
    ~ZVJournalFile();
    ZVJournalFile(const ZVJournalFile&) = delete;
    ZVJournalFile& operator=(const ZVJournalFile&) = delete;

    /// Opens the file for appending after its first `keptLength` bytes,
    /// dropping what follows (a torn last record). False with errno set.
    bool openForAppending(const std::string& path, std::uint64_t keptLength);
    /// Replaces the file atomically (temporary file, fsync, rename) by one
    /// with this base and these bytes of framed records, and opens it for
    /// appending. False with errno set, leaving the old file and the old
    /// descriptor.
    bool replace(const std::string& path, std::string_view base, std::string_view framedRecords);
    bool isOpen() const { return _fd >= 0; }
    void close();

    /// Appends framed records; false with errno set. A failed append leaves
    /// the file as long as it was, as far as the system allows.
    bool append(std::string_view framedRecords);
    /// Makes what was appended durable (fdatasync).
    bool sync();
    std::uint64_t size() const { return _size; }
    /// The bytes from `offset` to the end of the open file.
    bool readTail(std::uint64_t offset, std::string& bytes) const;

private:
    int _fd = -1;
    std::uint64_t _size = 0;
};
