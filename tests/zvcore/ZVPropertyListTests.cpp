#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
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

TEST(ZVPropertyListTests, xmlRoundTripKeepsEveryTypeAndLibplistReadsIt) {
    const ZVValue original = everyType();
    const std::string xml = ZVPropertyList::writeXML(original);
    auto read = ZVPropertyList::read(xml);
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, original) << read->description();
    EXPECT_EQ((*read)["uint64 max"].type(), ZVValue::Type::unsignedInteger);
    EXPECT_EQ((*read)["uint64 max"].unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ((*read)["int64 min"].integer(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ((*read)["true"].type(), ZVValue::Type::boolean);

    // What we write must be a property list that another reader understands.
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(plist_get_node_type(root), PLIST_DICT);
    EXPECT_EQ(plist_dict_get_size(root), original.dictionary()->size());
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

TEST(ZVPropertyListTests, writesOnlyWhatXML10AllowsSoThatOtherReadersTakeTheFile) {
    // Stored as given -> written and read back as.
    struct Row {
        const char* key;
        std::string stored;
        std::string written;
    };
    const Row rows[] = {
        {"controls", std::string("a\x01" "b\x08" "c\x1b[0m\x7f" "\0" "d", 12), "abc[0m\x7f" "d"},
        {"whitespace", "tab\tline\nreturn\r", "tab\tline\nreturn\r"},
        {"broken UTF-8", "caf\xC3 \xFF\xC0\xAF end", "caf\uFFFD \uFFFD\uFFFD\uFFFD end"},
        {"noncharacters, surrogates", "\xEF\xBF\xBE\xEF\xBF\xBF|\xED\xA0\x80|", "|\uFFFD\uFFFD\uFFFD|"},
        {"valid", "Grüße \u2794 \U0001F600 \uFFFD", "Grüße \u2794 \U0001F600 \uFFFD"},
    };
    ZVDictionary stored;
    for (const Row& row : rows) stored[row.key] = row.stored;
    stored[std::string("key\x02")] = "keys too";

    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/controls.plist";
    EXPECT_FALSE(ZVPropertyList::readFile(path)) << "a missing file reads as absent";
    ASSERT_TRUE(ZVPropertyList::writeFile(ZVValue(stored), path));
    const auto read = ZVPropertyList::readFile(path);
    ASSERT_TRUE(read && read->dictionary());
    for (const Row& row : rows) EXPECT_EQ(*read->dictionary()->at(row.key).string(), row.written) << row.key;
    EXPECT_TRUE(read->dictionary()->contains("key"));
    // Written the same way the second time: the file does not change.
    EXPECT_EQ(ZVPropertyList::writeXML(*read), ZVPropertyList::writeXML(ZVValue(stored)));

    // Two independent readers take the file whole.
    for (const std::string& command :
         {"plistutil -i '" + path + "' -o /dev/null -f bin",
          "python3 -c 'import plistlib,sys; d=plistlib.load(open(sys.argv[1],\"rb\")); sys.exit(d[\"whitespace\"]!=\"tab\\tline\\nreturn\\r\")' '" + path + "'"}) {
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
    }
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

TEST(ZVPropertyListTests, corruptOrDeeplyNestedInputReadsAsAbsent) {
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
    std::string deeplyNested = "<plist>";
    for (int i = 0; i < 5000; ++i) deeplyNested.insert(7, "<array>").append("</array>");
    EXPECT_FALSE(ZVPropertyList::read(deeplyNested + "</plist>")) << "refused, not overflowed";
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

// A dictionary file written partly from values and partly from byte ranges
// of the file before must be the file that writing everything gives.
TEST(ZVPropertyListTests, splicedDictionaryFileIsTheFileOfTheWholeDictionary) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/Integrations.edb";
    ZVDictionary database{{"B", ZVDictionary{{"name", "Bravo"}, {"log", ZVArray{1, 2, 3}}}},
                          {"D", ZVDictionary{{"name", "Delta & <co>"}}},
                          {"E & <e>", ZVDictionary{{"name", "Echo"}}},
                          {"F", ZVDictionary{{"name", "Foxtrot"}, {"when", dateAt(1709283600)}}}};
    const auto valuesOf = [](const ZVDictionary& dictionary, std::initializer_list<const char*> keys) {
        std::map<std::string, const ZVValue*> values;
        for (const char* key : keys) values[key] = &dictionary.at(key);
        return values;
    };
    const auto fileText = [&] {
        std::string bytes;
        EXPECT_TRUE(ZVPaths::readFile(path, bytes));
        return bytes;
    };

    ZVPropertyList::EntryRanges ranges;
    ASSERT_TRUE(
        ZVPropertyList::writeDictionaryFile(path, 0600, valuesOf(database, {"B", "D", "E & <e>", "F"}), {}, ranges));
    EXPECT_EQ(fileText(), ZVPropertyList::writeXML(ZVValue(database)));
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    ASSERT_EQ(ranges.size(), 4u);
    const std::string first = fileText();
    EXPECT_EQ(first.substr(ranges["D"].offset, ranges["D"].length),
              "\t<key>D</key>\n\t<dict>\n\t\t<key>name</key>\n\t\t<string>Delta &amp; &lt;co&gt;</string>\n\t</dict>\n");

    struct Step {
        const char* what;
        std::function<void()> change;
        std::vector<const char*> serialized;  // the rest is copied
    };
    const std::vector<Step> steps{
        {"one entry changes", [&] { database["D"] = ZVDictionary{{"name", "Delta, renamed"}}; }, {"D"}},
        {"a new entry between two", [&] { database["C"] = ZVDictionary{{"name", "Charlie"}}; }, {"C"}},
        {"an entry before all others", [&] { database["A"] = ZVDictionary{}; }, {"A"}},
        {"the last entry changes", [&] { database["F"] = ZVDictionary{{"name", "F"}}; }, {"F"}},
        // Written out in pieces on the way, never held whole as text.
        {"an entry of megabytes", [&] { database["E & <e>"] = ZVArray(40000, ZVValue(std::string(90, 'e'))); }, {"E & <e>"}},
        {"nothing changes", [] {}, {}},
    };
    for (const auto& step : steps) {
        step.change();
        std::map<std::string, const ZVValue*> values;
        ZVPropertyList::EntryRanges copied = ranges;
        for (const char* key : step.serialized) {
            values[key] = &database.at(key);
            copied.erase(key);
        }
        ASSERT_TRUE(ZVPropertyList::writeDictionaryFile(path, 0600, values, copied, ranges)) << step.what;
        EXPECT_EQ(fileText(), ZVPropertyList::writeXML(ZVValue(database))) << step.what;
        EXPECT_EQ(ranges.size(), database.size()) << step.what;
        // A reader of the file finds the same places.
        EXPECT_EQ(ZVPropertyList::dictionaryEntryRanges(fileText()), ranges) << step.what;
        // And each entry reads back on its own.
        const std::string text = fileText();
        for (const auto& [key, range] : ranges)
            EXPECT_EQ(ZVPropertyList::readDictionaryEntry(std::string_view(text).substr(range.offset, range.length)),
                      std::pair(key, ZVValue(database.at(key))))
                << step.what;
    }
    // A value that cannot be had gives the write up; the file stays.
    const std::string before = fileText();
    EXPECT_FALSE(ZVPropertyList::writeDictionaryFileValues(path, 0600, {{"D", [](ZVValue&) { return false; }}}, {}, ranges));
    EXPECT_EQ(fileText(), before);

    // An entry left out of both sources is gone; with none left the file
    // holds an empty dictionary.
    ZVPropertyList::EntryRanges copied = ranges;
    copied.erase("B");
    database.erase("B");
    ASSERT_TRUE(ZVPropertyList::writeDictionaryFile(path, 0600, {}, copied, ranges));
    EXPECT_EQ(ZVPropertyList::readFile(path), ZVValue(database));
    ASSERT_TRUE(ZVPropertyList::writeDictionaryFile(path, 0600, {}, {}, ranges));
    EXPECT_EQ(fileText(), ZVPropertyList::writeXML(ZVValue(ZVDictionary{})));
    EXPECT_TRUE(ranges.empty());
}

TEST(ZVPropertyListTests, entryRangesAreOnlyFoundInTheLayoutThisProgramWrites) {
    const ZVValue database = ZVDictionary{{"A", ZVDictionary{{"x", 1}}}, {"B", ZVDictionary{}}};
    const std::string ours = ZVPropertyList::writeXML(database);
    ASSERT_TRUE(ZVPropertyList::dictionaryEntryRanges(ours));
    EXPECT_EQ(ZVPropertyList::dictionaryEntryRanges(ours)->size(), 2u);

    std::string indentedWithSpaces = ours;
    for (std::size_t at = 0; (at = indentedWithSpaces.find('\t', at)) != std::string::npos;)
        indentedWithSpaces.replace(at, 1, "  ");
    std::string otherHeader = ours;
    otherHeader.replace(0, std::strlen("<?xml version=\"1.0\""), "<?xml version='1.0'");
    const std::string cut = ours.substr(0, ours.size() - 9);
    for (const auto& [what, text] : std::vector<std::pair<const char*, std::string>>{
             {"spaces", indentedWithSpaces},
             {"another header", otherHeader},
             {"cut short", cut},
             {"empty dictionary", ZVPropertyList::writeXML(ZVValue(ZVDictionary{}))},
             {"an array", ZVPropertyList::writeXML(ZVValue(ZVArray{1}))}}) {
        EXPECT_FALSE(ZVPropertyList::dictionaryEntryRanges(text)) << what;
    }
}

TEST(ZVPropertyListTests, splicingFromAMissingFileFailsAndLeavesNothing) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/Integrations.edb";
    ZVPropertyList::EntryRanges ranges{{"kept", {0, 10}}};
    EXPECT_FALSE(ZVPropertyList::writeDictionaryFile(path, 0600, {}, {{"A", {0, 4}}}, ranges));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(ranges.size(), 1u) << "the ranges of a failed write stay as they were";
}

}  // namespace
