#include "core/actions/ZVTimeRounder.h"

#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "core/notifications/ZVNotificationCenter.h"

ZVTimeRounder::ZVTimeRounder(std::shared_ptr<ZVIntegrationProject> project) : _project(std::move(project)) {}

ZVTimeRoundingDirection ZVTimeRounder::directionAtPosition(int position) {
    switch (position) {
        case 1: return ZVTimeRoundingDirection::up;
        case 2: return ZVTimeRoundingDirection::down;
        default: return ZVTimeRoundingDirection::nearest;
    }
}

bool ZVTimeRounder::roundTime(int directionPosition, int durationPosition) {
    if (durationPosition < 0 || static_cast<std::size_t>(durationPosition) >= durations.size()) return false;
    const std::uint64_t originalTime = _project->time();
    const std::uint64_t newTime = ZVTime::round(originalTime, directionAtPosition(directionPosition),
                                                durations[static_cast<std::size_t>(durationPosition)]);
    auto entry = std::make_shared<ZVTimeSetLogEntry>(_project);
    entry->setOriginalTime(originalTime);
    entry->setNewTime(newTime);
    _project->addLogEntry(entry);
    _project->setTime(newTime);
    // The heart beat takes the new value from this notification.
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, _project);
    return true;
}
