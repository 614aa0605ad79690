#include "ZVPropertyList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include <plist/plist.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>
#include <ctime>
#include <limits>
#include <memory>
#include <pugixml.hpp>

#include "ZVHelpers.h"
#include "ZVPaths.h"

namespace {

// Seconds between 1970-01-01 and 2001-01-01, the epoch of binary plist dates.
constexpr double referenceDateOffset = 978307200.0;
constexpr int maximumDepth = 512;

// Base64

constexpr char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void appendBase64(std::string& out, const ZVData& data) {
    size_t i = 0;
    size_t lineLength = 0;
    auto put = [&](char c) {
        out += c;
        // Lines of 68 characters keep big data readable, as other writers do.
        if (++lineLength == 68) {
            out += "\n\t";
            lineLength = 0;
        }
    };
    for (; i + 2 < data.size(); i += 3) {
        unsigned n = (data[i] << 16u) | (data[i + 1] << 8u) | data[i + 2];
        put(base64Alphabet[(n >> 18) & 63]);
        put(base64Alphabet[(n >> 12) & 63]);
        put(base64Alphabet[(n >> 6) & 63]);
        put(base64Alphabet[n & 63]);
    }
    if (i < data.size()) {
        unsigned n = data[i] << 16u;
        if (i + 1 < data.size()) n |= data[i + 1] << 8u;
        put(base64Alphabet[(n >> 18) & 63]);
        put(base64Alphabet[(n >> 12) & 63]);
        put(i + 1 < data.size() ? base64Alphabet[(n >> 6) & 63] : '=');
        put('=');
    }
}

std::optional<ZVData> decodeBase64(const char* text) {
    ZVData out;
    unsigned buffer = 0;
    int bits = 0;
    for (const char* p = text; *p; ++p) {
        char c = *p;
        int value;
        if (c >= 'A' && c <= 'Z') value = c - 'A';
        else if (c >= 'a' && c <= 'z') value = c - 'a' + 26;
        else if (c >= '0' && c <= '9') value = c - '0' + 52;
        else if (c == '+' || c == '-') value = 62;
        else if (c == '/' || c == '_') value = 63;
        else if (c == '=' || c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
        else return std::nullopt;
        buffer = (buffer << 6) | static_cast<unsigned>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>((buffer >> bits) & 0xFF));
        }
    }
    return out;
}

// Dates

// Two digits (or four) of a calendar field at `out`.
void putDigits(char* out, int value, int digits) {
    for (int i = digits - 1; i >= 0; --i, value /= 10) out[i] = static_cast<char>('0' + value % 10);
}

std::string formatDate(ZVDate date) {
    double seconds = std::floor(date.time_since_epoch().count());
    // The common case by calendar arithmetic: a log of a million entries
    // spends most of its writing time on dates otherwise.
    if (seconds >= -62135596800.0 && seconds < 253402300800.0) {  // years 1 to 9999
        using namespace std::chrono;
        const auto whole = sys_seconds(std::chrono::seconds(static_cast<std::int64_t>(seconds)));
        const auto midnight = floor<days>(whole);
        const year_month_day ymd(midnight);
        const hh_mm_ss time(whole - midnight);
        char text[] = "0000-00-00T00:00:00Z";
        putDigits(text, static_cast<int>(ymd.year()), 4);
        putDigits(text + 5, static_cast<int>(static_cast<unsigned>(ymd.month())), 2);
        putDigits(text + 8, static_cast<int>(static_cast<unsigned>(ymd.day())), 2);
        putDigits(text + 11, static_cast<int>(time.hours().count()), 2);
        putDigits(text + 14, static_cast<int>(time.minutes().count()), 2);
        putDigits(text + 17, static_cast<int>(time.seconds().count()), 2);
        return text;
    }
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return buffer;
}

// "YYYY-MM-DDTHH:MM:SSZ", the form every writer of property lists uses;
// nothing when the text has another form.
std::optional<ZVDate> parseCanonicalDate(const char* text) {
    if (std::strlen(text) != 20) return std::nullopt;
    static constexpr int digitPositions[] = {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18};
    for (int position : digitPositions)
        if (text[position] < '0' || text[position] > '9') return std::nullopt;
    if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':' || text[19] != 'Z')
        return std::nullopt;
    const auto number = [text](int from, int digits) {
        int value = 0;
        for (int i = 0; i < digits; ++i) value = value * 10 + (text[from + i] - '0');
        return value;
    };
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
    using namespace std::chrono;
    const year_month_day ymd{year(number(0, 4)), month(static_cast<unsigned>(number(5, 2))),
                             day(static_cast<unsigned>(number(8, 2)))};
    if (!ymd.ok()) return std::nullopt;
    const auto epoch = sys_days(ymd).time_since_epoch().count() * 86400.0 + hour * 3600.0 + minute * 60.0 + second;
    return ZVDate(std::chrono::duration<double>(epoch));
}

std::optional<ZVDate> parseDate(const char* text) {
    if (auto date = parseCanonicalDate(text)) return date;
    int year, month, day, hour = 0, minute = 0;
    double second = 0;
    int consumed = 0;
    if (std::sscanf(text, "%d-%d-%dT%d:%d:%lf%n", &year, &month, &day, &hour, &minute, &second, &consumed) < 3)
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
        second < 0 || second >= 61)
        return std::nullopt;
    return ZVUTCDate(year, month, day, hour, minute, second);
}

// XML writing

// The length of the well-formed UTF-8 sequence at `at`, or 0; `allowed`
// says whether XML 1.0 allows the character it names.
std::size_t sequenceLength(const unsigned char* at, std::size_t available, bool& allowed) {
    const unsigned char lead = at[0];
    std::size_t length = 0;
    char32_t code = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        code = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        code = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        code = lead & 0x07u;
    } else {
        return 0;
    }
    if (available < length) return 0;
    for (std::size_t index = 1; index < length; ++index) {
        if ((at[index] & 0xC0u) != 0x80u) return 0;
        code = (code << 6) | (at[index] & 0x3Fu);
    }
    const char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
    allowed = code != 0xFFFE && code != 0xFFFF;
    return length;
}

// Writes only what XML 1.0 can carry, so that every XML reader takes the
// file: control characters other than tab, line feed and carriage return
// and the two noncharacters U+FFFE and U+FFFF are dropped, and each byte
// that is no part of well-formed UTF-8 becomes U+FFFD.
void appendEscaped(std::string& out, const std::string& text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    for (std::size_t index = 0; index < size;) {
        const unsigned char c = bytes[index];
        if (c >= 0x80) {
            bool allowed = false;
            const std::size_t length = sequenceLength(bytes + index, size - index, allowed);
            if (length == 0) {
                out += "\xEF\xBF\xBD";
                ++index;
            } else {
                if (allowed) out.append(text, index, length);
                index += length;
            }
            continue;
        }
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '\r': out += "&#13;"; break;
            case '\t':
            case '\n': out += static_cast<char>(c); break;
            default:
                if (c >= 0x20) out += static_cast<char>(c);
        }
        ++index;
    }
}

void appendIndent(std::string& out, int depth) { out.append(static_cast<size_t>(depth), '\t'); }

void appendReal(std::string& out, double v) {
    if (std::isnan(v)) {
        out += "nan";
    } else if (std::isinf(v)) {
        out += v > 0 ? "+infinity" : "-infinity";
    } else {
        char buffer[64];
        auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
        out.append(buffer, result.ptr);
    }
}

// Hands the text serialized so far to its destination now and then, so that
// a large value is never held whole as text; false once that fails.
struct Spill {
    static constexpr std::size_t threshold = 1 << 20;
    const std::function<bool(std::string_view)>* hand = nullptr;
    bool failed = false;
    void check(std::string& out) {
        if (!hand || out.size() < threshold || failed) return;
        failed = !(*hand)(out);
        out.clear();
    }
};

void appendValue(std::string& out, const ZVValue& value, int depth, Spill* spill = nullptr) {
    appendIndent(out, depth);
    switch (value.type()) {
        case ZVValue::Type::null: out += "<string></string>"; break;
        case ZVValue::Type::boolean: out += *value.boolean() ? "<true/>" : "<false/>"; break;
        case ZVValue::Type::integer:
            out += "<integer>" + std::to_string(*value.integer()) + "</integer>";
            break;
        case ZVValue::Type::unsignedInteger:
            out += "<integer>" + std::to_string(*value.unsignedInteger()) + "</integer>";
            break;
        case ZVValue::Type::real:
            out += "<real>";
            appendReal(out, *value.real());
            out += "</real>";
            break;
        case ZVValue::Type::string:
            out += "<string>";
            appendEscaped(out, *value.string());
            out += "</string>";
            break;
        case ZVValue::Type::date: out += "<date>" + formatDate(*value.date()) + "</date>"; break;
        case ZVValue::Type::data:
            out += "<data>\n";
            appendIndent(out, depth);
            appendBase64(out, *value.data());
            out += "\n";
            appendIndent(out, depth);
            out += "</data>";
            break;
        case ZVValue::Type::array:
            if (value.array()->empty()) {
                out += "<array/>";
                break;
            }
            out += "<array>\n";
            for (const auto& item : *value.array()) {
                appendValue(out, item, depth + 1, spill);
                if (spill) spill->check(out);
            }
            appendIndent(out, depth);
            out += "</array>";
            break;
        case ZVValue::Type::dictionary:
            if (value.dictionary()->empty()) {
                out += "<dict/>";
                break;
            }
            out += "<dict>\n";
            for (const auto& [key, item] : *value.dictionary()) {
                appendIndent(out, depth + 1);
                out += "<key>";
                appendEscaped(out, key);
                out += "</key>\n";
                appendValue(out, item, depth + 1, spill);
                if (spill) spill->check(out);
            }
            appendIndent(out, depth);
            out += "</dict>";
            break;
    }
    out += '\n';
}

// XML reading

std::optional<ZVValue> convertXML(const pugi::xml_node& node, int depth);

std::optional<ZVValue> convertInteger(const char* text) {
    while (*text == ' ' || *text == '\t' || *text == '\n' || *text == '\r') ++text;
    const char* end = text + std::strlen(text);
    while (end > text && (end[-1] == ' ' || end[-1] == '\t' || end[-1] == '\n' || end[-1] == '\r')) --end;
    if (*text == '+') ++text;
    std::int64_t signedValue = 0;
    auto result = std::from_chars(text, end, signedValue);
    if (result.ec == std::errc() && result.ptr == end && end > text) return ZVValue(signedValue);
    std::uint64_t unsignedValue = 0;
    result = std::from_chars(text, end, unsignedValue);
    if (result.ec == std::errc() && result.ptr == end && end > text) return ZVValue(unsignedValue);
    return std::nullopt;
}

std::optional<ZVValue> convertReal(const char* text) {
    while (*text == ' ' || *text == '\n' || *text == '\t') ++text;
    const char* end = text + std::strlen(text);
    while (end > text && (end[-1] == ' ' || end[-1] == '\n' || end[-1] == '\t')) --end;
    bool negative = false;
    if (*text == '+') ++text;
    else if (*text == '-') {
        negative = true;
        ++text;
    }
    double value = 0;
    auto result = std::from_chars(text, end, value);
    if (result.ec != std::errc() || result.ptr != end || end == text) return std::nullopt;
    return ZVValue(negative ? -value : value);
}

std::optional<ZVValue> convertXML(const pugi::xml_node& node, int depth) {
    if (depth > maximumDepth) return std::nullopt;
    const char* name = node.name();
    if (std::strcmp(name, "dict") == 0) {
        ZVDictionary dictionary;
        for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
            if (child.type() != pugi::node_element) continue;
            if (std::strcmp(child.name(), "key") != 0) return std::nullopt;
            pugi::xml_node valueNode = child.next_sibling();
            while (valueNode && valueNode.type() != pugi::node_element) valueNode = valueNode.next_sibling();
            if (!valueNode) return std::nullopt;
            auto value = convertXML(valueNode, depth + 1);
            if (!value) return std::nullopt;
            // Keys usually come sorted, so the hint makes building linear.
            dictionary.insert_or_assign(dictionary.end(), child.text().get(), std::move(*value));
            child = valueNode;
        }
        return ZVValue(std::move(dictionary));
    }
    if (std::strcmp(name, "array") == 0) {
        ZVArray array;
        for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
            if (child.type() != pugi::node_element) continue;
            auto value = convertXML(child, depth + 1);
            if (!value) return std::nullopt;
            array.push_back(std::move(*value));
        }
        return ZVValue(std::move(array));
    }
    if (std::strcmp(name, "string") == 0) return ZVValue(std::string(node.text().get()));
    if (std::strcmp(name, "integer") == 0) return convertInteger(node.text().get());
    if (std::strcmp(name, "real") == 0) return convertReal(node.text().get());
    if (std::strcmp(name, "true") == 0) return ZVValue(true);
    if (std::strcmp(name, "false") == 0) return ZVValue(false);
    if (std::strcmp(name, "date") == 0) {
        auto date = parseDate(node.text().get());
        if (!date) return std::nullopt;
        return ZVValue(*date);
    }
    if (std::strcmp(name, "data") == 0) {
        auto data = decodeBase64(node.text().get());
        if (!data) return std::nullopt;
        return ZVValue(std::move(*data));
    }
    return std::nullopt;
}

// Fast XML reading: the layout of the files this program writes, read in one
// pass straight into values, without a document tree. Whatever it does not
// know for certain (CDATA, processing instructions, attributes on values,
// unknown elements or entities, carriage returns, corrupt text) makes it
// give up, and the general reader decides; so both always agree.

class FastXMLReader {
public:
    using ElementHandler = std::function<void(const std::string&, ZVValue&&, std::size_t)>;

    explicit FastXMLReader(std::string_view text)
        : _begin(text.data()), _p(text.data()), _end(text.data() + text.size()) {}

    // Up to and including the opening tag of the root value's container:
    // the declaration, a DOCTYPE without an internal subset, comments and
    // "<plist ...>".
    bool readProlog() {
        if (_end - _p >= 3 && static_cast<unsigned char>(_p[0]) == 0xEF) return false;  // a byte-order mark
        skipSpace();
        if (startsWith("<?xml")) {
            const char* close = find("?>");
            if (!close) return false;
            // Text in another encoding is left to the general reader.
            const std::string_view declaration(_p, static_cast<size_t>(close - _p));
            if (declaration.find("encoding") != std::string_view::npos &&
                declaration.find("encoding=\"UTF-8\"") == std::string_view::npos &&
                declaration.find("encoding=\"utf-8\"") == std::string_view::npos)
                return false;
            _p = close + 2;
        }
        if (!skipSpace()) return false;
        if (startsWith("<!DOCTYPE")) {
            const char* p = _p;
            while (p < _end && *p != '>' && *p != '[') ++p;
            if (p == _end || *p == '[') return false;
            _p = p + 1;
        }
        if (!skipSpace()) return false;
        if (!startsWith("<plist")) return false;
        const char* p = _p + 6;
        if (p == _end || (*p != '>' && *p != ' ')) return false;
        while (p < _end && *p != '>') ++p;
        if (p == _end || p[-1] == '/') return false;
        _p = p + 1;
        return true;
    }

    // "</plist>" and nothing after it but space and comments.
    bool readEpilogue() {
        if (!skipSpace() || !consume("</plist>") || !skipSpace()) return false;
        return _p == _end;
    }

    std::optional<ZVValue> readValue(int depth) {
        if (depth > maximumDepth || !skipSpace()) return std::nullopt;
        bool empty = false;
        const std::string_view name = openTag(empty);
        if (name.empty()) return std::nullopt;
        if (name == "dict") {
            ZVDictionary dictionary;
            if (empty) return ZVValue(std::move(dictionary));
            for (;;) {
                if (!skipSpace()) return std::nullopt;
                if (consume("</dict>")) return ZVValue(std::move(dictionary));
                std::string key;
                if (!readTextElement("key", key)) return std::nullopt;
                auto value = readValue(depth + 1);
                if (!value) return std::nullopt;
                dictionary.insert_or_assign(dictionary.end(), std::move(key), std::move(*value));
            }
        }
        if (name == "array") {
            ZVArray array;
            if (empty) return ZVValue(std::move(array));
            for (;;) {
                if (!skipSpace()) return std::nullopt;
                if (consume("</array>")) return ZVValue(std::move(array));
                auto value = readValue(depth + 1);
                if (!value) return std::nullopt;
                array.push_back(std::move(*value));
            }
        }
        if (name == "true" || name == "false") {
            if (!empty && !closeTag(name)) return std::nullopt;
            return ZVValue(name == "true");
        }
        std::string text;
        if (name == "integer" || name == "real" || name == "date") {
            // Short text without entities, read in place: a log holds
            // millions of dates.
            char scalar[64] = "";
            if (!empty && !readShortText(name, scalar, sizeof scalar)) return std::nullopt;
            if (name == "integer") return convertInteger(scalar);
            if (name == "real") return convertReal(scalar);
            auto date = parseDate(scalar);
            if (!date) return std::nullopt;
            return ZVValue(*date);
        }
        if (!empty && !readText(name, text)) return std::nullopt;
        if (name == "string") return ZVValue(std::move(text));
        if (name == "data") {
            auto data = decodeBase64(text.c_str());
            if (!data) return std::nullopt;
            return ZVValue(std::move(*data));
        }
        return std::nullopt;
    }

    // The entries of the root dictionary one by one; keys must rise strictly,
    // as a dictionary holds them. With a streamed key, the elements of the
    // array under that key in an entry's dictionary go to `element` one by
    // one, and the entry comes without that key.
    bool readEntries(const std::function<void(std::string&&, ZVValue&&, std::size_t)>& entry,
                     std::string_view streamedKey = {}, const ElementHandler* element = nullptr) {
        if (!readProlog() || !skipSpace()) return false;
        bool empty = false;
        if (openTag(empty) != "dict") return false;
        if (!empty) {
            std::string previous;
            bool first = true;
            for (;;) {
                if (!skipSpace()) return false;
                if (consume("</dict>")) break;
                std::string key;
                if (!readTextElement("key", key) || (!first && key <= previous)) return false;
                auto value = element ? readStreamedDictionary(key, streamedKey, *element) : readValue(1);
                if (!value) return false;
                previous = key;
                first = false;
                entry(std::move(key), std::move(*value), static_cast<std::size_t>(_p - _begin));
            }
        }
        return readEpilogue();
    }

    // A top-level entry's value; when it is a dictionary, the array under
    // `streamedKey` is handed over element by element and left out.
    std::optional<ZVValue> readStreamedDictionary(const std::string& entryKey, std::string_view streamedKey,
                                                  const ElementHandler& element) {
        if (!skipSpace()) return std::nullopt;
        if (!startsWith("<dict>")) return readValue(1);
        _p += 6;
        ZVDictionary dictionary;
        for (;;) {
            if (!skipSpace()) return std::nullopt;
            if (consume("</dict>")) return ZVValue(std::move(dictionary));
            std::string key;
            if (!readTextElement("key", key) || !skipSpace()) return std::nullopt;
            if (key == streamedKey && consume("<array>")) {
                for (;;) {
                    if (!skipSpace()) return std::nullopt;
                    if (consume("</array>")) break;
                    auto value = readValue(3);
                    if (!value) return std::nullopt;
                    element(entryKey, std::move(*value), static_cast<std::size_t>(_p - _begin));
                }
                continue;
            }
            auto value = readValue(2);
            if (!value) return std::nullopt;
            dictionary.insert_or_assign(dictionary.end(), std::move(key), std::move(*value));
        }
    }

    // One entry of a dictionary at the top level as written out: its key
    // line and its value, and nothing after them but space.
    std::optional<std::pair<std::string, ZVValue>> readEntry() {
        std::string key;
        if (!skipSpace() || !readTextElement("key", key)) return std::nullopt;
        auto value = readValue(1);
        if (!value || !skipSpace() || _p != _end) return std::nullopt;
        return std::pair{std::move(key), std::move(*value)};
    }

private:
    bool startsWith(std::string_view text) const {
        return static_cast<size_t>(_end - _p) >= text.size() && std::memcmp(_p, text.data(), text.size()) == 0;
    }
    bool consume(std::string_view text) {
        if (!startsWith(text)) return false;
        _p += text.size();
        return true;
    }
    const char* find(std::string_view text) const {
        const auto found = std::string_view(_p, static_cast<size_t>(_end - _p)).find(text);
        return found == std::string_view::npos ? nullptr : _p + found;
    }
    // Space and comments; false on an unterminated comment.
    bool skipSpace() {
        for (;;) {
            while (_p < _end && (*_p == ' ' || *_p == '\t' || *_p == '\n')) ++_p;
            if (!startsWith("<!--")) return true;
            const char* close = find("-->");
            if (!close) return false;
            _p = close + 3;
        }
    }
    // "<name>" or "<name/>"; empty when something else stands there.
    std::string_view openTag(bool& empty) {
        if (_p == _end || *_p != '<') return {};
        const char* start = _p + 1;
        const char* p = start;
        while (p < _end && *p >= 'a' && *p <= 'z') ++p;
        if (p == start || p == _end) return {};
        empty = *p == '/';
        if (empty) ++p;
        if (p == _end || *p != '>') return {};
        _p = p + 1;
        return {start, static_cast<size_t>(p - start - (empty ? 1 : 0))};
    }
    bool closeTag(std::string_view name) {
        if (!consume("</") || !consume(name)) return false;
        return consume(">");
    }
    bool readTextElement(std::string_view expected, std::string& text) {
        bool empty = false;
        if (openTag(empty) != expected) return false;
        return empty || readText(expected, text);
    }
    // Character data up to the closing tag, with its entities replaced.
    bool readText(std::string_view name, std::string& text) {
        const char* p = _p;
        while (p < _end && *p != '<' && *p != '&' && *p != '\r') ++p;
        text.assign(_p, p);
        while (p < _end && *p == '&') {
            if (!appendEntity(p, text)) return false;
            const char* run = p;
            while (p < _end && *p != '<' && *p != '&' && *p != '\r') ++p;
            text.append(run, p);
        }
        _p = p;
        return closeTag(name);
    }
    // Text of fewer than `capacity` characters with no entity, copied with a
    // terminating zero; anything else is left to the general reader.
    bool readShortText(std::string_view name, char* text, std::size_t capacity) {
        const char* p = _p;
        while (p < _end && *p != '<' && *p != '&' && *p != '\r') ++p;
        const auto length = static_cast<std::size_t>(p - _p);
        if (p == _end || *p != '<' || length >= capacity) return false;
        std::memcpy(text, _p, length);
        text[length] = '\0';
        _p = p;
        return closeTag(name);
    }
    bool appendEntity(const char*& p, std::string& text) {
        const char* semicolon = static_cast<const char*>(std::memchr(p, ';', std::min<size_t>(12, static_cast<size_t>(_end - p))));
        if (!semicolon) return false;
        const std::string_view entity(p + 1, static_cast<size_t>(semicolon - p - 1));
        p = semicolon + 1;
        if (entity == "amp") text += '&';
        else if (entity == "lt") text += '<';
        else if (entity == "gt") text += '>';
        else if (entity == "quot") text += '"';
        else if (entity == "apos") text += '\'';
        else if (entity.size() >= 2 && entity[0] == '#') {
            const bool hex = entity[1] == 'x';
            const std::string_view digits = entity.substr(hex ? 2 : 1);
            std::uint32_t code = 0;
            const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
            if (digits.empty() || result.ec != std::errc() || result.ptr != digits.data() + digits.size()) return false;
            if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
            appendUTF8(text, code);
        } else {
            return false;
        }
        return true;
    }
    static void appendUTF8(std::string& text, std::uint32_t code) {
        if (code < 0x80) {
            text += static_cast<char>(code);
        } else if (code < 0x800) {
            text += static_cast<char>(0xC0 | (code >> 6));
            text += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            text += static_cast<char>(0xE0 | (code >> 12));
            text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            text += static_cast<char>(0xF0 | (code >> 18));
            text += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    const char* _begin;
    const char* _p;
    const char* _end;
};

std::optional<ZVValue> readXMLFast(std::string_view bytes) {
    FastXMLReader reader(bytes);
    if (!reader.readProlog()) return std::nullopt;
    auto value = reader.readValue(0);
    if (!value || !reader.readEpilogue()) return std::nullopt;
    return value;
}

std::optional<ZVValue> readXMLDocument(pugi::xml_document& document, const pugi::xml_parse_result& result) {
    if (!result) return std::nullopt;
    pugi::xml_node root = document.document_element();
    if (std::strcmp(root.name(), "plist") == 0) {
        root = root.first_child();
        while (root && root.type() != pugi::node_element) root = root.next_sibling();
        if (!root) return std::nullopt;
    }
    return convertXML(root, 0);
}

constexpr unsigned xmlParseOptions = pugi::parse_default | pugi::parse_ws_pcdata_single;

std::optional<ZVValue> readXML(const std::string& bytes) {
    if (auto value = readXMLFast(bytes)) return value;
    pugi::xml_document document;
    return readXMLDocument(document, document.load_buffer(bytes.data(), bytes.size(), xmlParseOptions));
}

// Parses in the caller's buffer, which it consumes: a large file is not
// held twice.
std::optional<ZVValue> readXMLInPlace(std::string& bytes) {
    if (auto value = readXMLFast(bytes)) return value;
    pugi::xml_document document;
    return readXMLDocument(document, document.load_buffer_inplace(bytes.data(), bytes.size(), xmlParseOptions));
}

// Binary reading through libplist

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPointer = std::unique_ptr<void, PlistDeleter>;

std::optional<ZVValue> convertPlist(plist_t node, int depth);

// libplist 2.2 keeps integers as 64 bits without a public sign flag; its XML
// writer knows whether a large one was stored unsigned, so ask it.
bool storedAsNegative(plist_t node) {
    char* xml = nullptr;
    uint32_t length = 0;
    plist_t copy = plist_copy(node);
    plist_t array = plist_new_array();
    plist_array_append_item(array, copy);
    plist_to_xml(array, &xml, &length);
    bool negative = xml && std::strstr(xml, "<integer>-") != nullptr;
    std::free(xml);
    plist_free(array);
    return negative;
}

std::optional<ZVValue> convertPlist(plist_t node, int depth) {
    if (depth > maximumDepth || !node) return std::nullopt;
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return ZVValue(value != 0);
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            if (value > static_cast<uint64_t>(std::numeric_limits<std::int64_t>::max()) && !storedAsNegative(node))
                return ZVValue(static_cast<std::uint64_t>(value));
            return ZVValue(static_cast<std::int64_t>(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return ZVValue(value);
        }
        case PLIST_STRING: {
            uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            return ZVValue(std::string(text ? text : "", text ? length : 0));
        }
        case PLIST_DATE: {
            int32_t seconds = 0, micros = 0;
            plist_get_date_val(node, &seconds, &micros);
            return ZVValue(ZVDate(std::chrono::duration<double>(referenceDateOffset + seconds + micros / 1e6)));
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
            return ZVValue(bytes ? ZVData(begin, begin + length) : ZVData());
        }
        case PLIST_ARRAY: {
            ZVArray array;
            uint32_t count = plist_array_get_size(node);
            array.reserve(count);
            for (uint32_t i = 0; i < count; ++i) {
                auto value = convertPlist(plist_array_get_item(node, i), depth + 1);
                if (!value) return std::nullopt;
                array.push_back(std::move(*value));
            }
            return ZVValue(std::move(array));
        }
        case PLIST_DICT: {
            ZVDictionary dictionary;
            plist_dict_iter iterator = nullptr;
            plist_dict_new_iter(node, &iterator);
            while (iterator) {
                char* key = nullptr;
                plist_t item = nullptr;
                plist_dict_next_item(node, iterator, &key, &item);
                if (!key) break;
                std::string keyString(key);
                std::free(key);
                auto value = convertPlist(item, depth + 1);
                if (!value) {
                    std::free(iterator);
                    return std::nullopt;
                }
                dictionary.insert_or_assign(std::move(keyString), std::move(*value));
            }
            std::free(iterator);
            return ZVValue(std::move(dictionary));
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return ZVValue(static_cast<std::uint64_t>(value));
        }
        default: return std::nullopt;
    }
}

std::optional<ZVValue> readBinary(const std::string& bytes) {
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    plist_t root = nullptr;
    plist_from_bin(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    if (!root) return std::nullopt;
    PlistPointer owner(root);
    return convertPlist(root, 0);
}

}  // namespace

namespace ZVPropertyList {

std::optional<ZVValue> read(const std::string& bytes) {
    if (bytes.size() >= 8 && bytes.compare(0, 6, "bplist") == 0) return readBinary(bytes);
    return readXML(bytes);
}

namespace {
constexpr const char* xmlHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr const char* xmlFooter = "</plist>\n";

// Copies `length` bytes at `offset` of one file to the end of another, in
// the kernel where it can.
bool copyRange(int from, std::uint64_t offset, std::uint64_t length, int to) {
    auto position = static_cast<off_t>(offset);
    while (length > 0) {
        const ssize_t copied = ::copy_file_range(from, &position, to, nullptr, static_cast<size_t>(length), 0);
        if (copied < 0 && errno == EINTR) continue;
        if (copied <= 0) break;
        length -= static_cast<std::uint64_t>(copied);
    }
    // File systems without copy_file_range between these two files: by hand.
    std::vector<char> buffer(1 << 20);
    while (length > 0) {
        const ssize_t got = ::pread(from, buffer.data(), std::min<std::uint64_t>(length, buffer.size()), position);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        if (!ZVPaths::writeAll(to, buffer.data(), static_cast<size_t>(got))) return false;
        position += got;
        length -= static_cast<std::uint64_t>(got);
    }
    return true;
}
}  // namespace

std::string writeXML(const ZVValue& value) {
    std::string out = xmlHeader;
    appendValue(out, value, 0);
    out += xmlFooter;
    return out;
}

std::string dictionaryEntryXML(const std::string& key, const ZVValue& value) {
    std::string entry = "\t<key>";
    appendEscaped(entry, key);
    entry += "</key>\n";
    appendValue(entry, value, 1);
    return entry;
}

bool writeDictionaryFile(const std::string& path, unsigned permissions, const std::map<std::string, const ZVValue*>& values,
                         const EntryRanges& copiedRanges, EntryRanges& newRanges) {
    std::map<std::string, ValueSource> sources;
    for (const auto& entry : values)
        sources[entry.first] = [&entry](ZVValue& value) {
            value = *entry.second;
            return true;
        };
    return writeDictionaryFileValues(path, permissions, sources, copiedRanges, newRanges);
}

namespace {
// Writes one given entry: its text goes into `out`, which the writer may
// hand to the file on the way (`hand`); no text leaves the entry out.
using EntryWriter = std::function<bool(std::string& out, const std::function<bool(std::string_view)>& hand)>;

bool writeEntries(const std::string& path, unsigned permissions, const std::map<std::string, EntryWriter>& given,
                  const EntryRanges& copiedRanges, EntryRanges& newRanges,
                  const std::function<bool(std::uint64_t size)>& beforeReplacing) {
    std::vector<std::string> keys;
    keys.reserve(given.size() + copiedRanges.size());
    for (const auto& entry : given) keys.push_back(entry.first);
    for (const auto& entry : copiedRanges)
        if (!given.contains(entry.first)) keys.push_back(entry.first);
    std::sort(keys.begin(), keys.end());

    int source = -1;
    if (keys.size() > given.size()) {
        source = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (source < 0) return false;
    }
    EntryRanges written;
    const bool ok = ZVPaths::writeFileAtomically(path, permissions, [&](int fd) {
        std::uint64_t position = 0;
        const std::function<bool(std::string_view)> hand = [&](std::string_view text) {
            position += text.size();
            return ZVPaths::writeAll(fd, text.data(), text.size());
        };
        std::string pending = xmlHeader;
        const auto flush = [&] {
            const bool flushed = hand(pending);
            pending.clear();
            return flushed;
        };
        pending += keys.empty() ? "<dict/>\n" : "<dict>\n";
        for (const auto& key : keys) {
            if (!flush()) return false;
            const std::uint64_t start = position;
            if (const auto writer = given.find(key); writer != given.end()) {
                if (!writer->second(pending, hand) || !flush()) return false;
            } else {
                const EntryRange& range = copiedRanges.at(key);
                if (!copyRange(source, range.offset, range.length, fd)) return false;
                position += range.length;
            }
            if (position > start) written[key] = {start, position - start};
        }
        if (!keys.empty()) pending += "</dict>\n";
        pending += xmlFooter;
        return flush() && (!beforeReplacing || beforeReplacing(position));
    });
    if (source >= 0) ::close(source);
    if (ok) newRanges = std::move(written);
    return ok;
}
}  // namespace

bool writeDictionaryFileEntries(const std::string& path, unsigned permissions, const std::map<std::string, std::string>& values,
                                const EntryRanges& copiedRanges, EntryRanges& newRanges,
                                const std::function<bool(std::uint64_t size)>& beforeReplacing) {
    std::map<std::string, EntryWriter> given;
    for (const auto& entry : values)
        given[entry.first] = [&entry](std::string& out, const std::function<bool(std::string_view)>& hand) {
            return hand(out) && (out.clear(), hand(entry.second));
        };
    return writeEntries(path, permissions, given, copiedRanges, newRanges, beforeReplacing);
}

bool writeDictionaryFileValues(const std::string& path, unsigned permissions, const std::map<std::string, ValueSource>& sources,
                               const EntryRanges& copiedRanges, EntryRanges& newRanges,
                               const std::function<bool(std::uint64_t size)>& beforeReplacing) {
    std::map<std::string, EntryWriter> given;
    for (const auto& entry : sources)
        given[entry.first] = [&entry](std::string& out, const std::function<bool(std::string_view)>& hand) {
            ZVValue value;
            if (!entry.second(value)) return false;
            if (value.isNull()) return true;
            out += "\t<key>";
            appendEscaped(out, entry.first);
            out += "</key>\n";
            Spill spill{&hand};
            appendValue(out, value, 1, &spill);
            return !spill.failed;
        };
    return writeEntries(path, permissions, given, copiedRanges, newRanges, beforeReplacing);
}

std::optional<std::pair<std::string, ZVValue>> readDictionaryEntry(std::string_view entry) {
    if (auto read = FastXMLReader(entry).readEntry()) return read;
    // Anything the fast reader leaves alone goes through the general one,
    // framed as a property list of its own.
    std::string single = std::string(xmlHeader) + "<dict>\n";
    single.append(entry);
    single += "</dict>\n";
    single += xmlFooter;
    std::optional<ZVValue> root = readConsuming(single);
    const ZVDictionary* dictionary = root ? root->dictionary() : nullptr;
    if (!dictionary || dictionary->size() != 1) return std::nullopt;
    return std::pair{dictionary->begin()->first, dictionary->begin()->second};
}

std::optional<ZVValue> readFile(const std::string& path) {
    std::string bytes;
    if (!ZVPaths::readFile(path, bytes)) return std::nullopt;
    return readConsuming(bytes);
}

std::optional<ZVValue> readConsuming(std::string& bytes) {
    if (bytes.size() >= 8 && bytes.compare(0, 6, "bplist") == 0) return readBinary(bytes);
    return readXMLInPlace(bytes);
}

bool readDictionaryEntries(std::string_view bytes,
                           const std::function<void(std::string&&, ZVValue&&, std::size_t)>& entry) {
    return FastXMLReader(bytes).readEntries(entry);
}

bool readDictionaryEntries(std::string_view bytes, std::string_view streamedKey,
                           const std::function<void(const std::string&, ZVValue&&, std::size_t reached)>& element,
                           const std::function<void(std::string&&, ZVValue&&, std::size_t reached)>& entry) {
    return FastXMLReader(bytes).readEntries(entry, streamedKey, &element);
}

std::optional<EntryRanges> dictionaryEntryRanges(std::string_view bytes) {
    // The layout writeXML gives a dictionary: the header, "<dict>", each
    // entry from a line "\t<key>...</key>" (one tab: the top level; a "<"
    // inside text is always escaped), then "</dict>" and "</plist>".
    const std::string opening = std::string(xmlHeader) + "<dict>\n";
    const std::string closing = "</dict>\n" + std::string(xmlFooter);
    if (bytes.size() < opening.size() + closing.size() || bytes.compare(0, opening.size(), opening) != 0 ||
        bytes.compare(bytes.size() - closing.size(), closing.size(), closing) != 0)
        return std::nullopt;
    const std::size_t end = bytes.size() - closing.size();
    static const std::string keyLine = "\n\t<key>";
    EntryRanges ranges;
    std::size_t start = opening.size();
    if (bytes.compare(start, keyLine.size() - 1, std::string_view(keyLine).substr(1)) != 0) return std::nullopt;
    while (start < end) {
        const std::size_t keyStart = start + keyLine.size() - 1;
        const std::size_t keyEnd = bytes.find("</key>\n", keyStart);
        if (keyEnd == std::string::npos || keyEnd >= end) return std::nullopt;
        const std::size_t next = bytes.find(std::string_view(keyLine), keyEnd);
        const std::size_t entryEnd = next == std::string::npos || next >= end ? end : next + 1;
        // The key as it reads, entities and all.
        pugi::xml_document key;
        const std::string element = "<key>" + std::string(bytes.substr(keyStart, keyEnd - keyStart)) + "</key>";
        if (!key.load_buffer(element.data(), element.size(), pugi::parse_default)) return std::nullopt;
        ranges[key.first_child().text().get()] = {start, entryEnd - start};
        start = entryEnd;
    }
    return ranges;
}

bool writeFile(const ZVValue& value, const std::string& path) {
    return ZVPaths::writeFileAtomically(path, writeXML(value));
}

bool writeFile(const ZVValue& value, const std::string& path, unsigned permissions) {
    return ZVPaths::writeFileAtomically(path, writeXML(value), permissions);
}

}  // namespace ZVPropertyList
