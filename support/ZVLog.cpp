#include "ZVLog.h"

#include <execinfo.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <mutex>
#include <regex>

#include "ZVLogScrubber.h"
#include "ZVPaths.h"

#ifndef NORVO_SOURCE_ROOT
#define NORVO_SOURCE_ROOT ""
#endif

namespace {

std::atomic<bool>& enabledFlag() {
    static std::atomic<bool> enabled{std::getenv("NORVO_DEBUG_LOG") != nullptr};
    return enabled;
}

std::mutex& logMutex() {
    static std::mutex mutex;
    return mutex;
}

std::function<void(const std::string&)>& customSink() {
    static std::function<void(const std::string&)> sink;
    return sink;
}

std::string relativePath(const char* file) {
    std::string path(file);
    const std::string root(NORVO_SOURCE_ROOT);
    if (!root.empty() && path.compare(0, root.size(), root) == 0) path.erase(0, root.size());
    return path;
}

std::string timestamp() {
    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    char result[48];
    std::snprintf(result, sizeof result, "%s.%03d", buffer, static_cast<int>(millis));
    return result;
}

// The default destination: standard error and Norvo.log in the cache folder.
void writeDefault(const std::string& line) {
    std::fputs(line.c_str(), stderr);
    std::fputc('\n', stderr);
    // The path is looked up at each line so that a changed cache folder
    // (another home in tests) gets its own file.
    static std::ofstream file;
    static std::string openedPath;
    const std::string path = ZVPaths::cacheDirectory() + "/Norvo.log";
    if (path != openedPath) {
        file.close();
        file.clear();
        file.open(path, std::ios::app);
        openedPath = path;
    }
    if (file) {
        file << line << '\n';
        file.flush();
    }
}

// The message cut to its first ZVLogMaximumMessageLength bytes, never in
// the middle of a UTF-8 sequence, and scrubbed. Only the cut text goes
// through the scrubber, whose patterns would take long over megabytes.
std::string scrubbedAndShortened(const std::string& text) {
    if (text.size() <= ZVLogMaximumMessageLength) return ZVLogScrubber::scrub(text);
    std::size_t cut = ZVLogMaximumMessageLength;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return ZVLogScrubber::scrub(text.substr(0, cut), true) + "... [" + std::to_string(text.size() - cut) +
           " more bytes]";
}

void emit(const std::string& text, const ZVSourceLocation& where) {
    std::string line = timestamp() + " " + relativePath(where.file_name()) + ":" + std::to_string(where.line()) +
                       " " + where.function_name() + ": " + text;
    std::lock_guard lock(logMutex());
    if (customSink()) {
        customSink()(line);
    } else {
        writeDefault(line);
    }
}

}  // namespace

void ZVLog(const std::function<std::string()>& message, const ZVSourceLocation& where) {
    if (!ZVLogIsEnabled()) return;
    emit(scrubbedAndShortened(message()), where);
}

void ZVLogSetEnabled(bool enabled) { enabledFlag().store(enabled); }

bool ZVLogIsEnabled() { return enabledFlag().load(); }

void ZVLogSetSink(std::function<void(const std::string& line)> sink) {
    std::lock_guard lock(logMutex());
    customSink() = std::move(sink);
}

void ZVLogStacktrace(const std::string& reason) {
    if (!ZVLogIsEnabled()) return;
    void* frames[64];
    int count = backtrace(frames, 64);
    char** symbols = backtrace_symbols(frames, count);
    std::string text = "Stack trace: " + reason;
    for (int i = 1; symbols && i < count; ++i) text += std::string("\n    ") + symbols[i];
    std::free(symbols);
    // At most 64 frames, and each of them matters: not shortened.
    emit(ZVLogScrubber::scrub(text), ZVSourceLocation::current());
}

void ZVFatalError(const std::string& reason, const ZVSourceLocation& where) {
    ZVLogSetEnabled(true);
    emit(scrubbedAndShortened("Fatal error: " + reason), where);
    ZVLogStacktrace(reason);
    std::fprintf(stderr, "Fatal error: %s (%s:%u)\n", reason.c_str(), relativePath(where.file_name()).c_str(),
                 static_cast<unsigned>(where.line()));
    std::abort();
}
