#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZVValue.h"

/// One setting of a service that the user makes in the account setup and
/// the account keeps in its dictionary form under `key`. A service lists
/// its settings; the account base stores and reads them, and the setup
/// draws a control for each, so that no service needs code for either.
struct ZVIntegrationSetting {
    enum class Kind { flag, number, choice, text };
    /// One entry of a choice: the stored number and the English label.
    struct Choice {
        std::int64_t value;
        const char* label;
    };

    /// The stored key, which databases depend on.
    const char* key;
    Kind kind;
    /// The English label; the setup shows it localized.
    const char* label;
    /// The control's name in the setup (what tests and accessibility find).
    const char* controlName;
    /// Nothing means false, 0, the first choice or "".
    std::optional<ZVValue> defaultValue = std::nullopt;
    std::vector<Choice> choices = {};
    /// Shown with the credentials rather than in the service's own part.
    bool belongsToCredentials = false;

    /// The "Synchronize" choice of a service whose tree stops at its first
    /// level (stored 0, the default) or reaches one level deeper (stored 1).
    static ZVIntegrationSetting synchronization(const char* key, const char* firstLevel, const char* deeper);
    /// A switch beside the credentials that makes the secret field take a
    /// token (or key) in place of the password; off by default.
    static ZVIntegrationSetting credentialSwitch(const char* key, const char* label, const char* controlName);

    /// The default as stored: of the setting's kind.
    ZVValue initialValue() const;
    /// `value` as this setting stores it, or nothing when it is of another
    /// type (and so counts as missing).
    std::optional<ZVValue> accepted(const ZVValue& value) const;
};

/// How a service wants its credentials asked for, as it stands now (it may
/// follow the address or a setting): a line above the fields, the labels of
/// the two fields, and a button that opens a page where the user gets a token.
struct ZVCredentialPresentation {
    std::string hint;
    std::string usernameLabel;
    std::string secretLabel;
    std::string linkTitle;
    std::string linkURL;
    /// Settings of the credential part that do not apply now.
    std::vector<std::string> hiddenSettings;
};
