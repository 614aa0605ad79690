#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ZVJournalFile.h"
#include "ZVPaths.h"
#include "testkit/TemporaryHome.h"

namespace {

using State = ZVJournalFile::Contents::State;

void writeAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

TEST(ZVJournalFileTests, ChecksumIsTheCommonCRC32) {
    EXPECT_EQ(ZVJournalFile::checksum("123456789"), 0xCBF43926u);
    EXPECT_EQ(ZVJournalFile::checksum(""), 0u);
}

TEST(ZVJournalFileTests, AppendedRecordsReadBackAfterTheBaseAndTheFileStartsAgainFromANewBase) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/Test.journal";
    ZVJournalFile file;
    ASSERT_TRUE(file.replace(path, "base-1", ""));
    ASSERT_TRUE(file.append(ZVJournalFile::framedRecord("first") + ZVJournalFile::framedRecord("second")));
    ASSERT_TRUE(file.sync());
    std::string tail;
    ASSERT_TRUE(file.readTail(ZVJournalFile::header("base-1").size(), tail));
    EXPECT_EQ(tail, ZVJournalFile::framedRecord("first") + ZVJournalFile::framedRecord("second"));

    ZVJournalFile::Contents contents = ZVJournalFile::read(path);
    EXPECT_EQ(contents.state, State::intact);
    EXPECT_EQ(contents.base, "base-1");
    EXPECT_EQ(contents.records, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(contents.validLength, file.size());

    ASSERT_TRUE(file.replace(path, "base-2", ZVJournalFile::framedRecord("second")));
    ASSERT_TRUE(file.append(ZVJournalFile::framedRecord("third")));
    contents = ZVJournalFile::read(path);
    EXPECT_EQ(contents.base, "base-2");
    EXPECT_EQ(contents.records, (std::vector<std::string>{"second", "third"}));
    EXPECT_EQ(ZVJournalFile::read(home.dataDirectory() + "/None.journal").state, State::missing);
}

// What a crash or a bad disk leaves, and what the reader makes of it: a cut
// or bad last record is dropped with the rest kept; a bad record with more
// behind it, or a foreign header, is damage.
TEST(ZVJournalFileTests, ATornLastRecordIsDroppedAndDamageIsToldApart) {
    TemporaryHome home;
    const std::string path = home.dataDirectory() + "/Test.journal";
    const std::string head = ZVJournalFile::header("base");
    const std::string first = ZVJournalFile::framedRecord("first record");
    const std::string second = ZVJournalFile::framedRecord("second record");
    std::string badChecksum = second;
    badChecksum.back() ^= 0x20;
    struct Case {
        const char* what;
        std::string bytes;
        State state;
        std::size_t records;
    };
    const std::vector<Case> cases = {
        {"whole", head + first + second, State::intact, 2},
        {"cut in the frame", head + first + second.substr(0, 5), State::tornTail, 1},
        {"cut in the payload", head + first + second.substr(0, second.size() - 1), State::tornTail, 1},
        {"zeros after the last record", head + first + std::string(4096, '\0'), State::tornTail, 1},
        {"last record damaged", head + first + badChecksum, State::tornTail, 1},
        {"damaged record before a whole one", head + badChecksum + first, State::damaged, 0},
        {"foreign header", "GARBAGE" + first, State::damaged, 0},
        {"header cut short", head.substr(0, head.size() - 2), State::damaged, 0},
    };
    for (const Case& example : cases) {
        SCOPED_TRACE(example.what);
        writeAll(path, example.bytes);
        const ZVJournalFile::Contents contents = ZVJournalFile::read(path);
        EXPECT_EQ(contents.state, example.state);
        EXPECT_EQ(contents.records.size(), example.records);
        if (example.state == State::tornTail) {
            // Appending after the whole records leaves a journal that reads whole.
            ZVJournalFile file;
            ASSERT_TRUE(file.openForAppending(path, contents.validLength));
            ASSERT_TRUE(file.append(ZVJournalFile::framedRecord("after")));
            const ZVJournalFile::Contents again = ZVJournalFile::read(path);
            EXPECT_EQ(again.state, State::intact);
            EXPECT_EQ(again.records.back(), "after");
            EXPECT_EQ(again.records.size(), example.records + 1);
        }
    }
}

}  // namespace
