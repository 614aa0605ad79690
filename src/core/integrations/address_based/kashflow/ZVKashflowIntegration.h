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

    std::string className() const override { return "Norvo.ZVKashflowIntegration"; }
    std::string hardcodedAddress() const override;

    /// The price of one hour.
    double rate() const { return _rate; }
    void setRate(double rate) { _rate = rate; }
    /// The VAT rate in percent.
    double VATRate() const { return _VATRate; }
    void setVATRate(double rate) { _VATRate = rate; }

    ZVDictionary dictionaryRepresentation() override;
    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

protected:
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    void _addInvoicesToCustomer(ZVIntegrationProject& customer);
    /// The envelope around one call with the account's user name and
    /// password followed by `parameters` (already XML).
    std::string envelope(const std::string& call, const std::string& parameters) const;
    /// "https://" + the fixed host + the service's path; every call goes there.
    std::string serviceURL() const;

    std::atomic<double> _rate{0};
    std::atomic<double> _VATRate{0};
};
