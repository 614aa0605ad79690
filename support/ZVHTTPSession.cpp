#include "ZVHTTPSession.h"

#include <strings.h>

#include <mutex>

#include "ZVCurlSession.h"

std::string ZVDownloadCenterError::description() const {
    const char* kindName = "transfer failed";
    switch (kind) {
        case Kind::invalidURL: kindName = "invalid URL"; break;
        case Kind::couldNotConnect: kindName = "could not connect"; break;
        case Kind::timedOut: kindName = "timed out"; break;
        case Kind::tlsFailure: kindName = "TLS failure"; break;
        case Kind::tooManyRedirects: kindName = "too many redirects"; break;
        case Kind::replyTooLarge: kindName = "reply too large"; break;
        case Kind::transferFailed: break;
    }
    return std::string(kindName) + " (" + url + "): " + message;
}

std::optional<std::string> ZVHTTPResponse::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    }
    return std::nullopt;
}

namespace {
std::mutex sharedSessionMutex;
std::shared_ptr<ZVHTTPSession>& sharedSessionStorage() {
    static std::shared_ptr<ZVHTTPSession> session;
    return session;
}
}  // namespace

std::shared_ptr<ZVHTTPSession> ZVHTTPSession::shared() {
    std::lock_guard lock(sharedSessionMutex);
    auto& session = sharedSessionStorage();
    if (!session) session = std::make_shared<ZVCurlSession>();
    return session;
}

void ZVHTTPSession::setShared(std::shared_ptr<ZVHTTPSession> session) {
    std::lock_guard lock(sharedSessionMutex);
    sharedSessionStorage() = std::move(session);
}
