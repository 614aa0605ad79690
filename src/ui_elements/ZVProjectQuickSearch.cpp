#include "ui_elements/ZVProjectQuickSearch.h"

#include <QString>
#include <algorithm>
#include <cstring>

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

// The walk that builds the index: the path being walked, and per depth
// the copy of the children being visited, reused from node to node.
struct IndexWalk {
    std::string path;
    std::vector<ZVIntegrationProject::List> childrenByDepth;
    std::string& text;
    std::vector<std::size_t>& starts;
    std::vector<ZVProjectSearchIndex::ProjectPointer>& leaves;
};

void indexTree(const ZVProjectSearchIndex::ProjectPointer& project, IndexWalk& walk, std::size_t depth) {
    if (walk.childrenByDepth.size() <= depth) walk.childrenByDepth.resize(depth + 1);
    // A copy of the children: the refresh thread may replace them while we
    // walk. The vector of this depth keeps its capacity from node to node.
    walk.childrenByDepth[depth] = project->subprojects();
    if (walk.childrenByDepth[depth].empty()) {
        // A node with children is never a result, only leaves are.
        walk.starts.push_back(walk.text.size());
        walk.text += walk.path;
        walk.text.push_back('\0');
        walk.leaves.push_back(project);
        return;
    }
    const std::size_t pathLength = walk.path.size();
    for (std::size_t i = 0; i < walk.childrenByDepth[depth].size(); ++i) {
        // childrenByDepth may grow (and move) below; index, don't hold references.
        const ZVIntegrationProject::Pointer subproject = walk.childrenByDepth[depth][i];
        // The path of a child is its parent's path, the separator and its
        // name, as fullProjectPath() builds it.
        walk.path += ZVIntegrationProject::pathSeparator;
        appendFolded(walk.path, subproject->name());
        indexTree(subproject, walk, depth + 1);
        walk.path.resize(pathLength);
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
    ZVLog([&] { return "Searching for " + normalized + " in " + std::to_string(integrations.size()) + " accounts"; });
    return ZVProjectSearchIndex::shared().search(normalized, integrations);
}

std::vector<ZVProjectQuickSearch::ProjectPointer> ZVProjectQuickSearch::searchAllProjects(const std::string& query) {
    std::vector<IntegrationPointer> integrations = ZVIntegrationCenter::shared().integrations();
    integrations.push_back(ZVNorvoIntegration::sharedIntegration());
    return search(query, integrations);
}

void ZVProjectQuickSearch::prepareAllProjects() {
    std::vector<IntegrationPointer> integrations = ZVIntegrationCenter::shared().integrations();
    integrations.push_back(ZVNorvoIntegration::sharedIntegration());
    ZVProjectSearchIndex::shared().update(integrations);
}

void ZVProjectSearchIndex::update(const std::vector<IntegrationPointer>& integrations) {
    std::lock_guard guard(_mutex);
    if (!_isCurrent(integrations)) _build(integrations);
}

ZVProjectSearchIndex& ZVProjectSearchIndex::shared() {
    static ZVProjectSearchIndex index;
    return index;
}

std::size_t ZVProjectSearchIndex::size() const {
    std::lock_guard guard(_mutex);
    return _leaves.size();
}

std::size_t ZVProjectSearchIndex::buildCount() const {
    std::lock_guard guard(_mutex);
    return _buildCount;
}

bool ZVProjectSearchIndex::_isCurrent(const std::vector<IntegrationPointer>& integrations) const {
    if (!_built || _generation != ZVIntegrationProject::treeGeneration()) return false;
    if (_integrations.size() != integrations.size()) return false;
    for (std::size_t i = 0; i < integrations.size(); ++i)
        if (_integrations[i].lock() != integrations[i]) return false;
    return true;
}

void ZVProjectSearchIndex::_build(const std::vector<IntegrationPointer>& integrations) {
    // Read before the walk: a change during the walk leaves a newer count
    // behind, and the next search builds again.
    _generation = ZVIntegrationProject::treeGeneration();
    _integrations.assign(integrations.begin(), integrations.end());
    _text.clear();
    _starts.clear();
    _leaves.clear();
    _hasLastMatches = false;
    IndexWalk walk{{}, {}, _text, _starts, _leaves};
    for (const auto& integration : integrations) {
        // A copy: the refresh thread may replace the tree while we walk it.
        const auto projects = integration->availableProjects();
        ZVLog([&] {
            return "Indexing " + integration->name() + " with " + std::to_string(projects.size()) + " projects";
        });
        for (const auto& project : projects) {
            walk.path = folded(project->fullProjectPath());
            indexTree(project, walk, 0);
        }
    }
    _starts.push_back(_text.size());
    _built = true;
    ++_buildCount;
}

bool ZVProjectSearchIndex::_entryContains(std::size_t entry, const std::string& foldedQuery) const {
    const std::size_t begin = _starts[entry];
    const std::size_t length = _starts[entry + 1] - 1 - begin;
    return memmem(_text.data() + begin, length, foldedQuery.data(), foldedQuery.size()) != nullptr;
}

std::vector<ZVProjectSearchIndex::ProjectPointer> ZVProjectSearchIndex::search(
    const std::string& normalizedQuery, const std::vector<IntegrationPointer>& integrations) {
    std::lock_guard guard(_mutex);
    if (!_isCurrent(integrations)) _build(integrations);

    std::vector<ProjectPointer> resultArray;
    const std::string foldedQuery = folded(normalizedQuery);
    // No path holds a NUL, so no query with one can be found.
    if (foldedQuery.find('\0') != std::string::npos) {
        _hasLastMatches = false;
        return resultArray;
    }

    std::vector<std::size_t> matches;
    if (_hasLastMatches && foldedQuery.find(_lastQuery) != std::string::npos) {
        // Every path that holds the longer query holds the shorter one.
        for (const std::size_t entry : _lastMatches)
            if (_entryContains(entry, foldedQuery)) matches.push_back(entry);
    } else if (foldedQuery.empty()) {
        matches.resize(_leaves.size());
        for (std::size_t entry = 0; entry < matches.size(); ++entry) matches[entry] = entry;
    } else {
        const char* const text = _text.data();
        const std::size_t textLength = _text.size();
        std::size_t position = 0;
        std::size_t entry = 0;
        while (position < textLength) {
            const void* hit = memmem(text + position, textLength - position, foldedQuery.data(), foldedQuery.size());
            if (!hit) break;
            const std::size_t offset = static_cast<std::size_t>(static_cast<const char*>(hit) - text);
            // Hits come in order: step to the path that holds this one.
            if (_starts[entry + 1] <= offset)
                entry = static_cast<std::size_t>(std::upper_bound(_starts.begin() + static_cast<std::ptrdiff_t>(entry),
                                                                  _starts.end(), offset) -
                                                 _starts.begin()) - 1;
            matches.push_back(entry);
            position = _starts[entry + 1];
            ++entry;
        }
    }

    resultArray.reserve(matches.size());
    for (const std::size_t entry : matches) resultArray.push_back(_leaves[entry]);
    _lastQuery = foldedQuery;
    _lastMatches = std::move(matches);
    _hasLastMatches = true;
    return resultArray;
}
