#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ledgrin/ZVLedgrinIntegration.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "testkit/FakeServer.h"

namespace {

class FakeLedgrinEnvironment : public ZVLedgrinIntegration::Environment {
public:
    bool installed = true;
    std::optional<std::string> version = "2.2.2";
    int versionQueries = 0;
    std::vector<std::string> openedURLs;

    bool isInstalled() override { return installed; }
    std::optional<std::string> installedVersion() override {
        ++versionQueries;
        return version;
    }
    bool openURL(const std::string& url) override {
        openedURLs.push_back(url);
        return true;
    }
};

class ZVLedgrinIntegrationTest : public ::testing::Test {
protected:
    ZVLedgrinIntegrationTest() { ledgrin.setEnvironment(environment); }
    ~ZVLedgrinIntegrationTest() override { ledgrin.setEnvironment(nullptr); }

    ZVLedgrinIntegration& ledgrin = ZVLedgrinIntegration::sharedIntegration();
    std::shared_ptr<FakeLedgrinEnvironment> environment = std::make_shared<FakeLedgrinEnvironment>();
};

}  // namespace

TEST(ZVLedgrinVersionTest, EachOfTheFirstThreePartsMustBeAtLeastTwo) {
    struct Case {
        const char* version;
        bool integrable;
    };
    const Case cases[] = {
        {"2.2.2", true}, {"2.3.4", true},  {"3.4.5", true},  {"2.2.2.0", true}, {"2.3", false},
        {"2.3.0", false}, {"3.0.0", false}, {"2", false},    {"", false},       {"10.10.10", true},
        {"2.2.x", false}, {"1.9.9", false},
    };
    for (const Case& c : cases) EXPECT_EQ(ZVLedgrinIntegration::isVersionIntegrable(c.version), c.integrable) << c.version;
}

TEST_F(ZVLedgrinIntegrationTest, OfferedOnlyWithAHandlerOfAnIntegrableVersionTestedOnce) {
    EXPECT_TRUE(ledgrin.canReceiveTime());
    environment->version = "2.1.0";
    EXPECT_TRUE(ledgrin.isInstalledVersionIntegrable());
    EXPECT_EQ(environment->versionQueries, 1);
    environment->installed = false;
    EXPECT_FALSE(ledgrin.canReceiveTime());

    auto old = std::make_shared<FakeLedgrinEnvironment>();
    old->version = "2.3.0";
    ledgrin.setEnvironment(old);
    EXPECT_TRUE(ledgrin.isInstalled());
    EXPECT_FALSE(ledgrin.canReceiveTime());
    auto unversioned = std::make_shared<FakeLedgrinEnvironment>();
    unversioned->version.reset();
    ledgrin.setEnvironment(unversioned);
    EXPECT_FALSE(ledgrin.canReceiveTime());

    // Without a desktop nothing is installed and a sending is dropped quietly.
    ledgrin.setEnvironment(nullptr);
    EXPECT_FALSE(ledgrin.isInstalled());
    EXPECT_FALSE(ledgrin.canReceiveTime());
    ledgrin.addInvoiceItem({1, "x", 1});
}

TEST_F(ZVLedgrinIntegrationTest, TimeEntryOfAProjectInHoursWithItsLastNoteIsHandedOverAtEachSendingAndLeavesTheTime) {
    auto project = ZVIntegrationProject::create("Website", "web");
    project->setTimeWithoutSaving(5400);
    auto entry = ZVLedgrinIntegration::timeEntry(*project, std::nullopt);
    EXPECT_DOUBLE_EQ(entry.time, 1.5);
    EXPECT_DOUBLE_EQ(entry.hourPrice, 0);
    EXPECT_EQ(entry.notes, "");
    ledgrin.addInvoiceItem(entry);
    ledgrin.addInvoiceItem(entry);
    EXPECT_EQ(environment->openedURLs,
              std::vector<std::string>(2, "ledgrin://timeentry?time=1.5&price=0&note="));
    EXPECT_EQ(project->time(), 5400u);

    auto log = std::make_shared<ZVTimeLogEntry>(project);
    log->setText("Footer & header = 100% done");
    project->addLogEntry(log);
    entry = ZVLedgrinIntegration::timeEntry(*project, 80.5);
    EXPECT_EQ(entry.notes, "Footer & header = 100% done");
    EXPECT_DOUBLE_EQ(entry.hourPrice, 80.5);
}

TEST_F(ZVLedgrinIntegrationTest, URLCarriesTimePriceAndEscapedNote) {
    const std::string url = ZVLedgrinIntegration::invoiceItemURL({80.5, "Footer & header = 100% done?", 1.5});
    EXPECT_EQ(url.find(' '), std::string::npos);
    const std::string prefix = "ledgrin://timeentry?";
    ASSERT_EQ(url.rfind(prefix, 0), 0u) << url;
    const auto pairs = decodedPairs(url.substr(prefix.size()));
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(pairs[0], std::make_pair(std::string("time"), std::string("1.5")));
    EXPECT_EQ(pairs[1], std::make_pair(std::string("price"), std::string("80.5")));
    EXPECT_EQ(pairs[2], std::make_pair(std::string("note"), std::string("Footer & header = 100% done?")));
    // No price and no note still send all three keys.
    EXPECT_EQ(ZVLedgrinIntegration::invoiceItemURL({0, "", 0.25}), "ledgrin://timeentry?time=0.25&price=0&note=");
}

