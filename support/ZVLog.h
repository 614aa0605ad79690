#pragma once

#include <functional>
#include <source_location>
#include <string>

/// Debug log. The message is built only when logging is on. Lines carry the
/// time, the source position relative to the source root, and the text.
/// Logging is off unless NORVO_DEBUG_LOG is set or ZVLogSetEnabled(true).
void ZVLog(const std::function<std::string()>& message,
           const std::source_location& where = std::source_location::current());
void ZVLogSetEnabled(bool enabled);
bool ZVLogIsEnabled();
/// Where log lines go; stderr by default. Tests capture them here.
void ZVLogSetSink(std::function<void(const std::string& line)> sink);
/// Writes the current stack to the log.
void ZVLogStacktrace(const std::string& reason);

/// A programming error: logs the reason and ends the process. Never returns.
[[noreturn]] void ZVFatalError(const std::string& reason,
                               const std::source_location& where = std::source_location::current());
