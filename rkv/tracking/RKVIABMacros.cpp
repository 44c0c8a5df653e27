#include "rkv/tracking/RKVIABMacros.h"

#include <cmath>
#include <ctime>

#include <fmt/format.h>

#include "rkv/foundation/RKVRandom.h"

namespace rkv {

namespace {

constexpr const char* kUnknown = "-1";

std::string encodedOrUnknown(const std::optional<std::string>& value) {
  return value ? RKVIABMacros::percentEncode(*value) : kUnknown;
}

std::string flag(const std::optional<bool>& value, const char* unknown) {
  if (!value) return unknown;
  return *value ? "1" : "0";
}

std::string playheadOrUnknown(const std::optional<double>& seconds) {
  auto text = seconds ? RKVIABMacros::playhead(*seconds) : std::nullopt;
  return text ? RKVIABMacros::percentEncode(*text) : kUnknown;
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian), without the C library's zones.
void civilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned mp = (5 * dayOfYear + 2) / 153;
  day = dayOfYear - (153 * mp + 2) / 5 + 1;
  month = mp < 10 ? mp + 3 : mp - 9;
  year = static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0);
}

}  // namespace

RKVTrackingMacros RKVIABMacros::macrosWithFacts(const RKVIABMacroFacts& facts,
                                                std::chrono::system_clock::time_point date,
                                                std::chrono::minutes utcOffset) {
  RKVTrackingMacros macros;
  macros["CACHEBUSTING"] = cacheBusting();
  macros["TIMESTAMP"] = percentEncode(timestamp(date, utcOffset));
  macros["ADPLAYHEAD"] = playheadOrUnknown(facts.adPlayhead);
  macros["CONTENTPLAYHEAD"] = playheadOrUnknown(facts.contentPlayhead);
  macros["MEDIAPLAYHEAD"] = playheadOrUnknown(facts.contentPlayhead);
  if (facts.errorCode) macros["ERRORCODE"] = std::to_string(*facts.errorCode);
  macros["LIMITADTRACKING"] = flag(facts.limitAdTracking, kUnknown);
  macros["IFA"] = encodedOrUnknown(facts.ifa);
  macros["IFATYPE"] = encodedOrUnknown(facts.ifaType);
  macros["GDPR"] = flag(facts.gdprApplies, "");
  macros["GDPRCONSENT"] = encodedOrUnknown(facts.gdprConsent);
  macros["US_PRIVACY"] = facts.usPrivacy ? percentEncode(*facts.usPrivacy) : "";
  macros["APPBUNDLE"] = encodedOrUnknown(facts.appBundle);
  macros["DEVICEUA"] = encodedOrUnknown(facts.deviceUserAgent);
  macros["DEVICEIP"] = kUnknown;
  return macros;
}

RKVTrackingMacros RKVIABMacros::macrosWithFacts(const RKVIABMacroFacts& facts,
                                                const RKVClock& clock) {
  auto date = clock.date();
  return macrosWithFacts(facts, date, localUTCOffset(date));
}

std::string RKVIABMacros::cacheBusting() {
  return cacheBusting(RKVRandom::randomUnsignedIntWithMin(0, 100000000));
}

std::string RKVIABMacros::cacheBusting(uint32_t drawn) {
  return fmt::format("{:08}", drawn % 100000000);
}

std::string RKVIABMacros::timestamp(std::chrono::system_clock::time_point date,
                                    std::chrono::minutes utcOffset) {
  using namespace std::chrono;
  const auto local = floor<milliseconds>(date) + utcOffset;
  const auto days = floor<std::chrono::days>(local);
  const auto inDay = local - days;
  int64_t year = 0;
  unsigned month = 0, day = 0;
  civilFromDays(days.time_since_epoch().count(), year, month, day);
  const int64_t ms = inDay.count();
  const int64_t offset = utcOffset.count();
  const int64_t absOffset = offset < 0 ? -offset : offset;
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}{}{:02}:{:02}", year, month, day,
                     ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000,
                     offset < 0 ? '-' : '+', absOffset / 60, absOffset % 60);
}

std::optional<std::string> RKVIABMacros::playhead(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0 || seconds > 1e12) return std::nullopt;
  const auto ms = static_cast<int64_t>(std::llround(seconds * 1000.0));
  return fmt::format("{:02}:{:02}:{:02}.{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                     ms % 1000);
}

std::chrono::minutes RKVIABMacros::localUTCOffset(std::chrono::system_clock::time_point date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) return std::chrono::minutes(0);
  return std::chrono::minutes(local.tm_gmtoff / 60);
}

std::string RKVIABMacros::percentEncode(std::string_view value) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(value.size());
  for (char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unreserved = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                            (byte >= '0' && byte <= '9') || c == '-' || c == '_' || c == '.' ||
                            c == '!' || c == '~' || c == '*' || c == '\'' || c == '(' || c == ')';
    if (unreserved) {
      encoded.push_back(c);
    } else {
      encoded.push_back('%');
      encoded.push_back(kHex[byte >> 4]);
      encoded.push_back(kHex[byte & 0x0F]);
    }
  }
  return encoded;
}

}  // namespace rkv
