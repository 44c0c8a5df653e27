#include "rkv/platform/RKVDeviceInfo.h"

#include <algorithm>
#include <array>
#include <utility>

#include "rkv/platform/RKVDeviceInfoProvider.h"

namespace rkv {

namespace {

std::shared_ptr<const RKVDeviceInfoProviderProtocol> orProductionProvider(
    std::shared_ptr<const RKVDeviceInfoProviderProtocol> provider) {
  if (provider) return provider;
  return std::make_shared<RKVDeviceInfoProvider>();
}

}  // namespace

std::shared_ptr<const RKVDeviceInfo> RKVDeviceInfo::sharedInstance() {
  // Never destroyed, so that threads still logging at exit find it.
  static const auto* const instance =
      new std::shared_ptr<const RKVDeviceInfo>(std::make_shared<RKVDeviceInfo>());
  return *instance;
}

RKVDeviceInfo::RKVDeviceInfo() : RKVDeviceInfo(nullptr) {}

RKVDeviceInfo::RKVDeviceInfo(std::shared_ptr<const RKVDeviceInfoProviderProtocol> infoProvider)
    : infoProvider_(orProductionProvider(std::move(infoProvider))),
      platform_(infoProvider_->currentPlatform()),
      systemVersion_(infoProvider_->currentSystem()),
      hasLowPerformances_(deviceHasLowPerformances(platform_)),
      canPlay360Videos_(infoProvider_->deviceCanPlay360Videos()),
      userAgent_(infoProvider_->webviewUserAgent()),
      advertisingTrackingEnabled_(infoProvider_->advertisingTrackingEnabled()),
      locale_(infoProvider_->locale()) {}

bool RKVDeviceInfo::deviceHasLowPerformances(std::string_view platform) {
  static constexpr std::array<std::string_view, 19> kLowPerformanceModels = {
      "iPod1,1",   "iPod2,1",   "iPod3,1",   "iPod4,1", "iPod5,1",   "iPhone1,1", "iPhone1,2",
      "iPhone2,1", "iPad1,1",   "iPad2,1",   "iPad2,5", "iPhone3,1", "iPhone4,1", "iPhone5,1",
      "iPhone5,2", "iPhone5,3", "iPhone5,4", "i386",    "x86_64"};
  return std::find(kLowPerformanceModels.begin(), kLowPerformanceModels.end(), platform) !=
         kLowPerformanceModels.end();
}

int64_t RKVDeviceInfo::trackingAuthorizationStatus() const {
  return infoProvider_->trackingAuthorizationStatus();
}

std::string RKVDeviceInfo::IPAddress() const {
  return infoProvider_->IPAddress();
}

}  // namespace rkv
