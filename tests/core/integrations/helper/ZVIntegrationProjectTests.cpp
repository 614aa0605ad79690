#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {

using Pointer = ZVIntegrationProject::Pointer;
using OptionalID = std::optional<std::string>;

Pointer node(const std::string& name, std::uint64_t time = 0) {
    auto project = ZVIntegrationProject::create(name, name + "-id");
    project->setTimeWithoutSaving(time);
    return project;
}

// Equality of remote identity.

struct Identity {
    std::string projectID;
    OptionalID subprojectID;
    OptionalID additionalID;
    OptionalID fourthID;
};

struct EqualityCase {
    const char* label;
    Identity first;
    Identity second;
    bool equal;
};

Pointer withIdentity(const Identity& identity, const std::string& name) {
    auto project = ZVIntegrationProject::create(name, identity.projectID, identity.subprojectID);
    project->setAdditionalID(identity.additionalID);
    project->setFourthID(identity.fourthID);
    return project;
}

TEST(ProjectEqualityTest, ComparesRemoteIdentifiersOnly) {
    const auto none = std::nullopt;
    const EqualityCase cases[] = {
        {"sameProjectID", {"1", none, none, none}, {"1", none, none, none}, true},
        {"otherProjectID", {"1", none, none, none}, {"2", none, none, none}, false},
        {"emptySubprojectIDsAreBlank", {"1", "", none, none}, {"1", "", none, none}, true},
        {"emptyAgainstAbsentIsBlankToo", {"1", "", none, none}, {"1", none, "", none}, true},
        {"emptySubprojectAgainstAdditionalOnly", {"1", "", none, none}, {"1", none, "7", none}, false},
        {"sameSubprojectID", {"1", "a", none, none}, {"1", "a", none, none}, true},
        {"otherSubprojectID", {"1", "a", none, none}, {"1", "b", none, none}, false},
        {"subprojectAgainstAbsent", {"1", "a", none, none}, {"1", none, none, none}, false},
        {"subprojectAgainstEmpty", {"1", "a", none, none}, {"1", "", none, none}, false},
        {"sameSubprojectOtherProject", {"1", "a", none, none}, {"2", "a", none, none}, false},
        {"allThreeEqual", {"1", "a", "x", none}, {"1", "a", "x", none}, true},
        {"otherAdditionalID", {"1", "a", "x", none}, {"1", "a", "y", none}, false},
        {"additionalAgainstAbsent", {"1", "a", "x", none}, {"1", "a", none, none}, false},
        {"fourthIDPlaysNoPart", {"1", "a", none, "p"}, {"1", "a", none, "q"}, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        auto first = withIdentity(row.first, "One");
        auto second = withIdentity(row.second, "Two");
        first->setTimeWithoutSaving(10);
        EXPECT_EQ(first->isEqualToProject(*second), row.equal);
        EXPECT_EQ(second->isEqualToProject(*first), row.equal);
    }
}

// Time and its save threshold.

TEST(ProjectTimeTest, SavesTheAccountFromAChangeOfThreeSeconds) {
    const struct {
        std::uint64_t from, to;
        bool saves;
    } cases[] = {{10, 12, false}, {10, 13, true}, {13, 10, true}, {12, 10, false}, {10, 10, false}, {0, 3600, true}};
    for (const auto& row : cases) {
        SCOPED_TRACE(std::to_string(row.from) + " -> " + std::to_string(row.to));
        auto account = RecordingIntegration::make("Work");
        auto project = node("Task", row.from);
        project->setIntegration(account);
        project->setTime(row.to);
        EXPECT_EQ(project->time(), row.to);
        EXPECT_EQ(account->saveCount, row.saves ? 1 : 0);
    }
}

TEST(ProjectTimeDeathTest, ChangesThatCannotBeSavedAreProgrammingErrors) {
    auto orphan = node("Orphan", 10);
    orphan->setTime(12);  // below the threshold nothing needs the account
    EXPECT_DEATH(orphan->setTime(20), "");
}

TEST(ProjectTimeTest, TimesOutOfRangeAreBroughtIntoRangeNotFatal) {
    auto account = RecordingIntegration::make("Work");
    auto project = node("Huge", 10);
    project->setIntegration(account);
    project->setTime(std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(project->time(), ZVIntegrationProject::maximumTime);

    struct Row {
        ZVValue stored;
        std::uint64_t read;
    } const rows[] = {{ZVValue(std::int64_t{-5}), 0},
                      {ZVValue(std::numeric_limits<std::uint64_t>::max()), ZVIntegrationProject::maximumTime},
                      {ZVValue(-1.5), 0},
                      {ZVValue(1e300), ZVIntegrationProject::maximumTime},
                      {ZVValue(std::int64_t{3600}), 3600},
                      {ZVValue(std::string("12")), 0}};
    for (const Row& row : rows) {
        const ZVDictionary stored{{ZVIntegrationProject::timeKey, row.stored}};
        EXPECT_EQ(ZVIntegrationProject::storedTime(stored, "Node"), row.read);
    }
}

// Identity and tree structure.

// Nodes have identity: they are shared, never copied.
static_assert(!std::is_copy_constructible_v<ZVIntegrationProject>);
static_assert(!std::is_copy_assignable_v<ZVIntegrationProject>);

TEST(ProjectTreeTest, AddingChildrenPassesTheAccountDownTwoLevels) {
    auto account = RecordingIntegration::make("Work");
    auto parent = node("Parent");
    parent->setIntegration(account);
    auto child = node("Child");
    auto grandchild = node("Grandchild");
    auto greatGrandchild = node("Great");
    grandchild->addSubproject(greatGrandchild);
    child->addSubproject(grandchild);

    parent->addSubproject(child);
    EXPECT_EQ(child->parentProject(), parent);
    EXPECT_EQ(child->integration(), account);
    EXPECT_EQ(grandchild->integration(), account);
    EXPECT_EQ(greatGrandchild->integration(), nullptr);

    auto adopted = node("Adopted");
    parent->addSubprojectsFromArray({adopted});
    EXPECT_EQ(adopted->parentProject(), parent);
    EXPECT_EQ(adopted->integration(), nullptr);
    EXPECT_EQ(parent->subprojects().size(), 2u);
}

TEST(ProjectTreeTest, RemovingAChildKeepsItsParentLinkButDestroyingTheParentClearsIt) {
    auto parent = node("Parent");
    auto child = node("Child");
    auto stranger = node("Stranger");
    parent->addSubproject(child);

    parent->removeSubproject(stranger);
    EXPECT_EQ(parent->subprojects().size(), 1u);
    parent->removeSubproject(child);
    EXPECT_FALSE(parent->hasSubprojects());
    EXPECT_EQ(child->parentProject(), parent);

    parent->addSubproject(child);
    parent.reset();
    EXPECT_EQ(child->parentProject(), nullptr);
}

TEST(ProjectTreeTest, UnpostedTimeCountsDescendantsOnly) {
    auto leaf = node("Leaf", 30);
    EXPECT_FALSE(leaf->containsSubprojectWithUnpostedTime());

    auto root = node("Root", 10);
    auto middle = node("Middle");
    root->addSubproject(middle);
    EXPECT_FALSE(root->containsSubprojectWithUnpostedTime());
    middle->addSubproject(leaf);
    EXPECT_TRUE(root->containsSubprojectWithUnpostedTime());
}

TEST(ProjectTreeTest, ClearEmptySubprojectsKeepsOnlyBranchesWithTime) {
    auto root = node("Root");
    auto emptyBranch = node("EmptyBranch");
    emptyBranch->addSubproject(node("EmptyLeaf"));
    auto loggedOnly = node("LoggedOnly");
    loggedOnly->addLogEntry(std::make_shared<ZVTimeLogEntry>());
    auto timedBranch = node("TimedBranch");
    timedBranch->addSubproject(node("EmptySibling"));
    timedBranch->addSubproject(node("TimedLeaf", 5));
    root->addSubproject(emptyBranch);
    root->addSubproject(loggedOnly);
    root->addSubproject(timedBranch);
    root->addSubproject(node("TimedTop", 1));

    root->clearEmptySubprojects();
    ASSERT_EQ(root->subprojects().size(), 2u);
    EXPECT_EQ(root->subprojects()[0], timedBranch);
    EXPECT_EQ(root->subprojects()[1]->name(), "TimedTop");
    ASSERT_EQ(timedBranch->subprojects().size(), 1u);
    EXPECT_EQ(timedBranch->subprojects()[0]->name(), "TimedLeaf");
}

TEST(ProjectTreeTest, SortingIsByteWiseAndOnlyOneLevel) {
    auto root = node("Root");
    auto lower = node("b");
    lower->addSubproject(node("z"));
    lower->addSubproject(node("y"));
    root->addSubproject(lower);
    root->addSubproject(node("B"));
    root->addSubproject(node("a"));
    root->addSubproject(node("\u00c4pfel"));

    root->sortSubprojectsByName();
    EXPECT_EQ(namesOf(root->subprojects()), (std::vector<std::string>{"B", "a", "b", "\u00c4pfel"}));
    EXPECT_EQ(lower->subprojects()[0]->name(), "z");
}

TEST(ProjectTreeTest, LastTimeLogEntrySkipsOtherKindsOfRecord) {
    auto project = node("Task");
    EXPECT_EQ(project->lastTimeLogEntry(), nullptr);
    EXPECT_EQ(project->lastEntryTitle(), "");

    auto run = std::make_shared<ZVTimeLogEntry>();
    run->setText("Review");
    project->addLogEntry(std::make_shared<ZVTimeLogEntry>());
    project->addLogEntry(run);
    project->addLogEntry(std::make_shared<ZVResetLogEntry>());
    EXPECT_EQ(project->lastTimeLogEntry(), run);
    EXPECT_EQ(project->lastEntryTitle(), "Review");
    EXPECT_EQ(run->project(), project);

    project->removeLogEntry(run);
    EXPECT_EQ(project->logEntries().size(), 2u);
    EXPECT_EQ(project->lastEntryTitle(), "");
}

// Paths.

TEST(ProjectPathTest, PathStartsWithTheAccountName) {
    TimerTestEnvironment environment;
    auto account = RecordingIntegration::make("Client A");
    auto parent = node("Website");
    parent->setIntegration(account);
    auto child = node("Checkout");
    parent->addSubproject(child);
    EXPECT_EQ(child->fullProjectPath(), "Client A \u2794 Website \u2794 Checkout");

    auto local = ZVIntegrationProject::create("Garden", "g");
    local->setIntegration(ZVNorvoIntegration::sharedIntegration());
    EXPECT_EQ(local->fullProjectPath(), "Projects \u2794 Garden");

    account.reset();
    EXPECT_EQ(child->fullProjectPath(), " \u2794 Website \u2794 Checkout");
}

// The log as text.

TEST(ProjectLogStringTest, HeaderPlaceholderAndTitlesShownOnceOverRunsOfTheSameTitle) {
    ManualClock clock;
    auto project = node("Task");
    const std::string empty = project->logString();
    const auto firstLine = empty.substr(0, empty.find('\n'));
    ASSERT_EQ(firstLine.rfind("TODAY: ", 0), 0u);
    EXPECT_EQ(firstLine.find_first_of("/."), std::string::npos);
    EXPECT_GT(firstLine.size(), std::string("TODAY: ").size());
    EXPECT_EQ(empty.substr(firstLine.size()),
              "\n-------------------------------------------\nNO ENTRIES YET\n----------------\nTOTAL: 0 SECONDS");

    // A title shows once over runs of the same title, until another record.
    project->setTimeWithoutSaving(3725);
    auto run = [&](const std::string& title) {
        auto entry = std::make_shared<ZVTimeLogEntry>();
        entry->setText(title);
        entry->setStopDate(clock.now());
        project->addLogEntry(entry);
        return entry->entryDescription(true);
    };
    const std::string first = run("Design");
    const std::string second = run("Design");
    project->addLogEntry(std::make_shared<ZVResetLogEntry>());
    const std::string third = run("Design");

    const std::string text = project->logString();
    const std::string body = text.substr(text.find("-\n") + 2);
    EXPECT_EQ(body, "Design\n" + first + "\n" + second + "\nReset time for 'Task'\nDesign\n" + third +
                        "\n-----------------------\nTOTAL: 1 HOUR 2 MINUTES");
}

TEST(ProjectLogStringTest, LongLogIsBuiltInOnePass) {
    ManualClock clock;
    auto project = node("Task");
    constexpr int entries = 100000;
    for (int index = 0; index < entries; ++index) {
        auto entry = std::make_shared<ZVTimeLogEntry>();
        entry->setText(index % 2 ? "Odd" : "Even");
        project->addLogEntry(entry);
    }
    // A quadratic build would not finish within the test's time limit.
    const std::string text = project->logString();
    EXPECT_GT(text.size(), static_cast<std::size_t>(entries) * 10);
}

TEST(ProjectTotalTimeTest, CountsHoursModuloSixty) {
    const std::pair<std::uint64_t, const char*> cases[] = {
        {0, "0 SECONDS"},           {59, "59 SECONDS"},          {60, "1 MINUTE 0 SECONDS"},
        {3599, "59 MINUTES 59 SECONDS"}, {3600, "1 HOUR 0 MINUTES"}, {3725, "1 HOUR 2 MINUTES"},
        {7321, "2 HOURS 2 MINUTES"},  {215999, "59 HOURS 59 MINUTES"}, {216000, "0 SECONDS"},
        {216061, "1 MINUTE 1 SECOND"}, {219600, "1 HOUR 0 MINUTES"},
    };
    for (const auto& [seconds, text] : cases) EXPECT_EQ(node("Task", seconds)->totalTimeString(), text) << seconds;
}

// The dictionary form.

TEST(ProjectDictionaryTest, WrongTypesReadAsDefaultsAndAMissingIdentifierAsAFreshUUID) {
    const ZVDictionary dictionary{{"KDIntegrationProjectName", 5},
                                  {"KDIntegrationSubprojectID", 3},
                                  {"KDIntegrationProjectTime", "100"},
                                  {"KDIntegrationProjectLog", "none"},
                                  {"KDIntegrationProjectSubprojects", ZVDictionary{}}};
    auto project = ZVIntegrationProject::createWithDictionary(dictionary, {});
    EXPECT_EQ(project->name(), "");
    EXPECT_EQ(project->subprojectID(), std::nullopt);
    EXPECT_EQ(project->time(), 0u);
    EXPECT_TRUE(project->logEntries().empty());
    EXPECT_FALSE(project->hasSubprojects());

    auto second = ZVIntegrationProject::createWithDictionary(dictionary, {});
    EXPECT_TRUE(isUUID(project->projectID())) << project->projectID();
    EXPECT_NE(project->projectID(), second->projectID());
    EXPECT_TRUE(isUUID(ZVIntegrationProject::create()->projectID()));
}

TEST(ProjectDictionaryTest, RecordsThatCannotBeReadAreSkipped) {
    ManualClock clock;
    const ZVDictionary stored{
        {"KDIntegrationProjectName", "Task"},
        {"KDIntegrationProjectID", "t"},
        {"KDIntegrationProjectLog",
         ZVArray{ZVDictionary{{"KDLogEntryText", "First"}}, ZVDictionary{{"KDLogEntryClass", "KDNothing"}}, "text",
                 ZVDictionary{{"KDLogEntryClass", "KDResetLogEntry"}}}}};
    auto project = ZVIntegrationProject::createWithDictionary(stored, {});
    ASSERT_EQ(project->logEntries().size(), 2u);
    EXPECT_EQ(project->logEntries()[0]->text(), "First");
    EXPECT_EQ(project->logEntries()[1]->text(), "Reset time for 'Task'");
}

TEST(ProjectDictionaryTest, OnlyTheCurrentProjectIsMarkedAndTheFirstMarkedBecomesCurrent) {
    TimerTestEnvironment environment;
    auto account = RecordingIntegration::make("Work");
    auto root = ZVIntegrationProject::create("Root", "1");
    root->setIntegration(account);
    auto marked = [](const std::string& name) {
        auto child = ZVIntegrationProject::create(name, name);
        child->setTimeWithoutSaving(77);
        return child;
    };
    root->addSubproject(marked("First"));
    root->addSubproject(marked("Second"));
    auto& center = ZVIntegrationCenter::shared();
    center.setCurrentProject(root->subprojects()[0]);
    ZVDictionary stored = root->dictionaryRepresentation();
    EXPECT_EQ(stored.count("KDIntegrationProjectIsSelected"), 0u);
    ZVArray children = *ZVArrayValue(stored, "KDIntegrationProjectSubprojects");
    EXPECT_EQ(children[0].dictionary()->at("KDIntegrationProjectIsSelected"), ZVValue(true));
    EXPECT_EQ(children[1].dictionary()->count("KDIntegrationProjectIsSelected"), 0u);

    // Read back with both children marked, the first one becomes current.
    center.setCurrentProject(nullptr);
    ZVDictionary second = *children[1].dictionary();
    second["KDIntegrationProjectIsSelected"] = true;
    children[1] = ZVValue(second);
    stored["KDIntegrationProjectSubprojects"] = children;
    auto read = ZVIntegrationProject::createWithDictionary(stored, account);
    ASSERT_TRUE(center.currentProject());
    EXPECT_EQ(center.currentProject(), read->subprojects()[0]);
    EXPECT_EQ(ZVHeartBeat::sharedHeartBeat().currentTime(), 77u);
}

}  // namespace
