// RKVFrameworkInfo: this framework's name, bundle identifier, version, revision and build kind,
// fixed when the library was built. Immutable; thread-safe.
#pragma once

#include <memory>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVFrameworkInfo {
 public:
  // The process-wide instance, created on first use.
  static std::shared_ptr<const RKVFrameworkInfo> sharedInstance();

  RKVFrameworkInfo();

  // "RKVCoreKit".
  const std::string& frameworkName() const { return frameworkName_; }
  // "com.vireohub.RKVCoreKitTV".
  const std::string& frameworkBundleIdentifier() const { return frameworkBundleIdentifier_; }
  // The project's version ("1.0.0"); "(no_framework_version)" if the build gave none.
  const std::string& frameworkVersionString() const { return frameworkVersionString_; }
  // The build number, "204".
  const std::string& frameworkRevisionString() const { return frameworkRevisionString_; }
  // True for a debug build of the library (which turns debug console logging on).
  bool frameworkBuiltInDebug() const { return frameworkBuiltInDebug_; }

 private:
  std::string frameworkName_;
  std::string frameworkBundleIdentifier_;
  std::string frameworkVersionString_;
  std::string frameworkRevisionString_;
  bool frameworkBuiltInDebug_;
};

}  // namespace rkv
