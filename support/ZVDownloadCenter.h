#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "ZVHTTPSession.h"
#include "ZVURLRequest.h"
#include "ZVXML.h"

class ZVDownloadCenter;

/// The object that owns a download center: an account, or a helper of one.
/// It names itself for the log, sees transport failures and prepares every
/// request (headers, credentials) before the caller's modifier runs.
class ZVDownloadCenterOwner {
public:
    virtual ~ZVDownloadCenterOwner() = default;

    virtual std::string name() const = 0;
    /// A transfer failed (no answer, timeout, TLS failure). Logged by default.
    virtual void didEncounterError(ZVDownloadCenter& center, const ZVDownloadCenterError& error);
    /// The owner's chance to add headers before the modifier runs.
    virtual void setupURLRequest(ZVURLRequest& request, const std::string& url);
    virtual std::optional<std::string> refererURL() const { return std::nullopt; }
    virtual std::string infoPageUserAgent() const;
    /// The text encoding of web pages (an ICU converter name); UTF-8 by default.
    virtual std::string defaultSourceEncoding() const { return "UTF-8"; }
    /// The cap on the size of a reply's body for every request of this
    /// owner; a service whose replies may be larger raises it. A single
    /// request may still change it in setupURLRequest or its modifier.
    virtual std::size_t maximumResponseBytes() const { return ZVURLRequest::defaultMaximumResponseBytes; }
};

/// Synchronous HTTP for one thread: each download runs on the calling thread
/// and blocks. The owner sets up each request, then the caller's modifier
/// changes it; the last response is kept. Never throws: no usable answer is
/// an absent result. Not to be shared between threads; cookies live in the
/// session, which is shared by all threads.
///
/// What a hostile or broken server sends is bounded here, for every caller:
/// each request carries the owner's cap on the reply (64 MiB unless the owner
/// or the request says otherwise), at which the transport cuts the reply off
/// as no reply, and JSON nested deeper than maximumJSONDepth is no JSON.
class ZVDownloadCenter {
public:
    using RequestModifier = std::function<void(ZVURLRequest&)>;

    /// The owner is not owned and may be null. Without a session the shared
    /// one is used.
    explicit ZVDownloadCenter(ZVDownloadCenterOwner* owner = nullptr, std::shared_ptr<ZVHTTPSession> session = nullptr);
    /// Centres that sign their requests derive from this one and are owned
    /// through it.
    virtual ~ZVDownloadCenter() = default;

    /// GET unless the modifier sets another method; the body parsed as JSON.
    std::optional<nlohmann::json> downloadJSON(const std::optional<std::string>& url,
                                               const RequestModifier& modifier = {});
    /// As downloadJSON; absent when the JSON is not an object.
    std::optional<nlohmann::json> downloadJSONDictionary(const std::optional<std::string>& url,
                                                         const RequestModifier& modifier = {});
    std::optional<ZVXMLDocument> downloadXMLDocument(const std::optional<std::string>& url,
                                                     const RequestModifier& modifier = {});
    /// The body decoded with the owner's source encoding; absent when it
    /// cannot be decoded.
    std::optional<std::string> downloadWebPage(const std::optional<std::string>& url,
                                               const RequestModifier& modifier = {});
    /// A HEAD request; absent when no answer came.
    std::optional<ZVHTTPResponse> sendHeadRequest(const std::optional<std::string>& url,
                                                  const RequestModifier& modifier = {});
    /// The raw response, whatever its status; absent when no answer came.
    std::optional<ZVHTTPResponse> download(const std::optional<std::string>& url,
                                           const RequestModifier& modifier = {});

    /// Parses JSON text fetched by other means; absent when it is no JSON or
    /// is nested deeper than maximumJSONDepth.
    static std::optional<nlohmann::json> jsonObject(const std::string& text);
    /// Arrays and objects within each other. Real replies nest a dozen
    /// levels; this keeps the recursive walks over a parsed value (copies,
    /// comparisons, dump() in a log line) far from the end of a thread's stack.
    static constexpr std::size_t maximumJSONDepth = 512;

    /// The status of the last response; 0 when the last download got none.
    int lastHTTPStatusCode() const { return _lastResponse ? _lastResponse->statusCode : 0; }
    const std::optional<ZVHTTPResponse>& lastResponse() const { return _lastResponse; }
    /// The headers of the last response (empty when there was none).
    std::vector<std::pair<std::string, std::string>> lastResponseHeaders() const;
    const std::optional<ZVDownloadCenterError>& lastError() const { return _lastError; }

    /// The cookies the shared store would send to that URL.
    std::vector<ZVHTTPCookie> cookies(const std::string& url) const;
    /// Removes the cookies stored for that URL.
    void clearCookies(const std::string& url);

    ZVDownloadCenterOwner* owner() const { return _owner; }
    ZVHTTPSession& session() const { return *_session; }

    /// "Norvo/<version> (Linux)".
    static std::string defaultUserAgent();

private:
    ZVDownloadCenterOwner* _owner;
    std::shared_ptr<ZVHTTPSession> _session;
    std::optional<ZVHTTPResponse> _lastResponse;
    std::optional<ZVDownloadCenterError> _lastError;
};
