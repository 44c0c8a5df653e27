// RKVMainLoopAccess: the asio context under an RKVMainLoop, for the library's own event sources
// (sockets and descriptors that should complete on the main thread). Not public API.
//
// Completion handlers of objects on this context run on the main thread like posted handlers, but
// outside the loop's own queue: poll() runs every one that is ready, including those that become
// ready while it runs, and does not count them.
#pragma once

#include <asio/io_context.hpp>

#include "rkv/foundation/RKVMainLoop.h"

namespace rkv {

struct RKVMainLoopAccess {
  // Valid as long as the loop.
  static asio::io_context& ioContext(RKVMainLoop& loop);
};

}  // namespace rkv
