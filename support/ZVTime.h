#pragma once

#include <cstdint>
#include <string>

/// Direction of rounding a number of seconds to a multiple of a base.
/// The raw values are stored in the preferences.
enum class ZVTimeRoundingDirection : int { nearest = 0, up = 1, down = 2 };

struct ZVTimeInterval {
    static constexpr std::uint64_t minute = 60;
    static constexpr std::uint64_t hour = 3600;
    static constexpr std::uint64_t day = 86400;
};

namespace ZVTime {
/// The clock form "HH:MM:SS" (hours at least two digits, unbounded); with
/// skipHoursWhenZero and under an hour, "MM:SS".
std::string timeString(std::uint64_t seconds, bool skipHoursWhenZero = false);
/// Rounds seconds to a multiple of roundingBase seconds in the given direction.
std::uint64_t round(std::uint64_t seconds, ZVTimeRoundingDirection direction, std::uint64_t roundingBase);
}  // namespace ZVTime
