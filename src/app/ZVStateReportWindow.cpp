#include "app/ZVStateReportWindow.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ZVApplicationState.h"
#include "ZVLocalization.h"

ZVStateReportWindow::ZVStateReportWindow(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("stateReportWindow"));
    setWindowTitle(ZVLocalizedQString("Application State"));
    auto* layout = new QVBoxLayout(this);
    _text = new QPlainTextEdit();
    _text->setObjectName(QStringLiteral("stateReportText"));
    _text->setReadOnly(true);
    _text->setPlainText(QString::fromStdString(ZVApplicationSetup::applicationStateProvider()->stateReport()));
    _text->setMinimumSize(480, 320);
    layout->addWidget(_text);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    QPushButton* copy = buttons->addButton(ZVLocalizedQString("Copy"), QDialogButtonBox::ActionRole);
    connect(copy, &QPushButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(_text->toPlainText()); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

QString ZVStateReportWindow::reportText() const { return _text->toPlainText(); }
