#include "rkv/platform/RKVApplication.h"

#include <string>

namespace rkv {

const std::shared_ptr<RKVApplication>& RKVApplication::sharedApplication() {
  static const auto* const instance =
      new std::shared_ptr<RKVApplication>(std::make_shared<RKVApplication>());
  return *instance;
}

RKVApplication::RKVApplication(RKVNotificationCenter& center, int64_t state)
    : center_(center), state_(state) {}

int64_t RKVApplication::applicationState() const {
  RKVMutexLock lock(mutex_);
  return state_;
}

void RKVApplication::setApplicationState(int64_t state) {
  int64_t previous;
  {
    RKVMutexLock lock(mutex_);
    previous = state_;
    state_ = state;
  }
  if (previous == RKVApplicationStateBackground && state != RKVApplicationStateBackground)
    center_.post(std::string(RKVApplicationWillEnterForegroundNotification));
}

}  // namespace rkv
