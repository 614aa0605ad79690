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

// The real norvo and norvoctl on a private session bus of their own, whose
// service folder is the build tree's: the bus starts norvo (offscreen, in a
// temporary home) when a command needs it, as a desktop session would.

namespace {

QString buildTreePath(const QString& relative) {
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    return QFileInfo(QFileInfo(self).dir().absoluteFilePath(relative)).absoluteFilePath();
}

struct Outcome {
    int status = -1;
    QString out;
    QString err;
};

class NorvoctlEndToEnd : public ::testing::Test {
protected:
    NorvoctlEndToEnd() {
        shellApplication();
        ZVNorvoIntegration::resetSharedIntegration();
        ZVPreferences::shared().setBoolean(true, "ZVReleaseNotes847");
        auto local = ZVNorvoIntegration::sharedIntegration();
        for (const char* name : {"Website", "Webinar", "Billing", "Design", "Support"}) {
            auto project = ZVIntegrationProject::create(name, std::string(name) + "-id");
            project->setIntegration(local);
            local->addProject(project);
        }
        local->save();
        EXPECT_TRUE(ZVPreferences::shared().synchronize());
        ZVNorvoIntegration::resetSharedIntegration();

        const QString root = QString::fromStdString(home.path());
        const QString runtime = root + QStringLiteral("/run");
        QDir().mkpath(runtime);
        ::chmod(QFile::encodeName(runtime).constData(), 0700);
        const QString config = root + QStringLiteral("/session.conf");
        QFile file(config);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                                  " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                                  "<busconfig>\n  <type>session</type>\n  <listen>unix:dir=%1</listen>\n"
                                  "  <servicedir>%2</servicedir>\n"
                                  "  <policy context=\"default\">\n    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                                  "    <allow eavesdrop=\"true\"/>\n    <allow own=\"*\"/>\n  </policy>\n</busconfig>\n")
                       .arg(root, buildTreePath(QStringLiteral("../data/dbus-services")))
                       .toUtf8());
        file.close();

        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        bus.setProcessEnvironment(environment);
        bus.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                                                  QStringLiteral("--print-address=1")});
        EXPECT_TRUE(bus.waitForStarted());
        while (!bus.canReadLine() && bus.waitForReadyRead(10000)) {
        }
        address = QString::fromUtf8(bus.readLine()).trimmed();
        EXPECT_FALSE(address.isEmpty()) << bus.readAllStandardError().toStdString();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    }

    ~NorvoctlEndToEnd() override {
        // What the bus started is not the bus's child: it is ended by its id.
        {
            QDBusConnection connection = QDBusConnection::connectToBus(address, QStringLiteral("norvoctl-tests"));
            if (connection.isConnected()) {
                const auto pid = connection.interface()->servicePid(QStringLiteral("com.tesselwick.Norvo")).value();
                if (pid > 0) {
                    ::kill(static_cast<pid_t>(pid), SIGKILL);
                    for (int i = 0; i < 200 && ::kill(static_cast<pid_t>(pid), 0) == 0; ++i) QThread::msleep(10);
                }
            }
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("norvoctl-tests"));
        bus.kill();
        bus.waitForFinished(5000);
        ZVNorvoIntegration::resetSharedIntegration();
    }

    QProcess* startNorvoctl(const QStringList& arguments) {
        auto* process = new QProcess;
        process->setProcessEnvironment(environment);
        process->setWorkingDirectory(QString::fromStdString(home.path()));
        process->start(buildTreePath(QStringLiteral("../src/norvoctl/norvoctl")), arguments);
        EXPECT_TRUE(process->waitForStarted());
        return process;
    }

    Outcome norvoctl(const QStringList& arguments) {
        std::unique_ptr<QProcess> process(startNorvoctl(arguments));
        EXPECT_TRUE(process->waitForFinished(60000)) << arguments.join(QLatin1Char(' ')).toStdString();
        return {process->exitCode(), QString::fromUtf8(process->readAllStandardOutput()).trimmed(),
                QString::fromUtf8(process->readAllStandardError()).trimmed()};
    }

    static QString nextLine(QProcess& process) {
        while (!process.canReadLine()) {
            if (!process.waitForReadyRead(20000)) return QStringLiteral("<no line>");
        }
        return QString::fromUtf8(process.readLine()).trimmed();
    }

    QJsonObject state() {
        const Outcome outcome = norvoctl({QStringLiteral("status"), QStringLiteral("--json")});
        EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
        return QJsonDocument::fromJson(outcome.out.toUtf8()).object();
    }

    TemporaryHome home;
    QProcess bus;
    QString address;
    QProcessEnvironment environment;
};

}  // namespace

TEST_F(NorvoctlEndToEnd, StatusSaysNotRunningAndAChangingCommandStartsNorvo) {
    Outcome outcome = norvoctl({QStringLiteral("status")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, QStringLiteral("not running"));
    // A search changes nothing and so starts nothing.
    outcome = norvoctl({QStringLiteral("search"), QStringLiteral("web")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(norvoctl({QStringLiteral("status")}).status, 3);

    outcome = norvoctl({QStringLiteral("start"), QStringLiteral("webs")});
    EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
    EXPECT_EQ(outcome.out, QStringLiteral("running 00:00:00 Projects \u2794 Website"));

    // Another client sees what the first one did.
    outcome = norvoctl({QStringLiteral("status"), QStringLiteral("--format"), QStringLiteral("{state}|{name}|{account}")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, QStringLiteral("running|Website|Projects"));
}

TEST_F(NorvoctlEndToEnd, StartWithAQueryChoosesTheQuickSearchsFirstHit) {
    ASSERT_EQ(norvoctl({QStringLiteral("task"), QStringLiteral("Warm-up")}).status, 0);
    const Outcome search = norvoctl({QStringLiteral("search"), QStringLiteral("WEB")});
    EXPECT_EQ(search.status, 0);
    EXPECT_EQ(search.out, QStringLiteral("Projects \u2794 Website\nProjects \u2794 Webinar"));

    const Outcome started = norvoctl({QStringLiteral("start"), QStringLiteral("WEB")});
    EXPECT_EQ(started.status, 0) << started.err.toStdString();
    EXPECT_EQ(started.out, QStringLiteral("running 00:00:00 ") + search.out.section(QLatin1Char('\n'), 0, 0));

    // A path in any spelling of the separator is a query like any other.
    EXPECT_EQ(norvoctl({QStringLiteral("start"), QStringLiteral("projects>webi")}).out,
              QStringLiteral("running 00:00:00 Projects \u2794 Webinar"));
    const QJsonObject now = state();
    EXPECT_TRUE(now.value(QStringLiteral("running")).toBool());
    EXPECT_EQ(now.value(QStringLiteral("projectIdentifiers")).toArray().first().toString(), QStringLiteral("Webinar-id"));
    EXPECT_EQ(now.value(QStringLiteral("accountIdentifier")).toString(), QStringLiteral("KD_NORVO_LOCAL_INTEGRATION"));
    EXPECT_EQ(now.value(QStringLiteral("task")).toString(), QStringLiteral("Warm-up"));
}

TEST_F(NorvoctlEndToEnd, StartStopAndToggleRecordRunsInTheLog) {
    ASSERT_EQ(norvoctl({QStringLiteral("task"), QStringLiteral("Invoices")}).status, 0);
    EXPECT_EQ(norvoctl({QStringLiteral("start"), QStringLiteral("billing")}).status, 0);
    Outcome outcome = norvoctl({QStringLiteral("stop")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out.startsWith(QStringLiteral("stopped 00:00:"))) << outcome.out.toStdString();
    EXPECT_TRUE(norvoctl({QStringLiteral("toggle")}).out.startsWith(QStringLiteral("running")));
    EXPECT_TRUE(norvoctl({QStringLiteral("toggle")}).out.startsWith(QStringLiteral("stopped")));
    EXPECT_FALSE(state().value(QStringLiteral("running")).toBool());
    // Stopping a stopped timer changes nothing.
    EXPECT_EQ(norvoctl({QStringLiteral("stop")}).status, 0);

    outcome = norvoctl({QStringLiteral("export"), QStringLiteral("--from"), QStringLiteral("today"), QStringLiteral("--to"),
                        QStringLiteral("today"), QStringLiteral("--out"), QStringLiteral("runs.csv")});
    EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
    QFile csv(QString::fromStdString(home.path()) + QStringLiteral("/runs.csv"));
    ASSERT_TRUE(csv.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(csv.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << lines.join(QLatin1Char('\n')).toStdString();
    for (const QString& line : lines.mid(1))
        EXPECT_TRUE(line.endsWith(QStringLiteral(",Invoices,Projects \u2794 Billing,Billing"))) << line.toStdString();
}

TEST_F(NorvoctlEndToEnd, WatchPrintsALineForEachChangeAndNoneWhileIdle) {
    ASSERT_EQ(norvoctl({QStringLiteral("start"), QStringLiteral("design")}).status, 0);
    ASSERT_EQ(norvoctl({QStringLiteral("stop")}).status, 0);
    std::unique_ptr<QProcess> watch(
        startNorvoctl({QStringLiteral("watch"), QStringLiteral("--format"), QStringLiteral("{state} {name} {task}")}));
    // The state as it stands comes first, so that a status bar has a text at once.
    EXPECT_EQ(nextLine(*watch), QStringLiteral("stopped Design"));

    ASSERT_EQ(norvoctl({QStringLiteral("start")}).status, 0);
    EXPECT_EQ(nextLine(*watch), QStringLiteral("running Design"));
    ASSERT_EQ(norvoctl({QStringLiteral("stop")}).status, 0);
    EXPECT_EQ(nextLine(*watch), QStringLiteral("stopped Design"));

    // Questions and a stop of a stopped timer are no change; the next line
    // is the one of the next real change.
    for (int i = 0; i < 3; ++i) norvoctl({QStringLiteral("status")});
    norvoctl({QStringLiteral("stop")});
    ASSERT_EQ(norvoctl({QStringLiteral("task"), QStringLiteral("Sketches")}).status, 0);
    EXPECT_EQ(nextLine(*watch), QStringLiteral("stopped Design Sketches"));
    watch->kill();
    watch->waitForFinished(5000);
}

TEST_F(NorvoctlEndToEnd, BadInputGetsAOneLineMessageAndAnExitStatus) {
    ASSERT_EQ(norvoctl({QStringLiteral("task"), QString()}).status, 0);

    Outcome outcome = norvoctl({QStringLiteral("start"), QStringLiteral("Websiet")});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.err.startsWith(QStringLiteral(
        "norvoctl: no project matches \"Websiet\"; closest: Projects \u2794 Website, Projects \u2794 Webinar, ")))
        << outcome.err.toStdString();
    EXPECT_EQ(outcome.err.count(QStringLiteral(", ")), 2);
    EXPECT_FALSE(state().value(QStringLiteral("running")).toBool());

    const QStringList exportTo{QStringLiteral("export"), QStringLiteral("--from"), QStringLiteral("today"),
                               QStringLiteral("--to"), QStringLiteral("today"), QStringLiteral("--out")};
    struct Case {
        QStringList arguments;
        QString message;
    };
    const Case cases[] = {
        {{QStringLiteral("export"), QStringLiteral("--from"), QStringLiteral("2024-02-30"), QStringLiteral("--to"),
          QStringLiteral("today"), QStringLiteral("--out"), QStringLiteral("log.csv")},
         QStringLiteral("norvoctl: \"2024-02-30\" is not a day; use YYYY-MM-DD, today or yesterday")},
        {{QStringLiteral("export"), QStringLiteral("--from"), QStringLiteral("today"), QStringLiteral("--to"),
          QStringLiteral("yesterday"), QStringLiteral("--out"), QStringLiteral("log.csv")},
         QStringLiteral("norvoctl: --to yesterday lies before --from today")},
        {exportTo + QStringList{QStringLiteral("/nonexistent/folder/log.csv")},
         QStringLiteral("norvoctl: the folder /nonexistent/folder does not exist")},
        {exportTo + QStringList{QStringLiteral("/proc/version")}, QStringLiteral("norvoctl: /proc/version cannot be written")},
        {{QStringLiteral("status"), QStringLiteral("--format"), QStringLiteral("{clok}")},
         QStringLiteral("norvoctl: unknown field {clok} in the format; see norvoctl --help")},
        {{QStringLiteral("pause")}, QStringLiteral("norvoctl: unknown command \"pause\"; see norvoctl --help")},
    };
    for (const Case& bad : cases) {
        outcome = norvoctl(bad.arguments);
        EXPECT_EQ(outcome.status, 2) << bad.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(outcome.err, bad.message);
        EXPECT_TRUE(outcome.out.isEmpty());
    }
    EXPECT_EQ(norvoctl({QStringLiteral("--help")}).status, 0);
}

TEST_F(NorvoctlEndToEnd, AStartWithoutProjectAnswersWhileNorvoAsksTheUser) {
    // Norvo shows its alert; the command does not wait for someone to answer it.
    const Outcome outcome = norvoctl({QStringLiteral("start")});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err.toStdString(), "norvoctl: Norvo waits for an answer in its window: No project selected.");
    // The alert is up, and Norvo still answers.
    const QJsonObject now = state();
    EXPECT_FALSE(now.value(QStringLiteral("running")).toBool());
    EXPECT_TRUE(now.value(QStringLiteral("project")).toString().isEmpty());
}

TEST_F(NorvoctlEndToEnd, AtTheFirstLaunchScriptsReachNorvoWhileWhatsNewIsOpen) {
    ZVPreferences::shared().removeValue("ZVReleaseNotes847");
    ASSERT_TRUE(ZVPreferences::shared().synchronize());
    const Outcome started = norvoctl({QStringLiteral("start"), QStringLiteral("website")});
    EXPECT_EQ(started.status, 0) << started.err.toStdString();
    EXPECT_EQ(norvoctl({QStringLiteral("status")}).status, 0);
    // What's New is up: the launch and the scripts did not wait for it.
    ZVPreferences::shared().reload();
    EXPECT_TRUE(ZVPreferences::shared().boolean("ZVReleaseNotes847"));
}

namespace {

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

}  // namespace

// Logout and shutdown (SIGTERM), a lost terminal (SIGHUP), Ctrl+C (SIGINT)
// and the quit command all end the running timer and save it to the second,
// and Norvo exits normally.
TEST_F(NorvoctlEndToEnd, EveryWayOfEndingSavesTheRunningTimeToTheSecond) {
    const std::string preferences = home.preferencesFile();
    const std::pair<const char*, int> endings[] = {{"SIGTERM", SIGTERM}, {"SIGHUP", SIGHUP}, {"SIGINT", SIGINT}, {"quit", 0}};
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
        norvo.start(buildTreePath(QStringLiteral("../src/norvo")), {});
        ASSERT_TRUE(norvo.waitForStarted());
        // Only once the name is taken, or the bus would start a second one.
        for (int i = 0; i < 300 && norvoctl({QStringLiteral("status")}).status == 3; ++i) QThread::msleep(20);
        const std::uint64_t before = storedTimeAndRuns(preferences, "Billing").first;

        QElapsedTimer sinceCall;
        sinceCall.start();
        ASSERT_EQ(norvoctl({QStringLiteral("start"), QStringLiteral("billing")}).status, 0);
        QElapsedTimer sinceReply;
        sinceReply.start();
        QThread::msleep(2600);
        const qint64 shortest = sinceReply.elapsed();
        if (signalNumber)
            ::kill(static_cast<pid_t>(norvo.processId()), signalNumber);
        else
            EXPECT_EQ(norvoctl({QStringLiteral("quit")}).status, 0);
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
