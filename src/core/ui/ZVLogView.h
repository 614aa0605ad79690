#pragma once

#include <optional>
#include <string>

/// The parts of the timer window that the log controller reads and fills:
/// the receipt's text, the current task field, the period control and the
/// save panel of the export. The shell implements it.
class ZVLogView {
public:
    virtual ~ZVLogView() = default;

    /// Replaces the receipt's text.
    virtual void setLogText(const std::string& text) = 0;
    /// The "What are you working on?" field.
    virtual std::string currentTaskName() const = 0;
    virtual void setCurrentTaskName(const std::string& name) = 0;
    /// The segment of the period control: 0 the last 30 days, 1 the last
    /// 7 days, anything else today.
    virtual int selectedTimePeriod() const = 0;
    /// A save panel for the type "csv" with the suggested file name; the
    /// chosen path, or nothing when the user cancels.
    virtual std::optional<std::string> chooseCSVExportPath(const std::string& suggestedName) = 0;
};
