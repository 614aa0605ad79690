#include "integration_editing/ZVIntegrationEditViewController.h"

#include <QLabel>
#include <QPushButton>

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
    adjustSize();
    if (_popover) _popover->setContentSize(_popover->sizeHint());
}

void ZVIntegrationEditViewController::popoverWillClose() {
    releaseSetupView();
    _currentIntegration->synchronize();
}
