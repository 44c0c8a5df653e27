// RKVAppInfo: the hosting application's name, version and identifier. There is no application
// bundle on the device, so the host states its facts with setMainBundleInfo before the shared
// instance is first used. Immutable; thread-safe.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

// What an application bundle would say about itself; absent entries are missing.
struct RKV_EXPORT RKVMainBundleInfo {
  std::optional<std::string> displayName;         // "CFBundleDisplayName"
  std::optional<std::string> bundleName;          // "CFBundleName"
  std::optional<std::string> shortVersionString;  // "CFBundleShortVersionString"
  std::optional<std::string> bundleIdentifier;    // "CFBundleIdentifier"
};

class RKV_EXPORT RKVAppInfo {
 public:
  // The process-wide instance, made on first use from the facts set until then.
  static std::shared_ptr<const RKVAppInfo> sharedInstance();
  // The facts of the main bundle for the shared instance. Returns false, changing nothing, once
  // the shared instance exists.
  static bool setMainBundleInfo(RKVMainBundleInfo info);

  explicit RKVAppInfo(const RKVMainBundleInfo& info);

  // The display name, else the bundle name, else "(unknown)".
  const std::string& appName() const { return appName_; }
  // The short version, else "(unknown)".
  const std::string& appVersion() const { return appVersion_; }
  // The bundle identifier, else "(unknown)".
  const std::string& appBundleIdentifier() const { return appBundleIdentifier_; }

 private:
  std::string appName_;
  std::string appVersion_;
  std::string appBundleIdentifier_;
};

}  // namespace rkv
