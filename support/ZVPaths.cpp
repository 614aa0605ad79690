#include "ZVPaths.h"

#include "ZVClock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <mutex>
#include <vector>

namespace {

std::string baseDirectory(const char* variable, const char* fallbackBelowHome) {
    const char* value = std::getenv(variable);
    // The XDG rules ignore relative paths.
    if (value && value[0] == '/') return value;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/" + fallbackBelowHome;
}

std::string applicationDirectory(const char* variable, const char* fallbackBelowHome) {
    std::string path = baseDirectory(variable, fallbackBelowHome) + "/" + ZVPaths::applicationFolderName;
    std::error_code error;
    std::filesystem::create_directories(path, error);
    return path;
}

// mkstemp's six random characters after ".<file name>.".
constexpr std::size_t temporarySuffixLength = 6;

std::string temporaryPrefix(const std::filesystem::path& target) { return "." + target.filename().string() + "."; }

std::mutex& problemObserverMutex() {
    static std::mutex mutex;
    return mutex;
}

std::function<void(const ZVPaths::FileProblem&)>& problemObserver() {
    static std::function<void(const ZVPaths::FileProblem&)> observer;
    return observer;
}

bool writeAtomically(const std::string& link, int permissions, const std::function<bool(int)>& produce) {
    // A link is written through: the file it names gets the new content and
    // the link stays a link.
    const std::string path = ZVPaths::resolvedPath(link);
    std::filesystem::path target(path);
    std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    std::string temporary = folder + "/" + temporaryPrefix(target) + std::string(temporarySuffixLength, 'X');
    std::vector<char> name(temporary.begin(), temporary.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) return false;

    struct stat existing {};
    if (permissions >= 0) {
        ::fchmod(fd, static_cast<mode_t>(permissions));
    } else if (::stat(path.c_str(), &existing) == 0) {
        ::fchmod(fd, existing.st_mode & 07777);
    } else {
        ::fchmod(fd, 0644);
    }

    bool ok = produce(fd) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok) ok = ::rename(name.data(), path.c_str()) == 0;
    if (!ok) {
        const int reason = errno;
        ::unlink(name.data());
        errno = reason;
        return false;
    }
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

bool writeAtomically(const std::string& path, const std::string& bytes, int permissions) {
    return writeAtomically(path, permissions,
                           [&bytes](int fd) { return ZVPaths::writeAll(fd, bytes.data(), bytes.size()); });
}

}  // namespace

namespace ZVPaths {

std::string dataDirectory() { return applicationDirectory("XDG_DATA_HOME", ".local/share"); }
std::string configDirectory() { return applicationDirectory("XDG_CONFIG_HOME", ".config"); }
std::string cacheDirectory() { return applicationDirectory("XDG_CACHE_HOME", ".cache"); }

std::string sharedDataDirectoryForExecutable(const std::string& executablePath) {
    return (std::filesystem::path(executablePath).parent_path().parent_path() / "share").string();
}

std::string sharedDataDirectory() {
    static const std::string directory = [] {
        std::error_code error;
        const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
        return error ? std::string("/usr/share") : sharedDataDirectoryForExecutable(executable.string());
    }();
    return directory;
}

bool writeFileAtomically(const std::string& path, const std::string& bytes) { return writeAtomically(path, bytes, -1); }

bool writeFileAtomically(const std::string& path, const std::function<bool(int fd)>& produce) {
    return writeAtomically(path, -1, produce);
}

bool writeFileAtomically(const std::string& path, const std::string& bytes, unsigned permissions) {
    return writeAtomically(path, bytes, static_cast<int>(permissions & 07777));
}

bool writeFileAtomically(const std::string& path, unsigned permissions, const std::function<bool(int fd)>& produce) {
    return writeAtomically(path, static_cast<int>(permissions & 07777), produce);
}

std::string resolvedPath(const std::string& path) {
    std::filesystem::path current(path);
    std::error_code error;
    // The kernel's own limit on links followed in one lookup.
    for (int hops = 0; hops < 40 && std::filesystem::is_symlink(current, error); ++hops) {
        const std::filesystem::path target = std::filesystem::read_symlink(current, error);
        if (error) break;
        current = target.is_absolute() ? target : current.parent_path() / target;
    }
    return current.lexically_normal().string();
}

std::size_t removeStaleTemporaryFiles(const std::string& path) {
    const std::filesystem::path target(resolvedPath(path));
    const std::string prefix = temporaryPrefix(target);
    const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    DIR* directory = ::opendir(folder.c_str());
    if (!directory) return 0;
    std::size_t removed = 0;
    const uid_t user = ::getuid();
    while (const dirent* entry = ::readdir(directory)) {
        const std::string_view name(entry->d_name);
        if (name.size() != prefix.size() + temporarySuffixLength || !name.starts_with(prefix)) continue;
        const std::string file = folder + "/" + std::string(name);
        struct stat status {};
        if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != user) continue;
        if (::unlink(file.c_str()) == 0) ++removed;
    }
    ::closedir(directory);
    return removed;
}

void setProblemObserver(std::function<void(const FileProblem&)> observer) {
    std::lock_guard guard(problemObserverMutex());
    problemObserver() = std::move(observer);
}

void reportProblem(const FileProblem& problem) {
    std::function<void(const FileProblem&)> observer;
    {
        std::lock_guard guard(problemObserverMutex());
        observer = problemObserver();
    }
    if (observer) observer(problem);
}

std::string setAsidePath(const std::string& path) {
    const auto seconds = static_cast<std::time_t>(ZVNow().time_since_epoch().count());
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &utc);
    const std::string stamp = text;
    std::string target = path + ".unreadable-" + stamp;
    std::error_code error;
    for (int attempt = 1; std::filesystem::exists(std::filesystem::symlink_status(target, error)); ++attempt)
        target = path + ".unreadable-" + stamp + "-" + std::to_string(attempt);
    return target;
}

bool writeAll(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, length);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

std::optional<FileStamp> stampOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileStamp{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
                     static_cast<std::int64_t>(status.st_size),
                     static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

bool readFile(const std::string& path, std::string& bytes) {
    // One read into a buffer of the file's size: the database can be
    // hundreds of megabytes, and a stream would copy it twice.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat status {};
    std::string content;
    if (::fstat(fd, &status) == 0 && status.st_size > 0) content.reserve(static_cast<std::size_t>(status.st_size));
    char buffer[1 << 16];
    bool ok = true;
    while (true) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) ok = false;
        if (got <= 0) break;
        content.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);
    if (!ok) return false;
    bytes = std::move(content);
    return true;
}

MappedFile::MappedFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat status {};
    if (::fstat(fd, &status) == 0 && status.st_size > 0) {
        void* mapped = ::mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapped != MAP_FAILED) {
            _data = static_cast<const char*>(mapped);
            _size = static_cast<std::size_t>(status.st_size);
            ::madvise(mapped, _size, MADV_SEQUENTIAL);
        }
    }
    ::close(fd);
}

MappedFile::~MappedFile() {
    if (_data) ::munmap(const_cast<char*>(_data), _size);
}

void MappedFile::release(std::size_t offset) {
    if (!_data) return;
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t length = std::min(offset, _size) / page * page;
    if (length > 0) ::madvise(const_cast<char*>(_data), length, MADV_DONTNEED);
}

}  // namespace ZVPaths
