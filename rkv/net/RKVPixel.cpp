#include "rkv/net/RKVPixel.h"

#include <ctime>

#include <fmt/format.h>

#include "rkv/foundation/RKVRandom.h"
#include "rkv/net/internal/RKVPixelArchive.h"

namespace rkv {

namespace {

// "2026-11-25 23:30:00 +0000", the date in UTC to the second.
std::string dateDescription(RKVPixel::Date date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  if (!gmtime_r(&time, &parts)) return fmt::format("{} s since 1970", seconds);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", parts.tm_year + 1900,
                     parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace

RKVPixel::RKVPixel(uint32_t ID, RKVURL url, Date expirationDate, RKVPixelStatus status)
    : ID_(ID), url_(std::move(url)), expirationDate_(expirationDate), status_(status) {}

RKVPixel::RKVPixel(RKVURL url, Date expirationDate)
    : RKVPixel(RKVRandom::randomUnsignedInt(), std::move(url), expirationDate,
               RKVPixelStatus::pending) {}

RKVPixel::RKVPixel(RKVURL url)
    : RKVPixel(std::move(url),
               std::chrono::system_clock::now() +
                   std::chrono::duration_cast<Date::duration>(
                       std::chrono::duration<double>(DEFAULT_EXPIRATION_INTERVAL))) {}

bool RKVPixel::isExpired() const {
  return isExpiredAt(std::chrono::system_clock::now());
}

bool RKVPixel::isExpiredAt(Date now) const {
  // Whole seconds on both sides: a pixel expiring within the current second is still valid.
  using std::chrono::floor;
  using std::chrono::seconds;
  return floor<seconds>(now.time_since_epoch()) >
         floor<seconds>(expirationDate_.time_since_epoch());
}

bool RKVPixel::isEqualToPixel(const RKVPixel& other) const {
  return ID_ == other.ID_ && url_ == other.url_ && expirationDate_ == other.expirationDate_;
}

std::string RKVPixel::description() const {
  std::string status;
  switch (status_) {
    case RKVPixelStatus::pending:
      status = "pending";
      break;
    case RKVPixelStatus::success:
      status = "success";
      break;
    default:
      status = std::to_string(intFromStatus(status_));  // a value this library never writes
  }
  return fmt::format("RKVPixel(url={}, expiration={}, status={})", url_.absoluteString(),
                     dateDescription(expirationDate_), status);
}

std::string RKVPixel::archive() const {
  std::string out;
  internal::appendPixelArchive(out, *this);
  return out;
}

std::optional<RKVPixel> RKVPixel::unarchive(std::string_view json) {
  return internal::decodePixel(json);
}

}  // namespace rkv
