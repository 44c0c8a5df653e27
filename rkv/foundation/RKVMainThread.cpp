#include "rkv/foundation/RKVMainThread.h"

#include <atomic>
#include <cstdlib>
#include <string>

#include "rkv/foundation/internal/RKVErrorReport.h"

namespace rkv {

namespace {

#ifdef NDEBUG
constexpr bool kAbortByDefault = false;
#else
constexpr bool kAbortByDefault = true;
#endif

std::atomic<bool> gViolationsAbort{kAbortByDefault};

}  // namespace

bool isMainThread(const RKVMainLoop& loop) {
  return loop.isMainThread();
}

bool isMainThread() {
  return isMainThread(*RKVMainLoop::sharedInstance());
}

bool assertMainThread(const RKVMainLoop& loop, std::string_view operation) {
  if (loop.isMainThread()) return true;
  try {
    internal::reportError(std::string(operation) +
                          " must be called on the main thread; it was called on another thread.");
  } catch (...) {
    // Out of memory while building the line: the violation is still answered (and aborts).
  }
  if (gViolationsAbort.load()) std::abort();
  return false;
}

bool assertMainThread(std::string_view operation) {
  return assertMainThread(*RKVMainLoop::sharedInstance(), operation);
}

void setMainThreadViolationsAbort(bool abort) {
  gViolationsAbort.store(abort);
}

bool mainThreadViolationsAbort() {
  return gViolationsAbort.load();
}

}  // namespace rkv
