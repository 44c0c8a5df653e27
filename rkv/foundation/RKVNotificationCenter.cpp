#include "rkv/foundation/RKVNotificationCenter.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVCallGate.h"
#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {
namespace {

struct Entry {
  Entry(uint64_t i, std::string n, RKVNotificationCenter::Observer o)
      : id(i),
        name(std::move(n)),
        observer(std::make_shared<const RKVNotificationCenter::Observer>(std::move(o))) {}

  bool matches(const std::string& posted) const { return name.empty() || name == posted; }

  const uint64_t id;
  const std::string name;
  // Closed by removeObserver(): no call starts after, and the calls under way on other threads
  // have ended when close() returns.
  internal::RKVCallGate gate;
  // Read by calls inside the gate; reset by removeObserver() once the gate is closed, when no
  // other thread reads it any more. A call under way on the removing thread keeps its own
  // reference, so the observer is destroyed when that call returns.
  std::shared_ptr<const RKVNotificationCenter::Observer> observer;
};

// Calls the entry's observer unless it was removed; an exception it throws is reported and
// dropped, so the observers after it are still called.
void deliver(Entry& entry, const RKVNotification& notification) {
  const internal::RKVCallGate::Pass pass = entry.gate.enter();
  if (!pass) return;
  // Released before the pass: a removing thread finds the observer gone, not in use.
  const std::shared_ptr<const RKVNotificationCenter::Observer> observer = entry.observer;
  try {
    (*observer)(notification);
  } catch (...) {
    internal::reportHostException(entry.name.empty()
                                      ? std::string("An observer of every notification")
                                      : "An observer of the notification \"" + entry.name + "\"");
  }
}

}  // namespace

struct RKVNotificationCenter::State {
  RKVMutex mu;
  uint64_t nextID RKV_GUARDED_BY(mu) = 1;
  std::vector<std::shared_ptr<Entry>> entries RKV_GUARDED_BY(mu);  // in the order added
};

RKVNotificationCenter::RKVNotificationCenter() : state_(std::make_unique<State>()) {}

RKVNotificationCenter::~RKVNotificationCenter() = default;

RKVNotificationCenter& RKVNotificationCenter::defaultCenter() {
  static auto* const center = new RKVNotificationCenter();
  return *center;
}

RKVNotificationCenter::Token RKVNotificationCenter::addObserver(std::string name,
                                                                Observer observer) {
  if (!observer) return Token{};
  RKVMutexLock lock(state_->mu);
  const uint64_t id = state_->nextID++;
  state_->entries.push_back(std::make_shared<Entry>(id, std::move(name), std::move(observer)));
  return Token{id};
}

void RKVNotificationCenter::removeObserver(Token token) {
  if (!token) return;
  std::shared_ptr<Entry> entry;
  {
    RKVMutexLock lock(state_->mu);
    auto it = std::find_if(state_->entries.begin(), state_->entries.end(),
                           [&](const auto& e) { return e->id == token.id; });
    if (it == state_->entries.end()) return;
    entry = *it;
    state_->entries.erase(it);
  }
  entry->gate.close();
  entry->observer.reset();
}

void RKVNotificationCenter::post(const RKVNotification& notification) {
  std::vector<std::shared_ptr<Entry>> matching;
  {
    RKVMutexLock lock(state_->mu);
    for (const auto& entry : state_->entries) {
      if (entry->matches(notification.name)) matching.push_back(entry);
    }
  }
  for (const auto& entry : matching)
    deliver(*entry, notification);
}

void RKVNotificationCenter::post(std::string name, RKVUserInfo userInfo) {
  post(RKVNotification{std::move(name), std::move(userInfo)});
}

}  // namespace rkv
