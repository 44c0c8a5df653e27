// RKVTimeUtils: VAST clock texts and percentages to seconds, and seconds and dates to clock
// texts. Stateless; thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVCalendar.h"

namespace rkv {

// What kind of offset a VAST text is.
enum RKVVASTOffsetType : int64_t {
  RKVVASTOffsetTypeTime = 0,        // a clock text accepted by timeIntervalFromVASTDuration
  RKVVASTOffsetTypePercentage = 1,  // a percentage accepted by percentageFromPercentVASTDuration
  RKVVASTOffsetTypeUnknown = 2,     // neither
};

// A number of seconds split into hours, minutes and seconds.
struct RKV_EXPORT RKVHoursMinutesSeconds {
  int64_t hours = 0;
  int64_t minutes = 0;
  int64_t seconds = 0;

  friend bool operator==(const RKVHoursMinutesSeconds&, const RKVHoursMinutesSeconds&) = default;
};

class RKV_EXPORT RKVTimeUtils {
 public:
  // Parsers answer -1.0 for a text they do not accept; an absent text is never accepted.

  // Seconds of a clock text S, M:S or H:M:S (one or two digits per field, each field below 60,
  // the hours too), with an optional fraction of 1 to 3 digits: "00:01:30.250" is 90.25.
  static double timeIntervalFromVASTDuration(std::optional<std::string_view> string);
  // Seconds of the fields read as leading numbers ("" reads 0, "01:" reads 1). Hours, minutes
  // and seconds must be in [0, 60). The fraction, when present, is padded on the right to three
  // digits and counts in thousandths; more than three characters give -1.0.
  static double timeIntervalWithHours(std::string_view hours, std::string_view minutes,
                                      std::string_view seconds,
                                      std::optional<std::string_view> milliseconds);
  // The percentage of a text of ASCII digits followed by '%', from 0 to 100.
  static double percentageFromPercentVASTDuration(std::optional<std::string_view> string);
  // totalTime * percentage / 100; -1.0 for a percentage outside [0, 100] or a total <= 0.
  static double timeIntervalFromPercentage(double percentage, double withTotalTime);
  // timeIntervalFromPercentage of percentageFromPercentVASTDuration(string).
  static double timeIntervalFromPercentVASTDuration(std::optional<std::string_view> string,
                                                    double withTotalTime);
  // Percentage first, then clock time, else unknown.
  static RKVVASTOffsetType offsetTypeFromString(std::optional<std::string_view> string);

  // The distinct non-negative clock times of the texts, ascending; absent (never an empty list)
  // when no text is a clock time.
  static std::optional<std::vector<double>> consumableTimecodes(
      const std::vector<std::string>& timecodes);

  // Hours, minutes and seconds of a number of seconds, each truncated toward zero.
  static RKVHoursMinutesSeconds secondsToHoursMinutesSeconds(int64_t seconds);
  // "MM:SS" below an hour, "HH:MM:SS" from an hour; absent for a negative duration or from
  // 100 hours on.
  static std::optional<std::string> stringFromDuration(int64_t duration);
  // The decimal text of `duration` left-padded with '0' to `withNumberOfDigits` characters;
  // absent when the duration is negative, its text is longer than the width, or the width is
  // above 2^20.
  static std::optional<std::string> stringFromDuration(int64_t duration,
                                                       int64_t withNumberOfDigits);
  // "HH:MM:SS" of the time of day of `date` in `calendar`; absent when it cannot be computed.
  static std::optional<std::string> timeFromDate(std::chrono::system_clock::time_point date,
                                                 const RKVCalendar& calendar);
  // timeFromDate in the user's current calendar (the local time zone).
  static std::optional<std::string> timeFromDate(std::chrono::system_clock::time_point date);
};

}  // namespace rkv
