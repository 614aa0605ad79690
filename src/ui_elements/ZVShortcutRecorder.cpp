#include "ui_elements/ZVShortcutRecorder.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QKeyEvent>

#include "ZVLocalization.h"

namespace {
bool isModifierKey(int key) {
    return key == Qt::Key_Shift || key == Qt::Key_Control || key == Qt::Key_Alt || key == Qt::Key_Meta ||
           key == Qt::Key_AltGr || key == Qt::Key_Super_L || key == Qt::Key_Super_R || key == Qt::Key_CapsLock ||
           key == Qt::Key_NumLock;
}

bool isFunctionKey(int key) { return key >= Qt::Key_F1 && key <= Qt::Key_F35; }
}  // namespace

ZVShortcutRecorder::ZVShortcutRecorder(QWidget* parent) : QPushButton(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setMinimumWidth(160);
    connect(this, &QPushButton::clicked, this, [this] {
        if (_recording)
            _stopRecording();
        else
            _startRecording();
    });
    _updateTitle();
}

void ZVShortcutRecorder::setKeyCombo(const ZVKeyCombo& combo) {
    _keyCombo = combo;
    _updateTitle();
}

void ZVShortcutRecorder::loadKeyCombo() {
    if (!_autosaveName.isEmpty()) setKeyCombo(ZVKeyCombo::load(_autosaveName));
}

void ZVShortcutRecorder::saveKeyCombo() const {
    if (!_autosaveName.isEmpty()) _keyCombo.save(_autosaveName);
}

void ZVShortcutRecorder::recordKey(int key, Qt::KeyboardModifiers modifiers) {
    if (!_recording) return;
    modifiers &= Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    if (key == Qt::Key_Escape && modifiers == Qt::NoModifier) {
        _stopRecording();
        return;
    }
    if ((key == Qt::Key_Backspace || key == Qt::Key_Delete) && modifiers == Qt::NoModifier) {
        _stopRecording();
        if (!_keyCombo.isEmpty()) {
            _keyCombo = ZVKeyCombo{};
            _updateTitle();
            Q_EMIT keyComboDidChange(_keyCombo);
        }
        return;
    }
    if (isModifierKey(key) || key == 0 || key == Qt::Key_unknown) return;
    // A plain letter would take the key from every other program.
    if ((modifiers & ~Qt::ShiftModifier) == Qt::NoModifier && !isFunctionKey(key)) return;

    ZVKeyCombo combo{key, modifiers};
    if (_validator) {
        const QString refusal = _validator(combo);
        if (!refusal.isEmpty()) {
            _lastRefusal = refusal;
            setToolTip(refusal);
            return;
        }
    }
    _lastRefusal.clear();
    setToolTip({});
    _stopRecording();
    if (combo == _keyCombo) return;
    _keyCombo = combo;
    _updateTitle();
    Q_EMIT keyComboDidChange(_keyCombo);
}

void ZVShortcutRecorder::keyPressEvent(QKeyEvent* event) {
    if (!_recording) {
        QPushButton::keyPressEvent(event);
        return;
    }
    recordKey(event->key(), event->modifiers());
    event->accept();
}

void ZVShortcutRecorder::focusOutEvent(QFocusEvent* event) {
    if (_recording) _stopRecording();
    QPushButton::focusOutEvent(event);
}

void ZVShortcutRecorder::_startRecording() {
    _recording = true;
    setFocus();
    grabKeyboard();
    _updateTitle();
}

void ZVShortcutRecorder::_stopRecording() {
    if (!_recording) return;
    _recording = false;
    releaseKeyboard();
    _updateTitle();
}

void ZVShortcutRecorder::_updateTitle() {
    if (_recording)
        setText(ZVLocalizedQString("Type shortcut"));
    else if (_keyCombo.keyCode > 0)
        setText(_keyCombo.text());
    else
        setText(ZVLocalizedQString("Click to record shortcut"));
}
