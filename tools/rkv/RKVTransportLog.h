// A provider that passes every request on to another (the shared one by default) and keeps how
// the transfers ended, so that the tool can say why a download failed: the library's answer
// ("Unable to download XML.") names no reason, the transport's error record does. Made with
// std::make_shared (a completion holds the log). Thread-safe: completions come from the
// provider's network thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "rkv/foundation/RKVError.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"

namespace rkv::cli {

class RKVTransportLog final : public RKVURLSessionProviderProtocol,
                              public std::enable_shared_from_this<RKVTransportLog> {
 public:
  struct Failure {
    std::string url;
    RKVError error;
  };

  // `keepLastBody`: keep the body of the last answer (for a reader that wants the bytes the
  // library parsed).
  explicit RKVTransportLog(std::shared_ptr<RKVURLSessionProviderProtocol> provider = nullptr,
                           bool keepLastBody = false);

  std::shared_ptr<RKVURLSessionTask> dataRequest(
      const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) override;
  bool isCompletionThread() const override;
  std::optional<RKVURLSessionResponse> synchronousDataRequest(
      const RKVURLRequest& request) override;

  // The transfers that ended with an error, in the order they ended.
  std::vector<Failure> failures() const;
  std::optional<std::string> lastBody() const;

 private:
  void record(const RKVURLRequest& request, const RKVURLSessionResponse& response);

  const std::shared_ptr<RKVURLSessionProviderProtocol> provider_;
  const bool keepLastBody_;
  mutable std::mutex mutex_;
  std::vector<Failure> failures_;
  std::optional<std::string> lastBody_;
};

}  // namespace rkv::cli
