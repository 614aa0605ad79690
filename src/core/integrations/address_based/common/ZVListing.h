#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "ZVXML.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "core/integrations/address_based/common/ZVServiceRequest.h"

class ZVAddressBasedIntegration;

/// How a service's list comes in pages, as data: how the next page is asked
/// for and how the last one is known. Every walk also ends on an empty
/// page, and fails on a page that repeats an earlier one or past the cap.
struct ZVPagingStyle {
    enum class Kind {
        /// One reply holds the whole list.
        single,
        /// `parameter` numbers the pages, the first being `firstPage` (0 or 1).
        pageNumber,
        /// `parameter` is the index of the page's first item ("offset",
        /// "skip", "startAt"): the items received so far.
        offset,
        /// The reply names the next page's token at `nextPath`; it goes
        /// back as `parameter`.
        nextToken,
        /// The reply names the next page's address at `nextPath`.
        nextURL,
        /// The Link header of the reply names the next page's address.
        linkHeader,
    };
    Kind kind = Kind::single;
    std::string parameter;
    /// The parameter that asks for `pageSize` items a page ("per_page",
    /// "limit", "take"); none is sent when empty.
    std::string sizeParameter;
    std::size_t pageSize = 100;
    std::size_t firstPage = 1;
    std::string nextPath;
    /// A flag of the reply that says whether pages follow ("has_more").
    std::string morePath;
    /// The number of items of the whole list, in the reply ("total").
    std::string totalPath;
    /// A page of fewer than `pageSize` items is the last.
    bool shortPageIsLast = false;
    std::size_t maximumPages = ZVPaging::defaultMaximumPages;
    /// Told each page's number (from 1) before it is asked for, for a log line.
    std::function<void(std::size_t page)> beforePage = nullptr;
    /// Told each page's whole reply once its list passed, for a service
    /// whose list names records that sit elsewhere in the same reply.
    std::function<void(const nlohmann::json& reply)> afterPage = nullptr;
};

/// Where a record keeps what a tree needs. In JSON each is a key path, in
/// XML an XPath below the record's node.
struct ZVRecordShape {
    std::string idPath = "id";
    std::string namePath = "name";
    /// The parent's id, for records listed apart from their parents.
    std::string parentPath;
    /// Further values the service reads, in `ZVRecord::others`.
    std::vector<std::string> otherPaths;
};

/// One record of a list: ids and names as text, whether the service sent
/// them as strings or numbers.
struct ZVRecord {
    std::string id;
    std::string name;
    std::string parentID;
    /// The values at `otherPaths`, in their order; absent where missing.
    std::vector<std::optional<std::string>> others;
};

/// Reading the lists of a service, and building its tree from them.
namespace ZVListing {

/// The text of an id or name that may come as a string or a number.
std::optional<std::string> text(const nlohmann::json* value);

/// Every item of a JSON list: the array at `itemsPath` of each page (the
/// reply itself when the path is empty), page after page as `paging` says.
/// A reply that is no JSON, or no object where a path is given, fails with
/// `malformed` (the account's malformed reply reason when not given); one
/// without an array of objects there fails with `missingList` (the same
/// when not given).
std::vector<nlohmann::json> items(ZVAddressBasedIntegration& account, const ZVServiceRequest& request,
                                  const ZVPagingStyle& paging, std::string_view itemsPath,
                                  const std::optional<std::string>& missingList = std::nullopt,
                                  const std::optional<std::string>& malformed = std::nullopt);

/// The item nodes at `itemsXPath` ("projects/project") of an XML list,
/// page by page as `paging` says (single, pageNumber or offset), each
/// page handed to `eachPage` as it comes, so that what a page's items need
/// is asked before the next page. A reply without the list's element (the
/// XPath's steps but the last) fails with the account's malformed reply
/// reason; the walk ends on an empty page or as the style says.
void eachXMLPage(ZVAddressBasedIntegration& account, const ZVServiceRequest& request, const ZVPagingStyle& paging,
                 const std::string& itemsXPath,
                 const std::function<void(const std::vector<pugi::xml_node>& page)>& eachPage);

/// The records of JSON items. A record without an id or a name is logged
/// as `skippedLine` followed by the record, and left out: one bad record
/// never costs the others.
std::vector<ZVRecord> records(const std::vector<nlohmann::json>& items, const ZVRecordShape& shape,
                              std::string_view skippedLine);
/// The records at `itemsXPath` of an XML reply, with the same rule.
std::vector<ZVRecord> records(const ZVXMLDocument& document, const std::string& itemsXPath,
                              const ZVRecordShape& shape, std::string_view skippedLine);
/// The records of an XML list that comes whole in one reply, with the same
/// rule. A reply whose root element is not the first step of `itemsXPath`
/// ("projects" of "projects/project") fails with the account's malformed
/// reply reason.
std::vector<ZVRecord> records(ZVAddressBasedIntegration& account, const ZVServiceRequest& request,
                              const std::string& itemsXPath, const ZVRecordShape& shape,
                              std::string_view skippedLine);

/// One node of the account for each record, its id as the project id.
ZVIntegration::ProjectList nodes(const std::shared_ptr<ZVIntegration>& account, const std::vector<ZVRecord>& records);

/// The parents with their children below them, a child by its parent id
/// (a child node has the parent's id as project id and its own as
/// subproject id). A child whose parent is not in the list is logged and
/// left out; a parent without children stays only with `keepsChildlessParents`.
ZVIntegration::ProjectList twoLevels(const std::shared_ptr<ZVIntegration>& account,
                                     const std::vector<ZVRecord>& parents, const std::vector<ZVRecord>& children,
                                     bool keepsChildlessParents = true);

/// Three levels by parent id: the leaves carry all three ids (project,
/// subproject, additional). A middle node without leaves stays, as does a
/// top one without middle nodes.
ZVIntegration::ProjectList threeLevels(const std::shared_ptr<ZVIntegration>& account, const std::vector<ZVRecord>& tops,
                                       const std::vector<ZVRecord>& middles, const std::vector<ZVRecord>& leaves);

/// Every project with every service below it, for services that book time
/// on a project and a kind of work: (service name, project id, service id).
ZVIntegration::ProjectList products(const std::shared_ptr<ZVIntegration>& account,
                                    const std::vector<ZVRecord>& projects, const std::vector<ZVRecord>& services);

/// The "next" address of an HTTP Link header, if it names one.
std::optional<std::string> nextLink(std::string_view linkHeader);

}  // namespace ZVListing
