#include "ui_elements/ZVMenuRenderer.h"

#include <QAction>
#include <QApplication>
#include <QHash>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleOptionMenuItem>

#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVQtLocalization.h"

namespace {

const char* const secondaryStartProperty = "zvSecondaryTitleStart";

/// Draws the part of a menu title from the action's secondary start on
/// (a leaf's time) half-transparent, so it reads as 50% grey on any
/// palette, highlighted or not. The style's own drawing is used twice under
/// two clips, which keeps margins, check marks and icons exactly where the
/// desktop's style puts them.
class ZVSecondaryTitleStyle : public QProxyStyle {
public:
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
        const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
        const auto* menu = qobject_cast<const QMenu*>(widget);
        const QAction* action = element == CE_MenuItem && item && menu && option->direction == Qt::LeftToRight
                                    ? menu->actionAt(item->rect.center())
                                    : nullptr;
        bool hasStart = false;
        const int start = action ? action->property(secondaryStartProperty).toInt(&hasStart) : 0;
        if (!hasStart || start <= 0 || start >= item->text.size()) {
            QProxyStyle::drawControl(element, option, painter, widget);
            return;
        }
        const int split = primaryEnd(*item, start, widget);
        const QRect& rect = item->rect;
        painter->save();
        painter->setClipRect(QRect(rect.left(), rect.top(), split - rect.left(), rect.height()), Qt::IntersectClip);
        QProxyStyle::drawControl(element, option, painter, widget);
        painter->restore();

        QStyleOptionMenuItem dimmed(*item);
        for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
            for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText, QPalette::HighlightedText}) {
                QColor color = dimmed.palette.color(group, role);
                color.setAlphaF(color.alphaF() / 2);
                dimmed.palette.setColor(group, role, color);
            }
        painter->save();
        painter->setClipRect(QRect(split, rect.top(), rect.right() + 1 - split, rect.height()), Qt::IntersectClip);
        QProxyStyle::drawControl(element, &dimmed, painter, widget);
        painter->restore();
    }

private:
    /// Where the primary part's glyphs end: the style draws the item with
    /// and without that text off screen, and the last column that differs
    /// is the end. Remembered per text, size and state, as menus repaint
    /// the same items on every hover.
    int primaryEnd(const QStyleOptionMenuItem& item, int start, const QWidget* widget) const {
        const QString primary = item.text.left(start);
        const QString key = primary + QChar(0) + QString::number(item.rect.width()) + QChar(0) +
                            QString::number(item.rect.height()) + QChar(0) + QString::number(int(item.state)) +
                            QChar(0) + QString::number(item.maxIconWidth);
        if (const auto found = _ends.constFind(key); found != _ends.cend()) return item.rect.left() + *found;
        const auto render = [&](const QString& text) {
            QImage image(item.rect.size(), QImage::Format_ARGB32_Premultiplied);
            image.fill(Qt::transparent);
            QPainter painter(&image);
            QStyleOptionMenuItem copy(item);
            copy.rect = QRect(QPoint(0, 0), item.rect.size());
            copy.text = text;
            QProxyStyle::drawControl(CE_MenuItem, &copy, &painter, widget);
            return image;
        };
        const QImage with = render(primary);
        const QImage without = render(QString());
        int end = 0;
        for (int x = with.width() - 1; x >= 0 && end == 0; --x)
            for (int y = 0; y < with.height(); ++y)
                if (with.pixel(x, y) != without.pixel(x, y)) {
                    end = x + 1;
                    break;
                }
        if (_ends.size() > 1024) _ends.clear();
        _ends.insert(key, end);
        return item.rect.left() + end;
    }

    mutable QHash<QString, int> _ends;
};

QStyle* secondaryTitleStyle() {
    static QPointer<ZVSecondaryTitleStyle> style;
    if (!style) {
        style = new ZVSecondaryTitleStyle;
        style->setParent(qApp);
    }
    return style;
}

void addItem(QMenu& menu, const std::shared_ptr<ZVMenuItem>& item) {
    if (item->isSeparator) {
        menu.addSeparator();
        return;
    }
    if (item->submenu) {
        auto* submenu = new QMenu(ZVPlainTitle(item->title), &menu);
        submenu->setToolTipsVisible(true);
        // Filled once, at the first opening: the parent menu is itself
        // rebuilt at each opening, which renews this one too.
        ZVSubmenu model = item->submenu;
        QObject::connect(submenu, &QMenu::aboutToShow, submenu, [submenu, model] {
            if (submenu->property("zvFilled").toBool()) return;
            submenu->setProperty("zvFilled", true);
            ZVMenuRenderer::fill(*submenu, model.menu());
        });
        QAction* action = menu.addMenu(submenu);
        action->setEnabled(item->enabled);
        if (!item->toolTip.empty()) action->setToolTip(QString::fromStdString(item->toolTip));
        return;
    }
    QAction* action = menu.addAction(ZVPlainTitle(item->title));
    if (item->secondaryTitleStart < item->title.size())
        action->setProperty(secondaryStartProperty,
                            ZVPlainTitle(item->title.substr(0, item->secondaryTitleStart)).size());
    action->setEnabled(item->isEnabled());
    if (item->state == ZVMenuItem::State::on) {
        action->setCheckable(true);
        action->setChecked(true);
    }
    if (!item->toolTip.empty()) action->setToolTip(QString::fromStdString(item->toolTip));
    action->setData(QString::fromStdString(item->action));
    QObject::connect(action, &QAction::triggered, action, [item] { item->perform(); });
}

}  // namespace

void ZVMenuRenderer::fill(QMenu& menu, const std::shared_ptr<ZVMenu>& model) {
    for (QAction* action : menu.actions()) {
        menu.removeAction(action);
        if (action->parent() == &menu) action->deleteLater();
    }
    for (QMenu* child : menu.findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) child->deleteLater();
    menu.setToolTipsVisible(true);
    if (menu.style() != secondaryTitleStyle()) menu.setStyle(secondaryTitleStyle());
    if (!model) return;
    for (const auto& item : model->items) addItem(menu, item);
}

void ZVMenuRenderer::rebuildOnOpening(QMenu& menu, MenuProvider provider) {
    QObject::connect(&menu, &QMenu::aboutToShow, &menu, [&menu, provider = std::move(provider)] {
        ZVMenuRenderer::fill(menu, provider());
    });
}
