#include "ui_elements/ZVSearchFieldWithResults.h"

#include <QAbstractItemDelegate>
#include <QAbstractListModel>
#include <QKeyEvent>
#include <QListView>
#include <QScreen>
#include <algorithm>

/// The results as rows of the list; each row's values are asked of the
/// field's delegate only when the list shows or reads that row.
class ZVSearchResultsModel final : public QAbstractListModel {
public:
    explicit ZVSearchResultsModel(ZVSearchFieldWithResults& field) : QAbstractListModel(&field), _field(field) {}

    void setResults(const QVariantList& results) {
        beginResetModel();
        _results = results;
        endResetModel();
    }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override {
        return parent.isValid() ? 0 : static_cast<int>(_results.size());
    }

    QVariant data(const QModelIndex& index, int role) const override {
        if (!index.isValid() || index.row() >= _results.size()) return {};
        const QVariant& result = _results.at(index.row());
        auto* delegate = _field.resultsDelegate();
        switch (role) {
            case Qt::UserRole: return result;
            case Qt::SizeHintRole:
                return QSize(_field.searchResultsWidth(), delegate ? delegate->searchFieldHeightOfRow(_field, result) : 0);
            case Qt::AccessibleTextRole:
                return delegate ? delegate->searchFieldAccessibilityValue(_field, result) : QString();
            default: return {};
        }
    }

private:
    ZVSearchFieldWithResults& _field;
    QVariantList _results;
};

ZVSearchFieldWithResults::ZVSearchFieldWithResults(QWidget* parent) : QLineEdit(parent) {
    setClearButtonEnabled(true);
    _model = new ZVSearchResultsModel(*this);
    _resultsList = new QListView();
    _resultsList->setModel(_model);
    _resultsList->setObjectName(QStringLiteral("searchResults"));
    _resultsList->setFocusPolicy(Qt::NoFocus);
    _resultsList->setUniformItemSizes(true);
    _resultsList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    _resultsList->hide();
    connect(this, &QLineEdit::textChanged, this, &ZVSearchFieldWithResults::_queryChanged);
    connect(_resultsList, &QListView::clicked, this, [this](const QModelIndex& index) { chooseResult(index.row()); });
}

ZVSearchFieldWithResults::~ZVSearchFieldWithResults() {
    // The list belongs to whatever layout the owner put it in; unplaced, it is ours.
    if (_resultsList && !_resultsList->parent()) delete _resultsList.data();
}

void ZVSearchFieldWithResults::setResultsDelegate(ZVSearchFieldWithResultsDelegate* delegate) {
    _delegate = delegate;
    if (_delegate) _resultsList->setItemDelegate(_delegate->searchFieldItemDelegate(*this));
}

void ZVSearchFieldWithResults::setSearchResultsWidth(int width) {
    _searchResultsWidth = width;
    // The list sits in its window's layout: a long path widens the window up
    // to a third of the screen, and the rows elide the rest.
    const QScreen* display = screen();
    _resultsList->setMinimumWidth(display ? std::min(width, display->availableGeometry().width() / 3) : width);
}

void ZVSearchFieldWithResults::_queryChanged(const QString& query) {
    const unsigned generation = ++_generation;
    if (!_delegate) return;
    if (query.isEmpty()) {
        _delegate->searchFieldDidCancelCurrentSearch(*this);
        closeResults();
        return;
    }
    _delegate->searchFieldDidChangeQuery(*this, query, [this, generation](const QVariantList& results) {
        _showResults(results, generation);
    });
}

void ZVSearchFieldWithResults::_showResults(const QVariantList& results, unsigned generation) {
    // An answer to a query that has been typed over is dropped.
    if (generation != _generation) return;
    _results = results;
    _model->setResults(results);
    if (results.isEmpty()) {
        _resultsList->hide();
        return;
    }
    // Tall enough for the first eight rows.
    int height = 0;
    const qsizetype shown = std::min<qsizetype>(results.size(), 8);
    for (qsizetype row = 0; row < shown; ++row) height += _delegate->searchFieldHeightOfRow(*this, results.at(row));
    _resultsList->setFixedHeight(height + 2 * _resultsList->frameWidth());
    _resultsList->setCurrentIndex(_model->index(0));
    _resultsList->show();
}

void ZVSearchFieldWithResults::chooseResult(int row) {
    if (row < 0 || row >= _results.size()) return;
    const QVariant result = _results.at(row);
    closeResults();
    if (_delegate) _delegate->searchFieldDidSelectResult(*this, result);
}

void ZVSearchFieldWithResults::closeResults() {
    _resultsList->hide();
    _model->setResults({});
    _results.clear();
}

void ZVSearchFieldWithResults::keyPressEvent(QKeyEvent* event) {
    const int rows = _model->rowCount();
    const bool open = _resultsList->isVisible() && rows > 0;
    switch (event->key()) {
        case Qt::Key_Down:
        case Qt::Key_Up:
            if (open) {
                const int step = event->key() == Qt::Key_Down ? 1 : -1;
                const int row = std::clamp(_resultsList->currentIndex().row() + step, 0, rows - 1);
                _resultsList->setCurrentIndex(_model->index(row));
                return;
            }
            break;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (open) {
                chooseResult(_resultsList->currentIndex().row());
                return;
            }
            break;
        case Qt::Key_Escape:
            if (open) {
                closeResults();
                return;
            }
            break;
        default: break;
    }
    QLineEdit::keyPressEvent(event);
}
