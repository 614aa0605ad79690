#pragma once

#include <QAbstractListModel>
#include <QWidget>
#include <memory>

#include "integration_editing/ZVPopover.h"

class QListView;
class QPushButton;
class ZVNorvoIntegration;

/// The rows of the local projects: one per project in list order, the
/// project's name as the value. Names are edited in place and rows are
/// reordered by dragging one of them.
class ZVNorvoProjectListModel final : public QAbstractListModel {
    Q_OBJECT
public:
    /// The private type under which a dragged row travels.
    static constexpr const char* pasteboardType = "kKDNorvoProjectManagementPasteboardDataType";

    explicit ZVNorvoProjectListModel(std::shared_ptr<ZVNorvoIntegration> integration, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    /// A new name for an existing row; anything but a string is refused.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDropActions() const override { return Qt::MoveAction; }
    Qt::DropActions supportedDragActions() const override { return Qt::MoveAction; }
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    /// Moves the first dragged row into the gap that `row` names (the end
    /// when the drop is below the last row).
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    /// The list changed outside the rows (add, remove): read it again.
    void noteNumberOfRowsChanged();

private:
    std::shared_ptr<ZVNorvoIntegration> _integration;
};

/// The panel of "Manage Projects...": the local projects in a list with
/// add and remove buttons and "Done". It lives in the main window's popover;
/// renames and moves are saved as they happen, and Escape closes it.
class ZVNorvoProjectManagementViewController final : public QWidget, public ZVPopoverDelegate {
    Q_OBJECT
public:
    explicit ZVNorvoProjectManagementViewController(std::shared_ptr<ZVNorvoIntegration> integration,
                                                    QWidget* parent = nullptr);

    /// "+": asks for a name the way "Add Project..." does.
    void add();
    /// "-": removes the selected project; without a selection nothing.
    void remove();

    QListView* tableView() const { return _tableView; }
    ZVNorvoProjectListModel* model() const { return _contoller; }

    void popoverWillShow() override;
    void popoverWillClose() override;

private:
    std::shared_ptr<ZVNorvoIntegration> _integration;
    QListView* _tableView = nullptr;
    ZVNorvoProjectListModel* _contoller = nullptr;
    QPushButton* _addButton = nullptr;
    QPushButton* _removeButton = nullptr;
    QPushButton* _doneButton = nullptr;
};
