#pragma once

#include <string>

#include "integration_editing/ZVIntegrationSetupViewController.h"

class QLineEdit;

/// The same popover for an existing account: no pull-down, no "Save" or
/// "Cancel", and the account's name to rename it by. Changes go into the
/// account as they are typed and stay; Escape or a
/// click outside closes the popover, and closing synchronizes the account
/// so that changed credentials or options take effect at once.
class ZVIntegrationEditViewController final : public ZVIntegrationSetupViewController {
    Q_OBJECT
public:
    using ZVIntegrationSetupViewController::ZVIntegrationSetupViewController;

    void changeIntegration() override {}
    void save() override;

    void popoverWillShow() override;
    bool popoverShouldClose() override { return true; }
    void popoverWillClose() override;

    QLineEdit* nameField() const { return _nameField; }

private:
    QLineEdit* _nameField = nullptr;
    std::string _nameAtStart;
};
