// RKVDeviceInfo: the device facts read once from a provider (model, system version, performance
// class, 360-degree support, user agent, tracking flag, locale); the tracking status and the IP
// address are asked of the provider at each call. Immutable after construction; thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/platform/RKVDeviceInfoProviderProtocol.h"

namespace rkv {

class RKV_EXPORT RKVDeviceInfo {
 public:
  // The process-wide instance over a RKVDeviceInfoProvider, created on first use.
  static std::shared_ptr<const RKVDeviceInfo> sharedInstance();

  // Over a new RKVDeviceInfoProvider.
  RKVDeviceInfo();
  // Reads the stored facts from `infoProvider` now and keeps it for the forwarded ones. A null
  // provider is replaced by a RKVDeviceInfoProvider.
  explicit RKVDeviceInfo(std::shared_ptr<const RKVDeviceInfoProviderProtocol> infoProvider);

  // True for the models known to perform poorly (old handheld devices and the simulator's
  // "i386" and "x86_64"), matched exactly.
  static bool deviceHasLowPerformances(std::string_view platform);

  const std::shared_ptr<const RKVDeviceInfoProviderProtocol>& infoProvider() const {
    return infoProvider_;
  }
  const std::string& platform() const { return platform_; }
  const std::string& systemVersion() const { return systemVersion_; }
  bool hasLowPerformances() const { return hasLowPerformances_; }
  bool canPlay360Videos() const { return canPlay360Videos_; }
  // The user agent read at construction.
  const std::string& userAgent() const { return userAgent_; }
  bool advertisingTrackingEnabled() const { return advertisingTrackingEnabled_; }
  const std::string& locale() const { return locale_; }

  // Asked of the provider at each call.
  int64_t trackingAuthorizationStatus() const;
  std::string IPAddress() const;

 private:
  std::shared_ptr<const RKVDeviceInfoProviderProtocol> infoProvider_;
  std::string platform_;
  std::string systemVersion_;
  bool hasLowPerformances_;
  bool canPlay360Videos_;
  std::string userAgent_;
  bool advertisingTrackingEnabled_;
  std::string locale_;
};

}  // namespace rkv
