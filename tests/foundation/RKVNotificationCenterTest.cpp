#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVNotificationCenter.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVTestEvent;

TEST(RKVNotificationCenterTest, DeliversMatchingNotificationsOnThePostingThreadInOrder) {
  RKVNotificationCenter center;
  std::vector<std::string> calls;
  std::thread::id callThread;
  int status = -1;
  auto observe = [&](std::string label) {
    return [&calls, &callThread, label](const RKVNotification& n) {
      calls.push_back(label + ":" + n.name);
      callThread = std::this_thread::get_id();
    };
  };
  center.addObserver("change", observe("first"));
  center.addObserver("other", observe("other"));
  center.addObserver("", observe("all"));
  center.addObserver("change", [&](const RKVNotification& n) {
    auto it = n.userInfo.find("status");
    if (it != n.userInfo.end()) status = std::any_cast<int>(it->second);
  });
  EXPECT_FALSE(center.addObserver("change", nullptr));

  std::thread poster([&] { center.post("change", {{"status", 2}}); });
  poster.join();
  EXPECT_EQ(calls, (std::vector<std::string>{"first:change", "all:change"}));
  EXPECT_EQ(status, 2);
  EXPECT_NE(callThread, std::this_thread::get_id());

  calls.clear();
  center.post("unrelated");
  EXPECT_EQ(calls, (std::vector<std::string>{"all:unrelated"}));
  EXPECT_EQ(callThread, std::this_thread::get_id());
}

TEST(RKVNotificationCenterTest, ObserversChangingDuringDelivery) {
  RKVNotificationCenter center;
  std::vector<std::string> calls;
  RKVNotificationCenter::Token second;
  RKVNotificationCenter::Token self;
  auto selfState = std::make_shared<int>(0);
  std::weak_ptr<int> selfWatch = selfState;
  bool selfStateAliveAfterRemoval = false;

  center.addObserver("n", [&](const RKVNotification&) {
    calls.push_back("first");
    center.removeObserver(second);  // not yet called for this notification
    center.addObserver("n", [&](const RKVNotification&) { calls.push_back("added"); });
  });
  second = center.addObserver("n", [&](const RKVNotification&) { calls.push_back("second"); });
  self = center.addObserver("n", [&, selfState](const RKVNotification&) {
    calls.push_back("self");
    center.removeObserver(self);
    // Its own call goes on with what it captured.
    selfStateAliveAfterRemoval = !selfWatch.expired() && *selfState == 0;
  });
  selfState.reset();

  center.post("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "self"}));
  EXPECT_TRUE(selfStateAliveAfterRemoval);
  EXPECT_TRUE(selfWatch.expired()) << "destroyed once its last call returned";

  calls.clear();
  center.post("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "added"}));
}

TEST(RKVNotificationCenterTest, RemovalWaitsForACallUnderWayOnAnotherThread) {
  RKVNotificationCenter center;
  RKVTestEvent entered;
  RKVTestEvent gate;
  std::atomic<bool> callFinished{false};
  const auto token = center.addObserver("slow", [&](const RKVNotification&) {
    entered.set();
    (void)gate.wait();
    callFinished = true;
  });
  std::thread poster([&] { center.post("slow"); });
  ASSERT_TRUE(entered.wait());
  std::thread opener([&] {
    std::this_thread::sleep_for(10ms);  // lets the removal below start waiting first
    gate.set();
  });
  center.removeObserver(token);
  EXPECT_TRUE(callFinished) << "removeObserver() returned while the observer was running";
  opener.join();
  poster.join();
}

TEST(RKVNotificationCenterTest, NoCallAfterRemovalUnderConcurrentPosts) {
  RKVNotificationCenter center;
  std::atomic<bool> stop{false};
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&center, &stop, i] {
      while (!stop)
        center.post("tick", {{"from", i}});
    });
  }
  std::vector<std::shared_ptr<std::atomic<int>>> lateCalls;
  for (int round = 0; round < 200; ++round) {
    auto removed = std::make_shared<std::atomic<bool>>(false);
    auto late = std::make_shared<std::atomic<int>>(0);
    const auto token = center.addObserver("tick", [removed, late](const RKVNotification& n) {
      (void)std::any_cast<int>(n.userInfo.at("from"));
      if (removed->load()) ++*late;
    });
    std::this_thread::yield();
    center.removeObserver(token);
    removed->store(true);
    lateCalls.push_back(late);
  }
  stop = true;
  for (auto& poster : posters)
    poster.join();
  for (const auto& late : lateCalls)
    EXPECT_EQ(late->load(), 0);
}

}  // namespace
}  // namespace rkv
