#pragma once

#include <QLabel>
#include <functional>

#include "core/heart_beat/ZVHeartBeatVein.h"

/// A live clock: shows the heart beat's time at every tick. A click with
/// Control held, or a right click, asks for editing the time.
class ZVTimeTextField final : public QLabel, public ZVHeartBeatVein {
    Q_OBJECT
public:
    explicit ZVTimeTextField(QWidget* parent = nullptr);
    ~ZVTimeTextField() override;

    void setEditTimeHandler(std::function<void()> handler) { _editTimeHandler = std::move(handler); }
    void heartBeat(ZVHeartBeat& beat, const std::string& didUpdateTime) override;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    std::function<void()> _editTimeHandler;
};
