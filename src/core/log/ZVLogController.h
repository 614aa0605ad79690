#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZVValue.h"
#include "core/notifications/ZVNotificationCenter.h"

class ZVIntegrationProject;
class ZVLogEntry;
class ZVLogView;

/// Turns the timer's runs into log records and shows the current project's
/// log for a period as a receipt. It is the only maker of runs: a run opens
/// when the heart beat starts, titled with the current task text and
/// retitled as that text changes, and reaches the project's log when it
/// stops. It also clears a period from every log and exports a period's runs
/// as CSV.
class ZVLogController {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;

    /// The view is not owned and must outlive the controller.
    explicit ZVLogController(ZVLogView& view);
    ~ZVLogController();
    ZVLogController(const ZVLogController&) = delete;
    ZVLogController& operator=(const ZVLogController&) = delete;

    /// Starts following the heart beat, the current project and time
    /// changes, and shows the log once.
    void awake();

    /// The run in progress, or the last one.
    const std::shared_ptr<ZVLogEntry>& currentLogEntry() const { return _currentLogEntry; }

    void timePeriodChanged();
    /// Removes the selected period's entries from every project of every
    /// account, without asking, and shows the log again.
    void clear();
    /// Writes the period's runs to a CSV file that the user chooses.
    void exportToCSV();
    /// Writes the runs among the entries to a CSV file at `path`; when that
    /// fails, tells the user and answers false.
    bool exportToCSV(const std::vector<std::shared_ptr<ZVLogEntry>>& entries, const std::string& path);
    /// The CSV text of the runs among the entries, in their order: the
    /// columns "Start", "Stop", "Comment", "Project Path", "Project Name".
    static std::string csvText(const std::vector<std::shared_ptr<ZVLogEntry>>& entries);
    /// The same text handed to the sink in pieces of about a megabyte; false
    /// when the sink refused a piece.
    static bool writeCSV(const std::vector<std::shared_ptr<ZVLogEntry>>& entries,
                         const std::function<bool(std::string_view)>& sink);
    /// Writes that text to the file atomically, without asking or telling
    /// the user anything; false on failure.
    static bool writeCSVFile(const std::vector<std::shared_ptr<ZVLogEntry>>& entries, const std::string& path);

    /// The entries of the current project in the selected period, in log order.
    std::vector<std::shared_ptr<ZVLogEntry>> _logsInSelectedTimePeriod() const;
    /// The entries of the current project dated from `from` up to, not
    /// including, `until`, in log order.
    std::vector<std::shared_ptr<ZVLogEntry>> logsBetween(ZVDate from, ZVDate until) const;
    /// Whether a date lies in the period of a segment of the period control,
    /// seen from `now`: closer to now than the start of today is, plus 6
    /// days for segment 1 and 29 days for segment 0.
    static bool isInTimePeriod(ZVDate date, int segment, ZVDate now);
    /// Whether an entry belongs to that period: by its date, or for a run
    /// also by its stop.
    static bool isEntryInTimePeriod(const ZVLogEntry& entry, int segment, ZVDate now);
    /// The total line's time of a number of seconds (hours counted modulo 60).
    static std::string _timeStringForTimeInterval(double seconds);

    void _heartBeatStateChanged();
    void _currentProjectChanged();
    void _reloadLog();
    void _clearEntriesInSelectedTimePeriod();
    /// While a run is open, the current task text is its title.
    void _retitleOpenRun(const std::string& title);

    static constexpr const char* csvFileName = "Norvo Log.csv";

private:
    void _clearEntriesInSelectedTimePeriodFromProject(ZVIntegrationProject& project, ZVDate now) const;

    ZVLogView& _view;
    std::shared_ptr<ZVLogEntry> _currentLogEntry;
    std::vector<ZVNotificationCenter::Token> _observations;
};
