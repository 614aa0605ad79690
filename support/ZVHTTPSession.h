#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZVURLRequest.h"
#include "ZVValue.h"

/// Why a transfer brought no answer. Only printed, never acted upon.
struct ZVDownloadCenterError {
    enum class Kind {
        invalidURL,
        couldNotConnect,
        timedOut,
        tlsFailure,
        tooManyRedirects,
        transferFailed,
        /// The body (or its Content-Length) went over the request's
        /// maximumResponseBytes, or the headers over the transport's cap.
        replyTooLarge
    };
    Kind kind = Kind::transferFailed;
    std::string url;
    std::string message;

    std::string description() const;
};

/// An HTTP answer, whatever its status.
struct ZVHTTPResponse {
    int statusCode = 0;
    /// The address that answered, after redirects.
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    /// The first header of that name (case-insensitive).
    std::optional<std::string> header(const std::string& name) const;
};

/// A cookie of the shared store.
struct ZVHTTPCookie {
    std::string name;
    std::string value;
    std::string domain;
    std::string path;
    /// Absent for a session cookie.
    std::optional<ZVDate> expires;
    bool secure = false;
    bool httpOnly = false;
};

/// Result of one transfer: a response or an error.
struct ZVHTTPResult {
    std::optional<ZVHTTPResponse> response;
    std::optional<ZVDownloadCenterError> error;
};

/// The transport under download centers: sends one request synchronously on
/// the calling thread and keeps the cookies. Safe to use from any thread.
/// It takes in no more reply than the request's maximumResponseBytes.
/// Tests and fuzzers may put their own in place of the libcurl one.
class ZVHTTPSession {
public:
    virtual ~ZVHTTPSession() = default;

    virtual ZVHTTPResult send(const ZVURLRequest& request) = 0;
    /// The cookies that would be sent to that URL.
    virtual std::vector<ZVHTTPCookie> cookies(const std::string& url) = 0;
    virtual void clearCookies(const std::string& url) = 0;
    virtual void clearAllCookies() = 0;

    /// The libcurl session shared by every download center that gets no other.
    static std::shared_ptr<ZVHTTPSession> shared();
    /// Puts another session in its place (nullptr restores the libcurl one).
    static void setShared(std::shared_ptr<ZVHTTPSession> session);
};
