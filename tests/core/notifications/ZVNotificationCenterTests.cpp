#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"

namespace {

TEST(NotificationCenterTest, ObserversOfTheNameRunInOrderBeforePostReturns) {
    ZVNotificationCenter center;
    std::vector<std::string> calls;
    center.addObserver("A", [&](const ZVNotification&) { calls.push_back("first"); });
    center.addObserver("B", [&](const ZVNotification&) { calls.push_back("other name"); });
    center.addObserver("A", [&](const ZVNotification&) { calls.push_back("second"); });

    center.post("A");
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(center.observerCount("A"), 2u);
}

TEST(NotificationCenterTest, ObserversRunOnThePostingThread) {
    ZVNotificationCenter center;
    std::thread::id observedOn;
    center.addObserver("A", [&](const ZVNotification&) { observedOn = std::this_thread::get_id(); });
    std::thread poster([&] { center.post("A"); });
    const std::thread::id posterID = poster.get_id();
    poster.join();
    EXPECT_EQ(observedOn, posterID);
}

TEST(NotificationCenterTest, RemovedObserversAreNotCalledEvenWithinAPost) {
    ZVNotificationCenter center;
    int laterCalls = 0;
    ZVNotificationCenter::Token later = 0;
    const auto earlier = center.addObserver("A", [&](const ZVNotification&) { center.removeObserver(later); });
    later = center.addObserver("A", [&](const ZVNotification&) { ++laterCalls; });

    center.post("A");
    EXPECT_EQ(laterCalls, 0);
    center.removeObserver(earlier);
    center.removeObserver(earlier);  // a second removal is harmless
    center.removeObserver(12345);
    EXPECT_EQ(center.observerCount("A"), 0u);
}

TEST(NotificationCenterTest, ObserversMayPostAndObserveWithinANotification) {
    ZVNotificationCenter center;
    std::vector<std::string> calls;
    center.addObserver("outer", [&](const ZVNotification&) {
        calls.push_back("outer");
        center.addObserver("inner", [&](const ZVNotification&) { calls.push_back("inner"); });
        center.post("inner");
    });
    center.post("outer");
    EXPECT_EQ(calls, (std::vector<std::string>{"outer", "inner"}));
}

TEST(NotificationCenterTest, ObjectComesBackOnlyAsItsPostedType) {
    ZVNotificationCenter center;
    auto object = std::make_shared<std::string>("project");
    std::shared_ptr<std::string> received;
    std::shared_ptr<int> wrongType = std::make_shared<int>(1);
    center.addObserver("A", [&](const ZVNotification& notification) {
        received = notification.objectAs<std::string>();
        wrongType = notification.objectAs<int>();
    });
    center.post("A", object);
    EXPECT_EQ(received, object);
    EXPECT_EQ(wrongType, nullptr);

    center.post("A");
    EXPECT_EQ(received, nullptr);
}

}  // namespace
