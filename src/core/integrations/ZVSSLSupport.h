#pragma once

/// Whether a service speaks HTTPS: never, always, or as the user chooses.
enum class ZVSSLSupport : int {
    none = 0,
    mandatory = 1,
    optional = 2,
};
