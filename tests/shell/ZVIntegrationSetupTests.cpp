#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMimeData>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>

#include "ShellTestEnvironment.h"
#include "ZVLocalization.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/authentication/ZVIntegrationWithOAuth2.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "integration_editing/ZVIntegrationEditViewController.h"
#include "integration_editing/ZVIntegrationListPopUpButton.h"
#include "integration_editing/ZVIntegrationSetupView.h"
#include "integration_editing/ZVIntegrationSetupViewController.h"
#include "integration_editing/ZVNorvoProjectManagementViewController.h"
#include "integration_editing/ZVPopover.h"
#include "preferences/ZVPreferencesWindow.h"
#include "testkit/FakeServer.h"
#include "testkit/ScriptedUserInterface.h"
#include "ui_elements/ZVProjectPopUpButton.h"

using namespace Qt::StringLiterals;

namespace {

using Names = std::vector<std::string>;

/// The text in front of a field of a form.
QString rowLabel(QWidget* field) {
    auto* form = qobject_cast<QFormLayout*>(field->parentWidget()->layout());
    auto* label = form ? qobject_cast<QLabel*>(form->labelForField(field)) : nullptr;
    return label ? label->text() : u"<no label>"_s;
}

/// A Generic account that counts its synchronizations instead of running them.
class CountingGenericIntegration : public ZVGenericAddressBasedIntegration {
public:
    int synchronizeCount = 0;
    void synchronize() override { ++synchronizeCount; }
    std::string className() const override { return "Norvo.ZVGenericAddressBasedIntegration"; }
};

/// The server of the Generic protocol: one project with one task, for the
/// user "alice" with the password "right" only.
void serveGenericTree(FakeServer& server) {
    ZVSynchronizationThread::setConnectionProbeOverride(server.baseURL() + "/");
    server.route("GET", "/", [](const FakeRequest& request) {
        if (request.method == "HEAD") return FakeResponse::text("");
        const std::string expected = "Basic " + QByteArray("alice:right").toBase64().toStdString();
        if (request.header("Authorization") != expected) return FakeResponse::text("Unauthorized", 401);
        const std::string action = request.queryValue("action");
        if (action == "list_projects") return FakeResponse::json(R"({"projects":[{"id":"12","name":"Website"}]})");
        if (action == "list_tasks_for_project")
            return FakeResponse::json(R"({"tasks":[{"id":"121","name":"Design review"}]})");
        return FakeResponse::text("", 404);
    });
}

class ZVIntegrationSetupTest : public LaunchedAppFixture {
protected:
    ZVPopover& popover() { return *delegate->popover(); }
    template <class Controller>
    Controller* content() {
        return dynamic_cast<Controller*>(popover().contentViewController());
    }
    ZVIntegrationSetupViewController& openSetup() {
        // A refresh that is still running would turn away the one that saving starts.
        waitForRefresh();
        delegate->addIntegration();
        auto* controller = content<ZVIntegrationSetupViewController>();
        if (!controller) ADD_FAILURE() << "the setup popover did not open";
        return *controller;
    }
    /// Chooses a service in the pull-down as the user does.
    static void choose(ZVIntegrationSetupViewController& controller, const char* service) {
        ZVIntegrationListPopUpButton* popUp = controller.integrationPopUp();
        ASSERT_TRUE(popUp->selectItemWithTitle(QString::fromUtf8(service))) << service;
        Q_EMIT popUp->activated(popUp->currentIndex());
    }
    static QLineEdit* field(ZVIntegrationSetupViewController& controller, const char* name) {
        if (!controller.setupView()) return nullptr;
        return controller.setupView()->findChild<QLineEdit*>(QString::fromUtf8(name));
    }
    /// Fills in a Generic account of the server for "alice" as the user types it.
    static void typeGenericAccount(ZVIntegrationSetupViewController& setup, const std::string& address,
                                   const char* password) {
        choose(setup, "Generic");
        ASSERT_NE(field(setup, "addressField"), nullptr);
        field(setup, "addressField")->setText(QString::fromStdString(address));
        field(setup, "usernameField")->setText(u"alice"_s);
        field(setup, "passwordField")->setText(QString::fromUtf8(password));
    }
    static void typeGenericAccount(ZVIntegrationSetupViewController& setup, const FakeServer& server,
                                   const char* password) {
        typeGenericAccount(setup, server.baseURL(), password);
        setup.setupView()->findChild<QCheckBox*>(u"sslButton"_s)->setChecked(false);
    }
    void clickBesideThePopover() {
        QMouseEvent press(QEvent::MouseButtonPress, QPointF(3, 3), QPointF(3, 3), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(delegate->window(), &press);
    }
    void pressEscape() {
        QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(&popover(), &escape);
    }
    std::shared_ptr<CountingGenericIntegration> addGenericAccount(const std::string& name) {
        auto account = ZVIntegration::makeNew<CountingGenericIntegration>();
        account->setName(name);
        account->setAddress("server.invalid");
        ZVIntegrationCenter::shared().addIntegration(account);
        return account;
    }
};

TEST_F(ZVIntegrationSetupTest, AccountSetUpInThePanelSynchronizesItsTreeIntoTheMenu) {
    FakeServer server;
    serveGenericTree(server);
    ZVIntegrationSetupViewController& setup = openSetup();
    typeGenericAccount(setup, server, "right");
    setup.saveButton()->click();
    EXPECT_FALSE(popover().isShown());
    const auto accounts = ZVIntegrationCenter::shared().integrations();
    ASSERT_EQ(accounts.size(), 1u);
    auto account = std::dynamic_pointer_cast<ZVGenericAddressBasedIntegration>(accounts.front());
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(account->address(), "127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(account->URLScheme(), "http");
    EXPECT_EQ(keychain.password("alice", account->accountIdentifier()), "right");
    ASSERT_TRUE(processEventsUntil([&] { return account->availableProjects().size() == 1; }, 10000));
    const auto menu = delegate->window()->projectListPopUpButton()->recreatedMenu();
    ZVMenuItem* accountItem = menu->itemWithTitle(account->name());
    ASSERT_NE(accountItem, nullptr);
    const auto website = account->availableProjects().front();
    EXPECT_EQ(website->name(), "Website");
    ZVMenuItem* websiteItem = itemOfProject(*accountItem->submenu, website);
    ASSERT_NE(websiteItem, nullptr);
    ASSERT_NE(websiteItem->submenu, nullptr);
    ASSERT_EQ(website->subprojects().size(), 1u);
    EXPECT_EQ(website->subprojects().front()->name(), "Design review");
    EXPECT_NE(itemOfProject(*websiteItem->submenu, website->subprojects().front()), nullptr);
}

TEST_F(ZVIntegrationSetupTest, SaveWithWrongCredentialsStillAddsTheAccount) {
    FakeServer server;
    serveGenericTree(server);
    ZVIntegrationSetupViewController& setup = openSetup();
    typeGenericAccount(setup, server, "wrong");
    setup.saveButton()->click();
    ASSERT_EQ(ZVIntegrationCenter::shared().integrations().size(), 1u);
    ASSERT_TRUE(processEventsUntil([&] { return server.requestCount() > 0; }, 10000));
    waitForRefresh();
    const auto accounts = ZVIntegrationCenter::shared().integrations();
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_TRUE(accounts.front()->availableProjects().empty());
}

TEST_F(ZVIntegrationSetupTest, ChoosingAnotherServiceDropsWhatWasTypedAndTheSameServiceKeepsIt) {
    ZVIntegrationSetupViewController& setup = openSetup();
    typeGenericAccount(setup, "tracker.example.org", "secret");
    auto typedInto = setup.currentIntegration();
    choose(setup, "Generic");
    EXPECT_EQ(setup.currentIntegration(), typedInto);
    EXPECT_EQ(field(setup, "addressField")->text(), u"tracker.example.org"_s);
    EXPECT_EQ(field(setup, "usernameField")->text(), u"alice"_s);
    choose(setup, "JIRA");
    EXPECT_NE(std::dynamic_pointer_cast<ZVJIRAIntegration>(setup.currentIntegration()), nullptr);
    EXPECT_TRUE(field(setup, "addressField")->text().isEmpty());
    EXPECT_NE(setup.setupView()->findChild<QWidget*>(u"JIRA"_s), nullptr);
    choose(setup, "Generic");
    EXPECT_NE(setup.currentIntegration(), typedInto);
    EXPECT_TRUE(field(setup, "addressField")->text().isEmpty());
    EXPECT_TRUE(field(setup, "usernameField")->text().isEmpty());
}

TEST_F(ZVIntegrationSetupTest, ServiceWithAFixedHostShowsItReadOnlyAndNoSSLSwitchAndFollowsItsSetting) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "KashFlow");
    QLineEdit* address = field(setup, "addressField");
    ASSERT_NE(address, nullptr);
    EXPECT_TRUE(address->isReadOnly());
    EXPECT_FALSE(address->text().isEmpty());
    EXPECT_EQ(setup.setupView()->findChild<QCheckBox*>(u"sslButton"_s), nullptr);
    ASSERT_NE(field(setup, "rateField"), nullptr);
    field(setup, "rateField")->setText(u"85.5"_s);
    EXPECT_EQ(setup.currentIntegration()->dictionaryRepresentation().at("KDKashFlowRate").description(), "85.5");
    // A host that a setting chooses follows the setting, and so do the credential labels.
    choose(setup, "Paymo");
    auto* version = setup.setupView()->findChild<QComboBox*>(u"versionPopUp"_s);
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(field(setup, "addressField")->text(), u"app.paymoapp.com/api"_s);
    version->setCurrentIndex(version->findData(QVariant::fromValue<qlonglong>(0)));
    EXPECT_EQ(field(setup, "addressField")->text(), u"api.paymo.biz"_s);
    EXPECT_EQ(rowLabel(field(setup, "usernameField")), u"Username"_s);
    // The line about projects left out stands only where a tree leaves some out.
    auto* leftOut = setup.findChild<QLabel*>(u"skippedProjectsWarningTextField"_s);
    ASSERT_NE(leftOut, nullptr);
    EXPECT_FALSE(leftOut->isHidden());
    choose(setup, "Freckle");
    EXPECT_TRUE(leftOut->isHidden());
}

TEST_F(ZVIntegrationSetupTest, AnOAuth2AccountTakesAnApplicationOfTheUsersOwnUnderAdvanced) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "FreeAgent");
    auto* advanced = setup.setupView()->findChild<QCheckBox*>(u"advancedOAuth2Box"_s);
    ASSERT_NE(advanced, nullptr);
    ASSERT_NE(field(setup, "clientIDField"), nullptr);
    auto* fields = setup.setupView()->findChild<QWidget*>(u"advancedOAuth2Fields"_s);
    ASSERT_NE(fields, nullptr);
    EXPECT_TRUE(fields->isHidden()) << "folded away until asked for, taking no room";
    auto* state = setup.setupView()->findChild<QLabel*>(u"authorizationStateLabel"_s);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->text(), u"Not authorized"_s);
    advanced->setChecked(true);
    EXPECT_FALSE(fields->isHidden());
    auto* withOAuth2 = dynamic_cast<ZVIntegrationWithOAuth2*>(setup.currentIntegration().get());
    ASSERT_NE(withOAuth2, nullptr);
    // Typing writes nothing; a field that is done with writes the key store once.
    const auto saves = keychain.saveCount();
    field(setup, "clientIDField")->insert(u"own-client"_s);
    field(setup, "clientSecretField")->insert(u"own-secret"_s);
    EXPECT_EQ(keychain.saveCount(), saves);
    Q_EMIT field(setup, "clientIDField")->editingFinished();
    Q_EMIT field(setup, "clientSecretField")->editingFinished();
    EXPECT_EQ(keychain.saveCount(), saves + 2);
    EXPECT_EQ(withOAuth2->ownClientCredentials().first + "/" + withOAuth2->ownClientCredentials().second, "own-client/own-secret");
    EXPECT_EQ(ZVPropertyList::writeXML(ZVValue(setup.currentIntegration()->dictionaryRepresentation())).find("own-secret"),
              std::string::npos);
    // Answering an alert over the panel, as Authorize raises, keeps the panel and what was typed.
    QMessageBox alert(QMessageBox::Warning, u"Norvo"_s, u"Norvo could not be authorized."_s);
    alert.show();
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(3, 3), QPointF(3, 3), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(&alert, &press);
    EXPECT_TRUE(popover().isShown());
    alert.close();
    advanced->setChecked(false);
    EXPECT_TRUE(withOAuth2->ownClientCredentials().first.empty()) << "folding it goes back to the build's application";
}

// "Cancel", Escape, a click beside the panel and the add-account action
// again all leave the setup with nothing typed kept, in the key store neither.
TEST_F(ZVIntegrationSetupTest, CancelEscapeAClickBesideOrAddAccountAgainDiscardTheSetupPanel) {
    const std::pair<const char*, std::function<void()>> ways[] = {
        {"Cancel", [this] { content<ZVIntegrationSetupViewController>()->cancelButton()->click(); }},
        {"Escape", [this] { pressEscape(); }},
        {"a click beside", [this] { clickBesideThePopover(); }},
        {"add account", [this] { delegate->addIntegration(); }},
    };
    for (const auto& [way, leave] : ways) {
        typeGenericAccount(openSetup(), "tracker.example.org", "secret");
        leave();
        EXPECT_FALSE(popover().isShown()) << way;
        EXPECT_TRUE(ZVIntegrationCenter::shared().integrations().empty()) << way;
    }
    EXPECT_EQ(keychain.itemCount(), 0u);
    EXPECT_EQ(keychain.saveCount(), 0u);
    ZVIntegrationSetupViewController& again = openSetup();
    choose(again, "Generic");
    EXPECT_TRUE(field(again, "usernameField")->text().isEmpty());
}

TEST_F(ZVIntegrationSetupTest, EditPanelHidesTheServiceChoiceAndSynchronizesWhenItCloses) {
    auto account = addGenericAccount("Office server");
    account->usernamePasswordAuthentication().setUsername("alice");
    const int synchronizationsBefore = account->synchronizeCount;
    delegate->editIntegration(account);
    popover().closePopover();
    EXPECT_EQ(account->synchronizeCount, synchronizationsBefore + 1) << "closing without changes synchronizes too";
    delegate->editIntegration(account);
    auto* edit = content<ZVIntegrationEditViewController>();
    ASSERT_NE(edit, nullptr);
    ASSERT_TRUE(popover().isShown());
    EXPECT_TRUE(edit->integrationPopUp()->isHidden());
    EXPECT_TRUE(edit->saveButton()->isHidden());
    EXPECT_TRUE(edit->cancelButton()->isHidden());
    EXPECT_EQ(field(*edit, "addressField")->text(), u"server.invalid"_s);
    EXPECT_EQ(field(*edit, "usernameField")->text(), u"alice"_s);
    field(*edit, "usernameField")->setText(u"bob"_s);
    ASSERT_NE(edit->nameField(), nullptr);
    EXPECT_EQ(edit->nameField()->text(), u"Office server"_s);
    edit->nameField()->setText(u""_s);
    EXPECT_EQ(account->name(), "Office server") << "an account keeps a name";
    edit->nameField()->setText(u"Head office"_s);
    clickBesideThePopover();
    EXPECT_FALSE(popover().isShown());
    EXPECT_EQ(account->synchronizeCount, synchronizationsBefore + 2);
    EXPECT_EQ(account->usernamePasswordAuthentication().username(), "bob");
    EXPECT_EQ(account->name(), "Head office");
    EXPECT_EQ(ZVIntegrationCenter::shared().integrations().size(), 1u);
}

TEST_F(ZVIntegrationSetupTest, EditingOrManagingWhileAnAccountIsEditedIsRefused) {
    auto first = addGenericAccount("Office server");
    auto second = addGenericAccount("Client server");
    delegate->editIntegration(first);
    ui.clearRecords();
    delegate->editIntegration(second);
    ASSERT_EQ(ui.alertMessages().size(), 1u);
    EXPECT_EQ(ui.alertMessages()[0],
              "You need to save or discard changes to currently edited integration before editing 'Client server'");
    EXPECT_EQ(ui.alerts()[0].buttons, Names{"OK"});
    ASSERT_TRUE(popover().isShown());
    EXPECT_EQ(content<ZVIntegrationEditViewController>()->currentIntegration(), first);
    popover().closePopover();
    openSetup();
    delegate->editIntegration(second);
    delegate->manageNorvoProjects();
    ASSERT_EQ(ui.alertMessages().size(), 3u);
    EXPECT_EQ(ui.alertMessages()[2],
              "You need to save or discard changes to currently edited integration before "
              "managing local Norvo projects");
    EXPECT_NE(content<ZVIntegrationSetupViewController>(), nullptr);
}

TEST_F(ZVIntegrationSetupTest, JIRACredentialViewSaysWhatEachDeploymentTakes) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "JIRA");
    auto jira = std::dynamic_pointer_cast<ZVJIRAIntegration>(setup.currentIntegration());
    ASSERT_NE(jira, nullptr);
    QWidget* view = setup.setupView();
    auto* hint = view->findChild<QLabel*>(u"credentialHint"_s);
    auto* tokenPage = view->findChild<QPushButton*>(u"APITokenPageButton"_s);
    auto* tokenBox = view->findChild<QCheckBox*>(u"personalAccessTokenButton"_s);
    QLineEdit* username = field(setup, "usernameField");
    QLineEdit* password = field(setup, "passwordField");
    ASSERT_TRUE(hint && tokenPage && tokenBox && username && password);
    const QString dataCenterWords = u"User name and password, or a personal access token"_s;
    // Without an address the view asks as Data Center does.
    EXPECT_EQ(hint->text(), dataCenterWords);
    EXPECT_TRUE(tokenPage->isHidden());
    EXPECT_FALSE(tokenBox->isHidden());
    field(setup, "addressField")->setText(u"https://acme.atlassian.net/"_s);
    EXPECT_EQ(hint->text(), u"E-mail and API token"_s);
    EXPECT_EQ(rowLabel(username), u"E-mail"_s);
    EXPECT_EQ(rowLabel(password), u"API token"_s);
    EXPECT_FALSE(tokenPage->isHidden());
    EXPECT_TRUE(tokenBox->isHidden());
    tokenPage->click();
    EXPECT_EQ(ui.openedURLs(), Names{"https://id.atlassian.com/manage-profile/security/api-tokens"});
    field(setup, "addressField")->setText(u"jira.example.com/jira"_s);
    EXPECT_EQ(hint->text(), dataCenterWords);
    EXPECT_EQ(rowLabel(username), u"Username"_s);
    EXPECT_EQ(rowLabel(password), u"Password"_s);
    EXPECT_TRUE(tokenPage->isHidden());
    tokenBox->setChecked(true);
    EXPECT_TRUE(jira->usesPersonalAccessToken());
    EXPECT_EQ(rowLabel(password), u"Personal access token"_s);
    password->setText(u"NjM4MDY1pat"_s);
    EXPECT_EQ(jira->usernamePasswordAuthentication().password(), "NjM4MDY1pat");
    tokenBox->setChecked(false);
    EXPECT_FALSE(jira->usesPersonalAccessToken());
    EXPECT_EQ(rowLabel(password), u"Password"_s);
}

TEST_F(ZVIntegrationSetupTest, ATokenAccountSaysTheServicesLineAboveTheToken) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "ActiveCollab");
    auto* hint = setup.setupView()->findChild<QLabel*>(u"credentialHint"_s);
    auto* tokenPage = setup.setupView()->findChild<QPushButton*>(u"APITokenPageButton"_s);
    ASSERT_TRUE(hint && tokenPage);
    EXPECT_TRUE(hint->text().contains(u"hosted service has closed this API"_s)) << hint->text().toStdString();
    EXPECT_TRUE(tokenPage->isHidden());
    EXPECT_EQ(rowLabel(field(setup, "APITokenField")), u"API Token"_s);
}

/// The local projects' names as the preferences store holds them now.
Names namesInTheStore() {
    Names names;
    const auto stored = ZVPreferences::shared().value(ZVNorvoIntegrationPreferencesKey);
    if (!stored || !stored->array()) return names;
    for (const auto& project : *stored->array())
        if (const auto* dictionary = project.dictionary())
            if (const auto* name = (*dictionary).at(ZVIntegrationProject::nameKey).string()) names.push_back(*name);
    return names;
}

/// The local projects as the preferences store holds them after a restart.
Names storedLocalProjectNames() {
    ZVNorvoIntegration::resetSharedIntegration();
    Names names;
    for (const auto& project : ZVNorvoIntegration::sharedIntegration()->availableProjects())
        names.push_back(project->name());
    return names;
}

Names rowTitles(const ZVNorvoProjectListModel& model) {
    Names titles;
    for (int row = 0; row < model.rowCount(); ++row)
        titles.push_back(model.data(model.index(row), Qt::DisplayRole).toString().toStdString());
    return titles;
}

class ZVNorvoProjectManagementTest : public ZVIntegrationSetupTest {
protected:
    ZVNorvoProjectManagementViewController& openManagement(std::initializer_list<const char*> names) {
        auto local = ZVNorvoIntegration::sharedIntegration();
        for (const char* name : names) addProject(local, name);
        delegate->manageNorvoProjects();
        auto* controller = content<ZVNorvoProjectManagementViewController>();
        if (!controller) throw std::runtime_error("the project management panel did not open");
        return *controller;
    }
    /// Drags the row into the gap before `gap` (-1: below the last row).
    static void drag(ZVNorvoProjectListModel& model, int row, int gap) {
        std::unique_ptr<QMimeData> data(model.mimeData({model.index(row)}));
        model.dropMimeData(data.get(), Qt::MoveAction, gap, 0, {});
    }
};

TEST_F(ZVNorvoProjectManagementTest, RenamesAndMovesAreSavedAsTheyHappen) {
    auto& controller = openManagement({"Alpha", "Beta", "Gamma"});
    ASSERT_TRUE(popover().isShown());
    auto& model = *controller.model();
    EXPECT_EQ(rowTitles(model), (Names{"Alpha", "Beta", "Gamma"}));
    EXPECT_TRUE(model.setData(model.index(1), u"Beta 2"_s, Qt::EditRole));
    EXPECT_FALSE(model.setData(model.index(1), 42, Qt::EditRole)) << "only text is a name";
    EXPECT_FALSE(model.setData(model.index(7), u"Nowhere"_s, Qt::EditRole));
    EXPECT_EQ(ZVNorvoIntegration::sharedIntegration()->availableProjects()[1]->name(), "Beta 2");
    EXPECT_EQ(namesInTheStore(), (Names{"Alpha", "Beta 2", "Gamma"}));
    const std::tuple<int, int, Names> drags[] = {
        {0, 3, {"Beta 2", "Gamma", "Alpha"}},   // below the last row
        {2, 0, {"Alpha", "Beta 2", "Gamma"}},   // back to the top
        {0, 2, {"Beta 2", "Alpha", "Gamma"}},   // into the gap between the second and third row
        {1, -1, {"Beta 2", "Gamma", "Alpha"}},  // on the empty space under the rows
    };
    for (const auto& [row, gap, order] : drags) {
        drag(model, row, gap);
        EXPECT_EQ(rowTitles(model), order) << row << " to " << gap;
    }
    EXPECT_EQ(namesInTheStore(), (Names{"Beta 2", "Gamma", "Alpha"}));
    QMimeData foreign;
    foreign.setText(u"0"_s);
    EXPECT_FALSE(model.canDropMimeData(&foreign, Qt::MoveAction, 0, 0, {}));
    pressEscape();  // closes this panel, as "Done" does
    EXPECT_FALSE(popover().isShown());
    EXPECT_EQ(storedLocalProjectNames(), (Names{"Beta 2", "Gamma", "Alpha"}));
    openManagement({}).findChild<QPushButton*>(u"doneButton"_s)->click();
    EXPECT_FALSE(popover().isShown());
}

TEST_F(ZVNorvoProjectManagementTest, AddAsksForANameAndRemoveTakesTheSelectedRowOnly) {
    auto& controller = openManagement({"Alpha", "Beta"});
    auto& model = *controller.model();
    controller.remove();  // nothing selected
    EXPECT_EQ(model.rowCount(), 2);
    ui.answerTextPromptWith(std::string("Gamma"));
    controller.add();
    EXPECT_EQ(rowTitles(model), (Names{"Alpha", "Beta", "Gamma"}));
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject()->name(), "Gamma");
    controller.tableView()->setCurrentIndex(model.index(0));
    controller.remove();
    EXPECT_EQ(rowTitles(model), (Names{"Beta", "Gamma"}));
    EXPECT_EQ(storedLocalProjectNames(), (Names{"Beta", "Gamma"}));
}

// Forms size to their content in every language: no tab of the preferences
// is cut off or scrolled, the JIRA hint has all its lines and the example
// address is read whole.
TEST_F(ZVIntegrationSetupTest, DialogsFitTheirTextsInEnglishAndGerman) {
    for (const char* language : {"en", "de"}) {
        ScopedVariable chosen("LANGUAGE", language);
        ZVPrepareLocalization();
        {
            ZVPreferencesWindow preferences({});
            preferences.show();
            processEventsUntil([&] { return preferences.isVisible(); });
            auto* tabs = preferences.findChild<QTabWidget*>();
            ASSERT_NE(tabs, nullptr);
            for (int i = 0; i < tabs->count(); ++i)
                EXPECT_LE(tabs->tabBar()->tabRect(i).right(), tabs->width()) << language << " tab " << i;
            preferences.hide();
        }
        ZVIntegrationSetupViewController& setup = openSetup();
        choose(setup, "JIRA");
        processEventsUntil([] { return false; }, 100);
        auto* hint = setup.setupView()->findChild<QLabel*>(u"credentialHint"_s);
        ASSERT_NE(hint, nullptr);
        EXPECT_GE(hint->height(), hint->heightForWidth(hint->width())) << language << ": the hint is clipped";
        QLineEdit* address = field(setup, "addressField");
        EXPECT_GT(address->width(), address->fontMetrics().horizontalAdvance(address->placeholderText())) << language;
        popover().closePopover();
    }
    ZVPrepareLocalization();
}

}  // namespace
