#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ZVHTTPSession.h"
#include "ZVURLRequest.h"

/// The transport of the download centers while a service test runs: it
/// hands every request to the real libcurl session, after noting it exactly
/// as the service built it (URL, method, headers, body). For a service whose
/// host is fixed, it sends the requests for that host to the fake server
/// instead: the one test-only way to reach such a service, installed by the
/// test and by nothing a user can do.
class RecordingSession : public ZVHTTPSession {
public:
    /// Installs itself as the shared session; the destructor puts back the one before.
    RecordingSession();
    ~RecordingSession() override;
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    /// Requests to `fixedBaseURL` ("https://securedwebapp.com") go to
    /// `replacementBaseURL` ("http://127.0.0.1:4711") from now on.
    void redirect(const std::string& fixedBaseURL, const std::string& replacementBaseURL);

    /// The requests as the services built them, oldest first.
    std::vector<ZVURLRequest> requests() const;
    std::vector<std::string> URLs() const;
    void clear();

    ZVHTTPResult send(const ZVURLRequest& request) override;
    std::vector<ZVHTTPCookie> cookies(const std::string& url) override;
    void clearCookies(const std::string& url) override;
    void clearAllCookies() override;

private:
    std::string redirected(const std::string& url) const;

    // Shared pointers keep this object's lifetime in the test's hands while
    // the global slot holds a forwarding handle.
    struct Forwarder;
    std::shared_ptr<ZVHTTPSession> _previous;
    mutable std::mutex _mutex;
    std::vector<ZVURLRequest> _requests;
    std::map<std::string, std::string> _redirections;
};
