#include "core/log/ZVLogController.h"

#include <algorithm>
#include <any>
#include <chrono>
#include <cmath>
#include <mutex>

#include "ZVCSVDocument.h"
#include "ZVClock.h"
#include "ZVHelpers.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPaths.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/log_entries/ZVLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "core/ui/ZVLogView.h"
#include "core/ui/ZVUserInterface.h"

namespace {

constexpr double lastSevenDays = 518400;
constexpr double lastThirtyDays = 2505600;


}  // namespace

ZVLogController::ZVLogController(ZVLogView& view) : _view(view) {}

ZVLogController::~ZVLogController() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
}

void ZVLogController::awake() {
    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(notifications.addObserver(ZVHeartBeatStateDidChangeNotification,
                                                      [this](const ZVNotification&) { _heartBeatStateChanged(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterCurrentProjectDidChangeNotification,
                                                      [this](const ZVNotification&) { _currentProjectChanged(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationProjectTimeDidChangeNotification,
                                                      [this](const ZVNotification&) { _reloadLog(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationProjectTimeDidResetNotification,
                                                      [this](const ZVNotification&) { _reloadLog(); }));
    _observations.push_back(notifications.addObserver(
        ZVCurrentTaskTextDidChangeNotification, [this](const ZVNotification& notification) {
            if (const auto* text = std::any_cast<std::string>(&notification.object())) _retitleOpenRun(*text);
        }));
    _reloadLog();
}

bool ZVLogController::isInTimePeriod(ZVDate date, int segment, ZVDate now) {
    double limit = (now - ZVStartOfDay(now)).count();
    if (segment == 0) {
        limit += lastThirtyDays;
    } else if (segment == 1) {
        limit += lastSevenDays;
    }
    // The boundary belongs to the period: an entry from the first second of
    // the oldest day of the period is shown, as is one from this very second
    // at midnight.
    return std::fabs((date - now).count()) <= limit;
}

bool ZVLogController::isEntryInTimePeriod(const ZVLogEntry& entry, int segment, ZVDate now) {
    if (isInTimePeriod(entry.date(), segment, now)) return true;
    // A run that began before the period and ended in it, such as one
    // across midnight seen today, belongs to it as well.
    const auto* run = dynamic_cast<const ZVTimeLogEntry*>(&entry);
    return run && run->stopDate() && isInTimePeriod(*run->stopDate(), segment, now);
}

std::vector<std::shared_ptr<ZVLogEntry>> ZVLogController::_logsInSelectedTimePeriod() const {
    std::vector<std::shared_ptr<ZVLogEntry>> entries;
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) return entries;
    const int segment = _view.selectedTimePeriod();
    const auto now = ZVNow();
    for (const auto& entry : project->logEntries()) {
        if (isEntryInTimePeriod(*entry, segment, now)) entries.push_back(entry);
    }
    return entries;
}

std::vector<std::shared_ptr<ZVLogEntry>> ZVLogController::logsBetween(ZVDate from, ZVDate until) const {
    std::vector<std::shared_ptr<ZVLogEntry>> entries;
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) return entries;
    for (const auto& entry : project->logEntries()) {
        const ZVDate date = entry->date();
        if (date >= from && date < until) entries.push_back(entry);
    }
    return entries;
}

void ZVLogController::_heartBeatStateChanged() {
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    if (heartBeat.isBeating()) {
        const auto project = ZVIntegrationCenter::sharedCurrentProject();
        if (!project) ZVFatalError("The timer runs without a current project");
        auto run = std::make_shared<ZVTimeLogEntry>(project);
        run->setStartDate(ZVNow());
        run->setText(_view.currentTaskName());
        _currentLogEntry = run;
    } else if (auto run = std::dynamic_pointer_cast<ZVTimeLogEntry>(_currentLogEntry)) {
        run->setStopDate(ZVNow());
        run->setText(_view.currentTaskName());
        if (const auto project = ZVIntegrationCenter::sharedCurrentProject()) {
            project->addLogEntry(run);
            project->setTime(heartBeat.currentTime());
        }
    }
    _reloadLog();
}

void ZVLogController::_currentProjectChanged() {
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) return;
    // The last run's title: the sentence of a later reset or change of time
    // is no task.
    const std::string title = project->lastEntryTitle();
    if (title.empty()) return;
    _view.setCurrentTaskName(title);
    // A running timer has already opened the new project's run, with the
    // text that the field held before.
    _retitleOpenRun(title);
}

void ZVLogController::_retitleOpenRun(const std::string& title) {
    auto* run = dynamic_cast<ZVTimeLogEntry*>(_currentLogEntry.get());
    if (!run || run->stopDate() || run->text() == title) return;
    run->setText(title);
    _reloadLog();
}

std::string ZVLogController::_timeStringForTimeInterval(double seconds) {
    // The same words as a project's total line, for a sum of runs: a
    // detached node carries the seconds and never saves.
    auto carrier = ZVIntegrationProject::create();
    carrier->setTimeWithoutSaving(seconds > 0 ? static_cast<std::uint64_t>(seconds) : 0);
    return carrier->totalTimeString();
}

void ZVLogController::_reloadLog() {
    std::string today = ZVLogEntry::shortDateString(ZVNow());
    std::replace_if(today.begin(), today.end(), [](char c) { return c == '/' || c == '.'; }, '-');
    std::string text = ZVLocalizedFormat("TODAY: %@", {today});
    text += "\n-------------------------------------------\n";

    const auto entries = _logsInSelectedTimePeriod();
    double total = 0;
    std::string previousTitle;
    bool listed = false;
    for (const auto& entry : entries) {
        const auto* run = dynamic_cast<const ZVTimeLogEntry*>(entry.get());
        if (run && run->stopDate()) {
            const double seconds = (*run->stopDate() - run->startDate()).count();
            // A start and a stop within one second is no work to show.
            if (seconds < 1) continue;
            total += seconds;
        }
        // A change of time by hand or by rounding moves the total with it.
        if (const auto* change = dynamic_cast<const ZVTimeSetLogEntry*>(entry.get()))
            total += static_cast<double>(change->newTime()) - static_cast<double>(change->originalTime());
        std::string title = entry->text();
        text += entry->entryDescription(title == previousTitle);
        text += '\n';
        previousTitle = std::move(title);
        listed = true;
    }
    if (const auto* running = dynamic_cast<const ZVTimeLogEntry*>(_currentLogEntry.get());
        running && !running->stopDate()) {
        text += running->entryDescription(running->text() == previousTitle);
        text += '\n';
        listed = true;
    }
    if (!listed) text += ZVLocalizedString("NO ENTRIES YET") + "\n";
    total = std::max(total, 0.0);

    const std::string totalLine = ZVLocalizedFormat("TOTAL: %@", {_timeStringForTimeInterval(total)});
    text.append(ZVCharacterCount(totalLine), '-');
    text += '\n';
    text += totalLine;
    _view.setLogText(text);
}

void ZVLogController::timePeriodChanged() { _reloadLog(); }

void ZVLogController::clear() {
    _clearEntriesInSelectedTimePeriod();
    _reloadLog();
}

void ZVLogController::_clearEntriesInSelectedTimePeriod() {
    std::vector<std::shared_ptr<ZVIntegration>> integrations{ZVNorvoIntegration::sharedIntegration()};
    const auto remote = ZVIntegrationCenter::shared().integrations();
    integrations.insert(integrations.end(), remote.begin(), remote.end());
    const auto now = ZVNow();
    for (const auto& integration : integrations) {
        // The account's lock keeps a refresh's merge off the trees meanwhile.
        std::lock_guard<std::recursive_mutex> guard(integration->lock());
        for (const auto& project : integration->availableProjects()) {
            _clearEntriesInSelectedTimePeriodFromProject(*project, now);
        }
    }
}

void ZVLogController::_clearEntriesInSelectedTimePeriodFromProject(ZVIntegrationProject& project, ZVDate now) const {
    const int segment = _view.selectedTimePeriod();
    {
        std::lock_guard<std::mutex> guard(project.lock());
        auto entries = project.logEntries();
        std::erase_if(entries, [&](const auto& entry) { return isEntryInTimePeriod(*entry, segment, now); });
        project.setLogEntries(std::move(entries));
    }
    for (const auto& child : project.subprojects()) _clearEntriesInSelectedTimePeriodFromProject(*child, now);
}

void ZVLogController::exportToCSV() {
    const auto entries = _logsInSelectedTimePeriod();
    const auto path = _view.chooseCSVExportPath(csvFileName);
    if (!path) return;
    exportToCSV(entries, *path);
}

bool ZVLogController::writeCSV(const std::vector<std::shared_ptr<ZVLogEntry>>& entries,
                               const std::function<bool(std::string_view)>& sink) {
    // Handed on in pieces, so that a log of a million runs never stands
    // whole in memory on its way to the file.
    constexpr std::size_t piece = 1 << 20;
    std::string out;
    out.reserve(piece + 4096);
    ZVCSVDocument::appendRecord(out, {"Start", "Stop", "Comment", "Project Path", "Project Name"});
    ZVISO8601Formatter dates;
    std::string start;
    std::string stop;
    // Runs of one project come together: its path is built once for them.
    const ZVIntegrationProject* pathOwner = nullptr;
    std::string path;
    std::string name;
    for (const auto& entry : entries) {
        const auto* run = dynamic_cast<const ZVTimeLogEntry*>(entry.get());
        if (!run) continue;
        start.clear();
        dates.append(start, run->startDate());
        stop.clear();
        if (run->stopDate()) dates.append(stop, *run->stopDate());
        const auto project = run->project();
        if (project.get() != pathOwner) {
            pathOwner = project.get();
            path = project ? project->fullProjectPath() : std::string();
            name = project ? project->name() : std::string();
        }
        ZVCSVDocument::appendRecord(out, {start, stop, run->text(), path, name});
        if (out.size() >= piece) {
            if (!sink(out)) return false;
            out.clear();
        }
    }
    return sink(out);
}

std::string ZVLogController::csvText(const std::vector<std::shared_ptr<ZVLogEntry>>& entries) {
    std::string text;
    writeCSV(entries, [&text](std::string_view piece) {
        text += piece;
        return true;
    });
    return text;
}

bool ZVLogController::writeCSVFile(const std::vector<std::shared_ptr<ZVLogEntry>>& entries, const std::string& path) {
    return ZVPaths::writeFileAtomically(path, [&entries](int fd) {
        return writeCSV(entries, [fd](std::string_view piece) { return ZVPaths::writeAll(fd, piece.data(), piece.size()); });
    });
}

bool ZVLogController::exportToCSV(const std::vector<std::shared_ptr<ZVLogEntry>>& entries, const std::string& path) {
    if (writeCSVFile(entries, path)) return true;
    ZVUserInterface::shared().runModalMessage(ZVLocalizedString("The log could not be exported."),
                                              ZVLocalizedFormat("Norvo cannot write the file \"%@\".", {path}));
    return false;
}
