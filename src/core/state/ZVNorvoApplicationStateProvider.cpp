#include "core/state/ZVNorvoApplicationStateProvider.h"

#include <memory>
#include <mutex>
#include <string>

#include "ZVTime.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"

namespace {
std::string accountDescription(const ZVIntegration& integration) {
    return integration.className() + " '" + integration.name() + "'";
}
}  // namespace

std::vector<ZVApplicationStateItem> ZVNorvoApplicationStateProvider::stateItems() const {
    std::vector<std::shared_ptr<ZVIntegration>> integrations{ZVNorvoIntegration::sharedIntegration()};
    // The report may be asked for before anything has read the database; it
    // does not start the centre for that.
    ZVIntegrationCenter* center = ZVIntegrationCenter::sharedIfExists();
    if (center) {
        std::lock_guard<std::recursive_mutex> guard(center->lock());
        const auto remote = center->integrations();
        integrations.insert(integrations.end(), remote.begin(), remote.end());
    }

    std::string lines;
    for (const auto& integration : integrations) {
        if (!lines.empty()) lines += "\n";
        lines += "\t" + accountDescription(*integration) +
                 " - project count: " + std::to_string(integration->availableProjects().size());
        if (const auto problem = integration->synchronizationProblem()) lines += " - " + *problem;
    }

    std::string currentProject = "None";
    if (const auto project = center ? center->currentProject() : nullptr) {
        const auto account = project->integration();
        currentProject = "Project from " + (account ? accountDescription(*account) : std::string("a removed account")) +
                         " - " + ZVTime::timeString(project->time());
    }

    auto items = ZVBasicApplicationStateProvider::stateItems();
    items.push_back({"Active Integrations", lines, false});
    items.push_back({"Current Project", currentProject, false});
    return items;
}
