#include "ui_elements/ZVSearchFieldWithResults.h"

#include <QAbstractItemDelegate>
#include <algorithm>
#include <QKeyEvent>
#include <QListWidget>

ZVSearchFieldWithResults::ZVSearchFieldWithResults(QWidget* parent) : QLineEdit(parent) {
    setClearButtonEnabled(true);
    _resultsList = new QListWidget();
    _resultsList->setObjectName(QStringLiteral("searchResults"));
    _resultsList->setFocusPolicy(Qt::NoFocus);
    _resultsList->setUniformItemSizes(true);
    _resultsList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    _resultsList->hide();
    connect(this, &QLineEdit::textChanged, this, &ZVSearchFieldWithResults::_queryChanged);
    connect(_resultsList, &QListWidget::itemClicked, this,
            [this](QListWidgetItem* item) { chooseResult(_resultsList->row(item)); });
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
    _resultsList->setMinimumWidth(width);
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
    _resultsList->clear();
    if (results.isEmpty()) {
        _resultsList->hide();
        return;
    }
    int height = 0;
    for (const QVariant& result : results) {
        auto* item = new QListWidgetItem(_resultsList);
        item->setData(Qt::UserRole, result);
        const int rowHeight = _delegate->searchFieldHeightOfRow(*this, result);
        item->setSizeHint(QSize(_searchResultsWidth, rowHeight));
        item->setData(Qt::AccessibleTextRole, _delegate->searchFieldAccessibilityValue(*this, result));
        if (height < 8 * rowHeight) height += rowHeight;
    }
    _resultsList->setFixedHeight(height + 2 * _resultsList->frameWidth());
    _resultsList->setCurrentRow(0);
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
    _resultsList->clear();
    _results.clear();
}

void ZVSearchFieldWithResults::keyPressEvent(QKeyEvent* event) {
    const bool open = _resultsList->isVisible() && _resultsList->count() > 0;
    switch (event->key()) {
        case Qt::Key_Down:
        case Qt::Key_Up:
            if (open) {
                const int step = event->key() == Qt::Key_Down ? 1 : -1;
                const int row = std::clamp(_resultsList->currentRow() + step, 0, _resultsList->count() - 1);
                _resultsList->setCurrentRow(row);
                return;
            }
            break;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (open) {
                chooseResult(_resultsList->currentRow());
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
