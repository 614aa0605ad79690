#include "ui_elements/ZVMenuRenderer.h"

#include <QAction>
#include <QMenu>

#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVQtLocalization.h"

namespace {

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
    if (!model) return;
    for (const auto& item : model->items) addItem(menu, item);
}

void ZVMenuRenderer::rebuildOnOpening(QMenu& menu, MenuProvider provider) {
    QObject::connect(&menu, &QMenu::aboutToShow, &menu, [&menu, provider = std::move(provider)] {
        ZVMenuRenderer::fill(menu, provider());
    });
}
