#include "ui_elements/ZVReceiptDrawerWindow.h"

#include <QButtonGroup>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPropertyAnimation>
#include <QRegularExpression>
#include <QScreen>
#include <QStandardPaths>
#include <QToolButton>
#include <QVBoxLayout>

#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "preferences/ZVNorvoPreferences.h"
#include "ui_elements/ZVQtLocalization.h"

namespace {
constexpr const char* frameSizeKey = "KDReceiptDrawerWindowFrameSize";
constexpr int defaultWidth = 340;
constexpr int drawerMinimumHeight = 360;
constexpr int toothWidth = 8;
const QColor paper(0xfb, 0xfb, 0xf6);
const QColor ink(0x33, 0x33, 0x33);
}  // namespace

ZVReceiptDrawerWindow::ZVReceiptDrawerWindow(QWidget& parentWindow)
    : QWidget(&parentWindow, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus),
      _parentWindow(parentWindow) {
    setObjectName(QStringLiteral("receiptDrawerWindow"));
    setWindowTitle(ZVLocalizedQString("Log"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFocusPolicy(Qt::NoFocus);
    setMouseTracking(true);
    // The receipt is paper in every desktop theme.
    setStyleSheet(QStringLiteral(
        "#receiptDrawerWindow QToolButton { color: #333; background: transparent; "
        "border: 1px solid #bbb; border-radius: 4px; padding: 2px 6px; }"
        "#receiptDrawerWindow QToolButton:checked { background: #e6e6dc; }"
        "QPlainTextEdit#logText { background: transparent; color: #333; border: none; }"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 10, 10, 16);
    layout->setSpacing(6);
    auto* periods = new QHBoxLayout();
    _timePeriodControl = new QButtonGroup(this);
    const char* periodTitles[] = {ZVLocalizable("30 Days"), ZVLocalizable("7 Days"),
                                  ZVLocalizable("Today")};
    for (int segment = 0; segment < 3; ++segment) {
        auto* button = new QToolButton(this);
        button->setText(ZVLocalizedQString(periodTitles[segment]));
        button->setCheckable(true);
        button->setFocusPolicy(Qt::NoFocus);
        _timePeriodControl->addButton(button, segment);
        periods->addWidget(button);
    }
    _timePeriodControl->button(2)->setChecked(true);
    connect(_timePeriodControl, &QButtonGroup::idClicked, this,
            [this] { Q_EMIT timePeriodChanged(); });
    periods->addStretch();
    layout->addLayout(periods);

    _logTextView = new QPlainTextEdit(this);
    _logTextView->setObjectName(QStringLiteral("logText"));
    _logTextView->setReadOnly(true);
    _logTextView->setFocusPolicy(Qt::NoFocus);
    // A receipt's lines are as long as its printer makes them; a narrow
    // drawer scrolls sideways.
    _logTextView->setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont receipt = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    receipt.setPointSizeF(std::max(8.0, receipt.pointSizeF() - 1));
    _logTextView->setFont(receipt);
    // Selected text reads black on white, as on paper.
    QPalette selection = _logTextView->palette();
    selection.setColor(QPalette::Highlight, Qt::white);
    selection.setColor(QPalette::HighlightedText, Qt::black);
    _logTextView->setPalette(selection);
    _logTextView->viewport()->setMouseTracking(true);
    _logTextView->viewport()->installEventFilter(this);
    layout->addWidget(_logTextView, 1);

    auto* actions = new QHBoxLayout();
    actions->addStretch();
    auto* clear = new QToolButton(this);
    clear->setObjectName(QStringLiteral("clearLogButton"));
    clear->setText(ZVLocalizedQString("Clear"));
    clear->setFocusPolicy(Qt::NoFocus);
    connect(clear, &QToolButton::clicked, this, [this] { Q_EMIT clearRequested(); });
    auto* exportButton = new QToolButton(this);
    exportButton->setObjectName(QStringLiteral("exportLogButton"));
    exportButton->setText(ZVLocalizedQString("Export..."));
    exportButton->setFocusPolicy(Qt::NoFocus);
    connect(exportButton, &QToolButton::clicked, this, [this] { Q_EMIT exportRequested(); });
    actions->addWidget(clear);
    actions->addWidget(exportButton);
    layout->addLayout(actions);
    setMinimumWidth(minimumDrawerWidth);

    const auto storedValue = ZVPreferences::shared().value(frameSizeKey);
    const std::string* storedText = storedValue ? storedValue->string() : nullptr;
    const QSize stored = storedText ? sizeFromString(QString::fromStdString(*storedText)) : QSize();
    _originalWidth = stored.width() >= minimumDrawerWidth && stored.width() <= maximumDrawerWidth
                         ? stored.width()
                         : defaultWidth;
    _parentWindow.installEventFilter(this);
    _soundPlayer = &ZVReceiptDrawerWindow::_playWithDesktopPlayer;
}

ZVReceiptDrawerWindow::~ZVReceiptDrawerWindow() = default;

QString ZVReceiptDrawerWindow::sizeString(QSize size) {
    return QStringLiteral("{%1, %2}").arg(size.width()).arg(size.height());
}

QSize ZVReceiptDrawerWindow::sizeFromString(const QString& text) {
    static const QRegularExpression pattern(
        QStringLiteral("^\\{\\s*(\\d+)(?:\\.\\d*)?\\s*,\\s*(\\d+)(?:\\.\\d*)?\\s*\\}$"));
    const auto match = pattern.match(text.trimmed());
    if (!match.hasMatch()) return {};
    return {match.captured(1).toInt(), match.captured(2).toInt()};
}

QString ZVReceiptDrawerWindow::printSoundPath() {
    return QString::fromStdString(ZVPaths::sharedDataDirectory()) +
           QStringLiteral("/norvo/sounds/printer_sound.wav");
}

void ZVReceiptDrawerWindow::_playWithDesktopPlayer(const QString& path) {
    // The first player of the desktop's sound servers that is there;
    // without one the receipt prints silently.
    for (const char* player : {"pw-play", "paplay", "aplay"}) {
        const QString program = QStandardPaths::findExecutable(QString::fromUtf8(player));
        if (program.isEmpty()) continue;
        QStringList arguments{path};
        if (QString::fromUtf8(player) == QStringLiteral("aplay"))
            arguments.prepend(QStringLiteral("-q"));
        QProcess::startDetached(program, arguments);
        return;
    }
}

QRect ZVReceiptDrawerWindow::_frameBesideParent(int width) const {
    const QRect parent = _parentWindow.frameGeometry();
    const int height = std::max(parent.height() - 20, drawerMinimumHeight);
    QRect frame(parent.right() + 1, parent.top() + 10, width, height);
    // Where the screen ends on the right, the drawer opens on the left.
    if (QScreen* screen = _parentWindow.screen()) {
        const QRect available = screen->availableGeometry();
        if (parent.right() + _originalWidth >= available.right() &&
            parent.left() - _originalWidth >= available.left())
            frame.moveRight(parent.left() - 1);
    }
    return frame;
}

bool ZVReceiptDrawerWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == &_parentWindow) {
        switch (event->type()) {
            case QEvent::Move:
            case QEvent::Resize:
                updatePosition();
                break;
            case QEvent::Hide:
                if (!_hidden) QWidget::hide();
                break;
            case QEvent::Show:
                if (!_hidden) QWidget::show();
                break;
            default:
                break;
        }
    } else if (watched == _logTextView->viewport() && event->type() == QEvent::MouseMove) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        const int x = _logTextView->viewport()->mapTo(this, mouse->position().toPoint()).x();
        _logTextView->viewport()->setCursor(x >= width() - resizeStripWidth ? Qt::SizeHorCursor
                                                                            : Qt::IBeamCursor);
    }
    return QWidget::eventFilter(watched, event);
}

void ZVReceiptDrawerWindow::updatePosition() {
    if (_hidden || (_animation && _animation->state() == QAbstractAnimation::Running)) return;
    if (width() < minimumDrawerWidth) return;
    setGeometry(_frameBesideParent(width()));
}

void ZVReceiptDrawerWindow::toggle() {
    if (_hidden) {
        if (ZVNorvoPreferences::shared().playsPrintSoundWhenShowingLog() && _soundPlayer)
            _soundPlayer(printSoundPath());
        show();
    } else {
        hide();
    }
}

void ZVReceiptDrawerWindow::show() {
    if (!_hidden) return;
    _hidden = false;
    const QRect target = _frameBesideParent(_originalWidth);
    QRect start = target;
    start.setWidth(1);
    if (target.left() < _parentWindow.frameGeometry().left()) start.moveRight(target.right());
    setGeometry(start);
    QWidget::show();
    raise();
    // Slides out from under the timer window.
    _animation = new QPropertyAnimation(this, "geometry", this);
    _animation->setDuration(160);
    _animation->setStartValue(start);
    _animation->setEndValue(target);
    // The timer window may have moved meanwhile.
    connect(_animation, &QPropertyAnimation::finished, this,
            &ZVReceiptDrawerWindow::updatePosition);
    _animation->start(QAbstractAnimation::DeleteWhenStopped);
    ZVPreferences::shared().perform(
        [](ZVPreferences& store) { ZVNorvoPreferences(store).setReceiptDrawerVisible(true); });
    Q_EMIT shownChanged(true);
}

void ZVReceiptDrawerWindow::hide() {
    if (_hidden) return;
    if (_animation) _animation->stop();
    if (width() >= minimumDrawerWidth) _originalWidth = width();
    _hidden = true;
    QWidget::hide();
    ZVPreferences::shared().perform(
        [](ZVPreferences& store) { ZVNorvoPreferences(store).setReceiptDrawerVisible(false); });
    Q_EMIT shownChanged(false);
}

bool ZVReceiptDrawerWindow::resizeToWidth(int newWidth) {
    if (newWidth < minimumDrawerWidth || newWidth > maximumDrawerWidth) return false;
    QRect frame = geometry();
    if (frame.left() < _parentWindow.frameGeometry().left()) {
        frame.setLeft(frame.right() + 1 - newWidth);
    } else {
        frame.setWidth(newWidth);
    }
    setGeometry(frame);
    _originalWidth = newWidth;
    return true;
}

void ZVReceiptDrawerWindow::storeSize() {
    const QString text = sizeString(QSize(_originalWidth, height()));
    ZVPreferences::shared().perform(
        [&](ZVPreferences& store) { store.setValue(text.toStdString(), frameSizeKey); });
}

void ZVReceiptDrawerWindow::mousePressEvent(QMouseEvent* event) {
    const int x = event->position().toPoint().x();
    const bool onTheRight = geometry().left() >= _parentWindow.frameGeometry().left();
    _resizing = onTheRight ? x >= width() - resizeStripWidth : x < resizeStripWidth;
    _resizeStartX = event->globalPosition().toPoint().x();
    _resizeStartWidth = width();
    QWidget::mousePressEvent(event);
}

void ZVReceiptDrawerWindow::mouseMoveEvent(QMouseEvent* event) {
    const int x = event->position().toPoint().x();
    setCursor(x >= width() - resizeStripWidth || x < resizeStripWidth ? Qt::SizeHorCursor
                                                                      : Qt::ArrowCursor);
    if (!_resizing) return;
    const bool onTheRight = geometry().left() >= _parentWindow.frameGeometry().left();
    const int moved = event->globalPosition().toPoint().x() - _resizeStartX;
    resizeToWidth(_resizeStartWidth + (onTheRight ? moved : -moved));
}

void ZVReceiptDrawerWindow::mouseReleaseEvent(QMouseEvent* event) {
    if (_resizing) storeSize();
    _resizing = false;
    QWidget::mouseReleaseEvent(event);
}

void ZVReceiptDrawerWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // The background of the window shows through where the paper was torn off.
    painter.fillRect(rect(), palette().color(QPalette::Window).darker(115));
    QPainterPath sheet;
    const qreal bottom = height() - 1;
    sheet.moveTo(0, 0);
    sheet.lineTo(width(), 0);
    sheet.lineTo(width(), bottom - toothWidth / 2.0);
    for (int x = width(); x > 0; x -= toothWidth) {
        sheet.lineTo(x - toothWidth / 2.0, bottom);
        sheet.lineTo(x - toothWidth, bottom - toothWidth / 2.0);
    }
    sheet.lineTo(0, 0);
    painter.fillPath(sheet, paper);
    painter.setPen(QPen(ink.lighter(250), 1));
    painter.drawPath(sheet);
}

void ZVReceiptDrawerWindow::setLogText(const QString& text) { _logTextView->setPlainText(text); }

QString ZVReceiptDrawerWindow::logText() const { return _logTextView->toPlainText(); }

int ZVReceiptDrawerWindow::selectedTimePeriod() const { return _timePeriodControl->checkedId(); }
