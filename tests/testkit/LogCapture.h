#pragma once

#include <mutex>
#include <string>
#include <vector>

/// Turns the debug log on and keeps its lines while it lives, so that a test
/// can check the words a service logs when it skips a record.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    /// Whether some line contains `text`.
    bool contains(const std::string& text) const;
    /// How many lines contain `text`.
    size_t count(const std::string& text) const;
    /// Every line, one a line, for failure messages.
    std::string joined() const;
    void clear();

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _lines;
    bool _wasEnabled;
};
