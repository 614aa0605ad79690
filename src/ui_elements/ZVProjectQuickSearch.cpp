#include "ui_elements/ZVProjectQuickSearch.h"

#include <QString>

#include "ZVLog.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"

namespace {

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    std::size_t position = 0;
    while ((position = text.find(from, position)) != std::string::npos) {
        text.replace(position, from.size(), to);
        position += to.size();
    }
}

// Case folding, fast for ASCII text and the separator; other text goes
// through Qt's Unicode folding.
std::string folded(const std::string& text) {
    static const std::string separator = ZVIntegrationProject::pathSeparator;
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            result.push_back(byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : static_cast<char>(byte));
        } else if (i > 0 && text.compare(i - 1, separator.size(), separator) == 0) {
            result.append(separator, 1, std::string::npos);
            i += separator.size() - 2;
        } else {
            return QString::fromStdString(text).toCaseFolded().toStdString();
        }
    }
    return result;
}

}  // namespace

std::string ZVProjectQuickSearch::normalizedQuery(const std::string& query) {
    const std::string separator = ZVIntegrationProject::pathSeparator;
    std::string result = query;
    // Widest spelling first, so that every spelling ends as one separator
    // with one space on each side. The arrow itself holds no '>', so a
    // replaced separator is never replaced again.
    replaceAll(result, " > ", separator);
    replaceAll(result, " >", separator);
    replaceAll(result, "> ", separator);
    replaceAll(result, ">", separator);
    return result;
}

std::vector<ZVProjectQuickSearch::ProjectPointer> ZVProjectQuickSearch::search(
    const std::string& query, const std::vector<IntegrationPointer>& integrations) {
    const std::string normalized = normalizedQuery(query);
    const std::string foldedQuery = folded(normalized);
    ZVLog([&] { return "Searching for " + normalized + " in " + std::to_string(integrations.size()) + " accounts"; });
    std::vector<ProjectPointer> resultArray;
    for (const auto& integration : integrations) {
        // A copy: the refresh thread may replace the tree while we walk it.
        const auto projects = integration->availableProjects();
        ZVLog([&] {
            return "Searching in " + integration->name() + " within " + std::to_string(projects.size()) + " projects";
        });
        for (const auto& project : projects)
            _search(foldedQuery, project, folded(project->fullProjectPath()), resultArray);
    }
    return resultArray;
}

std::vector<ZVProjectQuickSearch::ProjectPointer> ZVProjectQuickSearch::searchAllProjects(const std::string& query) {
    std::vector<IntegrationPointer> integrations = ZVIntegrationCenter::shared().integrations();
    integrations.push_back(ZVNorvoIntegration::sharedIntegration());
    return search(query, integrations);
}

void ZVProjectQuickSearch::_search(const std::string& foldedQuery, const ProjectPointer& project,
                                   const std::string& foldedPath, std::vector<ProjectPointer>& resultArray) {
    // A copy of the children for the same reason as above.
    const ZVIntegrationProject::List subprojects = project->subprojects();
    if (!subprojects.empty()) {
        // The path of a child is its parent's path, the separator and its
        // name, as fullProjectPath() builds it; built here once per level.
        for (const auto& subproject : subprojects)
            _search(foldedQuery, subproject,
                    foldedPath + ZVIntegrationProject::pathSeparator + folded(subproject->name()), resultArray);
        return;
    }
    if (foldedPath.find(foldedQuery) != std::string::npos) resultArray.push_back(project);
}
