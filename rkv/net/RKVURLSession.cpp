#include "rkv/net/RKVURLSession.h"

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVRequestTimeout.h"

namespace rkv {

namespace {

RKVURLSessionResponse sessionFailure(int64_t code) {
  return RKVURLSessionResponse{std::nullopt, std::nullopt, RKVURLError::sessionErrorWithCode(code)};
}

// How long a synchronous request waits for a provider's completion: the request's time-out as
// the transport applies it, plus a grace for the completion to travel back.
std::chrono::steady_clock::duration synchronousWaitLimit(const RKVURLRequest& request) {
  const double seconds = internal::effectiveRequestTimeout(request.timeoutInterval()) +
                         RKVURLSession::SYNCHRONOUS_WAIT_GRACE;
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(seconds));
}

}  // namespace

std::shared_ptr<RKVURLSession> RKVURLSession::sharedInstance() {
  // Never destroyed, so that code running during exit still finds it.
  static std::shared_ptr<RKVURLSession>* const instance = new std::shared_ptr<RKVURLSession>(
      std::make_shared<RKVURLSession>(RKVURLSessionProvider::sharedInstance()));
  return *instance;
}

RKVURLSession::RKVURLSession(std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider)
    : sessionProvider_(std::move(sessionProvider)) {}

std::shared_ptr<RKVURLSessionProviderProtocol> RKVURLSession::sessionProvider() const {
  RKVMutexLock lock(mutex_);
  return sessionProvider_;
}

void RKVURLSession::setSessionProvider(
    std::shared_ptr<RKVURLSessionProviderProtocol> sessionProvider) {
  RKVMutexLock lock(mutex_);
  sessionProvider_ = std::move(sessionProvider);
}

std::shared_ptr<RKVURLSessionTask> RKVURLSession::asynchronousDataRequestWithURLRequest(
    const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) {
  auto provider = sessionProvider();
  if (!provider) return nullptr;
  return internal::callHostOrDefault("the HTTP session provider's dataRequest", [&] {
    return provider->dataRequest(request, std::move(completionHandler));
  });
}

std::shared_ptr<RKVURLSessionTask> RKVURLSession::asynchronousDataRequestWithURL(
    const RKVURL& url, RKVURLSessionCompletion completionHandler) {
  return asynchronousDataRequestWithURL(url, DEFAULT_CACHE_POLICY, DEFAULT_TIMEOUT,
                                        std::move(completionHandler));
}

std::shared_ptr<RKVURLSessionTask> RKVURLSession::asynchronousDataRequestWithURL(
    const RKVURL& url, int64_t cachePolicy, double timeoutInterval,
    RKVURLSessionCompletion completionHandler) {
  return asynchronousDataRequestWithURLRequest(RKVURLRequest(url, cachePolicy, timeoutInterval),
                                               std::move(completionHandler));
}

RKVURLSessionResponse RKVURLSession::synchronousDataRequestWithURLRequest(
    const RKVURLRequest& request) {
  auto provider = sessionProvider();
  if (!provider) return sessionFailure(RKVURLError::NoResponse);
  if (internal::callHostOrDefault("the HTTP session provider's isCompletionThread",
                                  [&] { return provider->isCompletionThread(); })) {
    return sessionFailure(RKVURLError::SynchronousRequestOnCompletionThread);
  }
  std::optional<RKVURLSessionResponse> direct;
  if (!internal::callHost("the HTTP session provider's synchronousDataRequest",
                          [&] { direct = provider->synchronousDataRequest(request); })) {
    return sessionFailure(RKVURLError::NoResponse);
  }
  if (direct) return std::move(*direct);

  // Only the completion owns the answer: a provider that destroys the completion uncalled breaks
  // the promise, which ends the wait at once. One that keeps it uncalled meets the deadline
  // below; its completion may still come later, or twice, and then fills a promise nobody waits
  // for, which the completion alone keeps alive.
  struct Answer {
    std::promise<RKVURLSessionResponse> promise;
    std::atomic<bool> given{false};
  };
  auto answer = std::make_shared<Answer>();
  std::future<RKVURLSessionResponse> future = answer->promise.get_future();
  const auto deadline = std::chrono::steady_clock::now() + synchronousWaitLimit(request);
  const bool started = internal::callHost("the HTTP session provider's dataRequest", [&] {
    provider->dataRequest(request,
                          [answer = std::move(answer)](RKVURLSessionResponse response,
                                                       const std::shared_ptr<RKVURLSessionTask>&) {
                            // The first answer stands.
                            if (!answer->given.exchange(true))
                              answer->promise.set_value(std::move(response));
                          });
  });
  if (!started) return sessionFailure(RKVURLError::NoResponse);
  if (future.wait_until(deadline) != std::future_status::ready) {
    return RKVURLSessionResponse{std::nullopt, std::nullopt,
                                 RKVURLError::errorWithCode(RKVURLError::TimedOut)};
  }
  try {
    return future.get();
  } catch (const std::future_error&) {
    return sessionFailure(RKVURLError::NoResponse);
  }
}

RKVURLSessionResponse RKVURLSession::synchronousDataRequestWithURL(const RKVURL& url) {
  return synchronousDataRequestWithURL(url, DEFAULT_CACHE_POLICY, DEFAULT_TIMEOUT);
}

RKVURLSessionResponse RKVURLSession::synchronousDataRequestWithURL(const RKVURL& url,
                                                                   int64_t cachePolicy,
                                                                   double timeoutInterval) {
  return synchronousDataRequestWithURLRequest(RKVURLRequest(url, cachePolicy, timeoutInterval));
}

}  // namespace rkv
