#pragma once

#include <cstdint>

/// What the mover does with the amount: take it from the source, or leave
/// the source as it is and create the time anew on the destination.
enum class ZVTimeAction : int { move = 0, copy = 1 };

/// Whether the current project gives the time or receives it.
enum class ZVTimeActionDirection : int { fromCurrentProject = 0, toCurrentProject = 1 };

/// A number of seconds as the three fields of the time dialogs.
struct ZVHoursMinutesSeconds {
    std::uint64_t hours = 0;
    std::uint64_t minutes = 0;
    std::uint64_t seconds = 0;

    static ZVHoursMinutesSeconds fromSeconds(std::uint64_t total) {
        return {total / 3600, (total % 3600) / 60, total % 60};
    }
    std::uint64_t totalSeconds() const { return hours * 3600 + minutes * 60 + seconds; }
    bool operator==(const ZVHoursMinutesSeconds&) const = default;
};
