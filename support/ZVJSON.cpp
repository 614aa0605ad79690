#include "ZVJSON.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "ZVHelpers.h"

namespace ZVJSON {

std::optional<std::vector<std::string>> keyPathComponents(std::string_view keyPath) {
    std::vector<std::string> components;
    if (keyPath.empty() || keyPath.front() != '[') {
        components.emplace_back(keyPath);
        return components;
    }
    size_t i = 0;
    while (i < keyPath.size()) {
        if (keyPath[i] != '[') return std::nullopt;
        size_t close = keyPath.find(']', i + 1);
        if (close == std::string_view::npos) return std::nullopt;
        components.emplace_back(keyPath.substr(i + 1, close - i - 1));
        i = close + 1;
    }
    return components;
}

namespace {

std::optional<size_t> arrayIndex(const std::string& component) {
    size_t index = 0;
    auto result = std::from_chars(component.data(), component.data() + component.size(), index);
    if (result.ec != std::errc() || result.ptr != component.data() + component.size() || component.empty())
        return std::nullopt;
    return index;
}

const nlohmann::json* member(const nlohmann::json& object, const std::string& key) {
    if (!object.is_object()) return nullptr;
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return nullptr;
    return &*it;
}

std::optional<std::int64_t> toInteger(const nlohmann::json& value) {
    if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
    if (value.is_number_integer()) return value.get<std::int64_t>();
    if (value.is_number_unsigned()) return static_cast<std::int64_t>(value.get<std::uint64_t>());
    if (value.is_number_float()) {
        double d = value.get<double>();
        if (std::isnan(d) || std::fabs(d) >= 9.2e18) return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    if (value.is_string()) return ZVStringIntegerValue(value.get_ref<const std::string&>());
    return std::nullopt;
}

std::optional<double> toDouble(const nlohmann::json& value) {
    if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
    if (value.is_number()) return value.get<double>();
    if (value.is_string()) return ZVStringDoubleValue(value.get_ref<const std::string&>());
    return std::nullopt;
}

std::optional<bool> toBoolean(const nlohmann::json& value) {
    if (value.is_boolean()) return value.get<bool>();
    if (value.is_number()) return value.get<double>() != 0.0;
    return std::nullopt;
}

}  // namespace

const nlohmann::json* value(const nlohmann::json& root, std::string_view keyPath) {
    auto components = keyPathComponents(keyPath);
    if (!components) return nullptr;
    const nlohmann::json* current = &root;
    for (const auto& component : *components) {
        if (current->is_array()) {
            auto index = arrayIndex(component);
            if (!index || *index >= current->size()) return nullptr;
            current = &(*current)[*index];
            if (current->is_null()) return nullptr;
        } else {
            current = member(*current, component);
            if (!current) return nullptr;
        }
    }
    return current->is_null() ? nullptr : current;
}

std::optional<std::string> string(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    if (!found || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::optional<std::int64_t> optionalInteger(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    return found ? toInteger(*found) : std::nullopt;
}

std::int64_t integer(const nlohmann::json& root, std::string_view keyPath) {
    return optionalInteger(root, keyPath).value_or(0);
}

std::int64_t integerForKey(const nlohmann::json& object, const std::string& key) {
    const nlohmann::json* found = member(object, key);
    return found ? toInteger(*found).value_or(0) : 0;
}

double doubleForKey(const nlohmann::json& object, const std::string& key) {
    const nlohmann::json* found = member(object, key);
    return found ? toDouble(*found).value_or(0.0) : 0.0;
}

double doubleValue(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    return found ? toDouble(*found).value_or(0.0) : 0.0;
}

bool booleanForKey(const nlohmann::json& object, const std::string& key) {
    const nlohmann::json* found = member(object, key);
    return found ? toBoolean(*found).value_or(false) : false;
}

bool boolean(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    return found ? toBoolean(*found).value_or(false) : false;
}

const nlohmann::json* dictionary(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    return found && found->is_object() ? found : nullptr;
}

std::optional<std::vector<nlohmann::json>> arrayOfDictionaries(const nlohmann::json& root, std::string_view keyPath) {
    const nlohmann::json* found = value(root, keyPath);
    if (!found || !found->is_array()) return std::nullopt;
    std::vector<nlohmann::json> result;
    result.reserve(found->size());
    for (const auto& element : *found) {
        if (!element.is_object()) return std::nullopt;
        result.push_back(element);
    }
    return result;
}

const nlohmann::json* firstNonNilValue(const nlohmann::json& root, std::initializer_list<std::string_view> keyPaths) {
    for (std::string_view path : keyPaths) {
        if (const nlohmann::json* found = value(root, path)) return found;
    }
    return nullptr;
}

std::string urlQueryString(const nlohmann::json& object) {
    if (!object.is_object()) return {};
    std::vector<std::pair<std::string, std::string>> pairs;
    for (auto it = object.begin(); it != object.end(); ++it) {
        pairs.emplace_back(it.key(), it->is_string() ? it->get<std::string>() : it->dump());
    }
    return ZVURLQueryString(pairs);
}

}  // namespace ZVJSON
