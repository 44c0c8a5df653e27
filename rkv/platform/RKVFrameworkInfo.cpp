#include "rkv/platform/RKVFrameworkInfo.h"

#include <string_view>

#include "rkv/RKVBuildInfo.h"

namespace rkv {

namespace {

std::string versionOrPlaceholder(std::string_view version) {
  return version.empty() ? std::string("(no_framework_version)") : std::string(version);
}

}  // namespace

std::shared_ptr<const RKVFrameworkInfo> RKVFrameworkInfo::sharedInstance() {
  static const auto* const instance =
      new std::shared_ptr<const RKVFrameworkInfo>(std::make_shared<RKVFrameworkInfo>());
  return *instance;
}

RKVFrameworkInfo::RKVFrameworkInfo()
    : frameworkName_(build::kName),
      frameworkBundleIdentifier_(build::kBundleIdentifier),
      frameworkVersionString_(versionOrPlaceholder(build::kVersion)),
      frameworkRevisionString_(build::kRevision),
      frameworkBuiltInDebug_(build::kBuiltInDebug) {}

}  // namespace rkv
