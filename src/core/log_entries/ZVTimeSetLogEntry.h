#pragma once

#include <cstdint>

#include "core/log_entries/ZVLogEntry.h"

/// The project's time was set by hand or by rounding, from `originalTime`
/// to `newTime`. Its text is a sentence computed from the project's current
/// name; assigning a text changes nothing.
class ZVTimeSetLogEntry : public ZVLogEntry {
public:
    explicit ZVTimeSetLogEntry(const std::shared_ptr<ZVIntegrationProject>& project = nullptr);
    explicit ZVTimeSetLogEntry(const ZVDictionary& dictionary);

    ZVDate date() const override { return _date; }
    std::string text() const override;
    void setText(const std::string& text) override;
    ZVDictionary dictionaryRepresentation() const override;
    std::string className() const override { return "Norvo.ZVTimeSetLogEntry"; }

    std::uint64_t originalTime() const { return _originalTime; }
    void setOriginalTime(std::uint64_t seconds) { _originalTime = seconds; }
    std::uint64_t newTime() const { return _newTime; }
    void setNewTime(std::uint64_t seconds) { _newTime = seconds; }

    static constexpr const char* dateKey = "KDLogEntryDate";
    static constexpr const char* originalTimeKey = "KDTimeSetLogEntryOriginalTime";
    static constexpr const char* newTimeKey = "KDTimeSetLogEntryNewTime";

private:
    ZVDate _date;
    std::uint64_t _originalTime = 0;
    std::uint64_t _newTime = 0;
};
