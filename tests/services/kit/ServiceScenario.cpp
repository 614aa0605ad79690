#include "services/kit/ServiceScenario.h"

#include <map>

namespace ServiceScenarios {

namespace {
std::map<std::string, Maker>& makers() {
    static std::map<std::string, Maker> registered;
    return registered;
}
}  // namespace

bool add(const std::string& className, Maker maker) { return makers().emplace(className, std::move(maker)).second; }

std::optional<ServiceScenario> of(const std::string& className) {
    const auto found = makers().find(className);
    if (found == makers().end()) return std::nullopt;
    return found->second();
}

}  // namespace ServiceScenarios
