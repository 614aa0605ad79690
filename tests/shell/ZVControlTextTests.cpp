#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "ShellTestEnvironment.h"
#include "norvoctl/ZVControlText.h"

using namespace Qt::StringLiterals;

using namespace ZVControlText;

namespace {

/// The request read from the words as "command|argument|json|format|from|to|out".
QString parsed(const QStringList& arguments) {
    QString error;
    const auto request = parseArguments(arguments, error);
    if (!request) return u"<refused: "_s + error + u">"_s;
    return QStringList{request->command, request->argument, request->json ? u"json"_s : QString(), request->format,
                       request->from, request->to, request->out}
        .join(QLatin1Char('|'));
}

QString parseError(const QStringList& arguments) {
    QString error;
    EXPECT_FALSE(parseArguments(arguments, error).has_value()) << arguments.join(QLatin1Char(' ')).toStdString();
    return error;
}

QString parseError(const char* line) { return parseError(words(line)); }

const QJsonObject runningState{{u"running"_s, true},  {u"clock"_s, u"01:02:05"_s},
                               {u"seconds"_s, 3725},  {u"project"_s, u"Acme \u2794 Client \u2794 Web"_s},
                               {u"name"_s, u"Web"_s}, {u"task"_s, u"Layout"_s},
                               {u"syncing"_s, false}};

QString format(const QJsonObject& state, const QString& text) {
    QString error;
    const auto line = formatState(state, text, error);
    EXPECT_TRUE(line.has_value()) << error.toStdString();
    return line.value_or(QString());
}

}  // namespace

TEST(ZVControlTextTest, ReadsCommandsWithTheirArgumentsAndOptionsInAnyOrder) {
    const std::pair<QStringList, QString> cases[] = {
        {words("start acme > web"), u"start|acme > web|||||"_s},
        {words("--format={clock} watch"), u"watch|||{clock}|||"_s},
        {words("status --json"), u"status||json||||"_s},
        {words("export --to today --from=yesterday --out log.csv"), u"export||||yesterday|today|log.csv"_s},
        // A task's text is taken as it stands, and an empty one clears the task.
        {words("task --fix -v"), u"task|--fix -v|||||"_s},
        {{u"task"_s, QString()}, u"task||||||"_s},
        {words("stop --help"), u"help||||||"_s},
    };
    for (const auto& [arguments, request] : cases)
        EXPECT_EQ(parsed(arguments), request) << arguments.join(u' ').toStdString();
}

TEST(ZVControlTextTest, RefusesCommandLinesThatCannotMeanAnything) {
    EXPECT_TRUE(parseError(QStringList{}).startsWith(u"no command"_s));
    EXPECT_EQ(parseError("pause"), u"unknown command \"pause\"; see norvoctl --help"_s);
    EXPECT_EQ(parseError("status -x"), u"unknown option -x"_s);
    EXPECT_EQ(parseError("stop now"), u"stop takes no argument \"now\""_s);
    EXPECT_EQ(parseError("search"), u"search needs a query"_s);
    EXPECT_EQ(parseError({u"search"_s, u"  "_s}), u"search needs a query"_s);
    EXPECT_EQ(parseError("task"), u"task needs a text (\"\" clears it)"_s);
    EXPECT_EQ(parseError("status --format"), u"--format needs a value"_s);
    EXPECT_EQ(parseError("status --json --format {clock}"), u"--json and --format exclude each other"_s);
    EXPECT_EQ(parseError("stop --json"), u"stop takes no --json"_s);
    EXPECT_EQ(parseError("export --from today"), u"export needs --from DAY --to DAY --out FILE"_s);
    EXPECT_EQ(parseError("status --out x"), u"only export takes --from, --to and --out"_s);
}

TEST(ZVControlTextTest, FormatsTheStateFieldByField) {
    EXPECT_EQ(format(runningState, QString::fromLatin1(defaultFormat)),
              u"running 01:02:05 Acme \u2794 Client \u2794 Web"_s);
    EXPECT_EQ(format(runningState, u"{hm} {name}: {task} [{account}] {seconds}s {running}/{syncing}"_s),
              u"01:02 Web: Layout [Acme] 3725s true/false"_s);
    EXPECT_EQ(format(runningState, u"{{{clock}}}"_s), u"{01:02:05}"_s);
    // Hours beyond 99 keep all their digits.
    QJsonObject longRun = runningState;
    longRun.insert(u"clock"_s, u"100:00:00"_s);
    EXPECT_EQ(format(longRun, u"{hm}"_s), u"100:00"_s);
    const QJsonObject idle{{u"running"_s, false}, {u"clock"_s, u"00:00:00"_s}, {u"project"_s, QString()}};
    EXPECT_EQ(format(idle, QString::fromLatin1(defaultFormat)), u"stopped 00:00:00 no project"_s);
    EXPECT_EQ(format(idle, u"{account}|{task}"_s), u"|"_s);
}

TEST(ZVControlTextTest, NamesWhatIsWrongWithAFormat) {
    for (const auto& [text, message] :
         {std::pair{u"{clok}"_s, u"unknown field {clok} in the format; see norvoctl --help"_s},
          std::pair{u"{clock"_s, u"unclosed \"{\" in the format"_s},
          std::pair{u"clock}"_s, u"unmatched \"}\" in the format"_s}}) {
        QString error;
        EXPECT_FALSE(formatState(runningState, text, error).has_value()) << text.toStdString();
        EXPECT_EQ(error, message);
    }
}

TEST(ZVControlTextTest, ReadsFullDatesAndTheTwoNamedDays) {
    const QDate today(2026, 3, 1);
    EXPECT_EQ(parseDay(u"today"_s, today), today);
    EXPECT_EQ(parseDay(u" Yesterday "_s, today), QDate(2026, 2, 28));
    EXPECT_EQ(parseDay(u"2024-02-29"_s, today), QDate(2024, 2, 29));
    for (const char* text : {"2023-02-29", "2024-13-01", "2024-1-5", "01.02.2024", "tomorrow", "", "2024-02-29x"})
        EXPECT_FALSE(parseDay(QString::fromLatin1(text), today).has_value()) << text;
}

TEST(ZVControlTextTest, EditDistanceCountsSingleCharacterChangesIgnoringCase) {
    EXPECT_EQ(editDistance(u"Website"_s, u"website"_s), 0);
    EXPECT_EQ(editDistance(u"websiet"_s, u"website"_s), 2);
    EXPECT_EQ(editDistance(u"kitten"_s, u"sitting"_s), 3);
    EXPECT_EQ(editDistance(QString(), u"abc"_s), 3);
    EXPECT_EQ(editDistance(u"Bücher"_s, u"BÜCHER"_s), 0);
}

TEST(ZVControlTextTest, ClosestProjectsCompareAsManyTrailingComponentsAsTheQueryHas) {
    const QStringList paths{u"Acme \u2794 Website"_s, u"Acme \u2794 Webinar"_s, u"Projects \u2794 Billing"_s,
                            u"Initech \u2794 Website"_s, u"Projects \u2794 Web"_s};
    // By the leaf's name: "Website" twice (distance 2), then "Webinar" and "Web" (4 each) in their order.
    EXPECT_EQ(closestProjects(u"Websiet"_s, paths),
              (QStringList{u"Acme \u2794 Website"_s, u"Initech \u2794 Website"_s, u"Acme \u2794 Webinar"_s}));
    // A path query compares with the account's name too.
    EXPECT_EQ(closestProjects(u"initeck>websit"_s, paths, 1), QStringList{u"Initech \u2794 Website"_s});
    EXPECT_EQ(closestProjects(u"x"_s, {}, 3), QStringList{});
    EXPECT_EQ(closestProjects(u"x"_s, paths, 10).size(), paths.size());
}

TEST(ZVControlTextTest, TellsWhyAnOutputPathCannotBeWritten) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    EXPECT_TRUE(outputPathProblem(folder.filePath(u"log.csv"_s)).isEmpty());
    EXPECT_EQ(outputPathProblem(folder.path()), folder.path() + u" is a folder"_s);
    EXPECT_EQ(outputPathProblem(folder.filePath(u"missing/log.csv"_s)),
              u"the folder %1 does not exist"_s.arg(folder.filePath(u"missing"_s)));
    EXPECT_EQ(outputPathProblem(QString()), u"the output path is empty"_s);
    EXPECT_EQ(outputPathProblem(u"/proc/version/log.csv"_s), u"/proc/version is not a folder"_s);
    // A file whose folder takes no new file, not even from the superuser.
    EXPECT_EQ(outputPathProblem(u"/proc/version"_s), u"/proc/version cannot be written"_s);
    QFile existing(folder.filePath(u"old.csv"_s));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("kept");
    existing.close();
    EXPECT_TRUE(outputPathProblem(existing.fileName()).isEmpty());
    ASSERT_TRUE(existing.open(QIODevice::ReadOnly));
    EXPECT_EQ(existing.readAll(), QByteArrayLiteral("kept")) << "checking a path must not change the file";
    existing.close();
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{u"old.csv"_s})
        << "checking leaves nothing behind";
}

TEST(ZVControlTextTest, AFolderWithoutWriteRightsCannotTakeTheFile) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString locked = folder.filePath(u"locked"_s);
    ASSERT_TRUE(QDir().mkdir(locked));
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner);
    if (QFileInfo(locked).isWritable()) GTEST_SKIP() << "runs with rights that ignore permissions";
    EXPECT_EQ(outputPathProblem(locked + u"/log.csv"_s), locked + u"/log.csv cannot be written"_s);
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}
