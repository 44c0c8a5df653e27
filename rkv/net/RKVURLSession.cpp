#include "rkv/net/RKVURLSession.h"

#include <future>
#include <utility>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSessionProvider.h"

namespace rkv {

namespace {

RKVURLSessionResponse sessionFailure(int64_t code) {
  return RKVURLSessionResponse{std::nullopt, std::nullopt, RKVURLError::sessionErrorWithCode(code)};
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
  return provider->dataRequest(request, std::move(completionHandler));
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
  if (provider->isCompletionThread()) {
    return sessionFailure(RKVURLError::SynchronousRequestOnCompletionThread);
  }
  if (auto response = provider->synchronousDataRequest(request)) return std::move(*response);
  // Only the completion owns the promise: a provider that destroys the completion uncalled
  // breaks it, which ends the wait instead of leaving it hanging.
  auto promise = std::make_shared<std::promise<RKVURLSessionResponse>>();
  std::future<RKVURLSessionResponse> future = promise->get_future();
  provider->dataRequest(request,
                        [promise = std::move(promise)](RKVURLSessionResponse response,
                                                       const std::shared_ptr<RKVURLSessionTask>&) {
                          try {
                            promise->set_value(std::move(response));
                          } catch (const std::future_error&) {
                            // A second call from a faulty provider: the first answer stands.
                          }
                        });
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
