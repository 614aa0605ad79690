#include "integration_editing/ZVPopover.h"

#include <QKeyEvent>

#include <QApplication>
#include <QMouseEvent>
#include <QPushButton>
#include <QVBoxLayout>

ZVPopover::ZVPopover(QWidget* parent) : QFrame(parent, Qt::Tool | Qt::FramelessWindowHint) {
    setObjectName(QStringLiteral("popover"));
    setFrameShape(QFrame::StyledPanel);
    _layout = new QVBoxLayout(this);
    _layout->setContentsMargins(12, 12, 12, 12);
    // The panel is as large as its content asks, in every language: a
    // wrapped hint gets the lines it needs.
    _layout->setSizeConstraint(QLayout::SetFixedSize);
    qApp->installEventFilter(this);
}

ZVPopover::~ZVPopover() {
    qApp->removeEventFilter(this);
    delete _content;
}

ZVPopoverDelegate* ZVPopover::delegate() const { return dynamic_cast<ZVPopoverDelegate*>(_content.data()); }

void ZVPopover::setContentViewController(QWidget* content) {
    if (_content == content) return;
    if (_content) {
        _layout->removeWidget(_content);
        _content->hide();
        _content->deleteLater();
    }
    _content = content;
    if (content) {
        content->setParent(this);
        _layout->addWidget(content);
        content->show();
    }
}

void ZVPopover::setContentSize(const QSize&) {
    // The layout fixes the size to what the content needs.
    adjustSize();
}

void ZVPopover::showRelativeTo(QWidget* anchor) {
    if (auto* content = delegate()) content->popoverWillShow();
    adjustSize();
    if (anchor) move(anchor->mapToGlobal(QPoint(0, anchor->height())));
    _isShown = true;
    show();
    raise();
    activateWindow();
}

void ZVPopover::closePopover() {
    if (!_isShown) return;
    _isShown = false;
    if (auto* content = delegate()) content->popoverWillClose();
    hide();
    setContentViewController(nullptr);
    Q_EMIT didClose();
}

void ZVPopover::clickedOutside() {
    if (!_isShown) return;
    auto* content = delegate();
    if (!content || content->popoverShouldClose()) closePopover();
}

bool ZVPopover::contains(const QWidget* widget) const {
    // Pull-down lists are windows of their own whose parent chain leads back here.
    for (const QWidget* w = widget; w; w = w->parentWidget())
        if (w == this) return true;
    return false;
}

void ZVPopover::keyPressEvent(QKeyEvent* event) {
    // Escape closes as a click outside does.
    if (event->key() == Qt::Key_Escape && _isShown) {
        clickedOutside();
        event->accept();
        return;
    }
    // Return presses the default button, as in a dialog.
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && _isShown) {
        for (QPushButton* button : findChildren<QPushButton*>()) {
            if (button->isDefault() && button->isVisible() && button->isEnabled()) {
                button->click();
                event->accept();
                return;
            }
        }
    }
    QFrame::keyPressEvent(event);
}

bool ZVPopover::eventFilter(QObject* watched, QEvent* event) {
    // Escape from any field of the panel, also one that would keep the key.
    if (_isShown && event->type() == QEvent::ShortcutOverride) {
        auto* widget = qobject_cast<QWidget*>(watched);
        if (static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape && widget && widget->window() == this &&
            !QApplication::activePopupWidget()) {
            clickedOutside();
            return true;
        }
    }
    if (_isShown && event->type() == QEvent::MouseButtonPress) {
        auto* widget = qobject_cast<QWidget*>(watched);
        // An alert raised over the panel (a refused authorization, say) is
        // answered without closing the panel and losing what was typed.
        const bool inDialog = widget && widget->window()->windowType() == Qt::Dialog;
        if (widget && !contains(widget) && !inDialog) clickedOutside();
    }
    return QFrame::eventFilter(watched, event);
}
