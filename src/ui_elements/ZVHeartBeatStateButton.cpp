#include "ui_elements/ZVHeartBeatStateButton.h"

#include <QEvent>
#include <QPainter>

#include "ZVLocalization.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"

ZVHeartBeatStateButton::ZVHeartBeatStateButton(QWidget* parent) : QAbstractButton(parent) {
    setObjectName(QStringLiteral("heartBeatStateButton"));
    setFixedSize(10, 10);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setToolTip(QString::fromStdString(ZVLocalizedString("Start or stop the timer")));
    connect(this, &QAbstractButton::clicked, this, [] { ZVActionCenter::shared().toggleTimer(); });
    _observations.push_back(ZVNotificationCenter::shared().addObserver(
        ZVHeartBeatStateDidChangeNotification, [this](const ZVNotification&) { update(); }));
    parent->installEventFilter(this);
    updateFramePosition();
}

ZVHeartBeatStateButton::~ZVHeartBeatStateButton() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
}

void ZVHeartBeatStateButton::updateFramePosition() {
    if (QWidget* superview = parentWidget()) {
        move(superview->width() - 18, 8);
        raise();
    }
}

bool ZVHeartBeatStateButton::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize) updateFramePosition();
    return QAbstractButton::eventFilter(watched, event);
}

void ZVHeartBeatStateButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool beating = ZVHeartBeat::sharedHeartBeat().isBeating();
    painter.setPen(QPen(QColor(0, 0, 0, 102), 1));
    painter.setBrush(beating ? QColor::fromRgbF(0.8971f, 0.0f, 0.1816f) : QColor(140, 140, 140));
    painter.drawEllipse(QRectF(0.5, 0.5, 9, 9));
}
