#include "core/integrations/address_based/activecollab/ZVActiveCollabIntegration.h"

#include <sstream>

#include "ZVClock.h"
#include "ZVHelpers.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVXML.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVPostingText.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

// The names are the service's own: a unity build puts services side by side.
namespace activecollab {
namespace {
// Every call goes to one script; the token joins the query as "auth_api_token".
constexpr const char* api = "/api.php?path_info=";
constexpr const char* userPath = "/info";
constexpr const char* jobTypesPath = "info/job-types";
constexpr const char* projectsPath = "projects";

std::string described(const pugi::xml_node& node) { return ZVXMLDocument::printed(node); }

std::string described(const ZVXMLDocument& document) { return described(document.root()); }

/// The id at the end of a permalink, whose slashes may come as "%2F".
std::string idFromPermalink(std::string permalink) {
    for (auto at = permalink.find("%2F"); at != std::string::npos; at = permalink.find("%2F", at + 1))
        permalink.replace(at, 3, "/");
    return permalink.substr(permalink.rfind('/') + 1);
}

/// How version 3 names a billing status in a time record.
const char* billingName(ZVActiveCollabIntegration::BillingType billing) {
    using Billing = ZVActiveCollabIntegration::BillingType;
    switch (billing) {
        case Billing::notBillable: break;
        case Billing::billable: return "billable";
        case Billing::billableAndPending: return "billableAndPending";
        case Billing::billed: return "billed";
    }
    return "notBillable";
}
}  // namespace
}  // namespace activecollab

const std::vector<ZVIntegrationSetting>& ZVActiveCollabIntegration::settings() const {
    using Kind = ZVIntegrationSetting::Kind;
    static const std::vector<ZVIntegrationSetting> declared{
        {versionKey,
         Kind::choice,
         ZVLocalizable("Version"),
         "versionPopUp",
         std::nullopt,
         {{0, ZVLocalizable("ActiveCollab 2")}, {1, ZVLocalizable("ActiveCollab 3")}}},
        billingSetting(),
    };
    return declared;
}

const ZVIntegrationSetting& ZVActiveCollabIntegration::billingSetting() {
    static const ZVIntegrationSetting setting{billingKey,
                                              ZVIntegrationSetting::Kind::choice,
                                              ZVLocalizable("New time records are"),
                                              "billingPopUp",
                                              std::nullopt,
                                              {{0, ZVLocalizable("Not billable")},
                                               {1, ZVLocalizable("Billable")},
                                               {2, ZVLocalizable("Billable and pending")},
                                               {3, ZVLocalizable("Billed")}}};
    return setting;
}

std::optional<ZVCredentialPresentation> ZVActiveCollabIntegration::credentialPresentation() const {
    return ZVCredentialPresentation{
        .hint = ZVLocalizedString("ActiveCollab's hosted service has closed this API; a server of your own that "
                                  "runs version 2 or 3 still answers it.")};
}

ZVActiveCollabIntegration::Version ZVActiveCollabIntegration::activeCollabVersion() const {
    return choiceSetting(versionKey) == 1 ? Version::version3 : Version::version2;
}

ZVActiveCollabIntegration::BillingType ZVActiveCollabIntegration::billing() const {
    const std::int64_t stored = choiceSetting(billingKey);
    return stored >= 0 && stored <= 3 ? static_cast<BillingType>(stored) : BillingType::notBillable;
}

ZVIntegration::ProjectList ZVActiveCollabIntegration::loadRemoteProjects() {
    return _loadRemoteProjects(activeCollabVersion());
}

ZVIntegration::ProjectList ZVActiveCollabIntegration::_loadRemoteProjects(Version version) {
    const std::string api = activecollab::api;
    const bool withJobTypes = version == Version::version3;
    std::vector<pugi::xml_node> jobTypes;
    std::optional<ZVXMLDocument> jobTypesDocument;
    if (withJobTypes) {
        jobTypesDocument = sendForXML(ZVServiceRequest::get(api + activecollab::jobTypesPath));
        jobTypes = jobTypesDocument->nodes("job_types/job_type");
        if (jobTypes.empty())
            throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Couldn't load any job types."));
    }

    const ZVXMLDocument projects = sendForXML(ZVServiceRequest::get(api + activecollab::projectsPath));
    ZVLog([&] { return "Received document: " + activecollab::described(projects); });
    if (projects.nodes("projects").empty()) throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
    const std::string childrenPath = withJobTypes ? "/tasks" : "/tickets";
    const std::string childXPath = withJobTypes ? "tasks/task" : "tickets/ticket";

    ProjectList result;
    for (const auto& node : projects.nodes("projects/project")) {
        const auto name = ZVXMLDocument::string(node, "name");
        const auto permalink = ZVXMLDocument::string(node, "permalink");
        if (!name || !permalink) {
            ZVLog([&] { return "No name or permalink! Node " + activecollab::described(node); });
            continue;
        }
        const std::string id = activecollab::idFromPermalink(*permalink);
        std::optional<ZVXMLDocument> children;
        try {
            children = sendForXML(ZVServiceRequest::get(api + "projects/" + id + childrenPath));
        } catch (const ZVIntegrationError&) {
            // One project's list costs that project, not the run.
            ZVLog([&] { return "Couldn't load ticket list for " + *name; });
            continue;
        }
        ZVLog([&] { return "XML document with tickets (" + id + ")"; });

        auto project = ZVIntegrationProject::create(*name, id);
        project->setIntegration(weak_from_this());
        for (const auto& childNode : children->nodes(childXPath)) {
            const auto childPermalink = ZVXMLDocument::string(childNode, "permalink");
            const auto childName = ZVXMLDocument::string(childNode, "name");
            if (!childPermalink || !childName) {
                ZVLog([&] { return "No name or permalink (ticket)!. Node " + activecollab::described(childNode); });
                continue;
            }
            const std::string childID = activecollab::idFromPermalink(*childPermalink);
            auto child = ZVIntegrationProject::create(*childName, id, childID);
            for (const auto& type : jobTypes) {
                const auto typeName = ZVXMLDocument::string(type, "name");
                const auto typeID = ZVXMLDocument::string(type, "id");
                if (!typeName || !typeID) continue;
                auto leaf = ZVIntegrationProject::create(*typeName, id, childID);
                leaf->setAdditionalID(*typeID);
                child->addSubproject(leaf);
            }
            // Version 3 takes time only on a job type: a task without one
            // would be a leaf that every post fails on.
            if (!jobTypes.empty() && !child->hasSubprojects()) {
                ZVLog([&] { return "Skipping task " + *childName + " as there are no jobs."; });
                continue;
            }
            project->addSubproject(child);
        }
        if (project->hasSubprojects()) result.push_back(std::move(project));
    }
    return result;
}

std::optional<std::string> ZVActiveCollabIntegration::_getUserID() {
    const ZVXMLDocument info = sendForXML(ZVServiceRequest::get(std::string(activecollab::api) + activecollab::userPath));
    std::optional<std::string> id;
    if (activeCollabVersion() == Version::version3) {
        id = info.string("(info/logged_user/id)[last()]");
    } else if (const auto user = info.string("info/logged_user")) {
        // Version 2 names the user by the address of the user's page.
        id = activecollab::idFromPermalink(*user);
    }
    if (id && id->empty()) id.reset();
    ZVLog([&] { return "User ID: " + id.value_or("none"); });
    return id;
}

void ZVActiveCollabIntegration::postTime(ZVIntegrationProject& project) {
    const bool version3 = activeCollabVersion() == Version::version3;
    // A tree read under version 2 has no job types until the next refresh.
    if (version3 && (!project.subprojectID() || !project.additionalID())) {
        ZVLog([&] { return "Not posting on " + project.name() + ": version 3 takes time only on a job type of a task"; });
        throw ZVIntegrationGenericTimePostingError();
    }
    const auto user = _getUserID();
    if (!user) throw ZVIntegrationErrorWithFailureReason(ZVLocalizedString("Cannot fetch user ID."));

    const std::string date =
        ZVPostingText::date(static_cast<std::time_t>(ZVNow().time_since_epoch().count()));
    const std::string comment = ZVPostingText::title(project);
    const double hours = static_cast<double>(project.time()) / 3600.0;
    std::string path = activecollab::api;
    std::vector<std::pair<std::string, std::string>> form;
    // The two versions differ in the precision of the hours and in the form of the billing status.
    if (version3) {
        path += "/projects/" + project.projectID() + "/tasks/" + *project.subprojectID() + "/tracking/time/add";
        form = {{"submitted", "submitted"},
                {"time_record[user_id]", *user},
                {"time_record[value]", ZVPostingText::decimalHours(project.time(), 1)},
                {"time_record[record_date]", date},
                {"time_record[summary]", comment},
                {"time_record[billable_status]", activecollab::billingName(billing())},
                {"time_record[job_type_id]", *project.additionalID()},
                {"time_record[parent_id]", *project.subprojectID()}};
    } else {
        path += "/projects/" + project.projectID() + "/time/add";
        form = {{"submitted", "submitted"},
                {"time[user_id]", *user},
                {"time[value]", ZVPostingText::decimalText(hours)},
                {"time[record_date]", date},
                {"time[body]", comment},
                {"time[billable_status]", std::to_string(static_cast<int>(billing()))}};
    }
    ZVLog([&] { return "ActiveCollab URL " + URLForPath(path); });
    ZVLog([&] { return "ActiveCollab data string: " + ZVURLQueryString(form); });

    const ZVServiceRequest post = ZVServiceRequest::postForm(path, form);
    if (!version3) {
        const ZVServiceReply reply = send(post);
        ZVLog([&] { return "Posted and received " + reply.body; });
        return;
    }
    const ZVXMLDocument reply = sendForXML(post);
    ZVLog([&] { return "Got a response " + activecollab::described(reply); });
    if (reply.string("time_record/id").value_or("").empty()) throw ZVIntegrationGenericTimePostingError();
}
