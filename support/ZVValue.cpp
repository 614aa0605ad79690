#include "ZVValue.h"

#include <cmath>
#include <limits>
#include <sstream>

namespace {

const ZVValue& nullValue() {
    static const ZVValue value;
    return value;
}

// Like a number object: a real converts to an integer by cutting off; values
// out of range are clamped instead of being undefined.
std::int64_t realToInteger(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 9.2233720368547758e18) return std::numeric_limits<std::int64_t>::max();
    if (v <= -9.2233720368547758e18) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(v);
}

std::uint64_t realToUnsigned(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 1.8446744073709552e19) return std::numeric_limits<std::uint64_t>::max();
    if (v < 0) return static_cast<std::uint64_t>(realToInteger(v));
    return static_cast<std::uint64_t>(v);
}

}  // namespace

std::optional<bool> ZVValue::boolean() const {
    switch (type()) {
        case Type::boolean: return std::get<bool>(_v);
        case Type::integer: return std::get<std::int64_t>(_v) != 0;
        case Type::unsignedInteger: return std::get<std::uint64_t>(_v) != 0;
        case Type::real: return std::get<double>(_v) != 0.0;
        default: return std::nullopt;
    }
}

std::optional<std::int64_t> ZVValue::integer() const {
    switch (type()) {
        case Type::boolean: return std::get<bool>(_v) ? 1 : 0;
        case Type::integer: return std::get<std::int64_t>(_v);
        case Type::unsignedInteger: return static_cast<std::int64_t>(std::get<std::uint64_t>(_v));
        case Type::real: return realToInteger(std::get<double>(_v));
        default: return std::nullopt;
    }
}

std::optional<std::uint64_t> ZVValue::unsignedInteger() const {
    switch (type()) {
        case Type::boolean: return std::get<bool>(_v) ? 1u : 0u;
        case Type::integer: return static_cast<std::uint64_t>(std::get<std::int64_t>(_v));
        case Type::unsignedInteger: return std::get<std::uint64_t>(_v);
        case Type::real: return realToUnsigned(std::get<double>(_v));
        default: return std::nullopt;
    }
}

std::optional<double> ZVValue::real() const {
    switch (type()) {
        case Type::boolean: return std::get<bool>(_v) ? 1.0 : 0.0;
        case Type::integer: return static_cast<double>(std::get<std::int64_t>(_v));
        case Type::unsignedInteger: return static_cast<double>(std::get<std::uint64_t>(_v));
        case Type::real: return std::get<double>(_v);
        default: return std::nullopt;
    }
}

std::optional<ZVDate> ZVValue::date() const {
    if (auto d = std::get_if<ZVDate>(&_v)) return *d;
    return std::nullopt;
}

const ZVArray* ZVValue::array() const {
    if (auto p = std::get_if<std::shared_ptr<ZVArray>>(&_v)) return p->get();
    return nullptr;
}

const ZVDictionary* ZVValue::dictionary() const {
    if (auto p = std::get_if<std::shared_ptr<ZVDictionary>>(&_v)) return p->get();
    return nullptr;
}

ZVArray* ZVValue::mutableArray() {
    auto p = std::get_if<std::shared_ptr<ZVArray>>(&_v);
    if (!p) return nullptr;
    if (p->use_count() > 1) *p = std::make_shared<ZVArray>(**p);
    return p->get();
}

ZVDictionary* ZVValue::mutableDictionary() {
    auto p = std::get_if<std::shared_ptr<ZVDictionary>>(&_v);
    if (!p) return nullptr;
    if (p->use_count() > 1) *p = std::make_shared<ZVDictionary>(**p);
    return p->get();
}

const ZVValue& ZVValue::operator[](const std::string& key) const {
    const ZVDictionary* d = dictionary();
    if (!d) return nullValue();
    auto it = d->find(key);
    return it == d->end() ? nullValue() : it->second;
}

bool ZVValue::operator==(const ZVValue& other) const {
    // Numbers compare by value whatever their storage, as number objects do.
    if (isNumber() && other.isNumber()) {
        if (type() == Type::real || other.type() == Type::real) return *real() == *other.real();
        bool negA = type() == Type::integer && std::get<std::int64_t>(_v) < 0;
        bool negB = other.type() == Type::integer && std::get<std::int64_t>(other._v) < 0;
        if (negA != negB) return false;
        return *unsignedInteger() == *other.unsignedInteger();
    }
    if (type() != other.type()) return false;
    switch (type()) {
        case Type::null: return true;
        case Type::boolean: return std::get<bool>(_v) == std::get<bool>(other._v);
        case Type::string: return std::get<std::string>(_v) == std::get<std::string>(other._v);
        case Type::date: return std::get<ZVDate>(_v) == std::get<ZVDate>(other._v);
        case Type::data: return std::get<ZVData>(_v) == std::get<ZVData>(other._v);
        case Type::array: {
            const ZVArray* a = array();
            const ZVArray* b = other.array();
            return a == b || *a == *b;
        }
        case Type::dictionary: {
            const ZVDictionary* a = dictionary();
            const ZVDictionary* b = other.dictionary();
            return a == b || *a == *b;
        }
        default: return false;
    }
}

std::string ZVValue::description() const {
    std::ostringstream out;
    switch (type()) {
        case Type::null: out << "null"; break;
        case Type::boolean: out << (std::get<bool>(_v) ? "true" : "false"); break;
        case Type::integer: out << std::get<std::int64_t>(_v); break;
        case Type::unsignedInteger: out << std::get<std::uint64_t>(_v); break;
        case Type::real: out << std::get<double>(_v); break;
        case Type::string: out << '"' << std::get<std::string>(_v) << '"'; break;
        case Type::date:
            out << "<date " << std::get<ZVDate>(_v).time_since_epoch().count() << ">";
            break;
        case Type::data: out << "<" << std::get<ZVData>(_v).size() << " bytes>"; break;
        case Type::array: {
            out << "(";
            bool first = true;
            for (const auto& v : *array()) {
                out << (first ? "" : ", ") << v.description();
                first = false;
            }
            out << ")";
            break;
        }
        case Type::dictionary: {
            out << "{";
            bool first = true;
            for (const auto& [k, v] : *dictionary()) {
                out << (first ? "" : ", ") << k << " = " << v.description();
                first = false;
            }
            out << "}";
            break;
        }
    }
    return out.str();
}

namespace {
const ZVValue* member(const ZVDictionary& d, const std::string& key) {
    auto it = d.find(key);
    return it == d.end() ? nullptr : &it->second;
}
}  // namespace

std::string ZVStringValue(const ZVDictionary& d, const std::string& key, const std::string& fallback) {
    const ZVValue* v = member(d, key);
    return v && v->string() ? *v->string() : fallback;
}

std::optional<std::string> ZVOptionalString(const ZVDictionary& d, const std::string& key) {
    const ZVValue* v = member(d, key);
    if (v && v->string()) return *v->string();
    return std::nullopt;
}

bool ZVBoolValue(const ZVDictionary& d, const std::string& key, bool fallback) {
    const ZVValue* v = member(d, key);
    return v ? v->boolean().value_or(fallback) : fallback;
}

std::int64_t ZVIntegerValue(const ZVDictionary& d, const std::string& key, std::int64_t fallback) {
    const ZVValue* v = member(d, key);
    return v ? v->integer().value_or(fallback) : fallback;
}

std::uint64_t ZVUnsignedValue(const ZVDictionary& d, const std::string& key, std::uint64_t fallback) {
    const ZVValue* v = member(d, key);
    return v ? v->unsignedInteger().value_or(fallback) : fallback;
}

double ZVRealValue(const ZVDictionary& d, const std::string& key, double fallback) {
    const ZVValue* v = member(d, key);
    return v ? v->real().value_or(fallback) : fallback;
}

std::optional<ZVDate> ZVDateValue(const ZVDictionary& d, const std::string& key) {
    const ZVValue* v = member(d, key);
    return v ? v->date() : std::nullopt;
}

const ZVArray* ZVArrayValue(const ZVDictionary& d, const std::string& key) {
    const ZVValue* v = member(d, key);
    return v ? v->array() : nullptr;
}

const ZVDictionary* ZVDictionaryValue(const ZVDictionary& d, const std::string& key) {
    const ZVValue* v = member(d, key);
    return v ? v->dictionary() : nullptr;
}
