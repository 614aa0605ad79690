#include "ZVPaths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
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

bool writeAll(int fd, const std::string& bytes) {
    const char* p = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        ssize_t written = ::write(fd, p, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += written;
        left -= static_cast<size_t>(written);
    }
    return true;
}

bool writeAtomically(const std::string& path, const std::string& bytes, int permissions) {
    std::filesystem::path target(path);
    std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    std::string temporary = folder + "/." + target.filename().string() + ".XXXXXX";
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

    bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok) ok = ::rename(name.data(), path.c_str()) == 0;
    if (!ok) {
        ::unlink(name.data());
        return false;
    }
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

}  // namespace

namespace ZVPaths {

std::string dataDirectory() { return applicationDirectory("XDG_DATA_HOME", ".local/share"); }
std::string configDirectory() { return applicationDirectory("XDG_CONFIG_HOME", ".config"); }
std::string cacheDirectory() { return applicationDirectory("XDG_CACHE_HOME", ".cache"); }

bool writeFileAtomically(const std::string& path, const std::string& bytes) { return writeAtomically(path, bytes, -1); }

bool writeFileAtomically(const std::string& path, const std::string& bytes, unsigned permissions) {
    return writeAtomically(path, bytes, static_cast<int>(permissions & 07777));
}

bool readFile(const std::string& path, std::string& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return false;
    bytes = std::move(buffer).str();
    return true;
}

}  // namespace ZVPaths
