#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVTimeUtils.h"

namespace rkv {
namespace {

using std::chrono::seconds;
using std::chrono::system_clock;

struct TextCase {
  const char* text;
  double expected;
};

TEST(RKVTimeUtilsTest, ClockTextsAtTheirBounds) {
  const TextCase cases[] = {
      {"00:00:15", 15.0},
      {"15", 15.0},
      {"5", 5.0},
      {"1:2", 62.0},
      {"00:01:30.250", 90.25},
      {"00:00:05.5", 5.5},
      {"00:00:05.05", 5.05},
      {"00:00:05.005", 5.005},
      {"59:59:59", 215999.0},
      {"59:59:59.999", 215999.999},
      {"00:00:00", 0.0},
      {"60:00:00", -1.0},
      {"00:60:00", -1.0},
      {"00:00:60", -1.0},
      {"100:00:00", -1.0},
      {"00:00:15.1234", -1.0},
      {"00:00:05.", -1.0},
      {".5", -1.0},
      {"1:2:3:4", -1.0},
      {"-1", -1.0},
      {" 15", -1.0},
      {"15 ", -1.0},
      {"15\n", -1.0},
      {"", -1.0},
      {"10s", -1.0},
      {"\xEF\xBC\x91\xEF\xBC\x95", -1.0},  // full-width digits
  };
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromVASTDuration(c.text), c.expected)
        << '"' << c.text << '"';
  }
}

TEST(RKVTimeUtilsTest, FieldsAreReadAsLeadingNumbers) {
  // Empty fields read 0, a trailing colon is ignored, white space leads are skipped.
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("", "", "", std::nullopt), 0.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("01:", "02", "03", ""), 3723.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours(" 1", "0", "0", std::nullopt), 3600.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("1e1", "0", "0", std::nullopt), 36000.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "1.5", "5"), 2.0);
  // The bound is [0, 60) for every field, hours included.
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("60", "0", "0", std::nullopt), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "-1", "0", std::nullopt), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "59.9", std::nullopt), 59.9);
  // The fraction is padded on the right and must be 0 to 999 thousandths.
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "1", "05"), 1.05);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "1", "1234"), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "1", "-5"), -1.0);
  // Characters are counted like the platform's strings, not in bytes: "éé" is two characters.
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalWithHours("0", "0", "1", "\xC3\xA9\xC3\xA9"), 1.0);
}

TEST(RKVTimeUtilsTest, Percentages) {
  const TextCase cases[] = {
      {"25%", 25.0},  {"0%", 0.0},     {"100%", 100.0}, {"007%", 7.0},  {"150%", -1.0},
      {"101%", -1.0}, {"25.5%", -1.0}, {"-5%", -1.0},   {" 5%", -1.0},  {"5 %", -1.0},
      {"%", -1.0},    {"25", -1.0},    {"", -1.0},      {"25%%", -1.0},
  };
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(RKVTimeUtils::percentageFromPercentVASTDuration(c.text), c.expected)
        << '"' << c.text << '"';
  }
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration("25%", 30.0), 7.5);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration("100%", 30.0), 30.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration("25%", 0.0), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration("150%", 30.0), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration("x", 30.0), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentage(33.0, 10.0), 3.3);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentage(-0.5, 10.0), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentage(100.5, 10.0), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentage(50.0, -1.0), -1.0);
  EXPECT_DOUBLE_EQ(
      RKVTimeUtils::timeIntervalFromPercentage(std::numeric_limits<double>::quiet_NaN(), 10.0),
      -1.0);
}

TEST(RKVTimeUtilsTest, OffsetTypes) {
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("25%"), RKVVASTOffsetTypePercentage);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("100%"), RKVVASTOffsetTypePercentage);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("00:00:10"), RKVVASTOffsetTypeTime);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("10"), RKVVASTOffsetTypeTime);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("10s"), RKVVASTOffsetTypeUnknown);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString("150%"), RKVVASTOffsetTypeUnknown);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString(""), RKVVASTOffsetTypeUnknown);
}

TEST(RKVTimeUtilsTest, AbsentTextsAreNeverAccepted) {
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromVASTDuration(std::nullopt), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::percentageFromPercentVASTDuration(std::nullopt), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromPercentVASTDuration(std::nullopt, 30.0), -1.0);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString(std::nullopt), RKVVASTOffsetTypeUnknown);
}

TEST(RKVTimeUtilsTest, HugeTextsAreRefusedOrReadWhole) {
  const std::string digits(100 * 1024, '1');
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromVASTDuration(digits), -1.0);
  EXPECT_DOUBLE_EQ(RKVTimeUtils::percentageFromPercentVASTDuration(digits + "%"), -1.0);
  std::string colons;
  for (int i = 0; i < 50 * 1024; ++i)
    colons += "1:";
  EXPECT_DOUBLE_EQ(RKVTimeUtils::timeIntervalFromVASTDuration(colons + "1"), -1.0);
  EXPECT_EQ(RKVTimeUtils::offsetTypeFromString(colons), RKVVASTOffsetTypeUnknown);
  // A long run of leading zeros is still a small percentage.
  EXPECT_DOUBLE_EQ(
      RKVTimeUtils::percentageFromPercentVASTDuration(std::string(100 * 1024, '0') + "5%"), 5.0);
}

TEST(RKVTimeUtilsTest, ConsumableTimecodesAreDistinctSortedOrAbsent) {
  using Codes = std::vector<std::string>;
  EXPECT_EQ(RKVTimeUtils::consumableTimecodes(Codes{"00:00:10", "5", "00:00:05", "bad"}),
            (std::vector<double>{5.0, 10.0}));
  EXPECT_EQ(RKVTimeUtils::consumableTimecodes(Codes{"00:00:00", "25%", "00:00:00.000"}),
            (std::vector<double>{0.0}));
  EXPECT_EQ(RKVTimeUtils::consumableTimecodes(Codes{"bad"}), std::nullopt);
  EXPECT_EQ(RKVTimeUtils::consumableTimecodes(Codes{}), std::nullopt);
}

TEST(RKVTimeUtilsTest, DurationTexts) {
  const struct {
    int64_t seconds;
    std::optional<std::string> expected;
  } cases[] = {
      {0, "00:00"},
      {59, "00:59"},
      {65, "01:05"},
      {3599, "59:59"},
      {3600, "01:00:00"},
      {359999, "99:59:59"},
      {360000, std::nullopt},
      {-1, std::nullopt},
      {std::numeric_limits<int64_t>::min(), std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(RKVTimeUtils::stringFromDuration(c.seconds), c.expected) << c.seconds;
  }
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(5, 3), "005");
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(123, 3), "123");
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(123, 2), std::nullopt);
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(0, 0), std::nullopt);
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(-1, 5), std::nullopt);
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(1, -1), std::nullopt);
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(std::numeric_limits<int64_t>::max(), 19),
            "9223372036854775807");
  EXPECT_EQ(RKVTimeUtils::stringFromDuration(1, std::numeric_limits<int64_t>::max()), std::nullopt);

  EXPECT_EQ(RKVTimeUtils::secondsToHoursMinutesSeconds(3661), (RKVHoursMinutesSeconds{1, 1, 1}));
  EXPECT_EQ(RKVTimeUtils::secondsToHoursMinutesSeconds(-3661),
            (RKVHoursMinutesSeconds{-1, -1, -1}));
}

class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    setenv("TZ", tz, 1);
  }
  ~ScopedTimeZone() {
    if (saved_) {
      setenv("TZ", saved_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
  }

 private:
  std::optional<std::string> saved_;
};

TEST(RKVTimeUtilsTest, TimeOfDayInACalendar) {
  const auto date = system_clock::time_point(seconds(13 * 3600 + 4 * 60 + 5));
  const auto utc = RKVCalendar::withUTCOffset(seconds(0));
  EXPECT_EQ(RKVTimeUtils::timeFromDate(date, utc), "13:04:05");
  EXPECT_EQ(RKVTimeUtils::timeFromDate(date + std::chrono::milliseconds(999), utc), "13:04:05");
  EXPECT_EQ(RKVTimeUtils::timeFromDate(date, RKVCalendar::withUTCOffset(seconds(11 * 3600))),
            "00:04:05");
  EXPECT_EQ(RKVTimeUtils::timeFromDate(date, RKVCalendar::withUTCOffset(seconds(-14 * 3600))),
            "23:04:05");
  // Before the epoch the second rounds toward the past.
  EXPECT_EQ(
      RKVTimeUtils::timeFromDate(system_clock::time_point(std::chrono::milliseconds(-1)), utc),
      "23:59:59");

  // The current calendar follows the time zone of the moment.
  {
    ScopedTimeZone zone("UTC0");
    EXPECT_EQ(RKVTimeUtils::timeFromDate(date), "13:04:05");
  }
  {
    ScopedTimeZone zone("XYZ-2");  // two hours east of UTC
    EXPECT_EQ(RKVTimeUtils::timeFromDate(date), "15:04:05");
  }
}

}  // namespace
}  // namespace rkv
