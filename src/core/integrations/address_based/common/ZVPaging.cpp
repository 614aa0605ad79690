#include "core/integrations/address_based/common/ZVPaging.h"

#include <unordered_map>
#include <unordered_set>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationError.h"

namespace ZVPaging {

namespace {
ZVIntegrationError tooManyPages(std::size_t maximumPages) {
    ZVLog([&] { return "Gave up paging after " + std::to_string(maximumPages) + " pages"; });
    return ZVIntegrationErrorWithFailureReason(
        ZVLocalizedString("The server kept sending more pages, so the list could not be loaded completely."));
}

ZVIntegrationError samePageTwice() {
    return ZVIntegrationErrorWithFailureReason(
        ZVLocalizedString("The server sent the same page twice, so the list could not be loaded completely."));
}

/// The fingerprints of the pages so far, by the page that first had each.
class SeenPages {
public:
    /// Throws when the page at `index` (from 0) holds what an earlier one held.
    void note(std::size_t index, const std::optional<std::uint64_t>& fingerprint) {
        if (!fingerprint) return;
        const auto [earlier, isNew] = _firstPageOf.emplace(*fingerprint, index);
        if (isNew) return;
        ZVLog([&, first = earlier->second] {
            return "Page " + std::to_string(index + 1) + " repeats page " + std::to_string(first + 1) +
                   "; paging ends";
        });
        throw samePageTwice();
    }

private:
    std::unordered_map<std::uint64_t, std::size_t> _firstPageOf;
};
}  // namespace

std::uint64_t fingerprint(const std::vector<nlohmann::json>& items) {
    // FNV-1a over the items' text, each closed by a byte JSON text never holds.
    std::uint64_t hash = 14695981039346656037ull;
    const auto add = [&](unsigned char byte) {
        hash ^= byte;
        hash *= 1099511628211ull;
    };
    for (const auto& item : items) {
        for (const char c : item.dump()) add(static_cast<unsigned char>(c));
        add(0xFF);
    }
    return hash;
}

void walkTokenPages(const std::function<TokenPage(const std::optional<std::string>& token)>& fetchPage,
                    std::size_t maximumPages) {
    std::unordered_set<std::string> seenTokens;
    SeenPages seenPages;
    std::optional<std::string> token;
    for (std::size_t pages = 0;; ++pages) {
        if (pages == maximumPages) throw tooManyPages(maximumPages);
        const TokenPage page = fetchPage(token);
        if (page.isLast || page.itemCount == 0 || !page.nextPageToken || page.nextPageToken->empty()) return;
        seenPages.note(pages, page.fingerprint);
        if (!seenTokens.insert(*page.nextPageToken).second) {
            ZVLog([&] { return "The next page token repeats: " + *page.nextPageToken; });
            throw samePageTwice();
        }
        token = page.nextPageToken;
    }
}

void walkOffsetPages(const std::function<OffsetPage(std::size_t startAt)>& fetchPage, std::size_t maximumPages) {
    SeenPages seenPages;
    std::size_t startAt = 0;
    for (std::size_t pages = 0;; ++pages) {
        if (pages == maximumPages) throw tooManyPages(maximumPages);
        const OffsetPage page = fetchPage(startAt);
        if (page.isLast || page.itemCount == 0) return;
        seenPages.note(pages, page.fingerprint);
        startAt += page.itemCount;
    }
}

}  // namespace ZVPaging
