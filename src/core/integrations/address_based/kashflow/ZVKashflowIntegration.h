#pragma once

#include <atomic>
#include <string>

#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

/// An account on KashFlow, an online accounting service with a SOAP
/// interface. The tree is customers with their invoices; tracked time goes
/// out as a new line on the chosen invoice, priced with the account's hourly
/// rate and VAT rate.
class ZVKashflowIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* rateKey = "KDKashFlowRate";
    static constexpr const char* VATRateKey = "KDKashFlowVATRate";

    std::string hardcodedAddress() const override;

    const std::vector<ZVIntegrationSetting>& settings() const override;
    /// The price of one hour.
    double rate() const { return numberSetting(rateKey); }
    void setRate(double rate) { setSettingValue(rateKey, rate); }
    /// The VAT rate in percent.
    double VATRate() const { return numberSetting(VATRateKey); }
    void setVATRate(double rate) { setSettingValue(VATRateKey, rate); }

    /// The credentials travel inside each envelope.
    ZVCredentialStyle credentialStyle() const override { return {}; }
    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

private:
    void _addInvoicesToCustomer(ZVIntegrationProject& customer);
    /// The envelope around one call with the account's user name and
    /// password followed by `parameters` (already XML).
    std::string envelope(const std::string& call, const std::string& parameters) const;
};
