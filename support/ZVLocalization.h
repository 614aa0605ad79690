#pragma once

#include <initializer_list>
#include <string>

/// Every visible text passes through here; the English text is the key
/// (gettext message id). Without a translation the key itself comes back.
/// Catalogs of the text domain "norvo" are read from share/locale beside the
/// running program's bin folder (the build tree has the same layout), or
/// from $NORVO_LOCALE_DIR when that is set.
std::string ZVLocalizedString(const std::string& english);

/// printf-style formatting of a localized format with %@ (string), %i/%d
/// (integer) and %%; arguments are given as strings already formatted.
std::string ZVLocalizedFormat(const std::string& englishFormat, std::initializer_list<std::string> args);

/// The same for a text about a count: the catalog picks the form that the
/// language uses for `count` (English: `singular` for 1, else `plural`).
std::string ZVLocalizedPluralFormat(const std::string& singular, const std::string& plural, unsigned long count,
                                    std::initializer_list<std::string> args);

/// Marks a text that is kept in a table and localized where it is shown.
constexpr const char* ZVLocalizable(const char* english) { return english; }

/// Binds the catalogs and lets LANGUAGE choose the language under the plain
/// C locale as well. The first localized text does this by itself; a
/// program calls it again after its toolkit has set the process's locale,
/// and after a change of LANGUAGE.
void ZVPrepareLocalization();

/// The folder of the catalogs: <folder>/<language>/LC_MESSAGES/norvo.mo.
std::string ZVLocalizationDirectory();
