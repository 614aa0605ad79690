#include "core/log_entries/ZVResetLogEntry.h"

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

ZVResetLogEntry::ZVResetLogEntry(const std::shared_ptr<ZVIntegrationProject>& project)
    : ZVLogEntry(project), _date(ZVNow()) {}

ZVResetLogEntry::ZVResetLogEntry(const ZVDictionary& dictionary)
    : ZVLogEntry(dictionary), _date(ZVDateValue(dictionary, dateKey).value_or(ZVNow())) {}

std::string ZVResetLogEntry::text() const {
    const auto entryProject = project();
    if (!entryProject) ZVFatalError("A reset record has no project to name");
    return ZVLocalizedFormat("Reset time for '%@'", {entryProject->name()});
}

void ZVResetLogEntry::setText(const std::string&) {}

ZVDictionary ZVResetLogEntry::dictionaryRepresentation() const {
    ZVDictionary dictionary = ZVLogEntry::dictionaryRepresentation();
    dictionary[dateKey] = _date;
    return dictionary;
}
