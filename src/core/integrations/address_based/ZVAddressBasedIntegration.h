#pragma once

#include <string>

#include "core/integrations/ZVIntegration.h"
#include "core/integrations/address_based/ZVSSLSupport.h"

inline constexpr const char* ZVIntegrationAddressKey = "KDIntegrationAddress";
inline constexpr const char* ZVIntegrationUseSSLKey = "KDIntegrationUseSSL";

/// The base of every remote service: where the service lives (an address
/// the user types, or a fixed host of the service) and the scheme to reach
/// it. The address is the accountIdentifier, so it keys the secrets.
///
/// It also holds what every service does with that address: URLs from a
/// path and a query, basic authentication from the credentials, the status
/// test, and downloads that throw ZVIntegrationNoConnectionError when there
/// is no usable answer.
class ZVAddressBasedIntegration : public ZVIntegration {
public:
    // Facts.

    /// Whether the user may choose the scheme; from the table of services.
    virtual ZVSSLSupport SSLSupport() const;
    /// Whether the service lives on one fixed host; from the table of services.
    virtual bool hasHardcodedAddress() const;
    /// The fixed host; a service with hasHardcodedAddress() must override it.
    virtual std::string hardcodedAddress() const;
    /// What the address field shows while it is empty.
    virtual std::string addressPlaceholder() const;
    /// "https" when SSL is enabled or mandatory, else "http".
    virtual std::string URLScheme() const;

    bool isSSLEnabled() const;
    virtual void setSSLEnabled(bool enabled);

    /// The fixed host when there is one, else the stored address.
    std::string address() const;
    /// Stores what the user typed, cleaned by cleanedAddress().
    void setAddress(const std::string& value);
    /// An address without "http://" and "https://" and without one trailing
    /// "/", when it begins with "http"; anything else unchanged.
    static std::string cleanedAddress(const std::string& value);

    std::string accountIdentifier() const override;
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    /// Empty when there is no address; else the base's keys plus
    /// "KDIntegrationAddress" (without a fixed host) and "KDIntegrationUseSSL".
    ZVDictionary dictionaryRepresentation() override;

    // Helpers for services.

    /// URLScheme() + "://" + address().
    std::string baseURL() const;
    /// baseURL() + path (which begins with "/"), plus "?" and the query when
    /// one is given (already encoded, as from a dictionary's urlQueryString).
    std::string URLForPath(const std::string& path, const std::string& query = {}) const;
    /// Whether an HTTP status counts as success: 200 to 299.
    static bool isSuccessfulStatusCode(long statusCode);

protected:
    void initialize() override;
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    mutable std::mutex _addressLock;
    std::string _address;
    bool _isSSLEnabled = true;
};
