#include <gtest/gtest.h>

#include "ZVDownloadCenter.h"
#include "core/integrations/address_based/mite/ZVMiteIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using Mite = ZVMiteIntegration;
const std::string entriesPath = "/time_entries.xml";

using Records = std::vector<std::pair<const char*, const char*>>;
const Records services{
    {"38672", "Coding"}, {"38673", "Design"}, {"38674", "Meeting"}, {"38675", "Travel"}};

/// A list in the service's shape: "<projects type="array"><project>...".
std::string listOf(const std::string& plural, const std::string& singular, const Records& records) {
    std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?><)" + plural + R"( type="array">)";
    for (const auto& [id, name] : records)
        xml += "<" + singular + R"(><id type="integer">)" + id + "</id>" +
               (*name ? "<name>" + std::string(name) + "</name>" : "") +
               R"(<archived type="boolean">false</archived></)" + singular + ">";
    return xml + "</" + plural + ">";
}

void serveMite(FakeServer& server, bool withBadRecord) {
    Records projects{{"643", "Website Relaunch"}, {"644", "Intranet"}, {"645", "Support"}};
    if (withBadRecord) projects.push_back({"646", ""});
    server.route("GET", "/projects.xml",
                 FakeResponse::xml(listOf("projects", "project", projects)));
    server.route("GET", "/services.xml",
                 FakeResponse::xml(listOf("services", "service", services)));
    server.route(
        "POST", entriesPath,
        FakeResponse::xml(R"(<?xml version="1.0" encoding="UTF-8"?><time-entry>)"
                          R"(<id type="integer">52324</id><minutes type="integer">90</minutes>)"
                          R"(<project-id type="integer">643</project-id></time-entry>)",
                          201));
}

std::string projectTree(const char* id, const char* name) {
    std::string tree = std::string(name) + " [" + id + "|-|-]\n";
    for (const auto& [serviceID, service] : services)
        tree += std::string("  ") + service + " [" + id + "|" + serviceID + "|-]\n";
    return tree;
}

const bool scenario = ServiceScenarios::add("Norvo.ZVMiteIntegration", [] {
    // Three projects and four services give twelve leaves.
    return ServiceScenario{
        .serve = serveMite,
        .tree = projectTree("643", "Website Relaunch") + projectTree("644", "Intranet") +
                projectTree("645", "Support"),
        .posted = {.projectID = "643",
                   .subprojectID = "38672",
                   .seconds = 5459,
                   .title = "Review %@"},
        .postPath = entriesPath,
        .postMembers = {{"time-entry/minutes", "90"},
                        {"time-entry/note", "Review 01:30:59"},
                        {"time-entry/project-id", "643"},
                        {"time-entry/service-id", "38672"}},
    };
});

class MiteTests : public ServiceTestCase {};

TEST_F(MiteTests, EveryRequestCarriesTheKeyAndNamesNorvoAndTheProjectsAlsoTheKeyInTheQuery) {
    serveMite(server, false);
    auto mite = makeAccount<Mite>();
    mite->loadRemoteProjects();
    mite->postTime(*trackedProject(mite, "Coding", "643", std::string("38672"), 59, "Quick"));
    const auto asked = server.requests();
    ASSERT_EQ(asked.size(), 3u) << requestSummary(asked);
    for (const auto& request : asked) {
        EXPECT_EQ(request.header("X-MiteApiKey"), credentials.apiToken) << request.path;
        EXPECT_EQ(request.header("User-Agent"), ZVDownloadCenter::defaultUserAgent())
            << request.path;
    }
    EXPECT_EQ(server.requests("/projects.xml").at(0).queryValue("api_key"), credentials.apiToken);
    // 59 seconds are not yet a minute.
    EXPECT_EQ(ZVXMLDocument::parse(asked.back().body)->string("time-entry/minutes"), "0");
}

TEST_F(MiteTests, TheServicesHostsAreReachedOverHttpsAndTheFormerDomainAtTheNewOne) {
    const struct {
        const char* address;
        bool sslChosen;
        std::string reached;
    } cases[] = {
        {"acme.mite.de", false, "https://acme.mite.de"},
        {"http://Acme.mite.yo.lk/", false, "https://acme.mite.de"},
        {"mite.example.org", false, "http://mite.example.org"},
        {"mite.example.org", true, "https://mite.example.org"},
    };
    for (const auto& c : cases) {
        auto mite = makeAccountAt<Mite>(c.address);
        mite->setSSLEnabled(c.sslChosen);
        EXPECT_EQ(mite->serviceBaseURL(), c.reached) << c.address;
    }
}

TEST_F(MiteTests, AStoredAccountOfTheFormerDomainKeepsItsTimeAndLoadsFromTheNewOne) {
    serveMite(server, false);
    auto stored = makeAccountAt<Mite>("acme.mite.yo.lk");
    stored->addProject(trackedProject(stored, "Intranet", "644", std::nullopt, 600));
    ZVDictionary dictionary = stored->dictionaryRepresentation();
    dictionary["KDIntegrationClass"] = std::string("KDMiteIntegration");
    const auto old =
        std::dynamic_pointer_cast<Mite>(ZVIntegration::integrationWithDictionary(dictionary));
    ASSERT_TRUE(old);
    EXPECT_EQ(old->availableProjects().at(0)->time(), 600u);
    EXPECT_EQ(old->address(), "acme.mite.yo.lk");
    redirectFixedHost("acme.mite.de");
    EXPECT_EQ(old->loadRemoteProjects().size(), 3u);
}

}  // namespace
