// RKVTimerTarget: the object a main-loop timer calls when it fires, standing between the loop and
// an RKVTimer: the timer keeps its target, the loop's pending callback keeps the target too, and
// the target reaches the RKVTimer only through what its completion handler captures (a weak
// reference), so a pending callback never keeps an RKVTimer alive. Main-loop only: not
// synchronized.
#pragma once

#include <functional>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVTimerHandle.h"

namespace rkv {

class RKV_EXPORT RKVTimerTarget {
 public:
  // Given the main-loop timer that fired.
  using CompletionHandler = std::function<void(const RKVTimerHandle& timer)>;

  // Keeps a copy of the handler (null is allowed: firings then do nothing); not invalidated.
  explicit RKVTimerTarget(CompletionHandler completionHandler)
      : completionHandler_(std::move(completionHandler)) {}

  RKVTimerTarget(const RKVTimerTarget&) = delete;
  RKVTimerTarget& operator=(const RKVTimerTarget&) = delete;

  // The timer's action: calls the completion handler with `timer` unless invalidated. A handler
  // that throws is reported at error level and dropped.
  void timerFired(const RKVTimerHandle& timer);
  // From now on firings of a timer still holding this target do nothing.
  void invalidate() { invalidated_ = true; }
  bool invalidated() const { return invalidated_; }

  const CompletionHandler& completionHandler() const { return completionHandler_; }

 private:
  CompletionHandler completionHandler_;
  bool invalidated_ = false;
};

}  // namespace rkv
