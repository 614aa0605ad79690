#pragma once

#include <QString>

#include "ZVLocalization.h"

/// A visible text of the shell in the user's language, for Qt widgets; the
/// English text is the key of the catalog.
inline QString ZVLocalizedQString(const char* english) { return QString::fromStdString(ZVLocalizedString(english)); }
