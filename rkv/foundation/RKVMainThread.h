// The main thread and the check of operations that must run there. Thread-safe.
//
// The main thread of a loop is the thread driving it (see RKVMainLoop::isMainThread()); before a
// loop was first run or polled no thread is its main thread, so every check fails. An operation
// that must run on the main thread starts with the assertion:
//
//   void RKVTrackingManager::start() {
//     if (!RKV_ASSERT_MAIN_THREAD(*loop_, "RKVTrackingManager::start")) return;
//     ...
//   }
//
// Off the main thread the assertion logs "<operation> must be called on the main thread" at error
// level and, when violations abort (the default in builds without NDEBUG), aborts the process.
// Tests that check the detection turn aborting off with setMainThreadViolationsAbort(false).
#pragma once

#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMainLoop.h"

namespace rkv {

// True on the thread driving `loop`.
RKV_EXPORT bool isMainThread(const RKVMainLoop& loop);
// True on the thread driving the shared loop (RKVMainLoop::sharedInstance()).
RKV_EXPORT bool isMainThread();

// The check behind RKV_ASSERT_MAIN_THREAD: true on the main thread of `loop`; elsewhere it
// reports `operation` at error level, aborts when violations abort, and returns false.
RKV_EXPORT bool assertMainThread(const RKVMainLoop& loop, std::string_view operation);
// The same for the shared loop.
RKV_EXPORT bool assertMainThread(std::string_view operation);

// Whether a failed assertion aborts the process. Defaults to true in builds of the library
// without NDEBUG, false otherwise.
RKV_EXPORT void setMainThreadViolationsAbort(bool abort);
RKV_EXPORT bool mainThreadViolationsAbort();

}  // namespace rkv

// An expression: true on the main thread of `loop`; see above for what happens elsewhere.
#define RKV_ASSERT_MAIN_THREAD(loop, operation) (::rkv::assertMainThread((loop), (operation)))
