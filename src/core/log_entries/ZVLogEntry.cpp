#include "core/log_entries/ZVLogEntry.h"

#include "core/integrations/helper/ZVIntegrationProject.h"

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/unistr.h>

#include <functional>
#include <map>
#include <mutex>

#include "ZVClock.h"
#include "ZVLog.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"

namespace {

constexpr const char* oldClassPrefix = "KD";
constexpr const char* classPrefix = "Norvo.ZV";

using ZVLogEntryFactory = std::function<std::shared_ptr<ZVLogEntry>(const ZVDictionary&)>;

template <class T>
ZVLogEntryFactory factoryOf() {
    return [](const ZVDictionary& dictionary) { return std::make_shared<T>(dictionary); };
}

const std::map<std::string, ZVLogEntryFactory>& logEntryClasses() {
    static const std::map<std::string, ZVLogEntryFactory> classes = {
        {"Norvo.ZVLogEntry", factoryOf<ZVLogEntry>()},
        {"Norvo.ZVTimeLogEntry", factoryOf<ZVTimeLogEntry>()},
        {"Norvo.ZVTimeSetLogEntry", factoryOf<ZVTimeSetLogEntry>()},
        {"Norvo.ZVResetLogEntry", factoryOf<ZVResetLogEntry>()},
    };
    return classes;
}

/// The locale's short time and date styles (ICU, from the user's locale and
/// time zone), made once and shared by every record and every log.
class ZVShortDateFormatters {
public:
    static ZVShortDateFormatters& shared() {
        static ZVShortDateFormatters formatters;
        return formatters;
    }

    std::string timeString(ZVDate date) { return format(*_time, date); }
    std::string dateString(ZVDate date) { return format(*_date, date); }

    bool isSameDay(ZVDate first, ZVDate second) {
        std::lock_guard<std::mutex> guard(_mutex);
        UErrorCode status = U_ZERO_ERROR;
        _calendar->setTime(toUDate(first), status);
        const int32_t firstYear = _calendar->get(UCAL_EXTENDED_YEAR, status);
        const int32_t firstDay = _calendar->get(UCAL_DAY_OF_YEAR, status);
        _calendar->setTime(toUDate(second), status);
        const int32_t secondYear = _calendar->get(UCAL_EXTENDED_YEAR, status);
        const int32_t secondDay = _calendar->get(UCAL_DAY_OF_YEAR, status);
        return U_SUCCESS(status) && firstYear == secondYear && firstDay == secondDay;
    }

private:
    ZVShortDateFormatters()
        : _time(icu::DateFormat::createTimeInstance(icu::DateFormat::kShort)),
          _date(icu::DateFormat::createDateInstance(icu::DateFormat::kShort)) {
        UErrorCode status = U_ZERO_ERROR;
        _calendar.reset(icu::Calendar::createInstance(status));
        if (!_time || !_date || U_FAILURE(status) || !_calendar) ZVFatalError("Cannot create the date formatters");
    }

    static UDate toUDate(ZVDate date) { return date.time_since_epoch().count() * 1000.0; }

    std::string format(icu::DateFormat& formatter, ZVDate date) {
        icu::UnicodeString text;
        {
            std::lock_guard<std::mutex> guard(_mutex);
            formatter.format(toUDate(date), text);
        }
        std::string result;
        text.toUTF8String(result);
        return result;
    }

    std::mutex _mutex;
    std::unique_ptr<icu::DateFormat> _time;
    std::unique_ptr<icu::DateFormat> _date;
    std::unique_ptr<icu::Calendar> _calendar;
};

}  // namespace

ZVLogEntry::ZVLogEntry(const std::shared_ptr<ZVIntegrationProject>& project) : _project(project) {}

ZVLogEntry::ZVLogEntry(const ZVDictionary& dictionary) : _text(ZVStringValue(dictionary, textKey)) {}

ZVDate ZVLogEntry::date() const { ZVFatalError("ZVLogEntry has no date of its own"); }

std::shared_ptr<ZVIntegrationProject> ZVLogEntry::project() const { return _project.lock(); }

void ZVLogEntry::setProject(const std::shared_ptr<ZVIntegrationProject>& project) { _project = project; }

std::string ZVLogEntry::text() const { return _text; }

void ZVLogEntry::setText(const std::string& text) {
    _text = text;
    _noteChange();
}

void ZVLogEntry::_noteChange() {
    if (auto owner = _project.lock()) owner->noteLogChange();
}

ZVDictionary ZVLogEntry::dictionaryRepresentation() const {
    return ZVDictionary{{classKey, className()}, {textKey, text()}};
}

std::string ZVLogEntry::entryDescription(bool) const { return text(); }

std::string ZVLogEntry::className() const { return "Norvo.ZVLogEntry"; }

std::shared_ptr<ZVLogEntry> ZVLogEntry::logEntryWithDictionary(const ZVDictionary& dictionary) {
    const std::optional<std::string> storedName = ZVOptionalString(dictionary, classKey);
    // Records from before the class was stored are all timer runs.
    if (!storedName) return std::make_shared<ZVTimeLogEntry>(dictionary);

    std::string name = *storedName;
    if (name.starts_with(oldClassPrefix)) name = classPrefix + name.substr(std::string_view(oldClassPrefix).size());

    const auto& classes = logEntryClasses();
    const auto found = classes.find(name);
    if (found == classes.end()) {
        ZVLog([&] { return "******** ERROR: Cannot find class named " + name + "!"; });
        return nullptr;
    }
    return found->second(dictionary);
}

std::string ZVLogEntry::dateString(ZVDate date) {
    auto& formatters = ZVShortDateFormatters::shared();
    std::string result = formatters.timeString(date);
    if (!formatters.isSameDay(date, ZVNow())) result += "\t\t" + formatters.dateString(date);
    return result;
}

std::string ZVLogEntry::shortDateString(ZVDate date) { return ZVShortDateFormatters::shared().dateString(date); }
