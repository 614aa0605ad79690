#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <cstdlib>

#include "ShellTestEnvironment.h"
#include "ZVPreferences.h"

namespace {

// The executable sits in the build tree's src folder, beside this suite's tests folder.
QString norvoExecutable() {
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    return QFileInfo(self).dir().absoluteFilePath(QStringLiteral("../src/norvo"));
}

QString artifactsFolder() {
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    QDir folder(QFileInfo(self).dir().absoluteFilePath(QStringLiteral("artifacts")));
    folder.mkpath(QStringLiteral("."));
    return folder.absolutePath();
}

QString run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

bool screenshot(const QString& path) {
    QFile::remove(path);
    run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), path});
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
    const QString executable = norvoExecutable();
    if (!QFileInfo::exists(executable)) GTEST_SKIP() << "the norvo executable is not built";

    TemporaryHome home;
    ZVPreferences::shared().setBoolean(true, "ZVReleaseNotes847");
    ASSERT_TRUE(ZVPreferences::shared().synchronize());

    QProcess tray;
    tray.start(QStringLiteral("trayer"), {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
                                          QStringLiteral("right"), QStringLiteral("--height"), QStringLiteral("28"),
                                          QStringLiteral("--widthtype"), QStringLiteral("pixel"),
                                          QStringLiteral("--width"), QStringLiteral("80")});
    ASSERT_TRUE(tray.waitForStarted());
    QThread::msleep(800);

    QProcess norvo;
    norvo.start(executable, {});
    ASSERT_TRUE(norvo.waitForStarted());
    QString windowID;
    for (int attempt = 0; attempt < 50 && windowID.isEmpty(); ++attempt) {
        QThread::msleep(200);
        windowID = run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                   QStringLiteral("--name"), QStringLiteral("^Norvo$")})
                       .section(QLatin1Char('\n'), 0, 0);
    }
    EXPECT_FALSE(windowID.isEmpty()) << "the timer window did not appear";
    QThread::msleep(1500);
    const QString folder = artifactsFolder();
    EXPECT_TRUE(screenshot(folder + QStringLiteral("/timer-window.png")));

    // The tray icon is the first child of trayer's window; a right click opens the status menu.
    const QString trayWindow = run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--class"),
                                                              QStringLiteral("trayer")})
                                   .section(QLatin1Char('\n'), 0, 0);
    if (!trayWindow.isEmpty()) {
        run(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QStringLiteral("--window"), trayWindow,
                                        QStringLiteral("12"), QStringLiteral("14"), QStringLiteral("click"),
                                        QStringLiteral("3")});
        QThread::msleep(1200);
        EXPECT_TRUE(screenshot(folder + QStringLiteral("/status-menu.png")));
        run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("Escape")});
    }

    EXPECT_EQ(norvo.state(), QProcess::Running) << "norvo ended: " << norvo.readAllStandardError().toStdString();
    norvo.terminate();
    norvo.waitForFinished(5000);
    tray.kill();
    tray.waitForFinished(2000);
}
