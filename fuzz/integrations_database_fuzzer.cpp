// Loading of Integrations.edb: the root dictionary, each account read by its
// stored class, its projects and log records, and the account written back.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzEnvironment.h"
#include "ZVPropertyList.h"
#include "core/integrations/ZVIntegration.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzEnvironment::setUp();
    const auto root = ZVPropertyList::read(std::string(reinterpret_cast<const char*>(data), size));
    if (!root || !root->dictionary()) return 0;
    for (const auto& [key, value] : *root->dictionary()) {
        const ZVDictionary* stored = value.dictionary();
        if (!stored) continue;
        if (auto account = ZVIntegration::integrationWithDictionary(*stored)) {
            ZVPropertyList::writeXML(ZVValue(account->dictionaryRepresentation()));
            account->projectsWithNonZeroTime();
            account->containsProjectWithUnpostedTime();
        }
    }
    return 0;
}
