#pragma once

#include <QKeySequence>
#include <QString>

#include "ZVValue.h"

/// A key combination as the shortcut recorder stores it: a Qt key and the
/// modifier flags. Its stored form is the dictionary kept under
/// "ShortcutRecorder <name>" with "keyCode", "modifierFlags", "keyChars" and
/// "keyCharsIgnoringModifiers"; "modifiers" is the older name of the flags.
struct ZVKeyCombo {
    int keyCode = 0;  // a Qt::Key; 0 or less is no key
    Qt::KeyboardModifiers modifierFlags;

    bool isEmpty() const { return keyCode <= 0 && modifierFlags == Qt::NoModifier; }
    /// The combination as the user reads it, such as "Ctrl+Alt+T".
    QString text() const;
    QKeySequence keySequence() const;

    ZVValue dictionaryRepresentation() const;
    static ZVKeyCombo fromDictionary(const ZVValue& dictionary);
    static QString preferenceKey(const QString& autosaveName);
    /// The combination stored under the autosave name, empty when none.
    static ZVKeyCombo load(const QString& autosaveName);
    /// Stores the combination under the autosave name; an empty one removes it.
    void save(const QString& autosaveName) const;

    bool operator==(const ZVKeyCombo& other) const {
        return keyCode == other.keyCode && modifierFlags == other.modifierFlags;
    }
};
