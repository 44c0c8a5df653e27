// The network thread of one provider: a libcurl multi handle (and so one connection cache) that
// the thread drives with curl_multi_poll, and on which every completion runs. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVCurlHandles.h"
#include "rkv/net/internal/RKVCurlTransfer.h"

namespace rkv::internal {

class RKVCurlSession : public std::enable_shared_from_this<RKVCurlSession> {
 public:
  // Starts the network thread. The thread keeps the session alive until shutdown() ends it.
  static std::shared_ptr<RKVCurlSession> create(RKVURLSessionConfiguration configuration);
  ~RKVCurlSession();

  RKVCurlSession(const RKVCurlSession&) = delete;
  RKVCurlSession& operator=(const RKVCurlSession&) = delete;

  // A transfer for the request, not yet resumed.
  std::shared_ptr<RKVCurlTransfer> dataTask(const RKVURLRequest& request,
                                            RKVCurlTransfer::Completion completion);

  // Queue a transfer's start or cancellation for the network thread; false once the session
  // is shutting down (nothing is queued then).
  bool enqueueStart(std::shared_ptr<RKVCurlTransfer> transfer);
  bool enqueueCancel(std::shared_ptr<RKVCurlTransfer> transfer);

  bool isNetworkThread() const { return threadID_.load() == std::this_thread::get_id(); }

  // Runs a request to its end on the calling thread (never the network thread) with a caller
  // driver of its own: see RKVURLSessionProvider::synchronousDataRequest.
  RKVURLSessionResponse perform(const RKVURLRequest& request);

  // See RKVURLSessionProvider::shutdown().
  void shutdown();

 private:
  enum class CommandKind { Start, Cancel };
  struct Command {
    CommandKind kind;
    std::shared_ptr<RKVCurlTransfer> transfer;
  };

  // A multi handle (with its connection and DNS caches) and an easy handle that one calling
  // thread at a time uses for its synchronous requests; kept between requests so that the next
  // caller reuses its connections.
  struct CallerDriver {
    RKVCurlMulti multi;
    RKVCurlEasy easy;
  };
  // At most this many drivers are kept unused; a caller finding none makes one.
  static constexpr size_t kMaximumIdleDrivers = 4;

  explicit RKVCurlSession(RKVURLSessionConfiguration configuration);
  // A driver registered as running, or null once the session is shutting down.
  std::unique_ptr<CallerDriver> takeDriver();
  void giveBackDriver(std::unique_ptr<CallerDriver> driver);
  RKVURLSessionResponse drive(CallerDriver& driver, RKVCurlTransfer& transfer);
  bool enqueue(Command command);
  // Wakes the network thread from curl_multi_poll or waitForCommands.
  void wake();
  // Waits until a command is queued, the session is stopping or `limit` has passed.
  void waitForCommands(std::chrono::milliseconds limit);
  static void run(std::shared_ptr<RKVCurlSession> self);
  void runLoop();
  void start(const std::shared_ptr<RKVCurlTransfer>& transfer);
  void cancel(const std::shared_ptr<RKVCurlTransfer>& transfer);
  void collectFinished();
  void cancelEverything();

  const RKVURLSessionConfiguration configuration_;
  // Made in the constructor, freed in the destructor; in between only the network thread uses
  // it, except curl_multi_wakeup, which any thread may call.
  RKVCurlMulti multi_;
  std::atomic<int64_t> nextIdentifier_{1};
  std::atomic<std::thread::id> threadID_{};

  RKVMutex mutex_;
  RKVCondVar commandsChanged_;
  std::vector<Command> commands_ RKV_GUARDED_BY(mutex_);
  bool stopping_ RKV_GUARDED_BY(mutex_) = false;
  // stopping_, for the caller drivers' loops, which read it between polls without the mutex.
  std::atomic<bool> stoppingFlag_{false};
  std::vector<std::unique_ptr<CallerDriver>> idleDrivers_ RKV_GUARDED_BY(mutex_);
  // Drivers in use; shutdown() wakes their polls. A driver leaves this list before it is
  // destroyed or put back, under the mutex.
  std::vector<CallerDriver*> runningDrivers_ RKV_GUARDED_BY(mutex_);

  // Serializes joining. shutdown() never takes it on the network thread; the destructor may,
  // but only once nobody else holds the session, so nobody else is joining.
  RKVMutex joinMutex_;
  std::thread thread_ RKV_GUARDED_BY(joinMutex_);

  // Network thread only.
  std::unordered_map<CURL*, std::shared_ptr<RKVCurlTransfer>> running_;
};

}  // namespace rkv::internal
