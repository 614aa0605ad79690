#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

/// Reads from parsed JSON by key path: "[fields][summary]" or "[data][0][id]"
/// reach into nested objects and arrays (a number indexes an array); a path
/// without brackets is one plain key. A missing step, a bad path or a JSON
/// null gives absent; nothing throws.
namespace ZVJSON {

const nlohmann::json* value(const nlohmann::json& root, std::string_view keyPath);
/// A string only; a number is not converted.
std::optional<std::string> string(const nlohmann::json& root, std::string_view keyPath);
/// An integer, 0 when missing; a numeric string counts, a real is cut off,
/// a boolean is 0 or 1.
std::int64_t integer(const nlohmann::json& root, std::string_view keyPath);
std::optional<std::int64_t> optionalInteger(const nlohmann::json& root, std::string_view keyPath);
/// The same for one plain key (brackets in it are part of the key).
std::int64_t integerForKey(const nlohmann::json& object, const std::string& key);
/// A number or numeric string as double, 0 when missing.
double doubleForKey(const nlohmann::json& object, const std::string& key);
double doubleValue(const nlohmann::json& root, std::string_view keyPath);
/// A boolean, false when missing; numbers read as "not zero".
bool booleanForKey(const nlohmann::json& object, const std::string& key);
bool boolean(const nlohmann::json& root, std::string_view keyPath);
/// An object, absent otherwise.
const nlohmann::json* dictionary(const nlohmann::json& root, std::string_view keyPath);
/// An array whose elements are all objects; absent otherwise.
std::optional<std::vector<nlohmann::json>> arrayOfDictionaries(const nlohmann::json& root, std::string_view keyPath);
/// The value of the first path that yields one.
const nlohmann::json* firstNonNilValue(const nlohmann::json& root, std::initializer_list<std::string_view> keyPaths);
/// An object's members as "key=value" joined with "&", values percent-encoded
/// (strings as they are, other values in their JSON form).
std::string urlQueryString(const nlohmann::json& object);

/// Splits a key path into its components; absent when the brackets do not match.
std::optional<std::vector<std::string>> keyPathComponents(std::string_view keyPath);

}  // namespace ZVJSON
