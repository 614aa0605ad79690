#include "core/actions/ZVTimeEditor.h"

#include <cmath>
#include <limits>

#include "ZVLog.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVTimeActionDialogs.h"
#include "core/ui/ZVUserInterface.h"

namespace {

std::uint64_t wholeFieldValue(double value) {
    if (!(value >= 0) || !std::isfinite(value)) ZVFatalError("A time field below 0 or not a number");
    const double whole = std::trunc(value);
    if (whole >= 18446744073709551616.0) ZVFatalError("A time field past the 64-bit range");
    return static_cast<std::uint64_t>(whole);
}

std::uint64_t checkedTotal(std::uint64_t hours, std::uint64_t minutes, std::uint64_t seconds) {
    constexpr auto maximum = std::numeric_limits<std::uint64_t>::max();
    if (hours > maximum / 3600 || minutes > maximum / 60) ZVFatalError("Edited time past the 64-bit range");
    const std::uint64_t fromHours = hours * 3600;
    const std::uint64_t fromMinutes = minutes * 60;
    if (fromHours > maximum - fromMinutes || fromHours + fromMinutes > maximum - seconds) {
        ZVFatalError("Edited time past the 64-bit range");
    }
    return fromHours + fromMinutes + seconds;
}

}  // namespace

ZVTimeEditor::ZVTimeEditor(std::shared_ptr<ZVIntegrationProject> project) : _project(std::move(project)) {}

void ZVTimeEditor::editTime() {
    _fields = ZVHoursMinutesSeconds::fromSeconds(ZVHeartBeat::sharedHeartBeat().currentTime());
    ZVUserInterface::shared().activateApplication();
    ZVTimeActionDialogs::shared().runTimeEditor(*this);
}

void ZVTimeEditor::done(double hours, double minutes, double seconds) {
    const std::uint64_t newTime = checkedTotal(wholeFieldValue(hours), wholeFieldValue(minutes), wholeFieldValue(seconds));
    // The clock takes the value whichever project is edited; when that is not
    // the current one, the notification below sets the clock right again.
    ZVHeartBeat::sharedHeartBeat().setCurrentTime(newTime);
    auto entry = std::make_shared<ZVTimeSetLogEntry>(_project);
    entry->setOriginalTime(_project->time());
    entry->setNewTime(newTime);
    _project->addLogEntry(entry);
    _project->setTime(newTime);
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, _project);
}
