#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <cstdlib>

#include "ShellTestEnvironment.h"
#include "ZVPreferences.h"

using namespace Qt::StringLiterals;

namespace {

QString artifactsFolder() {
    QDir folder(buildTreePath(u"artifacts"_s));
    folder.mkpath(u"."_s);
    return folder.absolutePath();
}

/// Runs a command line (split at single spaces) to its end and gives its first line of output.
QString run(const QString& line) {
    QProcess process;
    QStringList arguments = line.split(QLatin1Char(' '));
    process.start(arguments.takeFirst(), arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
}

bool screenshot(const QString& path) {
    QFile::remove(path);
    QProcess::execute(u"import"_s, {u"-window"_s, u"root"_s, path});
    return QFileInfo(path).size() > 0;
}

}  // namespace

// Starts the real program on the X display with a tray host and keeps
// pictures of the timer window and of the open status menu in the build
// tree's tests/artifacts folder.
TEST(NorvoEndToEnd, ShowsTheTimerWindowAndTheStatusMenu) {
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display) GTEST_SKIP() << "needs an X display (run under Xvfb)";
    for (const char* tool : {"import", "xdotool", "trayer"})
        if (QStandardPaths::findExecutable(QString::fromUtf8(tool)).isEmpty()) GTEST_SKIP() << tool << " is missing";
    const QString executable = buildTreePath(u"../src/norvo"_s);
    if (!QFileInfo::exists(executable)) GTEST_SKIP() << "the norvo executable is not built";

    TemporaryHome home;
    ZVPreferences::shared().setBoolean(true, "ZVReleaseNotes847");
    ASSERT_TRUE(ZVPreferences::shared().synchronize());

    QProcess tray;
    tray.start(u"trayer"_s, words("--edge top --align right --height 28 --widthtype pixel --width 80"));
    ASSERT_TRUE(tray.waitForStarted());
    QThread::msleep(800);

    QProcess norvo;
    norvo.start(executable, {});
    ASSERT_TRUE(norvo.waitForStarted());
    QString windowID;
    for (int attempt = 0; attempt < 50 && windowID.isEmpty(); ++attempt) {
        QThread::msleep(200);
        windowID = run(u"xdotool search --onlyvisible --name ^Norvo$"_s);
    }
    EXPECT_FALSE(windowID.isEmpty()) << "the timer window did not appear";
    QThread::msleep(1500);
    const QString folder = artifactsFolder();
    EXPECT_TRUE(screenshot(folder + u"/timer-window.png"_s));

    // The tray icon is the first child of trayer's window; a right click opens the status menu.
    const QString trayWindow = run(u"xdotool search --class trayer"_s);
    if (!trayWindow.isEmpty()) {
        run(u"xdotool mousemove --window "_s + trayWindow + u" 12 14 click 3"_s);
        QThread::msleep(1200);
        EXPECT_TRUE(screenshot(folder + u"/status-menu.png"_s));
        run(u"xdotool key Escape"_s);
    }

    EXPECT_EQ(norvo.state(), QProcess::Running) << "norvo ended: " << norvo.readAllStandardError().toStdString();
    norvo.terminate();
    norvo.waitForFinished(5000);
    tray.kill();
    tray.waitForFinished(2000);
}
