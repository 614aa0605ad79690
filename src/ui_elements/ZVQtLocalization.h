#pragma once

#include <QString>

#include "ZVLocalization.h"

/// A visible text of the shell in the user's language, for Qt widgets; the
/// English text is the key of the catalog.
inline QString ZVLocalizedQString(const char* english) { return QString::fromStdString(ZVLocalizedString(english)); }

/// A name of the user's (a project, an account) as the title of a button or
/// menu item: a '&' in it is shown as it is, never read as a keyboard
/// accelerator.
inline QString ZVPlainTitle(const QString& name) {
    QString title = name;
    return title.replace(QLatin1Char('&'), QStringLiteral("&&"));
}
inline QString ZVPlainTitle(const std::string& name) { return ZVPlainTitle(QString::fromStdString(name)); }
