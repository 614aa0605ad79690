#pragma once

#include <QPushButton>
#include <functional>

#include "ui_elements/ZVKeyCombo.h"

/// Records a key combination: a click starts recording, the next key with
/// at least one modifier (or a function key alone) becomes the combination,
/// Escape ends recording unchanged, Backspace or Delete clears it. A
/// validator may refuse a combination with a reason, shown as the tool tip.
class ZVShortcutRecorder final : public QPushButton {
    Q_OBJECT
public:
    /// Answers why the combination cannot be used, or an empty text.
    using Validator = std::function<QString(const ZVKeyCombo&)>;

    explicit ZVShortcutRecorder(QWidget* parent = nullptr);

    ZVKeyCombo keyCombo() const { return _keyCombo; }
    void setKeyCombo(const ZVKeyCombo& combo);
    bool isRecording() const { return _recording; }
    void setValidator(Validator validator) { _validator = std::move(validator); }
    QString lastRefusal() const { return _lastRefusal; }

    void setAutosaveName(const QString& name) { _autosaveName = name; }
    QString autosaveName() const { return _autosaveName; }
    void loadKeyCombo();
    void saveKeyCombo() const;

    /// Takes a key press while recording, as the keyboard would give it.
    void recordKey(int key, Qt::KeyboardModifiers modifiers);

Q_SIGNALS:
    void keyComboDidChange(const ZVKeyCombo& combo);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void _startRecording();
    void _stopRecording();
    void _updateTitle();

    ZVKeyCombo _keyCombo;
    bool _recording = false;
    Validator _validator;
    QString _autosaveName;
    QString _lastRefusal;
};
