#include "services/kit/RecordingSession.h"

struct RecordingSession::Forwarder : ZVHTTPSession {
    explicit Forwarder(RecordingSession& session) : target(session) {}
    ZVHTTPResult send(const ZVURLRequest& request) override { return target.send(request); }
    std::vector<ZVHTTPCookie> cookies(const std::string& url) override { return target.cookies(url); }
    void clearCookies(const std::string& url) override { target.clearCookies(url); }
    void clearAllCookies() override { target.clearAllCookies(); }
    RecordingSession& target;
};

RecordingSession::RecordingSession() : _previous(ZVHTTPSession::shared()) {
    ZVHTTPSession::setShared(std::make_shared<Forwarder>(*this));
}

RecordingSession::~RecordingSession() { ZVHTTPSession::setShared(_previous); }

void RecordingSession::redirect(const std::string& fixedBaseURL, const std::string& replacementBaseURL) {
    std::lock_guard guard(_mutex);
    _redirections[fixedBaseURL] = replacementBaseURL;
}

std::vector<ZVURLRequest> RecordingSession::requests() const {
    std::lock_guard guard(_mutex);
    return _requests;
}

std::vector<std::string> RecordingSession::URLs() const {
    std::vector<std::string> urls;
    for (const auto& request : requests()) urls.push_back(request.url);
    return urls;
}

void RecordingSession::clear() {
    std::lock_guard guard(_mutex);
    _requests.clear();
}

std::string RecordingSession::redirected(const std::string& url) const {
    std::lock_guard guard(_mutex);
    for (const auto& [fixed, replacement] : _redirections) {
        if (url.compare(0, fixed.size(), fixed) == 0 && (url.size() == fixed.size() || url[fixed.size()] == '/' ||
                                                          url[fixed.size()] == '?'))
            return replacement + url.substr(fixed.size());
    }
    return url;
}

ZVHTTPResult RecordingSession::send(const ZVURLRequest& request) {
    {
        std::lock_guard guard(_mutex);
        _requests.push_back(request);
    }
    ZVURLRequest forwarded = request;
    forwarded.url = redirected(request.url);
    // A test never reaches a host of the outside world: what no redirection
    // brought to loopback finds nobody there.
    const auto host = forwarded.url.find("://");
    const std::string rest = host == std::string::npos ? std::string() : forwarded.url.substr(host + 3);
    if (!rest.starts_with("127.0.0.1") && !rest.starts_with("localhost") && !rest.starts_with("[::1]"))
        return {std::nullopt, ZVDownloadCenterError{ZVDownloadCenterError::Kind::couldNotConnect, forwarded.url,
                                                    "a test reaches loopback alone"}};
    return _previous->send(forwarded);
}

std::vector<ZVHTTPCookie> RecordingSession::cookies(const std::string& url) {
    return _previous->cookies(redirected(url));
}

void RecordingSession::clearCookies(const std::string& url) { _previous->clearCookies(redirected(url)); }

void RecordingSession::clearAllCookies() { _previous->clearAllCookies(); }
