#pragma once

#include <optional>

/// How an account logs in; it chooses the credential class. The raw values
/// are fixed but stored nowhere.
enum class ZVAuthenticationType : int {
    none = 0,
    usernamePassword = 1,
    apiToken = 2,
    usernameAPIToken = 3,
    usernamePasswordAPIToken = 4,
    oAuth2 = 5,
    other = 6,
};

/// The type for a raw value; nothing above 6 or below 0.
inline std::optional<ZVAuthenticationType> ZVAuthenticationTypeFromRawValue(int rawValue) {
    if (rawValue < 0 || rawValue > static_cast<int>(ZVAuthenticationType::other)) return std::nullopt;
    return static_cast<ZVAuthenticationType>(rawValue);
}
