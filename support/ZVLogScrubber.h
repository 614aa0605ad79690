#pragma once

#include <string>

/// Removes secrets from log text: Authorization headers, passwords, tokens,
/// secrets and API keys in forms, queries and JSON.
namespace ZVLogScrubber {
/// `endIsCut` says that the text was cut off short, so that a secret at its
/// end may have lost its closing quote or the "@" after a URL's password;
/// what is left of such a secret is hidden too.
std::string scrub(const std::string& text, bool endIsCut = false);
}
