#include "tools/rkv/RKVTransportLog.h"

#include <utility>

#include "rkv/net/RKVURLRequest.h"
#include "rkv/net/RKVURLSessionProvider.h"

namespace rkv::cli {

RKVTransportLog::RKVTransportLog(std::shared_ptr<RKVURLSessionProviderProtocol> provider,
                                 bool keepLastBody)
    : provider_(provider ? std::move(provider) : RKVURLSessionProvider::sharedInstance()),
      keepLastBody_(keepLastBody) {}

std::shared_ptr<RKVURLSessionTask> RKVTransportLog::dataRequest(
    const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) {
  return provider_->dataRequest(
      request, [self = shared_from_this(), request, completion = std::move(completionHandler)](
                   RKVURLSessionResponse response, std::shared_ptr<RKVURLSessionTask> task) {
        self->record(request, response);
        if (completion) completion(std::move(response), std::move(task));
      });
}

bool RKVTransportLog::isCompletionThread() const {
  return provider_->isCompletionThread();
}

std::optional<RKVURLSessionResponse> RKVTransportLog::synchronousDataRequest(
    const RKVURLRequest& request) {
  std::optional<RKVURLSessionResponse> response = provider_->synchronousDataRequest(request);
  if (response) record(request, *response);
  return response;
}

std::vector<RKVTransportLog::Failure> RKVTransportLog::failures() const {
  std::lock_guard lock(mutex_);
  return failures_;
}

std::optional<std::string> RKVTransportLog::lastBody() const {
  std::lock_guard lock(mutex_);
  return lastBody_;
}

void RKVTransportLog::record(const RKVURLRequest& request, const RKVURLSessionResponse& response) {
  std::lock_guard lock(mutex_);
  if (response.error) failures_.push_back({request.URL().absoluteString(), *response.error});
  if (keepLastBody_) lastBody_ = response.data;
}

}  // namespace rkv::cli
