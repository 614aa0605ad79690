#include "core/integrations/ZVIntegration.h"

#include <algorithm>
#include <cstdio>

#include "ZVHelpers.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVIntegrationWithOAuth2.h"
#include "core/integrations/authentication/ZVOAuth2Authentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

namespace {
template <class Credential>
Credential& credentialAs(const std::shared_ptr<ZVAuthentication>& authentication, const char* operation) {
    auto* credential = dynamic_cast<Credential*>(authentication.get());
    if (!credential) ZVFatalError(std::string(operation) + ": the account has no credential of that kind");
    return *credential;
}

void collectProjectsWithNonZeroTime(const ZVIntegrationProject::Pointer& project, ZVIntegration::ProjectList& result) {
    if (project->hasSubprojects()) {
        for (const auto& subproject : project->subprojects()) collectProjectsWithNonZeroTime(subproject, result);
    } else if (project->time() != 0) {
        result.push_back(project);
    }
}
}  // namespace

ZVIntegration::ZVIntegration() = default;
ZVIntegration::~ZVIntegration() = default;

std::shared_ptr<ZVIntegration> ZVIntegration::integrationWithDictionary(const ZVDictionary& dictionary) {
    const auto storedName = ZVOptionalString(dictionary, ZVIntegrationClassKey);
    if (!storedName) {
        ZVLog([&] {
            return "ERROR: Trying to create an integration with dictionary that doesn't contain class information " +
                   ZVValue(dictionary).description() + "!";
        });
        return nullptr;
    }
    const std::string className = ZVIntegrationRegistry::normalizedClassName(*storedName);
    const auto integrationClass = ZVIntegrationRegistry::classNamed(className);
    if (!integrationClass) {
        ZVLog([&] {
            return "ERROR: Unknown or invalid class " + className + " (dictionary: " + ZVValue(dictionary).description() +
                   ")";
        });
        return nullptr;
    }
    return integrationClass->makeWithDictionary(dictionary);
}

// Facts. A built service finds its row in the table of services by its
// class; a class outside the table (a test double) by the class name it
// states, and it must override the facts that have no default.

const ZVIntegrationServiceInfo* ZVIntegration::serviceInfo() const {
    if (const auto* info = ZVIntegrationRegistry::serviceForType(typeid(*this))) return info;
    return ZVIntegrationRegistry::serviceForClassName(className());
}

std::string ZVIntegration::className() const {
    if (const auto* info = ZVIntegrationRegistry::serviceForType(typeid(*this))) return info->className;
    ZVFatalError("className");
}

std::string ZVIntegration::integrationIdentifier() const {
    if (const auto* info = serviceInfo()) return info->identifier;
    ZVFatalError("integrationIdentifier");
}

std::string ZVIntegration::integrationName() const {
    if (const auto* info = serviceInfo()) return info->name;
    ZVFatalError("integrationName");
}

ZVAuthenticationType ZVIntegration::authenticationType() const {
    if (const auto* info = serviceInfo()) return info->authenticationType;
    return ZVAuthenticationType::none;
}

std::optional<std::string> ZVIntegration::additionalSetupViewNibName() const {
    if (const auto* info = serviceInfo(); info && info->setupViewName) return info->setupViewName;
    return std::nullopt;
}

std::string ZVIntegration::basicSetupViewNibName() const { ZVFatalError("basicSetupViewNibName"); }

bool ZVIntegration::canPostEmptyTitle() const {
    if (const auto* info = serviceInfo()) return info->canPostEmptyTitle;
    return true;
}

std::string ZVIntegration::usernameLabel() const {
    if (const auto* info = serviceInfo(); info && info->usernameLabel) return ZVLocalizedString(info->usernameLabel);
    return ZVLocalizedString("Username");
}

std::string ZVIntegration::accountIdentifier() const { ZVFatalError("accountIdentifier"); }

// Setting up.

void ZVIntegration::initialize() {
    setName(ZVLocalizedString("Untitled"));
    setIntegrationID(ZVMakeUUID());
    // Built from literal parts: the service's name is not translated.
    setName("My " + integrationName() + " Account");
    makeAuthentication({});
}

const std::vector<ZVIntegrationSetting>& ZVIntegration::settings() const {
    static const std::vector<ZVIntegrationSetting> none;
    return none;
}

namespace {
const ZVIntegrationSetting* declared(const std::vector<ZVIntegrationSetting>& settings, std::string_view key) {
    for (const auto& setting : settings)
        if (key == setting.key) return &setting;
    return nullptr;
}
}  // namespace

ZVValue ZVIntegration::settingValue(std::string_view key) const {
    const ZVIntegrationSetting* setting = declared(settings(), key);
    if (!setting) ZVFatalError("No setting " + std::string(key) + " declared by " + className());
    std::lock_guard guard(_fieldsLock);
    const auto found = _settingValues.find(key);
    return found != _settingValues.end() ? found->second : setting->initialValue();
}

bool ZVIntegration::flagSetting(std::string_view key) const { return settingValue(key).boolean().value_or(false); }
double ZVIntegration::numberSetting(std::string_view key) const { return settingValue(key).real().value_or(0); }
std::int64_t ZVIntegration::choiceSetting(std::string_view key) const { return settingValue(key).integer().value_or(0); }
std::string ZVIntegration::textSetting(std::string_view key) const {
    const ZVValue value = settingValue(key);
    return value.string() ? *value.string() : std::string();
}

void ZVIntegration::setSettingValue(std::string_view key, const ZVValue& value) {
    const ZVIntegrationSetting* setting = declared(settings(), key);
    if (!setting) ZVFatalError("No setting " + std::string(key) + " declared by " + className());
    auto accepted = setting->accepted(value);
    if (!accepted) return;
    std::lock_guard guard(_fieldsLock);
    _settingValues.insert_or_assign(std::string(key), std::move(*accepted));
}

void ZVIntegration::initializeWithDictionary(const ZVDictionary& dictionary) {
    for (const auto& setting : settings()) {
        const auto stored = dictionary.find(setting.key);
        if (stored == dictionary.end()) continue;
        if (auto accepted = setting.accepted(stored->second)) _settingValues.insert_or_assign(setting.key, std::move(*accepted));
    }
    setName(ZVOptionalString(dictionary, ZVIntegrationNameKey).value_or(ZVLocalizedString("Untitled")));
    setIntegrationID(ZVOptionalString(dictionary, ZVIntegrationUIDKey).value_or(ZVMakeUUID()));

    if (const ZVArray* cached = ZVArrayValue(dictionary, ZVIntegrationCachedProjectsKey)) {
        for (const ZVValue& value : *cached) {
            if (const ZVDictionary* projectDictionary = value.dictionary())
                _projects.push_back(ZVIntegrationProject::createWithDictionary(*projectDictionary, weak_from_this()));
        }
    }

    const ZVDictionary* stored = ZVDictionaryValue(dictionary, ZVIntegrationAuthenticationKey);
    makeAuthentication(stored ? *stored : ZVDictionary{});

    // Two levels, as the stored trees have always been repaired; deeper
    // nodes got their account when they were built.
    for (const auto& project : _projects) {
        project->setIntegration(weak_from_this());
        for (const auto& subproject : project->subprojects()) subproject->setIntegration(weak_from_this());
    }
}

void ZVIntegration::adoptLoadedProjects(ProjectList projects) {
    std::vector<ZVIntegrationProject*> open;
    for (const auto& project : projects) open.push_back(project.get());
    while (!open.empty()) {
        ZVIntegrationProject* project = open.back();
        open.pop_back();
        project->setIntegration(weak_from_this());
        for (const auto& subproject : project->subprojects()) open.push_back(subproject.get());
    }
    _projects.insert(_projects.end(), std::make_move_iterator(projects.begin()), std::make_move_iterator(projects.end()));
}

void ZVIntegration::makeAuthentication(const ZVDictionary& dictionary) {
    const ZVAuthenticationType type = authenticationType();
    if (type == ZVAuthenticationType::none || type == ZVAuthenticationType::other) {
        setAuthentication(nullptr);
        return;
    }
    auto credential = ZVAuthentication::make(type, dictionary, accountIdentifier());
    if (auto* named = dynamic_cast<ZVUsernamePasswordAuthentication*>(credential.get()))
        named->setUsernameLabel(usernameLabel());
    if (auto* named = dynamic_cast<ZVUsernameAPITokenAuthentication*>(credential.get()))
        named->setUsernameLabel(usernameLabel());
    if (auto* oauth = dynamic_cast<ZVOAuth2Authentication*>(credential.get())) {
        auto* owner = dynamic_cast<ZVIntegrationWithOAuth2*>(this);
        if (!owner) ZVFatalError("An OAuth2 account must implement ZVIntegrationWithOAuth2");
        oauth->setIntegration(owner);
    }
    setAuthentication(std::move(credential));
}

// State.

std::string ZVIntegration::integrationID() const {
    std::lock_guard guard(_fieldsLock);
    return _integrationID;
}

void ZVIntegration::setIntegrationID(std::string integrationID) {
    std::lock_guard guard(_fieldsLock);
    _integrationID = std::move(integrationID);
}

std::string ZVIntegration::name() const {
    std::lock_guard guard(_fieldsLock);
    return _name;
}

void ZVIntegration::setName(std::string name) {
    {
        std::lock_guard guard(_fieldsLock);
        _name = std::move(name);
    }
    // The account's name begins every path of its tree.
    ZVIntegrationProject::noteTreeChange();
}

std::shared_ptr<ZVAuthentication> ZVIntegration::authentication() const {
    std::lock_guard guard(_fieldsLock);
    return _authentication;
}

void ZVIntegration::setAuthentication(std::shared_ptr<ZVAuthentication> authentication) {
    std::lock_guard guard(_fieldsLock);
    _authentication = std::move(authentication);
}

ZVAPITokenAuthentication& ZVIntegration::APITokenAuthentication() const {
    return credentialAs<ZVAPITokenAuthentication>(authentication(), "APITokenAuthentication");
}

ZVOAuth2Authentication& ZVIntegration::OAuth2Authentication() const {
    return credentialAs<ZVOAuth2Authentication>(authentication(), "OAuth2Authentication");
}

ZVUsernameAPITokenAuthentication& ZVIntegration::usernameAPITokenAuthentication() const {
    return credentialAs<ZVUsernameAPITokenAuthentication>(authentication(), "usernameAPITokenAuthentication");
}

ZVUsernamePasswordAPITokenAuthentication& ZVIntegration::usernamePasswordAPITokenAuthentication() const {
    return credentialAs<ZVUsernamePasswordAPITokenAuthentication>(authentication(),
                                                                  "usernamePasswordAPITokenAuthentication");
}

ZVUsernamePasswordAuthentication& ZVIntegration::usernamePasswordAuthentication() const {
    return credentialAs<ZVUsernamePasswordAuthentication>(authentication(), "usernamePasswordAuthentication");
}

// Projects.

ZVIntegration::ProjectList ZVIntegration::availableProjects() const {
    // Without the lock: a synchronization holds it while it waits for the
    // user's answer on the main thread.
    return _projects;
}

void ZVIntegration::addProject(std::shared_ptr<ZVIntegrationProject> project) {
    _projects.push_back(std::move(project));
    ZVIntegrationProject::noteTreeChange();
    ZVNotificationCenter::shared().post(ZVIntegrationAvailableProjectsDidChange, shared_from_this());
    save();
}

void ZVIntegration::removeProject(const std::shared_ptr<ZVIntegrationProject>& project) {
    std::lock_guard guard(_lock);
    const auto found = std::find(_projects.begin(), _projects.end(), project);
    if (found == _projects.end()) return;
    _projects.erase(found);
    ZVIntegrationProject::noteTreeChange();
    ZVNotificationCenter::shared().post(ZVIntegrationAvailableProjectsDidChange, shared_from_this());
    save();
}

bool ZVIntegration::containsProjectWithUnpostedTime() const {
    std::lock_guard guard(_lock);
    return std::any_of(_projects.begin(), _projects.end(), [](const auto& project) {
        return project->time() != 0 || project->containsSubprojectWithUnpostedTime();
    });
}

ZVIntegration::ProjectList ZVIntegration::projectsWithNonZeroTime() const {
    std::lock_guard guard(_lock);
    ProjectList result;
    for (const auto& project : _projects) collectProjectsWithNonZeroTime(project, result);
    return result;
}

// Storage.

namespace {
// Set while settingsRepresentation() asks a service's dictionaryRepresentation(),
// which starts from the base's: the base then leaves the tree out.
thread_local bool representingSettingsOnly = false;

}  // namespace

ZVDictionary ZVIntegration::settingsRepresentation() {
    representingSettingsOnly = true;
    ZVDictionary dictionary = dictionaryRepresentation();
    representingSettingsOnly = false;
    dictionary.erase(ZVIntegrationCachedProjectsKey);
    return dictionary;
}

ZVDictionary ZVIntegration::dictionaryRepresentation() {
    // Without the lock: the autosave runs on the main thread, also while a
    // synchronization holds the lock and waits there for the user's answer.
    ZVArray projects;
    if (!representingSettingsOnly) projects.reserve(_projects.size());
    for (const auto& project : _projects) {
        if (representingSettingsOnly) break;
        projects.emplace_back(project->dictionaryRepresentation());
    }
    std::string storedClassName = className();
    const std::string observerPrefix = "NSKVONotifying_";
    if (storedClassName.starts_with(observerPrefix)) storedClassName.erase(0, observerPrefix.size());

    ZVDictionary dictionary{
        {ZVIntegrationNameKey, name()},
        {ZVIntegrationUIDKey, integrationID()},
        {ZVIntegrationCachedProjectsKey, std::move(projects)},
        {ZVIntegrationClassKey, storedClassName},
    };
    if (auto credential = authentication())
        dictionary[ZVIntegrationAuthenticationKey] = credential->dictionaryRepresentation();
    for (const auto& setting : settings()) dictionary[setting.key] = settingValue(setting.key);
    return dictionary;
}

void ZVIntegration::save() {
    ZVLog([&] { return name() + " - saving."; });
    ZVIntegrationCenter& center = ZVIntegrationCenter::shared();
    const auto accounts = center.integrations();
    if (std::find(accounts.begin(), accounts.end(), shared_from_this()) == accounts.end()) {
        ZVLog([&] { return "Integration center doesn't contain me (" + name() + ")!"; });
        return;
    }
    center.saveIntegration(shared_from_this());
}

void ZVIntegration::_saveSecrets() {
    // A changed address or user name moves the secret to its new key; the
    // old item stays in the key store.
    if (auto credential = authentication()) {
        credential->setAccountInformation(accountIdentifier());
        credential->saveKeychainInformation();
    }
}

// Behaviours every service supplies.

ZVIntegration::ProjectList ZVIntegration::loadRemoteProjects() { ZVFatalError("loadRemoteProjects()"); }

void ZVIntegration::postTime(ZVIntegrationProject&) { ZVFatalError("postTime(for:)"); }

// Menus.

namespace {
std::mutex postAllTimesHandlerLock;
std::function<void(const std::shared_ptr<ZVIntegration>&)>& postAllTimesHandler() {
    static std::function<void(const std::shared_ptr<ZVIntegration>&)> handler;
    return handler;
}
}  // namespace

void ZVIntegration::setPostAllTimesHandler(std::function<void(const std::shared_ptr<ZVIntegration>&)> handler) {
    std::lock_guard guard(postAllTimesHandlerLock);
    postAllTimesHandler() = std::move(handler);
}

ZVSubmenu ZVIntegration::lazyIntegrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                             const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                             bool includeUtilityMenuItems) {
    return ZVSubmenu::lazy([self = shared_from_this(), target, selectedProject, includeUtilityMenuItems] {
        return self->integrationMenu(target, selectedProject, includeUtilityMenuItems);
    });
}

std::shared_ptr<ZVMenu> ZVIntegration::integrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                                       const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                                       bool includeUtilityMenuItems) {
    auto menu = std::make_shared<ZVMenu>(name());
    // A refresh that could not reach the service says so where the user
    // looks for the account's projects.
    const auto problem = synchronizationProblem();
    if (problem) {
        menu->addItem(*problem).enabled = false;
        menu->addSeparator();
    }
    const std::size_t before = menu->size();
    {
        std::lock_guard guard(_lock);
        for (const auto& project : _projects) {
            auto item = project->menuItem(target, selectedProject);
            if (selectedProject && selectedProject == project) item->state = ZVMenuItem::State::on;
            menu->addItem(std::move(item));
            if (auto alternate = project->alternateMenuItem()) menu->addItem(std::move(alternate));
        }
    }
    if (menu->size() == before) {
        // No one answers "absurdium": the item only says that the list is empty.
        ZVMenuItem& empty = menu->addItem(ZVLocalizedString("No Projects"), "absurdium");
        empty.enabled = false;
    }
    if (!includeUtilityMenuItems) return menu;

    std::weak_ptr<ZVIntegration> weakSelf = weak_from_this();
    std::shared_ptr<ZVIntegration> self = shared_from_this();
    menu->addSeparator();
    menu->addItem(ZVLocalizedString("Synchronize Now"), "synchronize", [weakSelf](const ZVMenuItem&) {
        if (auto account = weakSelf.lock()) account->synchronize();
    });

    ZVMenuItem& postAll = menu->addItem(ZVLocalizedString("Post All Times"), "postAllTimes:");
    postAll.representedObject = self;
    {
        std::lock_guard guard(postAllTimesHandlerLock);
        if (auto handler = postAllTimesHandler())
            postAll.handler = [handler, weakSelf](const ZVMenuItem&) {
                if (auto account = weakSelf.lock()) handler(account);
            };
    }

    ZVMenuItem& edit = menu->addItem(ZVLocalizedString("Edit Account..."), "_editAccount:");
    edit.representedObject = self;
    if (target && target->respondsToMenuAction("_editAccount:"))
        edit.handler = [target](const ZVMenuItem& item) { target->performMenuAction("_editAccount:", item); };

    ZVMenuItem& remove = menu->addItem(ZVLocalizedString("Remove Account..."), "_removeAccount:");
    remove.representedObject = self;
    remove.handler = [weakSelf](const ZVMenuItem& item) {
        if (auto account = weakSelf.lock()) account->_removeAccount(item);
    };
    return menu;
}

void ZVIntegration::_removeAccount(const ZVMenuItem& menuItem) {
    auto account = menuItem.representedIntegration();
    if (!account) ZVFatalError("_removeAccount: the menu item carries no account");
    ZVAlert alert;
    alert.messageText = ZVLocalizedFormat("Do you really want to remove account '%@'?", {account->name()});
    alert.informativeText = ZVLocalizedString("All recorded times will be discarded. This action cannot be undone.");
    alert.buttons = {ZVLocalizedString("Cancel"), ZVLocalizedString("Remove")};
    if (ZVUserInterface::shared().runModal(alert).buttonIndex != 0)
        ZVIntegrationCenter::shared().removeIntegration(account);
}

// Network.

void ZVIntegration::didEncounterError(ZVDownloadCenter&, const ZVDownloadCenterError& error) {
    ZVLog([&] { return "Encountered error: " + error.description() + "."; });
}

void ZVIntegration::setupURLRequest(ZVURLRequest&, const std::string&) {}
