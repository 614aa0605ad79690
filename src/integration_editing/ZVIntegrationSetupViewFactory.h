#pragma once

#include <memory>
#include <string>

class QWidget;
class ZVAuthentication;
class ZVIntegration;
class ZVIntegrationSetupView;

/// Builds an account's setup view from the names of its parts: the basic
/// view (basicSetupViewNibName), the credential's view (setupViewNibName of
/// its authentication) and the service's additional view
/// (additionalSetupViewNibName). A service that adds no new kind of part
/// needs nothing here; a new additional view is one more case.
class ZVIntegrationSetupViewFactory {
public:
    static ZVIntegrationSetupView* makeSetupView(const std::shared_ptr<ZVIntegration>& integration);

    /// "AddressBased": the address and, for optional SSL, the SSL switch.
    static QWidget* makeBasicView(const std::shared_ptr<ZVIntegration>& integration, const std::string& name);
    /// "UserPasswordAuthentication", "APITokenAuthentication", ...
    static QWidget* makeCredentialView(const std::shared_ptr<ZVIntegration>& integration,
                                       const std::shared_ptr<ZVAuthentication>& authentication);
    /// "Generic", "JIRA", "Kashflow"; none for a name without a view.
    static QWidget* makeAdditionalView(const std::shared_ptr<ZVIntegration>& integration, const std::string& name);
};
