#include "integration_editing/ZVIntegrationSetupViewController.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <mutex>

#include "ZVLocalization.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "integration_editing/ZVIntegrationListPopUpButton.h"
#include "integration_editing/ZVIntegrationSetupView.h"
#include "integration_editing/ZVIntegrationSetupViewFactory.h"

ZVIntegrationSetupViewController::ZVIntegrationSetupViewController(std::shared_ptr<ZVIntegration> integration,
                                                                   ZVPopover* popover, QWidget* parent)
    : QWidget(parent), _currentIntegration(std::move(integration)), _popover(popover) {
    setObjectName(QStringLiteral("integrationSetupViewController"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    auto* kindRow = new QHBoxLayout();
    _integrationPopUpTextField = new QLabel(ZVLocalizedQString("Service:"));
    _integrationPopUp = new ZVIntegrationListPopUpButton();
    _integrationPopUp->selectItemWithTitle(QString::fromStdString(_currentIntegration->integrationName()));
    kindRow->addWidget(_integrationPopUpTextField);
    kindRow->addWidget(_integrationPopUp, 1);
    layout->addLayout(kindRow);

    _skippedProjectsWarningTextField =
        new QLabel(ZVLocalizedQString("Projects without open tasks or tickets are not shown."));
    _skippedProjectsWarningTextField->setObjectName(QStringLiteral("skippedProjectsWarningTextField"));
    _skippedProjectsWarningTextField->setWordWrap(true);
    layout->addWidget(_skippedProjectsWarningTextField);

    _subview = new QWidget();
    _subview->setObjectName(QStringLiteral("subview"));
    auto* subviewLayout = new QVBoxLayout(_subview);
    subviewLayout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_subview);

    auto* buttonRow = new QHBoxLayout();
    _progressIndicator = new QProgressBar();
    _progressIndicator->setRange(0, 0);
    _progressIndicator->setMaximumWidth(60);
    _progressIndicator->hide();
    _cancelButton = new QPushButton(ZVLocalizedQString("Cancel"));
    _cancelButton->setObjectName(QStringLiteral("cancelButton"));
    _saveButton = new QPushButton(ZVLocalizedQString("Save"));
    _saveButton->setObjectName(QStringLiteral("saveButton"));
    _saveButton->setDefault(true);
    buttonRow->addWidget(_progressIndicator);
    buttonRow->addStretch();
    buttonRow->addWidget(_cancelButton);
    buttonRow->addWidget(_saveButton);
    layout->addLayout(buttonRow);

    connect(_integrationPopUp, &QComboBox::activated, this, [this](int) { changeIntegration(); });
    connect(_saveButton, &QPushButton::clicked, this, [this] { save(); });
    connect(_cancelButton, &QPushButton::clicked, this, [this] { cancel(); });
}

ZVIntegrationSetupViewController::~ZVIntegrationSetupViewController() = default;

void ZVIntegrationSetupViewController::popoverWillShow() {
    if (!_setupView) addSetupView();
    changeIntegration();
}

void ZVIntegrationSetupViewController::changeIntegration() {
    const std::string title = _integrationPopUp->titleOfSelectedItem().toStdString();
    std::optional<ZVIntegrationClass> chosen;
    for (auto& integrationClass : ZVIntegrationCenter::shared().availableIntegrationClasses()) {
        if (integrationClass.integrationName == title) {
            chosen = std::move(integrationClass);
            break;
        }
    }
    if (!chosen) return;
    // Same kind: what the user has typed stays.
    if (_currentIntegration && _currentIntegration->className() == chosen->className) return;

    const int heightBefore = _subview->sizeHint().height();
    releaseSetupView();
    _currentIntegration = chosen->makeNew();
    addSetupView();
    resizePopover(heightBefore);
}

void ZVIntegrationSetupViewController::save() {
    resignFirstResponder();
    _progressIndicator->show();
    auto& center = ZVIntegrationCenter::shared();
    {
        std::lock_guard<std::recursive_mutex> guard(center.lock());
        center.addIntegration(_currentIntegration);
    }
    releaseSetupView();
    _progressIndicator->hide();
    closePopover();
}

void ZVIntegrationSetupViewController::cancel() { closePopover(); }

void ZVIntegrationSetupViewController::popoverWillClose() { releaseSetupView(); }

void ZVIntegrationSetupViewController::addSetupView() {
    _setupView = ZVIntegrationSetupViewFactory::makeSetupView(_currentIntegration);
    _skippedProjectsWarningTextField->setVisible(_currentIntegration->leavesOutProjectsWithoutOpenTasks());
    _subview->layout()->addWidget(_setupView);
    // Tab runs through the new fields in the order in which they were built.
    QWidget* previous = _integrationPopUp;
    for (QWidget* field : _setupView->findChildren<QWidget*>()) {
        if (!(field->focusPolicy() & Qt::TabFocus)) continue;
        QWidget::setTabOrder(previous, field);
        previous = field;
    }
    QWidget::setTabOrder(previous, _cancelButton);
}

void ZVIntegrationSetupViewController::releaseSetupView() {
    if (!_setupView) return;
    _subview->layout()->removeWidget(_setupView);
    delete _setupView;
    _setupView = nullptr;
}

void ZVIntegrationSetupViewController::resignFirstResponder() {
    if (QWidget* focused = QApplication::focusWidget(); focused && isAncestorOf(focused)) focused->clearFocus();
}

void ZVIntegrationSetupViewController::closePopover() {
    if (_popover) _popover->closePopover();
}

void ZVIntegrationSetupViewController::resizePopover(int heightBefore) {
    if (!_popover) return;
    const int difference = _subview->sizeHint().height() - heightBefore;
    const QSize size = _popover->contentSize();
    _popover->setContentSize(QSize(size.width(), size.height() + difference));
}
