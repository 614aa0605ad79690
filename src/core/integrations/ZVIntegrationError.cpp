#include "core/integrations/ZVIntegrationError.h"

#include "ZVLocalization.h"

namespace {
std::string describe(const std::string& domain, int code, const std::optional<std::string>& reason) {
    std::string text = domain + " " + std::to_string(code);
    if (reason) text += ": " + *reason;
    return text;
}
}  // namespace

ZVIntegrationError::ZVIntegrationError(std::string domain, int code, std::optional<std::string> failureReason)
    : std::runtime_error(describe(domain, code, failureReason)),
      _domain(std::move(domain)),
      _code(code),
      _failureReason(std::move(failureReason)) {}

ZVIntegrationError ZVIntegrationNoConnectionError() {
    return {ZVIntegrationErrorDomain, ZVIntegrationGenericErrorCode,
            ZVLocalizedString("Norvo cannot load data for this integration.")};
}

ZVIntegrationError ZVIntegrationAuthenticationError() {
    return {ZVIntegrationErrorDomain, ZVIntegrationGenericErrorCode,
            ZVLocalizedString("Norvo cannot authenticate with this integration.")};
}

ZVIntegrationError ZVIntegrationErrorWithFailureReason(const std::string& reason) {
    return {ZVIntegrationErrorDomain, ZVIntegrationCustomErrorCode, reason};
}

ZVIntegrationError ZVIntegrationGenericTimePostingError() {
    return {ZVIntegrationErrorDomain, ZVIntegrationGenericErrorCode, std::nullopt};
}

ZVIntegrationError ZVIntegrationGenericSyncError() {
    return {ZVIntegrationErrorDomain, ZVIntegrationGenericErrorCode, std::nullopt};
}
