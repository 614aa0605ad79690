#include "ui_elements/ZVKeyCombo.h"

#include "ZVPreferences.h"

namespace {
constexpr Qt::KeyboardModifiers relevantModifiers =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
}

QKeySequence ZVKeyCombo::keySequence() const {
    if (keyCode <= 0) return {};
    return QKeySequence(QKeyCombination(modifierFlags & relevantModifiers, static_cast<Qt::Key>(keyCode)));
}

QString ZVKeyCombo::text() const {
    if (keyCode <= 0) return {};
    return keySequence().toString(QKeySequence::NativeText);
}

ZVValue ZVKeyCombo::dictionaryRepresentation() const {
    const QString characters = keyCode > 0 && keyCode < 0x01000000 ? QString(QChar(keyCode)) : QString();
    return ZVDictionary{
        {"keyCode", std::int64_t{keyCode}},
        {"modifierFlags", static_cast<std::int64_t>((modifierFlags & relevantModifiers).toInt())},
        {"keyChars", characters.toLower().toStdString()},
        {"keyCharsIgnoringModifiers", characters.toLower().toStdString()},
    };
}

ZVKeyCombo ZVKeyCombo::fromDictionary(const ZVValue& dictionary) {
    ZVKeyCombo combo;
    combo.keyCode = static_cast<int>(dictionary["keyCode"].integer().value_or(0));
    std::optional<std::int64_t> flags = dictionary["modifierFlags"].integer();
    if (!flags) flags = dictionary["modifiers"].integer();
    combo.modifierFlags = Qt::KeyboardModifiers::fromInt(static_cast<int>(flags.value_or(0))) & relevantModifiers;
    return combo;
}

QString ZVKeyCombo::preferenceKey(const QString& autosaveName) {
    return QStringLiteral("ShortcutRecorder %1").arg(autosaveName);
}

ZVKeyCombo ZVKeyCombo::load(const QString& autosaveName) {
    std::optional<ZVValue> stored = ZVPreferences::shared().value(preferenceKey(autosaveName).toStdString());
    return stored ? fromDictionary(*stored) : ZVKeyCombo{};
}

void ZVKeyCombo::save(const QString& autosaveName) const {
    const std::string key = preferenceKey(autosaveName).toStdString();
    ZVPreferences::shared().perform([&](ZVPreferences& preferences) {
        if (isEmpty())
            preferences.removeValue(key);
        else
            preferences.setValue(dictionaryRepresentation(), key);
    });
}
