#pragma once

#include <optional>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

class ZVIntegrationProject;

/// An account on TSheets, today QuickBooks Time, through its JSON interface
/// under "/api/v1/". The tree is the company's active job codes, walked to
/// a depth of exactly three; time goes out as a manual time sheet of the
/// user on the node's job code, at any level of the tree.
///
/// Every request carries the access token that an administrator makes in
/// the service's API add-on; it is kept where the account's API key always
/// was. The user name only names the account's key-store item, and the
/// password is no longer used.
class ZVTSheetsIntegration : public ZVAddressBasedIntegration {
public:
    std::string addressPlaceholder() const override { return "rest.tsheets.com"; }
    /// The service answers on one host for every company: an address of
    /// its domain (an account's old "<company>.tsheets.com" too) reaches it
    /// there, over https; any other address is a server of the user's own.
    std::string serviceBaseURL() const override;
    std::optional<ZVCredentialPresentation> credentialPresentation() const override;
    ZVCredentialStyle credentialStyle() const override {
        return {ZVCredentialStyle::Kind::bearerToken};
    }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    /// Throws when the account holds no access token.
    void _getToken();
    /// Asks whose token it is: the id of that user, who owns what is posted.
    std::string _login();
    /// The job codes below the parent (the top ones at level 0), with their
    /// children below them; nothing at all from level 3 on.
    ProjectList _loadJobCodesForLevel(int level, const ZVIntegrationProject* parent);
};
