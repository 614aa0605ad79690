#pragma once

#include <QPointer>
#include <QSize>
#include <QString>
#include <QWidget>
#include <functional>

class QButtonGroup;
class QPlainTextEdit;
class QPropertyAnimation;

/// The log as a till receipt: a narrow window of its own that slides out
/// beside the timer window and follows it, with the period switch, Clear
/// and Export over the receipt's text. It never takes the keyboard, so the
/// timer window keeps it. Its outer edge drags its width between 199 and
/// 500, kept under "KDReceiptDrawerWindowFrameSize"; opening it prints,
/// with a sound, unless "KDDontPlayPrintSoundWhenShowingLog" is on.
class ZVReceiptDrawerWindow final : public QWidget {
    Q_OBJECT
public:
    explicit ZVReceiptDrawerWindow(QWidget& parentWindow);
    ~ZVReceiptDrawerWindow() override;

    static constexpr int minimumDrawerWidth = 199;
    static constexpr int maximumDrawerWidth = 500;
    static constexpr int resizeStripWidth = 10;

    bool isShown() const { return !_hidden; }
    void show();
    void hide();
    void toggle();
    /// Keeps the drawer against the timer window's edge.
    void updatePosition();

    void setLogText(const QString& text);
    QString logText() const;
    int selectedTimePeriod() const;
    QPlainTextEdit* logTextView() const { return _logTextView; }

    /// Asks for a width as a drag of the outer edge does: a width outside
    /// 199 to 500 is refused. Answers whether it was taken.
    bool resizeToWidth(int width);
    /// Ends a resize: stores the size.
    void storeSize();

    /// The sound file played at opening.
    static QString printSoundPath();
    /// What plays a sound file; by default the desktop's player.
    void setSoundPlayer(std::function<void(const QString&)> player) {
        _soundPlayer = std::move(player);
    }
    /// The textual form of a size under which it is stored, "{199, 300}".
    static QString sizeString(QSize size);
    static QSize sizeFromString(const QString& text);

Q_SIGNALS:
    void timePeriodChanged();
    void clearRequested();
    void exportRequested();
    void shownChanged(bool shown);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QRect _frameBesideParent(int width) const;
    static void _playWithDesktopPlayer(const QString& path);

    QWidget& _parentWindow;
    QPlainTextEdit* _logTextView = nullptr;
    QButtonGroup* _timePeriodControl = nullptr;
    QPointer<QPropertyAnimation> _animation;
    int _originalWidth = 0;
    bool _hidden = true;
    bool _resizing = false;
    int _resizeStartX = 0;
    int _resizeStartWidth = 0;
    std::function<void(const QString&)> _soundPlayer;
};
