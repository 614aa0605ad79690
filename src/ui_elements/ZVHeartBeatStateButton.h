#pragma once

#include <QAbstractButton>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"

/// A small round indicator kept 8 points from the upper right corner of its
/// parent: red while the timer runs, grey otherwise. A click starts or stops
/// the timer.
class ZVHeartBeatStateButton final : public QAbstractButton {
    Q_OBJECT
public:
    explicit ZVHeartBeatStateButton(QWidget* parent);
    ~ZVHeartBeatStateButton() override;

    /// Places the button at the parent's corner again.
    void updateFramePosition();
    QSize sizeHint() const override { return {10, 10}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::vector<ZVNotificationCenter::Token> _observations;
};
