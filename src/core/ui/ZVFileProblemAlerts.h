#pragma once

#include <optional>

#include "ZVPaths.h"
#include "core/ui/ZVUserInterface.h"

/// Tells the user in words when one of Norvo's files cannot be read or
/// written, and what to do about it: once for each file until the trouble
/// is over, in a window that blocks nothing. While a write fails, the whole
/// state is saved again every minute, so that nothing waits for the next
/// autosave once space or rights are back.
namespace ZVFileProblemAlerts {
/// Becomes the observer of ZVPaths' file problems.
void install();
void uninstall();
/// The alert that tells of the problem; nothing for a recovery, which is a banner.
std::optional<ZVAlert> alertFor(const ZVPaths::FileProblem& problem);
inline constexpr double retryInterval = 60;
}  // namespace ZVFileProblemAlerts
