#include "app/ZVKeyboardShortcutManager.h"

#include <QApplication>

#include "ZVLog.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVGlobalHotKeys.h"
#include "core/actions/ZVActionCenter.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"
#include "ui_elements/ZVKeyCombo.h"

namespace {
ZVKeyboardShortcutManager* sharedInstance = nullptr;
}

ZVKeyboardShortcutManager::ZVKeyboardShortcutManager(ZVApplicationCommands& commands, std::function<void()> postTime,
                                                     QObject* parent)
    : QObject(parent), _commands(commands), _postTime(std::move(postTime)),
      _hotKeys(std::make_unique<ZVGlobalHotKeys>()) {
    sharedInstance = this;
    if (!_hotKeys->isAvailable())
        ZVLog([this] { return "Global hot keys: " + _hotKeys->unavailableReason().toStdString(); });
    _reregisterKeyCombo();
}

ZVKeyboardShortcutManager::~ZVKeyboardShortcutManager() {
    if (sharedInstance == this) sharedInstance = nullptr;
}

ZVKeyboardShortcutManager* ZVKeyboardShortcutManager::shared() { return sharedInstance; }

bool ZVKeyboardShortcutManager::isAvailable() const { return _hotKeys->isAvailable(); }

QString ZVKeyboardShortcutManager::unavailableReason() const { return _hotKeys->unavailableReason(); }

void ZVKeyboardShortcutManager::_reregisterKeyCombo() {
    for (const Definition& definition : definitions) {
        int& reference = _references[static_cast<std::size_t>(definition.hotKey)];
        if (reference > 0) _hotKeys->unregisterHotKey(reference);
        reference = 0;
        const ZVKeyCombo combo = ZVKeyCombo::load(QString::fromUtf8(definition.autosaveName));
        if (combo.keyCode <= 0) continue;
        const HotKey hotKey = definition.hotKey;
        reference = _hotKeys->registerHotKey(combo, [this, hotKey] {
            // A hot key pressed while a dialog waits for an answer is ignored.
            if (QApplication::activeModalWidget()) return;
            perform(hotKey);
        });
        ZVLog([&] { return "Registerd key combo with status " + std::to_string(reference); });
    }
}

void ZVKeyboardShortcutManager::perform(HotKey hotKey) {
    auto* center = ZVIntegrationCenter::sharedIfExists();
    const auto project = center ? center->currentProject() : nullptr;
    switch (hotKey) {
        case HotKey::toggleTimer: ZVActionCenter::shared().toggleTimer(); break;
        case HotKey::quickSearch: _commands.showQuickSearch(); break;
        case HotKey::postTime:
            if (_postTime) _postTime();
            break;
        case HotKey::showCurrentProject:
            if (project)
                ZVActionCenter::shared().showSystemNotification(project);
            else
                ZVUserInterface::shared().beep();
            break;
        case HotKey::syncNow:
            if (auto integration = project ? project->integration() : nullptr)
                center->synchronizeIntegration(integration);
            break;
    }
}
