#include "core/ui/ZVTimeActionDialogs.h"

#include <atomic>

#include "ZVLog.h"

namespace {
std::atomic<ZVTimeActionDialogs*> installedDialogs{nullptr};
}

ZVTimeActionDialogs& ZVTimeActionDialogs::shared() {
    ZVTimeActionDialogs* dialogs = installedDialogs.load();
    if (!dialogs) ZVFatalError("No time action dialogs installed");
    return *dialogs;
}

void ZVTimeActionDialogs::install(ZVTimeActionDialogs* dialogs) { installedDialogs.store(dialogs); }
