#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>

#include "ShellTestEnvironment.h"
#include "app/ZVDBusService.h"
#include "app/ZVMenuManager.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/ui/ZVMenu.h"
#include "testkit/ScriptedUserInterface.h"
#include "ui_elements/ZVProjectQuickSearch.h"

using namespace Qt::StringLiterals;

namespace {

QJsonObject object(const QString& json) { return QJsonDocument::fromJson(json.toUtf8()).object(); }

// The service of an in-process application, called as the bus would call it
// but without a bus; what it announces is recorded.
class ZVDBusServiceTest : public LaunchedAppFixture {
protected:
    ZVDBusServiceTest() {
        service = std::make_unique<ZVDBusService>(*delegate);
        QObject::connect(service.get(), &ZVDBusService::StateChanged,
                         [this](const QString& json) { announced.push_back(object(json)); });
        local = ZVNorvoIntegration::sharedIntegration();
        website = addProject(local, "Website");
        billing = addProject(local, "Billing");
        settle();
        announced.clear();
    }
    ~ZVDBusServiceTest() override { service.reset(); }

    // Lets queued announcements go out.
    static void settle() {
        for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
    }

    void performMenuItem(const std::string& title) {
        const auto menu = ZVMenuManager::shared().applicationMenu({true, true, true, true});
        ZVMenuItem* item = menu->itemWithTitle(title);
        ASSERT_NE(item, nullptr) << title;
        item->perform();
    }

    QLineEdit& taskField() { return *delegate->window()->currentTaskTextField(); }

    std::unique_ptr<ZVDBusService> service;
    std::shared_ptr<ZVNorvoIntegration> local;
    ZVIntegrationProject::Pointer website;
    ZVIntegrationProject::Pointer billing;
    std::vector<QJsonObject> announced;
};

}  // namespace

TEST_F(ZVDBusServiceTest, StartAndStopLeaveTheSameRunInTheLogAsTheMenuCommands) {
    ZVIntegrationCenter::shared().setCurrentProject(website);
    taskField().setText(u"Layout"_s);
    performMenuItem("Start");
    ASSERT_TRUE(ZVHeartBeat::sharedHeartBeat().isBeating());
    performMenuItem("Stop");
    ZVIntegrationCenter::shared().setCurrentProject(billing);
    taskField().setText(u"Layout"_s);
    const QJsonObject started = object(service->Start());
    EXPECT_TRUE(started.value(u"running"_s).toBool());
    EXPECT_TRUE(ZVHeartBeat::sharedHeartBeat().isBeating());
    // Starting a running timer changes nothing.
    EXPECT_TRUE(object(service->Start()).value(u"running"_s).toBool());
    const QJsonObject stopped = object(service->Stop());
    EXPECT_FALSE(stopped.value(u"running"_s).toBool());
    EXPECT_FALSE(ZVHeartBeat::sharedHeartBeat().isBeating());
    for (const auto& project : {website, billing}) {
        ASSERT_EQ(project->logEntries().size(), 1u) << project->name();
        const auto run = std::dynamic_pointer_cast<ZVTimeLogEntry>(project->logEntries().front());
        ASSERT_NE(run, nullptr);
        EXPECT_EQ(run->text(), "Layout");
        EXPECT_TRUE(run->stopDate().has_value());
    }
    EXPECT_EQ(stopped.value(u"project"_s).toString(), u"Projects \u2794 Billing"_s);
    EXPECT_EQ(stopped.value(u"task"_s).toString(), u"Layout"_s);
}

TEST_F(ZVDBusServiceTest, ToggleRunsTheTimerLikeTheMenuAndStartWithoutProjectShowsTheSameAlert) {
    EXPECT_TRUE(service->Start().isEmpty());
    EXPECT_EQ(service->lastError(), u"No project selected."_s);
    EXPECT_FALSE(ZVHeartBeat::sharedHeartBeat().isBeating());
    EXPECT_TRUE(service->Toggle().isEmpty());
    performMenuItem("Start");
    EXPECT_EQ(ui.alertMessages(),
              (std::vector<std::string>{"No project selected.", "No project selected.", "No project selected."}));
    ZVIntegrationCenter::shared().setCurrentProject(website);
    EXPECT_TRUE(object(service->Toggle()).value(u"running"_s).toBool());
    EXPECT_FALSE(object(service->Toggle()).value(u"running"_s).toBool());
    EXPECT_EQ(website->logEntries().size(), 1u);
    EXPECT_TRUE(service->lastError().isEmpty());
}

TEST_F(ZVDBusServiceTest, StatusNamesTheCurrentProjectByPathAndIdentifiers) {
    auto account = addAccount("Acme");
    auto client = addProject(account, "Client");
    auto ticket = addProject(account, "Ticket 7", client);
    ticket->setSubprojectID(std::string("T-7"));
    ZVIntegrationCenter::shared().setCurrentProject(ticket);
    ticket->setTime(3725);
    ZVHeartBeat::sharedHeartBeat().setCurrentTime(3725);
    const QJsonObject state = object(service->Status());
    const QJsonObject expected{{u"project"_s, u"Acme \u2794 Client \u2794 Ticket 7"_s}, {u"name"_s, u"Ticket 7"_s},
                               {u"projectIdentifiers"_s, QJsonArray{u"Ticket 7-id"_s, u"T-7"_s}},
                               {u"accountIdentifier"_s, QString::fromStdString(account->integrationID())},
                               {u"running"_s, false}, {u"seconds"_s, 3725}, {u"clock"_s, u"01:02:05"_s},
                               {u"task"_s, QString()}, {u"syncing"_s, false}, {u"loading"_s, false}};
    EXPECT_EQ(state, expected) << QJsonDocument(state).toJson().toStdString();
    // The identity that the state gives names the project again.
    ZVIntegrationCenter::shared().setCurrentProject(website);
    QJsonObject identity = state;
    for (const char* key : {"running", "clock", "seconds", "task", "syncing", "loading"})
        identity.remove(QString::fromLatin1(key));
    service->SetCurrentProject(QString::fromUtf8(QJsonDocument(identity).toJson()));
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), ticket);
}

TEST_F(ZVDBusServiceTest, SearchGivesTheQuickSearchResultsAndSetCurrentProjectTakesAPathInAnySpelling) {
    auto account = addAccount("Acme");
    auto client = addProject(account, "Client");
    auto web = addProject(account, "Web", client);
    addProject(account, "Webinar", client);
    const auto expected = ZVProjectQuickSearch::searchAllProjects("web");
    ASSERT_EQ(expected.size(), 3u);
    const QJsonArray results = QJsonDocument::fromJson(service->Search(u"web"_s).toUtf8()).array();
    ASSERT_EQ(results.size(), 3);
    for (qsizetype i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i].toObject().value(u"project"_s).toString().toStdString(),
                  expected[static_cast<std::size_t>(i)]->fullProjectPath());
    EXPECT_TRUE(QJsonDocument::fromJson(service->Search(u"nothing like it"_s).toUtf8()).array().isEmpty());
    for (const char* path : {"Acme > Client > Web", "acme>client>web", "ACME \u2794 CLIENT \u2794 WEB"}) {
        ZVIntegrationCenter::shared().setCurrentProject(website);
        EXPECT_FALSE(service->SetCurrentProject(QString::fromUtf8(path)).isEmpty()) << path;
        EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), web) << path;
    }
    // A part of a path is a search, not a path; a branch is no project to track.
    for (const char* path : {"Acme > Client > We", "Acme > Client", "{\"accountIdentifier\":\"x\"}"}) {
        EXPECT_TRUE(service->SetCurrentProject(QString::fromUtf8(path)).isEmpty()) << path;
        EXPECT_TRUE(service->lastError().startsWith(u"No project matches"_s)) << path;
    }
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), web);
}

TEST_F(ZVDBusServiceTest, SetTaskTextTitlesTheLastRunLikeTypingIntoTheField) {
    ZVIntegrationCenter::shared().setCurrentProject(website);
    service->Start();
    service->Stop();
    const QJsonObject state = object(service->SetTaskText(u"Review"_s));
    EXPECT_EQ(state.value(u"task"_s).toString(), u"Review"_s);
    EXPECT_EQ(taskField().text(), u"Review"_s);
    ASSERT_EQ(website->logEntries().size(), 1u);
    EXPECT_EQ(website->logEntries().front()->text(), "Review");
    // Without any run yet, the text gets a run of the time so far, as the field does.
    ZVIntegrationCenter::shared().setCurrentProject(billing);
    service->SetTaskText(u"Invoices"_s);
    ASSERT_EQ(billing->logEntries().size(), 1u);
    EXPECT_EQ(billing->logEntries().front()->text(), "Invoices");
}

TEST_F(ZVDBusServiceTest, AnnouncesEachChangeOnceAndNothingWhileIdle) {
    service->Status();
    settle();
    EXPECT_TRUE(announced.empty());
    ZVIntegrationCenter::shared().setCurrentProject(website);
    settle();
    ASSERT_EQ(announced.size(), 1u);
    EXPECT_EQ(announced.back().value(u"name"_s).toString(), u"Website"_s);
    service->Start();
    settle();
    ASSERT_EQ(announced.size(), 2u);
    EXPECT_TRUE(announced.back().value(u"running"_s).toBool());
    EXPECT_TRUE(service->isMinuteUpdateArmed());
    EXPECT_GT(service->minuteUpdateInterval(), 500);
    EXPECT_LE(service->minuteUpdateInterval(), 60500);
    // A change of project while running stops and starts the timer: one line.
    ZVIntegrationCenter::shared().setCurrentProject(billing);
    settle();
    ASSERT_EQ(announced.size(), 3u);
    EXPECT_TRUE(announced.back().value(u"running"_s).toBool());
    EXPECT_EQ(announced.back().value(u"name"_s).toString(), u"Billing"_s);
    // The clock moving on, and a time change that leaves the state as it was, say nothing.
    ZVHeartBeat::sharedHeartBeat().setCurrentTime(42);
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, billing);
    settle();
    EXPECT_EQ(announced.size(), 3u);
    service->SetTaskText(u"Invoices"_s);
    settle();
    ASSERT_EQ(announced.size(), 4u);
    EXPECT_EQ(announced.back().value(u"task"_s).toString(), u"Invoices"_s);
    service->Stop();
    settle();
    ASSERT_EQ(announced.size(), 5u);
    EXPECT_FALSE(announced.back().value(u"running"_s).toBool());
    EXPECT_FALSE(service->isMinuteUpdateArmed());
    ZVNotificationCenter::shared().post(ZVIntegrationCenterSynchronizationDidStartNotification);
    settle();
    EXPECT_EQ(announced.size(), 5u) << "a synchronization that is not running is no change";
}

TEST_F(ZVDBusServiceTest, ExportWritesTheRunsOfTheGivenDaysOrSaysWhatIsWrong) {
    ZVIntegrationCenter::shared().setCurrentProject(website);
    taskField().setText(u"Layout"_s);
    service->Start();
    service->Stop();
    const QString file = QString::fromStdString(home.path()) + u"/log.csv"_s;
    const QString today = QDate::currentDate().toString(Qt::ISODate);
    const QString yesterday = QDate::currentDate().addDays(-1).toString(Qt::ISODate);
    EXPECT_FALSE(service->ExportCSV(today, today, file).isEmpty()) << service->lastError().toStdString();
    QFile written(file);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(written.readAll()).split(u"\r\n"_s, Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(u"Start,Stop,Comment"_s));
    EXPECT_TRUE(lines[1].contains(u"Layout"_s)) << lines[1].toStdString();
    written.close();
    EXPECT_FALSE(service->ExportCSV(yesterday, yesterday, file).isEmpty());
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(written.readAll()).split(u"\r\n"_s, Qt::SkipEmptyParts).size(), 1);
    EXPECT_TRUE(service->ExportCSV(u"2024-13-01"_s, today, file).isEmpty());
    EXPECT_EQ(service->lastError(), u"\"2024-13-01\" is not a date (YYYY-MM-DD)."_s);
    EXPECT_TRUE(service->ExportCSV(today, yesterday, file).isEmpty());
    EXPECT_TRUE(service->ExportCSV(today, today, u"log.csv"_s).isEmpty());
    EXPECT_TRUE(ui.alertMessages().empty());
    // A file that cannot be written gets the log drawer's alert as well.
    EXPECT_TRUE(service->ExportCSV(today, today, u"/proc/norvo/log.csv"_s).isEmpty());
    EXPECT_EQ(ui.alertMessages(), std::vector<std::string>{"The log could not be exported."});
}

TEST_F(ZVDBusServiceTest, PostAndSynchronizeRefuseLocalProjectsTheWayTheCommandsDo) {
    ZVIntegrationCenter::shared().setCurrentProject(website);
    EXPECT_TRUE(service->PostCurrent().isEmpty());
    EXPECT_EQ(ui.beepCount(), 1) << "the post command beeps for a local project";
    EXPECT_EQ(service->lastError(), u"The time of local projects is not posted anywhere."_s);
    EXPECT_TRUE(service->Synchronize().isEmpty());
    EXPECT_FALSE(service->lastError().isEmpty());
    ZVIntegrationCenter::shared().setCurrentProject(nullptr);
    EXPECT_TRUE(service->PostCurrent().isEmpty());
    EXPECT_EQ(ui.beepCount(), 2);
    EXPECT_EQ(service->lastError(), u"No project selected."_s);
}
