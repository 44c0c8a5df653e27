// RKVIABMacros: the IAB VAST 4.x macros a set-top player can fill, as a macro dictionary for a
// tracking event manager (its macros, or the additional macros of one tracking call). Stateless;
// thread-safe.
//
// Values are written in the IAB's formats and percent-encoded as encodeURIComponent does (the
// manager inserts values unchanged): playheads as HH:MM:SS.mmm (00%3A00%3A11.355), the time
// stamp as ISO 8601 with milliseconds and the zone offset (2016-01-17T08%3A15%3A07.127-05%3A00).
// A VAST macro whose value is unknown is "-1", as the IAB asks for macros a player does not
// fill; a host that knows a value but may not share it sets the fact to "-2" (which encodes to
// itself). [GDPR] and [US_PRIVACY] are not VAST macros but the signals of the IAB's consent
// frameworks; unknown, they are empty (no signal), not "-1", which those frameworks do not
// define. [ERRORCODE] is written only when an error code is given: it belongs to error pixels.
// [DEVICEIP] is always "-1": the device does not know the address its requests come from, and
// the server that receives the pixel sees it.
//
// Values that change with every pixel ([CACHEBUSTING], [TIMESTAMP], the playheads) make the
// dictionary worth rebuilding for each tracking call.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/tracking/RKVTrackingEventManager.h"

namespace rkv {

// Plain facts, as the host knows them; absent means unknown.
struct RKV_EXPORT RKVIABMacroFacts {
  std::optional<std::string> ifa;          // resettable advertising id, e.g. a UUID
  std::optional<std::string> ifaType;      // "rida", "aaid", "tifa", "vida", "ppid", ...
  std::optional<bool> limitAdTracking;     // the user opted for limited ad tracking
  std::optional<bool> gdprApplies;         // GDPR applies to this user
  std::optional<std::string> gdprConsent;  // the TCF consent string
  std::optional<std::string> usPrivacy;    // the US privacy string, e.g. "1YNN"
  std::optional<std::string> appBundle;    // e.g. "com.example.player"
  std::optional<std::string> deviceUserAgent;
  std::optional<double> adPlayhead;       // seconds into the ad
  std::optional<double> contentPlayhead;  // seconds into the content the ad plays in
  std::optional<int64_t> errorCode;       // the VAST error code, for error pixels only
};

class RKV_EXPORT RKVIABMacros {
 public:
  // Macro names (without brackets) to values: CACHEBUSTING, TIMESTAMP, ADPLAYHEAD,
  // CONTENTPLAYHEAD and MEDIAPLAYHEAD (both the content playhead; CONTENTPLAYHEAD is the
  // deprecated name older tags still use), LIMITADTRACKING, IFA, IFATYPE, GDPR, GDPRCONSENT,
  // US_PRIVACY, APPBUNDLE, DEVICEUA, DEVICEIP, and ERRORCODE when given. `date` is the time
  // stamp's moment, written in the zone `utcOffset` east of UTC (whole minutes).
  static RKVTrackingMacros macrosWithFacts(const RKVIABMacroFacts& facts,
                                           std::chrono::system_clock::time_point date,
                                           std::chrono::minutes utcOffset);
  // The same at the clock's date(), in the process's local time zone.
  static RKVTrackingMacros macrosWithFacts(const RKVIABMacroFacts& facts, const RKVClock& clock);

  // Eight random decimal digits, leading zeros kept ("00412345").
  static std::string cacheBusting();
  // The eight digits of a drawn value: its last eight decimal digits, leading zeros kept.
  static std::string cacheBusting(uint32_t drawn);
  // "YYYY-MM-DDTHH:MM:SS.mmm+HH:MM", unencoded; milliseconds truncated.
  static std::string timestamp(std::chrono::system_clock::time_point date,
                               std::chrono::minutes utcOffset);
  // "HH:MM:SS.mmm", unencoded, rounded to the millisecond (hours may take more digits);
  // nullopt for a negative, infinite or NaN time.
  static std::optional<std::string> playhead(double seconds);
  // The local zone's offset from UTC at `date`.
  static std::chrono::minutes localUTCOffset(std::chrono::system_clock::time_point date);
  // encodeURIComponent: every byte but A-Z a-z 0-9 - _ . ! ~ * ' ( ) as %XX (upper-case hex).
  static std::string percentEncode(std::string_view value);
};

}  // namespace rkv
