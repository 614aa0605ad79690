// Project nodes and log records built from stored dictionaries of any shape.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzEnvironment.h"
#include "ZVPropertyList.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVLogEntry.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzEnvironment::setUp();
    const auto root = ZVPropertyList::read(std::string(reinterpret_cast<const char*>(data), size));
    if (!root || !root->dictionary()) return 0;
    const ZVDictionary& dictionary = *root->dictionary();

    if (auto entry = ZVLogEntry::logEntryWithDictionary(dictionary)) entry->dictionaryRepresentation();

    auto project = ZVIntegrationProject::createWithDictionary(dictionary, std::weak_ptr<ZVIntegration>());
    if (project) {
        project->dictionaryRepresentation();
        project->containsSubprojectWithUnpostedTime();
    }
    return 0;
}
