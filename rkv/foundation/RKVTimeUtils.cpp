#include "rkv/foundation/RKVTimeUtils.h"

#include <algorithm>

#include <fmt/format.h>
#include <re2/re2.h>

#include "rkv/foundation/internal/RKVLeadingNumber.h"

namespace rkv {

namespace {

// Both patterns are compiled once, on first use; RE2 matches in time linear in the text, so
// hostile texts cost no more than their length.
const re2::RE2& durationPattern() {
  static const re2::RE2 pattern(R"(^(((\d{1,2}):)?(\d{1,2}):)?(\d{1,2})(\.(\d{1,3}))?$)");
  return pattern;
}

const re2::RE2& percentPattern() {
  static const re2::RE2 pattern(R"(^((\d)+)%$)");
  return pattern;
}

std::string_view view(const re2::StringPiece& piece) {
  return std::string_view(piece.data(), piece.size());
}

// Length in UTF-16 code units of a UTF-8 text, as the platform's strings count characters.
// Widths beyond this are refused rather than allocated.
constexpr int64_t kMaxWidth = 1 << 20;

size_t utf16Length(std::string_view text) {
  size_t length = 0;
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) == 0x80) continue;  // continuation byte
    length += byte >= 0xF0 ? 2 : 1;
  }
  return length;
}

}  // namespace

double RKVTimeUtils::timeIntervalFromVASTDuration(std::optional<std::string_view> string) {
  if (!string) return -1.0;
  const re2::RE2& pattern = durationPattern();
  // Groups 2 (hours with their colon), 4 (minutes), 5 (seconds) and 7 (fraction); a group that
  // took no part reads as "".
  re2::StringPiece groups[7];
  const re2::RE2::Arg args[7] = {&groups[0], &groups[1], &groups[2], &groups[3],
                                 &groups[4], &groups[5], &groups[6]};
  const re2::RE2::Arg* argv[7] = {&args[0], &args[1], &args[2], &args[3],
                                  &args[4], &args[5], &args[6]};
  if (!re2::RE2::FullMatchN(re2::StringPiece(string->data(), string->size()), pattern, argv, 7)) {
    return -1.0;
  }
  return timeIntervalWithHours(view(groups[1]), view(groups[3]), view(groups[4]), view(groups[6]));
}

double RKVTimeUtils::timeIntervalWithHours(std::string_view hours, std::string_view minutes,
                                           std::string_view seconds,
                                           std::optional<std::string_view> milliseconds) {
  const double h = internal::leadingDouble(hours);
  const double m = internal::leadingDouble(minutes);
  const double s = internal::leadingDouble(seconds);
  // The hours are held to the same bound as minutes and seconds: 60:00:00 is refused.
  for (double field : {h, m, s}) {
    if (!(field >= 0.0 && field < 60.0)) return -1.0;
  }
  const double base = h * 3600.0 + m * 60.0 + s;
  if (!milliseconds) return base;
  const size_t length = utf16Length(*milliseconds);
  if (length > 3) return -1.0;
  // "5" is 500 thousandths and "05" is 50: the fraction is padded on the right.
  std::string padded(*milliseconds);
  padded.append(3 - length, '0');
  const double d = internal::leadingDouble(padded);
  if (!(d >= 0.0 && d < 1000.0)) return -1.0;
  return base + d / 1000.0;
}

double RKVTimeUtils::percentageFromPercentVASTDuration(std::optional<std::string_view> string) {
  if (!string) return -1.0;
  re2::StringPiece digits;
  if (!re2::RE2::FullMatch(re2::StringPiece(string->data(), string->size()), percentPattern(),
                           &digits)) {
    return -1.0;
  }
  const double percentage = internal::leadingDouble(view(digits));
  return percentage >= 0.0 && percentage <= 100.0 ? percentage : -1.0;
}

double RKVTimeUtils::timeIntervalFromPercentage(double percentage, double withTotalTime) {
  if (!(percentage >= 0.0 && percentage <= 100.0) || !(withTotalTime > 0.0)) return -1.0;
  return withTotalTime * percentage / 100.0;
}

double RKVTimeUtils::timeIntervalFromPercentVASTDuration(std::optional<std::string_view> string,
                                                         double withTotalTime) {
  return timeIntervalFromPercentage(percentageFromPercentVASTDuration(string), withTotalTime);
}

RKVVASTOffsetType RKVTimeUtils::offsetTypeFromString(std::optional<std::string_view> string) {
  if (percentageFromPercentVASTDuration(string) != -1.0) return RKVVASTOffsetTypePercentage;
  if (timeIntervalFromVASTDuration(string) != -1.0) return RKVVASTOffsetTypeTime;
  return RKVVASTOffsetTypeUnknown;
}

std::optional<std::vector<double>> RKVTimeUtils::consumableTimecodes(
    const std::vector<std::string>& timecodes) {
  std::vector<double> values;
  for (const std::string& text : timecodes) {
    const double value = timeIntervalFromVASTDuration(text);
    if (value >= 0.0 && std::find(values.begin(), values.end(), value) == values.end()) {
      values.push_back(value);
    }
  }
  if (values.empty()) return std::nullopt;
  std::sort(values.begin(), values.end());
  return values;
}

RKVHoursMinutesSeconds RKVTimeUtils::secondsToHoursMinutesSeconds(int64_t seconds) {
  return RKVHoursMinutesSeconds{seconds / 3600, (seconds % 3600) / 60, (seconds % 3600) % 60};
}

std::optional<std::string> RKVTimeUtils::stringFromDuration(int64_t duration) {
  if (duration < 0) return std::nullopt;
  const RKVHoursMinutesSeconds parts = secondsToHoursMinutesSeconds(duration);
  const auto minutes = stringFromDuration(parts.minutes, 2);
  const auto seconds = stringFromDuration(parts.seconds, 2);
  if (!minutes || !seconds) return std::nullopt;
  if (duration < 3600) return fmt::format("{}:{}", *minutes, *seconds);
  const auto hours = stringFromDuration(parts.hours, 2);
  if (!hours) return std::nullopt;
  return fmt::format("{}:{}:{}", *hours, *minutes, *seconds);
}

std::optional<std::string> RKVTimeUtils::stringFromDuration(int64_t duration,
                                                            int64_t withNumberOfDigits) {
  if (duration < 0 || withNumberOfDigits > kMaxWidth) return std::nullopt;
  std::string text = fmt::format("{}", duration);
  const auto length = static_cast<int64_t>(text.size());
  if (length > withNumberOfDigits) return std::nullopt;
  text.insert(0, static_cast<size_t>(withNumberOfDigits - length), '0');
  return text;
}

std::optional<std::string> RKVTimeUtils::timeFromDate(std::chrono::system_clock::time_point date,
                                                      const RKVCalendar& calendar) {
  const auto parts = calendar.timeOfDay(date);
  if (!parts) return std::nullopt;
  const auto hour = stringFromDuration(parts->hour, 2);
  const auto minute = stringFromDuration(parts->minute, 2);
  const auto second = stringFromDuration(parts->second, 2);
  if (!hour || !minute || !second) return std::nullopt;
  return fmt::format("{}:{}:{}", *hour, *minute, *second);
}

std::optional<std::string> RKVTimeUtils::timeFromDate(std::chrono::system_clock::time_point date) {
  return timeFromDate(date, RKVCalendar::currentCalendar());
}

}  // namespace rkv
