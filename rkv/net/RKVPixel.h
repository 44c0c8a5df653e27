// RKVPixel: one URL the library must call once with a GET (a tracking or error beacon), kept
// until the call succeeds or the pixel expires. A value: copies are independent; not
// synchronized.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

// The stored integer is kept as it is: statusFromInt and intFromStatus do not clamp.
enum class RKVPixelStatus : int64_t { pending = 0, success = 1 };

class RKV_EXPORT RKVPixel {
 public:
  using Date = std::chrono::system_clock::time_point;

  // Seconds from creation to expiry for pixels made without a date: one day.
  static constexpr double DEFAULT_EXPIRATION_INTERVAL = 86400.0;

  RKVPixel(uint32_t ID, RKVURL url, Date expirationDate, RKVPixelStatus status);
  // A random ID (RKVRandom::randomUnsignedInt), pending.
  RKVPixel(RKVURL url, Date expirationDate);
  // A random ID, pending, expiring DEFAULT_EXPIRATION_INTERVAL seconds after the system clock's
  // now.
  explicit RKVPixel(RKVURL url);

  static RKVPixelStatus statusFromInt(int64_t value) { return static_cast<RKVPixelStatus>(value); }
  static int64_t intFromStatus(RKVPixelStatus status) { return static_cast<int64_t>(status); }

  uint32_t ID() const { return ID_; }
  void setID(uint32_t ID) { ID_ = ID; }
  const RKVURL& url() const { return url_; }
  void setUrl(RKVURL url) { url_ = std::move(url); }
  Date expirationDate() const { return expirationDate_; }
  void setExpirationDate(Date date) { expirationDate_ = date; }
  RKVPixelStatus status() const { return status_; }
  void setStatus(RKVPixelStatus status) { status_ = status; }

  // True when the system clock's now, in whole seconds since 1970, is past the expiration
  // date's: a pixel expiring within the current second is not yet expired.
  bool isExpired() const;
  // The same against `now`.
  bool isExpiredAt(Date now) const;

  // Same ID, URL and expiration date; the status is not compared.
  bool isEqualToPixel(const RKVPixel& other) const;
  friend bool operator==(const RKVPixel& a, const RKVPixel& b) { return a.isEqualToPixel(b); }

  // "RKVPixel(url=<url>, expiration=<date>, status=pending|success)".
  std::string description() const;

  // The archive: a JSON object with the keys "id" (number), "url" (text), "expirationDate"
  // (number: nanoseconds since 1970, so that dates come back exactly) and "status" (number).
  std::string archive() const;
  // std::nullopt when the text is not such an object or its URL does not parse.
  static std::optional<RKVPixel> unarchive(std::string_view json);

 private:
  uint32_t ID_;
  RKVURL url_;
  Date expirationDate_;
  RKVPixelStatus status_;
};

}  // namespace rkv
