#include <gtest/gtest.h>

#include <vector>

#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/common/ZVPaging.h"
#include "testkit/LogCapture.h"

namespace {

/// A page of `count` items numbered from `first`.
std::vector<nlohmann::json> items(int first, int count) {
    std::vector<nlohmann::json> page;
    for (int number = first; number < first + count; ++number) page.push_back({{"key", "WEB-" + std::to_string(number)}});
    return page;
}

using ZVPaging::OffsetPage;
using ZVPaging::TokenPage;

/// Answers the scripted pages in order and notes the token each was asked with.
struct ScriptedTokenPages {
    std::vector<TokenPage> pages;
    std::vector<std::optional<std::string>> askedTokens;

    TokenPage operator()(const std::optional<std::string>& token) {
        askedTokens.push_back(token);
        if (askedTokens.size() > pages.size()) {
            ADD_FAILURE() << "asked for page " << askedTokens.size() << " of " << pages.size();
            return {};
        }
        return pages[askedTokens.size() - 1];
    }
};

std::string failureReason(const std::function<void()>& walk) {
    try {
        walk();
    } catch (const ZVIntegrationError& error) {
        return error.localizedFailureReason().value_or("<none>");
    }
    return "<nothing thrown>";
}

TEST(TokenPaging, FollowsEachNextTokenUntilTheLastEmptyOrTokenlessPage) {
    ScriptedTokenPages three{{{50, false, "a"}, {50, false, "b"}, {7, true, std::nullopt}}, {}};
    ZVPaging::walkTokenPages(std::ref(three));
    EXPECT_EQ(three.askedTokens,
              (std::vector<std::optional<std::string>>{std::nullopt, std::string("a"), std::string("b")}));
    struct Case {
        const char* description;
        TokenPage secondPage;
    };
    const Case cases[] = {
        {"the last page, though it names a token", {10, true, "c"}},
        {"an empty page that names a token", {0, false, "c"}},
        {"a page without a token", {10, false, std::nullopt}},
        {"a page with an empty token", {10, false, ""}},
    };
    for (const Case& c : cases) {
        ScriptedTokenPages script{{{10, false, "a"}, c.secondPage}, {}};
        ZVPaging::walkTokenPages(std::ref(script));
        EXPECT_EQ(script.askedTokens.size(), 2u) << c.description;
    }
}

TEST(TokenPaging, ARepeatedTokenEndsWithAnError) {
    // Not only the token just used: any earlier one would go round in a circle.
    ScriptedTokenPages script{{{10, false, "a"}, {10, false, "b"}, {10, false, "a"}}, {}};
    EXPECT_EQ(failureReason([&] { ZVPaging::walkTokenPages(std::ref(script)); }),
              "The server sent the same page twice, so the list could not be loaded completely.");
    EXPECT_EQ(script.askedTokens.size(), 3u);
}

TEST(Paging, PagesWithoutEndStopWithAnErrorAfterTheMostPages) {
    const std::string reason = "The server kept sending more pages, so the list could not be loaded completely.";
    LogCapture log;
    int asked = 0;
    const auto endlessTokens = [&](const std::optional<std::string>&) {
        ++asked;
        return TokenPage{1, false, "t" + std::to_string(asked)};
    };
    EXPECT_EQ(failureReason([&] { ZVPaging::walkTokenPages(endlessTokens, 25); }), reason);
    EXPECT_EQ(asked, 25);
    EXPECT_TRUE(log.contains("Gave up paging after 25 pages")) << log.joined();

    asked = 0;
    const auto endlessOffsets = [&](std::size_t) {
        ++asked;
        return OffsetPage{1, false};
    };
    EXPECT_EQ(failureReason([&] { ZVPaging::walkOffsetPages(endlessOffsets, 12); }), reason);
    EXPECT_EQ(asked, 12);
}

TEST(TokenPaging, APageThatComesBackUnderANewTokenEndsWithAnError) {
    // The server names a new token each time but ignores the one it is given.
    LogCapture log;
    int asked = 0;
    const auto ignoringTheToken = [&](const std::optional<std::string>&) {
        ++asked;
        return TokenPage{100, false, "t" + std::to_string(asked), ZVPaging::fingerprint(items(0, 100))};
    };
    EXPECT_EQ(failureReason([&] { ZVPaging::walkTokenPages(ignoringTheToken); }),
              "The server sent the same page twice, so the list could not be loaded completely.");
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(log.contains("Page 2 repeats page 1; paging ends")) << log.joined();
}

TEST(OffsetPaging, StartsEachPageAfterTheItemsReceivedUntilTheLastOrAnEmptyPage) {
    // The server sends fewer than asked for; the next page starts after what came.
    std::vector<std::size_t> starts;
    const std::vector<OffsetPage> pages = {{50, false}, {30, false}, {2, true}};
    ZVPaging::walkOffsetPages([&](std::size_t startAt) {
        starts.push_back(startAt);
        return pages.at(starts.size() - 1);
    });
    EXPECT_EQ(starts, (std::vector<std::size_t>{0, 50, 80}));
    // An empty page ends a paging that never says it is the last.
    starts.clear();
    ZVPaging::walkOffsetPages([&](std::size_t startAt) {
        starts.push_back(startAt);
        return OffsetPage{startAt < 100 ? 50u : 0u, false};
    });
    EXPECT_EQ(starts, (std::vector<std::size_t>{0, 50, 100}));
}

TEST(OffsetPaging, APageThatHoldsWhatAnEarlierPageHeldEndsWithAnError) {
    // The first full page for ever, from a server that ignores startAt; or a
    // circle back to any earlier page.
    const std::vector<std::vector<int>> walks = {{0, 0}, {0, 10, 20, 10}};
    for (const auto& firstItems : walks) {
        std::size_t asked = 0;
        EXPECT_EQ(failureReason([&] {
                      ZVPaging::walkOffsetPages([&](std::size_t) {
                          const auto page = items(firstItems.at(asked++), 999);
                          return OffsetPage{page.size(), false, ZVPaging::fingerprint(page)};
                      });
                  }),
                  "The server sent the same page twice, so the list could not be loaded completely.");
        EXPECT_EQ(asked, firstItems.size());
    }
    // The same items in another order, or cut elsewhere, are another page.
    EXPECT_NE(ZVPaging::fingerprint(items(0, 2)), ZVPaging::fingerprint({items(0, 2)[1], items(0, 2)[0]}));
    EXPECT_NE(ZVPaging::fingerprint({"ab", "c"}), ZVPaging::fingerprint({"a", "bc"}));
}

}  // namespace
