// RKVURLSessionProvider: the production provider, HTTP and HTTPS over libcurl on a network thread
// of its own. Thread-safe.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"

namespace rkv {

namespace internal {
class RKVCurlSession;
}

// The limits every request of a provider runs under (docs/ARCHITECTURE.md, "HTTP session").
struct RKV_EXPORT RKVURLSessionConfiguration {
  // Bytes of body (after content decoding) an answer may have; a longer one fails with -1103 as
  // soon as it goes past, without keeping more. Header fields are capped at 256 KiB apart.
  size_t maximumResponseBytes = 16 * 1024 * 1024;
  // Redirects followed per request; one more fails with -1007.
  long maximumRedirects = 16;
  // Seconds to establish a connection (TCP and TLS), cut to the request's own time-out.
  double connectTimeout = 30.0;
  // Connections open at once to one host; further requests wait for one to be free.
  long maximumConnectionsPerHost = 6;
  // A PEM file of the certificate authorities to trust instead of the system's.
  std::optional<std::string> certificateAuthorityFile;
};

class RKV_EXPORT RKVURLSessionProvider final : public RKVURLSessionProviderProtocol {
 public:
  // The process-wide provider with the default configuration, created on first use. It is
  // never destroyed; its network thread is stopped at process exit (see shutdown()).
  static std::shared_ptr<RKVURLSessionProvider> sharedInstance();

  // A provider with its own network thread and connection cache.
  explicit RKVURLSessionProvider(RKVURLSessionConfiguration configuration = {});
  // shutdown().
  ~RKVURLSessionProvider() override;

  RKVURLSessionProvider(const RKVURLSessionProvider&) = delete;
  RKVURLSessionProvider& operator=(const RKVURLSessionProvider&) = delete;

  // See the protocol. Completions run on the network thread; an exception thrown by one is
  // swallowed. A request made after shutdown() fails with -999 at once, its completion called
  // on the caller's thread before this returns.
  std::shared_ptr<RKVURLSessionTask> dataRequest(
      const RKVURLRequest& request, RKVURLSessionCompletion completionHandler) override;
  bool isCompletionThread() const override;

  // Runs the transfer on the calling thread, under the same limits, over a connection cache
  // kept for such callers (one per caller at a time, reused by the next). This spares the two
  // hand-offs to the network thread and back that a request waited for would cost. After
  // shutdown(), or when shutdown() comes while it runs, it ends at once with -999.
  std::optional<RKVURLSessionResponse> synchronousDataRequest(
      const RKVURLRequest& request) override;

  // Stops the network thread: requests in flight or queued end with -999, their completions
  // called on the network thread, and the thread is joined before this returns. Called on the
  // network thread itself (from a completion), it returns at once and the thread ends after
  // the completion. Later calls do nothing.
  void shutdown();

  const RKVURLSessionConfiguration& configuration() const { return configuration_; }

 private:
  const RKVURLSessionConfiguration configuration_;
  const std::shared_ptr<internal::RKVCurlSession> session_;
};

}  // namespace rkv
