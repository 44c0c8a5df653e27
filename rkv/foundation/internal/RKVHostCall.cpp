#include "rkv/foundation/internal/RKVHostCall.h"

#include <atomic>
#include <cstdio>
#include <exception>
#include <string>

namespace rkv::internal {

namespace {

void writeToStandardError(std::string_view site, std::string_view what) {
  std::fprintf(stderr, "RKVCoreKit: %.*s threw (%.*s); the exception was dropped.\n",
               static_cast<int>(site.size()), site.data(), static_cast<int>(what.size()),
               what.data());
}

std::atomic<HostExceptionReporter> gReporter{nullptr};

}  // namespace

void setHostExceptionReporter(HostExceptionReporter reporter) noexcept {
  gReporter.store(reporter, std::memory_order_release);
}

void reportHostException(std::string_view site) noexcept {
  try {
    std::string what = "unknown exception";
    try {
      throw;
    } catch (const std::exception& e) {
      what = e.what();
    } catch (...) {
    }
    HostExceptionReporter reporter = gReporter.load(std::memory_order_acquire);
    (reporter ? reporter : &writeToStandardError)(site, what);
  } catch (...) {
    // Reporting failed (out of memory): the exception is still dropped, never rethrown.
  }
}

}  // namespace rkv::internal
