#include "testkit/LogCapture.h"

#include "ZVLog.h"

LogCapture::LogCapture() : _wasEnabled(ZVLogIsEnabled()) {
    ZVLogSetSink([this](const std::string& line) {
        std::lock_guard guard(_mutex);
        _lines.push_back(line);
    });
    ZVLogSetEnabled(true);
}

LogCapture::~LogCapture() {
    ZVLogSetEnabled(_wasEnabled);
    ZVLogSetSink(nullptr);
}

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard guard(_mutex);
    return _lines;
}

bool LogCapture::contains(const std::string& text) const { return count(text) > 0; }

size_t LogCapture::count(const std::string& text) const {
    std::lock_guard guard(_mutex);
    size_t found = 0;
    for (const auto& line : _lines)
        if (line.find(text) != std::string::npos) ++found;
    return found;
}

std::string LogCapture::joined() const {
    std::lock_guard guard(_mutex);
    std::string text;
    for (const auto& line : _lines) text += line + "\n";
    return text;
}

void LogCapture::clear() {
    std::lock_guard guard(_mutex);
    _lines.clear();
}
