#pragma once

#include <QDialog>
#include <memory>
#include <string>

#include "core/ui/ZVMenu.h"

class QLabel;
class QPushButton;
class ZVIntegrationProject;

/// An alert that asks for a project: its message and informative text, a
/// pull-down of all projects (the local ones, then one submenu per
/// account) and the buttons. Choosing a project makes it the selected one
/// and the alert stays up; the caller reads `selectedProject()` after the
/// alert ends.
class ZVProjectSelectionAlert final : public QDialog, public ZVIntegrationProjectMenuItemTarget {
    Q_OBJECT
public:
    explicit ZVProjectSelectionAlert(QWidget* parent = nullptr);

    void setMessageText(const QString& text);
    void setInformativeText(const QString& text);
    /// The buttons in reading order; the first is the default and accepts.
    void setButtons(const QStringList& titles);
    /// Runs the alert; the index of the button that ended it (-1 for Escape
    /// without a "Cancel").
    int runModal();

    std::shared_ptr<ZVIntegrationProject> selectedProject() const { return _selectedProject; }
    void selectProject(const std::shared_ptr<ZVIntegrationProject>& project);
    QPushButton* projectSelectionPopUpButton() const { return _projectSelectionPopUpButton; }

    // ZVIntegrationProjectMenuItemTarget
    void selectProject(const ZVMenuItem& item) override;

    /// The pull-down's projects: "Projects" with the local account's menu,
    /// then one item per account, or "No Accounts"; no utility items.
    static std::shared_ptr<ZVMenu> projectMenu(
        ZVIntegrationProjectMenuItemTarget* target,
        const std::shared_ptr<ZVIntegrationProject>& selected);

private:
    void _refill();

    QLabel* _message = nullptr;
    QLabel* _informative = nullptr;
    QPushButton* _projectSelectionPopUpButton = nullptr;
    QWidget* _buttonRow = nullptr;
    std::shared_ptr<ZVIntegrationProject> _selectedProject;
    int _answer = -1;
};
