#include "testkit/LogCapture.h"

#include <algorithm>

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
    const auto all = lines();
    return std::count_if(all.begin(), all.end(), [&](const auto& line) { return line.find(text) != std::string::npos; });
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
