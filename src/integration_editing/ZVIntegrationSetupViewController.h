#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "integration_editing/ZVPopover.h"

class QLabel;
class QProgressBar;
class QPushButton;
class ZVIntegration;
class ZVIntegrationListPopUpButton;
class ZVIntegrationSetupView;

/// The content of the popover in which a new account is set up: a
/// pull-down of the service kinds, the chosen account's setup view, and
/// "Save" and "Cancel". Choosing another kind replaces the account with a
/// fresh one, so that what was typed is dropped; "Save" adds the account to
/// the centre without testing its credentials. Escape or a click outside
/// leaves it as "Cancel" does.
class ZVIntegrationSetupViewController : public QWidget, public ZVPopoverDelegate {
    Q_OBJECT
public:
    ZVIntegrationSetupViewController(std::shared_ptr<ZVIntegration> integration, ZVPopover* popover,
                                     QWidget* parent = nullptr);
    ~ZVIntegrationSetupViewController() override;

    const std::shared_ptr<ZVIntegration>& currentIntegration() const { return _currentIntegration; }

    /// The action of the pull-down.
    virtual void changeIntegration();
    virtual void save();
    void cancel();

    void popoverWillShow() override;
    bool popoverShouldClose() override { return true; }
    void popoverWillClose() override;

    ZVIntegrationListPopUpButton* integrationPopUp() const { return _integrationPopUp; }
    QPushButton* saveButton() const { return _saveButton; }
    QPushButton* cancelButton() const { return _cancelButton; }
    /// The account's setup view while it is shown.
    ZVIntegrationSetupView* setupView() const { return _setupView; }

protected:
    /// Builds the account's setup view into the subview.
    void addSetupView();
    /// Takes the setup view out of the subview and drops it.
    void releaseSetupView();
    /// Makes the field being edited give up its text.
    void resignFirstResponder();
    void closePopover();
    /// Fits the popover's height to the content after a change of `heightBefore`.
    void resizePopover(int heightBefore);

    std::shared_ptr<ZVIntegration> _currentIntegration;
    QPointer<ZVPopover> _popover;
    ZVIntegrationListPopUpButton* _integrationPopUp = nullptr;
    QLabel* _integrationPopUpTextField = nullptr;
    QWidget* _subview = nullptr;
    QLabel* _skippedProjectsWarningTextField = nullptr;
    QPushButton* _saveButton = nullptr;
    QPushButton* _cancelButton = nullptr;
    QProgressBar* _progressIndicator = nullptr;
    ZVIntegrationSetupView* _setupView = nullptr;
};
