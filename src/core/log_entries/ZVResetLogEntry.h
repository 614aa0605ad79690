#pragma once

#include "core/log_entries/ZVLogEntry.h"

/// The project's time was reset to zero. Its text is a sentence computed
/// from the project's current name; assigning a text changes nothing.
class ZVResetLogEntry : public ZVLogEntry {
public:
    explicit ZVResetLogEntry(const std::shared_ptr<ZVIntegrationProject>& project = nullptr);
    explicit ZVResetLogEntry(const ZVDictionary& dictionary);

    ZVDate date() const override { return _date; }
    std::string text() const override;
    void setText(const std::string& text) override;
    ZVDictionary dictionaryRepresentation() const override;
    std::string className() const override { return "Norvo.ZVResetLogEntry"; }

    static constexpr const char* dateKey = "KDLogEntryDate";

private:
    ZVDate _date;
};
