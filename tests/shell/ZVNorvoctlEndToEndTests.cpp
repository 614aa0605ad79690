#include <signal.h>
#include <sys/stat.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>
#include <cstdlib>

#include "ShellTestEnvironment.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"

using namespace Qt::StringLiterals;

// The real norvo and norvoctl on a private session bus of their own, whose
// service folder is the build tree's: the bus starts norvo (offscreen, in a
// temporary home) when a command needs it, as a desktop session would.

namespace {

struct Outcome {
    int status = -1;
    QString out;
    QString err;
};

class NorvoctlEndToEnd : public ::testing::Test {
protected:
    NorvoctlEndToEnd() {
        ZVNorvoIntegration::resetSharedIntegration();
        ZVPreferences::shared().setBoolean(true, "ZVReleaseNotes847");
        auto local = ZVNorvoIntegration::sharedIntegration();
        for (const char* name : {"Website", "Webinar", "Billing", "Design", "Support"}) addProject(local, name);
        local->save();
        EXPECT_TRUE(ZVPreferences::shared().synchronize());
        ZVNorvoIntegration::resetSharedIntegration();

        const QString root = QString::fromStdString(home.path());
        const QString runtime = root + u"/run"_s;
        QDir().mkpath(runtime);
        ::chmod(QFile::encodeName(runtime).constData(), 0700);
        const QString config = root + u"/session.conf"_s;
        QFile file(config);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(
            uR"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:dir=%1</listen><servicedir>%2</servicedir>
  <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
)"_s.arg(root, buildTreePath(u"../data/dbus-services"_s))
                .toUtf8());
        file.close();

        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime);
        bus.setProcessEnvironment(environment);
        bus.start(u"dbus-daemon"_s, {u"--config-file="_s + config, u"--nofork"_s, u"--print-address=1"_s});
        EXPECT_TRUE(bus.waitForStarted());
        while (!bus.canReadLine() && bus.waitForReadyRead(10000)) {
        }
        address = QString::fromUtf8(bus.readLine()).trimmed();
        EXPECT_FALSE(address.isEmpty()) << bus.readAllStandardError().toStdString();
        environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, address);
    }

    ~NorvoctlEndToEnd() override {
        // What the bus started is not the bus's child: it is ended by its id.
        {
            QDBusConnection connection = QDBusConnection::connectToBus(address, u"norvoctl-tests"_s);
            if (connection.isConnected()) {
                const auto pid = connection.interface()->servicePid(u"com.tesselwick.Norvo"_s).value();
                if (pid > 0) {
                    ::kill(static_cast<pid_t>(pid), SIGKILL);
                    for (int i = 0; i < 200 && ::kill(static_cast<pid_t>(pid), 0) == 0; ++i) QThread::msleep(10);
                }
            }
        }
        QDBusConnection::disconnectFromBus(u"norvoctl-tests"_s);
        bus.kill();
        bus.waitForFinished(5000);
        ZVNorvoIntegration::resetSharedIntegration();
    }

    QProcess* startNorvoctl(const QStringList& arguments) {
        auto* process = new QProcess;
        process->setProcessEnvironment(environment);
        process->setWorkingDirectory(QString::fromStdString(home.path()));
        process->start(buildTreePath(u"../src/norvoctl/norvoctl"_s), arguments);
        EXPECT_TRUE(process->waitForStarted());
        return process;
    }

    Outcome norvoctl(const QStringList& arguments) {
        std::unique_ptr<QProcess> process(startNorvoctl(arguments));
        EXPECT_TRUE(process->waitForFinished(60000)) << arguments.join(QLatin1Char(' ')).toStdString();
        return {process->exitCode(), QString::fromUtf8(process->readAllStandardOutput()).trimmed(),
                QString::fromUtf8(process->readAllStandardError()).trimmed()};
    }

    /// The command line split at single spaces.
    Outcome norvoctl(const char* line) { return norvoctl(words(line)); }

    static QString nextLine(QProcess& process) {
        while (!process.canReadLine()) {
            if (!process.waitForReadyRead(20000)) return u"<no line>"_s;
        }
        return QString::fromUtf8(process.readLine()).trimmed();
    }

    QJsonObject state() {
        const Outcome outcome = norvoctl("status --json");
        EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
        return QJsonDocument::fromJson(outcome.out.toUtf8()).object();
    }

    TemporaryHome home;
    QProcess bus;
    QString address;
    QProcessEnvironment environment;
};

TEST_F(NorvoctlEndToEnd, StatusSaysNotRunningAndAChangingCommandStartsNorvo) {
    Outcome outcome = norvoctl("status");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, u"not running"_s);
    // A search changes nothing and so starts nothing.
    outcome = norvoctl("search web");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(norvoctl("status").status, 3);
    outcome = norvoctl("start webs");
    EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
    EXPECT_EQ(outcome.out, u"running 00:00:00 Projects \u2794 Website"_s);
    // Another client sees what the first one did.
    outcome = norvoctl("status --format {state}|{name}|{account}");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, u"running|Website|Projects"_s);
}

TEST_F(NorvoctlEndToEnd, StartWithAQueryChoosesTheQuickSearchsFirstHit) {
    ASSERT_EQ(norvoctl("task Warm-up").status, 0);
    const Outcome search = norvoctl("search WEB");
    EXPECT_EQ(search.status, 0);
    EXPECT_EQ(search.out, u"Projects \u2794 Website\nProjects \u2794 Webinar"_s);
    const Outcome started = norvoctl("start WEB");
    EXPECT_EQ(started.status, 0) << started.err.toStdString();
    EXPECT_EQ(started.out, u"running 00:00:00 "_s + search.out.section(QLatin1Char('\n'), 0, 0));
    // A path in any spelling of the separator is a query like any other.
    EXPECT_EQ(norvoctl("start projects>webi").out, u"running 00:00:00 Projects \u2794 Webinar"_s);
    const QJsonObject now = state();
    EXPECT_TRUE(now.value(u"running"_s).toBool());
    EXPECT_EQ(now.value(u"projectIdentifiers"_s).toArray().first().toString(), u"Webinar-id"_s);
    EXPECT_EQ(now.value(u"accountIdentifier"_s).toString(), u"KD_NORVO_LOCAL_INTEGRATION"_s);
    EXPECT_EQ(now.value(u"task"_s).toString(), u"Warm-up"_s);
}

TEST_F(NorvoctlEndToEnd, StartStopAndToggleRecordRunsInTheLog) {
    ASSERT_EQ(norvoctl("task Invoices").status, 0);
    EXPECT_EQ(norvoctl("start billing").status, 0);
    Outcome outcome = norvoctl("stop");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out.startsWith(u"stopped 00:00:"_s)) << outcome.out.toStdString();
    EXPECT_TRUE(norvoctl("toggle").out.startsWith(u"running"_s));
    EXPECT_TRUE(norvoctl("toggle").out.startsWith(u"stopped"_s));
    EXPECT_FALSE(state().value(u"running"_s).toBool());
    // Stopping a stopped timer changes nothing.
    EXPECT_EQ(norvoctl("stop").status, 0);
    outcome = norvoctl("export --from today --to today --out runs.csv");
    EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
    QFile csv(QString::fromStdString(home.path()) + u"/runs.csv"_s);
    ASSERT_TRUE(csv.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(csv.readAll()).split(u"\r\n"_s, Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << lines.join(QLatin1Char('\n')).toStdString();
    for (const QString& line : lines.mid(1))
        EXPECT_TRUE(line.endsWith(u",Invoices,Projects \u2794 Billing,Billing"_s)) << line.toStdString();
    // Posting makes Norvo talk on the bus while the command ends; nothing
    // but the command's line may come out of it (Qt's D-Bus thread, torn
    // down under a message, once added warnings in most runs).
    for (int turn = 0; turn < 4; ++turn) {
        outcome = norvoctl("post");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err.toStdString(), "norvoctl: The time of local projects is not posted anywhere.");
    }
}

TEST_F(NorvoctlEndToEnd, WatchPrintsALineForEachChangeAndNoneWhileIdle) {
    ASSERT_EQ(norvoctl("start design").status, 0);
    ASSERT_EQ(norvoctl("stop").status, 0);
    std::unique_ptr<QProcess> watch(startNorvoctl({u"watch"_s, u"--format"_s, u"{state} {name} {task}"_s}));
    // The state as it stands comes first, so that a status bar has a text at once.
    EXPECT_EQ(nextLine(*watch), u"stopped Design"_s);
    ASSERT_EQ(norvoctl("start").status, 0);
    EXPECT_EQ(nextLine(*watch), u"running Design"_s);
    ASSERT_EQ(norvoctl("stop").status, 0);
    EXPECT_EQ(nextLine(*watch), u"stopped Design"_s);
    // Questions and a stop of a stopped timer are no change; the next line
    // is the one of the next real change.
    for (int i = 0; i < 3; ++i) norvoctl("status");
    norvoctl("stop");
    ASSERT_EQ(norvoctl("task Sketches").status, 0);
    EXPECT_EQ(nextLine(*watch), u"stopped Design Sketches"_s);
    watch->kill();
    watch->waitForFinished(5000);
}

TEST_F(NorvoctlEndToEnd, BadInputGetsAOneLineMessageAndAnExitStatus) {
    ASSERT_EQ(norvoctl({u"task"_s, QString()}).status, 0);
    Outcome outcome = norvoctl("start Websiet");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.err.startsWith(
        u"norvoctl: no project matches \"Websiet\"; closest: Projects \u2794 Website, Projects \u2794 Webinar, "_s))
        << outcome.err.toStdString();
    EXPECT_EQ(outcome.err.count(u", "_s), 2);
    EXPECT_FALSE(state().value(u"running"_s).toBool());
    const std::pair<const char*, QString> cases[] = {
        // Each way of going wrong once; the control text's own tests hold the words of the rest.
        {"export --from 2024-02-30 --to today --out log.csv",
         u"norvoctl: \"2024-02-30\" is not a day; use YYYY-MM-DD, today or yesterday"_s},
        {"export --from today --to yesterday --out log.csv", u"norvoctl: --to yesterday lies before --from today"_s},
        {"export --from today --to today --out /nonexistent/folder/log.csv",
         u"norvoctl: the folder /nonexistent/folder does not exist"_s},
        {"status --format {clok}", u"norvoctl: unknown field {clok} in the format; see norvoctl --help"_s},
        {"pause", u"norvoctl: unknown command \"pause\"; see norvoctl --help"_s},
    };
    for (const auto& [line, message] : cases) {
        outcome = norvoctl(line);
        EXPECT_EQ(outcome.status, 2) << line;
        EXPECT_EQ(outcome.err, message);
        EXPECT_TRUE(outcome.out.isEmpty());
    }
    EXPECT_EQ(norvoctl("--help").status, 0);
    outcome = norvoctl("--version");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out.startsWith(u"norvoctl "_s)) << outcome.out.toStdString();
}

TEST_F(NorvoctlEndToEnd, AStartWithoutProjectAnswersWhileNorvoAsksTheUser) {
    // Norvo shows its alert; the command does not wait for someone to answer it.
    const Outcome outcome = norvoctl("start");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err.toStdString(), "norvoctl: Norvo waits for an answer in its window: No project selected.");
    // The alert is up, and Norvo still answers.
    const QJsonObject now = state();
    EXPECT_FALSE(now.value(u"running"_s).toBool());
    EXPECT_TRUE(now.value(u"project"_s).toString().isEmpty());
}

TEST_F(NorvoctlEndToEnd, AtTheFirstLaunchScriptsReachNorvoWhileWhatsNewIsOpen) {
    ZVPreferences::shared().removeValue("ZVReleaseNotes847");
    ASSERT_TRUE(ZVPreferences::shared().synchronize());
    const Outcome started = norvoctl("start website");
    EXPECT_EQ(started.status, 0) << started.err.toStdString();
    EXPECT_EQ(norvoctl("status").status, 0);
    // What's New is up: the launch and the scripts did not wait for it.
    ZVPreferences::shared().reload();
    EXPECT_TRUE(ZVPreferences::shared().boolean("ZVReleaseNotes847"));
}

// The seconds and runs of a local project as the preferences file has them.
std::pair<std::uint64_t, std::size_t> storedTimeAndRuns(const std::string& preferencesFile, const std::string& name) {
    const ZVPreferences stored(preferencesFile);
    const auto projects = stored.value("KDNorvoIntegration");
    if (!projects || !projects->array()) return {0, 0};
    for (const ZVValue& project : *projects->array()) {
        const ZVDictionary& node = *project.dictionary();
        if (ZVStringValue(node, ZVIntegrationProject::nameKey) != name) continue;
        const ZVArray* log = ZVArrayValue(node, ZVIntegrationProject::logKey);
        return {ZVUnsignedValue(node, ZVIntegrationProject::timeKey), log ? log->size() : 0};
    }
    return {0, 0};
}

// Logout and shutdown (SIGTERM), a lost terminal (SIGHUP), Ctrl+C (SIGINT)
// and the quit command all end the running timer and save it to the second,
// and Norvo exits normally.
TEST_F(NorvoctlEndToEnd, EveryWayOfEndingSavesTheRunningTimeToTheSecond) {
    const std::string preferences = home.preferencesFile();
    const std::pair<const char*, int> endings[] = {
        {"SIGTERM", SIGTERM}, {"SIGHUP", SIGHUP}, {"SIGINT", SIGINT}, {"quit", 0}};
    std::size_t runs = 0;
    for (const auto& [name, signalNumber] : endings) {
        SCOPED_TRACE(name);
        // The quit command comes while an alert about the database is up,
        // which must not hold the quit back.
        if (!signalNumber) {
            ASSERT_TRUE(ZVPaths::writeFileAtomically(home.dataDirectory() + "/Integrations.edb", "<plist"));
        }
        QProcess norvo;
        norvo.setProcessEnvironment(environment);
        norvo.start(buildTreePath(u"../src/norvo"_s), {});
        ASSERT_TRUE(norvo.waitForStarted());
        // Only once the name is taken, or the bus would start a second one.
        for (int i = 0; i < 300 && norvoctl("status").status == 3; ++i) QThread::msleep(20);
        const std::uint64_t before = storedTimeAndRuns(preferences, "Billing").first;
        QElapsedTimer sinceCall;
        sinceCall.start();
        ASSERT_EQ(norvoctl("start billing").status, 0);
        QElapsedTimer sinceReply;
        sinceReply.start();
        QThread::msleep(2600);
        const qint64 shortest = sinceReply.elapsed();
        if (signalNumber)
            ::kill(static_cast<pid_t>(norvo.processId()), signalNumber);
        else
            EXPECT_EQ(norvoctl("quit").status, 0);
        ASSERT_TRUE(norvo.waitForFinished(20000));
        const qint64 longest = sinceCall.elapsed();
        EXPECT_EQ(norvo.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(norvo.exitCode(), 0) << norvo.readAllStandardError().toStdString();
        const auto [after, storedRuns] = storedTimeAndRuns(preferences, "Billing");
        EXPECT_GE(after - before, static_cast<std::uint64_t>(shortest / 1000));
        EXPECT_LE(after - before, static_cast<std::uint64_t>((longest + 999) / 1000));
        EXPECT_EQ(storedRuns, ++runs);
    }
}

}  // namespace
