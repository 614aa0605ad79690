#pragma once

#include "integration_editing/ZVIntegrationSetupViewController.h"

/// The same popover for an existing account: no pull-down, no "Save" or
/// "Cancel". Changes go into the account as they are typed and stay; a
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
};
