#pragma once

#include <string>

/// Removes secrets from log text: Authorization headers, passwords, tokens,
/// secrets and API keys in forms, queries and JSON.
namespace ZVLogScrubber {
std::string scrub(const std::string& text);
}
