#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVManualClock.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;

TEST(RKVClockTest, SecondsToDuration) {
  struct Case {
    double seconds;
    std::optional<RKVClock::duration> expected;
  };
  const std::vector<Case> cases = {
      {0, 0ns},
      {1.5, 1500ms},
      {0.000000001, 1ns},
      {-3, 0ns},
      {std::nan(""), 0ns},
      {9.2e9, std::chrono::seconds(9200000000)},
      {9.3e9, std::nullopt},
      {18446744073709551616.0, std::nullopt},
      {std::numeric_limits<double>::infinity(), std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RKVClock::durationFromSeconds(c.seconds), c.expected) << c.seconds;
  }
}

TEST(RKVClockTest, AddSaturating) {
  const RKVClock::time_point base(1h);
  EXPECT_EQ(RKVClock::addSaturating(base, 1s), base + 1s);
  EXPECT_EQ(RKVClock::addSaturating(base, -1s), base - 1s);
  EXPECT_EQ(RKVClock::addSaturating(base, RKVClock::duration::max()), std::nullopt);
  EXPECT_EQ(RKVClock::addSaturating(RKVClock::time_point(-1h), RKVClock::duration::min()),
            RKVClock::time_point::min());
}

TEST(RKVClockTest, ManualClockMovesOnlyForwardAndTellsItsObservers) {
  RKVManualClock clock;
  const auto start = clock.now();
  const auto startDate = clock.date();
  int moves = 0;
  const uint64_t id = clock.addObserver([&] { ++moves; });
  EXPECT_NE(id, 0u);

  clock.advance(1500ms);
  EXPECT_EQ(clock.now() - start, 1500ms);
  EXPECT_EQ(clock.date() - startDate, 1500ms);
  clock.advance(-1s);
  clock.advanceTo(start);
  EXPECT_EQ(clock.now() - start, 1500ms) << "monotonic time never goes back";
  clock.advanceTo(start + 2s);
  EXPECT_EQ(clock.now() - start, 2s);
  EXPECT_EQ(clock.date() - startDate, 2s);
  EXPECT_EQ(moves, 2) << "only real moves are reported";

  clock.removeObserver(id);
  clock.advance(1s);
  EXPECT_EQ(moves, 2);
  EXPECT_FALSE(clock.advancesByItself());
  EXPECT_TRUE(RKVClock::system()->advancesByItself());
}

}  // namespace
}  // namespace rkv
