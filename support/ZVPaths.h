#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Where Norvo keeps its files, after the XDG base directory rules, and the
/// one way it writes them.
namespace ZVPaths {
inline constexpr const char* applicationFolderName = "com.tesselwick.norvo";
/// $XDG_DATA_HOME/com.tesselwick.norvo (default ~/.local/share/...), created on demand.
std::string dataDirectory();
/// $XDG_CONFIG_HOME/com.tesselwick.norvo (default ~/.config/...), created on demand.
std::string configDirectory();
/// $XDG_CACHE_HOME/com.tesselwick.norvo (default ~/.cache/...), created on demand.
std::string cacheDirectory();

/// The share folder of the installation that the running program belongs
/// to: <prefix>/share for <prefix>/bin/norvo. The build tree mirrors that
/// layout, so a program run from it finds the build's catalogs and icons.
std::string sharedDataDirectory();
/// The same for a given program file.
std::string sharedDataDirectoryForExecutable(const std::string& executablePath);

/// Writes the bytes to a temporary file beside `path`, fsyncs it, renames it
/// over `path` and fsyncs the folder. Either the old or the new content is on
/// disk at any moment. A symbolic link at `path` is written through to the
/// file it names. Returns false on failure, leaving the old file, with errno
/// saying why.
bool writeFileAtomically(const std::string& path, const std::string& bytes);
/// The same with the given permission bits (0600 for private files).
bool writeFileAtomically(const std::string& path, const std::string& bytes, unsigned permissions);
/// The same, with the content produced by `produce` writing to the open
/// temporary file; it answers false to give up, leaving the old file.
bool writeFileAtomically(const std::string& path, unsigned permissions, const std::function<bool(int fd)>& produce);
/// The same, keeping the permissions of an existing file (0644 for a new one).
bool writeFileAtomically(const std::string& path, const std::function<bool(int fd)>& produce);
/// The file that `path` names after following symbolic links; `path` itself
/// when it is no link. A dangling link gives the path it points to.
std::string resolvedPath(const std::string& path);
/// Removes the temporary files that an interrupted atomic write of `path`
/// left beside it (ours: same owner, ".<name>.XXXXXX"). Only for a file that
/// no other process writes at the same time. Returns how many went.
std::size_t removeStaleTemporaryFiles(const std::string& path);
/// Where an unreadable file at `path` is moved:
/// "<path>.unreadable-YYYYmmdd-HHMMSS" (UTC, now), numbered when that name is taken.
std::string setAsidePath(const std::string& path);

/// Something the user must hear about one of Norvo's own files.
struct FileProblem {
    enum class Kind {
        /// It could not be read and was moved to `setAsidePath`.
        setAside,
        /// It could not be read nor moved; it is never written over.
        unreadableKept,
        /// Writing it failed; `reason` says why. What was to be written is still in memory.
        writeFailed,
        /// It was written again after a failure.
        writeRecovered,
    };
    Kind kind;
    std::string path;
    std::string setAsidePath;
    std::string reason;
};
/// Whoever tells the user (the application installs one); called on the
/// thread that met the problem.
void setProblemObserver(std::function<void(const FileProblem&)> observer);
void reportProblem(const FileProblem& problem);

/// Writes all bytes to the descriptor, across short writes; false on failure.
bool writeAll(int fd, const char* bytes, std::size_t length);
/// The whole file, or nothing when it cannot be read.
bool readFile(const std::string& path, std::string& bytes);

/// A file mapped read-only into memory, for reading a large file once from
/// front to back: the pages already read can be given back, so that the
/// file is never resident as a whole.
class MappedFile {
public:
    /// Maps the file at `path`; empty (text() empty, isOpen() false) when it
    /// cannot be opened or is empty.
    explicit MappedFile(const std::string& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    bool isOpen() const { return _data != nullptr; }
    std::string_view text() const { return {_data, _size}; }
    /// Drops the resident pages before `offset` (they are read again from
    /// the file if touched).
    void release(std::size_t offset);
    /// Drops every resident page.
    void releaseAll() { release(_size); }

private:
    const char* _data = nullptr;
    std::size_t _size = 0;
};

/// One version of a file: the same file changed, or another put in its
/// place, has another stamp.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modificationNanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};
/// The stamp of the file now at `path`, or nothing when there is none.
std::optional<FileStamp> stampOf(const std::string& path);
}  // namespace ZVPaths
