#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <version>

#if defined(__cpp_lib_source_location)
#include <source_location>
using ZVSourceLocation = std::source_location;
#else
/// The position of a call, for compilers whose standard library has no
/// std::source_location (clang 14 with libstdc++ 12 builds the fuzz targets).
struct ZVSourceLocation {
    static constexpr ZVSourceLocation current(const char* file = __builtin_FILE(), unsigned line = __builtin_LINE(),
                                              const char* function = __builtin_FUNCTION()) noexcept {
        return ZVSourceLocation{file, line, function};
    }
    constexpr const char* file_name() const noexcept { return file; }
    constexpr unsigned line() const noexcept { return lineNumber; }
    constexpr const char* function_name() const noexcept { return function; }

    const char* file = "";
    unsigned lineNumber = 0;
    const char* function = "";
};
#endif

/// The most bytes of a message that a log line carries; the rest is left out
/// and counted ("... [1234 more bytes]"), so that a reply quoted in a line
/// keeps the log readable and small.
inline constexpr std::size_t ZVLogMaximumMessageLength = 2000;

/// Debug log. The message is built only when logging is on. Lines carry the
/// time, the source position relative to the source root, and the text, cut
/// to ZVLogMaximumMessageLength. Logging is off unless NORVO_DEBUG_LOG is set
/// or ZVLogSetEnabled(true).
void ZVLog(const std::function<std::string()>& message,
           const ZVSourceLocation& where = ZVSourceLocation::current());
void ZVLogSetEnabled(bool enabled);
bool ZVLogIsEnabled();
/// Where log lines go; stderr by default. Tests capture them here.
void ZVLogSetSink(std::function<void(const std::string& line)> sink);
/// Writes the current stack to the log.
void ZVLogStacktrace(const std::string& reason);

/// A programming error: logs the reason and ends the process. Never returns.
[[noreturn]] void ZVFatalError(const std::string& reason,
                               const ZVSourceLocation& where = ZVSourceLocation::current());
