#include "services/jira/FakeJIRA.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"

namespace {

// A Data Center site with two projects; the bad record is an issue of a
// project the user cannot see.
const bool scenario = ServiceScenarios::add("Norvo.ZVJIRAIntegration", [] {
    return ServiceScenario{
        .serve =
            [](FakeServer& server, bool withBadRecord) {
                const ServiceCredentials credentials;
                FakeJIRA site(server, FakeJIRA::Deployment::dataCenter);
                site.accept(basicAuthorizationHeader(credentials.username, credentials.password));
                site.addProject({"WEB", "Website"});
                site.addProject({"OPS", "Operations"});
                site.addIssue({"WEB-12", "Broken link", "WEB"});
                site.addIssue({"OPS-3", "Renew the certificate", "OPS"});
                if (withBadRecord) site.addIssue({"HR-1", "Hidden", "HR"});
            },
        .tree = "Website [WEB|-|-]\n  WEB-12 - Broken link [WEB|WEB-12|-]\n"
                "Operations [OPS|-|-]\n  OPS-3 - Renew the certificate [OPS|OPS-3|-]\n",
        .posted = {.projectID = "WEB", .subprojectID = "WEB-12", .seconds = 3600, .title = "worked %@"},
        .postPath = "/rest/api/latest/issue/WEB-12/worklog",
        .postMembers = {{"timeSpentSeconds", "3600"}, {"comment", "worked 01:00:00"}},
        .anonymousPaths = {"/rest/api/2/serverInfo"},
    };
});

}  // namespace
