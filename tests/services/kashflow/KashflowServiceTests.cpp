#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

constexpr const char* host = "securedwebapp.com";
constexpr const char* servicePath = "/api/service.asmx";

/// The fixture without its records that lack `idElement` (a customer
/// without "CustomerID", an invoice without "InvoiceDBID").
std::string withoutBadRecords(std::string xml, const std::string& element, const std::string& idElement) {
    const std::string open = "<" + element + ">", close = "</" + element + ">";
    for (std::size_t at = xml.find(open); at != std::string::npos; at = xml.find(open, at)) {
        const std::size_t end = xml.find(close, at) + close.size();
        if (xml.substr(at, end - at).find("<" + idElement + ">") == std::string::npos)
            xml.erase(at, end - at);
        else
            at = end;
    }
    return xml;
}

/// Answers the SOAP calls by their SOAPAction, the invoices by the customer
/// asked for; with `withBadRecords`, a customer and an invoice lack their ids.
void serveKashflow(FakeServer& server, bool withBadRecords) {
    server.route("POST", servicePath, [withBadRecords](const FakeRequest& request) {
        const std::string action = request.header("SOAPAction");
        const auto fixture = [&](const std::string& name, const char* element, const char* idElement) {
            const std::string xml = ServiceFixtures::load("kashflow/" + name);
            return FakeResponse::xml(withBadRecords ? xml : withoutBadRecords(xml, element, idElement));
        };
        if (action == "\"KashFlow/GetCustomers\"") return fixture("get-customers.xml", "Customer", "CustomerID");
        if (action == "\"KashFlow/InsertInvoiceLine\"") return fixture("insert-invoice-line.xml", "-", "-");
        if (action != "\"KashFlow/GetInvoicesForCustomer\"") return fixture("soap-fault.xml", "-", "-");
        const bool first = request.body.find("<CustID>47443359</CustID>") != std::string::npos;
        return fixture(first ? "get-invoices-47443359.xml" : "get-invoices-47443360.xml", "Invoice", "InvoiceDBID");
    });
}

const bool scenario = ServiceScenarios::add("Norvo.ZVKashflowIntegration", [] {
    return ServiceScenario{
        .serve = serveKashflow,
        .tree = "Stevie Wonder Ltd [47443359|-|-]\n"
                "  Invoice 1041 - Stevie Wonder Ltd - 1440.00 [47443359|880011|-]\n"
                "  Invoice 1042 - Stevie Wonder Ltd - 0.00 [47443359|880012|-]\n"
                "Acme & Sons [47443360|-|-]\n"
                "  Invoice 2001 - Acme & Sons - 420.00 [47443360|880020|-]\n",
        .posted = {.projectID = "47443359", .subprojectID = "880011", .seconds = 3600, .title = "Work: %@"},
        .postPath = servicePath,
        .postMembers = {{"//InvoiceID", "880011"},
                        {"//InvLine/Quantity", "1.0"},
                        {"//InvLine/Description", "Work: 01:00:00"},
                        {"//InvLine/Rate", "50.00"},
                        {"//InvLine/VatAmount", "10.0"}},
        .settings = {{ZVKashflowIntegration::rateKey, 50.0}, {ZVKashflowIntegration::VATRateKey, 20.0}},
    };
});

class KashflowServiceTests : public ServiceTestCase {
protected:
    KashflowServiceTests() { redirectFixedHost(host); }

    /// The call element inside the body of a recorded envelope.
    static pugi::xml_node call(const FakeRequest& request) {
        static thread_local pugi::xml_document document;
        document.reset();
        EXPECT_TRUE(document.load_string(request.body.c_str())) << request.body;
        return document.child("soap:Envelope").child("soap:Body").first_child();
    }

    /// The names of an element's children, in order.
    static std::vector<std::string> childNames(const pugi::xml_node& node) {
        std::vector<std::string> names;
        for (const auto& child : node.children()) names.emplace_back(child.name());
        return names;
    }

    /// Checks what every call carries: a SOAP envelope posted to the fixed host.
    void expectEnvelope(const FakeRequest& request, const char* action) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.header("SOAPAction"), action);
        EXPECT_EQ(request.header("Content-Type"), "text/xml; charset=utf-8");
        EXPECT_EQ(request.header("Content-Length"), std::to_string(request.body.size()));
        EXPECT_FALSE(request.hasHeader("Authorization"));
        EXPECT_TRUE(request.body.starts_with("<?xml version=\"1.0\" encoding=\"utf-8\"?>")) << request.body;
        pugi::xml_document document;
        ASSERT_TRUE(document.load_string(request.body.c_str()));
        const auto envelope = document.child("soap:Envelope");
        EXPECT_EQ(std::string(envelope.attribute("xmlns:soap").value()), "http://schemas.xmlsoap.org/soap/envelope/");
        EXPECT_EQ(std::string(envelope.attribute("xmlns:xsi").value()), "http://www.w3.org/2001/XMLSchema-instance");
        EXPECT_EQ(std::string(envelope.attribute("xmlns:xsd").value()), "http://www.w3.org/2001/XMLSchema");
        const auto body = call(request);
        EXPECT_EQ(std::string(body.attribute("xmlns").value()), "KashFlow");
        EXPECT_EQ(std::string(body.child_value("UserName")), credentials.username);
        EXPECT_EQ(std::string(body.child_value("Password")), credentials.password);
    }

    std::shared_ptr<ZVKashflowIntegration> account(double rate = 50, double VATRate = 20) {
        return makeAccount<ZVKashflowIntegration>(
            {{ZVKashflowIntegration::rateKey, rate}, {ZVKashflowIntegration::VATRateKey, VATRate}});
    }
};

TEST_F(KashflowServiceTests, EveryCallIsASOAPEnvelopeToTheFixedHost) {
    serveKashflow(server, true);
    account()->loadRemoteProjects();
    // A customer without "CustomerID" and an invoice without "InvoiceDBID" are logged in the service's words.
    EXPECT_EQ(log.count("customerElement missing name or ID in "), 2u) << log.joined();
    const std::string url = std::string("https://") + host + servicePath;
    EXPECT_EQ(transport.URLs(), (std::vector<std::string>{url, url, url}));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u) << requestSummary(requests);
    expectEnvelope(requests[0], "\"KashFlow/GetCustomers\"");
    EXPECT_EQ(std::string(call(requests[0]).name()), "GetCustomers");
    EXPECT_EQ(childNames(call(requests[0])), (std::vector<std::string>{"UserName", "Password"}));
    for (const auto& [request, customer] : {std::pair{requests[1], "47443359"}, {requests[2], "47443360"}}) {
        expectEnvelope(request, "\"KashFlow/GetInvoicesForCustomer\"");
        const auto invoices = call(request);
        EXPECT_EQ(std::string(invoices.name()), "GetInvoicesForCustomer");
        EXPECT_EQ(childNames(invoices), (std::vector<std::string>{"UserName", "Password", "CustID"}));
        EXPECT_EQ(std::string(invoices.child_value("CustID")), customer);
    }
}

TEST_F(KashflowServiceTests, RepliesWithoutTheResultNestingEndTheWholeLoad) {
    const std::string noInvoices = R"(<?xml version="1.0" encoding="utf-8"?>
<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/"><soap:Body>
<GetInvoicesForCustomerResponse xmlns="KashFlow"><GetInvoicesForCustomerResult /><Status>OK</Status></GetInvoicesForCustomerResponse>
</soap:Body></soap:Envelope>)";
    struct Case {
        const char* name;
        std::string customers, invoices;
        const char* reason;
    };
    const Case cases[] = {
        {"a fault", fixture("kashflow/soap-fault.xml"), "", "Customer response contains no customers."},
        {"an empty body", fixture("kashflow/empty-body.xml"), "", "Customer response contains no customers."},
        {"a customer without invoices", fixture("kashflow/get-customers.xml"), noInvoices,
         "Invoices response contains no invoices."},
        {"invoices that are no XML", fixture("kashflow/get-customers.xml"), "Service Unavailable",
         "Invoices response contains no invoices."},
    };
    auto kashflow = account();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server.route("POST", servicePath, [&](const FakeRequest& request) {
            if (request.header("SOAPAction") == "\"KashFlow/GetCustomers\"") return FakeResponse::xml(c.customers);
            return FakeResponse::xml(c.invoices);
        });
        EXPECT_TRUE(throwsFailureReason([&] { kashflow->loadRemoteProjects(); }, c.reason));
    }
}

TEST_F(KashflowServiceTests, RatesLiveInTheAccountsDictionaryAndTheFixedHostDoesNot) {
    const ZVDictionary dictionary = account(62.5, 17.5)->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at("KDKashFlowRate"), ZVValue(62.5));
    EXPECT_EQ(dictionary.at("KDKashFlowVATRate"), ZVValue(17.5));
    EXPECT_FALSE(dictionary.contains("KDIntegrationAddress"));
    ZVDictionary withoutRates = dictionary;
    withoutRates.erase("KDKashFlowRate");
    withoutRates.erase("KDKashFlowVATRate");
    auto restored = ZVIntegration::makeWithDictionary<ZVKashflowIntegration>(withoutRates);
    EXPECT_EQ(restored->rate(), 0);
    EXPECT_EQ(restored->VATRate(), 0);
    EXPECT_EQ(restored->address(), host);
}

TEST_F(KashflowServiceTests, PostsAnInvoiceLineWithTheRatesAndTheTitleUnescaped) {
    struct Line {
        std::uint64_t seconds;
        double rate, VATRate;
        std::optional<std::string> title;
        const char *quantity, *description, *rateText, *VATRateText, *VATAmount;
    };
    const Line lines[] = {
        {3600, 50, 20, "Work: %@", "1.0", "Work: 01:00:00", "50.00", "20.00", "10.0"},
        {1800, 50, 20, "Fish & Chips", "0.5", "Fish & Chips", "50.00", "20.00", "5.0"},
        {1000, 75.555, 17.5, std::nullopt, "0.2777777777777778", "", "75.56", "17.50", "3.6728125"},
    };
    serveKashflow(server, false);
    for (const Line& line : lines) {
        SCOPED_TRACE(line.description);
        server.clearRequests();
        transport.clear();
        auto kashflow = account(line.rate, line.VATRate);
        kashflow->postTime(*trackedProject(kashflow, "Invoice 1041", "47443359", "880011", line.seconds, line.title));
        ASSERT_EQ(server.requestCount(), 1u);
        const FakeRequest request = *server.lastRequest();
        EXPECT_EQ(transport.URLs().front(), std::string("https://") + host + servicePath);
        expectEnvelope(request, "\"KashFlow/InsertInvoiceLine\"");
        const auto insert = call(request);
        EXPECT_EQ(std::string(insert.name()), "InsertInvoiceLine");
        EXPECT_EQ(childNames(insert), (std::vector<std::string>{"UserName", "Password", "InvoiceID", "InvLine"}));
        EXPECT_EQ(std::string(insert.child_value("InvoiceID")), "880011");
        const auto invLine = insert.child("InvLine");
        EXPECT_EQ(childNames(invLine),
                  (std::vector<std::string>{"Quantity", "Description", "Rate", "ChargeType", "VatRate", "VatAmount"}));
        EXPECT_EQ(std::string(invLine.child_value("Quantity")), line.quantity);
        EXPECT_EQ(std::string(invLine.child_value("Description")), line.description);
        EXPECT_EQ(std::string(invLine.child_value("Rate")), line.rateText);
        EXPECT_EQ(std::string(invLine.child_value("ChargeType")), "0");
        EXPECT_EQ(std::string(invLine.child_value("VatRate")), line.VATRateText);
        EXPECT_EQ(std::string(invLine.child_value("VatAmount")), line.VATAmount);
        EXPECT_TRUE(log.contains("Response <?xml")) << log.joined();
        // The title goes into the envelope as it stands, not as XML text.
        const std::string description = std::string("<Description>") + line.description + "</Description>";
        if (line.title) {
            EXPECT_NE(request.body.find(description), std::string::npos) << request.body;
        }
    }
    // A SOAP fault with status 200 counts as posted.
    server.route("POST", servicePath, FakeResponse::xml(fixture("kashflow/soap-fault.xml")));
    auto kashflow = account();
    EXPECT_NO_THROW(kashflow->postTime(*trackedProject(kashflow, "Invoice 1041", "47443359", "880011", 60, "Work")));
}

}  // namespace
