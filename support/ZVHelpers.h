#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ZVValue.h"

// Strings

/// The string without one occurrence of `prefix` at its start, when it is there.
std::string ZVDeletingPrefix(std::string_view text, std::string_view prefix);
/// The string without one occurrence of `suffix` at its end, when it is there.
std::string ZVDeletingSuffix(std::string_view text, std::string_view suffix);
/// Whether `needle` occurs in `text`, ignoring case (Unicode case folding).
bool ZVContainsCaseInsensitive(std::string_view text, std::string_view needle);
/// The integer a numeric string holds ("42", " -7 ", "3.9" gives 3); absent otherwise.
std::optional<std::int64_t> ZVStringIntegerValue(std::string_view text);
/// The number a numeric string holds; absent otherwise.
std::optional<double> ZVStringDoubleValue(std::string_view text);
ZVData ZVUTF8Data(std::string_view text);
/// Whether the bytes are well-formed UTF-8.
bool ZVIsValidUTF8(std::string_view bytes);
/// The number of code points of UTF-8 text (continuation bytes are not counted).
std::size_t ZVCharacterCount(std::string_view utf8);
/// Whether `first` sorts before `second` with case folded, as names are
/// listed for people ("apple" before "Banana").
bool ZVCaseInsensitiveLess(std::string_view first, std::string_view second);
/// Percent-encodes every byte that may not stand in a URL; reserved
/// characters and existing escapes stay.
std::string ZVEncodingIllegalURLCharacters(std::string_view text);
/// Percent-encodes all but the unreserved characters (for query values).
std::string ZVPercentEncoded(std::string_view text);
std::string ZVPercentDecoded(std::string_view text);
/// The pairs as "key=value" joined with "&", keys and values percent-encoded.
std::string ZVURLQueryString(const std::vector<std::pair<std::string, std::string>>& pairs);

template <typename T>
std::string ZVDescriptionWithDefaultValue(const std::optional<T>& value, const std::string& defaultValue) {
    if (!value) return defaultValue;
    if constexpr (std::is_convertible_v<T, std::string>) {
        return std::string(*value);
    } else {
        return std::to_string(*value);
    }
}

// Collections

/// The elements in order, keeping the first of equal ones.
template <typename T>
std::vector<T> ZVDistinct(const std::vector<T>& elements) {
    std::vector<T> result;
    if constexpr (requires(const T& v) { std::hash<T>{}(v); }) {
        std::unordered_set<T> seen;
        for (const T& element : elements) {
            if (seen.insert(element).second) result.push_back(element);
        }
    } else {
        for (const T& element : elements) {
            if (std::find(result.begin(), result.end(), element) == result.end()) result.push_back(element);
        }
    }
    return result;
}

/// Removes the element at `from` and inserts it at `to`; out-of-range
/// positions change nothing.
template <typename T>
void ZVMove(std::vector<T>& elements, size_t from, size_t to) {
    if (from >= elements.size() || to >= elements.size() || from == to) return;
    if (from < to) {
        std::rotate(elements.begin() + static_cast<std::ptrdiff_t>(from),
                    elements.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                    elements.begin() + static_cast<std::ptrdiff_t>(to) + 1);
    } else {
        std::rotate(elements.begin() + static_cast<std::ptrdiff_t>(to),
                    elements.begin() + static_cast<std::ptrdiff_t>(from),
                    elements.begin() + static_cast<std::ptrdiff_t>(from) + 1);
    }
}

/// The largest element; absent for an empty sequence.
template <typename Container>
auto ZVFindMaxValue(const Container& elements) -> std::optional<typename Container::value_type> {
    auto it = std::max_element(std::begin(elements), std::end(elements));
    if (it == std::end(elements)) return std::nullopt;
    return *it;
}

template <typename Container>
auto ZVSum(const Container& elements) -> typename Container::value_type {
    return std::accumulate(std::begin(elements), std::end(elements), typename Container::value_type{});
}

/// A fresh random UUID (version 4) in its common textual form: the
/// identifiers of accounts and of projects made here.
std::string ZVMakeUUID();

/// The date of a UTC calendar time; fields out of range carry over
/// (month 13 is January of the next year).
ZVDate ZVUTCDate(int year, int month, int day, int hour = 0, int minute = 0, double second = 0);

// Dates, in the local time zone

ZVDate ZVStartOfDay(ZVDate date);
bool ZVIsToday(ZVDate date);
bool ZVIsFuture(ZVDate date);
int ZVDay(ZVDate date);
int ZVMonth(ZVDate date);
int ZVYear(ZVDate date);
/// "2024-03-01T10:15:30+01:00": whole seconds, local time with its offset.
std::string ZVISO8601String(ZVDate date);

/// Writes dates exactly as ZVISO8601String does, many times faster for a
/// long run of dates: the local offset is looked up once per day, not per
/// date. Made for one task at a time (an export), so that the next task
/// sees a change of the time zone.
class ZVISO8601Formatter {
public:
    void append(std::string& out, ZVDate date);

private:
    // UTC day number to the offset that holds all day long, or the marker
    // of a day on which the offset changes.
    std::unordered_map<std::int64_t, long> _dayOffsets;
};
/// Reads the form above, also with "Z", fractional seconds or "+0100".
std::optional<ZVDate> ZVDateFromISO8601(std::string_view text);
