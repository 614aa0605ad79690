#include "core/integrations/address_based/common/ZVPaging.h"

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
}  // namespace

void walkTokenPages(const std::function<TokenPage(const std::optional<std::string>& token)>& fetchPage,
                    std::size_t maximumPages) {
    std::unordered_set<std::string> seenTokens;
    std::optional<std::string> token;
    for (std::size_t pages = 0;; ++pages) {
        if (pages == maximumPages) throw tooManyPages(maximumPages);
        const TokenPage page = fetchPage(token);
        if (page.isLast || page.itemCount == 0 || !page.nextPageToken || page.nextPageToken->empty()) return;
        if (!seenTokens.insert(*page.nextPageToken).second) {
            ZVLog([&] { return "The next page token repeats: " + *page.nextPageToken; });
            throw ZVIntegrationErrorWithFailureReason(
                ZVLocalizedString("The server sent the same page twice, so the list could not be loaded completely."));
        }
        token = page.nextPageToken;
    }
}

void walkOffsetPages(const std::function<OffsetPage(std::size_t startAt)>& fetchPage, std::size_t maximumPages) {
    std::size_t startAt = 0;
    for (std::size_t pages = 0;; ++pages) {
        if (pages == maximumPages) throw tooManyPages(maximumPages);
        const OffsetPage page = fetchPage(startAt);
        if (page.isLast || page.itemCount == 0) return;
        startAt += page.itemCount;
    }
}

}  // namespace ZVPaging
