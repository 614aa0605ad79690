#include "ZVDownloadCenter.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <strings.h>

#include "ZVHelpers.h"
#include "ZVLog.h"

void ZVDownloadCenterOwner::didEncounterError(ZVDownloadCenter&, const ZVDownloadCenterError& error) {
    ZVLog([&] { return name() + ": " + error.description(); });
}

void ZVDownloadCenterOwner::setupURLRequest(ZVURLRequest&, const std::string&) {}

std::string ZVDownloadCenterOwner::infoPageUserAgent() const { return ZVDownloadCenter::defaultUserAgent(); }

namespace {

std::optional<std::string> decode(const std::string& body, const std::string& encoding) {
    const bool isUTF8 = strcasecmp(encoding.c_str(), "UTF-8") == 0 || strcasecmp(encoding.c_str(), "UTF8") == 0;
    if (isUTF8 || encoding.empty()) {
        if (!ZVIsValidUTF8(body)) return std::nullopt;
        return body;
    }
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(encoding.c_str(), &status);
    if (U_FAILURE(status)) return std::nullopt;
    ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    icu::UnicodeString text(body.data(), static_cast<int32_t>(body.size()), converter, status);
    ucnv_close(converter);
    if (U_FAILURE(status)) return std::nullopt;
    std::string result;
    text.toUTF8String(result);
    return result;
}

// Whether the brackets of JSON text nest at most `depth` deep, those in
// strings not counted. One pass, before the parser builds anything.
bool nestsAtMost(const std::string& text, std::size_t depth) {
    std::size_t open = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++open > depth) return false;
        } else if ((c == ']' || c == '}') && open > 0) {
            --open;
        }
    }
    return true;
}

}  // namespace

ZVDownloadCenter::ZVDownloadCenter(ZVDownloadCenterOwner* owner, std::shared_ptr<ZVHTTPSession> session)
    : _owner(owner), _session(session ? std::move(session) : ZVHTTPSession::shared()) {}

std::string ZVDownloadCenter::defaultUserAgent() { return "Norvo/0.1 (Linux)"; }

std::optional<ZVHTTPResponse> ZVDownloadCenter::download(const std::optional<std::string>& url,
                                                         const RequestModifier& modifier) {
    _lastResponse.reset();
    _lastError.reset();
    if (!url || url->empty()) return std::nullopt;

    ZVURLRequest request(*url);
    if (_owner) request.maximumResponseBytes = _owner->maximumResponseBytes();
    request.setUserAgent(_owner ? _owner->infoPageUserAgent() : defaultUserAgent());
    if (_owner) {
        if (auto referer = _owner->refererURL()) request.setHeader("Referer", *referer);
        _owner->setupURLRequest(request, *url);
    }
    if (modifier) modifier(request);

    const std::string ownerName = _owner ? _owner->name() : std::string("-");
    ZVLog([&] { return ownerName + ": " + request.method + " " + request.url; });
    ZVHTTPResult result = _session->send(request);
    if (!result.response) {
        _lastError = result.error.value_or(
            ZVDownloadCenterError{ZVDownloadCenterError::Kind::transferFailed, request.url, "no response"});
        if (_owner) {
            _owner->didEncounterError(*this, *_lastError);
        } else {
            ZVLog([&] { return _lastError->description(); });
        }
        return std::nullopt;
    }
    ZVLog([&] {
        return ownerName + ": " + std::to_string(result.response->statusCode) + " from " + request.url + " (" +
               std::to_string(result.response->body.size()) + " bytes)";
    });
    _lastResponse = std::move(result.response);
    return _lastResponse;
}

std::optional<nlohmann::json> ZVDownloadCenter::jsonObject(const std::string& text) {
    if (text.empty()) return std::nullopt;
    if (!nestsAtMost(text, maximumJSONDepth)) {
        ZVLog([&] { return "JSON nested deeper than " + std::to_string(maximumJSONDepth) + " levels is refused"; });
        return std::nullopt;
    }
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded()) return std::nullopt;
    return parsed;
}

std::optional<nlohmann::json> ZVDownloadCenter::downloadJSON(const std::optional<std::string>& url,
                                                             const RequestModifier& modifier) {
    auto response = download(url, modifier);
    if (!response) return std::nullopt;
    auto parsed = jsonObject(response->body);
    if (!parsed) ZVLog([&] { return "No JSON in the answer from " + *url; });
    return parsed;
}

std::optional<nlohmann::json> ZVDownloadCenter::downloadJSONDictionary(const std::optional<std::string>& url,
                                                                       const RequestModifier& modifier) {
    auto parsed = downloadJSON(url, modifier);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    return parsed;
}

std::optional<ZVXMLDocument> ZVDownloadCenter::downloadXMLDocument(const std::optional<std::string>& url,
                                                                   const RequestModifier& modifier) {
    auto response = download(url, modifier);
    if (!response) return std::nullopt;
    return ZVXMLDocument::parse(response->body);
}

std::optional<std::string> ZVDownloadCenter::downloadWebPage(const std::optional<std::string>& url,
                                                             const RequestModifier& modifier) {
    auto response = download(url, modifier);
    if (!response) return std::nullopt;
    return decode(response->body, _owner ? _owner->defaultSourceEncoding() : "UTF-8");
}

std::optional<ZVHTTPResponse> ZVDownloadCenter::sendHeadRequest(const std::optional<std::string>& url,
                                                                const RequestModifier& modifier) {
    return download(url, [&](ZVURLRequest& request) {
        if (modifier) modifier(request);
        request.method = "HEAD";
    });
}

std::vector<std::pair<std::string, std::string>> ZVDownloadCenter::lastResponseHeaders() const {
    return _lastResponse ? _lastResponse->headers : std::vector<std::pair<std::string, std::string>>{};
}

std::vector<ZVHTTPCookie> ZVDownloadCenter::cookies(const std::string& url) const { return _session->cookies(url); }

void ZVDownloadCenter::clearCookies(const std::string& url) { _session->clearCookies(url); }
