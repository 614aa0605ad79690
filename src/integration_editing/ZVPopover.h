#pragma once

#include <QFrame>
#include <QPointer>

class QVBoxLayout;

/// What the content of a popover is told as it opens and closes.
class ZVPopoverDelegate {
public:
    virtual ~ZVPopoverDelegate() = default;
    virtual void popoverWillShow() {}
    /// Asked when the user clicks outside the popover or presses Escape;
    /// closePopover() does not ask.
    virtual bool popoverShouldClose() { return true; }
    virtual void popoverWillClose() {}
};

/// The one shared panel of the main window that hosts account setup and
/// account editing, one content at a time. It is a frameless tool window
/// placed under the control it is shown for. Escape or a click elsewhere in
/// the application close it when the content agrees. The content lives as
/// long as the popover shows it.
class ZVPopover final : public QFrame {
    Q_OBJECT
public:
    explicit ZVPopover(QWidget* parent = nullptr);
    ~ZVPopover() override;

    /// Takes the content, which must also be its delegate; a former content
    /// is dropped.
    void setContentViewController(QWidget* content);
    QWidget* contentViewController() const { return _content; }

    QSize contentSize() const { return size(); }
    void setContentSize(const QSize& size);

    /// Tells the content that it will show, then opens under the anchor.
    void showRelativeTo(QWidget* anchor);
    bool isShown() const { return _isShown; }
    /// Closes whatever the content would answer.
    void closePopover();
    /// A click outside the popover: closes if the content agrees.
    void clickedOutside();

Q_SIGNALS:
    void didClose();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    ZVPopoverDelegate* delegate() const;
    bool contains(const QWidget* widget) const;

    QVBoxLayout* _layout = nullptr;
    QPointer<QWidget> _content;
    bool _isShown = false;
};
