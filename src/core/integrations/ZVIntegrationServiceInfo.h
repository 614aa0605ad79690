#pragma once

#include <memory>
#include <typeinfo>

#include "ZVValue.h"
#include "core/integrations/ZVSSLSupport.h"
#include "core/integrations/authentication/ZVAuthenticationType.h"

class ZVIntegration;

/// How accounts of a built service class are made.
struct ZVIntegrationMaker {
    std::shared_ptr<ZVIntegration> (*makeNew)() = nullptr;
    std::shared_ptr<ZVIntegration> (*makeWithDictionary)(const ZVDictionary&) = nullptr;
    const std::type_info* type = nullptr;
};

/// One row of the table of services: the facts of a service class that the
/// setup interface and the account base read without an instance, and its
/// maker once the service is built.
struct ZVIntegrationServiceInfo {
    const char* className = nullptr;   // stored class name, "Norvo.ZVJIRAIntegration"
    const char* identifier = nullptr;  // integrationIdentifier
    const char* name = nullptr;        // integrationName, shown to the user
    ZVAuthenticationType authenticationType = ZVAuthenticationType::none;
    ZVSSLSupport sslSupport = ZVSSLSupport::mandatory;
    bool hasHardcodedAddress = false;
    const char* usernameLabel = nullptr;  // nullptr: "Username"
    const char* setupViewName = nullptr;  // additionalSetupViewNibName; nullptr: none
    bool canPostEmptyTitle = true;
    ZVIntegrationMaker make = {};
};
