#include "core/integrations/address_based/common/ZVPaging.h"

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

}  // namespace

void Guard::beforePage() {
    if (_pages == _maximumPages) throw tooManyPages(_maximumPages);
    ++_pages;
}

void Guard::notePage(const std::optional<std::uint64_t>& fingerprint) {
    if (!fingerprint) return;
    const std::size_t index = _pages - 1;
    const auto [earlier, isNew] = _firstPageOf.emplace(*fingerprint, index);
    if (isNew) return;
    ZVLog([&, first = earlier->second] {
        return "Page " + std::to_string(index + 1) + " repeats page " + std::to_string(first + 1) + "; paging ends";
    });
    throw samePageTwice();
}

void Guard::noteNext(const std::string& next) {
    if (_seenNext.insert(next).second) return;
    ZVLog([&] { return "The next page token repeats: " + next; });
    throw samePageTwice();
}

namespace {
template <class Items>
std::uint64_t fingerprintOf(const Items& items) {
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
}  // namespace

std::uint64_t fingerprint(const std::vector<nlohmann::json>& items) { return fingerprintOf(items); }

std::uint64_t arrayFingerprint(const nlohmann::json& array) {
    return array.is_array() ? fingerprintOf(array) : fingerprintOf(std::vector<nlohmann::json>{});
}

void walkTokenPages(const std::function<TokenPage(const std::optional<std::string>& token)>& fetchPage,
                    std::size_t maximumPages) {
    Guard guard(maximumPages);
    std::optional<std::string> token;
    for (;;) {
        guard.beforePage();
        const TokenPage page = fetchPage(token);
        if (page.isLast || page.itemCount == 0 || !page.nextPageToken || page.nextPageToken->empty()) return;
        guard.notePage(page.fingerprint);
        guard.noteNext(*page.nextPageToken);
        token = page.nextPageToken;
    }
}

void walkOffsetPages(const std::function<OffsetPage(std::size_t startAt)>& fetchPage, std::size_t maximumPages) {
    Guard guard(maximumPages);
    std::size_t startAt = 0;
    for (;;) {
        guard.beforePage();
        const OffsetPage page = fetchPage(startAt);
        if (page.isLast || page.itemCount == 0) return;
        guard.notePage(page.fingerprint);
        startAt += page.itemCount;
    }
}

}  // namespace ZVPaging
