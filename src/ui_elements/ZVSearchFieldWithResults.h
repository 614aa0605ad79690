#pragma once

#include <QLineEdit>
#include <QListView>
#include <QPointer>
#include <QVariant>
#include <functional>

class QAbstractItemDelegate;
class ZVSearchFieldWithResults;
class ZVSearchResultsModel;

/// What a search field asks of its owner: results for a query, and what to
/// do with the chosen one. Results are opaque values to the field.
class ZVSearchFieldWithResultsDelegate {
public:
    virtual ~ZVSearchFieldWithResultsDelegate() = default;
    virtual void searchFieldDidCancelCurrentSearch(ZVSearchFieldWithResults& field) = 0;
    /// Answers through the completion handler, now or later.
    virtual void searchFieldDidChangeQuery(ZVSearchFieldWithResults& field, const QString& query,
                                           const std::function<void(const QVariantList&)>& completionHandler) = 0;
    virtual void searchFieldDidSelectResult(ZVSearchFieldWithResults& field, const QVariant& result) = 0;
    virtual QString searchFieldAccessibilityValue(ZVSearchFieldWithResults& field, const QVariant& result) = 0;
    virtual int searchFieldHeightOfRow(ZVSearchFieldWithResults& field, const QVariant& result) = 0;
    /// Draws the rows; the result is in Qt::UserRole of each index.
    virtual QAbstractItemDelegate* searchFieldItemDelegate(ZVSearchFieldWithResults& field) = 0;
};

/// A search field with a list of results under it. The list opens when a
/// query has results and closes when the field is emptied, on Escape or on
/// a choice. Up and Down move in the list while the field keeps the focus;
/// Return or a click chooses. The list lives in the layout the owner gives
/// it, so that it opens inside popups as well as in windows.
class ZVSearchFieldWithResults final : public QLineEdit {
    Q_OBJECT
public:
    explicit ZVSearchFieldWithResults(QWidget* parent = nullptr);
    ~ZVSearchFieldWithResults() override;

    void setResultsDelegate(ZVSearchFieldWithResultsDelegate* delegate);
    ZVSearchFieldWithResultsDelegate* resultsDelegate() const { return _delegate; }
    /// The list to place under the field. Its rows are made as they are
    /// shown, so that a query with a hundred thousand results opens at once.
    QListView* resultsList() const { return _resultsList.data(); }

    int searchResultsWidth() const { return _searchResultsWidth; }
    void setSearchResultsWidth(int width);

    QVariantList results() const { return _results; }
    /// Chooses the result of that row, as a click would.
    void chooseResult(int row);
    void closeResults();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void _queryChanged(const QString& query);
    void _showResults(const QVariantList& results, unsigned generation);

    ZVSearchFieldWithResultsDelegate* _delegate = nullptr;
    QPointer<QListView> _resultsList;
    ZVSearchResultsModel* _model = nullptr;
    QVariantList _results;
    int _searchResultsWidth = 0;
    unsigned _generation = 0;
};
