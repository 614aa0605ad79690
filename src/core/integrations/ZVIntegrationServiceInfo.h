#pragma once

#include "core/integrations/address_based/ZVSSLSupport.h"
#include "core/integrations/authentication/ZVAuthenticationType.h"

/// One row of the table of services: the facts of a service class that the
/// setup interface and the account base read without an instance.
struct ZVIntegrationServiceInfo {
    const char* className;           // stored class name, "Norvo.ZVJIRAIntegration"
    const char* identifier;          // integrationIdentifier
    const char* name;                // integrationName, shown to the user
    ZVAuthenticationType authenticationType;
    ZVSSLSupport sslSupport;
    bool hasHardcodedAddress;
    const char* usernameLabel;       // nullptr: "Username"
    const char* setupViewName;       // additionalSetupViewNibName; nullptr: none
    bool canPostEmptyTitle;
};
