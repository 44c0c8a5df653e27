// One request's libcurl transfer: its easy handle, the buffers it writes into and the
// completion it owes. The data task behind the production provider's RKVURLSessionTask.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "rkv/net/RKVURLDataTask.h"
#include "rkv/net/RKVURLRequest.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/RKVURLSessionResponse.h"
#include "rkv/net/internal/RKVCurlHandles.h"

namespace rkv::internal {

class RKVCurlSession;

// resume(), cancel(), taskIdentifier() and complete() are thread-safe; everything else belongs
// to the thread that runs the transfer: the network thread, or the caller of a synchronous
// request run on its own thread (RKVCurlSession::perform).
class RKVCurlTransfer final : public RKVURLDataTask,
                              public std::enable_shared_from_this<RKVCurlTransfer> {
 public:
  using Completion = std::function<void(RKVURLSessionResponse)>;

  // Where the transfer stands on the network thread.
  enum class State { Idle, Running, Done };

  RKVCurlTransfer(std::weak_ptr<RKVCurlSession> session, int64_t identifier, RKVURLRequest request,
                  Completion completion);
  ~RKVCurlTransfer() override;

  void resume() override;
  void cancel() override;
  int64_t taskIdentifier() const override { return identifier_; }

  // Calls the completion unless it has been called already, on the calling thread; the first
  // call wins. An exception thrown by the completion is reported at error level and dropped.
  void complete(RKVURLSessionResponse response);

  // Builds the easy handle, in `reused` (reset first) when one is given. nullopt when it is ready
  // to be added to a multi handle; otherwise the error the transfer ends with, without loading
  // anything.
  std::optional<RKVError> prepare(const RKVURLSessionConfiguration& configuration,
                                  RKVCurlEasy reused = nullptr);
  CURL* handle() const { return easy_.get(); }
  // Network thread: the response for a transfer libcurl reports done with `result`.
  RKVURLSessionResponse finishedResponse(CURLcode result);
  // Frees the easy handle once it has left the multi handle.
  void releaseHandle();
  // Hands the easy handle over for another transfer, once it has left the multi handle.
  RKVCurlEasy takeHandle();

  State state = State::Idle;  // network thread only

  static constexpr size_t kMaximumHeaderBytes = 256 * 1024;

 private:
  static size_t onBody(char* data, size_t size, size_t count, void* self);
  static size_t onHeader(char* data, size_t size, size_t count, void* self);
  size_t appendBody(const char* data, size_t length);
  size_t appendHeaderLine(const char* data, size_t length);

  const std::weak_ptr<RKVCurlSession> session_;
  const int64_t identifier_;
  const RKVURLRequest request_;
  std::atomic<bool> resumed_{false};
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> completed_{false};
  // Moved out by the one complete() call that wins completed_.
  Completion completion_;

  // Network thread only.
  RKVCurlEasy easy_;
  RKVCurlSlist requestHeaders_;
  std::string urlText_;
  size_t maximumBodyBytes_ = 0;
  std::string body_;
  RKVHTTPHeaderFields responseHeaders_;
  size_t headerBytes_ = 0;
  bool responseTooLarge_ = false;
};

}  // namespace rkv::internal
