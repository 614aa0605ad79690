#pragma once

#include <QImage>
#include <QString>

/// Draws the status item's icon: a pill, red while the timer runs (grey when
/// stopped or in monochrome mode), with the clock above and the play or
/// pause mark below it, and a turning arc while a synchronization runs.
/// A tray icon is square on most desktops, which is why the clock stands in
/// two rows: hours and minutes on top, the seconds beside the mark.
class ZVStatusItemView {
public:
    static constexpr int iconSize = 64;

    void setTimeString(const QString& timeString) { _timeString = timeString; }
    const QString& timeString() const { return _timeString; }
    void setBeating(bool beating) { _beating = beating; }
    void setUsesMonochromeColors(bool value) { _monochrome = value; }
    void setDisplaysSeconds(bool value) { _displaysSeconds = value; }
    /// The spinner's step, or a negative number when no sync runs.
    void setSpinnerPhase(int phase) { _spinnerPhase = phase; }
    /// Everything the picture depends on: two views with the same key draw
    /// the same picture, so a tick that changes nothing visible is skipped.
    QString appearanceKey() const {
        return displayedTimeString() + QLatin1Char('|') + QString::number(_beating) + QString::number(_monochrome) +
               QLatin1Char('|') + QString::number(_spinnerPhase);
    }
    bool isSpinning() const { return _spinnerPhase >= 0; }
    bool isBeating() const { return _beating; }
    int spinnerPhase() const { return _spinnerPhase; }

    /// The text as the item shows it: without seconds "01:02:03" reads "01:02";
    /// an empty time reads as zero.
    QString displayedTimeString() const;
    QImage render() const;

    /// The pill's fill: red while running unless monochrome, grey otherwise.
    QColor pillColor() const;

private:
    QString _timeString = QStringLiteral("00:00:00");
    bool _beating = false;
    bool _monochrome = false;
    bool _displaysSeconds = true;
    int _spinnerPhase = -1;
};
