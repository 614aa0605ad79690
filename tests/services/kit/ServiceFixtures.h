#pragma once

#include <map>
#include <string>

/// Recorded replies of the services, kept under tests/services/fixtures/ in
/// each service's documented shape.
namespace ServiceFixtures {
/// The file tests/services/fixtures/<relativePath>, with every "{{name}}"
/// replaced by its value from `substitutions` (for example "{{base}}" by the
/// fake server's address). A missing file fails the running test.
std::string load(const std::string& relativePath, const std::map<std::string, std::string>& substitutions = {});
}  // namespace ServiceFixtures
