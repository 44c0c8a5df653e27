// The one policy for host code that throws (a delegate, an observer, a completion, a posted
// task, an adapter): the library catches the exception where it called the host, reports the
// call site at error level, and carries on as if the call had returned. Nothing the host throws
// ends a library thread, skips later observers or reaches another caller. Thread-safe.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>

namespace rkv::internal {

// Reports go through internal::reportError (RKVErrorReport.h), which the console log routes to
// its error level once the library is loaded.

// Reports the exception currently being handled; call it only inside a catch block.
void reportHostException(std::string_view site) noexcept;

// Runs `call`; an exception it throws is reported under `site` and dropped. True when `call`
// returned normally.
template <typename Call>
bool callHost(std::string_view site, Call&& call) noexcept {
  try {
    std::forward<Call>(call)();
    return true;
  } catch (...) {
    reportHostException(site);
    return false;
  }
}

// As callHost, for a call with a result: `fallback` when it threw.
template <typename Result, typename Call>
Result callHostOr(std::string_view site, Result fallback, Call&& call) noexcept {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    reportHostException(site);
    return fallback;
  }
}

// As callHostOr, with the fallback the call's result type gives when value-initialised
// (std::nullopt, nullptr, false): what most host calls answer when they fail.
template <typename Call>
std::invoke_result_t<Call&> callHostOrDefault(std::string_view site, Call&& call) noexcept {
  return callHostOr(site, std::invoke_result_t<Call&>{}, call);
}

}  // namespace rkv::internal
