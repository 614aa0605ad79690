#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "ZVLog.h"
#include "ZVPropertyList.h"
#include "ZVTime.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVLogEntry.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "testkit/LogCapture.h"
#include "testkit/ManualClock.h"

namespace {

enum class Kind { none, base, run, timeSet, reset };

Kind kindOf(const std::shared_ptr<ZVLogEntry>& entry) {
    if (!entry) return Kind::none;
    if (std::dynamic_pointer_cast<ZVTimeLogEntry>(entry)) return Kind::run;
    if (std::dynamic_pointer_cast<ZVTimeSetLogEntry>(entry)) return Kind::timeSet;
    if (std::dynamic_pointer_cast<ZVResetLogEntry>(entry)) return Kind::reset;
    return Kind::base;
}

struct FactoryCase {
    const char* label;
    ZVValue storedClass;  // null: key left out
    Kind expected;
    const char* errorName;  // the name in the error line, or nullptr when there is none
};

TEST(LogEntryFactoryTest, BuildsTheNamedClassOrNothing) {
    const FactoryCase cases[] = {
        {"missing", ZVValue(), Kind::run, nullptr},
        {"number", ZVValue(7), Kind::run, nullptr},
        {"oldReset", ZVValue("KDResetLogEntry"), Kind::reset, nullptr},
        {"reset", ZVValue("Norvo.ZVResetLogEntry"), Kind::reset, nullptr},
        {"oldRun", ZVValue("KDTimeLogEntry"), Kind::run, nullptr},
        {"timeSet", ZVValue("Norvo.ZVTimeSetLogEntry"), Kind::timeSet, nullptr},
        {"oldTimeSet", ZVValue("KDTimeSetLogEntry"), Kind::timeSet, nullptr},
        {"base", ZVValue("Norvo.ZVLogEntry"), Kind::base, nullptr},
        {"withoutModule", ZVValue("ZVResetLogEntry"), Kind::none, "ZVResetLogEntry"},
        {"oldUnknown", ZVValue("KDCoffeeBreak"), Kind::none, "Norvo.ZVCoffeeBreak"},
        {"notAnEntry", ZVValue("Norvo.ZVIntegrationProject"), Kind::none, "Norvo.ZVIntegrationProject"},
    };
    for (const FactoryCase& row : cases) {
        SCOPED_TRACE(row.label);
        ZVDictionary dictionary{{"KDLogEntryText", "Writing"}, {"KDLogEntryDate", ManualClock::defaultStart()}};
        if (!row.storedClass.isNull()) dictionary["KDLogEntryClass"] = row.storedClass;
        LogCapture log;
        const auto entry = ZVLogEntry::logEntryWithDictionary(dictionary);
        EXPECT_EQ(kindOf(entry), row.expected);
        if (row.errorName) {
            EXPECT_TRUE(log.contains(std::string("******** ERROR: Cannot find class named ") + row.errorName + "!"));
        } else {
            EXPECT_FALSE(log.contains("Cannot find class named"));
        }
    }
}

// Asking a bare base entry for its date, or a reset entry without its
// project for its sentence, is a programming error.
TEST(LogEntryDeathTest, BareBaseEntryHasTextButNoDateAndAResetOneNeedsItsProject) {
    const auto entry = ZVLogEntry::logEntryWithDictionary({{"KDLogEntryClass", "Norvo.ZVLogEntry"}, {"KDLogEntryText", "x"}});
    ASSERT_EQ(kindOf(entry), Kind::base);
    EXPECT_EQ(entry->text(), "x");
    EXPECT_EQ(entry->entryDescription(true), "x");
    EXPECT_DEATH(entry->date(), "");
    ZVResetLogEntry orphan;
    EXPECT_DEATH((void)orphan.text(), "");
}

TEST(LogEntryTest, WrongTypesReadAsDefaults) {
    ManualClock clock;
    const ZVDictionary dictionary{{"KDLogEntryClass", "Norvo.ZVTimeSetLogEntry"},
                                  {"KDLogEntryText", 12},
                                  {"KDLogEntryDate", "yesterday"},
                                  {"KDTimeSetLogEntryOriginalTime", "5"},
                                  {"KDTimeSetLogEntryNewTime", ZVValue(ZVArray{})}};
    const auto entry = std::dynamic_pointer_cast<ZVTimeSetLogEntry>(ZVLogEntry::logEntryWithDictionary(dictionary));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->date(), clock.now());
    EXPECT_EQ(entry->originalTime(), 0u);
    EXPECT_EQ(entry->newTime(), 0u);

    const auto run = std::dynamic_pointer_cast<ZVTimeLogEntry>(ZVLogEntry::logEntryWithDictionary(
        {{"KDLogEntryText", ZVValue(3.5)}, {"KDLogEntryStartDate", 1}, {"KDLogEntryStopDate", "later"}}));
    ASSERT_TRUE(run);
    EXPECT_EQ(run->text(), "");
    EXPECT_EQ(run->startDate(), clock.now());
    EXPECT_FALSE(run->stopDate());
}

TEST(TimeLogEntryTest, RunSurvivesTheDatabaseFormatWithOrWithoutAStopDate) {
    ManualClock clock;
    ZVTimeLogEntry run;
    run.setText("Ticket 42 \u2013 review");
    for (const bool stopped : {false, true}) {
        SCOPED_TRACE(stopped);
        if (stopped) run.setStopDate(clock.now() + std::chrono::duration<double>(3600));
        const ZVDictionary dictionary = run.dictionaryRepresentation();
        EXPECT_EQ(dictionary.count("KDLogEntryStopDate"), stopped ? 1u : 0u);
        EXPECT_EQ(ZVStringValue(dictionary, "KDLogEntryClass"), "Norvo.ZVTimeLogEntry");
        // Through the property-list text, as in the database file.
        const auto stored = ZVPropertyList::read(ZVPropertyList::writeXML(ZVValue(dictionary)));
        ASSERT_TRUE(stored && stored->dictionary());
        const auto read = ZVLogEntry::logEntryWithDictionary(*stored->dictionary());
        const auto readRun = std::dynamic_pointer_cast<ZVTimeLogEntry>(read);
        ASSERT_TRUE(readRun);
        EXPECT_EQ(typeid(*read), typeid(ZVTimeLogEntry));
        EXPECT_EQ(readRun->text(), run.text());
        EXPECT_EQ(readRun->startDate(), run.startDate());
        EXPECT_EQ(readRun->stopDate(), run.stopDate());
    }
}

TEST(TimeLogEntryTest, DescriptionShowsTitleOnlyWhenAskedAndPresent) {
    ManualClock clock;
    ZVTimeLogEntry run;
    const std::string started = "STARTED: " + ZVLogEntry::dateString(run.startDate());
    EXPECT_EQ(run.entryDescription(false), started);  // no empty first line

    run.setText("Design");
    EXPECT_EQ(run.entryDescription(false), "Design\n" + started);
    EXPECT_EQ(run.entryDescription(true), started);

    run.setStopDate(clock.now());
    EXPECT_EQ(run.entryDescription(true), started + "\nSTOPPED: " + ZVLogEntry::dateString(clock.now()));
}

TEST(LogEntryTest, DateStringAddsTheDateOnlyForOtherDays) {
    ManualClock clock;
    const std::string today = ZVLogEntry::dateString(clock.now());
    EXPECT_FALSE(today.empty());
    EXPECT_EQ(today.find('\t'), std::string::npos);

    const ZVDate twoDaysAgo = clock.now() - std::chrono::duration<double>(2 * 86400);
    const std::string older = ZVLogEntry::dateString(twoDaysAgo);
    const auto tabs = older.find("\t\t");
    ASSERT_NE(tabs, std::string::npos);
    EXPECT_EQ(older.substr(tabs + 2), ZVLogEntry::shortDateString(twoDaysAgo));
    EXPECT_NE(ZVLogEntry::shortDateString(twoDaysAgo), ZVLogEntry::shortDateString(clock.now()));
}

class ComputedSentenceTest : public testing::Test {
protected:
    ManualClock clock;
    ZVIntegrationProject::Pointer project = ZVIntegrationProject::create("Website", "17");
};

TEST_F(ComputedSentenceTest, TimeSetEntryNamesProjectAndNewTime) {
    auto entry = std::make_shared<ZVTimeSetLogEntry>(project);
    entry->setOriginalTime(100);
    entry->setNewTime(5400);
    const std::string sentence = "Changing time to " + ZVTime::timeString(5400) + " for 'Website'";
    EXPECT_EQ(entry->text(), sentence);

    entry->setText("something else");
    EXPECT_EQ(entry->text(), sentence);
    EXPECT_EQ(entry->entryDescription(true), sentence);

    const ZVDictionary dictionary = entry->dictionaryRepresentation();
    EXPECT_EQ(ZVStringValue(dictionary, "KDLogEntryText"), sentence);
    EXPECT_EQ(ZVUnsignedValue(dictionary, "KDTimeSetLogEntryOriginalTime"), 100u);
    EXPECT_EQ(ZVUnsignedValue(dictionary, "KDTimeSetLogEntryNewTime"), 5400u);
    EXPECT_EQ(ZVDateValue(dictionary, "KDLogEntryDate"), clock.now());
}

TEST_F(ComputedSentenceTest, ResetSentenceFollowsTheProjectsCurrentName) {
    auto entry = std::make_shared<ZVResetLogEntry>(project);
    entry->setText("ignored");
    EXPECT_EQ(entry->text(), "Reset time for 'Website'");
    EXPECT_EQ(entry->entryDescription(false), "Reset time for 'Website'");
    const ZVDictionary stored = entry->dictionaryRepresentation();

    project->setName("Web shop");
    const auto read = ZVLogEntry::logEntryWithDictionary(stored);
    ASSERT_EQ(kindOf(read), Kind::reset);
    project->addLogEntry(read);
    EXPECT_EQ(ZVStringValue(stored, "KDLogEntryText"), "Reset time for 'Website'");
    EXPECT_EQ(read->text(), "Reset time for 'Web shop'");
    EXPECT_NE(project->logString().find("Reset time for 'Web shop'"), std::string::npos);
    EXPECT_EQ(project->logString().find("Website"), std::string::npos);
}

}  // namespace
