#include "core/integrations/helper/ZVIntegrationProject.h"

#include <algorithm>
#include <limits>

#include "ZVHelpers.h"
#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/log_entries/ZVLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {

constexpr std::uint64_t minimumSavedTimeChange = 3;

bool isBlank(const std::optional<std::string>& identifier) { return !identifier || identifier->empty(); }

}  // namespace

ZVIntegrationProject::ZVIntegrationProject(Passkey, std::string name, std::string projectID,
                                           std::optional<std::string> subprojectID)
    : _name(std::move(name)), _projectID(std::move(projectID)), _subprojectID(std::move(subprojectID)) {}

ZVIntegrationProject::~ZVIntegrationProject() {
    // Children that outlive their parent must not keep a link to it.
    for (const auto& child : _subprojects) {
        if (child && child->_parentProject.expired()) child->_parentProject.reset();
    }
    _subprojects.clear();
}

ZVIntegrationProject::Pointer ZVIntegrationProject::create() {
    return std::make_shared<ZVIntegrationProject>(Passkey{}, std::string(), ZVMakeUUID(), std::nullopt);
}

ZVIntegrationProject::Pointer ZVIntegrationProject::create(std::string name, std::string projectID,
                                                           std::optional<std::string> subprojectID) {
    return std::make_shared<ZVIntegrationProject>(Passkey{}, std::move(name), std::move(projectID),
                                                  std::move(subprojectID));
}

std::uint64_t ZVIntegrationProject::storedTime(const ZVDictionary& dictionary, const std::string& name) {
    const auto found = dictionary.find(timeKey);
    if (found == dictionary.end()) return 0;
    const ZVValue& value = found->second;
    // A time out of range comes from a hand-edited or foreign file: it is
    // brought into range with a log line rather than trusted or fatal.
    const auto logClamped = [&](std::uint64_t kept) {
        ZVLog([&] { return "The stored time of '" + name + "' is out of range; it is read as " + std::to_string(kept); });
        return kept;
    };
    if (value.type() == ZVValue::Type::integer) {
        const std::int64_t seconds = *value.integer();
        if (seconds < 0) return logClamped(0);
        return static_cast<std::uint64_t>(seconds) > maximumTime ? logClamped(maximumTime)
                                                                  : static_cast<std::uint64_t>(seconds);
    }
    if (value.type() == ZVValue::Type::real) {
        const double seconds = *value.real();
        if (!(seconds >= 0)) return logClamped(0);
        if (seconds > static_cast<double>(maximumTime)) return logClamped(maximumTime);
    }
    const std::uint64_t seconds = value.unsignedInteger().value_or(0);
    return seconds > maximumTime ? logClamped(maximumTime) : seconds;
}

ZVIntegrationProject::Pointer ZVIntegrationProject::createWithDictionary(const ZVDictionary& dictionary,
                                                                         const std::weak_ptr<ZVIntegration>& integration) {
    auto project = std::make_shared<ZVIntegrationProject>(
        Passkey{}, ZVStringValue(dictionary, nameKey),
        ZVOptionalString(dictionary, projectIDKey).value_or(ZVMakeUUID()),
        ZVOptionalString(dictionary, subprojectIDKey));
    project->_integration = integration;
    project->_additionalID = ZVOptionalString(dictionary, additionalIDKey);
    project->_fourthID = ZVOptionalString(dictionary, fourthIDKey);
    project->_time = storedTime(dictionary, project->_name);

    if (ZVBoolValue(dictionary, isSelectedKey)) ZVIntegrationCenter::shared().storedSelectionWasRead(project);

    if (const ZVArray* log = ZVArrayValue(dictionary, logKey)) {
        for (const ZVValue& value : *log) {
            const ZVDictionary* entryDictionary = value.dictionary();
            if (!entryDictionary) continue;
            if (auto entry = ZVLogEntry::logEntryWithDictionary(*entryDictionary)) project->addLogEntry(entry);
        }
    }
    if (const ZVArray* children = ZVArrayValue(dictionary, subprojectsKey)) {
        for (const ZVValue& value : *children) {
            if (const ZVDictionary* childDictionary = value.dictionary()) {
                project->addSubproject(createWithDictionary(*childDictionary, integration));
            }
        }
    }
    return project;
}

std::shared_ptr<ZVIntegration> ZVIntegrationProject::requiredIntegration() const {
    auto account = integration();
    if (!account) ZVFatalError("The project '" + _name + "' has no account");
    return account;
}

void ZVIntegrationProject::setTime(std::uint64_t seconds) {
    seconds = std::min(seconds, maximumTime);
    const std::uint64_t previous = _time.exchange(seconds);
    const std::uint64_t change = previous > seconds ? previous - seconds : seconds - previous;
    if (change < minimumSavedTimeChange) return;
    auto account = integration();
    if (!account) ZVFatalError("Changing the time of the project '" + _name + "' without an account");
    account->save();
}

void ZVIntegrationProject::setTimeWithoutSaving(std::uint64_t seconds) { _time = std::min(seconds, maximumTime); }

std::string ZVIntegrationProject::fullProjectPath() const {
    if (auto parent = parentProject()) return parent->fullProjectPath() + pathSeparator + _name;
    std::string accountName;
    if (auto account = integration()) {
        accountName = account->isLocalAccount() ? ZVLocalizedString("Projects") : account->name();
    }
    return accountName + pathSeparator + _name;
}

bool ZVIntegrationProject::containsSubprojectWithUnpostedTime() const {
    return std::any_of(_subprojects.begin(), _subprojects.end(), [](const Pointer& child) {
        return child->time() != 0 || child->containsSubprojectWithUnpostedTime();
    });
}

std::shared_ptr<ZVTimeLogEntry> ZVIntegrationProject::lastTimeLogEntry() const {
    for (auto entry = _logEntries.rbegin(); entry != _logEntries.rend(); ++entry) {
        if (auto run = std::dynamic_pointer_cast<ZVTimeLogEntry>(*entry)) return run;
    }
    return nullptr;
}

std::string ZVIntegrationProject::lastEntryTitle() const {
    auto run = lastTimeLogEntry();
    return run ? run->text() : std::string();
}

std::string ZVIntegrationProject::logString() const {
    std::string today = ZVLogEntry::shortDateString(ZVNow());
    std::replace_if(today.begin(), today.end(), [](char c) { return c == '/' || c == '.'; }, '-');

    std::string result = ZVLocalizedFormat("TODAY: %@", {today});
    result += "\n-------------------------------------------\n";
    std::string previousTitle;
    for (const auto& entry : _logEntries) {
        std::string title = entry->text();
        result += entry->entryDescription(title == previousTitle);
        result += '\n';
        previousTitle = std::move(title);
    }
    if (_logEntries.empty()) result += ZVLocalizedString("NO ENTRIES YET") + "\n";

    const std::string totalLine = ZVLocalizedFormat("TOTAL: %@", {totalTimeString()});
    result.append(ZVCharacterCount(totalLine), '-');
    result += '\n';
    result += totalLine;
    return result;
}

std::string ZVIntegrationProject::totalTimeString() const {
    const std::uint64_t t = time();
    const std::uint64_t s = t % 60;
    const std::uint64_t m60 = (t - s) % 3600;
    const std::uint64_t m = m60 / 60;
    // Hours are counted modulo 60: this string shows 0 to 59 hours and then
    // starts again. It has always read so.
    const std::uint64_t h60 = (t - s - m * 60) % 216000;
    const std::uint64_t h = h60 / 3600;
    // Each number takes the singular or plural of its own unit.
    auto number = [](std::uint64_t value) { return std::to_string(static_cast<std::int32_t>(value)); };
    auto minutes = [&] { return ZVLocalizedPluralFormat("%i MINUTE", "%i MINUTES", m, {number(m)}); };
    auto seconds = [&] { return ZVLocalizedPluralFormat("%i SECOND", "%i SECONDS", s, {number(s)}); };
    if (h60 > 3599) return ZVLocalizedPluralFormat("%i HOUR", "%i HOURS", h, {number(h)}) + " " + minutes();
    if (m60 > 59) return minutes() + " " + seconds();
    return seconds();
}

void ZVIntegrationProject::addLogEntry(const std::shared_ptr<ZVLogEntry>& entry) {
    std::lock_guard<std::mutex> guard(_lock);
    entry->setProject(shared_from_this());
    _logEntries.push_back(entry);
    noteLogChange();
}

void ZVIntegrationProject::removeLogEntry(const std::shared_ptr<ZVLogEntry>& entry) {
    auto found = std::find(_logEntries.begin(), _logEntries.end(), entry);
    if (found != _logEntries.end()) _logEntries.erase(found);
    noteLogChange();
}

void ZVIntegrationProject::addSubproject(const Pointer& project) {
    std::lock_guard<std::mutex> guard(_lock);
    _subprojects.push_back(project);
    project->_integration = _integration;
    for (const auto& grandchild : project->_subprojects) grandchild->_integration = _integration;
    project->_parentProject = weak_from_this();
    noteTreeChange();
}

void ZVIntegrationProject::addSubprojectsFromArray(const List& projects) {
    std::lock_guard<std::mutex> guard(_lock);
    for (const auto& project : projects) project->_parentProject = weak_from_this();
    _subprojects.insert(_subprojects.end(), projects.begin(), projects.end());
    noteTreeChange();
}

void ZVIntegrationProject::removeSubproject(const Pointer& project) {
    ZVLog([&] {
        auto account = integration();
        return "Removing project " + project->fullProjectPath() + " from " + fullProjectPath() + " (" +
               (account ? account->name() : std::string("no account")) + ")";
    });
    auto found = std::find(_subprojects.begin(), _subprojects.end(), project);
    if (found != _subprojects.end()) _subprojects.erase(found);
    noteTreeChange();
}

void ZVIntegrationProject::clearEmptySubprojects() {
    std::lock_guard<std::mutex> guard(_lock);
    for (std::size_t index = _subprojects.size(); index-- > 0;) {
        const Pointer child = _subprojects[index];
        child->clearEmptySubprojects();
        if (!child->hasSubprojects() && child->time() == 0) _subprojects.erase(_subprojects.begin() + static_cast<std::ptrdiff_t>(index));
    }
    noteTreeChange();
}

void ZVIntegrationProject::sortSubprojectsByName() {
    std::stable_sort(_subprojects.begin(), _subprojects.end(),
                     [](const Pointer& first, const Pointer& second) { return first->_name < second->_name; });
    noteTreeChange();
}

bool ZVIntegrationProject::isEqualToProject(const ZVIntegrationProject& other) const {
    if (isBlank(_subprojectID) && isBlank(_additionalID) && isBlank(other._subprojectID) &&
        isBlank(other._additionalID)) {
        return _projectID == other._projectID;
    }
    if (_projectID != other._projectID) return false;
    // Here an absent identifier and an empty one differ.
    if (isBlank(_additionalID) && isBlank(other._additionalID)) return _subprojectID == other._subprojectID;
    return _subprojectID == other._subprojectID && _additionalID == other._additionalID;
}

ZVDictionary ZVIntegrationProject::dictionaryRepresentation() const {
    ZVDictionary dictionary;
    dictionary[nameKey] = _name;
    dictionary[projectIDKey] = _projectID;
    if (_subprojectID) dictionary[subprojectIDKey] = *_subprojectID;
    if (_additionalID) dictionary[additionalIDKey] = *_additionalID;
    if (_fourthID) dictionary[fourthIDKey] = *_fourthID;
    dictionary[timeKey] = ZVValue(static_cast<unsigned long long>(time()));
    if (const auto* center = ZVIntegrationCenter::sharedIfExists(); center && center->currentProject().get() == this) {
        dictionary[isSelectedKey] = true;
    }
    ZVArray log;
    log.reserve(_logEntries.size());
    for (const auto& entry : _logEntries) log.emplace_back(entry->dictionaryRepresentation());
    dictionary[logKey] = std::move(log);
    ZVArray children;
    children.reserve(_subprojects.size());
    for (const auto& child : _subprojects) children.emplace_back(child->dictionaryRepresentation());
    dictionary[subprojectsKey] = std::move(children);
    return dictionary;
}

std::string ZVIntegrationProject::description() const {
    return "<ZVIntegrationProject '" + _name + "' " + _projectID + "/" + _subprojectID.value_or("-") + "/" +
           _additionalID.value_or("-") + ">";
}
