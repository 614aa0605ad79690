#pragma once

#include <vector>

#include "ZVApplicationState.h"

/// Adds what only Norvo knows to the state report: the accounts with the
/// number of their top-level projects, and the current project with its
/// time. Accounts appear by class and name; credentials and addresses never
/// do. Safe on any thread: the centre's lock is held only to copy the list.
class ZVNorvoApplicationStateProvider : public ZVBasicApplicationStateProvider {
public:
    std::vector<ZVApplicationStateItem> stateItems() const override;
};
