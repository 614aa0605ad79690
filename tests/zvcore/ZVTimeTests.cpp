#include <gtest/gtest.h>

#include "ZVTime.h"

namespace {

struct ClockStringCase {
    std::uint64_t seconds;
    bool skipHours;
    const char* expected;
};

TEST(ZVTimeTests, timeStringForms) {
    const ClockStringCase cases[] = {
        {0, false, "00:00:00"},       {0, true, "00:00"},         {59, false, "00:00:59"},
        {61, true, "01:01"},          {3599, true, "59:59"},      {3600, true, "01:00:00"},
        {3661, false, "01:01:01"},    {86399, false, "23:59:59"}, {360000, false, "100:00:00"},
        {3600 * 1234 + 5, true, "1234:00:05"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ZVTime::timeString(c.seconds, c.skipHours), c.expected) << c.seconds << " " << c.skipHours;
    }
}

struct RoundingCase {
    std::uint64_t seconds;
    ZVTimeRoundingDirection direction;
    std::uint64_t base;
    std::uint64_t expected;
};

TEST(ZVTimeTests, roundingInThreeDirections) {
    using D = ZVTimeRoundingDirection;
    const RoundingCase cases[] = {
        {0, D::up, 900, 0},          {1, D::up, 900, 900},        {900, D::up, 900, 900},
        {901, D::up, 900, 1800},     {899, D::down, 900, 0},      {1799, D::down, 900, 900},
        {449, D::nearest, 900, 0},   {450, D::nearest, 900, 900}, {1351, D::nearest, 900, 1800},
        {1349, D::nearest, 900, 900}, {1234, D::nearest, 0, 1234}, {1234, D::up, 1, 1234},
        {UINT64_MAX, D::up, 1000, UINT64_MAX - UINT64_MAX % 1000},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ZVTime::round(c.seconds, c.direction, c.base), c.expected)
            << c.seconds << " dir " << static_cast<int>(c.direction) << " base " << c.base;
    }
    // The directions are stored in the preferences by their numbers.
    EXPECT_EQ((std::vector{int(D::nearest), int(D::up), int(D::down)}), (std::vector{0, 1, 2}));
}

}  // namespace
