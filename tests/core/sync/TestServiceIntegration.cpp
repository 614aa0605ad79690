#include "core/sync/TestServiceIntegration.h"

#include "ZVDownloadCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {
std::optional<std::string> optionalString(const nlohmann::json& node, const char* key) {
    if (node.contains(key) && node[key].is_string()) return node[key].get<std::string>();
    return std::nullopt;
}
}  // namespace

TestServiceIntegration::ProjectList TestServiceIntegration::projectsFromJSON(
    const nlohmann::json& nodes, const std::shared_ptr<ZVIntegration>& integration) {
    ProjectList projects;
    for (const auto& node : nodes) {
        auto project = ZVIntegrationProject::create(node.value("name", ""), node.value("id", ""), optionalString(node, "sub"));
        project->setAdditionalID(optionalString(node, "add"));
        project->setIntegration(integration);
        if (node.contains("children")) {
            auto children = projectsFromJSON(node["children"], integration);
            project->addSubprojectsFromArray(children);
        }
        projects.push_back(project);
    }
    return projects;
}

TestServiceIntegration::ProjectList TestServiceIntegration::loadRemoteProjects() {
    ++loadCount;
    ZVDownloadCenter center(this);
    auto reply = center.downloadJSON(baseURL + "/projects");
    if (!reply) throw ZVIntegrationNoConnectionError();
    if (center.lastHTTPStatusCode() >= 400 || !reply->is_array()) {
        if (reply->is_object() && reply->contains("error")) {
            throw ZVIntegrationErrorWithFailureReason((*reply)["error"].get<std::string>());
        }
        throw ZVIntegrationGenericSyncError();
    }
    return projectsFromJSON(*reply, shared_from_this());
}

void TestServiceIntegration::postTime(ZVIntegrationProject& project) {
    auto entry = project.lastTimeLogEntry();
    nlohmann::json body = {{"project", project.projectID()},
                           {"seconds", project.time()},
                           {"title", entry ? entry->text() : std::string()}};
    ZVDownloadCenter center(this);
    auto reply = center.downloadJSON(baseURL + "/time", [&](ZVURLRequest& request) {
        request.method = "POST";
        request.setJSONBody(body);
    });
    if (!reply) throw ZVIntegrationNoConnectionError();
    if (center.lastHTTPStatusCode() >= 400) {
        if (reply->is_object() && reply->contains("error")) {
            throw ZVIntegrationErrorWithFailureReason((*reply)["error"].get<std::string>());
        }
        throw ZVIntegrationGenericTimePostingError();
    }
}
