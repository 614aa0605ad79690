#include "core/actions/ZVTimeEditor.h"

#include <algorithm>
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

// Whatever the fields hold, the edited time lands in 0...maximumTime.
std::uint64_t wholeFieldValue(double value) {
    if (!(value >= 0) || !std::isfinite(value)) return 0;
    return static_cast<std::uint64_t>(std::min(std::trunc(value), static_cast<double>(ZVIntegrationProject::maximumTime)));
}

std::uint64_t checkedTotal(std::uint64_t hours, std::uint64_t minutes, std::uint64_t seconds) {
    // Each part is at most maximumTime (10^12), so the sum cannot wrap.
    return std::min(hours * 3600 + minutes * 60 + seconds, ZVIntegrationProject::maximumTime);
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
