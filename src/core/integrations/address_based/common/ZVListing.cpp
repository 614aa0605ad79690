#include "core/integrations/address_based/common/ZVListing.h"

#include <algorithm>
#include <sstream>
#include <unordered_map>

#include "ZVJSON.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

namespace ZVListing {

std::optional<std::string> text(const nlohmann::json* value) {
    if (!value) return std::nullopt;
    if (value->is_string()) return value->get<std::string>();
    if (value->is_number()) return value->dump();
    return std::nullopt;
}

namespace {
/// Adds the parameter, or replaces the one the request already has.
void setParameter(ZVServiceRequest& request, const std::string& name, std::string value) {
    for (auto& [key, existing] : request.query)
        if (key == name) {
            existing = std::move(value);
            return;
        }
    request.query.emplace_back(name, std::move(value));
}

/// Whether the page just read is the last one, going by the reply alone.
bool replySaysLast(const ZVPagingStyle& paging, const nlohmann::json& body, std::size_t pageItems,
                   std::size_t itemsSoFar) {
    if (!paging.morePath.empty() && !ZVJSON::boolean(body, paging.morePath)) return true;
    if (!paging.totalPath.empty()) {
        const auto total = ZVJSON::optionalInteger(body, paging.totalPath);
        if (total && static_cast<std::int64_t>(itemsSoFar) >= *total) return true;
    }
    return paging.shortPageIsLast && pageItems < paging.pageSize;
}
}  // namespace

std::vector<nlohmann::json> items(ZVAddressBasedIntegration& account, const ZVServiceRequest& request,
                                  const ZVPagingStyle& paging, std::string_view itemsPath,
                                  const std::optional<std::string>& missingList,
                                  const std::optional<std::string>& malformed) {
    using Kind = ZVPagingStyle::Kind;
    std::vector<nlohmann::json> all;
    ZVPaging::Guard guard(paging.maximumPages);
    std::optional<std::string> next;
    for (std::size_t page = 0;; ++page) {
        guard.beforePage();
        if (paging.beforePage) paging.beforePage(page + 1);
        ZVServiceRequest asked = request;
        switch (paging.kind) {
            case Kind::single: break;
            case Kind::pageNumber: setParameter(asked, paging.parameter, std::to_string(paging.firstPage + page)); break;
            case Kind::offset: setParameter(asked, paging.parameter, std::to_string(all.size())); break;
            case Kind::nextToken:
                if (next) setParameter(asked, paging.parameter, *next);
                break;
            case Kind::nextURL:
            case Kind::linkHeader:
                // The named address carries every parameter of its page.
                if (next) {
                    asked.path = *next;
                    asked.query.clear();
                }
                break;
        }
        if (!paging.sizeParameter.empty() && !(next && paging.kind != Kind::nextToken))
            setParameter(asked, paging.sizeParameter, std::to_string(paging.pageSize));

        const ZVServiceReply reply = account.send(asked);
        const auto body = reply.json();
        const std::string malformedReason = malformed.value_or(account.malformedReplyReason());
        if (!body || (!itemsPath.empty() && !body->is_object())) throw ZVIntegrationErrorWithFailureReason(malformedReason);
        const nlohmann::json* list = itemsPath.empty() ? &*body : ZVJSON::value(*body, itemsPath);
        const auto isRecord = [](const nlohmann::json& item) { return item.is_object(); };
        if (!list || !list->is_array() || !std::all_of(list->begin(), list->end(), isRecord)) throw ZVIntegrationErrorWithFailureReason(missingList.value_or(malformedReason));

        if (paging.afterPage) paging.afterPage(*body);
        if (paging.kind == Kind::single) return list->get<std::vector<nlohmann::json>>();
        if (list->empty()) return all;
        guard.notePage(ZVPaging::arrayFingerprint(*list));
        all.insert(all.end(), list->begin(), list->end());
        if (replySaysLast(paging, *body, list->size(), all.size())) return all;

        if (paging.kind == Kind::nextToken || paging.kind == Kind::nextURL) {
            next = text(ZVJSON::value(*body, paging.nextPath));
        } else if (paging.kind == Kind::linkHeader) {
            const auto header = reply.header("Link");
            next = header ? nextLink(*header) : std::nullopt;
        }
        if (paging.kind == Kind::nextToken || paging.kind == Kind::nextURL || paging.kind == Kind::linkHeader) {
            if (!next || next->empty()) return all;
            guard.noteNext(*next);
        }
    }
}

void eachXMLPage(ZVAddressBasedIntegration& account, const ZVServiceRequest& request, const ZVPagingStyle& paging,
                 const std::string& itemsXPath,
                 const std::function<void(const std::vector<pugi::xml_node>& page)>& eachPage) {
    using Kind = ZVPagingStyle::Kind;
    const std::string listXPath = itemsXPath.substr(0, itemsXPath.rfind('/'));
    ZVPaging::Guard guard(paging.maximumPages);
    std::size_t itemsSoFar = 0;
    for (std::size_t page = 0;; ++page) {
        guard.beforePage();
        if (paging.beforePage) paging.beforePage(page + 1);
        ZVServiceRequest asked = request;
        if (paging.kind == Kind::pageNumber)
            setParameter(asked, paging.parameter, std::to_string(paging.firstPage + page));
        else if (paging.kind == Kind::offset)
            setParameter(asked, paging.parameter, std::to_string(itemsSoFar));
        if (paging.kind != Kind::single && !paging.sizeParameter.empty())
            setParameter(asked, paging.sizeParameter, std::to_string(paging.pageSize));

        const ZVXMLDocument document = account.sendForXML(asked);
        if (document.nodes(listXPath).empty()) throw ZVIntegrationErrorWithFailureReason(account.malformedReplyReason());
        const auto items = document.nodes(itemsXPath);
        if (paging.kind == Kind::single) return eachPage(items);
        if (items.empty()) return;
        std::ostringstream printed;
        for (const auto& item : items) item.print(printed, "", pugi::format_raw);
        guard.notePage(std::hash<std::string>{}(printed.str()));
        eachPage(items);
        itemsSoFar += items.size();
        if (paging.shortPageIsLast && items.size() < paging.pageSize) return;
    }
}

namespace {
/// Logs and drops a record without an id or a name; keeps the rest.
std::optional<ZVRecord> checked(ZVRecord record, bool complete, std::string_view skippedLine,
                                const std::function<std::string()>& describe) {
    if (complete && !record.id.empty()) return record;
    ZVLog([&] { return std::string(skippedLine) + describe(); });
    return std::nullopt;
}
}  // namespace

std::vector<ZVRecord> records(const std::vector<nlohmann::json>& items, const ZVRecordShape& shape,
                              std::string_view skippedLine) {
    std::vector<ZVRecord> result;
    result.reserve(items.size());
    for (const auto& item : items) {
        const auto id = text(ZVJSON::value(item, shape.idPath));
        const auto name = text(ZVJSON::value(item, shape.namePath));
        ZVRecord record{id.value_or(""), name.value_or(""), {}, {}};
        bool complete = id && name;
        if (!shape.parentPath.empty()) {
            const auto parent = text(ZVJSON::value(item, shape.parentPath));
            complete = complete && parent;
            record.parentID = parent.value_or("");
        }
        for (const auto& path : shape.otherPaths) record.others.push_back(text(ZVJSON::value(item, path)));
        if (auto kept = checked(std::move(record), complete, skippedLine, [&] { return item.dump(); }))
            result.push_back(std::move(*kept));
    }
    return result;
}

std::vector<ZVRecord> records(const ZVXMLDocument& document, const std::string& itemsXPath,
                              const ZVRecordShape& shape, std::string_view skippedLine) {
    std::vector<ZVRecord> result;
    for (const auto& node : document.nodes(itemsXPath)) {
        const auto id = ZVXMLDocument::string(node, shape.idPath);
        const auto name = ZVXMLDocument::string(node, shape.namePath);
        ZVRecord record{id.value_or(""), name.value_or(""), {}, {}};
        bool complete = id && name;
        if (!shape.parentPath.empty()) {
            const auto parent = ZVXMLDocument::string(node, shape.parentPath);
            complete = complete && parent && !parent->empty();
            record.parentID = parent.value_or("");
        }
        for (const auto& path : shape.otherPaths) record.others.push_back(ZVXMLDocument::string(node, path));
        const auto describe = [&] { return ZVXMLDocument::printed(node); };
        if (auto kept = checked(std::move(record), complete, skippedLine, describe)) result.push_back(std::move(*kept));
    }
    return result;
}

std::vector<ZVRecord> records(ZVAddressBasedIntegration& account, const ZVServiceRequest& request,
                              const std::string& itemsXPath, const ZVRecordShape& shape,
                              std::string_view skippedLine) {
    const ZVXMLDocument document = account.sendForXML(request);
    if (document.root().name() != itemsXPath.substr(0, itemsXPath.find('/')))
        throw ZVIntegrationErrorWithFailureReason(account.malformedReplyReason());
    return records(document, itemsXPath, shape, skippedLine);
}

ZVIntegration::ProjectList nodes(const std::shared_ptr<ZVIntegration>& account, const std::vector<ZVRecord>& records) {
    ZVIntegration::ProjectList result;
    result.reserve(records.size());
    for (const auto& record : records) {
        auto node = ZVIntegrationProject::create(record.name, record.id);
        node->setIntegration(account);
        result.push_back(std::move(node));
    }
    return result;
}

namespace {
/// The records by their parent's id, each list in the order received.
std::unordered_map<std::string, std::vector<const ZVRecord*>> byParent(const std::vector<ZVRecord>& children,
                                                                       const std::vector<ZVRecord>& parents) {
    std::unordered_map<std::string, std::vector<const ZVRecord*>> result;
    for (const auto& parent : parents) result[parent.id];
    for (const auto& child : children) {
        const auto found = result.find(child.parentID);
        if (found == result.end()) {
            ZVLog([&] { return "Skipping " + child.name + " (" + child.id + "), whose parent " + child.parentID + " is not listed"; });
            continue;
        }
        found->second.push_back(&child);
    }
    return result;
}
}  // namespace

ZVIntegration::ProjectList twoLevels(const std::shared_ptr<ZVIntegration>& account,
                                     const std::vector<ZVRecord>& parents, const std::vector<ZVRecord>& children,
                                     bool keepsChildlessParents) {
    const auto childrenOf = byParent(children, parents);
    ZVIntegration::ProjectList result;
    for (const auto& parent : parents) {
        auto node = ZVIntegrationProject::create(parent.name, parent.id);
        node->setIntegration(account);
        for (const ZVRecord* child : childrenOf.at(parent.id))
            node->addSubproject(ZVIntegrationProject::create(child->name, parent.id, child->id));
        if (keepsChildlessParents || node->hasSubprojects()) result.push_back(std::move(node));
    }
    return result;
}

ZVIntegration::ProjectList threeLevels(const std::shared_ptr<ZVIntegration>& account, const std::vector<ZVRecord>& tops,
                                       const std::vector<ZVRecord>& middles, const std::vector<ZVRecord>& leaves) {
    const auto middlesOf = byParent(middles, tops);
    const auto leavesOf = byParent(leaves, middles);
    ZVIntegration::ProjectList result;
    for (const auto& top : tops) {
        auto topNode = ZVIntegrationProject::create(top.name, top.id);
        topNode->setIntegration(account);
        for (const ZVRecord* middle : middlesOf.at(top.id)) {
            auto middleNode = ZVIntegrationProject::create(middle->name, top.id, middle->id);
            for (const ZVRecord* leaf : leavesOf.at(middle->id)) {
                auto leafNode = ZVIntegrationProject::create(leaf->name, top.id, middle->id);
                leafNode->setAdditionalID(leaf->id);
                middleNode->addSubproject(leafNode);
            }
            topNode->addSubproject(middleNode);
        }
        result.push_back(std::move(topNode));
    }
    return result;
}

ZVIntegration::ProjectList products(const std::shared_ptr<ZVIntegration>& account,
                                    const std::vector<ZVRecord>& projects, const std::vector<ZVRecord>& services) {
    ZVIntegration::ProjectList result;
    for (const auto& project : projects) {
        auto node = ZVIntegrationProject::create(project.name, project.id);
        node->setIntegration(account);
        for (const auto& service : services)
            node->addSubproject(ZVIntegrationProject::create(service.name, project.id, service.id));
        result.push_back(std::move(node));
    }
    return result;
}

std::optional<std::string> nextLink(std::string_view header) {
    // <https://host/items?page=2>; rel="next", <https://host/items?page=9>; rel="last"
    std::size_t at = 0;
    while ((at = header.find('<', at)) != std::string_view::npos) {
        const std::size_t close = header.find('>', at);
        if (close == std::string_view::npos) return std::nullopt;
        const std::size_t end = std::min(header.find('<', close), header.size());
        const std::string_view parameters = header.substr(close + 1, end - close - 1);
        const std::size_t rel = parameters.find("rel=");
        if (rel != std::string_view::npos) {
            std::string_view value = parameters.substr(rel + 4);
            if (!value.empty() && value.front() == '"') value = value.substr(1, value.find('"', 1) - 1);
            else value = value.substr(0, value.find_first_of(";, "));
            // rel may list several relations: rel="next last".
            std::istringstream relations{std::string(value)};
            for (std::string relation; relations >> relation;)
                if (relation == "next") return std::string(header.substr(at + 1, close - at - 1));
        }
        at = close;
    }
    return std::nullopt;
}

}  // namespace ZVListing
