#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "norvoctl/ZVControlText.h"

using namespace ZVControlText;

namespace {

std::optional<ZVControlRequest> parse(const QStringList& arguments, QString* error = nullptr) {
    QString message;
    auto request = parseArguments(arguments, message);
    if (error) *error = message;
    return request;
}

QString parseError(const QStringList& arguments) {
    QString error;
    EXPECT_FALSE(parse(arguments, &error).has_value()) << arguments.join(QLatin1Char(' ')).toStdString();
    return error;
}

const QJsonObject runningState{{QStringLiteral("running"), true},
                               {QStringLiteral("clock"), QStringLiteral("01:02:05")},
                               {QStringLiteral("seconds"), 3725},
                               {QStringLiteral("project"), QStringLiteral("Acme \u2794 Client \u2794 Web")},
                               {QStringLiteral("name"), QStringLiteral("Web")},
                               {QStringLiteral("task"), QStringLiteral("Layout")},
                               {QStringLiteral("syncing"), false}};

QString format(const QJsonObject& state, const QString& text) {
    QString error;
    const auto line = formatState(state, text, error);
    EXPECT_TRUE(line.has_value()) << error.toStdString();
    return line.value_or(QString());
}

}  // namespace

TEST(ZVControlTextTest, ReadsCommandsWithTheirArgumentsAndOptionsInAnyOrder) {
    auto request = parse({QStringLiteral("start"), QStringLiteral("acme"), QStringLiteral(">"), QStringLiteral("web")});
    ASSERT_TRUE(request);
    EXPECT_EQ(request->command, QStringLiteral("start"));
    EXPECT_EQ(request->argument, QStringLiteral("acme > web"));

    request = parse({QStringLiteral("--format={clock}"), QStringLiteral("watch")});
    ASSERT_TRUE(request);
    EXPECT_EQ(request->format, QStringLiteral("{clock}"));

    request = parse({QStringLiteral("export"), QStringLiteral("--to"), QStringLiteral("today"), QStringLiteral("--from=yesterday"),
                     QStringLiteral("--out"), QStringLiteral("log.csv")});
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, QStringLiteral("yesterday"));
    EXPECT_EQ(request->to, QStringLiteral("today"));
    EXPECT_EQ(request->out, QStringLiteral("log.csv"));

    // A task's text is taken as it stands, and an empty one clears the task.
    request = parse({QStringLiteral("task"), QStringLiteral("--fix"), QStringLiteral("-v")});
    ASSERT_TRUE(request);
    EXPECT_EQ(request->argument, QStringLiteral("--fix -v"));
    request = parse({QStringLiteral("task"), QString()});
    ASSERT_TRUE(request);
    EXPECT_TRUE(request->argument.isEmpty());

    EXPECT_EQ(parse({QStringLiteral("stop"), QStringLiteral("--help")})->command, QStringLiteral("help"));
}

TEST(ZVControlTextTest, RefusesCommandLinesThatCannotMeanAnything) {
    EXPECT_TRUE(parseError({}).startsWith(QStringLiteral("no command")));
    EXPECT_EQ(parseError({QStringLiteral("pause")}), QStringLiteral("unknown command \"pause\"; see norvoctl --help"));
    EXPECT_EQ(parseError({QStringLiteral("status"), QStringLiteral("-x")}), QStringLiteral("unknown option -x"));
    EXPECT_EQ(parseError({QStringLiteral("stop"), QStringLiteral("now")}), QStringLiteral("stop takes no argument \"now\""));
    EXPECT_EQ(parseError({QStringLiteral("search")}), QStringLiteral("search needs a query"));
    EXPECT_EQ(parseError({QStringLiteral("search"), QStringLiteral("  ")}), QStringLiteral("search needs a query"));
    EXPECT_EQ(parseError({QStringLiteral("task")}), QStringLiteral("task needs a text (\"\" clears it)"));
    EXPECT_EQ(parseError({QStringLiteral("status"), QStringLiteral("--format")}), QStringLiteral("--format needs a value"));
    EXPECT_EQ(parseError({QStringLiteral("status"), QStringLiteral("--json"), QStringLiteral("--format"), QStringLiteral("{clock}")}),
              QStringLiteral("--json and --format exclude each other"));
    EXPECT_EQ(parseError({QStringLiteral("stop"), QStringLiteral("--json")}), QStringLiteral("stop takes no --json"));
    EXPECT_EQ(parseError({QStringLiteral("export"), QStringLiteral("--from"), QStringLiteral("today")}),
              QStringLiteral("export needs --from DAY --to DAY --out FILE"));
    EXPECT_EQ(parseError({QStringLiteral("status"), QStringLiteral("--out"), QStringLiteral("x")}),
              QStringLiteral("only export takes --from, --to and --out"));
}

TEST(ZVControlTextTest, FormatsTheStateFieldByField) {
    EXPECT_EQ(format(runningState, QString::fromLatin1(defaultFormat)),
              QStringLiteral("running 01:02:05 Acme \u2794 Client \u2794 Web"));
    EXPECT_EQ(format(runningState, QStringLiteral("{hm} {name}: {task} [{account}] {seconds}s {running}/{syncing}")),
              QStringLiteral("01:02 Web: Layout [Acme] 3725s true/false"));
    EXPECT_EQ(format(runningState, QStringLiteral("{{{clock}}}")), QStringLiteral("{01:02:05}"));
    // Hours beyond 99 keep all their digits.
    QJsonObject longRun = runningState;
    longRun.insert(QStringLiteral("clock"), QStringLiteral("100:00:00"));
    EXPECT_EQ(format(longRun, QStringLiteral("{hm}")), QStringLiteral("100:00"));

    const QJsonObject idle{{QStringLiteral("running"), false}, {QStringLiteral("clock"), QStringLiteral("00:00:00")},
                           {QStringLiteral("project"), QString()}};
    EXPECT_EQ(format(idle, QString::fromLatin1(defaultFormat)), QStringLiteral("stopped 00:00:00 no project"));
    EXPECT_EQ(format(idle, QStringLiteral("{account}|{task}")), QStringLiteral("|"));
}

TEST(ZVControlTextTest, NamesWhatIsWrongWithAFormat) {
    for (const auto& [text, message] :
         {std::pair{QStringLiteral("{clok}"), QStringLiteral("unknown field {clok} in the format; see norvoctl --help")},
          std::pair{QStringLiteral("{clock"), QStringLiteral("unclosed \"{\" in the format")},
          std::pair{QStringLiteral("clock}"), QStringLiteral("unmatched \"}\" in the format")}}) {
        QString error;
        EXPECT_FALSE(formatState(runningState, text, error).has_value()) << text.toStdString();
        EXPECT_EQ(error, message);
    }
}

TEST(ZVControlTextTest, ReadsFullDatesAndTheTwoNamedDays) {
    const QDate today(2026, 3, 1);
    EXPECT_EQ(parseDay(QStringLiteral("today"), today), today);
    EXPECT_EQ(parseDay(QStringLiteral(" Yesterday "), today), QDate(2026, 2, 28));
    EXPECT_EQ(parseDay(QStringLiteral("2024-02-29"), today), QDate(2024, 2, 29));
    for (const char* text : {"2023-02-29", "2024-13-01", "2024-1-5", "01.02.2024", "tomorrow", "", "2024-02-29x"})
        EXPECT_FALSE(parseDay(QString::fromLatin1(text), today).has_value()) << text;
}

TEST(ZVControlTextTest, EditDistanceCountsSingleCharacterChangesIgnoringCase) {
    EXPECT_EQ(editDistance(QStringLiteral("Website"), QStringLiteral("website")), 0);
    EXPECT_EQ(editDistance(QStringLiteral("websiet"), QStringLiteral("website")), 2);
    EXPECT_EQ(editDistance(QStringLiteral("kitten"), QStringLiteral("sitting")), 3);
    EXPECT_EQ(editDistance(QString(), QStringLiteral("abc")), 3);
    EXPECT_EQ(editDistance(QStringLiteral("Bücher"), QStringLiteral("BÜCHER")), 0);
}

TEST(ZVControlTextTest, ClosestProjectsCompareAsManyTrailingComponentsAsTheQueryHas) {
    const QStringList paths{QStringLiteral("Acme \u2794 Website"), QStringLiteral("Acme \u2794 Webinar"),
                            QStringLiteral("Projects \u2794 Billing"), QStringLiteral("Initech \u2794 Website"),
                            QStringLiteral("Projects \u2794 Web")};
    // By the leaf's name: "Website" twice (distance 2), then "Webinar" and "Web" (4 each) in their order.
    EXPECT_EQ(closestProjects(QStringLiteral("Websiet"), paths),
              (QStringList{QStringLiteral("Acme \u2794 Website"), QStringLiteral("Initech \u2794 Website"),
                           QStringLiteral("Acme \u2794 Webinar")}));
    // A path query compares with the account's name too.
    EXPECT_EQ(closestProjects(QStringLiteral("initeck>websit"), paths, 1), QStringList{QStringLiteral("Initech \u2794 Website")});
    EXPECT_EQ(closestProjects(QStringLiteral("x"), {}, 3), QStringList{});
    EXPECT_EQ(closestProjects(QStringLiteral("x"), paths, 10).size(), paths.size());
}

TEST(ZVControlTextTest, TellsWhyAnOutputPathCannotBeWritten) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    EXPECT_TRUE(outputPathProblem(folder.filePath(QStringLiteral("log.csv"))).isEmpty());
    EXPECT_EQ(outputPathProblem(folder.path()), folder.path() + QStringLiteral(" is a folder"));
    EXPECT_EQ(outputPathProblem(folder.filePath(QStringLiteral("missing/log.csv"))),
              QStringLiteral("the folder %1 does not exist").arg(folder.filePath(QStringLiteral("missing"))));
    EXPECT_EQ(outputPathProblem(QString()), QStringLiteral("the output path is empty"));
    EXPECT_EQ(outputPathProblem(QStringLiteral("/proc/version/log.csv")), QStringLiteral("/proc/version is not a folder"));
    // A file whose folder takes no new file, not even from the superuser.
    EXPECT_EQ(outputPathProblem(QStringLiteral("/proc/version")), QStringLiteral("/proc/version cannot be written"));
    QFile existing(folder.filePath(QStringLiteral("old.csv")));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("kept");
    existing.close();
    EXPECT_TRUE(outputPathProblem(existing.fileName()).isEmpty());
    ASSERT_TRUE(existing.open(QIODevice::ReadOnly));
    EXPECT_EQ(existing.readAll(), QByteArrayLiteral("kept")) << "checking a path must not change the file";
    existing.close();
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("old.csv")})
        << "checking leaves nothing behind";
}

TEST(ZVControlTextTest, AFolderWithoutWriteRightsCannotTakeTheFile) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString locked = folder.filePath(QStringLiteral("locked"));
    ASSERT_TRUE(QDir().mkdir(locked));
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner);
    if (QFileInfo(locked).isWritable()) GTEST_SKIP() << "runs with rights that ignore permissions";
    EXPECT_EQ(outputPathProblem(locked + QStringLiteral("/log.csv")),
              locked + QStringLiteral("/log.csv cannot be written"));
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}
