#include "app/ZVQtUserInterface.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialog>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QNetworkInformation>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <optional>

#include "ZVLocalization.h"

namespace {

std::vector<std::string> buttonTitles(const ZVAlert& alert) {
    if (alert.buttons.empty()) return {ZVLocalizedString("OK")};
    return alert.buttons;
}

QMessageBox::Icon iconFor(ZVAlert::Style style) {
    switch (style) {
        case ZVAlert::Style::informational: return QMessageBox::Information;
        case ZVAlert::Style::critical: return QMessageBox::Critical;
        case ZVAlert::Style::warning: break;
    }
    return QMessageBox::Warning;
}

QWidget* dialogParent(QWidget* preferred) {
    if (preferred && preferred->isVisible()) return preferred;
    return QApplication::activeWindow();
}

// Swallows the keys meant for a dialog until it has been up for a moment:
// an alert that comes up by itself (the user came back, a refresh found a
// vanished project) must not be answered by a key press that was typed for
// another window. The default button takes Return only from then on.
class KeyGuard final : public QObject {
public:
    KeyGuard(QDialog& dialog, QPushButton* defaultButton, int milliseconds)
        : _dialog(dialog), _defaultButton(defaultButton), _milliseconds(milliseconds) {
        qApp->installEventFilter(this);
        _shown.start();
        QTimer::singleShot(milliseconds, this, [this] {
            if (_defaultButton) _defaultButton->setDefault(true);
        });
    }
    ~KeyGuard() override { qApp->removeEventFilter(this); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        const auto type = event->type();
        if (type != QEvent::KeyPress && type != QEvent::KeyRelease && type != QEvent::ShortcutOverride)
            return false;
        auto* widget = qobject_cast<QWidget*>(watched);
        return widget && widget->window() == &_dialog && _shown.elapsed() < _milliseconds;
    }

private:
    QDialog& _dialog;
    QPointer<QPushButton> _defaultButton;
    int _milliseconds;
    QElapsedTimer _shown;
};

}  // namespace

ZVQtUserInterface::ZVQtUserInterface() {
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) return;
    QNetworkInformation* network = QNetworkInformation::instance();
    const auto follow = [this](QNetworkInformation::Reachability reachability) {
        _offline = reachability == QNetworkInformation::Reachability::Disconnected;
    };
    follow(network->reachability());
    _networkWatch = std::make_unique<QObject>();
    QObject::connect(network, &QNetworkInformation::reachabilityChanged, _networkWatch.get(), follow);
}

int ZVQtUserInterface::escapeButtonIndex(const std::vector<std::string>& buttons) {
    const std::string cancel = ZVLocalizedString("Cancel");
    for (std::size_t i = 0; i < buttons.size(); ++i)
        if (buttons[i] == cancel || buttons[i] == "Cancel") return static_cast<int>(i);
    return buttons.size() == 1 ? 0 : -1;
}

ZVAlertResponse ZVQtUserInterface::runModal(const ZVAlert& alert) {
    const std::vector<std::string> titles = buttonTitles(alert);
    QMessageBox box(dialogParent(_parentWindow));
    box.setWindowTitle(QStringLiteral("Norvo"));
    box.setIcon(iconFor(alert.style));
    box.setText(ZVQt(alert.messageText));
    if (!alert.informativeText.empty()) box.setInformativeText(ZVQt(alert.informativeText));

    // All buttons share one role, which keeps them in the given order.
    std::vector<QPushButton*> buttons;
    for (const std::string& title : titles) buttons.push_back(box.addButton(ZVQt(title), QMessageBox::ActionRole));
    if (!alert.ignoresKeyPressesAtFirst) box.setDefaultButton(buttons.front());
    const int escapeIndex = escapeButtonIndex(titles);
    if (escapeIndex >= 0) box.setEscapeButton(buttons[static_cast<std::size_t>(escapeIndex)]);

    QCheckBox* suppression = nullptr;
    if (alert.suppressionButtonTitle) {
        suppression = new QCheckBox(ZVQt(*alert.suppressionButtonTitle));
        box.setCheckBox(suppression);
    }

    std::optional<KeyGuard> guard;
    if (alert.ignoresKeyPressesAtFirst) {
        // No button has the focus either, so that Space presses none.
        for (QPushButton* button : buttons) button->setFocusPolicy(Qt::ClickFocus);
        guard.emplace(box, buttons.front(), keyGuardMilliseconds);
    }
    box.exec();

    ZVAlertResponse response;
    response.buttonIndex = 0;
    for (std::size_t i = 0; i < buttons.size(); ++i)
        if (box.clickedButton() == buttons[i]) response.buttonIndex = static_cast<int>(i);
    if (!box.clickedButton() && escapeIndex >= 0) response.buttonIndex = escapeIndex;
    response.suppressionChecked = suppression && suppression->isChecked();
    return response;
}

void ZVQtUserInterface::showAlert(const ZVAlert& alert) {
    auto* box = new QMessageBox(dialogParent(_parentWindow));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(false);
    box->setWindowModality(Qt::NonModal);
    box->setWindowTitle(QStringLiteral("Norvo"));
    box->setIcon(iconFor(alert.style));
    box->setText(ZVQt(alert.messageText));
    if (!alert.informativeText.empty()) box->setInformativeText(ZVQt(alert.informativeText));
    // Paths are long and worth copying.
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    box->setStandardButtons(QMessageBox::Ok);
    box->setEscapeButton(QMessageBox::Ok);
    box->show();
}

namespace {
/// Fills the dialog with the alert's texts, `accessory` below them and the
/// buttons in a row, and runs it; whether the first button closed it. The
/// accessory lives as long as the dialog, so that its value can be read.
bool runAccessoryDialog(QDialog& dialog, const ZVAlert& alert, QWidget* accessory) {
    const std::vector<std::string> titles = buttonTitles(alert);
    dialog.setWindowTitle(QStringLiteral("Norvo"));
    // What a screen reader announces, and what a script that meets the
    // prompt is told it waits for.
    dialog.setAccessibleName(ZVQt(alert.messageText));
    auto* layout = new QVBoxLayout(&dialog);

    auto* message = new QLabel(ZVQt(alert.messageText));
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);
    message->setWordWrap(true);
    layout->addWidget(message);
    if (!alert.informativeText.empty()) {
        auto* informative = new QLabel(ZVQt(alert.informativeText));
        informative->setWordWrap(true);
        layout->addWidget(informative);
    }
    layout->addWidget(accessory);

    // The first button accepts; every other one cancels.
    auto* row = new QHBoxLayout();
    row->addStretch();
    const int escapeIndex = ZVQtUserInterface::escapeButtonIndex(titles);
    int clicked = escapeIndex >= 0 ? escapeIndex : 1;
    for (std::size_t i = 0; i < titles.size(); ++i) {
        auto* button = new QPushButton(ZVQt(titles[i]));
        const int index = static_cast<int>(i);
        if (index == 0) {
            button->setDefault(true);
            button->setAutoDefault(true);
        } else {
            button->setAutoDefault(false);
        }
        QObject::connect(button, &QPushButton::clicked, &dialog, [&dialog, &clicked, index] {
            clicked = index;
            if (index == 0)
                dialog.accept();
            else
                dialog.reject();
        });
        row->addWidget(button);
    }
    layout->addLayout(row);
    accessory->setFocus();
    return dialog.exec() == QDialog::Accepted && clicked == 0;
}
}  // namespace

std::optional<std::string> ZVQtUserInterface::runModalWithTextField(const ZVAlert& alert,
                                                                    const std::string& initialText, bool secure) {
    QDialog dialog(dialogParent(_parentWindow));
    auto* field = new QLineEdit(ZVQt(initialText), &dialog);
    field->setObjectName(QStringLiteral("alertTextField"));
    field->setMinimumWidth(300);
    if (secure) field->setEchoMode(QLineEdit::Password);
    field->selectAll();
    if (!runAccessoryDialog(dialog, alert, field)) return std::nullopt;
    return field->text().toStdString();
}

std::optional<std::size_t> ZVQtUserInterface::runModalWithChoice(const ZVAlert& alert,
                                                                 const std::vector<std::string>& choices,
                                                                 std::size_t preselected) {
    QDialog dialog(dialogParent(_parentWindow));
    auto* popUp = new QComboBox(&dialog);
    popUp->setObjectName(QStringLiteral("alertChoice"));
    for (const auto& choice : choices) popUp->addItem(ZVQt(choice));
    if (preselected < choices.size()) popUp->setCurrentIndex(static_cast<int>(preselected));
    if (!runAccessoryDialog(dialog, alert, popUp) || popUp->currentIndex() < 0) return std::nullopt;
    return static_cast<std::size_t>(popUp->currentIndex());
}

void ZVQtUserInterface::beep() { QApplication::beep(); }

void ZVQtUserInterface::showBanner(const std::string& title, const std::string& text) {
    _notifications.show(ZVQt(title), ZVQt(text));
}

bool ZVQtUserInterface::openURL(const std::string& url) {
    return QDesktopServices::openUrl(QUrl(ZVQt(url)));
}
