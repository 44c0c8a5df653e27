// RKVDeviceInfoProviderProtocol: where RKVDeviceInfo gets the device's facts, so that the logic
// runs with test doubles. Implementations must be safe to call from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVDeviceInfoProviderProtocol {
 public:
  virtual ~RKVDeviceInfoProviderProtocol() = default;

  // The hardware model identifier.
  virtual std::string currentPlatform() const = 0;
  // The operating system's version text.
  virtual std::string currentSystem() const = 0;
  // Whether the device is able to play 360-degree videos.
  virtual bool deviceCanPlay360Videos() const = 0;
  // The user agent of the device's web views.
  virtual std::string webviewUserAgent() const = 0;
  // Whether the user lets apps track them for advertising.
  virtual bool advertisingTrackingEnabled() const = 0;
  // The device's IPv4 address as text, or "(no_ip_address)".
  virtual std::string IPAddress() const = 0;
  // The user's first preferred language as a language tag ("fr-FR").
  virtual std::string locale() const = 0;
  // -1 where the system has no tracking authorisation; otherwise 0 not determined, 1 restricted,
  // 2 denied, 3 authorised.
  virtual int64_t trackingAuthorizationStatus() const = 0;
};

}  // namespace rkv
