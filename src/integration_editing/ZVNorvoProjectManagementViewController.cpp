#include "integration_editing/ZVNorvoProjectManagementViewController.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QDataStream>
#include <algorithm>
#include <QHBoxLayout>
#include <QIODevice>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QPushButton>
#include <QVBoxLayout>

#include "ZVLocalization.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/notifications/ZVNotificationCenter.h"

ZVNorvoProjectListModel::ZVNorvoProjectListModel(std::shared_ptr<ZVNorvoIntegration> integration, QObject* parent)
    : QAbstractListModel(parent), _integration(std::move(integration)) {}

int ZVNorvoProjectListModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid()) return 0;
    return static_cast<int>(_integration->availableProjects().size());
}

QVariant ZVNorvoProjectListModel::data(const QModelIndex& index, int role) const {
    if (role != Qt::DisplayRole && role != Qt::EditRole) return {};
    const auto projects = _integration->availableProjects();
    if (!index.isValid() || index.row() < 0 || static_cast<size_t>(index.row()) >= projects.size()) return {};
    return QString::fromStdString(projects[static_cast<size_t>(index.row())]->name());
}

bool ZVNorvoProjectListModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (role != Qt::EditRole || value.typeId() != QMetaType::QString) return false;
    const auto projects = _integration->availableProjects();
    if (!index.isValid() || index.row() < 0 || static_cast<size_t>(index.row()) >= projects.size()) return false;
    projects[static_cast<size_t>(index.row())]->setName(value.toString().toStdString());
    // Saved at once: a rename must survive a quit with the panel still open.
    _integration->save();
    Q_EMIT dataChanged(index, index, {Qt::DisplayRole, Qt::EditRole});
    ZVNotificationCenter::shared().post(ZVIntegrationAvailableProjectsDidChange,
                                        std::static_pointer_cast<ZVIntegration>(_integration));
    return true;
}

Qt::ItemFlags ZVNorvoProjectListModel::flags(const QModelIndex& index) const {
    // Drops go between rows only, never onto one.
    if (!index.isValid()) return Qt::ItemIsDropEnabled;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable | Qt::ItemIsDragEnabled;
}

QStringList ZVNorvoProjectListModel::mimeTypes() const { return {QString::fromLatin1(pasteboardType)}; }

QMimeData* ZVNorvoProjectListModel::mimeData(const QModelIndexList& indexes) const {
    QList<int> rows;
    for (const auto& index : indexes)
        if (index.isValid()) rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    QByteArray archive;
    QDataStream stream(&archive, QIODevice::WriteOnly);
    stream << rows;
    auto* data = new QMimeData();
    data->setData(QString::fromLatin1(pasteboardType), archive);
    return data;
}

bool ZVNorvoProjectListModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int, int,
                                              const QModelIndex& parent) const {
    return action == Qt::MoveAction && !parent.isValid() && data &&
           data->hasFormat(QString::fromLatin1(pasteboardType));
}

bool ZVNorvoProjectListModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                           const QModelIndex& parent) {
    if (!canDropMimeData(data, action, row, column, parent)) return false;
    QList<int> rows;
    QDataStream stream(data->data(QString::fromLatin1(pasteboardType)));
    stream >> rows;
    const int count = rowCount();
    if (rows.isEmpty() || rows.first() < 0 || rows.first() >= count) return false;
    const int from = rows.first();
    // `row` is the gap the drop indicator shows; -1 is below the last row.
    const int gap = row < 0 || row > count ? count : row;
    // Taking the row out first shifts every gap below it up by one.
    const int to = gap > from ? gap - 1 : gap;
    if (to != from) {
        beginResetModel();
        _integration->moveProjectAtIndex(static_cast<size_t>(from), static_cast<size_t>(to));
        endResetModel();
        _integration->save();
        ZVNotificationCenter::shared().post(ZVIntegrationAvailableProjectsDidChange,
                                        std::static_pointer_cast<ZVIntegration>(_integration));
    }
    // The move is done here; the view must not remove the source row itself.
    return false;
}

void ZVNorvoProjectListModel::noteNumberOfRowsChanged() {
    beginResetModel();
    endResetModel();
}

ZVNorvoProjectManagementViewController::ZVNorvoProjectManagementViewController(
    std::shared_ptr<ZVNorvoIntegration> integration, QWidget* parent)
    : QWidget(parent), _integration(std::move(integration)) {
    setObjectName(QStringLiteral("norvoProjectManagementViewController"));
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(ZVLocalizedQString("Projects"));
    title->setStyleSheet(QStringLiteral("font-weight: bold"));
    layout->addWidget(title);

    _contoller = new ZVNorvoProjectListModel(_integration, this);
    _tableView = new QListView();
    _tableView->setObjectName(QStringLiteral("projectTable"));
    _tableView->setModel(_contoller);
    _tableView->setSelectionMode(QAbstractItemView::SingleSelection);
    _tableView->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    _tableView->setDragDropMode(QAbstractItemView::InternalMove);
    _tableView->setDefaultDropAction(Qt::MoveAction);
    _tableView->setDropIndicatorShown(true);
    _tableView->setMinimumSize(260, 200);
    layout->addWidget(_tableView);

    auto* buttons = new QHBoxLayout();
    _addButton = new QPushButton(QStringLiteral("+"));
    _addButton->setObjectName(QStringLiteral("addProjectButton"));
    _addButton->setToolTip(ZVLocalizedQString("Add Project..."));
    _removeButton = new QPushButton(QStringLiteral("\u2212"));
    _removeButton->setObjectName(QStringLiteral("removeProjectButton"));
    _removeButton->setToolTip(ZVLocalizedQString("Remove"));
    for (auto* button : {_addButton, _removeButton}) {
        button->setFixedWidth(32);
        buttons->addWidget(button);
    }
    buttons->addStretch();
    _doneButton = new QPushButton(ZVLocalizedQString("Done"));
    _doneButton->setObjectName(QStringLiteral("doneButton"));
    _doneButton->setDefault(true);
    buttons->addWidget(_doneButton);
    layout->addLayout(buttons);
    connect(_doneButton, &QPushButton::clicked, this, [this] {
        for (QWidget* ancestor = parentWidget(); ancestor; ancestor = ancestor->parentWidget()) {
            if (auto* popover = qobject_cast<ZVPopover*>(ancestor)) {
                popover->closePopover();
                return;
            }
        }
    });
    connect(_addButton, &QPushButton::clicked, this, [this] { add(); });
    connect(_removeButton, &QPushButton::clicked, this, [this] { remove(); });
}

void ZVNorvoProjectManagementViewController::add() {
    _integration->addProjectAction();
    _contoller->noteNumberOfRowsChanged();
}

void ZVNorvoProjectManagementViewController::remove() {
    const auto selected = _tableView->selectionModel()->selectedRows();
    if (selected.isEmpty()) return;
    const auto projects = _integration->availableProjects();
    const auto row = static_cast<size_t>(selected.first().row());
    if (row >= projects.size()) return;
    _integration->removeProject(projects[row]);
    _contoller->noteNumberOfRowsChanged();
}

void ZVNorvoProjectManagementViewController::popoverWillShow() { _contoller->noteNumberOfRowsChanged(); }

void ZVNorvoProjectManagementViewController::popoverWillClose() {
    // Renames and moves are saved as they happen; one more save costs
    // little and leaves nothing behind.
    _integration->save();
}
