// RKVURLSessionProviderProtocol: the single point where a request meets the transport; the seam
// where tests put a double in place of the production provider. Implementations are thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVURLRequest.h"
#include "rkv/net/RKVURLSessionResponse.h"
#include "rkv/net/RKVURLSessionTask.h"

namespace rkv {

// Receives how the exchange ended and the task that ran it: the very object dataRequest
// returned, so a caller can recognise a stale completion by comparing pointers.
using RKVURLSessionCompletion =
    std::function<void(RKVURLSessionResponse response, std::shared_ptr<RKVURLSessionTask> task)>;

class RKV_EXPORT RKVURLSessionProviderProtocol {
 public:
  virtual ~RKVURLSessionProviderProtocol() = default;

  // Starts the request and returns its task, already resumed. `completionHandler` is called
  // exactly once, also for cancelled and failed requests, on the provider's completion thread
  // (the production provider's network thread), normally after this has returned.
  virtual std::shared_ptr<RKVURLSessionTask> dataRequest(
      const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) = 0;

  // True when called on the thread that runs this provider's completions, where waiting for a
  // completion would never end. Doubles that complete on their caller's thread keep the
  // default.
  virtual bool isCompletionThread() const { return false; }

  // Runs the request to its end on the calling thread and returns how it ended, for a caller
  // that would only wait for the completion anyway. nullopt when the provider cannot (the
  // default): the session then starts it with dataRequest and waits for its completion.
  virtual std::optional<RKVURLSessionResponse> synchronousDataRequest(
      const RKVURLRequest& request) {
    (void)request;
    return std::nullopt;
  }
};

}  // namespace rkv
