#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ZVValue.h"

namespace {

TEST(ZVValueTests, typedReadsAndSubscriptsGiveAbsentForOtherTypes) {
    ZVValue text("12");
    EXPECT_FALSE(text.integer());
    EXPECT_FALSE(text.boolean());
    EXPECT_FALSE(text.real());
    EXPECT_FALSE(text.date());
    EXPECT_EQ(text.array(), nullptr);
    EXPECT_EQ(text.dictionary(), nullptr);
    ASSERT_NE(text.string(), nullptr);
    EXPECT_EQ(*text.string(), "12");

    ZVValue number(12);
    EXPECT_EQ(number.string(), nullptr);
    EXPECT_EQ(number.data(), nullptr);

    ZVValue dictionary(ZVDictionary{{"a", ZVDictionary{{"b", "x"}}}});
    EXPECT_EQ(*dictionary["a"]["b"].string(), "x");
    EXPECT_TRUE(dictionary["missing"]["b"].isNull());
    EXPECT_TRUE(ZVValue(3)["a"].isNull());
}

TEST(ZVValueTests, numbersConvertAmongEachOther) {
    EXPECT_EQ(ZVValue(3.9).integer(), 3);
    EXPECT_EQ(ZVValue(-3.9).integer(), -3);
    EXPECT_EQ(ZVValue(true).integer(), 1);
    EXPECT_EQ(ZVValue(0).boolean(), false);
    EXPECT_EQ(ZVValue(2).boolean(), true);
    EXPECT_EQ(ZVValue(7).real(), 7.0);
    EXPECT_EQ(ZVValue(std::numeric_limits<std::uint64_t>::max()).unsignedInteger(),
              std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(ZVValue(1e300).integer(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(ZVValue(std::nan("")).unsignedInteger(), 0u);
}

TEST(ZVValueTests, numbersCompareByValueAcrossStorage) {
    EXPECT_EQ(ZVValue(5), ZVValue(5ull));
    EXPECT_EQ(ZVValue(5), ZVValue(5.0));
    EXPECT_NE(ZVValue(-1), ZVValue(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_NE(ZVValue(1), ZVValue(true));
    EXPECT_NE(ZVValue("1"), ZVValue(1));
}

TEST(ZVValueTests, copiesShareUntilWritten) {
    ZVValue original(ZVDictionary{{"a", 1}, {"b", ZVArray{1, 2}}});
    ZVValue copy = original;
    EXPECT_EQ(copy.dictionary(), original.dictionary());
    (*copy.mutableDictionary())["c"] = "new";
    EXPECT_NE(copy.dictionary(), original.dictionary());
    EXPECT_EQ(original.dictionary()->size(), 2u);
    EXPECT_EQ(copy.dictionary()->size(), 3u);
    EXPECT_EQ(original["c"], ZVValue());
}

TEST(ZVValueTests, dictionaryReadersFallBackOnWrongTypes) {
    ZVDictionary d{{"text", "hello"}, {"number", 42}, {"flag", true}, {"real", 2.5},
                   {"date", ZVDate(std::chrono::duration<double>(1000.5))}, {"list", ZVArray{1}}};
    EXPECT_EQ(ZVStringValue(d, "number", "fallback"), "fallback");
    EXPECT_EQ(ZVStringValue(d, "text"), "hello");
    EXPECT_FALSE(ZVOptionalString(d, "missing"));
    EXPECT_EQ(ZVIntegerValue(d, "text", -1), -1);
    EXPECT_EQ(ZVIntegerValue(d, "number"), 42);
    EXPECT_EQ(ZVUnsignedValue(d, "real"), 2u);
    EXPECT_EQ(ZVRealValue(d, "list", 1.5), 1.5);
    EXPECT_TRUE(ZVBoolValue(d, "flag"));
    EXPECT_TRUE(ZVBoolValue(d, "number"));
    EXPECT_FALSE(ZVBoolValue(d, "text"));
    EXPECT_FALSE(ZVDateValue(d, "number"));
    EXPECT_DOUBLE_EQ(ZVDateValue(d, "date")->time_since_epoch().count(), 1000.5);
    EXPECT_EQ(ZVArrayValue(d, "text"), nullptr);
    EXPECT_EQ(ZVArrayValue(d, "list")->size(), 1u);
    EXPECT_EQ(ZVDictionaryValue(d, "list"), nullptr);
}

}  // namespace
