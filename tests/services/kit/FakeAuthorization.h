#pragma once

#include <memory>
#include <string>

#include "testkit/FakeServer.h"

/// A service's OAuth2 authorization server on the fake server, and the
/// user's browser on it, for tests of the whole authorization.
///
/// The page at `authorizePath` answers at once, as a user who approves or
/// refuses: it sends the browser back to the redirect address with the
/// code the test chose, or with "access_denied" for the code "deny". The
/// token endpoint trades the code "good", and any refresh token, for new
/// tokens "token-1", "token-2", ... (with the refresh token "rt-secret",
/// running out in an hour); anything else it refuses.
class FakeAuthorization {
public:
    FakeAuthorization(FakeServer& server, std::string authorizePath, std::string tokenPath);

    /// Plays the browser on the page that Norvo opened (`openedURL`: its path
    /// and query, whatever its host, go to the fake server), answering with
    /// `code`; gives where the page sent the browser.
    std::string approve(const std::string& openedURL, const std::string& code) const;
    /// Follows a redirect to Norvo's loopback listener and gives its page.
    static std::string openLoopbackPage(const std::string& location);
    /// How many access tokens the endpoint handed out.
    int issued() const { return *_issued; }

private:
    FakeServer& _server;
    std::string _authorizePath;
    std::shared_ptr<int> _issued = std::make_shared<int>(0);
};
