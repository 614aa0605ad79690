#include "core/ui/ZVFileProblemAlerts.h"

#include <filesystem>
#include <mutex>
#include <set>
#include <string>

#include "ZVLocalization.h"
#include "ZVThreading.h"
#include "core/integrations/center/ZVIntegrationCenter.h"

namespace {

using Kind = ZVPaths::FileProblem::Kind;

struct State {
    std::mutex mutex;
    std::set<std::string> failingWrites;
    bool retryScheduled = false;
};

State& state() {
    static State instance;
    return instance;
}

std::string fileName(const std::string& path) { return std::filesystem::path(path).filename().string(); }

// What the user loses sight of while the file is away.
std::string contents(const std::string& path) {
    if (fileName(path) == ZVIntegrationCenter::databaseFileName)
        return ZVLocalizedString("your accounts and the time tracked on them");
    if (fileName(path) == std::string(ZVIntegrationCenter::databaseFileName) + ".journal")
        return ZVLocalizedString("the time and changes of the last minutes before Norvo ended");
    return ZVLocalizedString("your settings and your local projects with their time");
}

// One delayed save at a time, each arming the next while writes still
// fail; a one-shot block rather than a repeating timer, which would have to
// be dropped from inside its own tick.
void retryWhileFailing() {
    {
        std::lock_guard guard(state().mutex);
        if (state().retryScheduled || state().failingWrites.empty()) return;
        state().retryScheduled = true;
    }
    ZVTimerFactory::shared().performAfterDelay(ZVFileProblemAlerts::retryInterval, [] {
        {
            std::lock_guard guard(state().mutex);
            state().retryScheduled = false;
        }
        if (auto* center = ZVIntegrationCenter::sharedIfExists()) center->saveAll();
        retryWhileFailing();
    });
}

void tellUser(const ZVPaths::FileProblem& problem) {
    ZVUserInterface* ui = ZVUserInterface::sharedIfInstalled();
    if (problem.kind == Kind::writeRecovered) {
        if (ui)
            ui->showBanner(ZVLocalizedString("Norvo saves again"),
                           ZVLocalizedFormat("“%@” is up to date.", {fileName(problem.path)}));
    } else if (auto alert = ZVFileProblemAlerts::alertFor(problem); alert && ui) {
        ui->showAlert(*alert);
    }
    if (problem.kind == Kind::writeFailed) retryWhileFailing();
}

void observe(const ZVPaths::FileProblem& problem) {
    {
        std::lock_guard guard(state().mutex);
        if (problem.kind == Kind::writeFailed && !state().failingWrites.insert(problem.path).second) return;
        if (problem.kind == Kind::writeRecovered) state().failingWrites.erase(problem.path);
    }
    ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([problem] { tellUser(problem); });
}

}  // namespace

namespace ZVFileProblemAlerts {

void install() { ZVPaths::setProblemObserver(observe); }

void uninstall() {
    ZVPaths::setProblemObserver(nullptr);
    std::lock_guard guard(state().mutex);
    state().failingWrites.clear();
    state().retryScheduled = false;
}

std::optional<ZVAlert> alertFor(const ZVPaths::FileProblem& problem) {
    ZVAlert alert;
    alert.style = ZVAlert::Style::critical;
    const std::string name = fileName(problem.path);
    switch (problem.kind) {
        case Kind::setAside:
            alert.messageText = ZVLocalizedFormat("Norvo could not read “%@” and moved it aside.", {name});
            alert.informativeText = ZVLocalizedFormat(
                "The file is kept unchanged as “%@”. Norvo goes on without what was in it: %@. To get it back, quit "
                "Norvo and put a readable copy, for example from a backup, in place of “%@”.",
                {problem.setAsidePath, contents(problem.path), problem.path});
            return alert;
        case Kind::unreadableKept:
            alert.messageText = ZVLocalizedFormat("Norvo cannot read “%@”.", {name});
            alert.informativeText = ZVLocalizedFormat(
                "Norvo could not move the file aside (%@) and will not write over it, so what you change now is not "
                "saved. Quit Norvo, move “%@” away or restore it from a backup, and start Norvo again.",
                {problem.reason, problem.path});
            return alert;
        case Kind::writeFailed:
            alert.messageText = ZVLocalizedFormat("Norvo cannot save “%@”.", {name});
            alert.informativeText = ZVLocalizedFormat(
                "Writing it failed: %@. Norvo keeps your tracked time while it runs and tries again every minute. "
                "Free some disk space or make the folder “%@” writable, and leave Norvo running until it has saved.",
                {problem.reason, std::filesystem::path(problem.path).parent_path().string()});
            return alert;
        case Kind::writeRecovered: return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace ZVFileProblemAlerts
