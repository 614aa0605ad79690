#include <QDir>
#include <QLineEdit>
#include <QPalette>
#include <QStyle>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

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
QString run(const QString& line, const QProcessEnvironment& environment) {
    QProcess process;
    process.setProcessEnvironment(environment);
    QStringList arguments = line.split(QLatin1Char(' '));
    process.start(arguments.takeFirst(), arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
}

bool screenshot(const QString& path, const QProcessEnvironment& environment) {
    QFile::remove(path);
    QProcess import;
    import.setProcessEnvironment(environment);
    import.start(u"import"_s, {u"-window"_s, u"root"_s, path});
    import.waitForFinished(10000);
    return QFileInfo(path).size() > 0;
}

/// An X server of its own: the real clicks and the Escape key sent below
/// must not land in the windows of tests that run beside this one.
class PrivateDisplay {
public:
    PrivateDisplay() {
        for (int number = 140; number < 180 && _name.isEmpty(); ++number) {
            if (QFileInfo::exists(u"/tmp/.X%1-lock"_s.arg(number))) continue;
            _server.start(u"Xvfb"_s, {u":%1"_s.arg(number), u"-screen"_s, u"0"_s, u"1024x700x24"_s, u"-nolisten"_s,
                                     u"tcp"_s});
            if (!_server.waitForStarted()) return;
            for (int wait = 0; wait < 30 && _server.state() == QProcess::Running; ++wait) {
                QThread::msleep(100);
                if (QFileInfo::exists(u"/tmp/.X11-unix/X%1"_s.arg(number))) {
                    _name = u":%1"_s.arg(number);
                    break;
                }
            }
        }
    }
    ~PrivateDisplay() {
        _server.terminate();
        _server.waitForFinished(3000);
    }
    bool isReady() const { return !_name.isEmpty(); }
    /// This process's environment as it is now, on the private display.
    QProcessEnvironment environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DISPLAY"_s, _name);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        return environment;
    }

private:
    QProcess _server;
    QString _name;
};

// Starts the real program on the X display with a tray host and keeps
// pictures of the timer window and of the open status menu in the build
// tree's tests/artifacts folder.
TEST(NorvoEndToEnd, ShowsTheTimerWindowAndTheStatusMenu) {
    for (const char* tool : {"Xvfb", "import", "xdotool", "trayer"})
        if (QStandardPaths::findExecutable(QString::fromUtf8(tool)).isEmpty()) GTEST_SKIP() << tool << " is missing";
    const QString executable = buildTreePath(u"../src/norvo"_s);
    if (!QFileInfo::exists(executable)) GTEST_SKIP() << "the norvo executable is not built";
    PrivateDisplay display;
    ASSERT_TRUE(display.isReady()) << "no X server of its own could start";
    TemporaryHome home;
    ZVPreferences::shared().setBoolean(true, "ZVReleaseNotes847");
    ASSERT_TRUE(ZVPreferences::shared().synchronize());
    const QProcessEnvironment environment = display.environment();
    QProcess tray;
    tray.setProcessEnvironment(environment);
    tray.start(u"trayer"_s, words("--edge top --align right --height 28 --widthtype pixel --width 80"));
    ASSERT_TRUE(tray.waitForStarted());
    QThread::msleep(800);
    QProcess norvo;
    norvo.setProcessEnvironment(environment);
    norvo.start(executable, {});
    ASSERT_TRUE(norvo.waitForStarted());
    QString windowID;
    for (int attempt = 0; attempt < 50 && windowID.isEmpty(); ++attempt) {
        QThread::msleep(200);
        windowID = run(u"xdotool search --onlyvisible --name ^Norvo$"_s, environment);
    }
    EXPECT_FALSE(windowID.isEmpty()) << "the timer window did not appear";
    QThread::msleep(1500);
    const QString folder = artifactsFolder();
    EXPECT_TRUE(screenshot(folder + u"/timer-window.png"_s, environment));
    // The tray icon is the first child of trayer's window; a right click opens the status menu.
    const QString trayWindow = run(u"xdotool search --class trayer"_s, environment);
    if (!trayWindow.isEmpty()) {
        run(u"xdotool mousemove --window "_s + trayWindow + u" 12 14 click 3"_s, environment);
        QThread::msleep(1200);
        EXPECT_TRUE(screenshot(folder + u"/status-menu.png"_s, environment));
        run(u"xdotool key Escape"_s, environment);
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
