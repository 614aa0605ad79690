#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "ZVHTTPSession.h"


/// The libcurl transport. TLS peers are always verified. Each
/// transfer has its own handle; cookies, name lookups, TLS sessions and
/// open connections are shared by all.
/// Redirects are followed (up to 10).
class ZVCurlSession : public ZVHTTPSession {
public:
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
