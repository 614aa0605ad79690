#include "ZVURLRequest.h"

#include <strings.h>

#include "ZVHelpers.h"

namespace {

bool sameName(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

std::string base64(const std::string& input) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t i = 0;
    auto byte = [&](size_t k) { return static_cast<unsigned>(static_cast<unsigned char>(input[k])); };
    for (; i + 2 < input.size(); i += 3) {
        unsigned n = (byte(i) << 16) | (byte(i + 1) << 8) | byte(i + 2);
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += alphabet[(n >> 6) & 63];
        out += alphabet[n & 63];
    }
    if (i < input.size()) {
        unsigned n = byte(i) << 16;
        if (i + 1 < input.size()) n |= byte(i + 1) << 8;
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += i + 1 < input.size() ? alphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

}  // namespace

std::optional<std::string> ZVURLRequest::header(const std::string& name) const {
    for (const auto& [key, value] : _headers) {
        if (sameName(key, name)) return value;
    }
    return std::nullopt;
}

void ZVURLRequest::setHeader(const std::string& name, const std::string& value) { (*this)[name] = value; }

void ZVURLRequest::removeHeader(const std::string& name) {
    std::erase_if(_headers, [&](const auto& entry) { return sameName(entry.first, name); });
}

std::string& ZVURLRequest::operator[](const std::string& name) {
    for (auto& [key, value] : _headers) {
        if (sameName(key, name)) return value;
    }
    _headers.emplace_back(name, std::string());
    return _headers.back().second;
}

void ZVURLRequest::setUsername(const std::string& username, const std::string& password) {
    setHeader("Authorization", "Basic " + base64(username + ":" + password));
}

void ZVURLRequest::setBearerToken(const std::string& token) { setHeader("Authorization", "Bearer " + token); }

void ZVURLRequest::setJSONBody(const nlohmann::json& value) {
    body = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    addJSONContentToHeader();
}

void ZVURLRequest::setWWWFormBody(const std::vector<std::pair<std::string, std::string>>& pairs) {
    body = ZVURLQueryString(pairs);
    addWWWFormContentToHeader();
}
