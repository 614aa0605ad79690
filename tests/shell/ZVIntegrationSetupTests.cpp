#include <QCheckBox>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>

#include "ShellTestEnvironment.h"
#include "ZVPreferences.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "integration_editing/ZVIntegrationEditViewController.h"
#include "integration_editing/ZVIntegrationListPopUpButton.h"
#include "integration_editing/ZVIntegrationSetupView.h"
#include "integration_editing/ZVIntegrationSetupViewController.h"
#include "integration_editing/ZVNorvoProjectManagementViewController.h"
#include "integration_editing/ZVPopover.h"
#include "testkit/FakeServer.h"
#include "testkit/ScriptedUserInterface.h"
#include "ui_elements/ZVProjectPopUpButton.h"

namespace {

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
    ZVPreferences::shared().setValue(server.baseURL() + "/", ZVSynchronizationThread::connectionProbeAddressKey);
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

ZVMenuItem* itemOfProject(const ZVMenu& menu, const ZVIntegrationProject::Pointer& project) {
    for (const auto& item : menu.items)
        if (item->representedProject() == project) return item.get();
    return nullptr;
}

class ZVIntegrationSetupTest : public ShellFixture {
protected:
    ZVIntegrationSetupTest() {
        delegate = std::make_unique<ZVNorvoAppDelegate>(true);
        delegate->awakeFromNib();
        delegate->applicationDidFinishLaunching();
    }
    ~ZVIntegrationSetupTest() override {
        processEventsUntil([] { return !ZVIntegrationCenter::shared().synchronizationIsInProgress(); }, 10000);
        delegate.reset();
    }

    ZVPopover& popover() { return *delegate->popover(); }
    template <class Controller>
    Controller* content() {
        return dynamic_cast<Controller*>(popover().contentViewController());
    }
    ZVIntegrationSetupViewController& openSetup() {
        // A refresh that is still running would turn away the one that saving starts.
        processEventsUntil([] { return !ZVIntegrationCenter::shared().synchronizationIsInProgress(); }, 10000);
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
    void clickBesideThePopover() {
        QMouseEvent press(QEvent::MouseButtonPress, QPointF(3, 3), QPointF(3, 3), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(delegate->window(), &press);
    }
    std::shared_ptr<CountingGenericIntegration> addGenericAccount(const std::string& name) {
        auto account = ZVIntegration::makeNew<CountingGenericIntegration>();
        account->setName(name);
        account->setAddress("server.invalid");
        ZVIntegrationCenter::shared().addIntegration(account);
        return account;
    }

    ScriptedUserInterface ui;
    std::unique_ptr<ZVNorvoAppDelegate> delegate;
};

}  // namespace

TEST_F(ZVIntegrationSetupTest, AccountSetUpInThePanelSynchronizesItsTreeIntoTheMenu) {
    FakeServer server;
    serveGenericTree(server);
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "Generic");
    ASSERT_NE(field(setup, "addressField"), nullptr);
    field(setup, "addressField")->setText(QString::fromStdString(server.baseURL()));
    setup.setupView()->findChild<QCheckBox*>(QStringLiteral("sslButton"))->setChecked(false);
    field(setup, "usernameField")->setText(QStringLiteral("alice"));
    field(setup, "passwordField")->setText(QStringLiteral("right"));
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

TEST_F(ZVIntegrationSetupTest, ChoosingAnotherServiceDropsWhatWasTypedAndTheSameServiceKeepsIt) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "Generic");
    auto typedInto = setup.currentIntegration();
    field(setup, "addressField")->setText(QStringLiteral("tracker.example.org"));
    field(setup, "usernameField")->setText(QStringLiteral("alice"));

    choose(setup, "Generic");
    EXPECT_EQ(setup.currentIntegration(), typedInto);
    EXPECT_EQ(field(setup, "addressField")->text(), QStringLiteral("tracker.example.org"));
    EXPECT_EQ(field(setup, "usernameField")->text(), QStringLiteral("alice"));

    choose(setup, "JIRA");
    EXPECT_NE(std::dynamic_pointer_cast<ZVJIRAIntegration>(setup.currentIntegration()), nullptr);
    EXPECT_TRUE(field(setup, "addressField")->text().isEmpty());
    EXPECT_NE(setup.setupView()->findChild<QWidget*>(QStringLiteral("JIRA")), nullptr);

    choose(setup, "Generic");
    EXPECT_NE(setup.currentIntegration(), typedInto);
    EXPECT_TRUE(field(setup, "addressField")->text().isEmpty());
    EXPECT_TRUE(field(setup, "usernameField")->text().isEmpty());
}

TEST_F(ZVIntegrationSetupTest, ServiceWithAFixedHostShowsItReadOnlyAndNoSSLSwitch) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "KashFlow");
    QLineEdit* address = field(setup, "addressField");
    ASSERT_NE(address, nullptr);
    EXPECT_TRUE(address->isReadOnly());
    EXPECT_FALSE(address->text().isEmpty());
    EXPECT_EQ(setup.setupView()->findChild<QCheckBox*>(QStringLiteral("sslButton")), nullptr);
    ASSERT_NE(field(setup, "rateField"), nullptr);
    field(setup, "rateField")->setText(QStringLiteral("85.5"));
    EXPECT_EQ(setup.currentIntegration()->dictionaryRepresentation().at("KDKashFlowRate").description(), "85.5");
}

TEST_F(ZVIntegrationSetupTest, CancelAfterTypingLeavesNoAccountAndNoStoredCredential) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "Generic");
    field(setup, "addressField")->setText(QStringLiteral("tracker.example.org"));
    field(setup, "usernameField")->setText(QStringLiteral("alice"));
    field(setup, "passwordField")->setText(QStringLiteral("secret"));
    setup.cancelButton()->click();

    EXPECT_FALSE(popover().isShown());
    EXPECT_TRUE(ZVIntegrationCenter::shared().integrations().empty());
    EXPECT_EQ(keychain.itemCount(), 0u);
    EXPECT_EQ(keychain.saveCount(), 0u);
}

TEST_F(ZVIntegrationSetupTest, SaveWithWrongCredentialsStillAddsTheAccount) {
    FakeServer server;
    serveGenericTree(server);
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "Generic");
    field(setup, "addressField")->setText(QString::fromStdString(server.baseURL()));
    setup.setupView()->findChild<QCheckBox*>(QStringLiteral("sslButton"))->setChecked(false);
    field(setup, "usernameField")->setText(QStringLiteral("alice"));
    field(setup, "passwordField")->setText(QStringLiteral("wrong"));
    setup.saveButton()->click();

    ASSERT_EQ(ZVIntegrationCenter::shared().integrations().size(), 1u);
    ASSERT_TRUE(processEventsUntil([&] { return server.requestCount() > 0; }, 10000));
    ASSERT_TRUE(processEventsUntil([] { return !ZVIntegrationCenter::shared().synchronizationIsInProgress(); }, 10000));
    const auto accounts = ZVIntegrationCenter::shared().integrations();
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_TRUE(accounts.front()->availableProjects().empty());
}

TEST_F(ZVIntegrationSetupTest, ClickBesideTheSetupPanelLeavesItOpen) {
    openSetup();
    clickBesideThePopover();
    EXPECT_TRUE(popover().isShown());
    EXPECT_NE(content<ZVIntegrationSetupViewController>(), nullptr);
}

TEST_F(ZVIntegrationSetupTest, AddAccountAgainClosesTheSetupPanelAndDiscardsIt) {
    ZVIntegrationSetupViewController& setup = openSetup();
    field(setup, "usernameField")->setText(QStringLiteral("alice"));
    delegate->addIntegration();
    EXPECT_FALSE(popover().isShown());
    EXPECT_TRUE(ZVIntegrationCenter::shared().integrations().empty());
    delegate->addIntegration();
    ASSERT_TRUE(popover().isShown());
    EXPECT_TRUE(field(*content<ZVIntegrationSetupViewController>(), "usernameField")->text().isEmpty());
}

TEST_F(ZVIntegrationSetupTest, EditPanelHidesTheServiceChoiceAndSynchronizesWhenAClickBesideClosesIt) {
    auto account = addGenericAccount("Office server");
    account->usernamePasswordAuthentication().setUsername("alice");
    const int synchronizationsBefore = account->synchronizeCount;
    delegate->editIntegration(account);

    auto* edit = content<ZVIntegrationEditViewController>();
    ASSERT_NE(edit, nullptr);
    ASSERT_TRUE(popover().isShown());
    EXPECT_TRUE(edit->integrationPopUp()->isHidden());
    EXPECT_TRUE(edit->saveButton()->isHidden());
    EXPECT_TRUE(edit->cancelButton()->isHidden());
    EXPECT_EQ(field(*edit, "addressField")->text(), QStringLiteral("server.invalid"));
    EXPECT_EQ(field(*edit, "usernameField")->text(), QStringLiteral("alice"));
    field(*edit, "usernameField")->setText(QStringLiteral("bob"));

    clickBesideThePopover();
    EXPECT_FALSE(popover().isShown());
    EXPECT_EQ(account->synchronizeCount, synchronizationsBefore + 1);
    EXPECT_EQ(account->usernamePasswordAuthentication().username(), "bob");
    EXPECT_EQ(ZVIntegrationCenter::shared().integrations().size(), 1u);
}

TEST_F(ZVIntegrationSetupTest, ClosingTheEditPanelSynchronizesEvenWithoutChanges) {
    auto account = addGenericAccount("Office server");
    const int synchronizationsBefore = account->synchronizeCount;
    delegate->editIntegration(account);
    popover().closePopover();
    EXPECT_EQ(account->synchronizeCount, synchronizationsBefore + 1);
}

TEST_F(ZVIntegrationSetupTest, EditingAnotherAccountWhileThePanelIsOpenIsRefused) {
    auto first = addGenericAccount("Office server");
    auto second = addGenericAccount("Client server");
    delegate->editIntegration(first);
    ui.clearRecords();

    delegate->editIntegration(second);
    ASSERT_EQ(ui.alertMessages().size(), 1u);
    EXPECT_EQ(ui.alertMessages()[0],
              "You need to save or discard changes to currently edited integration before editing 'Client server'");
    EXPECT_EQ(ui.alerts()[0].buttons, std::vector<std::string>{"OK"});
    ASSERT_TRUE(popover().isShown());
    EXPECT_EQ(content<ZVIntegrationEditViewController>()->currentIntegration(), first);

    popover().closePopover();
    openSetup();
    delegate->editIntegration(second);
    EXPECT_EQ(ui.alertMessages().size(), 2u);
    EXPECT_NE(content<ZVIntegrationSetupViewController>(), nullptr);
}

namespace {
/// The text in front of a field of a form.
QString rowLabel(QWidget* field) {
    auto* form = qobject_cast<QFormLayout*>(field->parentWidget()->layout());
    auto* label = form ? qobject_cast<QLabel*>(form->labelForField(field)) : nullptr;
    return label ? label->text() : QStringLiteral("<no label>");
}
}  // namespace

TEST_F(ZVIntegrationSetupTest, JIRACredentialViewSaysWhatEachDeploymentTakes) {
    ZVIntegrationSetupViewController& setup = openSetup();
    choose(setup, "JIRA");
    auto jira = std::dynamic_pointer_cast<ZVJIRAIntegration>(setup.currentIntegration());
    ASSERT_NE(jira, nullptr);
    QWidget* view = setup.setupView();
    auto* hint = view->findChild<QLabel*>(QStringLiteral("credentialHint"));
    auto* tokenPage = view->findChild<QPushButton*>(QStringLiteral("APITokenPageButton"));
    auto* tokenBox = view->findChild<QCheckBox*>(QStringLiteral("personalAccessTokenButton"));
    QLineEdit* username = field(setup, "usernameField");
    QLineEdit* password = field(setup, "passwordField");
    ASSERT_TRUE(hint && tokenPage && tokenBox && username && password);
    const QString dataCenterWords = QStringLiteral("User name and password, or a personal access token");

    // Without an address the view asks as Data Center does.
    EXPECT_EQ(hint->text(), dataCenterWords);
    EXPECT_TRUE(tokenPage->isHidden());
    EXPECT_FALSE(tokenBox->isHidden());

    field(setup, "addressField")->setText(QStringLiteral("https://acme.atlassian.net/"));
    EXPECT_EQ(hint->text(), QStringLiteral("E-mail and API token"));
    EXPECT_EQ(rowLabel(username), QStringLiteral("E-mail"));
    EXPECT_EQ(rowLabel(password), QStringLiteral("API token"));
    EXPECT_FALSE(tokenPage->isHidden());
    EXPECT_TRUE(tokenBox->isHidden());
    tokenPage->click();
    EXPECT_EQ(ui.openedURLs(),
              std::vector<std::string>{"https://id.atlassian.com/manage-profile/security/api-tokens"});

    field(setup, "addressField")->setText(QStringLiteral("jira.example.com/jira"));
    EXPECT_EQ(hint->text(), dataCenterWords);
    EXPECT_EQ(rowLabel(username), QStringLiteral("Username"));
    EXPECT_EQ(rowLabel(password), QStringLiteral("Password"));
    EXPECT_TRUE(tokenPage->isHidden());
    tokenBox->setChecked(true);
    EXPECT_TRUE(jira->usesPersonalAccessToken());
    EXPECT_EQ(rowLabel(password), QStringLiteral("Personal access token"));
    password->setText(QStringLiteral("NjM4MDY1pat"));
    EXPECT_EQ(jira->usernamePasswordAuthentication().password(), "NjM4MDY1pat");
    tokenBox->setChecked(false);
    EXPECT_FALSE(jira->usesPersonalAccessToken());
    EXPECT_EQ(rowLabel(password), QStringLiteral("Password"));
}

namespace {

/// The local projects' names as the preferences store holds them now.
std::vector<std::string> namesInTheStore() {
    std::vector<std::string> names;
    const auto stored = ZVPreferences::shared().value(ZVNorvoIntegrationPreferencesKey);
    if (!stored || !stored->array()) return names;
    for (const auto& project : *stored->array())
        if (const auto* dictionary = project.dictionary())
            if (const auto* name = (*dictionary).at(ZVIntegrationProject::nameKey).string()) names.push_back(*name);
    return names;
}

/// The local projects as the preferences store holds them after a restart.
std::vector<std::string> storedLocalProjectNames() {
    ZVNorvoIntegration::resetSharedIntegration();
    std::vector<std::string> names;
    for (const auto& project : ZVNorvoIntegration::sharedIntegration()->availableProjects())
        names.push_back(project->name());
    return names;
}

std::vector<std::string> rowTitles(const ZVNorvoProjectListModel& model) {
    std::vector<std::string> titles;
    for (int row = 0; row < model.rowCount(); ++row)
        titles.push_back(model.data(model.index(row), Qt::DisplayRole).toString().toStdString());
    return titles;
}

class ZVNorvoProjectManagementTest : public ZVIntegrationSetupTest {
protected:
    ZVNorvoProjectManagementViewController& openManagement(std::initializer_list<const char*> names) {
        auto local = ZVNorvoIntegration::sharedIntegration();
        for (const char* name : names) {
            auto project = ZVIntegrationProject::create(name, std::string("id-") + name);
            project->setIntegration(local);
            local->addProject(project);
        }
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

}  // namespace

TEST_F(ZVNorvoProjectManagementTest, RenamesAndMovesAreSavedAsTheyHappen) {
    auto& controller = openManagement({"Alpha", "Beta", "Gamma"});
    ASSERT_TRUE(popover().isShown());
    auto& model = *controller.model();
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Alpha", "Beta", "Gamma"}));

    EXPECT_TRUE(model.setData(model.index(1), QStringLiteral("Beta 2"), Qt::EditRole));
    EXPECT_FALSE(model.setData(model.index(1), 42, Qt::EditRole)) << "only text is a name";
    EXPECT_FALSE(model.setData(model.index(7), QStringLiteral("Nowhere"), Qt::EditRole));
    EXPECT_EQ(ZVNorvoIntegration::sharedIntegration()->availableProjects()[1]->name(), "Beta 2");
    EXPECT_EQ(namesInTheStore(), (std::vector<std::string>{"Alpha", "Beta 2", "Gamma"}));

    drag(model, 0, 3);  // below the last row
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Beta 2", "Gamma", "Alpha"}));
    drag(model, 2, 0);  // back to the top
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Alpha", "Beta 2", "Gamma"}));
    drag(model, 0, 2);  // into the gap between the second and third row
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Beta 2", "Alpha", "Gamma"}));
    drag(model, 1, -1);  // on the empty space under the rows
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Beta 2", "Gamma", "Alpha"}));
    EXPECT_EQ(namesInTheStore(), (std::vector<std::string>{"Beta 2", "Gamma", "Alpha"}));
    QMimeData foreign;
    foreign.setText(QStringLiteral("0"));
    EXPECT_FALSE(model.canDropMimeData(&foreign, Qt::MoveAction, 0, 0, {}));

    // Escape closes the panel, as "Done" does.
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(&popover(), &escape);
    EXPECT_FALSE(popover().isShown());
    EXPECT_EQ(storedLocalProjectNames(), (std::vector<std::string>{"Beta 2", "Gamma", "Alpha"}));

    auto& again = openManagement({});
    again.findChild<QPushButton*>(QStringLiteral("doneButton"))->click();
    EXPECT_FALSE(popover().isShown());
}

TEST_F(ZVNorvoProjectManagementTest, AddAsksForANameAndRemoveTakesTheSelectedRowOnly) {
    auto& controller = openManagement({"Alpha", "Beta"});
    auto& model = *controller.model();

    controller.remove();  // nothing selected
    EXPECT_EQ(model.rowCount(), 2);

    ui.answerTextPromptWith(std::string("Gamma"));
    controller.add();
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Alpha", "Beta", "Gamma"}));
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject()->name(), "Gamma");

    controller.tableView()->setCurrentIndex(model.index(0));
    controller.remove();
    EXPECT_EQ(rowTitles(model), (std::vector<std::string>{"Beta", "Gamma"}));
    EXPECT_EQ(storedLocalProjectNames(), (std::vector<std::string>{"Beta", "Gamma"}));
}

TEST_F(ZVNorvoProjectManagementTest, ManagingWhileAnAccountIsEditedIsRefused) {
    openSetup();
    ui.clearRecords();
    delegate->manageNorvoProjects();
    ASSERT_EQ(ui.alertMessages().size(), 1u);
    EXPECT_EQ(ui.alertMessages()[0],
              "You need to save or discard changes to currently edited integration before managing local Norvo "
              "projects");
    EXPECT_NE(content<ZVIntegrationSetupViewController>(), nullptr);

    // Escape leaves the setup panel open, as a click beside it does: what
    // was typed there goes only with "Cancel".
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(&popover(), &escape);
    EXPECT_TRUE(popover().isShown());
}
