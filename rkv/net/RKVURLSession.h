// RKVURLSession: the facade every HTTP exchange of the library goes through; asynchronous and
// synchronous requests by URL or by ready-made request, over a replaceable provider.
// Thread-safe.
#pragma once

#include <cstdint>
#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVURLRequest.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"
#include "rkv/net/RKVURLSessionResponse.h"
#include "rkv/net/RKVURLSessionTask.h"

namespace rkv {

class RKV_EXPORT RKVURLSession {
 public:
  static constexpr double DEFAULT_TIMEOUT = 60.0;  // seconds
  static constexpr int64_t DEFAULT_CACHE_POLICY = RKVURLRequest::UseProtocolCachePolicy;
  // Seconds a synchronous request waits for a provider's completion beyond the request's
  // time-out before it gives up with RKVURLError::TimedOut.
  static constexpr double SYNCHRONOUS_WAIT_GRACE = 2.0;

  // The process-wide session over RKVURLSessionProvider::sharedInstance(), created on first use
  // and never destroyed.
  static std::shared_ptr<RKVURLSession> sharedInstance();

  explicit RKVURLSession(std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider);

  // Every later request goes through the provider set here. A null provider answers nothing:
  // asynchronous requests return null and never complete, synchronous ones fail with
  // RKVURLError::NoResponse.
  std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider() const;
  void setSessionProvider(std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider);

  // The provider's dataRequest for the request, unchanged: the task (already resumed), whose
  // completion is called once on the provider's completion thread. A provider that throws is
  // reported at error level and answers null.
  std::shared_ptr<RKVURLSessionTask> asynchronousDataRequestWithURLRequest(
      const RKVURLRequest& request, RKVURLSessionCompletion completionHandler);
  // A GET of the URL with DEFAULT_CACHE_POLICY and DEFAULT_TIMEOUT.
  std::shared_ptr<RKVURLSessionTask> asynchronousDataRequestWithURL(
      const RKVURL& url, RKVURLSessionCompletion completionHandler);
  // A GET of the URL with the cache policy (RKVURLRequest's values) and time-out in seconds.
  std::shared_ptr<RKVURLSessionTask> asynchronousDataRequestWithURL(
      const RKVURL& url, int64_t cachePolicy, double timeoutInterval,
      RKVURLSessionCompletion completionHandler);

  // Blocks until the exchange ends and returns how it ended. The wait is bounded: a provider
  // whose completion has not come by the request's time-out (0, negative or NaN: 60 s) plus
  // SYNCHRONOUS_WAIT_GRACE ends it with RKVURLError::TimedOut (-1001); a completion coming
  // later is ignored. Refused at once, with RKVURLError::SynchronousRequestOnCompletionThread,
  // when called on the thread that runs the provider's completions (it would wait for itself
  // forever). A provider that destroys the completion without calling it, or throws, gives
  // RKVURLError::NoResponse.
  RKVURLSessionResponse synchronousDataRequestWithURLRequest(const RKVURLRequest& request);
  RKVURLSessionResponse synchronousDataRequestWithURL(const RKVURL& url);
  RKVURLSessionResponse synchronousDataRequestWithURL(const RKVURL& url, int64_t cachePolicy,
                                                      double timeoutInterval);

 private:
  mutable RKVMutex mutex_;
  std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider_ RKV_GUARDED_BY(mutex_);
};

}  // namespace rkv
