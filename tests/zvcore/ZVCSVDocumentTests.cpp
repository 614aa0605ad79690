#include <gtest/gtest.h>

#include <cstdlib>

#include "ZVCSVDocument.h"
#include "ZVPaths.h"
#include "testkit/ManualClock.h"
#include "testkit/TemporaryHome.h"

namespace {

TEST(ZVCSVDocumentTests, fieldsAreQuotedAfterRFC4180) {
    struct Case {
        const char* field;
        const char* written;
    } cases[] = {
        {"plain", "plain"},          {"a,b", "\"a,b\""},       {"say \"hi\"", "\"say \"\"hi\"\"\""},
        {"two\nlines", "\"two\nlines\""}, {"cr\r", "\"cr\r\""}, {"", ""}, {" spaced ", " spaced "},
    };
    for (const auto& c : cases) EXPECT_EQ(ZVCSVDocument::escapedField(c.field), c.written) << c.field;
}

TEST(ZVCSVDocumentTests, appendedRecordsReadBackAsTheirFields) {
    std::string text;
    ZVCSVDocument::appendRecord(text, {"Start", "Comment", "Project Path"});
    ZVCSVDocument::appendRecord(text, {"", "a,b \"c\"\r\nnext", "Projects \u2794 Web"});
    EXPECT_EQ(text, "Start,Comment,Project Path\r\n,\"a,b \"\"c\"\"\r\nnext\",Projects \u2794 Web\r\n");
    const auto parsed = ZVCSVDocument::parse(text);
    ASSERT_TRUE(parsed);
    ASSERT_EQ(parsed->rows().size(), 1u);
    EXPECT_EQ(std::get<std::string>(parsed->rows()[0].at("Comment")), "a,b \"c\"\r\nnext");
    EXPECT_EQ(std::get<std::string>(parsed->rows()[0].at("Project Path")), "Projects \u2794 Web");
}

TEST(ZVCSVDocumentTests, rowsWithDatesAndMissingCells) {
    setenv("TZ", "UTC", 1);
    tzset();
    ZVCSVDocument document({"Start", "Stop", "Comment"});
    document.addRow({{"Start", ManualClock::date(2024, 3, 1, 9, 0)},
                     {"Stop", ManualClock::date(2024, 3, 1, 10, 30)},
                     {"Comment", std::string("Review, \"final\"")}});
    document.addRow({{"Start", ManualClock::date(2024, 3, 2, 8, 0)}, {"Unknown", std::string("ignored")}});
    EXPECT_EQ(document.stringValue(),
              "Start,Stop,Comment\r\n"
              "2024-03-01T09:00:00+00:00,2024-03-01T10:30:00+00:00,\"Review, \"\"final\"\"\"\r\n"
              "2024-03-02T08:00:00+00:00,,\r\n");
    unsetenv("TZ");
    tzset();
}

TEST(ZVCSVDocumentTests, parsingReadsWhatWritingWrote) {
    ZVCSVDocument document({"Comment", "Project Path"});
    document.addRow({{"Comment", std::string("multi\r\nline, \"quoted\"")}, {"Project Path", std::string("A/B")}});
    document.addRow({{"Project Path", std::string("only path")}});
    auto parsed = ZVCSVDocument::parse(document.stringValue());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->columns(), document.columns());
    ASSERT_EQ(parsed->rows().size(), 2u);
    EXPECT_EQ(std::get<std::string>(parsed->rows()[0].at("Comment")), "multi\r\nline, \"quoted\"");
    EXPECT_EQ(parsed->rows()[1].count("Comment"), 0u);
    EXPECT_FALSE(ZVCSVDocument::parse("a,b\r\n\"open quote"));
    EXPECT_FALSE(ZVCSVDocument::parse(""));
}

TEST(ZVCSVDocumentTests, aDocumentWithoutRowsWritesItsHeaderToAFile) {
    TemporaryHome home;
    ZVCSVDocument document({"Start", "Stop", "Comment", "Project Path", "Project Name"});
    const std::string path = home.path() + "/Norvo Log.csv";
    ASSERT_TRUE(document.write(path));
    std::string bytes;
    ASSERT_TRUE(ZVPaths::readFile(path, bytes));
    EXPECT_EQ(bytes, "Start,Stop,Comment,Project Path,Project Name\r\n");
    EXPECT_FALSE(document.write(home.path() + "/missing/folder/x.csv"));
}

}  // namespace
