#include "core/ui/ZVUserInterface.h"

#include <atomic>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVThreading.h"

namespace {
std::atomic<ZVUserInterface*> installedInterface{nullptr};
}

ZVUserInterface& ZVUserInterface::shared() {
    ZVUserInterface* ui = installedInterface.load();
    if (!ui) ZVFatalError("No user interface installed");
    return *ui;
}

void ZVUserInterface::install(ZVUserInterface* ui) { installedInterface.store(ui); }

ZVUserInterface* ZVUserInterface::sharedIfInstalled() { return installedInterface.load(); }

void ZVUserInterface::runModalMessage(const std::string& message, const std::string& informative) {
    ZVAlert alert;
    alert.messageText = message;
    alert.informativeText = informative;
    alert.buttons = {ZVLocalizedString("OK")};
    runModal(alert);
}

ZVAlertResponse ZVUserInterface::runModalOnMainThread(const ZVAlert& alert) {
    ZVAlertResponse response;
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD([&] { response = shared().runModal(alert); });
    return response;
}
