#pragma once

#include <initializer_list>
#include <string>

/// Every visible text passes through here; the English text is the key
/// (gettext message id). Without a translation the key itself comes back.
std::string ZVLocalizedString(const std::string& english);

/// printf-style formatting of a localized format with %@ (string), %i/%d
/// (integer) and %%; arguments are given as strings already formatted.
std::string ZVLocalizedFormat(const std::string& englishFormat, std::initializer_list<std::string> args);
