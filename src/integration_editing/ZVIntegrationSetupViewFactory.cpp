#include "integration_editing/ZVIntegrationSetupViewFactory.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <algorithm>
#include <functional>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
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

/// A field that hands its text to `finished` once the user is done with it
/// (Return, or the focus going elsewhere), for what is costly to store.
QLineEdit* finishedTextField(const char* objectName, const std::string& text,
                             std::function<void(const std::string&)> finished, bool secure = false) {
    auto* field = new QLineEdit(QString::fromStdString(text));
    field->setObjectName(QString::fromUtf8(objectName));
    if (secure) field->setEchoMode(QLineEdit::Password);
    QObject::connect(field, &QLineEdit::editingFinished, field,
                     [field, finished = std::move(finished)] { finished(field->text().toStdString()); });
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

/// The control of one declared setting, already added to the form.
QWidget* addSettingRow(QFormLayout* form, const std::shared_ptr<ZVIntegration>& account,
                       const ZVIntegrationSetting& setting, std::function<void()> changed) {
    const std::string key = setting.key;
    std::weak_ptr<ZVIntegration> weak = account;
    const auto store = [weak, key, changed](const ZVValue& value) {
        if (auto owner = weak.lock()) owner->setSettingValue(key, value);
        if (changed) changed();
    };
    const ZVValue current = account->settingValue(key);
    switch (setting.kind) {
        case ZVIntegrationSetting::Kind::flag: {
            auto* box = checkBox(setting.controlName, setting.label, current.boolean().value_or(false),
                                 [store](bool on) { store(ZVValue(on)); });
            form->addRow(box);
            return box;
        }
        case ZVIntegrationSetting::Kind::number: {
            auto* field = numberField(setting.controlName, current.real().value_or(0),
                                      [store](double value) { store(ZVValue(value)); });
            form->addRow(ZVLocalizedQString(setting.label), field);
            return field;
        }
        case ZVIntegrationSetting::Kind::choice: {
            auto* popUp = new QComboBox();
            popUp->setObjectName(QString::fromUtf8(setting.controlName));
            for (const auto& choice : setting.choices)
                popUp->addItem(ZVLocalizedQString(choice.label), QVariant::fromValue<qlonglong>(choice.value));
            const int index = popUp->findData(QVariant::fromValue<qlonglong>(current.integer().value_or(0)));
            popUp->setCurrentIndex(std::max(index, 0));
            QObject::connect(popUp, &QComboBox::currentIndexChanged, popUp, [popUp, store](int) {
                store(ZVValue(static_cast<std::int64_t>(popUp->currentData().toLongLong())));
            });
            form->addRow(ZVLocalizedQString(setting.label), popUp);
            return popUp;
        }
        case ZVIntegrationSetting::Kind::text: {
            auto* field = textField(setting.controlName, current.string() ? *current.string() : std::string(),
                                    [store](const std::string& value) { store(ZVValue(value)); });
            form->addRow(ZVLocalizedQString(setting.label), field);
            return field;
        }
    }
    return nullptr;
}

/// Puts the service's present wishes into the credential part: the hint,
/// the field labels, the link to its token page and which of its
/// credential settings apply.
void presentCredentials(QWidget* part, const ZVIntegration& account) {
    const auto presentation = account.credentialPresentation();
    auto* form = qobject_cast<QFormLayout*>(part->layout());
    if (!presentation || !form) return;
    auto* hint = part->findChild<QLabel*>(QStringLiteral("credentialHint"));
    auto* link = part->findChild<QPushButton*>(QStringLiteral("APITokenPageButton"));
    if (hint) hint->setText(QString::fromStdString(presentation->hint));
    // A label the service leaves empty stays as the credential names it.
    auto* username = part->findChild<QLineEdit*>(QStringLiteral("usernameField"));
    if (username && !presentation->usernameLabel.empty())
        setRowLabel(form, username, QString::fromStdString(presentation->usernameLabel));
    auto* secret = part->findChild<QLineEdit*>(QStringLiteral("passwordField"));
    if (secret && !presentation->secretLabel.empty())
        setRowLabel(form, secret, QString::fromStdString(presentation->secretLabel));
    if (link) {
        link->setText(QString::fromStdString(presentation->linkTitle));
        link->setVisible(!presentation->linkURL.empty());
    }
    // A fixed host may follow a setting (the interface a service is reached through).
    const auto* fixed = dynamic_cast<const ZVAddressBasedIntegration*>(&account);
    auto* address = part->parentWidget() ? part->parentWidget()->findChild<QLineEdit*>(QStringLiteral("addressField"))
                                         : nullptr;
    if (fixed && fixed->hasHardcodedAddress() && address)
        address->setText(QString::fromStdString(fixed->address()));
    for (const auto& setting : account.settings()) {
        if (!setting.belongsToCredentials) continue;
        auto* control = part->findChild<QWidget*>(QString::fromUtf8(setting.controlName));
        const bool hidden = std::find(presentation->hiddenSettings.begin(), presentation->hiddenSettings.end(),
                                      setting.key) != presentation->hiddenSettings.end();
        if (control) control->setVisible(!hidden);
    }
}

void addCredentialPresentation(QFormLayout* form, QWidget* part, const std::shared_ptr<ZVIntegration>& account) {
    for (const auto& setting : account->settings()) {
        if (setting.belongsToCredentials)
            addSettingRow(form, account, setting, [part, account] { presentCredentials(part, *account); });
    }
    if (!account->credentialPresentation()) return;
    auto* hint = new QLabel();
    hint->setObjectName(QStringLiteral("credentialHint"));
    hint->setWordWrap(true);
    form->insertRow(0, hint);
    auto* link = new QPushButton();
    link->setObjectName(QStringLiteral("APITokenPageButton"));
    std::weak_ptr<ZVIntegration> weak = account;
    QObject::connect(link, &QPushButton::clicked, link, [weak] {
        auto owner = weak.lock();
        if (!owner) return;
        if (const auto presentation = owner->credentialPresentation(); presentation && !presentation->linkURL.empty())
            ZVUserInterface::shared().openURL(presentation->linkURL);
    });
    form->addRow(link);
    presentCredentials(part, *account);
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
    if (QWidget* additional = makeAdditionalView(integration, integration->additionalSetupViewNibName().value_or("")))
        view->addPart(additional);
    // What a service asks for may follow the address as the user types it.
    auto* address = view->findChild<QLineEdit*>(QStringLiteral("addressField"));
    if (credentialView && address && integration->credentialPresentation()) {
        std::weak_ptr<ZVIntegration> weak = integration;
        QObject::connect(address, &QLineEdit::textChanged, credentialView, [credentialView, weak] {
            if (auto owner = weak.lock()) presentCredentials(credentialView, *owner);
        });
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
    // The example address is read whole.
    address->setMinimumWidth(address->fontMetrics().horizontalAdvance(address->placeholderText()) + 24);
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
        addCredentialPresentation(form, part, integration);
    } else if (auto named = std::dynamic_pointer_cast<ZVUsernameAPITokenAuthentication>(authentication)) {
        form->addRow(usernameLabel(named->usernameLabel()),
                     textField("usernameField", named->username(),
                               [named](const std::string& value) { named->setUsername(value); }));
        form->addRow(ZVLocalizedQString("API Token"), APITokenField(named));
        addCredentialPresentation(form, part, integration);
    } else if (auto token = std::dynamic_pointer_cast<ZVAPITokenAuthentication>(authentication)) {
        form->addRow(ZVLocalizedQString("API Token"), APITokenField(token));
        addCredentialPresentation(form, part, integration);
    } else if (std::dynamic_pointer_cast<ZVOAuth2Authentication>(authentication)) {
        auto* authorize = new QPushButton(ZVLocalizedQString("Authorize"));
        authorize->setObjectName(QStringLiteral("authorizeButton"));
        // The account outlives its setup view; the view is released first.
        std::weak_ptr<ZVIntegration> weakIntegration = integration;
        QObject::connect(authorize, &QPushButton::clicked, authorize, [weakIntegration] {
            auto account = weakIntegration.lock();
            if (auto* withOAuth2 = dynamic_cast<ZVIntegrationWithOAuth2*>(account.get())) withOAuth2->authorize();
        });
        // Whether the account holds a login; the browser answers whenever the
        // user is done there, so the line looks again while it is shown.
        auto* state = new QLabel();
        state->setObjectName(QStringLiteral("authorizationStateLabel"));
        const auto showState = [state, weakIntegration] {
            auto* withOAuth2 = dynamic_cast<ZVIntegrationWithOAuth2*>(weakIntegration.lock().get());
            state->setText(withOAuth2 && withOAuth2->hasAuthorizedAccount() ? ZVLocalizedQString("Authorized")
                                                                            : ZVLocalizedQString("Not authorized"));
        };
        showState();
        auto* look = new QTimer(state);
        QObject::connect(look, &QTimer::timeout, state, showState);
        look->start(500);
        auto* row = new QHBoxLayout();
        row->addWidget(authorize, 1);
        row->addWidget(state);
        form->addRow(row);
        // An application the user registered with the service, for a build
        // without one of its own or a user who prefers theirs.
        if (auto* withOAuth2 = dynamic_cast<ZVIntegrationWithOAuth2*>(integration.get())) {
            // A switch and the fields below it, which are gone while it is off.
            auto* advanced = new QCheckBox(ZVLocalizedQString("Advanced"));
            advanced->setObjectName(QStringLiteral("advancedOAuth2Box"));
            const auto [ownID, ownSecret] = withOAuth2->ownClientCredentials();
            advanced->setChecked(!ownID.empty());
            auto* body = new QWidget();
            body->setObjectName(QStringLiteral("advancedOAuth2Fields"));
            auto* fields = new QFormLayout(body);
            // The fields stand under the switch's label.
            fields->setContentsMargins(advanced->style()->pixelMetric(QStyle::PM_IndicatorWidth) +
                                           advanced->style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing),
                                       0, 0, 0);
            auto client = std::make_shared<std::pair<std::string, std::string>>(ownID, ownSecret);
            const auto store = [weakIntegration, client] {
                if (auto owner = std::dynamic_pointer_cast<ZVIntegrationWithOAuth2>(weakIntegration.lock()))
                    owner->setOwnClient(client->first, client->second);
            };
            // The key store is written when a field is done with, not at each keystroke.
            fields->addRow(ZVLocalizedQString("Client ID"),
                           finishedTextField("clientIDField", ownID, [client, store](const std::string& value) {
                               if (value == client->first) return;
                               client->first = value;
                               store();
                           }));
            fields->addRow(ZVLocalizedQString("Client Secret"),
                           finishedTextField("clientSecretField", ownSecret, [client, store](const std::string& value) {
                               if (value == client->second) return;
                               client->second = value;
                               store();
                           }, true));
            form->addRow(advanced);
            form->addRow(body);
            const auto fold = [form, body](bool open) { form->setRowVisible(body, open); };
            fold(advanced->isChecked());
            QObject::connect(advanced, &QCheckBox::toggled, advanced, [fold, weakIntegration, store](bool on) {
                fold(on);
                if (on) {
                    store();
                } else if (auto owner = std::dynamic_pointer_cast<ZVIntegrationWithOAuth2>(weakIntegration.lock())) {
                    owner->setOwnClient({}, {});
                }
            });
        }
    } else {
        ZVLog([&] { return "No credential view named " + name; });
        delete part;
        return nullptr;
    }
    return part;
}

QWidget* ZVIntegrationSetupViewFactory::makeAdditionalView(const std::shared_ptr<ZVIntegration>& integration,
                                                           const std::string& name) {
    const auto& settings = integration->settings();
    if (std::none_of(settings.begin(), settings.end(), [](const auto& setting) { return !setting.belongsToCredentials; }))
        return nullptr;
    QFormLayout* form = nullptr;
    QWidget* part = makePart(form);
    part->setObjectName(QString::fromStdString(name));
    for (const auto& setting : settings) {
        if (!setting.belongsToCredentials) addSettingRow(form, integration, setting, {});
    }
    return part;
}
