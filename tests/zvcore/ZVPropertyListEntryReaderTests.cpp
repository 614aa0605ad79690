#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ZVPropertyList.h"

namespace {

using Entries = std::vector<std::pair<std::string, ZVValue>>;

/// The entries read one by one, or nothing when the reader gave up. With a
/// streamed key, the elements handed over apart are put back under it.
std::optional<Entries> entriesOf(const std::string& text, const char* streamedKey = nullptr) {
    Entries entries;
    std::size_t reachedBefore = 0;
    // Each entry or element ends after the one before and inside the text.
    const auto advanced = [&](std::size_t reached) {
        EXPECT_GT(reached, reachedBefore);
        EXPECT_LE(reached, text.size());
        reachedBefore = reached;
    };
    std::string elementsOf;
    ZVArray elements;
    const auto entry = [&](std::string&& key, ZVValue&& value, std::size_t reached) {
        advanced(reached);
        if (!elements.empty()) {
            EXPECT_EQ(elementsOf, key) << "elements come right before their entry";
            EXPECT_FALSE(value.dictionary()->contains(streamedKey));
            (*value.mutableDictionary())[streamedKey] = ZVValue(std::exchange(elements, {}));
        }
        entries.emplace_back(std::move(key), std::move(value));
    };
    const bool read =
        streamedKey ? ZVPropertyList::readDictionaryEntries(text, streamedKey,
                                                            [&](const std::string& key, ZVValue&& value, std::size_t reached) {
                                                                advanced(reached);
                                                                elementsOf = key;
                                                                elements.push_back(std::move(value));
                                                            },
                                                            entry)
                    : ZVPropertyList::readDictionaryEntries(text, entry);
    if (!read) return std::nullopt;
    return entries;
}

std::string plist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

TEST(ZVPropertyListEntryReaderTests, readsWhatTheWriterWritesEntryByEntryInKeyOrder) {
    const ZVDictionary account{
        {"KDIntegrationName", "Kunden & <Partner> \"A\" 'B' \u00e9\u65e5\u672c\r\nzwei"},
        {"KDIntegrationCachedProjects",
         ZVArray{ZVDictionary{{"KDIntegrationProjectTime", std::uint64_t{18446744073709551615ull}},
                              {"KDIntegrationProjectLog", ZVArray{}},
                              {"KDIntegrationProjectSubprojects", ZVArray{ZVDictionary{}}}}}},
        {"when", ZVDate(std::chrono::duration<double>(1.7e9))},
        {"rate", -12.5},
        {"flags", ZVArray{true, false, std::int64_t{-3}, ZVData{0, 255, 7}, ""}},
    };
    const ZVDictionary root{{"b & c", account}, {"a <first>", ZVDictionary{}}, {"\u00fc", account}};
    const std::string text = ZVPropertyList::writeXML(root);

    // Whole, and with the nodes of each account handed over one by one.
    for (const char* streamed : {static_cast<const char*>(nullptr), "KDIntegrationCachedProjects", "flags"}) {
        const auto entries = entriesOf(text, streamed);
        ASSERT_TRUE(entries) << (streamed ? streamed : "whole");
        ASSERT_EQ(entries->size(), 3u);
        EXPECT_EQ((*entries)[0], (std::pair<std::string, ZVValue>{"a <first>", ZVDictionary{}}));
        EXPECT_EQ((*entries)[1], (std::pair<std::string, ZVValue>{"b & c", account}));
        EXPECT_EQ((*entries)[2], (std::pair<std::string, ZVValue>{"\u00fc", account}));
    }
    EXPECT_EQ(ZVPropertyList::read(text), ZVValue(root));
}

TEST(ZVPropertyListEntryReaderTests, namedAndNumericEntitiesAreDecoded) {
    const auto entries =
        entriesOf(plist("<dict><key>&lt;k&gt;</key><string>&amp;&quot;&apos;&#233;&#x65E5;&#x1F600;&#13;x</string>"
                        "<key>z</key><string/></dict>"));
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->size(), 2u);
    EXPECT_EQ((*entries)[0].first, "<k>");
    EXPECT_EQ((*entries)[0].second, ZVValue("&\"'\u00e9\u65e5\U0001F600\rx"));
    EXPECT_EQ((*entries)[1].second, ZVValue(""));
}

// What the entry reader does not know for certain, the general reader reads;
// read() gives the same value as before either way.
TEST(ZVPropertyListEntryReaderTests, unusualLayoutsAreLeftToTheGeneralReader) {
    const std::vector<std::pair<std::string, ZVValue>> cases = {
        {plist("<dict><key>a</key><string><![CDATA[x<y]]></string></dict>"), ZVDictionary{{"a", "x<y"}}},
        {plist("<dict><key>a</key><string>one\r\ntwo</string></dict>"), ZVDictionary{{"a", "one\ntwo"}}},
        {plist("<dict><key>b</key><integer>1</integer><key>a</key><integer>2</integer></dict>"),
         ZVDictionary{{"a", 2}, {"b", 1}}},
        {plist("<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer></dict>"),
         ZVDictionary{{"a", 2}}},
        {plist("<dict><key>a</key><string id=\"1\">x</string></dict>"), ZVDictionary{{"a", "x"}}},
        {plist("<dict><key>a</key><string>x&nbsp;y</string></dict>"), ZVDictionary{{"a", "x&nbsp;y"}}},
        {"<dict><key>a</key><true/></dict>", ZVDictionary{{"a", true}}},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><dict><key>a</key><string>caf\xe9</string></dict>"
         "</plist>",
         ZVDictionary{{"a", "caf\u00e9"}}},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_FALSE(entriesOf(text)) << text;
        EXPECT_EQ(ZVPropertyList::read(text), expected) << text;
    }
}

TEST(ZVPropertyListEntryReaderTests, corruptTextIsRefusedAfterWhatever) {
    const std::string cases[] = {
        plist("<dict><key>a</key><dict><key>b</key><string>x</string>"),
        plist("<dict><key>a</key><integer>12x</integer></dict>"),
        plist("<dict><key>a</key><string>x</strin></dict>"),
        plist("<dict><key>a</key><string>&#0;</string></dict>"),
        plist("<dict><key>a</key></dict>"),
        plist("<array><string>not a dictionary</string></array>"),
        plist("<dict></dict>") + "<plist/>",
        plist("<dict><key>a</key><dict><key>s</key><array><integer>1x</integer></array></dict></dict>"),
        plist("<dict><key>a</key><dict><key>s</key><array><string>x</string></dict></dict>"),
    };
    for (const auto& text : cases) {
        EXPECT_FALSE(entriesOf(text)) << text;
        EXPECT_FALSE(entriesOf(text, "s")) << text;
    }
    EXPECT_FALSE(ZVPropertyList::read(cases[0]));
    EXPECT_FALSE(ZVPropertyList::read(cases[1]));
    const auto empty = entriesOf(plist("<dict/>"));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
}

}  // namespace
