#pragma once

#include <QStyledItemDelegate>
#include <memory>

#include "core/integrations/helper/ZVIntegrationProject.h"

Q_DECLARE_METATYPE(std::shared_ptr<ZVIntegrationProject>)
// A shared pointer may be moved by copying its bytes, so that a result
// lives inside its QVariant instead of in a heap block of its own.
Q_DECLARE_TYPEINFO(std::shared_ptr<ZVIntegrationProject>, Q_RELOCATABLE_TYPE);

/// Draws one quick-search result in two lines: the project's name in bold,
/// and under it the full path in a dimmed colour; both turn white when the
/// row is selected. Every row is 32 points high.
class ZVProjectSearchResultDelegate final : public QStyledItemDelegate {
    Q_OBJECT
public:
    static constexpr int rowHeight = 32;

    using QStyledItemDelegate::QStyledItemDelegate;

    static QVariant resultValue(const std::shared_ptr<ZVIntegrationProject>& project);
    static std::shared_ptr<ZVIntegrationProject> projectOfResult(const QVariant& result);
    /// The fonts of the two lines.
    static QFont nameFont(const QFont& base);
    static QFont pathFont(const QFont& base);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};
