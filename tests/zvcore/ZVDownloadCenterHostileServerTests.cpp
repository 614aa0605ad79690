#include <gtest/gtest.h>

#include <chrono>

#include "ZVCurlSession.h"
#include "ZVDownloadCenter.h"
#include "ZVLog.h"
#include "testkit/FakeServer.h"

// What a hostile or broken server sends is bounded by the download center
// and its transport: no reply grows without end in memory, and what comes
// back is no reply rather than a crash.

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

class CappingOwner : public ZVDownloadCenterOwner {
public:
    std::string name() const override { return "Hostile"; }
    void didEncounterError(ZVDownloadCenter&, const ZVDownloadCenterError& error) override { errors.push_back(error); }
    std::size_t maximumResponseBytes() const override { return cap; }

    std::vector<ZVDownloadCenterError> errors;
    std::size_t cap = ZVURLRequest::defaultMaximumResponseBytes;
};

class HostileServerTests : public ::testing::Test {
protected:
    HostileServerTests() { session->setTimeouts(2, timeoutSeconds); }
    ~HostileServerTests() override {
        ZVLogSetSink(nullptr);
        ZVLogSetEnabled(_loggingWasOn);
    }

    /// Debug logging on, its lines kept here.
    void captureLog() {
        ZVLogSetSink([this](const std::string& line) { logLines.push_back(line); });
        ZVLogSetEnabled(true);
    }

    /// The one error the owner heard of, and that it says the reply was too large.
    void expectReplyTooLarge() {
        ASSERT_EQ(owner.errors.size(), 1u);
        EXPECT_EQ(owner.errors[0].kind, ZVDownloadCenterError::Kind::replyTooLarge) << owner.errors[0].description();
        EXPECT_EQ(center.lastHTTPStatusCode(), 0);
        EXPECT_FALSE(center.lastResponse());
    }

    static double secondsSince(std::chrono::steady_clock::time_point start) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    // Long enough for 64 MiB over the loopback in a sanitized build, short
    // against a body that would never end.
    static constexpr double timeoutSeconds = 30;
    // What the kernel's socket buffers may hold beyond what the client read.
    static constexpr std::uint64_t bufferSlack = 32 * mebibyte;

    FakeServer server;
    std::shared_ptr<ZVCurlSession> session = std::make_shared<ZVCurlSession>();
    CappingOwner owner;
    ZVDownloadCenter center{&owner, session};
    std::vector<std::string> logLines;
    bool _loggingWasOn = ZVLogIsEnabled();
};

TEST_F(HostileServerTests, AnEndlessBodyIsCutOffAtTheCap) {
    server.route("GET", "/issues", FakeResponse::endlessBody());
    owner.cap = 2 * mebibyte;

    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(center.downloadJSON(server.url("/issues")));

    expectReplyTooLarge();
    EXPECT_NE(owner.errors[0].message.find("exceeds 2097152 bytes"), std::string::npos) << owner.errors[0].message;
    EXPECT_LT(secondsSince(start), timeoutSeconds / 2) << "cut off, not timed out";
    EXPECT_GE(server.streamedBytes(), 2 * mebibyte);
    EXPECT_LT(server.streamedBytes(), 2 * mebibyte + bufferSlack);
}

TEST_F(HostileServerTests, TheDefaultCapIs64MiB) {
    EXPECT_EQ(ZVURLRequest::defaultMaximumResponseBytes, 64 * mebibyte);
    EXPECT_EQ(ZVURLRequest("http://example.com/").maximumResponseBytes, 64 * mebibyte);
    server.route("GET", "/issues", FakeResponse::endlessBody());
    ZVDownloadCenter ownerless(nullptr, session);

    EXPECT_FALSE(ownerless.downloadWebPage(server.url("/issues")));

    ASSERT_TRUE(ownerless.lastError());
    EXPECT_EQ(ownerless.lastError()->kind, ZVDownloadCenterError::Kind::replyTooLarge);
    EXPECT_GE(server.streamedBytes(), 64 * mebibyte);
    EXPECT_LT(server.streamedBytes(), 64 * mebibyte + bufferSlack);
}

TEST_F(HostileServerTests, AHugeContentLengthIsRefusedBeforeTheBody) {
    server.route("GET", "/projects", FakeResponse::hugeContentLength(std::uint64_t{2} << 30));

    EXPECT_FALSE(center.downloadJSON(server.url("/projects")));

    expectReplyTooLarge();
    EXPECT_NE(owner.errors[0].message.find("Content-Length"), std::string::npos) << owner.errors[0].message;
    EXPECT_LT(server.streamedBytes(), bufferSlack);
}

TEST_F(HostileServerTests, EndlessHeadersAreCutOff) {
    FakeResponse answer = FakeResponse::json("{}");
    for (int index = 0; index < 1200; ++index)
        answer.headers.emplace_back("X-Filler-" + std::to_string(index), std::string(1000, 'h'));
    server.route("GET", "/headers", answer);

    EXPECT_FALSE(center.downloadJSON(server.url("/headers")));

    expectReplyTooLarge();
    EXPECT_NE(owner.errors[0].message.find("headers"), std::string::npos) << owner.errors[0].message;
}

TEST_F(HostileServerTests, AReplyOfExactlyTheCapArrivesWhole) {
    const std::string body = "[" + std::string(mebibyte - 3, ' ') + "1]";
    server.route("GET", "/list", FakeResponse::json(body));
    owner.cap = mebibyte;

    const auto json = center.downloadJSON(server.url("/list"));

    ASSERT_TRUE(json);
    EXPECT_EQ(*json, nlohmann::json::array({1}));
    EXPECT_TRUE(owner.errors.empty());
}

TEST_F(HostileServerTests, AServiceRaisesTheCapForAllItsRequestsAndOneRequestForItself) {
    server.route("GET", "/export", FakeResponse::text(std::string(3 * mebibyte, 'x')));
    owner.cap = 2 * mebibyte;
    EXPECT_FALSE(center.downloadWebPage(server.url("/export")));
    expectReplyTooLarge();

    EXPECT_TRUE(center.downloadWebPage(server.url("/export"), [](ZVURLRequest& request) {
        EXPECT_EQ(request.maximumResponseBytes, 2 * mebibyte) << "the owner's cap reaches the modifier";
        request.maximumResponseBytes = 4 * mebibyte;
    }));

    owner.cap = 4 * mebibyte;
    EXPECT_TRUE(center.downloadWebPage(server.url("/export")));
}

/// A transport that hands back whatever it is given, however large.
class UncappedSession : public ZVHTTPSession {
public:
    ZVHTTPResult send(const ZVURLRequest& request) override {
        ZVHTTPResponse response;
        response.statusCode = 200;
        response.url = request.url;
        response.body = body;
        return {std::move(response), std::nullopt};
    }
    std::vector<ZVHTTPCookie> cookies(const std::string&) override { return {}; }
    void clearCookies(const std::string&) override {}
    void clearAllCookies() override {}
    std::string body;
};

TEST_F(HostileServerTests, TheCapHoldsOverATransportThatDoesNotCutOff) {
    auto uncapped = std::make_shared<UncappedSession>();
    uncapped->body = "[" + std::string(mebibyte, ' ') + "]";
    owner.cap = mebibyte;
    ZVDownloadCenter overUncapped(&owner, uncapped);

    EXPECT_FALSE(overUncapped.downloadJSON("http://example.com/"));

    ASSERT_EQ(owner.errors.size(), 1u);
    EXPECT_EQ(owner.errors[0].kind, ZVDownloadCenterError::Kind::replyTooLarge);
}

TEST_F(HostileServerTests, DeeplyNestedJSONIsNoJSONEvenWithDebugLogging) {
    captureLog();
    // Five million levels: what once overflowed the stack when a log line
    // dumped the parsed reply.
    server.route("GET", "/deep", FakeResponse::deeplyNestedJSON(5'000'000));

    EXPECT_FALSE(center.downloadJSON(server.url("/deep")));
    EXPECT_FALSE(center.downloadJSONDictionary(server.url("/deep")));

    EXPECT_EQ(center.lastHTTPStatusCode(), 200);
    EXPECT_TRUE(owner.errors.empty()) << "an answer came; it is no JSON";
    for (const auto& line : logLines) EXPECT_LE(line.size(), ZVLogMaximumMessageLength + 400) << line.substr(0, 200);
}

TEST(ZVDownloadCenterJSONDepthTests, NestingUpToTheLimitParsesAndDeeperDoesNot) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_EQ(ZVDownloadCenter::maximumJSONDepth, 512u);
    EXPECT_TRUE(ZVDownloadCenter::jsonObject(nested(ZVDownloadCenter::maximumJSONDepth)));
    EXPECT_FALSE(ZVDownloadCenter::jsonObject(nested(ZVDownloadCenter::maximumJSONDepth + 1)));

    std::string objects;
    for (std::size_t level = 0; level <= ZVDownloadCenter::maximumJSONDepth; ++level) objects += R"({"a":)";
    objects += "1" + std::string(ZVDownloadCenter::maximumJSONDepth + 1, '}');
    EXPECT_FALSE(ZVDownloadCenter::jsonObject(objects));
}

TEST(ZVDownloadCenterJSONDepthTests, BracketsInStringsDoNotCount) {
    const std::string brackets(2000, '[');
    const auto parsed = ZVDownloadCenter::jsonObject(R"({"summary": ")" + brackets + R"(\"{{{{", "key": "WEB-1"})");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->at("key"), "WEB-1");
    EXPECT_EQ(parsed->at("summary").get<std::string>().size(), brackets.size() + 5);
}

}  // namespace
