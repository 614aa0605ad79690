#include "ui_elements/ZVStatusItemView.h"

#include <QHash>
#include <QPainter>
#include <QPainterPath>

QString ZVStatusItemView::displayedTimeString() const {
    QString text = _timeString.isEmpty() ? QStringLiteral("00:00:00") : _timeString;
    if (!_displaysSeconds && text.size() >= 3) text.chop(3);
    return text;
}

QColor ZVStatusItemView::pillColor() const {
    if (_beating && !_monochrome) return QColor::fromRgbF(0.8971f, 0.0f, 0.1816f, 1.0f);
    return QColor::fromRgbF(0.35f, 0.35f, 0.35f, 1.0f);
}

QImage ZVStatusItemView::render() const {
    // The pill is drawn once per colour and copied: filling its large
    // antialiased shape every second would hand the work to Qt's painting
    // threads, waking them several times a second while the clock runs.
    static QHash<QRgb, QImage> pills;
    const QColor color = pillColor();
    auto pill = pills.find(color.rgba());
    if (pill == pills.end()) {
        QImage drawn(iconSize, iconSize, QImage::Format_ARGB32_Premultiplied);
        drawn.fill(Qt::transparent);
        QPainter pillPainter(&drawn);
        pillPainter.setRenderHint(QPainter::Antialiasing);
        pillPainter.setPen(QPen(QColor(0, 0, 0, 102), 3));
        pillPainter.setBrush(color);
        pillPainter.drawRoundedRect(QRectF(1.5, 1.5, iconSize - 3, iconSize - 3), 9, 9);
        pill = pills.insert(color.rgba(), drawn);
    }
    QImage image = pill->copy();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);

    // The clock: "H:MM" on top (all of it when the hours are long), seconds below.
    const QString full = _timeString.isEmpty() ? QStringLiteral("00:00:00") : _timeString;
    const QStringList parts = full.split(QLatin1Char(':'));
    QString top = full;
    QString seconds;
    if (parts.size() == 3) {
        QString hours = parts[0];
        if (hours.size() > 1 && hours.startsWith(QLatin1Char('0'))) hours.remove(0, 1);
        top = hours + QLatin1Char(':') + parts[1];
        seconds = parts[2];
    }
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(top.size() > 4 ? 20 : 25);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QRectF(0, 4, iconSize, 30), Qt::AlignCenter, top);

    // Play or pause mark, bottom left.
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    const QRectF mark(9, 38, 16, 18);
    if (_beating) {
        painter.drawRect(QRectF(mark.left() + 1, mark.top(), 5, mark.height()));
        painter.drawRect(QRectF(mark.right() - 6, mark.top(), 5, mark.height()));
    } else {
        QPainterPath triangle;
        triangle.moveTo(mark.topLeft());
        triangle.lineTo(mark.right(), mark.center().y());
        triangle.lineTo(mark.bottomLeft());
        triangle.closeSubpath();
        painter.drawPath(triangle);
    }

    if (isSpinning()) {
        QPen arc(Qt::white, 5);
        arc.setCapStyle(Qt::RoundCap);
        painter.setPen(arc);
        painter.setBrush(Qt::NoBrush);
        const QRectF circle(34, 35, 22, 22);
        painter.drawArc(circle, -(_spinnerPhase % 12) * 30 * 16, 270 * 16);
    } else if (_displaysSeconds && !seconds.isEmpty()) {
        font.setPixelSize(22);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(QRectF(26, 33, iconSize - 28, 28), Qt::AlignCenter, seconds);
    }
    return image;
}
