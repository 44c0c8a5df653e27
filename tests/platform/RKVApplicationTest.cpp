// The application state the host reports, and the foreground notification it posts.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/platform/RKVApplication.h"

namespace rkv {
namespace {

TEST(RKVApplicationTest, LeavingTheBackgroundPostsTheForegroundNotificationOnce) {
  RKVNotificationCenter center;
  RKVApplication application(center);
  EXPECT_EQ(application.applicationState(), RKVApplicationStateActive);
  std::vector<int64_t> seen;  // the state observers find when notified
  center.addObserver(
      std::string(RKVApplicationWillEnterForegroundNotification),
      [&](const RKVNotification&) { seen.push_back(application.applicationState()); });
  // Each step: the new state, and whether it posts.
  const std::pair<int64_t, bool> steps[] = {
      {RKVApplicationStateInactive, false},   {RKVApplicationStateBackground, false},
      {RKVApplicationStateBackground, false}, {RKVApplicationStateInactive, true},
      {RKVApplicationStateActive, false},     {RKVApplicationStateBackground, false},
      {RKVApplicationStateActive, true},
  };
  std::vector<int64_t> expected;
  for (const auto& [state, posts] : steps) {
    application.setApplicationState(state);
    if (posts) expected.push_back(state);
    EXPECT_EQ(seen, expected) << "after moving to " << state;
  }
}

}  // namespace
}  // namespace rkv
