#include "core/log_entries/ZVTimeSetLogEntry.h"

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVTime.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

ZVTimeSetLogEntry::ZVTimeSetLogEntry(const std::shared_ptr<ZVIntegrationProject>& project)
    : ZVLogEntry(project), _date(ZVNow()) {}

ZVTimeSetLogEntry::ZVTimeSetLogEntry(const ZVDictionary& dictionary)
    : ZVLogEntry(dictionary),
      _date(ZVDateValue(dictionary, dateKey).value_or(ZVNow())),
      _originalTime(ZVUnsignedValue(dictionary, originalTimeKey)),
      _newTime(ZVUnsignedValue(dictionary, newTimeKey)) {}

std::string ZVTimeSetLogEntry::text() const {
    const auto entryProject = project();
    if (!entryProject) ZVFatalError("A time change record has no project to name");
    return ZVLocalizedFormat("Changing time to %@ for '%@'", {ZVTime::timeString(_newTime), entryProject->name()});
}

void ZVTimeSetLogEntry::setText(const std::string&) {}

ZVDictionary ZVTimeSetLogEntry::dictionaryRepresentation() const {
    ZVDictionary dictionary = ZVLogEntry::dictionaryRepresentation();
    dictionary[dateKey] = _date;
    dictionary[originalTimeKey] = ZVValue(static_cast<unsigned long long>(_originalTime));
    dictionary[newTimeKey] = ZVValue(static_cast<unsigned long long>(_newTime));
    return dictionary;
}
