#include "rkv/platform/RKVAppInfo.h"

#include <utility>

#include "rkv/foundation/RKVMutex.h"

namespace rkv {

namespace {

constexpr const char* kUnknown = "(unknown)";

struct SharedState {
  RKVMutex mutex;
  RKVMainBundleInfo info RKV_GUARDED_BY(mutex);
  std::shared_ptr<const RKVAppInfo> shared RKV_GUARDED_BY(mutex);  // set once
};

SharedState& sharedState() {
  static SharedState* const state = new SharedState();
  return *state;
}

}  // namespace

std::shared_ptr<const RKVAppInfo> RKVAppInfo::sharedInstance() {
  SharedState& state = sharedState();
  RKVMutexLock lock(state.mutex);
  if (!state.shared) state.shared = std::make_shared<const RKVAppInfo>(state.info);
  return state.shared;
}

bool RKVAppInfo::setMainBundleInfo(RKVMainBundleInfo info) {
  SharedState& state = sharedState();
  RKVMutexLock lock(state.mutex);
  if (state.shared) return false;
  state.info = std::move(info);
  return true;
}

RKVAppInfo::RKVAppInfo(const RKVMainBundleInfo& info)
    : appName_(info.displayName.value_or(info.bundleName.value_or(kUnknown))),
      appVersion_(info.shortVersionString.value_or(kUnknown)),
      appBundleIdentifier_(info.bundleIdentifier.value_or(kUnknown)) {}

}  // namespace rkv
