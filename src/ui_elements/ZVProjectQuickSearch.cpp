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

// Appends the folded text: ASCII in place, anything else as folded() has it.
void appendFolded(std::string& out, const std::string& text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            out += folded(text);
            return;
        }
    }
    const std::size_t start = out.size();
    out += text;
    for (std::size_t i = start; i < out.size(); ++i)
        if (out[i] >= 'A' && out[i] <= 'Z') out[i] = static_cast<char>(out[i] - 'A' + 'a');
}

// One search's working memory: the path being walked, and per depth the
// copy of the children being visited. Reused from node to node, so that a
// keystroke over a large tree allocates next to nothing.
struct SearchScratch {
    std::string path;
    std::vector<ZVIntegrationProject::List> childrenByDepth;
};

void searchTree(const std::string& foldedQuery, const ZVProjectQuickSearch::ProjectPointer& project,
                SearchScratch& scratch, std::size_t depth,
                std::vector<ZVProjectQuickSearch::ProjectPointer>& resultArray) {
    if (scratch.childrenByDepth.size() <= depth) scratch.childrenByDepth.resize(depth + 1);
    // A copy of the children: the refresh thread may replace them while we
    // walk. The vector of this depth keeps its capacity from node to node.
    scratch.childrenByDepth[depth] = project->subprojects();
    if (scratch.childrenByDepth[depth].empty()) {
        if (scratch.path.find(foldedQuery) != std::string::npos) resultArray.push_back(project);
        return;
    }
    const std::size_t pathLength = scratch.path.size();
    for (std::size_t i = 0; i < scratch.childrenByDepth[depth].size(); ++i) {
        // childrenByDepth may grow (and move) below; index, don't hold references.
        const ZVIntegrationProject::Pointer subproject = scratch.childrenByDepth[depth][i];
        // The path of a child is its parent's path, the separator and its
        // name, as fullProjectPath() builds it.
        scratch.path += ZVIntegrationProject::pathSeparator;
        appendFolded(scratch.path, subproject->name());
        searchTree(foldedQuery, subproject, scratch, depth + 1, resultArray);
        scratch.path.resize(pathLength);
    }
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
        SearchScratch scratch;
        for (const auto& project : projects) {
            scratch.path = folded(project->fullProjectPath());
            searchTree(foldedQuery, project, scratch, 0, resultArray);
        }
    }
    return resultArray;
}

std::vector<ZVProjectQuickSearch::ProjectPointer> ZVProjectQuickSearch::searchAllProjects(const std::string& query) {
    std::vector<IntegrationPointer> integrations = ZVIntegrationCenter::shared().integrations();
    integrations.push_back(ZVNorvoIntegration::sharedIntegration());
    return search(query, integrations);
}
