#include <gmock/gmock.h>

#include <QCheckBox>
#include <QPushButton>
#include <QCoreApplication>
#include <QIcon>
#include <QImage>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "IgnoredCommands.h"
#include "ShellTestEnvironment.h"
#include "ZVHTTPSession.h"
#include "ZVLocalization.h"
#include "ZVPaths.h"
#include "app/ZVMenuManager.h"
#include "core/ui/ZVMenu.h"
#include "preferences/ZVLaunchAtLogin.h"
#include "preferences/ZVPreferencesWindow.h"
#include "testkit/ScriptedUserInterface.h"
#include "app/ZVStatusItemController.h"

using namespace Qt::StringLiterals;

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

void writeText(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

std::string readText(const std::string& path) {
    std::string text;
    EXPECT_TRUE(ZVPaths::readFile(path, text)) << path;
    return text;
}

class ZVLaunchAtLoginTest : public ShellFixture {
protected:
    ZVLaunchAtLoginTest() : systemConfig("XDG_CONFIG_DIRS", home.path() + "/etc-xdg") {}

    QCheckBox& startAtLoginBox() {
        auto* box = window.findChild<QCheckBox*>(u"startAtLoginButton"_s);
        if (!box) throw std::runtime_error("the General pane has no start-at-login box");
        return *box;
    }
    std::string userEntry() const { return home.path() + "/.config/autostart/com.tesselwick.Norvo.desktop"; }
    std::string systemEntry() const { return home.path() + "/etc-xdg/autostart/com.tesselwick.Norvo.desktop"; }

    ScopedVariable systemConfig;
    ZVPreferencesWindow window{ZVPreferencesWindow::Hooks{}};
};

TEST_F(ZVLaunchAtLoginTest, TheBoxWritesAndRemovesTheAutostartEntryAndShowsWhatTheUserDidToIt) {
    EXPECT_EQ(ZVLaunchAtLogin::userEntryPath(), userEntry());
    EXPECT_FALSE(startAtLoginBox().isChecked()) << "off until the user turns it on";
    startAtLoginBox().setChecked(true);
    const std::string text = readText(userEntry());
    EXPECT_THAT(text, ::testing::StartsWith("[Desktop Entry]\nType=Application\n"));
    EXPECT_THAT(text, HasSubstr("\nExec=" + QCoreApplication::applicationFilePath().toStdString() + "\n"));
    EXPECT_THAT(text, Not(HasSubstr("Hidden=true")));
    EXPECT_TRUE(ZVLaunchAtLogin::isEnabled());
    startAtLoginBox().setChecked(false);
    EXPECT_FALSE(std::filesystem::exists(userEntry()));
    EXPECT_FALSE(ZVLaunchAtLogin::isEnabled());
    // The pane shows what the user did to the file by hand.
    ASSERT_TRUE(ZVLaunchAtLogin::setEnabled(true, "/usr/bin/norvo"));
    window.loadPreferences();
    EXPECT_TRUE(startAtLoginBox().isChecked());
    std::filesystem::remove(userEntry());
    window.loadPreferences();
    EXPECT_FALSE(startAtLoginBox().isChecked()) << "a file removed by hand reads as off";
    // Session managers switch an entry off by either key, in its main group.
    writeText(userEntry(), ZVLaunchAtLogin::entryText("/usr/bin/norvo") + "Hidden=true\n");
    EXPECT_FALSE(ZVLaunchAtLogin::isEnabled());
    writeText(userEntry(), "[Desktop Entry]\nType=Application\nExec=norvo\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(ZVLaunchAtLogin::isEnabled());
    writeText(userEntry(), "[Desktop Entry]\nType=Application\nExec=norvo\n[Desktop Action Quit]\nHidden=true\n");
    EXPECT_TRUE(ZVLaunchAtLogin::isEnabled()) << "a key of another group does not count";
}

TEST_F(ZVLaunchAtLoginTest, ASystemWideEntryIsHiddenRatherThanRemoved) {
    writeText(systemEntry(), ZVLaunchAtLogin::entryText("/usr/bin/norvo"));
    window.loadPreferences();
    EXPECT_TRUE(startAtLoginBox().isChecked()) << "the system's entry starts Norvo while the user has none";
    startAtLoginBox().setChecked(false);
    ASSERT_TRUE(std::filesystem::exists(userEntry())) << "removing nothing would leave the system's entry in force";
    EXPECT_THAT(readText(userEntry()), HasSubstr("\nHidden=true\n"));
    EXPECT_FALSE(ZVLaunchAtLogin::isEnabled());
    startAtLoginBox().setChecked(true);
    EXPECT_THAT(readText(userEntry()), Not(HasSubstr("Hidden=true")));
    EXPECT_TRUE(ZVLaunchAtLogin::isEnabled());
}

TEST(ZVLaunchAtLoginExecTest, ProgramPathsAreQuotedAsTheDesktopEntryRulesAsk) {
    EXPECT_EQ(ZVLaunchAtLogin::quotedExecArgument("/usr/bin/norvo"), "/usr/bin/norvo");
    EXPECT_EQ(ZVLaunchAtLogin::quotedExecArgument("/opt/my apps/norvo"), "\"/opt/my apps/norvo\"");
    EXPECT_EQ(ZVLaunchAtLogin::quotedExecArgument("/opt/$x/`y`/norvo"), "\"/opt/\\$x/\\`y\\`/norvo\"");
    EXPECT_EQ(ZVLaunchAtLogin::quotedExecArgument("/opt/a\"b\\c"), "\"/opt/a\\\"b\\\\c\"");
    // In the file the backslashes of the quoting are escaped once more.
    EXPECT_THAT(ZVLaunchAtLogin::entryText("/opt/a\\b c/norvo"), HasSubstr("\nExec=\"/opt/a\\\\\\\\b c/norvo\"\n"));
}

class ZVGermanCatalogTest : public ShellFixture, public IgnoredCommands {
protected:
    ZVGermanCatalogTest() : language("LANGUAGE", "de") {
        ZVPrepareLocalization();
        ZVMenuManager::shared().setCommands(this);
    }
    ~ZVGermanCatalogTest() override {
        ZVMenuManager::shared().setCommands(nullptr);
        language.restore();
        ZVPrepareLocalization();
    }

    ScopedVariable language;
    ScriptedUserInterface ui;
};

TEST_F(ZVGermanCatalogTest, MenusAndAlertsSpeakGermanAndFillTheirPlaceholders) {
    auto local = ZVNorvoIntegration::sharedIntegration();
    auto project = addProject(local, "Website");
    ZVIntegrationCenter::shared().setCurrentProject(project);
    EXPECT_EQ(titles(*ZVMenuManager::shared().actionMenu()),
              "Timer starten|Timer zurücksetzen …|-|Zeit in Projekt verschieben …|Zeit aus Projekt verschieben …|"
              "Zeit in Projekt kopieren …|Zeit aus Projekt kopieren …|-|Zeit runden …|Zeit bearbeiten …");
    const auto menu = local->integrationMenu(nullptr, nullptr, true);
    ZVMenuItem* remove = menu->itemWithTitle("„Website“ entfernen …");
    ASSERT_NE(remove, nullptr);
    ui.answerWith("Abbrechen");
    remove->perform();
    ASSERT_EQ(ui.alerts().size(), 1u);
    EXPECT_EQ(ui.alerts()[0].messageText, "Möchten Sie das Projekt „Website“ wirklich entfernen?");
    EXPECT_EQ(ui.alerts()[0].buttons, (std::vector<std::string>{"Abbrechen", "Entfernen"}));
    EXPECT_EQ(local->availableProjects().size(), 1u);
    // A translation may put the placeholders in another order.
    EXPECT_EQ(ZVLocalizedFormat("Changing time to %@ for '%@'", {"01:00:00", "Website"}),
              "Zeit für „Website“ auf 01:00:00 geändert");
}

// English has no catalog and takes its own singular and plural words.
TEST_F(ZVGermanCatalogTest, CountsTakeTheSingularAndPluralOfTheLanguage) {
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    const std::tuple<const char*, std::uint64_t, const char*> totals[] = {
        {"de", 1, "1 SEKUNDE"},           {"de", 2, "2 SEKUNDEN"},           {"de", 0, "0 SEKUNDEN"},
        {"de", 61, "1 MINUTE 1 SEKUNDE"}, {"de", 125, "2 MINUTEN 5 SEKUNDEN"}, {"de", 3600, "1 STUNDE 0 MINUTEN"},
        {"de", 7260, "2 STUNDEN 1 MINUTE"}, {"en", 61, "1 MINUTE 1 SECOND"}, {"en", 7320, "2 HOURS 2 MINUTES"},
    };
    for (const auto& [lang, seconds, text] : totals) {
        setenv("LANGUAGE", lang, 1);
        ZVPrepareLocalization();
        project->setTimeWithoutSaving(seconds);
        EXPECT_EQ(project->totalTimeString(), text) << lang << " " << seconds;
    }
    const std::tuple<const char*, unsigned long, const char*> minutes[] = {
        {"de", 1, "1 Minute"}, {"de", 15, "15 Minuten"}, {"en", 1, "1 minute"}, {"en", 5, "5 minutes"}};
    for (const auto& [lang, count, text] : minutes) {
        setenv("LANGUAGE", lang, 1);
        ZVPrepareLocalization();
        EXPECT_EQ(ZVLocalizedPluralFormat("%@ minute", "%@ minutes", count, {std::to_string(count)}), text) << lang;
    }
}

TEST_F(ShellFixture, TheTrayKeepsItsClockAndShowsTheThemedStateIconWhereTheClockCannotBeRead) {
    ZVStatusItemView view;
    view.setTimeString(u"01:02:03"_s);
    const QImage clock = view.render();
    const QIcon stoppedLight = ZVStatusItemController::trayIcon(view, false);
    EXPECT_EQ(stoppedLight.pixmap(ZVStatusItemView::iconSize, ZVStatusItemView::iconSize)
                  .toImage()
                  .convertToFormat(clock.format()),
              clock)
        << "the live clock is what a tray of the usual size shows";
    auto small = [](const QIcon& icon) { return icon.pixmap(16, 16).toImage(); };
    ASSERT_FALSE(small(stoppedLight).isNull());
    EXPECT_NE(small(stoppedLight), clock.scaled(16, 16)) << "a 16-pixel tray gets the state icon, not a shrunken clock";
    const QIcon stoppedDark = ZVStatusItemController::trayIcon(view, true);
    EXPECT_NE(small(stoppedDark), small(stoppedLight)) << "light marks for a dark panel";
    view.setBeating(true);
    const QIcon running = ZVStatusItemController::trayIcon(view, false);
    EXPECT_NE(small(running), small(stoppedLight));
    view.setSpinnerPhase(0);
    const QIcon syncing = ZVStatusItemController::trayIcon(view, false);
    EXPECT_NE(small(syncing), small(running));
    EXPECT_EQ(ZVStatusItemController::stateIconName(false, false, false), u"com.tesselwick.Norvo-stopped"_s);
    EXPECT_EQ(ZVStatusItemController::stateIconName(true, false, true), u"com.tesselwick.Norvo-running-dark"_s);
    EXPECT_EQ(ZVStatusItemController::stateIconName(true, true, false), u"com.tesselwick.Norvo-syncing"_s);
}

class CookieCountingSession final : public ZVHTTPSession {
public:
    ZVHTTPResult send(const ZVURLRequest&) override { return {}; }
    std::vector<ZVHTTPCookie> cookies(const std::string&) override { return {}; }
    void clearCookies(const std::string&) override {}
    void clearAllCookies() override { ++cleared; }
    int cleared = 0;
};
// "Clear Cookies" of the advanced pane empties the shared cookie store, so
// that a service with a stale session cookie signs in afresh.
TEST_F(ShellFixture, ClearCookiesEmptiesTheSharedCookieStore) {
    auto session = std::make_shared<CookieCountingSession>();
    ZVHTTPSession::setShared(session);
    ZVPreferencesWindow preferences({});
    auto* button = preferences.findChild<QPushButton*>(u"clearCookiesButton"_s);
    ASSERT_NE(button, nullptr);
    button->click();
    EXPECT_EQ(session->cleared, 1);
    ZVHTTPSession::setShared(nullptr);
}

}  // namespace
