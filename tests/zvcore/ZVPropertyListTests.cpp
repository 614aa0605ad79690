#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <limits>

#include "ZVPaths.h"
#include "ZVPropertyList.h"
#include "testkit/TemporaryHome.h"

namespace {

ZVDate dateAt(double seconds) { return ZVDate(std::chrono::duration<double>(seconds)); }

ZVValue everyType() {
    return ZVDictionary{
        {"string", "Grüße & <tags> \"quoted\"\r\nline"},
        {"empty string", ""},
        {"spaces", "   "},
        {"integer", -42},
        {"int64 min", std::numeric_limits<std::int64_t>::min()},
        {"uint64 max", std::numeric_limits<std::uint64_t>::max()},
        {"real", 3.141592653589793},
        {"tiny real", 1e-300},
        {"true", true},
        {"false", false},
        {"date", dateAt(1709283600)},
        {"old date", dateAt(-86400 * 365.0 * 40)},
        {"data", ZVData{0, 1, 2, 250, 255}},
        {"empty data", ZVData{}},
        {"array", ZVArray{1, "two", ZVArray{}, ZVDictionary{}}},
        {"nested", ZVDictionary{{"deeper", ZVDictionary{{"key", "value"}}}}},
    };
}

TEST(ZVPropertyListTests, xmlRoundTripKeepsEveryType) {
    ZVValue original = everyType();
    auto read = ZVPropertyList::read(ZVPropertyList::writeXML(original));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, original) << read->description();
    EXPECT_EQ((*read)["uint64 max"].type(), ZVValue::Type::unsignedInteger);
    EXPECT_EQ((*read)["uint64 max"].unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ((*read)["int64 min"].integer(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ((*read)["true"].type(), ZVValue::Type::boolean);
}

TEST(ZVPropertyListTests, datesAreWrittenInWholeSeconds) {
    auto read = ZVPropertyList::read(ZVPropertyList::writeXML(ZVValue(dateAt(1709283600.75))));
    ASSERT_TRUE(read && read->date());
    EXPECT_DOUBLE_EQ(read->date()->time_since_epoch().count(), 1709283600.0);
    EXPECT_NE(ZVPropertyList::writeXML(ZVValue(dateAt(1709283600))).find("<date>2024-03-01T09:00:00Z</date>"),
              std::string::npos);
}

// What we write must be a property list that another reader understands.
TEST(ZVPropertyListTests, libplistReadsWhatWeWrite) {
    std::string xml = ZVPropertyList::writeXML(everyType());
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(plist_get_node_type(root), PLIST_DICT);
    EXPECT_EQ(plist_dict_get_size(root), everyType().dictionary()->size());
    char* text = nullptr;
    plist_get_string_val(plist_dict_get_item(root, "string"), &text);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Grüße & <tags> \"quoted\"\r\nline");
    std::free(text);
    uint64_t big = 0;
    plist_get_uint_val(plist_dict_get_item(root, "uint64 max"), &big);
    EXPECT_EQ(big, std::numeric_limits<std::uint64_t>::max());
    int32_t seconds = 0, micros = 0;
    plist_get_date_val(plist_dict_get_item(root, "date"), &seconds, &micros);
    EXPECT_EQ(seconds, 1709283600 - 978307200);
    plist_free(root);
}

TEST(ZVPropertyListTests, readsBinaryPropertyLists) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "name", plist_new_string("Norvo"));
    plist_dict_set_item(root, "count", plist_new_uint(static_cast<uint64_t>(-7)));
    plist_dict_set_item(root, "big", plist_new_uint(std::numeric_limits<std::uint64_t>::max()));
    plist_dict_set_item(root, "flag", plist_new_bool(1));
    plist_dict_set_item(root, "ratio", plist_new_real(0.25));
    plist_dict_set_item(root, "when", plist_new_date(1000, 500000));
    plist_t list = plist_new_array();
    plist_array_append_item(list, plist_new_data("\x01\x02", 2));
    plist_dict_set_item(root, "list", list);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    plist_free(root);
    auto read = ZVPropertyList::read(std::string(bytes, length));
    std::free(bytes);

    ASSERT_TRUE(read);
    EXPECT_EQ(*(*read)["name"].string(), "Norvo");
    EXPECT_EQ((*read)["count"].integer(), -7);
    EXPECT_EQ((*read)["big"].unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
    // libplist 2.2 writes 2^64-1 in eight bytes, the same as -1; only the bit
    // pattern survives, which the unsigned read above gives back.
    EXPECT_EQ((*read)["flag"].boolean(), true);
    EXPECT_EQ((*read)["ratio"].real(), 0.25);
    EXPECT_DOUBLE_EQ((*read)["when"].date()->time_since_epoch().count(), 978307200 + 1000.5);
    EXPECT_EQ((*(*read)["list"].array())[0], ZVValue(ZVData{1, 2}));
}

TEST(ZVPropertyListTests, corruptInputReadsAsAbsent) {
    const char* cases[] = {
        "",
        "not a plist",
        "<plist><dict><key>a</key></dict></plist>",
        "<plist><dict><string>no key</string></dict></plist>",
        "<plist><integer>12x</integer></plist>",
        "<plist><integer></integer></plist>",
        "<plist><real>abc</real></plist>",
        "<plist><date>yesterday</date></plist>",
        "<plist><data>!!!</data></plist>",
        "<plist><unknown/></plist>",
        "<plist><dict><key>a</key><string>x</string>",
        "bplist00garbage",
        "<plist></plist>",
    };
    for (const char* text : cases) EXPECT_FALSE(ZVPropertyList::read(text)) << text;
}

TEST(ZVPropertyListTests, deeplyNestedInputIsRefusedNotOverflowed) {
    std::string xml = "<plist>";
    for (int i = 0; i < 5000; ++i) xml += "<array>";
    for (int i = 0; i < 5000; ++i) xml += "</array>";
    xml += "</plist>";
    EXPECT_FALSE(ZVPropertyList::read(xml));
}

TEST(ZVPropertyListTests, fileRoundTripAndCorruptFile) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/Integrations.edb";
    EXPECT_FALSE(ZVPropertyList::readFile(path));
    ASSERT_TRUE(ZVPropertyList::writeFile(everyType(), path));
    EXPECT_EQ(ZVPropertyList::readFile(path), everyType());

    ASSERT_TRUE(ZVPaths::writeFileAtomically(path, "<plist><dict><key>half"));
    EXPECT_FALSE(ZVPropertyList::readFile(path));
}

TEST(ZVPropertyListTests, largeDatabaseReadsInLinearTime) {
    ZVDictionary accounts;
    for (int a = 0; a < 50; ++a) {
        ZVArray projects;
        for (int p = 0; p < 2000; ++p) {
            projects.push_back(ZVDictionary{{"KDName", "Project " + std::to_string(p)},
                                            {"KDTime", static_cast<unsigned long long>(p * 60)},
                                            {"KDIdentifier", std::to_string(a * 100000 + p)}});
        }
        accounts["account" + std::to_string(a)] = ZVDictionary{{"projects", std::move(projects)}};
    }
    std::string xml = ZVPropertyList::writeXML(ZVValue(std::move(accounts)));
    ASSERT_GT(xml.size(), 10'000'000u);
    // A quadratic reader takes minutes and runs into the test's time limit.
    auto read = ZVPropertyList::read(xml);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->dictionary()->size(), 50u);
}

}  // namespace
