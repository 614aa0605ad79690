#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "ZVTime.h"

class ZVIntegrationProject;

/// Rounds the time of a project to a multiple of a chosen duration, in a
/// chosen direction, and records the change in the project's log.
class ZVTimeRounder {
public:
    explicit ZVTimeRounder(std::shared_ptr<ZVIntegrationProject> project);

    const std::shared_ptr<ZVIntegrationProject>& project() const { return _project; }

    /// The durations of the duration pop-up, in seconds, by position.
    static constexpr std::array<std::uint64_t, 7> durations{60, 300, 360, 600, 900, 1800, 3600};
    /// The direction of a position of the direction pop-up: 1 up, 2 down,
    /// every other position nearest.
    static ZVTimeRoundingDirection directionAtPosition(int position);

    /// Rounds with the dialog's choice. False, changing nothing, when the
    /// duration position is beyond the table: the dialog then stays open.
    bool roundTime(int directionPosition, int durationPosition);

private:
    std::shared_ptr<ZVIntegrationProject> _project;
};
