#include "rkv/net/RKVURLSessionProvider.h"

#include <cstdlib>
#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/net/internal/RKVCurlSession.h"

namespace rkv {

namespace {

std::shared_ptr<RKVURLSessionProvider>* sharedProvider = nullptr;

void stopSharedProviderAtExit() {
  // Runs before the static destructors and atexit handlers registered earlier, among them
  // OpenSSL's clean-up (libcurl initialised it first), so no transfer is under way while the
  // libraries underneath are torn down. The provider object itself stays.
  (*sharedProvider)->shutdown();
}

}  // namespace

std::shared_ptr<RKVURLSessionProvider> RKVURLSessionProvider::sharedInstance() {
  static std::shared_ptr<RKVURLSessionProvider>* const instance = [] {
    sharedProvider =
        new std::shared_ptr<RKVURLSessionProvider>(std::make_shared<RKVURLSessionProvider>());
    std::atexit(stopSharedProviderAtExit);
    return sharedProvider;
  }();
  return *instance;
}

RKVURLSessionProvider::RKVURLSessionProvider(RKVURLSessionConfiguration configuration)
    : configuration_(configuration),
      session_(internal::RKVCurlSession::create(std::move(configuration))) {}

RKVURLSessionProvider::~RKVURLSessionProvider() {
  session_->shutdown();
}

std::shared_ptr<RKVURLSessionTask> RKVURLSessionProvider::dataRequest(
    const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) {
  // The slot outlives this call: the completion hands the caller the very task returned here.
  // Until the completion has run, the slot, the task and its transfer keep each other alive,
  // so a caller may drop the task without losing the completion.
  auto slot = std::make_shared<std::shared_ptr<RKVURLSessionTask>>();
  auto transfer = session_->dataTask(
      request, [slot, completion = std::move(completionHandler)](RKVURLSessionResponse response) {
        std::shared_ptr<RKVURLSessionTask> task = std::move(*slot);
        if (!completion) return;
        // What the caller's completion throws is reported and dropped here, on the network
        // thread, which goes on with the other transfers.
        internal::callHost("an HTTP request's completion",
                           [&] { completion(std::move(response), std::move(task)); });
      });
  auto task = std::make_shared<RKVURLSessionTask>(transfer);
  *slot = task;
  task->resume();
  return task;
}

bool RKVURLSessionProvider::isCompletionThread() const {
  return session_->isNetworkThread();
}

std::optional<RKVURLSessionResponse> RKVURLSessionProvider::synchronousDataRequest(
    const RKVURLRequest& request) {
  return session_->perform(request);
}

void RKVURLSessionProvider::shutdown() {
  session_->shutdown();
}

}  // namespace rkv
