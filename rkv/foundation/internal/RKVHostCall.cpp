#include "rkv/foundation/internal/RKVHostCall.h"

#include <exception>
#include <string>

#include "rkv/foundation/internal/RKVErrorReport.h"

namespace rkv::internal {

void reportHostException(std::string_view site) noexcept {
  try {
    std::string what = "unknown exception";
    try {
      throw;
    } catch (const std::exception& e) {
      what = e.what();
    } catch (...) {
    }
    reportError(std::string(site) + " threw (" + what + "); the exception was dropped.");
  } catch (...) {
    // Reporting failed (out of memory): the exception is still dropped, never rethrown.
  }
}

}  // namespace rkv::internal
