#include "ZVTime.h"

#include <cstdio>

namespace ZVTime {

std::string timeString(std::uint64_t seconds, bool skipHoursWhenZero) {
    const unsigned s = static_cast<unsigned>(seconds % 60);
    const unsigned m = static_cast<unsigned>((seconds / 60) % 60);
    const unsigned long long h = seconds / 3600;
    char buffer[48];
    if (skipHoursWhenZero && h == 0) {
        std::snprintf(buffer, sizeof buffer, "%02u:%02u", m, s);
    } else {
        std::snprintf(buffer, sizeof buffer, "%02llu:%02u:%02u", h, m, s);
    }
    return buffer;
}

std::uint64_t round(std::uint64_t seconds, ZVTimeRoundingDirection direction, std::uint64_t roundingBase) {
    if (roundingBase == 0) return seconds;
    const std::uint64_t below = seconds - seconds % roundingBase;
    if (below == seconds) return seconds;
    const std::uint64_t above = below + roundingBase;
    if (above < below) return below;  // no multiple above fits in 64 bits
    switch (direction) {
        case ZVTimeRoundingDirection::down: return below;
        case ZVTimeRoundingDirection::up: return above;
        case ZVTimeRoundingDirection::nearest:
        default:
            // A time exactly half way goes up, as with rounding on paper.
            return seconds - below >= above - seconds ? above : below;
    }
}

}  // namespace ZVTime
