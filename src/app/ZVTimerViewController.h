#pragma once

#include <QWidget>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVSearchFieldWithResults.h"

class QMenu;
class QToolButton;
class ZVApplicationCommands;
class ZVIntegrationProject;
class ZVProjectSearchResultDelegate;

/// The timer panel: the quick search over all projects, the recent
/// projects, the action menu and the gear menu. The project chosen in the
/// search or among the recents becomes the current project.
class ZVTimerViewController final : public QWidget,
                                    public ZVSearchFieldWithResultsDelegate,
                                    public ZVIntegrationProjectMenuItemTarget {
    Q_OBJECT
public:
    explicit ZVTimerViewController(ZVApplicationCommands& commands, QWidget* parent = nullptr);
    ~ZVTimerViewController() override;

    ZVSearchFieldWithResults* searchField() const { return _searchField; }
    QToolButton* actionPopUpButton() const { return _actionPopUpButton; }
    QToolButton* recentProjectsPopUpButton() const { return _recentProjectsPopUpButton; }
    QToolButton* gearButton() const { return _gearButton; }

    /// Gives the search field the keyboard focus when the panel is on screen.
    void makeSearchFieldFirstResponder();
    /// Reloads the recents and puts the focus into the search field.
    void viewWillAppear();

    // ZVIntegrationProjectMenuItemTarget
    void selectProject(const ZVMenuItem& item) override;

    // ZVSearchFieldWithResultsDelegate
    void searchFieldDidCancelCurrentSearch(ZVSearchFieldWithResults& field) override;
    void searchFieldDidChangeQuery(ZVSearchFieldWithResults& field, const QString& query,
                                   const std::function<void(const QVariantList&)>& completionHandler) override;
    void searchFieldDidSelectResult(ZVSearchFieldWithResults& field, const QVariant& result) override;
    QString searchFieldAccessibilityValue(ZVSearchFieldWithResults& field, const QVariant& result) override;
    int searchFieldHeightOfRow(ZVSearchFieldWithResults& field, const QVariant& result) override;
    QAbstractItemDelegate* searchFieldItemDelegate(ZVSearchFieldWithResults& field) override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    /// A project was chosen here; the popup that holds the panel closes.
    void projectChosen();

private:
    /// While the projects are read the field says so and takes no query.
    void _showLoading(bool loading);

    ZVApplicationCommands& _commands;
    ZVNotificationCenter::Token _loadedObservation{};
    ZVSearchFieldWithResults* _searchField = nullptr;
    QToolButton* _recentProjectsPopUpButton = nullptr;
    QToolButton* _actionPopUpButton = nullptr;
    QToolButton* _gearButton = nullptr;
    QMenu* _gearMenu = nullptr;
    ZVProjectSearchResultDelegate* _resultDelegate = nullptr;
    // The measured width of each result as the list draws it, kept while
    // no tree changes: a keystroke measures only results it has not met.
    std::unordered_map<const ZVIntegrationProject*, int> _resultWidths;
    std::uint64_t _resultWidthsGeneration = 0;
};
