// RKVVASTManagerConfig: how a VAST manager resolves its ads (fetch time-out, wrapper limit, pods,
// strict first-level impression validation, and an optional deadline for one request for an ad).
// A plain value; copy it freely between threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVVASTManagerConfig {
 public:
  static constexpr double DEFAULT_REQUEST_TIMEOUT = 5.0;  // seconds
  static constexpr int64_t DEFAULT_MAXIMUM_WRAPPERS = 5;

  // The defaults: 5 s, 5 wrappers, pods off, strict validation off.
  RKVVASTManagerConfig() = default;
  RKVVASTManagerConfig(double requestTimeout, int64_t maximumWrappers, bool handleWrappersAdpods,
                       bool strictWrapperFirstLevelImpressionValidation);

  // Seconds each wrapper fetch may take, whole exchange included.
  double requestTimeout() const { return requestTimeout_; }
  void setRequestTimeout(double requestTimeout) { requestTimeout_ = requestTimeout; }
  // Wrapper levels followed on the main path (a main wrapper at this depth or deeper is not
  // fetched); the passback path follows one more.
  int64_t maximumWrappers() const { return maximumWrappers_; }
  void setMaximumWrappers(int64_t maximumWrappers) { maximumWrappers_ = maximumWrappers; }
  // A main wrapper that resolves to several ads contributes all of them (sorted as a pod) instead
  // of only the first.
  bool handleWrappersAdpods() const { return handleWrappersAdpods_; }
  void setHandleWrappersAdpods(bool handle) { handleWrappersAdpods_ = handle; }
  // A first-level wrapper without Impression is refused before it is fetched.
  bool strictWrapperFirstLevelImpressionValidation() const {
    return strictWrapperFirstLevelImpressionValidation_;
  }
  void setStrictWrapperFirstLevelImpressionValidation(bool strict) {
    strictWrapperFirstLevelImpressionValidation_ = strict;
  }

  // Seconds one nextAdWithTimeout may wait, counted from its start, for passback wrappers to
  // resolve. Off by default: the wait then has no limit of its own and ends when the fetches do
  // (each bounded by requestTimeout, but many wrappers take turns on the executor's threads).
  // When it passes, the caller is answered as if it had been woken with an empty result slot
  // (10006 while the wrappers still resolve); the tasks go on, and the ads they resolve later
  // serve later requests. It does not cut short a fetch on the main path (each bounded by
  // requestTimeout), but the time those take counts against it. Zero or less (or not a number):
  // the wait ends at once. Not part of description().
  const std::optional<double>& adRequestDeadline() const { return adRequestDeadline_; }
  void setAdRequestDeadline(std::optional<double> seconds) { adRequestDeadline_ = seconds; }

  // "RKVVASTManagerConfig(requestTimeout: 5.000000, maximumWrappers: 5, handleWrappersAdpods: NO,
  // strictWrapperFirstLevelImpressionValidation: NO)".
  std::string description() const;

 private:
  double requestTimeout_ = DEFAULT_REQUEST_TIMEOUT;
  int64_t maximumWrappers_ = DEFAULT_MAXIMUM_WRAPPERS;
  bool handleWrappersAdpods_ = false;
  bool strictWrapperFirstLevelImpressionValidation_ = false;
  std::optional<double> adRequestDeadline_;
};

}  // namespace rkv
