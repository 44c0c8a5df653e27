#include "rkv/platform/RKVDeviceInfoProvider.h"

#include <atomic>
#include <cstdlib>
#include <optional>

#include <fmt/format.h>
#include <sys/utsname.h>

#include "rkv/foundation/internal/RKVText.h"
#include "rkv/platform/internal/RKVLinuxDeviceFacts.h"

namespace rkv {

namespace {

constexpr const char* kNoIPAddress = "(no_ip_address)";
constexpr const char* kDefaultLanguage = "en";
constexpr const char* kUserAgent = "Apple TV";

std::atomic<int64_t> trackingStatus{0};
std::atomic<bool> legacyTrackingEnabled{false};

std::optional<utsname> systemName() {
  utsname name{};
  if (uname(&name) != 0) return std::nullopt;
  return name;
}

// Device-tree strings end in NUL, sysfs ones in a newline.
constexpr std::string_view kModelPadding{"\0 \t\n\v\f\r", 7};

std::string modelName() {
  for (const char* path : {"/proc/device-tree/model", "/sys/class/dmi/id/product_name"}) {
    if (auto model = internal::readSystemFile(path)) {
      const std::string_view text = internal::trimmed(*model, kModelPadding);
      if (!text.empty()) return std::string(text);
    }
  }
  const auto name = systemName();
  return name ? std::string(name->sysname) : std::string();
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  size_t at = 0;
  while ((at = text.find(from, at)) != std::string::npos) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

}  // namespace

std::string RKVDeviceInfoProvider::currentPlatform() const {
  const auto name = systemName();
  return name ? std::string(name->machine) : std::string();
}

std::string RKVDeviceInfoProvider::currentSystem() const {
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    if (auto text = internal::readSystemFile(path)) {
      if (auto version = internal::osReleaseVersionID(*text)) return *version;
    }
  }
  const auto name = systemName();
  return name ? std::string(name->release) : std::string();
}

bool RKVDeviceInfoProvider::deviceCanPlay360Videos() const {
  return internal::compareNumerically(currentSystem(), "7.0") >= 0;
}

std::string RKVDeviceInfoProvider::webviewUserAgent() const {
  return userAgent();
}

bool RKVDeviceInfoProvider::advertisingTrackingEnabled() const {
  const int64_t status = trackingAuthorizationStatus();
  if (status == -1) return legacyTrackingEnabled.load();
  return status == 3;
}

std::string RKVDeviceInfoProvider::IPAddress() const {
  const auto routes = internal::readSystemFile("/proc/net/route");
  if (!routes) return kNoIPAddress;
  const auto interface = internal::defaultRouteInterface(*routes);
  if (!interface) return kNoIPAddress;
  return internal::IPv4AddressOfInterface(*interface).value_or(kNoIPAddress);
}

std::string RKVDeviceInfoProvider::locale() const {
  return internal::preferredLanguage([](const char* name) { return std::getenv(name); })
      .value_or(kDefaultLanguage);
}

int64_t RKVDeviceInfoProvider::trackingAuthorizationStatus() const {
  const int64_t status = trackingStatus.load();
  return status >= -1 && status <= 3 ? status : 0;
}

std::string RKVDeviceInfoProvider::userAgent() {
  return kUserAgent;
}

std::string RKVDeviceInfoProvider::generateUserAgent() {
  const std::string model = replaceAll(modelName(), " Simulator", "");
  const std::string version = replaceAll(RKVDeviceInfoProvider().currentSystem(), ".", "_");
  return fmt::format("Mozilla/5.0 ({}; U; CPU OS {} like Mac OS X; en-us)", model, version);
}

void RKVDeviceInfoProvider::setTrackingAuthorizationStatus(int64_t status) {
  trackingStatus.store(status);
}

void RKVDeviceInfoProvider::setAdvertisingTrackingEnabled(bool enabled) {
  legacyTrackingEnabled.store(enabled);
}

}  // namespace rkv
