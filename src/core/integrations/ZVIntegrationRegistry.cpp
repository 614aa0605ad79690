#include "core/integrations/ZVIntegrationRegistry.h"

#include <algorithm>
#include <mutex>

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "ZVLocalization.h"
#include "ZVLog.h"

// Service classes, one include each, in the order of the table.
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"

namespace {
using Auth = ZVAuthenticationType;
using SSL = ZVSSLSupport;

// Every service: stored class name, identifier, name shown, authentication,
// SSL support, fixed host, user name label, extra setup view, whether an
// empty title may be posted. The identifiers and names stay as they are:
// stored data and the key store depend on them.
const std::vector<ZVIntegrationServiceInfo> serviceTable = {
    {"Norvo.ZVActiveCollab5Integration", "com.ostrand.norvo.activecollab5", "ActiveCollab 5", Auth::usernamePassword, SSL::optional, false, ZVLocalizable("Email"), "ActiveCollab5", true},
    {"Norvo.ZVActiveCollabIntegration", "com.tesselwick.norvo.activecollab", "ActiveCollab", Auth::apiToken, SSL::optional, false, nullptr, "ActiveCollab", true},
    {"Norvo.ZVApolloIntegration", "com.tesselwick.norvo.apollo", "Apollo", Auth::apiToken, SSL::mandatory, true, nullptr, nullptr, true},
    {"Norvo.ZVAssemblaIntegration", "com.tesselwick.norvo.assembla", "Assembla", Auth::usernamePassword, SSL::mandatory, true, nullptr, "Assembla", true},
    {"Norvo.ZVAtTaskIntegration", "com.tesselwick.norvo.attask", "AtTask", Auth::usernamePassword, SSL::optional, false, nullptr, "AtTask", true},
    {"Norvo.ZVBigTimeIntegration", "com.ostrand.norvo.bigtime", "BigTime", Auth::usernamePassword, SSL::mandatory, true, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVBlinksaleIntegration", "com.tesselwick.norvo.blinksale", "Blinksale", Auth::usernamePassword, SSL::optional, false, nullptr, "Blinksale", true},
    {"Norvo.ZVCashboardIntegration", "com.tesselwick.norvo.cashboard", "Cashboard", Auth::usernamePassword, SSL::optional, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVCeloxisIntegration", "com.tesselwick.norvo.celoxis", "Celoxis", Auth::usernamePassword, SSL::mandatory, false, nullptr, nullptr, true},
    {"Norvo.ZVCodebaseIntegration", "com.tesselwick.norvo.codebase", "Codebase", Auth::usernameAPIToken, SSL::optional, false, nullptr, "CodebaseHQ", true},
    {"Norvo.ZVDingIntegration", "com.tesselwick.norvo.ding", "Ding", Auth::usernamePassword, SSL::mandatory, true, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVfixxIntegration", "com.tesselwick.norvo.fixx", "fixx", Auth::usernamePassword, SSL::none, false, nullptr, nullptr, true},
    {"Norvo.ZVFogBugzIntegration", "com.tesselwick.norvo.fogbugz", "FogBugz", Auth::usernamePassword, SSL::mandatory, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVFreckleIntegration", "com.tesselwick.norvo.freckle", "Freckle", Auth::usernameAPIToken, SSL::optional, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVFreeAgentIntegration", "com.tesselwick.norvo.freeagent", "FreeAgent", Auth::oAuth2, SSL::mandatory, true, nullptr, "FreeAgent", true},
    {"Norvo.ZVFreshBooksIntegration", "com.tesselwick.norvo.freshbooks", "FreshBooks", Auth::apiToken, SSL::mandatory, false, nullptr, nullptr, true},
    {"Norvo.ZVGenericAddressBasedIntegration", "com.tesselwick.norvo.generic", "Generic", Auth::usernamePassword, SSL::optional, false, nullptr, "Generic", true},
    {"Norvo.ZVHarvestIntegration", "com.tesselwick.norvo.harvest", "Harvest", Auth::usernamePassword, SSL::mandatory, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVIntervalsIntegration", "com.tesselwick.norvo.intervals", "Intervals", Auth::apiToken, SSL::mandatory, true, nullptr, "Intervals", true},
    {"Norvo.ZVInvoiceMachineIntegration", "com.tesselwick.norvo.invoicemachine", "Invoice Machine", Auth::apiToken, SSL::none, false, nullptr, "Blinksale", true},
    {"Norvo.ZVInvoiceraIntegration", "com.tesselwick.norvo.invoicera", "Invoicera", Auth::apiToken, SSL::mandatory, false, nullptr, nullptr, true},
    {"Norvo.ZVJIRAIntegration", "com.tesselwick.norvo.jira", "JIRA", Auth::usernamePassword, SSL::optional, false, nullptr, "JIRA", true},
    {"Norvo.ZVKashflowIntegration", "com.tesselwick.norvo.kashflow", "KashFlow", Auth::usernamePassword, SSL::mandatory, true, nullptr, "Kashflow", true},
    {"Norvo.ZVKimaiDownloader", "com.ostrand.norvo.kimai", "Kimai", Auth::usernamePassword, SSL::optional, false, nullptr, nullptr, true},
    {"Norvo.ZVLessAccountingIntegration", "com.tesselwick.norvo.lessaccounting", "LessAccounting", Auth::apiToken, SSL::mandatory, false, nullptr, "Blinksale", true},
    {"Norvo.ZVLiquidPlannerIntegration", "com.tesselwick.norvo.liquidplanner", "LiquidPlanner", Auth::usernamePassword, SSL::mandatory, true, ZVLocalizable("Email"), nullptr, false},
    {"Norvo.ZVMavenlinkIntegration", "com.tesselwick.norvo.mavenlink", "Mavenlink", Auth::oAuth2, SSL::mandatory, true, ZVLocalizable("User ID"), nullptr, true},
    {"Norvo.ZVMinuteDockIntegration", "com.tesselwick.norvo.minutedock", "MinuteDock", Auth::apiToken, SSL::mandatory, true, nullptr, "MinuteDock", true},
    {"Norvo.ZVMiteIntegration", "com.tesselwick.norvo.mite", "Mite", Auth::apiToken, SSL::optional, false, nullptr, nullptr, true},
    {"Norvo.ZVNozbeIntegration", "com.tesselwick.norvo.nozbe", "Nozbe", Auth::apiToken, SSL::none, true, nullptr, nullptr, true},
    {"Norvo.ZVPaymoIntegration", "com.tesselwick.norvo.paymo", "Paymo", Auth::usernamePasswordAPIToken, SSL::mandatory, true, nullptr, "Paymo", true},
    {"Norvo.ZVProjectBubbleIntegration", "com.tesselwick.norvo.projectbubble", "Project Bubble", Auth::apiToken, SSL::optional, false, nullptr, "ProjectBubble", true},
    {"Norvo.ZVRedmineIntegration", "com.tesselwick.norvo.redmine", "Redmine", Auth::apiToken, SSL::optional, false, nullptr, "Redmine", true},
    {"Norvo.ZVRoninIntegration", "com.tesselwick.norvo.ronin", "Ronin", Auth::apiToken, SSL::mandatory, false, nullptr, nullptr, false},
    {"Norvo.ZVScrumDoIntegration", "com.tesselwick.norvo.scrumdo", "ScrumDo", Auth::usernamePassword, SSL::optional, true, nullptr, "ScrumDo", true},
    {"Norvo.ZVSlimTimerIntegration", "com.tesselwick.norvo.slimtimer", "SlimTimer", Auth::apiToken, SSL::none, true, nullptr, nullptr, true},
    {"Norvo.ZVSUBERNOVAIntegration", "com.tesselwick.norvo.subernova", "SUBERNOVA", Auth::apiToken, SSL::mandatory, true, nullptr, nullptr, true},
    {"Norvo.ZVTargetProcessIntegration", "com.tesselwick.norvo.targetprocess", "TargetProcess", Auth::usernamePassword, SSL::optional, false, nullptr, nullptr, true},
    {"Norvo.ZVTeamboxIntegration", "com.tesselwick.norvo.teambox", "Redbooth", Auth::oAuth2, SSL::mandatory, false, nullptr, nullptr, true},
    {"Norvo.ZVTeamLabIntegration", "com.tesselwick.norvo.teamlab", "TeamLab", Auth::usernamePassword, SSL::mandatory, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVTeamworkPMIntegration", "com.tesselwick.norvo.teamworkpm", "TeamworkPM", Auth::apiToken, SSL::optional, false, nullptr, "TeamworkPM", true},
    {"Norvo.ZVTickIntegration", "com.tesselwick.norvo.tick", "Tick", Auth::usernamePassword, SSL::mandatory, false, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVTogglIntegration", "com.tesselwick.norvo.toggl", "Toggl", Auth::apiToken, SSL::mandatory, true, nullptr, "Assembla", true},
    {"Norvo.ZVTriggerAppIntegration", "com.tesselwick.norvo.triggerapp", "TriggerApp", Auth::usernameAPIToken, SSL::mandatory, true, ZVLocalizable("User Token"), nullptr, true},
    {"Norvo.ZVTSheetsIntegration", "com.tesselwick.norvo.tsheets", "TSheets", Auth::usernamePasswordAPIToken, SSL::optional, false, nullptr, nullptr, true},
    {"Norvo.ZVUnfuddleIntegration", "com.tesselwick.norvo.unfuddle", "Unfuddle", Auth::usernamePassword, SSL::optional, false, nullptr, nullptr, false},
    {"Norvo.ZVWorkflowMaxIntegration", "com.tesselwick.norvo.workflowmax", "WorkflowMax", Auth::usernameAPIToken, SSL::none, true, ZVLocalizable("Email"), "WorkflowMax", true},
    {"Norvo.ZVYouTrackIntegration", "com.tesselwick.norvo.youtrack", "YouTrack", Auth::usernamePassword, SSL::optional, false, nullptr, "YouTrack", true},
    {"Norvo.ZVZipBooksIntegration", "com.ostrand.norvo.zipbooks", "ZipBooks", Auth::usernamePassword, SSL::mandatory, true, ZVLocalizable("Email"), nullptr, true},
    {"Norvo.ZVZohoInvoiceIntegration", "com.tesselwick.norvo.zohoinvoice", "Zoho", Auth::usernamePassword, SSL::mandatory, true, ZVLocalizable("Email"), "Zoho", true},
};

template <class T>
ZVIntegrationClass service(const char* className) {
    const ZVIntegrationServiceInfo* info = ZVIntegrationRegistry::serviceForClassName(className);
    if (!info) ZVFatalError(std::string("Service class without a row in the table: ") + className);
    return ZVIntegrationClass::of<T>(className, info->identifier, info->name);
}

// The account classes that are built, from stored class name to factory,
// one line each in the order of the table:
//     service<ZVJIRAIntegration>("Norvo.ZVJIRAIntegration"),
std::vector<ZVIntegrationClass> builtClasses() {
    return {
        service<ZVGenericAddressBasedIntegration>("Norvo.ZVGenericAddressBasedIntegration"),
        service<ZVJIRAIntegration>("Norvo.ZVJIRAIntegration"),
        service<ZVKashflowIntegration>("Norvo.ZVKashflowIntegration"),
    };
}

std::mutex testClassesLock;
std::vector<ZVIntegrationClass>& testClasses() {
    static std::vector<ZVIntegrationClass> classes;
    return classes;
}

std::string caseFolded(const std::string& text) {
    std::string folded;
    icu::UnicodeString::fromUTF8(text).foldCase().toUTF8String(folded);
    return folded;
}
}  // namespace

const std::vector<ZVIntegrationServiceInfo>& ZVIntegrationRegistry::services() { return serviceTable; }

const ZVIntegrationServiceInfo* ZVIntegrationRegistry::serviceForClassName(std::string_view className) {
    for (const auto& info : serviceTable)
        if (className == info.className) return &info;
    return nullptr;
}

std::vector<ZVIntegrationClass> ZVIntegrationRegistry::integrationClasses() {
    static const std::vector<ZVIntegrationClass> built = builtClasses();
    std::vector<ZVIntegrationClass> classes = built;
    std::lock_guard guard(testClassesLock);
    classes.insert(classes.end(), testClasses().begin(), testClasses().end());
    return classes;
}

std::optional<ZVIntegrationClass> ZVIntegrationRegistry::classNamed(std::string_view className) {
    for (auto& integrationClass : integrationClasses())
        if (integrationClass.className == className) return integrationClass;
    return std::nullopt;
}

std::vector<ZVIntegrationClass> ZVIntegrationRegistry::availableIntegrationClasses() {
    std::vector<ZVIntegrationClass> classes = integrationClasses();
    std::stable_sort(classes.begin(), classes.end(), [](const auto& a, const auto& b) {
        return caseFolded(a.integrationName) < caseFolded(b.integrationName);
    });
    return classes;
}

std::string ZVIntegrationRegistry::normalizedClassName(std::string storedName) {
    const std::string observerPrefix = "NSKVONotifying_";
    if (storedName.starts_with(observerPrefix)) storedName.erase(0, observerPrefix.size());
    if (storedName.starts_with("KD")) storedName = "Norvo.ZV" + storedName.substr(2);
    return storedName;
}

ZVIntegrationRegistry::ScopedTestClass::ScopedTestClass(ZVIntegrationClass integrationClass)
    : _className(integrationClass.className) {
    std::lock_guard guard(testClassesLock);
    testClasses().push_back(std::move(integrationClass));
}

ZVIntegrationRegistry::ScopedTestClass::~ScopedTestClass() {
    std::lock_guard guard(testClassesLock);
    auto& classes = testClasses();
    classes.erase(std::remove_if(classes.begin(), classes.end(),
                                 [this](const auto& c) { return c.className == _className; }),
                  classes.end());
}
