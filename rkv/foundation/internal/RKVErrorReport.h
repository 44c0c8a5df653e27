// Log lines from the foundation layer, which sits below the console log: reported through hooks
// that the console log installs when the library is loaded (stderr until then). Thread-safe. Not
// public API.
#pragma once

#include <cstdint>
#include <string_view>

namespace rkv::internal {

// Receives one error message. Must not throw.
using ErrorReporter = void (*)(std::string_view message);

// Replaces the reporter; null restores the default, which writes one line to stderr.
void setErrorReporter(ErrorReporter reporter) noexcept;

// Reports `message` at error level.
void reportError(std::string_view message) noexcept;

// Receives one message at a console log level (0 debug, 1 info, 2 error, 3 warning; see
// RKVLog.h), which decides whether it is written. Must not throw.
using MessageReporter = void (*)(int64_t level, std::string_view message);

// Replaces the reporter; null restores the default, which drops debug messages and writes the
// others as one line to stderr.
void setMessageReporter(MessageReporter reporter) noexcept;

// Reports `message` at `level`.
void reportMessage(int64_t level, std::string_view message) noexcept;

}  // namespace rkv::internal
