#include "ZVHelpers.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <random>

#include "ZVClock.h"

std::string ZVDeletingPrefix(std::string_view text, std::string_view prefix) {
    if (!prefix.empty() && text.substr(0, prefix.size()) == prefix) text.remove_prefix(prefix.size());
    return std::string(text);
}

std::string ZVDeletingSuffix(std::string_view text, std::string_view suffix) {
    if (!suffix.empty() && text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix)
        text.remove_suffix(suffix.size());
    return std::string(text);
}

bool ZVContainsCaseInsensitive(std::string_view text, std::string_view needle) {
    if (needle.empty()) return true;
    icu::UnicodeString haystack = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    icu::UnicodeString wanted = icu::UnicodeString::fromUTF8(icu::StringPiece(needle.data(), static_cast<int32_t>(needle.size())));
    haystack.foldCase();
    wanted.foldCase();
    return haystack.indexOf(wanted) >= 0;
}

namespace {
std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' || text.front() == '\r'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}
}  // namespace

std::optional<double> ZVStringDoubleValue(std::string_view text) {
    text = trimmed(text);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    double value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<std::int64_t> ZVStringIntegerValue(std::string_view text) {
    text = trimmed(text);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    std::int64_t value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc() && result.ptr == text.data() + text.size()) return value;
    auto real = ZVStringDoubleValue(text);
    if (!real || std::fabs(*real) >= 9.2e18) return std::nullopt;
    return static_cast<std::int64_t>(*real);
}

ZVData ZVUTF8Data(std::string_view text) { return ZVData(text.begin(), text.end()); }

bool ZVIsValidUTF8(std::string_view bytes) {
    size_t i = 0;
    const size_t n = bytes.size();
    while (i < n) {
        auto c = static_cast<unsigned char>(bytes[i]);
        size_t length;
        std::uint32_t codePoint;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            length = 2;
            codePoint = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            length = 3;
            codePoint = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            length = 4;
            codePoint = c & 0x07;
        } else {
            return false;
        }
        if (i + length > n) return false;
        for (size_t k = 1; k < length; ++k) {
            auto next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        if ((length == 2 && codePoint < 0x80) || (length == 3 && codePoint < 0x800) ||
            (length == 4 && codePoint < 0x10000) || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

namespace {
bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

bool isAllowedInURL(unsigned char c) {
    static constexpr std::string_view reserved = ":/?#[]@!$&'()*+,;=%";
    return isUnreserved(c) || reserved.find(static_cast<char>(c)) != std::string_view::npos;
}

template <typename Allowed>
std::string percentEncode(std::string_view text, Allowed allowed) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size());
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (allowed(c)) {
            result += ch;
        } else {
            result += '%';
            result += hex[c >> 4];
            result += hex[c & 15];
        }
    }
    return result;
}
}  // namespace

std::string ZVEncodingIllegalURLCharacters(std::string_view text) { return percentEncode(text, isAllowedInURL); }

std::string ZVPercentEncoded(std::string_view text) { return percentEncode(text, isUnreserved); }

std::string ZVPercentDecoded(std::string_view text) {
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() + 0 && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            result += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else if (text[i] == '+') {
            result += ' ';
        } else {
            result += text[i];
        }
    }
    return result;
}

std::string ZVURLQueryString(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::string result;
    for (const auto& [key, value] : pairs) {
        if (!result.empty()) result += '&';
        result += ZVPercentEncoded(key);
        result += '=';
        result += ZVPercentEncoded(value);
    }
    return result;
}

namespace {

std::tm localParts(ZVDate date) {
    std::time_t t = static_cast<std::time_t>(std::floor(date.time_since_epoch().count()));
    std::tm local{};
    localtime_r(&t, &local);
    return local;
}

ZVDate fromSeconds(double seconds) { return ZVDate(std::chrono::duration<double>(seconds)); }

}  // namespace

ZVDate ZVStartOfDay(ZVDate date) {
    std::tm local = localParts(date);
    local.tm_hour = 0;
    local.tm_min = 0;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    return fromSeconds(static_cast<double>(std::mktime(&local)));
}

bool ZVIsToday(ZVDate date) { return ZVStartOfDay(date) == ZVStartOfDay(ZVNow()); }

bool ZVIsFuture(ZVDate date) { return date > ZVNow(); }

int ZVDay(ZVDate date) { return localParts(date).tm_mday; }
int ZVMonth(ZVDate date) { return localParts(date).tm_mon + 1; }
int ZVYear(ZVDate date) { return localParts(date).tm_year + 1900; }

std::string ZVISO8601String(ZVDate date) {
    std::tm local = localParts(date);
    long offset = local.tm_gmtoff;
    char sign = offset < 0 ? '-' : '+';
    if (offset < 0) offset = -offset;
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d%c%02ld:%02ld", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, sign, offset / 3600,
                  (offset % 3600) / 60);
    return buffer;
}

namespace {

constexpr long offsetChangesThatDay = -1'000'000;

long localOffsetAt(std::time_t t) {
    std::tm local{};
    localtime_r(&t, &local);
    return local.tm_gmtoff;
}

std::int64_t floorDivide(std::int64_t value, std::int64_t divisor) {
    return value / divisor - ((value % divisor != 0) && ((value < 0) != (divisor < 0)));
}

void appendDigits(std::string& out, long value, int width) {
    char digits[8];
    for (int i = width - 1; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out.append(digits, static_cast<std::size_t>(width));
}

}  // namespace

void ZVISO8601Formatter::append(std::string& out, ZVDate date) {
    const double seconds = std::floor(date.time_since_epoch().count());
    // Far dates go the slow way: their years need other than four digits.
    if (!(seconds > -62'000'000'000.0 && seconds < 253'000'000'000.0)) {
        out += ZVISO8601String(date);
        return;
    }
    const auto t = static_cast<std::time_t>(seconds);
    const std::int64_t day = floorDivide(t, 86400);
    auto [known, isNew] = _dayOffsets.try_emplace(day, 0);
    if (isNew) {
        // The zone's offsets change at most a few times a year: the same
        // offset at both ends of a day holds all day long.
        const long first = localOffsetAt(static_cast<std::time_t>(day * 86400));
        const long last = localOffsetAt(static_cast<std::time_t>(day * 86400 + 86399));
        known->second = first == last ? first : offsetChangesThatDay;
    }
    const long offset = known->second == offsetChangesThatDay ? localOffsetAt(t) : known->second;

    // The civil date of the local day, by calendar arithmetic.
    const std::int64_t local = t + offset;
    const std::int64_t localDay = floorDivide(local, 86400);
    const std::int64_t secondOfDay = local - localDay * 86400;
    const std::int64_t z = localDay + 719468;
    const std::int64_t era = floorDivide(z, 146097);
    const std::int64_t dayOfEra = z - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    const long dayOfMonth = static_cast<long>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    const long month = static_cast<long>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    const long year = static_cast<long>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
    if (year < 0 || year > 9999) {
        out += ZVISO8601String(date);
        return;
    }
    appendDigits(out, year, 4);
    out += '-';
    appendDigits(out, month, 2);
    out += '-';
    appendDigits(out, dayOfMonth, 2);
    out += 'T';
    appendDigits(out, static_cast<long>(secondOfDay / 3600), 2);
    out += ':';
    appendDigits(out, static_cast<long>(secondOfDay / 60 % 60), 2);
    out += ':';
    appendDigits(out, static_cast<long>(secondOfDay % 60), 2);
    out += offset < 0 ? '-' : '+';
    const long magnitude = offset < 0 ? -offset : offset;
    // As the slow way prints them: hours with at least two digits.
    const long hours = magnitude / 3600;
    appendDigits(out, hours, hours > 99 ? 3 : 2);
    out += ':';
    appendDigits(out, (magnitude % 3600) / 60, 2);
}

std::optional<ZVDate> ZVDateFromISO8601(std::string_view text) {
    std::string s(trimmed(text));
    int year, month, day, hour, minute;
    double second;
    int consumed = 0;
    if (std::sscanf(s.c_str(), "%4d-%2d-%2dT%2d:%2d:%lf%n", &year, &month, &day, &hour, &minute, &second,
                    &consumed) != 6)
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second < 0 || second >= 61)
        return std::nullopt;
    std::string_view zone = std::string_view(s).substr(static_cast<size_t>(consumed));
    long offsetSeconds = 0;
    if (zone == "Z" || zone == "z") {
        offsetSeconds = 0;
    } else if (!zone.empty() && (zone[0] == '+' || zone[0] == '-')) {
        int hours = 0, minutes = 0;
        std::string z(zone.substr(1));
        if (std::sscanf(z.c_str(), "%2d:%2d", &hours, &minutes) != 2 &&
            std::sscanf(z.c_str(), "%2d%2d", &hours, &minutes) != 2)
            return std::nullopt;
        offsetSeconds = (hours * 3600L + minutes * 60L) * (zone[0] == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    return ZVUTCDate(year, month, day, hour, minute, second - static_cast<double>(offsetSeconds));
}

std::string ZVMakeUUID() {
    thread_local std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t high = generator();
    std::uint64_t low = generator();
    high = (high & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;    // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(high >> 32),
                  static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
                  static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull));
    return text;
}

ZVDate ZVUTCDate(int year, int month, int day, int hour, int minute, double second) {
    std::tm utc{};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    return ZVDate(std::chrono::duration<double>(static_cast<double>(timegm(&utc)) + second));
}

bool ZVCaseInsensitiveLess(std::string_view first, std::string_view second) {
    const auto a = icu::UnicodeString::fromUTF8(icu::StringPiece(first.data(), static_cast<int32_t>(first.size())));
    const auto b = icu::UnicodeString::fromUTF8(icu::StringPiece(second.data(), static_cast<int32_t>(second.size())));
    return a.caseCompare(b, U_FOLD_CASE_DEFAULT) < 0;
}

std::size_t ZVCharacterCount(std::string_view utf8) {
    std::size_t count = 0;
    for (const char byte : utf8)
        if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) ++count;
    return count;
}
