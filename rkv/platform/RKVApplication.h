// RKVApplication: the hosting application's state as the host reports it (active, inactive, in
// the background), and the notification that it will enter the foreground. Thread-safe; the host
// reports changes on its main thread, where observers then run.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/RKVNotificationCenter.h"

namespace rkv {

enum RKVApplicationState : int64_t {
  RKVApplicationStateActive = 0,      // in the foreground, receiving events
  RKVApplicationStateInactive = 1,    // in the foreground, covered (a system overlay is shown)
  RKVApplicationStateBackground = 2,  // not on screen
};

// Posted with no user information when the application leaves the background.
inline constexpr std::string_view RKVApplicationWillEnterForegroundNotification =
    "RKVApplicationWillEnterForegroundNotification";

class RKV_EXPORT RKVApplication {
 public:
  // The process's application, active until the host says otherwise, posting to the default
  // notification centre. Created on first use and never destroyed.
  static const std::shared_ptr<RKVApplication>& sharedApplication();

  // An application in `state` posting to `center`, which must outlive it.
  explicit RKVApplication(RKVNotificationCenter& center = RKVNotificationCenter::defaultCenter(),
                          int64_t state = RKVApplicationStateActive);

  RKVApplication(const RKVApplication&) = delete;
  RKVApplication& operator=(const RKVApplication&) = delete;

  // An RKVApplicationState (or whatever the host set).
  int64_t applicationState() const;
  // The host reports a new state. Going from the background to any other state posts
  // RKVApplicationWillEnterForegroundNotification on the calling thread, after the state changed
  // and before this returns.
  void setApplicationState(int64_t state);

  RKVNotificationCenter& notificationCenter() const { return center_; }

 private:
  RKVNotificationCenter& center_;
  mutable RKVMutex mutex_;
  int64_t state_ RKV_GUARDED_BY(mutex_);
};

}  // namespace rkv
