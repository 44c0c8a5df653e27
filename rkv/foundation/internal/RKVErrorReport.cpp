#include "rkv/foundation/internal/RKVErrorReport.h"

#include <atomic>
#include <cstdio>

namespace rkv::internal {

namespace {

void writeToStandardError(std::string_view message) {
  std::fprintf(stderr, "RKVCoreKit: %.*s\n", static_cast<int>(message.size()), message.data());
}

void writeMessageToStandardError(int64_t level, std::string_view message) {
  if (level != 0) writeToStandardError(message);
}

std::atomic<ErrorReporter> gReporter{nullptr};
std::atomic<MessageReporter> gMessageReporter{nullptr};

}  // namespace

void setErrorReporter(ErrorReporter reporter) noexcept {
  gReporter.store(reporter, std::memory_order_release);
}

void reportError(std::string_view message) noexcept {
  ErrorReporter reporter = gReporter.load(std::memory_order_acquire);
  (reporter ? reporter : &writeToStandardError)(message);
}

void setMessageReporter(MessageReporter reporter) noexcept {
  gMessageReporter.store(reporter, std::memory_order_release);
}

void reportMessage(int64_t level, std::string_view message) noexcept {
  MessageReporter reporter = gMessageReporter.load(std::memory_order_acquire);
  (reporter ? reporter : &writeMessageToStandardError)(level, message);
}

}  // namespace rkv::internal
