#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

/// Walks the pages of a remote listing, so that a service states only how
/// to fetch one page and what it said about the pages after it. Every walk
/// ends: on the page that calls itself the last, on an empty page, or with
/// an error when the server would send the walk round in a circle.
namespace ZVPaging {

/// What one page of a listing paged by continuation tokens said.
struct TokenPage {
    std::size_t itemCount = 0;
    bool isLast = false;
    /// The token of the next page; absent or empty when the page names none.
    std::optional<std::string> nextPageToken;
};

/// Fetches the first page without a token, then each next page with the
/// token that the page before it named, until a page is the last one, holds
/// no items or names no next token. A token that comes back a second time
/// would start the same pages over: the walk stops there with an error, as
/// it does after `maximumPages` pages.
void walkTokenPages(const std::function<TokenPage(const std::optional<std::string>& token)>& fetchPage,
                    std::size_t maximumPages = 10000);

/// What one page of a listing paged by the index of its first item said.
struct OffsetPage {
    std::size_t itemCount = 0;
    bool isLast = false;
};

/// Fetches the pages from index 0 on, each starting after the items of the
/// pages before it (the server may send fewer than were asked for), until a
/// page is the last one or holds no items; more than `maximumPages` pages
/// end with an error.
void walkOffsetPages(const std::function<OffsetPage(std::size_t startAt)>& fetchPage,
                     std::size_t maximumPages = 10000);

}  // namespace ZVPaging
