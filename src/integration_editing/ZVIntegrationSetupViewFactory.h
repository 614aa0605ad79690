#pragma once

#include <memory>
#include <string>

class QWidget;
class ZVAuthentication;
class ZVIntegration;
class ZVIntegrationSetupView;

/// Builds an account's setup view from what the account declares: the basic
/// view (basicSetupViewNibName), the credential's view (setupViewNibName of
/// its authentication, with the service's credential presentation) and a
/// control for each of the service's own settings. No service has code here.
class ZVIntegrationSetupViewFactory {
public:
    static ZVIntegrationSetupView* makeSetupView(const std::shared_ptr<ZVIntegration>& integration);

    /// "AddressBased": the address and, for optional SSL, the SSL switch.
    static QWidget* makeBasicView(const std::shared_ptr<ZVIntegration>& integration, const std::string& name);
    /// "UserPasswordAuthentication", "APITokenAuthentication", ...
    static QWidget* makeCredentialView(const std::shared_ptr<ZVIntegration>& integration,
                                       const std::shared_ptr<ZVAuthentication>& authentication);
    /// The service's own settings (not those shown with the credentials);
    /// none when it declares none.
    static QWidget* makeAdditionalView(const std::shared_ptr<ZVIntegration>& integration, const std::string& name);
};
