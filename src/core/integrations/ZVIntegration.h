#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZVDownloadCenter.h"
#include "ZVValue.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/ZVIntegrationSetting.h"
#include "core/integrations/authentication/ZVAuthenticationType.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVMenu.h"

class ZVAuthentication;
class ZVAPITokenAuthentication;
class ZVIntegrationProject;
class ZVOAuth2Authentication;
class ZVUsernameAPITokenAuthentication;
class ZVUsernamePasswordAPITokenAuthentication;
class ZVUsernamePasswordAuthentication;
struct ZVIntegrationServiceInfo;

/// Keys of an account's dictionary form, one value of Integrations.edb.
inline constexpr const char* ZVIntegrationNameKey = "KDIntegrationName";
inline constexpr const char* ZVIntegrationUIDKey = "KDIntegrationUID";
inline constexpr const char* ZVIntegrationCachedProjectsKey = "KDIntegrationCachedProjects";
inline constexpr const char* ZVIntegrationAuthenticationKey = "KDIntegrationAuthentication";
inline constexpr const char* ZVIntegrationClassKey = "KDIntegrationClass";

/// An account: one configured connection to a source of projects. It owns
/// its name, its stable identifier, its credentials and its tree of
/// projects. A service class states facts about its service by overriding
/// small virtual functions (most of them default to the service's row in the
/// table of services, found by className()) and supplies two behaviours:
/// loadRemoteProjects() and postTime(for:), which throw ZVIntegrationError.
///
/// Accounts live in shared pointers: construct them with makeNew<T>() or
/// makeWithDictionary<T>(), never with a bare constructor, because the setup
/// steps call virtual functions and hand the account to its projects.
///
/// Lock order: the account's lock(), then a node's lock, parent first.
class ZVIntegration : public ZVDownloadCenterOwner, public std::enable_shared_from_this<ZVIntegration> {
public:
    using ProjectList = std::vector<std::shared_ptr<ZVIntegrationProject>>;

    /// A new account: named "My <integrationName> Account", with a fresh
    /// UUID and an empty credential object of its authentication type.
    template <class T>
    static std::shared_ptr<T> makeNew() {
        auto account = std::make_shared<T>();
        static_cast<ZVIntegration&>(*account).initialize();
        return account;
    }
    /// An account read from its dictionary form.
    template <class T>
    static std::shared_ptr<T> makeWithDictionary(const ZVDictionary& dictionary) {
        auto account = std::make_shared<T>();
        static_cast<ZVIntegration&>(*account).initializeWithDictionary(dictionary);
        return account;
    }
    /// Finds the class named at "KDIntegrationClass" (old "KD..." names and a
    /// leading "NSKVONotifying_" are understood) and reads the account.
    /// Nothing, with a log line, when the class is missing or unknown.
    static std::shared_ptr<ZVIntegration> integrationWithDictionary(const ZVDictionary& dictionary);
    /// Takes the top-level nodes that a reader built from the stored form
    /// while the rest of the account was still being read, after the nodes
    /// the dictionary held; every level gets this account.
    void adoptLoadedProjects(ProjectList projects);

    ZVIntegration();
    ~ZVIntegration() override;
    ZVIntegration(const ZVIntegration&) = delete;
    ZVIntegration& operator=(const ZVIntegration&) = delete;

    // Facts of the class.

    /// The stored class name, module included: "Norvo.ZVJIRAIntegration".
    virtual std::string className() const;
    /// "com.tesselwick.norvo.jira"; from the table of services.
    virtual std::string integrationIdentifier() const;
    /// "JIRA"; from the table of services.
    virtual std::string integrationName() const;
    virtual ZVAuthenticationType authenticationType() const;
    /// The name of the account's extra setup view, if it has one.
    virtual std::optional<std::string> additionalSetupViewNibName() const;
    bool hasAdditionalSetupView() const { return additionalSetupViewNibName().has_value(); }
    virtual std::string basicSetupViewNibName() const;
    virtual bool canPostEmptyTitle() const;
    /// Whether the tree leaves out projects with nothing to post to (no open
    /// task or ticket), which the account panel tells; a flat list of
    /// projects leaves none out.
    virtual bool leavesOutProjectsWithoutOpenTasks() const { return true; }
    virtual bool canPostTime() const { return true; }
    /// Localized label of the user name field: "Username" unless the service says otherwise.
    virtual std::string usernameLabel() const;
    /// The key of the account's secrets in the key store.
    virtual std::string accountIdentifier() const;
    /// Whether this is the built-in account of local projects.
    virtual bool isLocalAccount() const { return false; }
    /// The row of this class in the table of services, or nullptr.
    const ZVIntegrationServiceInfo* serviceInfo() const;

    /// The service's own settings, in the order the setup shows them.
    virtual const std::vector<ZVIntegrationSetting>& settings() const;
    /// How the credentials are asked for now; nothing for the plain fields.
    virtual std::optional<ZVCredentialPresentation> credentialPresentation() const { return std::nullopt; }

    // State.

    /// The value of a declared setting: as stored, as set, or its default.
    ZVValue settingValue(std::string_view key) const;
    bool flagSetting(std::string_view key) const;
    double numberSetting(std::string_view key) const;
    std::int64_t choiceSetting(std::string_view key) const;
    std::string textSetting(std::string_view key) const;
    /// Sets a declared setting; a value of another type is ignored.
    void setSettingValue(std::string_view key, const ZVValue& value);

    std::string integrationID() const;
    /// The account's name; also the download centre owner's name in the log.
    std::string name() const override;
    void setName(std::string name);

    std::shared_ptr<ZVAuthentication> authentication() const;
    void setAuthentication(std::shared_ptr<ZVAuthentication> authentication);
    /// authentication() as that class; a missing or different credential is
    /// a programming error. The token form also accepts
    /// ZVUsernameAPITokenAuthentication.
    ZVAPITokenAuthentication& APITokenAuthentication() const;
    ZVOAuth2Authentication& OAuth2Authentication() const;
    ZVUsernameAPITokenAuthentication& usernameAPITokenAuthentication() const;
    ZVUsernamePasswordAPITokenAuthentication& usernamePasswordAPITokenAuthentication() const;
    ZVUsernamePasswordAuthentication& usernamePasswordAuthentication() const;

    /// Guards the tree against the synchronization thread. Recursive.
    std::recursive_mutex& lock() const { return _lock; }

    // Projects.

    /// The top-level projects, copied without the lock.
    ProjectList availableProjects() const;
    /// Appends, posts ZVIntegrationAvailableProjectsDidChange (object: the
    /// account), saves.
    virtual void addProject(std::shared_ptr<ZVIntegrationProject> project);
    /// Removes the same node (by identity), posts and saves; nothing if absent.
    virtual void removeProject(const std::shared_ptr<ZVIntegrationProject>& project);
    virtual bool containsProjectWithUnpostedTime() const;
    /// Leaves with time; a node with subprojects stands for its subprojects only.
    virtual ProjectList projectsWithNonZeroTime() const;

    // Storage.

    virtual ZVDictionary dictionaryRepresentation();
    /// The dictionary form without the tree of projects: the account's name,
    /// class, credential and settings. Cheap at any size of the tree.
    ZVDictionary settingsRepresentation();
    /// Saves the account through the centre (only when the centre holds it):
    /// what changed goes into the database's journal, its secrets into the
    /// key store under the current accountIdentifier.
    virtual void save();

    /// Moves the credential's secrets to the key store under the current
    /// accountIdentifier (a changed address or user name moves them).
    void _saveSecrets();

    // Menus.

    /// The account's submenu: its projects, "No Projects" when there are
    /// none, and with the utility items "Synchronize Now", "Post All Times",
    /// "Edit Account..." and "Remove Account...".
    virtual std::shared_ptr<ZVMenu> integrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                                    const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                                    bool includeUtilityMenuItems = false);
    /// The same menu as an item's submenu, made when it is first looked into.
    ZVSubmenu lazyIntegrationMenu(ZVIntegrationProjectMenuItemTarget* target,
                                  const std::shared_ptr<ZVIntegrationProject>& selectedProject,
                                  bool includeUtilityMenuItems);
    /// "Remove Account...": asks, then removes the item's account from the centre.
    void _removeAccount(const ZVMenuItem& menuItem);
    /// What "Post All Times" of an account's menu runs (the action centre's
    /// posting of all times of one account); the item is disabled without it.
    static void setPostAllTimesHandler(std::function<void(const std::shared_ptr<ZVIntegration>&)> handler);

    // Network.

    /// Logs the failure; the user learns of it through what the service throws.
    void didEncounterError(ZVDownloadCenter& center, const ZVDownloadCenterError& error) override;
    /// Called by a download centre of this account on each of its requests;
    /// nothing in the base.
    void setupURLRequest(ZVURLRequest& request, const std::string& url) override;

    /// Where a HEAD request tells, before a synchronization, whether the
    /// computer is online: any answer counts. Nothing skips the test.
    virtual std::optional<std::string> connectionProbeURL() const { return std::nullopt; }
    /// Why the last synchronization could not reach the service ("Norvo
    /// could not reach ..."), or nothing after one that did. Shown in the
    /// account's menu and the state report.
    std::optional<std::string> synchronizationProblem() const;
    void setSynchronizationProblem(std::optional<std::string> problem);

    // Behaviours of a service.

    /// A fresh tree of the service's projects, with integration set. Throws
    /// ZVIntegrationError. Runs on the synchronization thread.
    virtual ProjectList loadRemoteProjects();
    /// Sends the project's time to the service. Throws ZVIntegrationError.
    virtual void postTime(ZVIntegrationProject& project);

    // Synchronization: these three are defined with the synchronization
    // (core/sync), not in ZVIntegration.cpp.

    /// On the main thread, hands over to the centre; elsewhere, loads and merges.
    virtual void synchronize();
    void _mergeWithRemoteProjects(ProjectList remoteProjects);
    void _synchronizationEndedWithAnError(const ZVIntegrationError& error);

protected:
    /// A new account ("init()"). Overrides call the base first unless they
    /// must prepare something the base reads.
    virtual void initialize();
    /// An account from its dictionary form ("init(dictionary:)").
    virtual void initializeWithDictionary(const ZVDictionary& dictionary);
    /// Makes the credential object of authenticationType() for the current
    /// accountIdentifier() from its stored form.
    void makeAuthentication(const ZVDictionary& dictionary);
    void setIntegrationID(std::string integrationID);

    ProjectList _projects;

private:
    mutable std::recursive_mutex _lock;
    mutable std::mutex _fieldsLock;
    std::string _integrationID;
    std::string _name;
    std::shared_ptr<ZVAuthentication> _authentication;
    std::map<std::string, ZVValue, std::less<>> _settingValues;
    std::optional<std::string> _synchronizationProblem;
};
