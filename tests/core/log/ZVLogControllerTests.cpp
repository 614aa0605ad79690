#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "ZVHelpers.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/log/ZVLogController.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "core/ui/ZVLogView.h"
#include "testkit/FakeServer.h"

namespace {

class RecordingLogView : public ZVLogView {
public:
    void setLogText(const std::string& text) override { logText = text; }
    std::string currentTaskName() const override { return taskName; }
    void setCurrentTaskName(const std::string& name) override { taskName = name; }
    int selectedTimePeriod() const override { return period; }
    std::optional<std::string> chooseCSVExportPath(const std::string& suggestedName) override {
        suggestedNames.push_back(suggestedName);
        return exportPath;
    }

    std::string logText;
    std::string taskName;
    int period = 2;
    std::optional<std::string> exportPath;
    std::vector<std::string> suggestedNames;
};

ZVDate at(int day, int hour, int minute = 0) { return ManualClock::date(2024, 3, day, hour, minute); }

class LogControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Days begin at midnight UTC, as the dates of these tests do.
        setenv("TZ", "UTC", 1);
        tzset();
        env.clock.set(at(20, 23));
        account = env.makeAccount("http://127.0.0.1:9");
        project = env.addProject(*account, "1", 0, "Design");
        env.setCurrentProject(project);
        controller.awake();
    }

    std::shared_ptr<ZVTimeLogEntry> addRun(const std::shared_ptr<ZVIntegrationProject>& target, ZVDate start,
                                           double seconds, const std::string& title = "Work") {
        auto run = std::make_shared<ZVTimeLogEntry>(target);
        run->setStartDate(start);
        run->setStopDate(start + std::chrono::duration<double>(seconds));
        run->setText(title);
        target->addLogEntry(run);
        return run;
    }

    CoreTestEnvironment env;
    RecordingLogView view;
    ZVLogController controller{view};
    std::shared_ptr<TestServiceIntegration> account;
    std::shared_ptr<ZVIntegrationProject> project;
};

TEST_F(LogControllerTest, ARunReachesTheLogAtTheStopWithTheFieldsTitle) {
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    EXPECT_TRUE(project->logEntries().empty());
    auto running = std::dynamic_pointer_cast<ZVTimeLogEntry>(controller.currentLogEntry());
    ASSERT_TRUE(running);
    EXPECT_FALSE(running->stopDate());
    view.taskName = "Wireframes";
    env.timers.advance(90);
    heartBeat.stop();
    ASSERT_EQ(project->logEntries().size(), 1u);
    EXPECT_EQ(project->logEntries()[0], running);
    EXPECT_EQ(running->text(), "Wireframes");
    EXPECT_EQ(*running->stopDate(), env.clock.now());
    EXPECT_EQ(project->time(), 90u);
    EXPECT_NE(view.logText.find("Wireframes\n"), std::string::npos);
    EXPECT_NE(view.logText.find("TOTAL: 1 MINUTE 30 SECONDS"), std::string::npos);
}

TEST_F(LogControllerTest, AStopWithAnEmptyFieldGivesARunWithoutATitleLine) {
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    env.timers.advance(10);
    heartBeat.stop();
    const auto run = project->lastTimeLogEntry();
    ASSERT_TRUE(run);
    EXPECT_EQ(run->text(), "");
    const std::string header = view.logText.substr(0, view.logText.find("-\n") + 2);
    EXPECT_EQ(view.logText.substr(header.size(), 9), "STARTED: ");
}

TEST_F(LogControllerTest, WhileARunIsOpenTheTaskTextIsItsTitleAndTheFinishedRunKeepsItsOwn) {
    auto yesterday = addRun(project, at(19, 9), 60, "Sketches");
    view.taskName = "Sketches";
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.start();
    auto running = std::dynamic_pointer_cast<ZVTimeLogEntry>(controller.currentLogEntry());
    EXPECT_EQ(running->text(), "Sketches");
    ZVActionCenter::shared().timeEntryTextHasChanged("In progress");
    EXPECT_EQ(running->text(), "In progress");
    EXPECT_NE(view.logText.find("In progress\nSTARTED: "), std::string::npos);
    EXPECT_EQ(view.logText.find("NO ENTRIES YET"), std::string::npos) << "the open run is an entry";
    view.taskName = "In progress";
    heartBeat.stop();
    EXPECT_EQ(project->lastTimeLogEntry(), running);
    // Stopped, the field titles the run that it shows, the one just ended.
    ZVActionCenter::shared().timeEntryTextHasChanged("Renamed");
    EXPECT_EQ(running->text(), "Renamed");
    EXPECT_EQ(yesterday->text(), "Sketches");
}

TEST_F(LogControllerTest, PeriodsReachBackFromTheStartOfToday) {
    struct Case {
        ZVDate date;
        int segment;
        bool inside;
    };
    const auto now = at(20, 23);
    const std::vector<Case> cases{
        {at(20, 0, 1), 2, true},
        {at(19, 23, 59), 2, false},
        {at(21, 21), 2, true},  // the future counts by its distance
        {at(21, 23, 1), 2, false},
        {at(14, 0, 1), 1, true},
        {at(13, 23, 59), 1, false},
        {at(20, 0, 1) - std::chrono::duration<double>(29 * 86400), 0, true},
        {at(19, 23, 59) - std::chrono::duration<double>(29 * 86400), 0, false},
        {at(13, 23, 59), 0, true},
        {now - std::chrono::duration<double>(6 * 86400 + 23 * 3600), 1, true},
    };
    for (size_t index = 0; index < cases.size(); ++index) {
        EXPECT_EQ(ZVLogController::isInTimePeriod(cases[index].date, cases[index].segment, now), cases[index].inside)
            << "case " << index;
    }
}

// The receipt of today: runs of less than a second are left out, a run
// across midnight is in, and a change of time by hand moves the total.
TEST_F(LogControllerTest, TodaysReceiptListsRealRunsAndItsTotalFollowsChangesOfTime) {
    addRun(project, at(19, 23, 50), 1200, "Across midnight");
    addRun(project, at(20, 9), 0, "Started by mistake");
    auto reset = std::make_shared<ZVResetLogEntry>(project);
    project->addLogEntry(reset);
    controller.timePeriodChanged();
    EXPECT_NE(view.logText.find("Across midnight\n"), std::string::npos);
    EXPECT_EQ(view.logText.find("Started by mistake"), std::string::npos);
    EXPECT_NE(view.logText.find("Reset time for 'Design'\n"), std::string::npos);
    EXPECT_NE(view.logText.find("TOTAL: 20 MINUTES 0 SECONDS"), std::string::npos) << view.logText;

    auto set = std::make_shared<ZVTimeSetLogEntry>(project);
    set->setOriginalTime(1200);
    set->setNewTime(1261);
    project->addLogEntry(set);
    controller.timePeriodChanged();
    EXPECT_NE(view.logText.find("Changing time to "), std::string::npos);
    const std::string totalLine = "TOTAL: 21 MINUTES 1 SECOND";
    EXPECT_EQ(view.logText.substr(view.logText.size() - totalLine.size()), totalLine);
    EXPECT_NE(view.logText.find("\n--------------------------\nTOTAL"), std::string::npos);
}

TEST_F(LogControllerTest, TotalCountsOnlyRunsOfThePeriod) {
    addRun(project, at(20, 9), 3600);
    addRun(project, at(19, 9), 7200, "Yesterday");
    controller.timePeriodChanged();
    EXPECT_NE(view.logText.find("TOTAL: 1 HOUR 0 MINUTES"), std::string::npos);
    EXPECT_EQ(view.logText.find("Yesterday"), std::string::npos);
    view.period = 1;
    controller.timePeriodChanged();
    EXPECT_NE(view.logText.find("TOTAL: 3 HOURS 0 MINUTES"), std::string::npos);
}

TEST_F(LogControllerTest, ANewCurrentProjectBringsBackItsLastTitle) {
    auto other = env.addProject(*account, "2", 0, "Other");
    addRun(other, at(20, 9), 60, "Back again");
    view.taskName = "Typed";
    ZVHeartBeat::sharedHeartBeat().start();
    env.setCurrentProject(other);
    EXPECT_EQ(view.taskName, "Back again");
    // The old project's run ends with the old text; the new one is retitled.
    EXPECT_EQ(project->lastTimeLogEntry()->text(), "Typed");
    EXPECT_EQ(controller.currentLogEntry()->text(), "Back again");
    ZVHeartBeat::sharedHeartBeat().stop();
    other->addLogEntry(std::make_shared<ZVResetLogEntry>(other));

    auto untitled = env.addProject(*account, "3", 0, "Untitled");
    addRun(untitled, at(20, 10), 60, "");
    env.setCurrentProject(untitled);
    EXPECT_EQ(view.taskName, "Back again");
    // A reset's sentence is no task.
    view.taskName = "Typed";
    env.setCurrentProject(other);
    EXPECT_EQ(view.taskName, "Back again");
}

TEST_F(LogControllerTest, ClearingTodayEmptiesEveryProjectsTodayAndKeepsTime) {
    // Clearing reaches the accounts that the centre holds.
    env.center().addIntegration(account);
    env.waitForSynchronization();
    auto child = ZVIntegrationProject::create("Child", "1", std::string("c"));
    project->addSubproject(child);
    child->setTimeWithoutSaving(50);
    project->setTimeWithoutSaving(40);
    addRun(project, at(20, 9), 60);
    auto old = addRun(project, at(18, 9), 60);
    addRun(child, at(20, 10), 60);
    auto local = ZVIntegrationProject::create("Local", "L");
    ZVNorvoIntegration::sharedIntegration()->addProject(local);
    addRun(local, at(20, 11), 60);
    auto remoteAccount = env.addAccount("http://127.0.0.1:9");
    auto remoteProject = env.addProject(*remoteAccount, "R", 5);
    addRun(remoteProject, at(20, 12), 60);

    controller.clear();
    EXPECT_EQ(project->logEntries(), std::vector<std::shared_ptr<ZVLogEntry>>{old});
    EXPECT_TRUE(child->logEntries().empty());
    EXPECT_TRUE(local->logEntries().empty());
    EXPECT_TRUE(remoteProject->logEntries().empty());
    EXPECT_EQ(project->time(), 40u);
    EXPECT_EQ(child->time(), 50u);
    EXPECT_EQ(remoteProject->time(), 5u);
    EXPECT_TRUE(env.ui.alerts().empty());
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

TEST_F(LogControllerTest, ExportWritesOneRowPerRunOfThePeriodOrTheHeaderOnly) {
    project->addLogEntry(std::make_shared<ZVResetLogEntry>(project));
    view.exportPath = env.home.path() + "/empty.csv";
    controller.exportToCSV();
    EXPECT_EQ(view.suggestedNames, std::vector<std::string>{"Norvo Log.csv"});
    auto text = readFile(*view.exportPath);
    EXPECT_EQ(text.substr(0, text.find_first_of("\r\n")), "Start,Stop,Comment,Project Path,Project Name");
    EXPECT_EQ(text.find_first_not_of("\r\n", text.find_first_of("\r\n")), std::string::npos);

    addRun(project, at(20, 9), 60, "Sketch, \"rough\"");
    addRun(project, at(1, 9), 60, "Too old");
    view.exportPath = env.home.path() + "/log.csv";
    controller.exportToCSV();
    text = readFile(*view.exportPath);
    EXPECT_NE(text.find("\"Sketch, \"\"rough\"\"\""), std::string::npos);
    EXPECT_NE(text.find("Design"), std::string::npos);
    EXPECT_NE(text.find(ZVISO8601String(at(20, 9))), std::string::npos);
    EXPECT_EQ(text.find("Too old"), std::string::npos);

    // An export of days takes the runs that start from its first day up to,
    // not at, the end of its last.
    const auto second = std::chrono::duration<double>(1);
    for (const ZVDate start : {at(10, 0) - second, at(10, 0), at(12, 0) - second, at(12, 0)}) addRun(project, start, 1);
    std::vector<std::string> starts;
    for (const auto& entry : controller.logsBetween(at(10, 0), at(12, 0))) starts.push_back(ZVISO8601String(entry->date()));
    EXPECT_EQ(starts, (std::vector<std::string>{ZVISO8601String(at(10, 0)), ZVISO8601String(at(12, 0) - second)}));

    // Past a mebibyte the text goes out in pieces: still one row a run, none twice.
    std::vector<std::shared_ptr<ZVLogEntry>> many;
    for (int index = 0; index < 6000; ++index) many.push_back(addRun(project, at(20, 9), 1, std::string(200, 'x')));
    const std::string large = ZVLogController::csvText(many);
    EXPECT_GT(large.size(), std::size_t{1} << 20);
    EXPECT_EQ(std::count(large.begin(), large.end(), '\n'), 6001);

    // Cancelled, then failed.
    view.exportPath = std::nullopt;
    controller.exportToCSV();
    EXPECT_TRUE(env.ui.alerts().empty());
    view.exportPath = env.home.path() + "/missing-folder/log.csv";
    controller.exportToCSV();
    EXPECT_EQ(env.ui.alerts().size(), 1u);
}

// A refresh merges on its own thread while the main thread reads the same
// trees, adds runs to them and clears their logs. The account's and the
// nodes' locks keep the two apart; the thread-sanitizer build reports any
// access they miss.
TEST_F(LogControllerTest, ARefreshOnAWorkerAndTheMainThreadShareTheTreesSafely) {
    FakeServer server;
    server.route("*", "/", FakeResponse::text(""));
    std::atomic<int> replies{0};
    server.route("GET", "/projects", [&](const FakeRequest&) {
        // Every other reply brings a second task, so the merge adds and removes nodes.
        const bool second = replies++ % 2 == 1;
        return FakeResponse::json(std::string(R"([{"id":"w","name":"Website","children":[)") +
                                  R"({"id":"w","sub":"c","name":"Checkout"})" +
                                  (second ? R"(,{"id":"w","sub":"d","name":"Design"})" : "") + "]}]");
    });
    ZVSynchronizationThread::setConnectionProbeOverride(server.url("/"));
    auto remote = env.addAccount(server.baseURL());
    const auto checkout = remote->availableProjects().at(0)->subprojects().at(0);
    checkout->setTime(300);

    std::atomic<bool> done{false};
    std::thread worker([&] {
        for (int round = 0; round < 40; ++round) remote->synchronize();
        done = true;
    });
    int reads = 0;
    EXPECT_TRUE(env.pumpUntil([&] {
        {
            // Readers of a tree that a refresh may change hold its account's lock.
            std::lock_guard<std::recursive_mutex> guard(remote->lock());
            for (const auto& top : remote->availableProjects())
                for (const auto& task : top->subprojects()) reads += static_cast<int>(task->name().size() + task->time());
        }
        addRun(checkout, at(20, 22), 60);
        controller.clear();
        return done.load();
    }, 60));
    worker.join();
    ZVSynchronizationThread::setConnectionProbeOverride(std::nullopt);

    EXPECT_GT(reads, 0);
    EXPECT_EQ(replies.load(), 41);
    EXPECT_EQ(remote->availableProjects().at(0)->subprojects().at(0), checkout) << "the node with time stays";
    EXPECT_EQ(checkout->time(), 300u);
    EXPECT_TRUE(checkout->logEntries().empty());
}

}  // namespace
