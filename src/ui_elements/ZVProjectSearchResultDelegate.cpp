#include "ui_elements/ZVProjectSearchResultDelegate.h"

#include <QApplication>
#include <QPainter>

QVariant ZVProjectSearchResultDelegate::resultValue(const std::shared_ptr<ZVIntegrationProject>& project) {
    return QVariant::fromValue(project);
}

std::shared_ptr<ZVIntegrationProject> ZVProjectSearchResultDelegate::projectOfResult(const QVariant& result) {
    return result.value<std::shared_ptr<ZVIntegrationProject>>();
}

QFont ZVProjectSearchResultDelegate::nameFont(const QFont& base) {
    QFont font = base;
    font.setBold(true);
    font.setPointSizeF(base.pointSizeF() * 0.9);
    return font;
}

QFont ZVProjectSearchResultDelegate::pathFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

void ZVProjectSearchResultDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                          const QModelIndex& index) const {
    const auto project = projectOfResult(index.data(Qt::UserRole));
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);
    if (!project) return;

    const bool selected = option.state & QStyle::State_Selected;
    const QColor text = option.palette.color(QPalette::Text);
    QColor nameColor = selected ? QColor(Qt::white) : text;
    QColor pathColor = selected ? QColor(Qt::white) : text;
    if (!selected) pathColor.setAlphaF(0.6f);

    painter->save();
    const QRect row = option.rect;
    const QRect nameRect(row.left() + 5, row.top() + 1, row.width() - 10, 16);
    const QRect pathRect(row.left() + 5, row.top() + 16, row.width() - 10, 15);
    painter->setFont(nameFont(option.font));
    painter->setPen(nameColor);
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter,
                      painter->fontMetrics().elidedText(QString::fromStdString(project->name()), Qt::ElideRight,
                                                        nameRect.width()));
    painter->setFont(pathFont(option.font));
    painter->setPen(pathColor);
    painter->drawText(pathRect, Qt::AlignLeft | Qt::AlignVCenter,
                      painter->fontMetrics().elidedText(QString::fromStdString(project->fullProjectPath()),
                                                        Qt::ElideMiddle, pathRect.width()));
    painter->restore();
}

QSize ZVProjectSearchResultDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    return QSize(QStyledItemDelegate::sizeHint(option, index).width(), rowHeight);
}
