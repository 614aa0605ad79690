#pragma once

#include <string>

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

/// Writes the bytes to a temporary file beside `path`, fsyncs it, renames it
/// over `path` and fsyncs the folder. Either the old or the new content is on
/// disk at any moment. Returns false on failure, leaving the old file.
bool writeFileAtomically(const std::string& path, const std::string& bytes);
/// The same with the given permission bits (0600 for private files).
bool writeFileAtomically(const std::string& path, const std::string& bytes, unsigned permissions);
/// The whole file, or nothing when it cannot be read.
bool readFile(const std::string& path, std::string& bytes);
}  // namespace ZVPaths
