#pragma once

#include <optional>

#include "core/log_entries/ZVLogEntry.h"

/// One run of the timer: from `startDate` to `stopDate`, under the title
/// that the user typed. `stopDate` is absent while the run goes on.
class ZVTimeLogEntry : public ZVLogEntry {
public:
    explicit ZVTimeLogEntry(const std::shared_ptr<ZVIntegrationProject>& project = nullptr);
    explicit ZVTimeLogEntry(const ZVDictionary& dictionary);

    ZVDate date() const override { return _startDate; }
    ZVDictionary dictionaryRepresentation() const override;
    std::string entryDescription(bool omitTitle) const override;
    std::string className() const override { return "Norvo.ZVTimeLogEntry"; }

    ZVDate startDate() const { return _startDate; }
    void setStartDate(ZVDate date) {
        _startDate = date;
        _noteChange();
    }
    const std::optional<ZVDate>& stopDate() const { return _stopDate; }
    void setStopDate(std::optional<ZVDate> date) {
        _stopDate = date;
        _noteChange();
    }

    /// For log lines only.
    std::string description() const;

    static constexpr const char* startDateKey = "KDLogEntryStartDate";
    static constexpr const char* stopDateKey = "KDLogEntryStopDate";

private:
    ZVDate _startDate;
    std::optional<ZVDate> _stopDate;
};
