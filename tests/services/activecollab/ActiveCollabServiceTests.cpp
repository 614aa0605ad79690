#include <gtest/gtest.h>

#include "core/integrations/address_based/activecollab/ZVActiveCollabIntegration.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

using ActiveCollab = ZVActiveCollabIntegration;

FakeResponse xml(const std::string& body) { return FakeResponse::xml("<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + body); }

/// A self-hosted server of version 3 or 2, answering at "api.php" by the
/// call's "path_info": the user, the job types (3), two projects (one
/// named by a permalink with "%2F", one without tasks) with their tasks
/// (3) or tickets (2), and the time records. With a bad record, a project
/// without a permalink.
void serveActiveCollab(FakeServer& server, bool withBadRecord) {
    server.route("GET", "/api.php", [withBadRecord](const FakeRequest& request) {
        const std::string call = request.queryValue("path_info");
        if (call == "/info")
            return xml("<info><api_version>3.1.16</api_version><logged_user>http://ac.example.com/index.php?path_info="
                       "people%2F1%2Fusers%2F7</logged_user><logged_user><id>7</id></logged_user></info>");
        if (call == "info/job-types")
            return xml("<job_types><job_type><id>1</id><name>General</name></job_type>"
                       "<job_type><id>2</id><name>Design</name></job_type></job_types>");
        if (call == "projects")
            return xml(std::string("<projects><project><id>12</id><name>Website</name><permalink>http://ac.example.com/"
                                   "index.php?path_info=projects%2F12</permalink></project>"
                                   "<project><id>13</id><name>Idle</name><permalink>http://ac.example.com/projects/13"
                                   "</permalink></project>") +
                       (withBadRecord ? "<project><id>14</id><name>Broken</name></project>" : "") + "</projects>");
        if (call == "projects/12/tasks")
            return xml("<tasks><task><id>301</id><name>Homepage</name><permalink>http://ac.example.com/projects/12/"
                       "tasks/3</permalink></task></tasks>");
        if (call == "projects/12/tickets")
            return xml("<tickets><ticket><id>501</id><name>Login fails</name><permalink>http://ac.example.com/"
                       "projects/12/tickets/5</permalink></ticket></tickets>");
        return xml(call.ends_with("/tasks") ? "<tasks/>" : "<tickets/>");
    });
    server.route("POST", "/api.php", xml("<time_record><id>900</id></time_record>"));
}

const bool scenario = ServiceScenarios::add("Norvo.ZVActiveCollabIntegration", [] {
    return ServiceScenario{
        .serve = serveActiveCollab,
        .tree = "Website [12|-|-]\n  Homepage [12|3|-]\n    General [12|3|1]\n    Design [12|3|2]\n",
        .posted = {.projectID = "12", .subprojectID = "3", .additionalID = "2", .seconds = 5430, .title = "Review"},
        .postPath = "/api.php",
        .postMembers = {{"submitted", "submitted"},
                        {"time_record[user_id]", "7"},
                        {"time_record[value]", "1.5"},
                        {"time_record[summary]", "Review"},
                        {"time_record[billable_status]", "billable"},
                        {"time_record[job_type_id]", "2"},
                        {"time_record[parent_id]", "3"}},
        .settings = {{ActiveCollab::versionKey, std::int64_t{1}}, {ActiveCollab::billingKey, std::int64_t{1}}},
    };
});

class ActiveCollabTests : public ServiceTestCase {};

TEST_F(ActiveCollabTests, AStoredAccountOfAnOldClassNameLoadsWithItsTimeAndSaysTheHostedServiceClosed) {
    auto account = makeAccount<ActiveCollab>();
    EXPECT_EQ(account->authenticationType(), ZVAuthenticationType::apiToken);
    EXPECT_EQ(account->SSLSupport(), ZVSSLSupport::optional);
    EXPECT_EQ(account->additionalSetupViewNibName(), "ActiveCollab");
    ASSERT_TRUE(account->credentialPresentation());
    EXPECT_NE(account->credentialPresentation()->hint.find("closed"), std::string::npos);

    account->addProject(trackedProject(account, "Website", "12", std::nullopt, 4200));
    ZVDictionary stored = account->dictionaryRepresentation();
    stored[ZVIntegrationClassKey] = std::string("KDActiveCollabIntegration");
    stored[ActiveCollab::versionKey] = std::int64_t{5};
    stored[ActiveCollab::billingKey] = std::int64_t{4};
    const auto restored = std::dynamic_pointer_cast<ActiveCollab>(ZVIntegration::integrationWithDictionary(stored));
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->availableProjects().at(0)->time(), 4200u);
    EXPECT_EQ(restored->activeCollabVersion(), ActiveCollab::Version::version2);
    EXPECT_EQ(restored->billing(), ActiveCollab::BillingType::notBillable);
}

TEST_F(ActiveCollabTests, VersionTwoListsTicketsAndPostsAllDigitsOfTheHoursAndTheBillingNumber) {
    serveActiveCollab(server, false);
    // A list that does not come costs its project alone.
    server.intercept([](const FakeRequest& request) -> std::optional<FakeResponse> {
        if (request.queryValue("path_info") == "projects/13/tickets") return FakeResponse::text("gone", 500);
        return std::nullopt;
    });
    auto account = makeAccount<ActiveCollab>({{ActiveCollab::billingKey, std::int64_t{1}}});
    const auto tree = account->loadRemoteProjects();
    EXPECT_EQ(treeDescription(tree), "Website [12|-|-]\n  Login fails [12|5|-]\n");
    EXPECT_TRUE(log.contains("Couldn't load ticket list for Idle"));
    EXPECT_TRUE(server.requests("/api.php")[0].target.starts_with("/api.php?path_info=projects&auth_api_token="));

    auto ticket = trackedProject(account, "Login fails", "12", "5", 5430, "Fixed in %@");
    account->postTime(*ticket);
    const auto post = server.requests("/api.php").back();
    EXPECT_EQ(post.queryValue("path_info"), "/projects/12/time/add");
    EXPECT_EQ(post.queryValue("auth_api_token"), credentials.apiToken);
    for (const char* member : {"submitted=submitted&time%5Buser_id%5D=7&time%5Bvalue%5D=1.5083333333333333&",
                               "&time%5Bbody%5D=Fixed%20in%2001%3A30%3A30&time%5Bbillable_status%5D=1"})
        EXPECT_NE(post.body.find(member), std::string::npos) << member << " in " << post.body;
}

TEST_F(ActiveCollabTests, APostWithoutTheUsersIDOrARecordFails) {
    serveActiveCollab(server, false);
    auto account = makeAccount<ActiveCollab>({{ActiveCollab::versionKey, std::int64_t{1}}});
    auto leaf = trackedProject(account, "Design", "12", "3", 59, "Copy");
    leaf->setAdditionalID("2");
    server.route("POST", "/api.php", xml("<time_record/>"));
    EXPECT_TRUE(throwsGenericPostingError([&] { account->postTime(*leaf); }));
    server.intercept([](const FakeRequest& request) -> std::optional<FakeResponse> {
        if (request.queryValue("path_info") == "/info") return xml("<info><logged_user/></info>");
        return std::nullopt;
    });
    EXPECT_TRUE(throwsFailureReason([&] { account->postTime(*leaf); }, "Cannot fetch user ID."));
}

}  // namespace
