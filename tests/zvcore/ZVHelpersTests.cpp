#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "ZVHelpers.h"
#include "testkit/ManualClock.h"

namespace {

TEST(ZVHelpersTests, prefixAndSuffixGoOnceAndContainmentFoldsUnicode) {
    EXPECT_EQ(ZVDeletingPrefix("https://https://x", "https://"), "https://x");
    EXPECT_EQ(ZVDeletingPrefix("x", "https://"), "x");
    EXPECT_EQ(ZVDeletingPrefix("abc", ""), "abc");
    EXPECT_EQ(ZVDeletingSuffix("example.com//", "/"), "example.com/");
    EXPECT_EQ(ZVDeletingSuffix("/", "//"), "/");
    // Containment ignores case beyond ASCII.
    EXPECT_TRUE(ZVContainsCaseInsensitive("Fix LOGIN page", "login"));
    EXPECT_TRUE(ZVContainsCaseInsensitive("STRASSE ÄRGER", "ärger"));
    EXPECT_TRUE(ZVContainsCaseInsensitive("anything", ""));
    EXPECT_FALSE(ZVContainsCaseInsensitive("short", "longer text"));
}

TEST(ZVHelpersTests, numericStrings) {
    struct Case {
        const char* text;
        std::optional<std::int64_t> integer;
    } cases[] = {{"42", 42}, {" -7 ", -7}, {"+5", 5}, {"3.9", 3}, {"", std::nullopt}, {"12abc", std::nullopt},
                 {"abc", std::nullopt}, {"1e3", 1000}, {"99999999999999999999", std::nullopt}};
    for (const auto& c : cases) EXPECT_EQ(ZVStringIntegerValue(c.text), c.integer) << c.text;
    EXPECT_EQ(ZVStringDoubleValue("2.5"), 2.5);
    EXPECT_FALSE(ZVStringDoubleValue("nan"));
}

TEST(ZVHelpersTests, utf8Validation) {
    EXPECT_TRUE(ZVIsValidUTF8("plain ascii"));
    EXPECT_TRUE(ZVIsValidUTF8("Grüße 😀"));
    EXPECT_FALSE(ZVIsValidUTF8("M\xfcller"));
    EXPECT_FALSE(ZVIsValidUTF8("\xc0\xaf"));          // overlong
    EXPECT_FALSE(ZVIsValidUTF8("\xed\xa0\x80"));      // surrogate
    EXPECT_FALSE(ZVIsValidUTF8("\xe2\x82"));          // cut short
    EXPECT_EQ(ZVUTF8Data("ü"), (ZVData{0xC3, 0xBC}));
}

TEST(ZVHelpersTests, urlEncodingAndDescriptions) {
    EXPECT_EQ(ZVEncodingIllegalURLCharacters("https://host/a path/ü?q=1&r=[x]#f"),
              "https://host/a%20path/%C3%BC?q=1&r=[x]#f");
    EXPECT_EQ(ZVEncodingIllegalURLCharacters("already%20encoded"), "already%20encoded");
    EXPECT_EQ(ZVPercentEncoded("a b/c?d=é"), "a%20b%2Fc%3Fd%3D%C3%A9");
    EXPECT_EQ(ZVPercentDecoded("a%20b+c%2F%zz"), "a b c/%zz");
    EXPECT_EQ(ZVURLQueryString({{"time", "3600"}, {"note", "Fix & test"}}), "time=3600&note=Fix%20%26%20test");
    EXPECT_EQ(ZVURLQueryString({}), "");
    EXPECT_EQ(ZVDescriptionWithDefaultValue(std::optional<int>(), "none"), "none");
    EXPECT_EQ(ZVDescriptionWithDefaultValue(std::optional<int>(5), "none"), "5");
    EXPECT_EQ(ZVDescriptionWithDefaultValue(std::optional<std::string>("x"), "none"), "x");
}

TEST(ZVHelpersTests, collectionsKeepTheirOrderAndEmptyOnesGiveNothing) {
    EXPECT_EQ(ZVDistinct(std::vector<int>{3, 1, 3, 2, 1}), (std::vector<int>{3, 1, 2}));
    EXPECT_EQ(ZVDistinct(std::vector<std::string>{}), std::vector<std::string>{});
    struct Unhashable {
        int v;
        bool operator==(const Unhashable&) const = default;
    };
    EXPECT_EQ(ZVDistinct(std::vector<Unhashable>{{1}, {2}, {1}}), (std::vector<Unhashable>{{1}, {2}}));

    struct Case {
        size_t from, to;
        std::vector<char> expected;
    } cases[] = {
        {0, 3, {'b', 'c', 'd', 'a'}}, {3, 0, {'d', 'a', 'b', 'c'}}, {1, 2, {'a', 'c', 'b', 'd'}},
        {2, 2, {'a', 'b', 'c', 'd'}}, {4, 0, {'a', 'b', 'c', 'd'}}, {0, 4, {'a', 'b', 'c', 'd'}},
    };
    for (const auto& c : cases) {
        std::vector<char> v{'a', 'b', 'c', 'd'};
        ZVMove(v, c.from, c.to);
        EXPECT_EQ(v, c.expected) << c.from << "->" << c.to;
    }
    EXPECT_EQ(ZVFindMaxValue(std::vector<int>{3, 9, 2}), 9);
    EXPECT_FALSE(ZVFindMaxValue(std::vector<int>{}));
    EXPECT_EQ(ZVSum(std::vector<std::uint64_t>{60, 120}), 180u);
    EXPECT_EQ(ZVSum(std::vector<double>{}), 0.0);
}

class LocalTimeZone : public ::testing::Test {
protected:
    void SetUp() override {
        const char* old = std::getenv("TZ");
        _saved = old ? std::optional<std::string>(old) : std::nullopt;
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    void TearDown() override {
        if (_saved) {
            setenv("TZ", _saved->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    std::optional<std::string> _saved;
};

TEST_F(LocalTimeZone, dayHelpersUseLocalTime) {
    ManualClock clock(ManualClock::date(2024, 3, 1, 22, 30));  // 23:30 in Berlin
    ZVDate now = clock.now();
    EXPECT_EQ(ZVDay(now), 1);
    EXPECT_EQ(ZVMonth(now), 3);
    EXPECT_EQ(ZVYear(now), 2024);
    EXPECT_EQ(ZVStartOfDay(now), ManualClock::date(2024, 2, 29, 23, 0));
    EXPECT_TRUE(ZVIsToday(now));
    EXPECT_TRUE(ZVIsToday(ManualClock::date(2024, 2, 29, 23, 0)));
    EXPECT_FALSE(ZVIsToday(ManualClock::date(2024, 3, 1, 23, 0)));  // midnight in Berlin
    EXPECT_TRUE(ZVIsFuture(now + std::chrono::duration<double>(1)));
    EXPECT_FALSE(ZVIsFuture(now));
    // The day of a change to summer time has 23 hours.
    EXPECT_EQ(ZVStartOfDay(ManualClock::date(2024, 3, 31, 20, 0)), ManualClock::date(2024, 3, 30, 23, 0));
}

// The fast formatter of exports must write every date as the plain one
// does: across changes to and from summer time, in zones with half- and
// quarter-hour offsets or a half-hour summer shift, before 1970, and with
// fractions of a second.
TEST_F(LocalTimeZone, iso8601FormatterWritesWhatThePlainFunctionWrites) {
    for (const char* zone : {"Europe/Berlin", "America/St_Johns", "Australia/Lord_Howe", "Asia/Kathmandu", "UTC"}) {
        setenv("TZ", zone, 1);
        tzset();
        ZVISO8601Formatter formatter;
        std::vector<ZVDate> dates;
        // Two years in steps that fall on every hour of the day in turn.
        for (double t = 1'700'000'000.25; t < 1'763'000'000.0; t += 7 * 3600 + 13 * 60 + 17.3)
            dates.push_back(ZVDate(std::chrono::duration<double>(t)));
        // A second before and at each change to summer time in Berlin, and far back.
        for (const ZVDate date : {ManualClock::date(2024, 3, 31, 0, 59, 59), ManualClock::date(2024, 3, 31, 1, 0),
                                  ManualClock::date(2024, 10, 27, 0, 59, 59.9), ManualClock::date(2024, 10, 27, 1, 0),
                                  ManualClock::date(1965, 6, 15, 12, 30, 5), ManualClock::date(1969, 12, 31, 23, 59, 59.5)})
            dates.push_back(date);
        std::string fast;
        std::string plain;
        for (const ZVDate date : dates) {
            fast.clear();
            formatter.append(fast, date);
            plain = ZVISO8601String(date);
            ASSERT_EQ(fast, plain) << zone << " at " << date.time_since_epoch().count();
        }
    }
}

TEST_F(LocalTimeZone, iso8601WithOffset) {
    EXPECT_EQ(ZVISO8601String(ManualClock::date(2024, 3, 1, 9, 15, 30.7)), "2024-03-01T10:15:30+01:00");
    EXPECT_EQ(ZVISO8601String(ManualClock::date(2024, 7, 1, 9, 0)), "2024-07-01T11:00:00+02:00");
    EXPECT_EQ(ZVDateFromISO8601("2024-03-01T10:15:30+01:00"), ManualClock::date(2024, 3, 1, 9, 15, 30));
    EXPECT_EQ(ZVDateFromISO8601("2024-03-01T09:15:30Z"), ManualClock::date(2024, 3, 1, 9, 15, 30));
    EXPECT_EQ(ZVDateFromISO8601("2024-03-01T04:15:30.5-0500"), ManualClock::date(2024, 3, 1, 9, 15, 30.5));
    EXPECT_FALSE(ZVDateFromISO8601("2024-03-01"));
    EXPECT_FALSE(ZVDateFromISO8601("2024-13-01T00:00:00Z"));
    EXPECT_FALSE(ZVDateFromISO8601("2024-03-01T00:00:00"));
}

}  // namespace
