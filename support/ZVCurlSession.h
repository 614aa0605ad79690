#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "ZVHTTPSession.h"


/// The libcurl transport. TLS peers are always verified. Each
/// transfer has its own handle; cookies, name lookups, TLS sessions and
/// open connections are shared by all.
/// Redirects are followed (up to 10). A reply is taken in up to the
/// request's maximumResponseBytes of body and maximumHeaderBytes of headers.
class ZVCurlSession : public ZVHTTPSession {
public:
    /// The most bytes of headers one transfer takes in, redirects included:
    /// 256 KiB, under libcurl's own cap of 300 KB, so that too many headers
    /// are told apart from a broken transfer.
    static constexpr std::size_t maximumHeaderBytes = std::size_t{256} << 10;

    ZVCurlSession();
    ~ZVCurlSession() override;
    ZVCurlSession(const ZVCurlSession&) = delete;
    ZVCurlSession& operator=(const ZVCurlSession&) = delete;

    ZVHTTPResult send(const ZVURLRequest& request) override;
    std::vector<ZVHTTPCookie> cookies(const std::string& url) override;
    void clearCookies(const std::string& url) override;
    void clearAllCookies() override;

    /// Seconds to wait for a connection, and for the whole transfer.
    void setTimeouts(double connectSeconds, double totalSeconds);
    double connectTimeout() const;
    double totalTimeout() const;

private:
    std::vector<std::string> cookieLines();

    void* _share;  // CURLSH
    std::mutex _shareLocks[8];
    mutable std::mutex _settingsMutex;
    std::mutex _cookieEditMutex;
    double _connectTimeout = 15;
    double _totalTimeout = 60;
};
