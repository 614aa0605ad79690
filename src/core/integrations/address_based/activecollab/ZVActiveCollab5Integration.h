#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on ActiveCollab 5 and later, hosted (the application host
/// with the account's number as the path) or on the user's own server,
/// through the JSON interface under "/api/v1/". A hosted account logs in
/// through the central login host and trades the intent it gives for a
/// token; a server of the user's issues the token at once. The tree is
/// projects, their open tasks, and one leaf per job type below each task,
/// since a time record needs a job type.
class ZVActiveCollab5Integration : public ZVAddressBasedIntegration {
public:
    /// Kept with the account, shared with the older ActiveCollab; no post reads it.
    static constexpr const char* billingKey = "KDActiveCollabBillingType";

    std::string addressPlaceholder() const override { return "app.activecollab.com/account_id"; }
    const std::vector<ZVIntegrationSetting>& settings() const override;

    /// The key store items of the central login's intent and of the token,
    /// under the account's identifier: a login outlives a restart.
    static constexpr const char* intentItem = "ZVActiveCollabIntent";
    static constexpr const char* APITokenItem = "ZVActiveCollabAPIToken";

    /// The token travels in a header of the service's own; it is issued
    /// anew when the server refuses it.
    ZVCredentialStyle credentialStyle() const override {
        return {.kind = ZVCredentialStyle::Kind::session,
                .sessionStyle = ZVCredentialStyle::Kind::tokenHeader,
                .sessionName = "X-Angie-AuthApiToken"};
    }
    /// The stored token, or a new one from a login.
    std::string logIn() override;
    /// Forgets the stored intent and token too: the next request logs in anew.
    bool endsRefusedSession(const ZVCredentialStyle& sent) override;
    std::string refusalMessagePath() const override { return "message"; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    /// An older database kept the intent and the token in the account's
    /// dictionary: they move to the key store.
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    std::optional<std::string> _storedSecret(const char* item) const;
    void _storeSecret(const char* item, const std::string& value) const;
};
