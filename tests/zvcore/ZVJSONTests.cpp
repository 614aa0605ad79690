#include <gtest/gtest.h>

#include "ZVJSON.h"

namespace {

using nlohmann::json;

const json document = json::parse(R"({
    "fields": {"summary": "Fix login", "count": 3, "numeric": "42", "decimal": "2.75", "flag": true,
               "zero": 0, "one": 1, "null": null, "float": 4.9, "word": "forty"},
    "data": [{"id": 7}, {"id": "8"}, "not a dictionary"],
    "list": [{"a": 1}, {"b": 2}],
    "plain key": "plain",
    "[odd]": "bracketed key"
})");

struct PathCase {
    const char* path;
    bool found;
};

TEST(ZVJSONTests, keyPathsReachIntoObjectsAndArrays) {
    EXPECT_EQ(*ZVJSON::string(document, "[fields][summary]"), "Fix login");
    EXPECT_EQ(ZVJSON::integer(document, "[data][0][id]"), 7);
    EXPECT_EQ(*ZVJSON::string(document, "plain key"), "plain");
    const PathCase cases[] = {
        {"[fields][summary]", true}, {"[data][1][id]", true},   {"[data][3]", false},
        {"[data][x]", false},        {"[data][-1]", false},     {"[fields][missing]", false},
        {"[fields][null]", false},   {"[fields][summary", false}, {"fields][summary]", false},
        {"[fields]summary", false},  {"", false},               {"[]", false},
        {"[fields][summary][deeper]", false}, {"[data][0][id][1]", false},
    };
    for (const auto& c : cases) EXPECT_EQ(ZVJSON::value(document, c.path) != nullptr, c.found) << c.path;
}

TEST(ZVJSONTests, stringsAreNeverReadFromNumbersNorBooleansFromStrings) {
    EXPECT_FALSE(ZVJSON::string(document, "[fields][count]"));
    EXPECT_FALSE(ZVJSON::string(document, "[fields][flag]"));
    EXPECT_EQ(*ZVJSON::string(document, "[fields][numeric]"), "42");
    const std::pair<const char*, bool> booleans[] = {
        {"flag", true}, {"one", true}, {"zero", false}, {"numeric", false}, {"missing", false}};
    for (const auto& [key, expected] : booleans)
        EXPECT_EQ(ZVJSON::booleanForKey(document["fields"], key), expected) << key;
}

TEST(ZVJSONTests, integerConversions) {
    struct Case {
        const char* path;
        std::int64_t expected;
    } cases[] = {
        {"[fields][count]", 3},   {"[fields][numeric]", 42}, {"[fields][decimal]", 2}, {"[fields][float]", 4},
        {"[fields][flag]", 1},    {"[fields][word]", 0},     {"[fields][missing]", 0}, {"[data][1][id]", 8},
        {"[fields]", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(ZVJSON::integer(document, c.path), c.expected) << c.path;
    const json& fields = document["fields"];
    EXPECT_EQ(ZVJSON::integerForKey(fields, "numeric"), 42);
    EXPECT_EQ(ZVJSON::integerForKey(document, "[odd]"), 0);
    EXPECT_DOUBLE_EQ(ZVJSON::doubleForKey(fields, "decimal"), 2.75);
    EXPECT_DOUBLE_EQ(ZVJSON::doubleForKey(fields, "float"), 4.9);
    EXPECT_DOUBLE_EQ(ZVJSON::doubleForKey(fields, "word"), 0.0);
}

TEST(ZVJSONTests, dictionariesAndArraysOfDictionaries) {
    ASSERT_NE(ZVJSON::dictionary(document, "[fields]"), nullptr);
    EXPECT_EQ(ZVJSON::dictionary(document, "[list]"), nullptr);
    auto list = ZVJSON::arrayOfDictionaries(document, "[list]");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->size(), 2u);
    // One element that is no dictionary spoils the whole array.
    EXPECT_FALSE(ZVJSON::arrayOfDictionaries(document, "[data]"));
    EXPECT_FALSE(ZVJSON::arrayOfDictionaries(document, "[fields]"));
}

TEST(ZVJSONTests, firstNonNilValueTakesTheFirstPathThatYields) {
    const json* found = ZVJSON::firstNonNilValue(document, {"[fields][null]", "[fields][missing]", "[fields][count]",
                                                            "[fields][summary]"});
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(*found, 3);
    EXPECT_EQ(ZVJSON::firstNonNilValue(document, {"[a]", "[b]"}), nullptr);
}

TEST(ZVJSONTests, urlQueryStringEncodesValues) {
    json object = {{"name", "a b&c"}, {"count", 2}, {"ü", "é"}};
    EXPECT_EQ(ZVJSON::urlQueryString(object), "count=2&name=a%20b%26c&%C3%BC=%C3%A9");
    EXPECT_EQ(ZVJSON::urlQueryString(json::array()), "");
}

TEST(ZVJSONTests, lookupsOnNonObjectsAreAbsent) {
    for (const json& value : {json(nullptr), json(3), json("text"), json::array()}) {
        EXPECT_EQ(ZVJSON::value(value, "[a]"), nullptr);
        EXPECT_EQ(ZVJSON::integer(value, "a"), 0);
        EXPECT_FALSE(ZVJSON::boolean(value, "[a][b]"));
    }
}

}  // namespace
