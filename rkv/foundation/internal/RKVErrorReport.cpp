#include "rkv/foundation/internal/RKVErrorReport.h"

#include <atomic>
#include <cstdio>

namespace rkv::internal {

namespace {

void writeToStandardError(std::string_view message) {
  std::fprintf(stderr, "RKVCoreKit: %.*s\n", static_cast<int>(message.size()), message.data());
}

std::atomic<ErrorReporter> gReporter{nullptr};

}  // namespace

void setErrorReporter(ErrorReporter reporter) noexcept {
  gReporter.store(reporter, std::memory_order_release);
}

void reportError(std::string_view message) noexcept {
  ErrorReporter reporter = gReporter.load(std::memory_order_acquire);
  (reporter ? reporter : &writeToStandardError)(message);
}

}  // namespace rkv::internal
