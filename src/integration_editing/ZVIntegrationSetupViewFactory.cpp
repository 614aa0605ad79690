#include "integration_editing/ZVIntegrationSetupViewFactory.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <functional>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"
#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVIntegrationWithOAuth2.h"
#include "core/integrations/authentication/ZVOAuth2Authentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/ui/ZVUserInterface.h"
#include "integration_editing/ZVIntegrationSetupView.h"

namespace {

QWidget* makePart(QFormLayout*& form) {
    auto* part = new QWidget();
    form = new QFormLayout(part);
    form->setContentsMargins(0, 0, 0, 0);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    return part;
}

/// A field that shows `text` and hands every change to `changed`.
QLineEdit* textField(const char* objectName, const std::string& text, std::function<void(const std::string&)> changed,
                     bool secure = false) {
    auto* field = new QLineEdit(QString::fromStdString(text));
    field->setObjectName(QString::fromUtf8(objectName));
    if (secure) field->setEchoMode(QLineEdit::Password);
    QObject::connect(field, &QLineEdit::textChanged, field,
                     [changed = std::move(changed)](const QString& value) { changed(value.toStdString()); });
    return field;
}

QCheckBox* checkBox(const char* objectName, const char* title, bool checked, std::function<void(bool)> changed) {
    auto* box = new QCheckBox(ZVLocalizedQString(title));
    box->setObjectName(QString::fromUtf8(objectName));
    box->setChecked(checked);
    QObject::connect(box, &QCheckBox::toggled, box, [changed = std::move(changed)](bool on) { changed(on); });
    return box;
}

QLineEdit* numberField(const char* objectName, double value, std::function<void(double)> changed) {
    auto* field = textField(objectName, QString::number(value).toStdString(), [changed](const std::string& text) {
        changed(QString::fromStdString(text).toDouble());
    });
    field->setValidator(new QDoubleValidator(0, 1e9, 4, field));
    return field;
}

QString usernameLabel(const std::optional<std::string>& label) {
    return label ? QString::fromStdString(*label) : ZVLocalizedQString("Username");
}

QLineEdit* APITokenField(const std::shared_ptr<ZVAPITokenAuthentication>& credentials) {
    return textField(
        "APITokenField", credentials->APIToken(),
        [credentials](const std::string& value) { credentials->setAPIToken(value); }, true);
}

void setRowLabel(QFormLayout* form, QWidget* field, const QString& text) {
    if (auto* label = qobject_cast<QLabel*>(form->labelForField(field))) label->setText(text);
}

/// Tells what the credential view of a JIRA account asks for where the site
/// runs: Cloud takes an e-mail address and an API token (and offers the page
/// that makes one), Data Center and Server a user name with a password or a
/// personal access token.
void showJIRACredentialKind(QWidget* part, const ZVJIRAIntegration& jira) {
    auto* form = qobject_cast<QFormLayout*>(part->layout());
    auto* username = part->findChild<QLineEdit*>(QStringLiteral("usernameField"));
    auto* password = part->findChild<QLineEdit*>(QStringLiteral("passwordField"));
    auto* hint = part->findChild<QLabel*>(QStringLiteral("credentialHint"));
    auto* APITokenButton = part->findChild<QPushButton*>(QStringLiteral("APITokenPageButton"));
    auto* tokenBox = part->findChild<QCheckBox*>(QStringLiteral("personalAccessTokenButton"));
    if (!form || !username || !password || !hint || !APITokenButton || !tokenBox) return;

    const bool cloud = jira.presumedDeploymentType() == ZVJIRADeploymentType::cloud;
    hint->setText(cloud ? ZVLocalizedQString("E-mail and API token")
                        : ZVLocalizedQString("User name and password, or a personal access token"));
    setRowLabel(form, username, cloud ? ZVLocalizedQString("E-mail") : usernameLabel(jira.usernameLabel()));
    setRowLabel(form, password,
                cloud                              ? ZVLocalizedQString("API token")
                : jira.usesPersonalAccessToken() ? ZVLocalizedQString("Personal access token")
                                                   : ZVLocalizedQString("Password"));
    APITokenButton->setVisible(cloud);
    tokenBox->setVisible(!cloud);
}

void addJIRACredentialRows(QFormLayout* form, QWidget* part, const std::shared_ptr<ZVJIRAIntegration>& jira) {
    auto* hint = new QLabel();
    hint->setObjectName(QStringLiteral("credentialHint"));
    hint->setWordWrap(true);
    form->insertRow(0, hint);

    auto* APITokenButton = new QPushButton(ZVLocalizedQString("Create an API Token..."));
    APITokenButton->setObjectName(QStringLiteral("APITokenPageButton"));
    QObject::connect(APITokenButton, &QPushButton::clicked, APITokenButton,
                     [] { ZVUserInterface::shared().openURL(ZVJIRAIntegration::APITokenPageURL); });
    form->addRow(APITokenButton);

    form->addRow(checkBox("personalAccessTokenButton", "Sign in with a personal access token",
                          jira->usesPersonalAccessToken(), [jira, part](bool on) {
                              jira->setUsesPersonalAccessToken(on);
                              showJIRACredentialKind(part, *jira);
                          }));
    showJIRACredentialKind(part, *jira);
}

}  // namespace

ZVIntegrationSetupView* ZVIntegrationSetupViewFactory::makeSetupView(const std::shared_ptr<ZVIntegration>& integration) {
    auto* view = new ZVIntegrationSetupView();
    view->addPart(makeBasicView(integration, integration->basicSetupViewNibName()));
    auto authentication = integration->authentication();
    if (!authentication && integration->authenticationType() != ZVAuthenticationType::none)
        ZVFatalError("setupView: the account has no credential object");
    QWidget* credentialView = authentication ? makeCredentialView(integration, authentication) : nullptr;
    if (credentialView) view->addPart(credentialView);
    if (const auto additional = integration->additionalSetupViewNibName())
        view->addPart(makeAdditionalView(integration, *additional));
    // What a JIRA account asks for follows the address as the user types it.
    auto* address = view->findChild<QLineEdit*>(QStringLiteral("addressField"));
    if (auto jira = std::dynamic_pointer_cast<ZVJIRAIntegration>(integration); jira && credentialView && address) {
        QObject::connect(address, &QLineEdit::textChanged, credentialView,
                         [credentialView, jira] { showJIRACredentialKind(credentialView, *jira); });
    }
    return view;
}

QWidget* ZVIntegrationSetupViewFactory::makeBasicView(const std::shared_ptr<ZVIntegration>& integration,
                                                      const std::string& name) {
    auto account = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(integration);
    if (name != "AddressBased" || !account) return nullptr;
    QFormLayout* form = nullptr;
    QWidget* part = makePart(form);
    QLineEdit* address = textField("addressField", account->address(),
                                   [account](const std::string& value) { account->setAddress(value); });
    address->setPlaceholderText(QString::fromStdString(account->addressPlaceholder()));
    address->setReadOnly(account->hasHardcodedAddress());
    form->addRow(ZVLocalizedQString("Address"), address);
    if (account->SSLSupport() == ZVSSLSupport::optional) {
        form->addRow(checkBox("sslButton", "Use SSL", account->isSSLEnabled(),
                              [account](bool on) { account->setSSLEnabled(on); }));
    }
    return part;
}

QWidget* ZVIntegrationSetupViewFactory::makeCredentialView(const std::shared_ptr<ZVIntegration>& integration,
                                                           const std::shared_ptr<ZVAuthentication>& authentication) {
    const std::string name = authentication->setupViewNibName();
    QFormLayout* form = nullptr;
    QWidget* part = makePart(form);
    part->setObjectName(QString::fromStdString(name));

    if (auto credentials = std::dynamic_pointer_cast<ZVUsernamePasswordAuthentication>(authentication)) {
        form->addRow(usernameLabel(credentials->usernameLabel()),
                     textField("usernameField", credentials->username(),
                               [credentials](const std::string& value) { credentials->setUsername(value); }));
        form->addRow(ZVLocalizedQString("Password"),
                     textField(
                         "passwordField", credentials->password(),
                         [credentials](const std::string& value) { credentials->setPassword(value); }, true));
        if (auto withToken = std::dynamic_pointer_cast<ZVUsernamePasswordAPITokenAuthentication>(credentials)) {
            form->addRow(ZVLocalizedQString("API Token"),
                         textField(
                             "APITokenField", withToken->APIToken(),
                             [withToken](const std::string& value) { withToken->setAPIToken(value); }, true));
        }
        if (auto jira = std::dynamic_pointer_cast<ZVJIRAIntegration>(integration)) addJIRACredentialRows(form, part, jira);
    } else if (auto named = std::dynamic_pointer_cast<ZVUsernameAPITokenAuthentication>(authentication)) {
        form->addRow(usernameLabel(named->usernameLabel()),
                     textField("usernameField", named->username(),
                               [named](const std::string& value) { named->setUsername(value); }));
        form->addRow(ZVLocalizedQString("API Token"), APITokenField(named));
    } else if (auto token = std::dynamic_pointer_cast<ZVAPITokenAuthentication>(authentication)) {
        form->addRow(ZVLocalizedQString("API Token"), APITokenField(token));
    } else if (std::dynamic_pointer_cast<ZVOAuth2Authentication>(authentication)) {
        auto* authorize = new QPushButton(ZVLocalizedQString("Authorize"));
        authorize->setObjectName(QStringLiteral("authorizeButton"));
        // The account outlives its setup view; the view is released first.
        std::weak_ptr<ZVIntegration> weakIntegration = integration;
        QObject::connect(authorize, &QPushButton::clicked, authorize, [weakIntegration] {
            auto account = weakIntegration.lock();
            if (auto* withOAuth2 = dynamic_cast<ZVIntegrationWithOAuth2*>(account.get())) withOAuth2->authorize();
        });
        form->addRow(authorize);
    } else {
        ZVLog([&] { return "No credential view named " + name; });
        delete part;
        return nullptr;
    }
    return part;
}

QWidget* ZVIntegrationSetupViewFactory::makeAdditionalView(const std::shared_ptr<ZVIntegration>& integration,
                                                           const std::string& name) {
    QFormLayout* form = nullptr;
    QWidget* part = makePart(form);
    part->setObjectName(QString::fromStdString(name));

    if (auto generic = std::dynamic_pointer_cast<ZVGenericAddressBasedIntegration>(integration);
        generic && name == "Generic") {
        form->addRow(checkBox("synchronizeProjectsOnlyButton", "Synchronize projects only, without tasks",
                              generic->synchronizesProjectsOnly(),
                              [generic](bool on) { generic->setSynchronizesProjectsOnly(on); }));
        form->addRow(checkBox("usesAlternateActionFieldNameButton", "Send the action as \"command\"",
                              generic->usesAlternateActionFieldName(),
                              [generic](bool on) { generic->setUsesAlternateActionFieldName(on); }));
    } else if (auto jira = std::dynamic_pointer_cast<ZVJIRAIntegration>(integration); jira && name == "JIRA") {
        auto* mode = new QComboBox();
        mode->setObjectName(QStringLiteral("synchronizationTypePopUp"));
        mode->addItem(ZVLocalizedQString("Issues by project"), static_cast<int>(ZVJIRASynchronizationType::projects));
        mode->addItem(ZVLocalizedQString("Issues by favourite filter"), static_cast<int>(ZVJIRASynchronizationType::filters));
        mode->setCurrentIndex(jira->synchronizationType() == ZVJIRASynchronizationType::filters ? 1 : 0);
        QObject::connect(mode, &QComboBox::currentIndexChanged, mode, [jira, mode](int) {
            jira->setSynchronizationType(static_cast<ZVJIRASynchronizationType>(mode->currentData().toInt()));
        });
        form->addRow(ZVLocalizedQString("Synchronize"), mode);
        form->addRow(checkBox("includesUnassignedIssuesButton", "Include unassigned issues",
                              jira->includesUnassignedIssues(),
                              [jira](bool on) { jira->setIncludesUnassignedIssues(on); }));
        form->addRow(checkBox("ignoresSessionCookiesButton", "Send the credentials with every request",
                              jira->ignoresSessionCookies(), [jira](bool on) { jira->setIgnoresSessionCookies(on); }));
    } else if (auto kashflow = std::dynamic_pointer_cast<ZVKashflowIntegration>(integration);
               kashflow && name == "Kashflow") {
        form->addRow(ZVLocalizedQString("Hour rate"),
                     numberField("rateField", kashflow->rate(), [kashflow](double value) { kashflow->setRate(value); }));
        form->addRow(ZVLocalizedQString("VAT rate (%)"), numberField("VATRateField", kashflow->VATRate(),
                                                            [kashflow](double value) { kashflow->setVATRate(value); }));
    } else {
        ZVLog([&] { return "No additional setup view named " + name; });
        delete part;
        return nullptr;
    }
    return part;
}
