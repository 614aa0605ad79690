// The property-list reader, as it reads the database and the preferences:
// any bytes read as a value or as nothing, and what is read is written and
// read back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ZVPropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const auto value = ZVPropertyList::read(bytes);
    if (!value) return 0;
    // Whatever the reader accepts must survive a save: an unreadable
    // database would lose every account at the next start.
    if (!ZVPropertyList::read(ZVPropertyList::writeXML(*value))) std::abort();
    return 0;
}
