#include "ui_elements/ZVTimeTextField.h"

#include <QMouseEvent>

#include "core/heart_beat/ZVHeartBeat.h"

ZVTimeTextField::ZVTimeTextField(QWidget* parent) : QLabel(parent) {
    setObjectName(QStringLiteral("timeTextField"));
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.addVein(this);
    setText(QString::fromStdString(heartBeat.currentTimeString()));
}

ZVTimeTextField::~ZVTimeTextField() { ZVHeartBeat::sharedHeartBeat().removeVein(this); }

void ZVTimeTextField::heartBeat(ZVHeartBeat&, const std::string& didUpdateTime) {
    setText(QString::fromStdString(didUpdateTime));
}

void ZVTimeTextField::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && (event->modifiers() & Qt::ControlModifier) && _editTimeHandler) {
        _editTimeHandler();
        return;
    }
    QLabel::mousePressEvent(event);
}

void ZVTimeTextField::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton && _editTimeHandler) {
        _editTimeHandler();
        return;
    }
    QLabel::mouseReleaseEvent(event);
}
