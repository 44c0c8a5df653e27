// RKVNotificationCenter: named notifications delivered to observers synchronously, on the thread
// that posts them. Thread-safe.
//
// Observers are called in the order they were added, each with no lock of the centre held, so an
// observer may post, add and remove observers. An observer that throws is reported at error
// level; the observers after it are still called.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

// The notification's user information: keys to values of any type (std::any_cast to read).
using RKVUserInfo = std::map<std::string, std::any>;

struct RKV_EXPORT RKVNotification {
  std::string name;
  RKVUserInfo userInfo;
};

class RKV_EXPORT RKVNotificationCenter {
 public:
  using Observer = std::function<void(const RKVNotification&)>;

  // Identifies one added observer. Zero is "no observer".
  struct Token {
    uint64_t id = 0;
    explicit operator bool() const { return id != 0; }
    friend bool operator==(Token, Token) = default;
  };

  RKVNotificationCenter();
  ~RKVNotificationCenter();
  RKVNotificationCenter(const RKVNotificationCenter&) = delete;
  RKVNotificationCenter& operator=(const RKVNotificationCenter&) = delete;

  // The process's centre. Created on first use and never destroyed.
  static RKVNotificationCenter& defaultCenter();

  // Calls `observer` for every notification named `name` posted after this returns; an empty
  // name observes every notification. A null observer is not added (empty token).
  Token addObserver(std::string name, Observer observer);
  // After this returns, the observer is not called again. Calls under way on other threads are
  // waited for (so the observer must not wait for the removing thread) and the observer is
  // destroyed before this returns; removed from inside itself, the observer finishes its call and
  // is destroyed when that returns. Unknown and empty tokens are ignored.
  void removeObserver(Token token);

  // Calls the matching observers, on this thread, before returning.
  void post(const RKVNotification& notification);
  void post(std::string name, RKVUserInfo userInfo = {});

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace rkv
