#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// A property-list value: what the database file, the preferences store and
/// every stored dictionary are made of. Dictionaries are string-keyed and
/// ordered by key. A value of the wrong type reads as absent, never throws.
class ZVValue;

using ZVDictionary = std::map<std::string, ZVValue>;
using ZVArray = std::vector<ZVValue>;
using ZVData = std::vector<std::uint8_t>;

/// A point in time, kept with sub-second precision as in a property list.
using ZVDate = std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>;

class ZVValue {
public:
    enum class Type { null, boolean, integer, unsignedInteger, real, string, date, data, array, dictionary };

    ZVValue() = default;
    ZVValue(std::nullptr_t) {}
    ZVValue(bool v) : _v(v) {}
    ZVValue(int v) : _v(std::int64_t{v}) {}
    ZVValue(long v) : _v(std::int64_t{v}) {}
    ZVValue(long long v) : _v(std::int64_t{v}) {}
    ZVValue(unsigned v) : _v(std::int64_t{v}) {}
    ZVValue(unsigned long v) : _v(std::uint64_t{v}) {}
    ZVValue(unsigned long long v) : _v(std::uint64_t{v}) {}
    ZVValue(double v) : _v(v) {}
    ZVValue(const char* v) : _v(std::string(v)) {}
    ZVValue(std::string v) : _v(std::move(v)) {}
    ZVValue(std::string_view v) : _v(std::string(v)) {}
    ZVValue(ZVDate v) : _v(v) {}
    ZVValue(ZVData v) : _v(std::move(v)) {}
    ZVValue(ZVArray v) : _v(std::make_shared<ZVArray>(std::move(v))) {}
    ZVValue(ZVDictionary v) : _v(std::make_shared<ZVDictionary>(std::move(v))) {}

    Type type() const { return static_cast<Type>(_v.index()); }
    bool isNull() const { return type() == Type::null; }
    bool isBoolean() const { return type() == Type::boolean; }
    bool isNumber() const {
        return type() == Type::integer || type() == Type::unsignedInteger || type() == Type::real;
    }
    bool isString() const { return type() == Type::string; }
    bool isDate() const { return type() == Type::date; }
    bool isData() const { return type() == Type::data; }
    bool isArray() const { return type() == Type::array; }
    bool isDictionary() const { return type() == Type::dictionary; }

    /// Typed reads: absent when the value holds another type. Numbers convert
    /// among each other (as a number object would), but never from strings.
    std::optional<bool> boolean() const;
    std::optional<std::int64_t> integer() const;
    std::optional<std::uint64_t> unsignedInteger() const;
    std::optional<double> real() const;
    const std::string* string() const { return std::get_if<std::string>(&_v); }
    std::optional<ZVDate> date() const;
    const ZVData* data() const { return std::get_if<ZVData>(&_v); }
    const ZVArray* array() const;
    const ZVDictionary* dictionary() const;
    ZVArray* mutableArray();
    ZVDictionary* mutableDictionary();

    /// Dictionary member, or a shared null value when absent or not a dictionary.
    const ZVValue& operator[](const std::string& key) const;

    bool operator==(const ZVValue& other) const;
    bool operator!=(const ZVValue& other) const { return !(*this == other); }

    /// A short human-readable form for log lines (not a serialization).
    std::string description() const;

private:
    // Containers sit behind shared pointers so that copying a large tree is
    // cheap; mutable access copies on write when the storage is shared.
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, ZVDate,
                 ZVData, std::shared_ptr<ZVArray>, std::shared_ptr<ZVDictionary>>
        _v;
};

/// Typed reads from a dictionary by key, defaulting like the stored forms do:
/// a missing key or a value of the wrong type gives the default.
std::string ZVStringValue(const ZVDictionary& d, const std::string& key, const std::string& fallback = {});
std::optional<std::string> ZVOptionalString(const ZVDictionary& d, const std::string& key);
bool ZVBoolValue(const ZVDictionary& d, const std::string& key, bool fallback = false);
std::int64_t ZVIntegerValue(const ZVDictionary& d, const std::string& key, std::int64_t fallback = 0);
std::uint64_t ZVUnsignedValue(const ZVDictionary& d, const std::string& key, std::uint64_t fallback = 0);
double ZVRealValue(const ZVDictionary& d, const std::string& key, double fallback = 0);
std::optional<ZVDate> ZVDateValue(const ZVDictionary& d, const std::string& key);
const ZVArray* ZVArrayValue(const ZVDictionary& d, const std::string& key);
const ZVDictionary* ZVDictionaryValue(const ZVDictionary& d, const std::string& key);
