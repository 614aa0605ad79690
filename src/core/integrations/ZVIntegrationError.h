#pragma once

#include <optional>
#include <stdexcept>
#include <string>

inline constexpr const char* ZVIntegrationErrorDomain = "ZVIntegrationErrorDomain";
inline constexpr int ZVIntegrationGenericErrorCode = -345;
inline constexpr int ZVIntegrationCustomErrorCode = -346;

/// The failure of a service's loadRemoteProjects() or postTime(for:). The
/// failure reason, when there is one, is the localized text the user reads.
class ZVIntegrationError : public std::runtime_error {
public:
    ZVIntegrationError(std::string domain, int code, std::optional<std::string> failureReason);

    const std::string& domain() const { return _domain; }
    int code() const { return _code; }
    const std::optional<std::string>& localizedFailureReason() const { return _failureReason; }

private:
    std::string _domain;
    int _code;
    std::optional<std::string> _failureReason;
};

/// No usable reply: "Norvo cannot load data for this integration.".
ZVIntegrationError ZVIntegrationNoConnectionError();
/// A refused login: "Norvo cannot authenticate with this integration.".
ZVIntegrationError ZVIntegrationAuthenticationError();
/// A service's own words (already localized), code -346.
ZVIntegrationError ZVIntegrationErrorWithFailureReason(const std::string& reason);
/// A post the service refused; generic code, no text of its own.
ZVIntegrationError ZVIntegrationGenericTimePostingError();
/// A reply of the wrong shape during a load; generic code, no text of its own.
ZVIntegrationError ZVIntegrationGenericSyncError();
