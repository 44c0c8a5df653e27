// RKVDeviceInfoProvider: the production device facts on Linux. The hardware model is uname's
// machine, the system version os-release's VERSION_ID, the address that of the interface of the
// default route; the tracking facts are what the host sets. Thread-safe.
#pragma once

#include <cstdint>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/platform/RKVDeviceInfoProviderProtocol.h"

namespace rkv {

class RKV_EXPORT RKVDeviceInfoProvider : public RKVDeviceInfoProviderProtocol {
 public:
  // uname(2)'s machine ("x86_64", "aarch64"); "" if uname fails.
  std::string currentPlatform() const override;
  // VERSION_ID of /etc/os-release (else /usr/lib/os-release), else uname's kernel release.
  std::string currentSystem() const override;
  // True when currentSystem(), compared numerically with "7.0", is not lower ("10.2" can).
  bool deviceCanPlay360Videos() const override;
  // userAgent().
  std::string webviewUserAgent() const override;
  // With a tracking status: true only when authorised (3). Where the host reports no status
  // (-1): the host's advertising-tracking flag.
  bool advertisingTrackingEnabled() const override;
  // The IPv4 address of the default route's interface; "(no_ip_address)" when there is none.
  std::string IPAddress() const override;
  // The first preferred language of the environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG) as a
  // language tag, "en" when none names a language.
  std::string locale() const override;
  // The status the host set (0 until it sets one); values outside -1 to 3 read 0.
  int64_t trackingAuthorizationStatus() const override;

  // The process-wide user agent, "Apple TV".
  static std::string userAgent();
  // "Mozilla/5.0 (<model>; U; CPU OS <version, "_" for "."> like Mac OS X; en-us)" from the
  // device's model name (the device tree's or DMI's, else the kernel name) without any
  // " Simulator", and currentSystem(). Kept for host SDKs; userAgent() does not use it.
  static std::string generateUserAgent();

  // Host facts, process-wide, readable at once by every provider. The status: -1 when the
  // device has no tracking authorisation, else 0 not determined (the default), 1 restricted,
  // 2 denied, 3 authorised.
  static void setTrackingAuthorizationStatus(int64_t status);
  // The advertising-tracking flag of devices without a tracking status (default false).
  static void setAdvertisingTrackingEnabled(bool enabled);
};

}  // namespace rkv
