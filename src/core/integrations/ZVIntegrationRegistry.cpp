#include "core/integrations/ZVIntegrationRegistry.h"

#include <algorithm>
#include <mutex>
#include <typeinfo>

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "ZVLocalization.h"
#include "ZVLog.h"

// Service classes, one include each, in the order of the table.
#include "core/integrations/address_based/activecollab/ZVActiveCollab5Integration.h"
#include "core/integrations/address_based/activecollab/ZVActiveCollabIntegration.h"
#include "core/integrations/address_based/attask/ZVAtTaskIntegration.h"
#include "core/integrations/address_based/freckle/ZVFreckleIntegration.h"
#include "core/integrations/address_based/freeagent/ZVFreeAgentIntegration.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/integrations/address_based/harvest/ZVHarvestIntegration.h"
#include "core/integrations/address_based/intervals/ZVIntervalsIntegration.h"
#include "core/integrations/address_based/jira/ZVJIRAIntegration.h"
#include "core/integrations/address_based/kashflow/ZVKashflowIntegration.h"
#include "core/integrations/address_based/liquidplanner/ZVLiquidPlannerIntegration.h"
#include "core/integrations/address_based/mavenlink/ZVMavenlinkIntegration.h"
#include "core/integrations/address_based/minutedock/ZVMinuteDockIntegration.h"
#include "core/integrations/address_based/mite/ZVMiteIntegration.h"
#include "core/integrations/address_based/paymo/ZVPaymoIntegration.h"
#include "core/integrations/address_based/redmine/ZVRedmineIntegration.h"
#include "core/integrations/address_based/slimtimer/ZVSlimTimerIntegration.h"
#include "core/integrations/address_based/targetprocess/ZVTargetProcessIntegration.h"
#include "core/integrations/address_based/teambox/ZVTeamboxIntegration.h"
#include "core/integrations/address_based/teamworkpm/ZVTeamworkPMIntegration.h"
#include "core/integrations/address_based/tick/ZVTickIntegration.h"
#include "core/integrations/address_based/toggl/ZVTogglIntegration.h"
#include "core/integrations/address_based/tsheets/ZVTSheetsIntegration.h"

namespace {
using Auth = ZVAuthenticationType;
using SSL = ZVSSLSupport;

template <class T>
ZVIntegrationMaker built() {
    return {[] { return std::shared_ptr<ZVIntegration>(ZVIntegration::makeNew<T>()); },
            [](const ZVDictionary& dictionary) {
                return std::shared_ptr<ZVIntegration>(ZVIntegration::makeWithDictionary<T>(dictionary));
            },
            &typeid(T)};
}

// Every service, one row each: its facts and, once it is built, how to make
// its accounts. The identifiers, names and class names stay as they are:
// stored databases and the key store depend on them.
const std::vector<ZVIntegrationServiceInfo> serviceTable = {
    {
        .className = "Norvo.ZVActiveCollab5Integration",
        .identifier = "com.ostrand.norvo.activecollab5",
        .name = "ActiveCollab 5",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .usernameLabel = ZVLocalizable("Email"),
        .setupViewName = "ActiveCollab5",
        .make = built<ZVActiveCollab5Integration>(),
    },
    {
        .className = "Norvo.ZVActiveCollabIntegration",
        .identifier = "com.tesselwick.norvo.activecollab",
        .name = "ActiveCollab",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::optional,
        .setupViewName = "ActiveCollab",
        .make = built<ZVActiveCollabIntegration>(),
    },
    {
        .className = "Norvo.ZVApolloIntegration",
        .identifier = "com.tesselwick.norvo.apollo",
        .name = "Apollo",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
    },
    {
        .className = "Norvo.ZVAssemblaIntegration",
        .identifier = "com.tesselwick.norvo.assembla",
        .name = "Assembla",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "Assembla",
    },
    {
        .className = "Norvo.ZVAtTaskIntegration",
        .identifier = "com.tesselwick.norvo.attask",
        .name = "AtTask",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .setupViewName = "AtTask",
        .make = built<ZVAtTaskIntegration>(),
    },
    {
        .className = "Norvo.ZVBigTimeIntegration",
        .identifier = "com.ostrand.norvo.bigtime",
        .name = "BigTime",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVBlinksaleIntegration",
        .identifier = "com.tesselwick.norvo.blinksale",
        .name = "Blinksale",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .setupViewName = "Blinksale",
    },
    {
        .className = "Norvo.ZVCashboardIntegration",
        .identifier = "com.tesselwick.norvo.cashboard",
        .name = "Cashboard",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVCeloxisIntegration",
        .identifier = "com.tesselwick.norvo.celoxis",
        .name = "Celoxis",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
    },
    {
        .className = "Norvo.ZVCodebaseIntegration",
        .identifier = "com.tesselwick.norvo.codebase",
        .name = "Codebase",
        .authenticationType = Auth::usernameAPIToken,
        .sslSupport = SSL::optional,
        .setupViewName = "CodebaseHQ",
    },
    {
        .className = "Norvo.ZVDingIntegration",
        .identifier = "com.tesselwick.norvo.ding",
        .name = "Ding",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVfixxIntegration",
        .identifier = "com.tesselwick.norvo.fixx",
        .name = "fixx",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::none,
    },
    {
        .className = "Norvo.ZVFogBugzIntegration",
        .identifier = "com.tesselwick.norvo.fogbugz",
        .name = "FogBugz",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVFreckleIntegration",
        .identifier = "com.tesselwick.norvo.freckle",
        .name = "Freckle",
        .authenticationType = Auth::usernameAPIToken,
        .sslSupport = SSL::optional,
        .usernameLabel = ZVLocalizable("Email"),
        .make = built<ZVFreckleIntegration>(),
    },
    {
        .className = "Norvo.ZVFreeAgentIntegration",
        .identifier = "com.tesselwick.norvo.freeagent",
        .name = "FreeAgent",
        .authenticationType = Auth::oAuth2,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "FreeAgent",
        .make = built<ZVFreeAgentIntegration>(),
    },
    {
        .className = "Norvo.ZVFreshBooksIntegration",
        .identifier = "com.tesselwick.norvo.freshbooks",
        .name = "FreshBooks",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
    },
    {
        .className = "Norvo.ZVGenericAddressBasedIntegration",
        .identifier = "com.tesselwick.norvo.generic",
        .name = "Generic",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .setupViewName = "Generic",
        .make = built<ZVGenericAddressBasedIntegration>(),
    },
    {
        .className = "Norvo.ZVHarvestIntegration",
        .identifier = "com.tesselwick.norvo.harvest",
        .name = "Harvest",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .usernameLabel = ZVLocalizable("Email"),
        .make = built<ZVHarvestIntegration>(),
    },
    {
        .className = "Norvo.ZVIntervalsIntegration",
        .identifier = "com.tesselwick.norvo.intervals",
        .name = "Intervals",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "Intervals",
        .make = built<ZVIntervalsIntegration>(),
    },
    {
        .className = "Norvo.ZVInvoiceMachineIntegration",
        .identifier = "com.tesselwick.norvo.invoicemachine",
        .name = "Invoice Machine",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::none,
        .setupViewName = "Blinksale",
    },
    {
        .className = "Norvo.ZVInvoiceraIntegration",
        .identifier = "com.tesselwick.norvo.invoicera",
        .name = "Invoicera",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
    },
    {
        .className = "Norvo.ZVJIRAIntegration",
        .identifier = "com.tesselwick.norvo.jira",
        .name = "JIRA",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .setupViewName = "JIRA",
        .make = built<ZVJIRAIntegration>(),
    },
    {
        .className = "Norvo.ZVKashflowIntegration",
        .identifier = "com.tesselwick.norvo.kashflow",
        .name = "KashFlow",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "Kashflow",
        .make = built<ZVKashflowIntegration>(),
    },
    {
        .className = "Norvo.ZVKimaiDownloader",
        .identifier = "com.ostrand.norvo.kimai",
        .name = "Kimai",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
    },
    {
        .className = "Norvo.ZVLessAccountingIntegration",
        .identifier = "com.tesselwick.norvo.lessaccounting",
        .name = "LessAccounting",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .setupViewName = "Blinksale",
    },
    {
        .className = "Norvo.ZVLiquidPlannerIntegration",
        .identifier = "com.tesselwick.norvo.liquidplanner",
        .name = "LiquidPlanner",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
        .canPostEmptyTitle = false,
        .make = built<ZVLiquidPlannerIntegration>(),
    },
    {
        .className = "Norvo.ZVMavenlinkIntegration",
        .identifier = "com.tesselwick.norvo.mavenlink",
        .name = "Mavenlink",
        .authenticationType = Auth::oAuth2,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("User ID"),
        .make = built<ZVMavenlinkIntegration>(),
    },
    {
        .className = "Norvo.ZVMinuteDockIntegration",
        .identifier = "com.tesselwick.norvo.minutedock",
        .name = "MinuteDock",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "MinuteDock",
        .make = built<ZVMinuteDockIntegration>(),
    },
    {
        .className = "Norvo.ZVMiteIntegration",
        .identifier = "com.tesselwick.norvo.mite",
        .name = "Mite",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::optional,
        .make = built<ZVMiteIntegration>(),
    },
    {
        .className = "Norvo.ZVNozbeIntegration",
        .identifier = "com.tesselwick.norvo.nozbe",
        .name = "Nozbe",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::none,
        .hasHardcodedAddress = true,
    },
    {
        .className = "Norvo.ZVPaymoIntegration",
        .identifier = "com.tesselwick.norvo.paymo",
        .name = "Paymo",
        .authenticationType = Auth::usernamePasswordAPIToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "Paymo",
        .make = built<ZVPaymoIntegration>(),
    },
    {
        .className = "Norvo.ZVProjectBubbleIntegration",
        .identifier = "com.tesselwick.norvo.projectbubble",
        .name = "Project Bubble",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::optional,
        .setupViewName = "ProjectBubble",
    },
    {
        .className = "Norvo.ZVRedmineIntegration",
        .identifier = "com.tesselwick.norvo.redmine",
        .name = "Redmine",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::optional,
        .setupViewName = "Redmine",
        .make = built<ZVRedmineIntegration>(),
    },
    {
        .className = "Norvo.ZVRoninIntegration",
        .identifier = "com.tesselwick.norvo.ronin",
        .name = "Ronin",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .canPostEmptyTitle = false,
    },
    {
        .className = "Norvo.ZVScrumDoIntegration",
        .identifier = "com.tesselwick.norvo.scrumdo",
        .name = "ScrumDo",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .hasHardcodedAddress = true,
        .setupViewName = "ScrumDo",
    },
    {
        .className = "Norvo.ZVSlimTimerIntegration",
        .identifier = "com.tesselwick.norvo.slimtimer",
        .name = "SlimTimer",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::none,
        .hasHardcodedAddress = true,
        .make = built<ZVSlimTimerIntegration>(),
    },
    {
        .className = "Norvo.ZVSUBERNOVAIntegration",
        .identifier = "com.tesselwick.norvo.subernova",
        .name = "SUBERNOVA",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
    },
    {
        .className = "Norvo.ZVTargetProcessIntegration",
        .identifier = "com.tesselwick.norvo.targetprocess",
        .name = "TargetProcess",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .make = built<ZVTargetProcessIntegration>(),
    },
    {
        .className = "Norvo.ZVTeamboxIntegration",
        .identifier = "com.tesselwick.norvo.teambox",
        .name = "Redbooth",
        .authenticationType = Auth::oAuth2,
        .sslSupport = SSL::mandatory,
        .make = built<ZVTeamboxIntegration>(),
    },
    {
        .className = "Norvo.ZVTeamLabIntegration",
        .identifier = "com.tesselwick.norvo.teamlab",
        .name = "TeamLab",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVTeamworkPMIntegration",
        .identifier = "com.tesselwick.norvo.teamworkpm",
        .name = "TeamworkPM",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::optional,
        .setupViewName = "TeamworkPM",
        .make = built<ZVTeamworkPMIntegration>(),
    },
    {
        .className = "Norvo.ZVTickIntegration",
        .identifier = "com.tesselwick.norvo.tick",
        .name = "Tick",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .usernameLabel = ZVLocalizable("Email"),
        .make = built<ZVTickIntegration>(),
    },
    {
        .className = "Norvo.ZVTogglIntegration",
        .identifier = "com.tesselwick.norvo.toggl",
        .name = "Toggl",
        .authenticationType = Auth::apiToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .setupViewName = "Assembla",
        .make = built<ZVTogglIntegration>(),
    },
    {
        .className = "Norvo.ZVTriggerAppIntegration",
        .identifier = "com.tesselwick.norvo.triggerapp",
        .name = "TriggerApp",
        .authenticationType = Auth::usernameAPIToken,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("User Token"),
    },
    {
        .className = "Norvo.ZVTSheetsIntegration",
        .identifier = "com.tesselwick.norvo.tsheets",
        .name = "TSheets",
        .authenticationType = Auth::usernamePasswordAPIToken,
        .sslSupport = SSL::optional,
        .make = built<ZVTSheetsIntegration>(),
    },
    {
        .className = "Norvo.ZVUnfuddleIntegration",
        .identifier = "com.tesselwick.norvo.unfuddle",
        .name = "Unfuddle",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .canPostEmptyTitle = false,
    },
    {
        .className = "Norvo.ZVWorkflowMaxIntegration",
        .identifier = "com.tesselwick.norvo.workflowmax",
        .name = "WorkflowMax",
        .authenticationType = Auth::usernameAPIToken,
        .sslSupport = SSL::none,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
        .setupViewName = "WorkflowMax",
    },
    {
        .className = "Norvo.ZVYouTrackIntegration",
        .identifier = "com.tesselwick.norvo.youtrack",
        .name = "YouTrack",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::optional,
        .setupViewName = "YouTrack",
    },
    {
        .className = "Norvo.ZVZipBooksIntegration",
        .identifier = "com.ostrand.norvo.zipbooks",
        .name = "ZipBooks",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
    },
    {
        .className = "Norvo.ZVZohoInvoiceIntegration",
        .identifier = "com.tesselwick.norvo.zohoinvoice",
        .name = "Zoho",
        .authenticationType = Auth::usernamePassword,
        .sslSupport = SSL::mandatory,
        .hasHardcodedAddress = true,
        .usernameLabel = ZVLocalizable("Email"),
        .setupViewName = "Zoho",
    },
};

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

const ZVIntegrationServiceInfo* ZVIntegrationRegistry::serviceForType(const std::type_info& type) {
    for (const auto& info : serviceTable)
        if (info.make.type && *info.make.type == type) return &info;
    return nullptr;
}

std::vector<ZVIntegrationClass> ZVIntegrationRegistry::integrationClasses() {
    static const std::vector<ZVIntegrationClass> builtClasses = [] {
        std::vector<ZVIntegrationClass> classes;
        for (const auto& info : serviceTable) {
            if (info.make.makeNew)
                classes.push_back({info.className, info.identifier, info.name, info.make.makeNew, info.make.makeWithDictionary});
        }
        return classes;
    }();
    std::vector<ZVIntegrationClass> classes = builtClasses;
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
