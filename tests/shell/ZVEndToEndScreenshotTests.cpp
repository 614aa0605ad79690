#include <QDir>
#include <QLineEdit>
#include <QPalette>
#include <QStyle>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <cstdlib>

#include "ShellTestEnvironment.h"
#include "ZVLocalization.h"
#include "ZVPreferences.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "preferences/ZVPreferencesWindow.h"
#include "ui_elements/ZVReceiptDrawerWindow.h"

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

QPalette darkPalette() {
    QPalette dark;
    const std::pair<QPalette::ColorRole, QRgb> colors[] = {
        {QPalette::Window, 0x2d2f33},     {QPalette::WindowText, 0xeeeeee}, {QPalette::Base, 0x1e1f22},
        {QPalette::AlternateBase, 0x35373b}, {QPalette::Text, 0xeeeeee},   {QPalette::Button, 0x3a3c40},
        {QPalette::ButtonText, 0xeeeeee}, {QPalette::Mid, 0x606266},        {QPalette::PlaceholderText, 0x999999}};
    for (const auto& [role, rgb] : colors) dark.setColor(role, QColor(rgb));
    return dark;
}

class ZVScreenshotTest : public LaunchedAppFixture {};

// Pictures of what a new user meets, in English and German and in a light
// and a dark desktop palette, kept in the build tree's tests/artifacts
// folder: the first start, the log beside the timer window and the
// preferences. The timer window takes the palette's colours.
TEST_F(ZVScreenshotTest, FirstStartLogAndPreferencesInBothLanguagesAndPalettes) {
    const QPalette light = QApplication::style()->standardPalette();
    const QString folder = artifactsFolder();
    for (const char* language : {"en", "de"}) {
        for (const bool dark : {false, true}) {
            ScopedVariable chosen("LANGUAGE", language);
            ZVPrepareLocalization();
            QApplication::setPalette(dark ? darkPalette() : light);
            const QString name = QString::fromUtf8(language) + (dark ? u"-dark"_s : u"-light"_s);
            // Texts are read in the language of the moment the window is made.
            ZVNorvoMainWindow window(*delegate);
            window.show();
            processEventsUntil([] { return false; }, 100);
            const QImage start = window.grab().toImage();
            EXPECT_TRUE(start.save(folder + u"/first-start-"_s + name + u".png"_s));
            const QColor background = start.pixelColor(start.width() - 3, start.height() / 2);
            EXPECT_EQ(background.lightnessF() < 0.5, dark) << name.toStdString() << ": the window ignores the palette";
            ZVPreferencesWindow preferences({});
            preferences.show();
            processEventsUntil([] { return false; }, 100);
            EXPECT_TRUE(preferences.grab().save(folder + u"/preferences-"_s + name + u".png"_s));
            preferences.hide();
        }
    }
    QApplication::setPalette(light);
    ZVNorvoMainWindow& window = *delegate->window();
    window.show();
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Müller & Söhne");
    ZVIntegrationCenter::shared().setCurrentProject(project);
    window.currentTaskTextField()->setText(u"Wireframes"_s);
    ZVHeartBeat::sharedHeartBeat().start();
    window.logDrawer()->setSoundPlayer([](const QString&) {});
    window.setLogDrawerShown(true);
    processEventsUntil([] { return false; }, 400);
    EXPECT_TRUE(window.logDrawer()->grab().save(folder + u"/log-window.png"_s));
    ZVHeartBeat::sharedHeartBeat().stop();
    ZVPrepareLocalization();
}

}  // namespace
