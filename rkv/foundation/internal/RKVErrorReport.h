// Error lines from the foundation layer, which sits below the console log: reported through a
// hook that the console log installs when the library is loaded (stderr until then).
// Thread-safe. Not public API.
#pragma once

#include <string_view>

namespace rkv::internal {

// Receives one error message. Must not throw.
using ErrorReporter = void (*)(std::string_view message);

// Replaces the reporter; null restores the default, which writes one line to stderr.
void setErrorReporter(ErrorReporter reporter) noexcept;

// Reports `message` at error level.
void reportError(std::string_view message) noexcept;

}  // namespace rkv::internal
