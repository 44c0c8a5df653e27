#include "rkv/platform/RKVAppInfo.h"

#include <mutex>
#include <utility>

namespace rkv {

namespace {

constexpr const char* kUnknown = "(unknown)";

struct SharedState {
  std::mutex mutex;
  RKVMainBundleInfo info;                    // guarded by mutex
  std::shared_ptr<const RKVAppInfo> shared;  // guarded by mutex; set once
};

SharedState& sharedState() {
  static SharedState* const state = new SharedState();
  return *state;
}

}  // namespace

std::shared_ptr<const RKVAppInfo> RKVAppInfo::sharedInstance() {
  SharedState& state = sharedState();
  std::lock_guard lock(state.mutex);
  if (!state.shared) state.shared = std::make_shared<const RKVAppInfo>(state.info);
  return state.shared;
}

bool RKVAppInfo::setMainBundleInfo(RKVMainBundleInfo info) {
  SharedState& state = sharedState();
  std::lock_guard lock(state.mutex);
  if (state.shared) return false;
  state.info = std::move(info);
  return true;
}

RKVAppInfo::RKVAppInfo(const RKVMainBundleInfo& info)
    : appName_(info.displayName.value_or(info.bundleName.value_or(kUnknown))),
      appVersion_(info.shortVersionString.value_or(kUnknown)),
      appBundleIdentifier_(info.bundleIdentifier.value_or(kUnknown)) {}

}  // namespace rkv
