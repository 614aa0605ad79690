#include "ZVLocalization.h"

#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "ZVPaths.h"

#ifndef NORVO_LOCALE_DIR
#define NORVO_LOCALE_DIR "/usr/share/locale"
#endif

// The gettext manual's way to tell it that the language has changed.
extern "C" int _nl_msg_cat_cntr;

namespace {

constexpr const char* textDomain = "norvo";

void useLanguageVariableUnderTheCLocale() {
    // gettext ignores LANGUAGE under the plain C locale, which is what a
    // session without LANG has. C.UTF-8 answers the same English texts and
    // lets LANGUAGE choose the catalog.
    const char* messages = std::setlocale(LC_MESSAGES, nullptr);
    if (messages && (std::strcmp(messages, "C") == 0 || std::strcmp(messages, "POSIX") == 0))
        std::setlocale(LC_MESSAGES, "C.UTF-8");
}

void bindOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        useLanguageVariableUnderTheCLocale();
        bindtextdomain(textDomain, ZVLocalizationDirectory().c_str());
        bind_textdomain_codeset(textDomain, "UTF-8");
    });
}

std::string formatted(const std::string& format, std::initializer_list<std::string> args);

}  // namespace

void ZVPrepareLocalization() {
    bindOnce();
    useLanguageVariableUnderTheCLocale();
    // gettext keeps the texts it found under the locale's name, not under
    // LANGUAGE; its counter of catalog changes makes it look them up afresh.
    ++_nl_msg_cat_cntr;
}

std::string ZVLocalizationDirectory() {
    const char* dir = std::getenv("NORVO_LOCALE_DIR");
    if (dir && *dir) return dir;
    const std::string beside = ZVPaths::sharedDataDirectory() + "/locale";
    std::error_code error;
    if (std::filesystem::is_directory(beside, error)) return beside;
    return NORVO_LOCALE_DIR;
}

std::string ZVLocalizedString(const std::string& english) {
    if (english.empty()) return english;  // gettext("") answers the catalogue header
    bindOnce();
    return dgettext(textDomain, english.c_str());
}

std::string ZVLocalizedFormat(const std::string& englishFormat, std::initializer_list<std::string> args) {
    return formatted(ZVLocalizedString(englishFormat), args);
}

std::string ZVLocalizedPluralFormat(const std::string& singular, const std::string& plural, unsigned long count,
                                    std::initializer_list<std::string> args) {
    bindOnce();
    return formatted(dngettext(textDomain, singular.c_str(), plural.c_str(), count), args);
}

namespace {

std::string formatted(const std::string& format, std::initializer_list<std::string> args) {
    const std::vector<std::string> values(args);
    std::string result;
    result.reserve(format.size() + 16);
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%' || i + 1 == format.size()) {
            result += c;
            continue;
        }
        size_t j = i + 1;
        // Translations may reorder the arguments with "%2$@".
        size_t position = 0;
        size_t k = j;
        while (k < format.size() && format[k] >= '0' && format[k] <= '9') {
            position = position * 10 + static_cast<size_t>(format[k] - '0');
            ++k;
        }
        if (k > j && k < format.size() && format[k] == '$' && position > 0) {
            j = k + 1;
        } else {
            position = 0;
        }
        if (j >= format.size()) {
            result.append(format, i, std::string::npos);
            break;
        }
        char conversion = format[j];
        if (conversion == '%' && position == 0) {
            result += '%';
            i = j;
        } else if (conversion == '@' || conversion == 'i' || conversion == 'd' || conversion == 's') {
            size_t index = position > 0 ? position - 1 : next++;
            if (index < values.size()) result += values[index];
            i = j;
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace
