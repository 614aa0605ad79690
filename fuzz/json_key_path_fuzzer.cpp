// The JSON key-path helpers: the first line of the input is a key path, the
// rest a JSON document as a service might send it.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ZVJSON.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t newline = input.find('\n');
    const std::string_view keyPath = input.substr(0, newline);
    const std::string_view body = newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);

    ZVJSON::keyPathComponents(keyPath);
    const nlohmann::json root = nlohmann::json::parse(body, nullptr, false);
    if (root.is_discarded()) return 0;

    const std::string key(keyPath);
    ZVJSON::value(root, keyPath);
    ZVJSON::string(root, keyPath);
    ZVJSON::integer(root, keyPath);
    ZVJSON::optionalInteger(root, keyPath);
    ZVJSON::doubleValue(root, keyPath);
    ZVJSON::boolean(root, keyPath);
    ZVJSON::dictionary(root, keyPath);
    ZVJSON::arrayOfDictionaries(root, keyPath);
    ZVJSON::firstNonNilValue(root, {keyPath, "[0]", "id"});
    if (root.is_object()) {
        ZVJSON::integerForKey(root, key);
        ZVJSON::doubleForKey(root, key);
        ZVJSON::booleanForKey(root, key);
        ZVJSON::urlQueryString(root);
    }
    return 0;
}
