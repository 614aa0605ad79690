#include <QDir>
#include <QFile>
#include <QLineEdit>

#include "ShellTestEnvironment.h"
#include "ZVApplicationState.h"
#include "ZVHelpers.h"
#include "ZVPreferences.h"
#include "app/ZVDesktopLedgrinEnvironment.h"
#include "app/ZVMenuManager.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "app/ZVStateReportWindow.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/state/ZVNorvoApplicationStateProvider.h"
#include "preferences/ZVNorvoPreferences.h"
#include "testkit/ScriptedUserInterface.h"

using namespace Qt::StringLiterals;

namespace {

/// The desktop as the test scripts it: what xdg-mime answers and which URLs were opened.
struct ScriptedDesktop {
    std::optional<QString> handler;
    std::vector<QStringList> commands;
    std::vector<QString> openedURLs;

    std::shared_ptr<ZVDesktopLedgrinEnvironment> environment() {
        return std::make_shared<ZVDesktopLedgrinEnvironment>(
            [this](const QString& program, const QStringList& arguments) {
                commands.push_back(QStringList{program} + arguments);
                return handler;
            },
            [this](const QString& url) {
                openedURLs.push_back(url);
                return true;
            });
    }
};

/// A Generic account that never reaches its server.
class QuietGenericIntegration : public ZVGenericAddressBasedIntegration {
public:
    void synchronize() override {}
    std::string className() const override { return "Norvo.ZVGenericAddressBasedIntegration"; }
};

void writeDesktopEntry(const std::string& dataDirectory, const QString& name, const QString& contents) {
    const QString folder = QString::fromStdString(dataDirectory) + u"/applications"_s;
    ASSERT_TRUE(QDir().mkpath(folder));
    QFile file(folder + QLatin1Char('/') + name);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(contents.toUtf8());
}

class ZVLedgrinBridgeTest : public LaunchedAppFixture {
protected:
    ~ZVLedgrinBridgeTest() override { ZVLedgrinIntegration::sharedIntegration().setEnvironment(nullptr); }

    std::string dataHome() const { return home.path() + "/.local/share"; }
    /// Ledgrin of the version as the desktop knows it, handed to the bridge.
    void installLedgrin(const char* version) {
        desktop.handler = u"ledgrin.desktop"_s;
        writeDesktopEntry(dataHome(), u"ledgrin.desktop"_s,
                          u"[Desktop Entry]\nX-Ledgrin-Version="_s + QString::fromUtf8(version) + u"\n"_s);
        ZVLedgrinIntegration::sharedIntegration().setEnvironment(desktop.environment());
    }

    ScriptedDesktop desktop;
};

}  // namespace

TEST_F(ZVLedgrinBridgeTest, InstalledMeansAHandlerOfTheSchemeAndItsEntryGivesTheVersion) {
    auto environment = desktop.environment();
    EXPECT_FALSE(environment->isInstalled());
    ASSERT_FALSE(desktop.commands.empty());
    EXPECT_EQ(desktop.commands.front(),
              (QStringList{u"xdg-mime"_s, u"query"_s, u"default"_s, u"x-scheme-handler/ledgrin"_s}));
    desktop.handler = u"\n"_s;
    EXPECT_FALSE(environment->isInstalled());
    desktop.handler = u"ledgrin.desktop\n"_s;
    EXPECT_TRUE(environment->isInstalled());
    EXPECT_EQ(environment->installedVersion(), std::nullopt);
    writeDesktopEntry(dataHome(), u"ledgrin.desktop"_s,
                      QStringLiteral("[Desktop Entry]\nType=Application\nName=Ledgrin\nX-Ledgrin-Version = 2.3.4\n"
                                     "[Desktop Action New]\nX-Ledgrin-Version=1.0.0\n"));
    EXPECT_EQ(environment->installedVersion(), std::optional<std::string>("2.3.4"));
}

// The action menu offers the sending only to a version that can take it.
TEST_F(ZVLedgrinBridgeTest, SendingHandsTheTaskTextHoursAndHourPriceToAnIntegrableVersion) {
    ZVPreferences::shared().perform([](ZVPreferences& store) { ZVNorvoPreferences(store).setHourPrice(80); });
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    project->setTimeWithoutSaving(5400);
    ZVIntegrationCenter::shared().setCurrentProject(project);
    delegate->window()->currentTaskTextField()->setText(u"Footer & header"_s);
    const std::string title = "Send Time to Ledgrin 2…";
    installLedgrin("2.3.0");
    EXPECT_EQ(ZVMenuManager::shared().actionMenu()->itemWithTitle(title), nullptr);
    installLedgrin("2.2.2");
    const auto menu = ZVMenuManager::shared().actionMenu();
    ZVMenuItem* item = menu->itemWithTitle(title);
    ASSERT_NE(item, nullptr);
    item->perform();
    ASSERT_EQ(desktop.openedURLs.size(), 1u);
    EXPECT_EQ(desktop.openedURLs[0].toStdString(),
              "ledgrin://timeentry?time=1.5&price=80&note=" + ZVPercentEncoded("Footer & header"));
    EXPECT_EQ(project->time(), 5400u);
}

TEST_F(ZVLedgrinBridgeTest, StateReportFromTheDebugMenuListsAccountsButNoSecrets) {
    auto provider = std::make_shared<ZVNorvoApplicationStateProvider>();
    ZVApplicationSetup::setApplicationStateProvider(provider);
    auto account = ZVIntegration::makeNew<QuietGenericIntegration>();
    account->setName("Office server");
    account->setAddress("http://127.0.0.1:9");
    account->usernamePasswordAuthentication().setUsername("alice");
    account->usernamePasswordAuthentication().setPassword("hunter2-secret");
    {
        std::lock_guard<std::recursive_mutex> guard(ZVIntegrationCenter::shared().lock());
        ZVIntegrationCenter::shared().addIntegration(account);
    }
    auto project = addProject(account, "Website");
    project->setTimeWithoutSaving(90);
    ZVIntegrationCenter::shared().setCurrentProject(project);
    EXPECT_NE(delegate->debugMenu()->itemWithTitle("Show Application State..."), nullptr);
    ZVStateReportWindow window;
    const std::string report = window.reportText().toStdString();
    EXPECT_NE(report.find("Active Integrations:\n"), std::string::npos) << report;
    EXPECT_NE(report.find("'Office server' - project count: 1"), std::string::npos) << report;
    EXPECT_NE(report.find("Current Project: Project from Norvo.ZVGenericAddressBasedIntegration 'Office server' - "),
              std::string::npos)
        << report;
    EXPECT_EQ(report.find("hunter2-secret"), std::string::npos) << report;
    EXPECT_EQ(report.find("alice"), std::string::npos) << report;
    ZVApplicationSetup::setApplicationStateProvider(nullptr);
}
