#include "core/actions/ZVTimeMover.h"

#include <cstdint>
#include <limits>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVTimeActionDialogs.h"
#include "core/ui/ZVUserInterface.h"

namespace {


void showNoActionAlert(const std::string& message) {
    ZVUserInterface::shared().runModalMessage(message, ZVLocalizedString("No action will be performed."));
}

void setTime(ZVIntegrationProject& project, std::uint64_t seconds, const ZVTimeMover::ProjectPointer& current) {
    project.setTime(seconds);
    if (current.get() == &project) ZVHeartBeat::sharedHeartBeat().setCurrentTime(seconds);
}

}  // namespace

ZVTimeMover::ZVTimeMover(ZVTimeAction action, ZVTimeActionDirection direction)
    : _action(action), _direction(direction) {}

std::string ZVTimeMover::confirmButtonTitle() const {
    return _action == ZVTimeAction::copy ? ZVLocalizedString("Copy") : ZVLocalizedString("Move");
}

std::string ZVTimeMover::projectPopUpTitle() const {
    if (!_selectedProject || _selectedProject == ZVIntegrationCenter::sharedCurrentProject()) return ZVLocalizedString("No Project Selected");
    return _selectedProject->name();
}

ZVTimeMover::ProjectPointer ZVTimeMover::sourceProject() const {
    return _direction == ZVTimeActionDirection::fromCurrentProject ? ZVIntegrationCenter::sharedCurrentProject() : _selectedProject;
}

ZVTimeMover::ProjectPointer ZVTimeMover::destinationProject() const {
    return _direction == ZVTimeActionDirection::fromCurrentProject ? _selectedProject : ZVIntegrationCenter::sharedCurrentProject();
}

std::optional<ZVHoursMinutesSeconds> ZVTimeMover::selectAllTime() const {
    const auto source = sourceProject();
    if (!source) return std::nullopt;
    return ZVHoursMinutesSeconds::fromSeconds(source->time());
}

void ZVTimeMover::changeTime() {
    ZVTimeActionDialogs::shared().runTimeMover(*this);
    _transfer();
}

void ZVTimeMover::_transfer() {
    if (!_selectedProject) return;
    const auto current = ZVIntegrationCenter::sharedCurrentProject();
    if (_selectedProject == current) {
        showNoActionAlert(ZVLocalizedString("Cannot move time to the same project."));
        return;
    }
    // Without a current project there is nothing to move from or to.
    if (!current) return;
    const auto source = sourceProject();
    const auto destination = destinationProject();
    const std::uint64_t amount = _amount.totalSeconds();
    if (source->time() < amount) {
        showNoActionAlert(
            ZVLocalizedFormat("Project %@ doesn't have enough time to be transferred.", {source->name()}));
        return;
    }
    if (destination->time() > std::numeric_limits<std::uint64_t>::max() - amount) ZVFatalError("Transferred time past the 64-bit range");
    setTime(*destination, destination->time() + amount, current);
    if (_action == ZVTimeAction::move) setTime(*source, source->time() - amount, current);
}
