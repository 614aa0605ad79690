#include "core/log_entries/ZVTimeLogEntry.h"

#include <sstream>

#include "ZVClock.h"
#include "ZVLocalization.h"

ZVTimeLogEntry::ZVTimeLogEntry(const std::shared_ptr<ZVIntegrationProject>& project)
    : ZVLogEntry(project), _startDate(ZVNow()) {}

ZVTimeLogEntry::ZVTimeLogEntry(const ZVDictionary& dictionary)
    : ZVLogEntry(dictionary),
      _startDate(ZVDateValue(dictionary, startDateKey).value_or(ZVNow())),
      _stopDate(ZVDateValue(dictionary, stopDateKey)) {}

ZVDictionary ZVTimeLogEntry::dictionaryRepresentation() const {
    ZVDictionary dictionary = ZVLogEntry::dictionaryRepresentation();
    dictionary[startDateKey] = _startDate;
    if (_stopDate) dictionary[stopDateKey] = *_stopDate;
    return dictionary;
}

std::string ZVTimeLogEntry::entryDescription(bool omitTitle) const {
    std::string result;
    const std::string title = text();
    if (!omitTitle && !title.empty()) result = title + "\n";
    result += ZVLocalizedFormat("STARTED: %@", {dateString(_startDate)});
    if (_stopDate) result += "\n" + ZVLocalizedFormat("STOPPED: %@", {dateString(*_stopDate)});
    return result;
}

std::string ZVTimeLogEntry::description() const {
    std::ostringstream out;
    out << "<ZVTimeLogEntry <" << className() << ": " << static_cast<const void*>(this) << ">> - '" << text() << "'";
    return out.str();
}
