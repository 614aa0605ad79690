// Every service's loadRemoteProjects() with arbitrary replies: the first
// byte picks the service, the second the status, the rest is the body that
// the transport answers every request with. A service may throw its error;
// it may not crash, hang or leak.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzEnvironment.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {

const std::vector<ZVIntegrationClass>& services() {
    static const std::vector<ZVIntegrationClass> classes = ZVIntegrationRegistry::availableIntegrationClasses();
    return classes;
}

constexpr int statusCodes[] = {200, 201, 204, 301, 400, 401, 403, 404, 500};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzEnvironment::setUp();
    if (size < 2 || services().empty()) return 0;
    const ZVIntegrationClass& service = services()[data[0] % services().size()];
    const int status = statusCodes[data[1] % std::size(statusCodes)];
    FuzzEnvironment::setReply(status, std::string(reinterpret_cast<const char*>(data) + 2, size - 2));

    auto account = service.makeNew();
    if (auto addressBased = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(account)) {
        if (!addressBased->hasHardcodedAddress()) addressBased->setAddress("fuzz.invalid");
    }
    try {
        for (const auto& project : account->loadRemoteProjects()) project->dictionaryRepresentation();
    } catch (const ZVIntegrationError&) {
    }
    return 0;
}
