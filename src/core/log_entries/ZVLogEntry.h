#pragma once

#include <memory>
#include <string>

#include "ZVValue.h"

class ZVIntegrationProject;

/// A record in a project's log. The family is closed: this base and the
/// timer run, the time change and the reset below it. Each record writes
/// itself into a dictionary of the database and rebuilds itself from one.
class ZVLogEntry {
public:
    /// A record with empty text for the given project (which may be none).
    explicit ZVLogEntry(const std::shared_ptr<ZVIntegrationProject>& project = nullptr);
    /// A record read from its dictionary form; `project` is none.
    explicit ZVLogEntry(const ZVDictionary& dictionary);
    virtual ~ZVLogEntry() = default;

    ZVLogEntry(const ZVLogEntry&) = delete;
    ZVLogEntry& operator=(const ZVLogEntry&) = delete;

    /// The date by which log views filter and sort. The base has none: a
    /// fatal programming error.
    virtual ZVDate date() const;
    // The log holds its records and a record points back to its project;
    // the back link is weak so that a project and its log can be freed.
    virtual std::shared_ptr<ZVIntegrationProject> project() const;
    virtual void setProject(const std::shared_ptr<ZVIntegrationProject>& project);
    virtual std::string text() const;
    virtual void setText(const std::string& text);
    virtual ZVDictionary dictionaryRepresentation() const;
    /// The record's block of text in the log; `omitTitle` leaves the title
    /// out (the log passes true when it equals the title of the record before).
    virtual std::string entryDescription(bool omitTitle) const;
    /// The module-qualified class name stored under "KDLogEntryClass".
    virtual std::string className() const;

    /// A new record of the class named in the dictionary, or nullptr (with a
    /// log line) when that name is no log record class.
    static std::shared_ptr<ZVLogEntry> logEntryWithDictionary(const ZVDictionary& dictionary);

    /// The time of day in the locale's short time style; for a day other
    /// than today followed by two tabs and the date in the short date style.
    static std::string dateString(ZVDate date);
    /// Today's date in the locale's short date style.
    static std::string shortDateString(ZVDate date);

    static constexpr const char* classKey = "KDLogEntryClass";
    static constexpr const char* textKey = "KDLogEntryText";

protected:
    /// Tells the record's project that its log changed.
    void _noteChange();

    std::string _text;

private:
    std::weak_ptr<ZVIntegrationProject> _project;
};
