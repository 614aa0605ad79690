#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nlohmann/json.hpp>

/// Walks the pages of a remote listing, so that a service states only how
/// to fetch one page and what it said about the pages after it. Every walk
/// ends: on the page that calls itself the last, on an empty page, or with
/// an error when the server would send the walk round in a circle (a next
/// page token or a page's content that came before) or on and on (more
/// than a cap of pages). Each of those errors leaves a line in the log.
namespace ZVPaging {

/// The most pages a walk fetches unless the service names its own cap:
/// two million items at a thousand a page, far beyond any user's list, and
/// an end for a server that would hand out new pages for ever.
inline constexpr std::size_t defaultMaximumPages = 2000;

/// What a page held, for telling a page that comes back: the same items in
/// the same order give the same fingerprint.
std::uint64_t fingerprint(const std::vector<nlohmann::json>& items);
/// The same for the items of a JSON array.
std::uint64_t arrayFingerprint(const nlohmann::json& array);

/// What keeps one walk finite, for a walk that a service drives itself: it
/// counts the pages and remembers what each held and where each pointed on.
class Guard {
public:
    explicit Guard(std::size_t maximumPages = defaultMaximumPages) : _maximumPages(maximumPages) {}
    /// Before each page: throws once the cap of pages is reached.
    void beforePage();
    /// After a page with items: throws when an earlier page held the same.
    void notePage(const std::optional<std::uint64_t>& fingerprint);
    /// Throws when a page points on to where an earlier one pointed (a
    /// next page token or address), which would start the same pages over.
    void noteNext(const std::string& next);

private:
    std::size_t _maximumPages;
    std::size_t _pages = 0;
    std::unordered_map<std::uint64_t, std::size_t> _firstPageOf;
    std::unordered_set<std::string> _seenNext;
};

/// What one page of a listing paged by continuation tokens said.
struct TokenPage {
    std::size_t itemCount = 0;
    bool isLast = false;
    /// The token of the next page; absent or empty when the page names none.
    std::optional<std::string> nextPageToken;
    /// The page's fingerprint(); absent when the service gives none.
    std::optional<std::uint64_t> fingerprint = std::nullopt;
};

/// Fetches the first page without a token, then each next page with the
/// token that the page before it named, until a page is the last one, holds
/// no items or names no next token. A token that comes back a second time
/// would start the same pages over, and a page that holds what an earlier
/// page held shows a server that ignores the token: the walk stops there
/// with an error, as it does after `maximumPages` pages.
void walkTokenPages(const std::function<TokenPage(const std::optional<std::string>& token)>& fetchPage,
                    std::size_t maximumPages = defaultMaximumPages);

/// What one page of a listing paged by the index of its first item said.
struct OffsetPage {
    std::size_t itemCount = 0;
    bool isLast = false;
    /// The page's fingerprint(); absent when the service gives none.
    std::optional<std::uint64_t> fingerprint = std::nullopt;
};

/// Fetches the pages from index 0 on, each starting after the items of the
/// pages before it (the server may send fewer than were asked for), until a
/// page is the last one or holds no items. A page that holds what an earlier
/// page held shows a server that ignores the index (it would send that same
/// full page for ever), and more than `maximumPages` pages show one that
/// never ends: both end the walk with an error.
void walkOffsetPages(const std::function<OffsetPage(std::size_t startAt)>& fetchPage,
                     std::size_t maximumPages = defaultMaximumPages);

}  // namespace ZVPaging
