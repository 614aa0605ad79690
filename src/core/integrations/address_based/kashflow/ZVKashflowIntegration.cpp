#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"

#include <cstdio>
#include <sstream>

#include "ZVHelpers.h"
#include "ZVDownloadCenter.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVXML.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace {
constexpr const char* APIHost = "securedwebapp.com";
constexpr const char* servicePath = "/api/service.asmx";
constexpr const char* getCustomersCall = "GetCustomers";
constexpr const char* getInvoicesForCustomerCall = "GetInvoicesForCustomer";
constexpr const char* insertInvoiceLineCall = "InsertInvoiceLine";
constexpr const char* bodyPath = "soap:Envelope/soap:Body";

std::string element(const std::string& name, const std::string& value) {
    // Values go in as they are: the service has always been sent them unescaped.
    return "<" + name + ">" + value + "</" + name + ">";
}

pugi::xml_node firstElementChild(const pugi::xml_node& node) {
    for (auto child = node.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element) return child;
    return {};
}

/// The records of a reply: the children of the first child of the first
/// child of the SOAP body (response, then result). Nothing when a step finds
/// nothing, an empty result included.
std::optional<std::vector<pugi::xml_node>> records(const ZVXMLDocument&& document) = delete;
std::optional<std::vector<pugi::xml_node>> records(const ZVXMLDocument& document) {
    const auto bodies = document.nodes(bodyPath);
    if (bodies.empty()) return std::nullopt;
    const auto result = firstElementChild(firstElementChild(bodies.front()));
    std::vector<pugi::xml_node> children;
    for (auto child = result.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element) children.push_back(child);
    if (children.empty()) return std::nullopt;
    return children;
}

std::string describe(const pugi::xml_node& node) { return ZVXMLDocument::printed(node); }

std::string twoPlaces(double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%0.2f", value);
    return buffer;
}

/// A POST of the envelope to the service, with the headers of a SOAP 1.1 call.
ZVServiceRequest soapRequest(const std::string& call, const std::string& envelope,
                             ZVServiceRequest::Purpose purpose = ZVServiceRequest::Purpose::loading) {
    ZVServiceRequest request = ZVServiceRequest::postXML(servicePath, envelope);
    request.purpose = purpose;
    request.headers = {{"Content-Type", "text/xml; charset=utf-8"},
                       {"Content-Length", std::to_string(ZVCharacterCount(envelope))},
                       {"SOAPAction", "\"KashFlow/" + call + "\""}};
    return request;
}
}  // namespace

std::string ZVKashflowIntegration::hardcodedAddress() const { return APIHost; }

const std::vector<ZVIntegrationSetting>& ZVKashflowIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {rateKey, Kind::number, ZVLocalizable("Hour rate"), "rateField"},
        {VATRateKey, Kind::number, ZVLocalizable("VAT rate (%)"), "VATRateField"},
    };
    return declared;
}

std::string ZVKashflowIntegration::envelope(const std::string& call, const std::string& parameters) const {
    const auto& credentials = usernamePasswordAuthentication();
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
           "<soap:Envelope xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
           "xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">"
           "<soap:Body><" + call + " xmlns=\"KashFlow\">" +
           element("UserName", credentials.username()) + element("Password", credentials.password()) + parameters +
           "</" + call + "></soap:Body></soap:Envelope>";
}


ZVIntegration::ProjectList ZVKashflowIntegration::loadRemoteProjects() {
    const std::string noCustomers = ZVLocalizedString("Customer response contains no customers.");
    // The records point into the document, which must outlive them.
    const ZVXMLDocument document = sendForXML(soapRequest(getCustomersCall, envelope(getCustomersCall, "")), noCustomers);
    const auto customers = records(document);
    if (!customers) throw ZVIntegrationErrorWithFailureReason(noCustomers);

    const auto self = shared_from_this();
    ProjectList result;
    for (const auto& customerElement : *customers) {
        const auto name = ZVXMLDocument::string(customerElement, "Name");
        const auto customerID = ZVXMLDocument::string(customerElement, "CustomerID");
        if (!name || !customerID) {
            ZVLog([&] { return "customerElement missing name or ID in " + describe(customerElement); });
            continue;
        }
        auto customer = ZVIntegrationProject::create(*name, *customerID);
        customer->setIntegration(self);
        _addInvoicesToCustomer(*customer);
        result.push_back(customer);
    }
    return result;
}

void ZVKashflowIntegration::_addInvoicesToCustomer(ZVIntegrationProject& customer) {
    const std::string body = envelope(getInvoicesForCustomerCall, element("CustID", customer.projectID()));
    // A customer without invoices fails the whole load with these words.
    const std::string noInvoices = ZVLocalizedString("Invoices response contains no invoices.");
    const ZVXMLDocument document = sendForXML(soapRequest(getInvoicesForCustomerCall, body), noInvoices);
    const auto invoices = records(document);
    if (!invoices) throw ZVIntegrationErrorWithFailureReason(noInvoices);

    const auto self = shared_from_this();
    for (const auto& invoiceElement : *invoices) {
        const auto name = ZVXMLDocument::string(invoiceElement, "ReadableString");
        const auto invoiceID = ZVXMLDocument::string(invoiceElement, "InvoiceDBID");
        if (!name || !invoiceID) {
            ZVLog([&] { return "customerElement missing name or ID in " + describe(invoiceElement); });
            continue;
        }
        auto invoice = ZVIntegrationProject::create(*name, customer.projectID(), *invoiceID);
        invoice->setIntegration(self);
        customer.addSubproject(invoice);
    }
}

void ZVKashflowIntegration::postTime(ZVIntegrationProject& project) {
    if (!project.subprojectID()) ZVFatalError("postTime(for:) of KashFlow needs an invoice, not " + project.name());
    const double hours = static_cast<double>(project.time()) / 3600.0;
    const double vatAmount = VATRate() / 100 * rate() * hours;
    const std::string line = element("Quantity", ZVPostingText::decimalText(hours)) +
                             element("Description", ZVPostingText::title(project)) +
                             element("Rate", twoPlaces(rate())) + element("ChargeType", "0") +
                             element("VatRate", twoPlaces(VATRate())) +
                             element("VatAmount", ZVPostingText::decimalText(vatAmount));
    const std::string body =
        envelope(insertInvoiceLineCall, element("InvoiceID", *project.subprojectID()) + element("InvLine", line));

    const ZVServiceReply answer = send(soapRequest(insertInvoiceLineCall, body, ZVServiceRequest::Purpose::posting));
    // The body isn't read: a SOAP fault with status 200 counts as success.
    ZVLog([&] { return "Response " + answer.body + "."; });
}
