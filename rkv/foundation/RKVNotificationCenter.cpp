#include "rkv/foundation/RKVNotificationCenter.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVMutex.h"

namespace rkv {
namespace {

struct Entry {
  Entry(uint64_t i, std::string n, RKVNotificationCenter::Observer o)
      : id(i), name(std::move(n)), observer(std::move(o)) {}

  bool matches(const std::string& posted) const { return name.empty() || name == posted; }
  bool activeElsewhere() const RKV_REQUIRES(mu) {
    const auto self = std::this_thread::get_id();
    return std::any_of(active.begin(), active.end(),
                       [self](auto thread) { return thread != self; });
  }

  const uint64_t id;
  const std::string name;
  RKVMutex mu;
  RKVCondVar callReturned;
  // Written only while no call is under way (active empty); read by the calls without the lock.
  RKVNotificationCenter::Observer observer RKV_GUARDED_BY(mu);
  bool removed RKV_GUARDED_BY(mu) = false;
  std::vector<std::thread::id> active RKV_GUARDED_BY(mu);  // one element per call under way
};

// Calls the entry's observer unless it was removed, tracking the call for removeObserver().
void deliver(Entry& entry, const RKVNotification& notification) {
  const RKVNotificationCenter::Observer* observer = nullptr;
  {
    RKVMutexLock lock(entry.mu);
    if (entry.removed) return;
    entry.active.push_back(std::this_thread::get_id());
    observer = &entry.observer;
  }
  struct CallEnd {
    Entry& entry;
    ~CallEnd() {
      RKVNotificationCenter::Observer dropped;  // destroyed after the lock is released
      RKVMutexLock lock(entry.mu);
      entry.active.erase(
          std::find(entry.active.begin(), entry.active.end(), std::this_thread::get_id()));
      if (entry.removed && entry.active.empty()) dropped.swap(entry.observer);
      entry.callReturned.notifyAll();
    }
  } end{entry};
  (*observer)(notification);
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
  Observer dropped;  // destroyed after the lock is released
  RKVMutexLock lock(entry->mu);
  entry->removed = true;
  while (entry->activeElsewhere())
    entry->callReturned.wait(entry->mu);
  if (entry->active.empty()) dropped.swap(entry->observer);
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
