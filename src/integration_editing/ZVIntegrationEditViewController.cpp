#include "integration_editing/ZVIntegrationEditViewController.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui_elements/ZVQtLocalization.h"

#include "core/integrations/ZVIntegration.h"
#include "integration_editing/ZVIntegrationListPopUpButton.h"

void ZVIntegrationEditViewController::save() {
    resignFirstResponder();
    releaseSetupView();
    closePopover();
}

void ZVIntegrationEditViewController::popoverWillShow() {
    // The layout moves the warning up into the place that the pull-down leaves.
    _integrationPopUp->hide();
    _integrationPopUpTextField->hide();
    _saveButton->hide();
    _cancelButton->hide();
    if (!_setupView) addSetupView();
    if (!_nameField) {
        auto* row = new QWidget(_subview);
        auto* form = new QFormLayout(row);
        form->setContentsMargins(0, 0, 0, 0);
        form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
        _nameAtStart = _currentIntegration->name();
        _nameField = new QLineEdit(QString::fromStdString(_nameAtStart), row);
        _nameField->setObjectName(QStringLiteral("nameField"));
        form->addRow(ZVLocalizedQString("Name"), _nameField);
        connect(_nameField, &QLineEdit::textChanged, this, [this](const QString& text) {
            // An account is never left without a name.
            if (!text.trimmed().isEmpty()) _currentIntegration->setName(text.trimmed().toStdString());
        });
        static_cast<QVBoxLayout*>(_subview->layout())->insertWidget(0, row);
    }
    adjustSize();
    if (_popover) _popover->setContentSize(_popover->sizeHint());
}

void ZVIntegrationEditViewController::popoverWillClose() {
    releaseSetupView();
    if (_currentIntegration->name() != _nameAtStart) _currentIntegration->save();
    _currentIntegration->synchronize();
}
