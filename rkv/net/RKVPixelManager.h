// RKVPixelManager: the one place pixels are sent. Thread-safe: pixels may be added and rounds
// requested from any thread.
//
// An added pixel is saved at once. A sending round runs on the manager's serial queue: it drops
// obsolete pixels, then sends each pending pixel of a snapshot, one at a time, with a synchronous
// GET (cache policy 1, 10 s time-out); a pixel answered acceptably is deleted, any other is kept
// for a later round until it expires. The round ends with one save. Rounds never overlap; a pixel
// added during a round waits for the next one.
//
// Expiry follows the wall clock. A device whose clock starts at 1970 until network time arrives
// makes pixels that expire a day after 1970, and the first round after the clock is set drops
// them all. The rule stands (those pixels are past their date), but a round that drops pixels
// expiring before kEarliestPlausibleExpiration, which no correct clock can have produced, logs one
// warning with their number.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVSerialQueue.h"
#include "rkv/net/RKVPixel.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionResponse.h"

namespace rkv {

// What one sending round did, in order.
struct RKV_EXPORT RKVPixelRoundReport {
  std::vector<RKVPixel> dropped;  // obsolete pixels removed before sending
  std::vector<RKVPixel> sent;     // answered acceptably and deleted
  std::vector<RKVPixel> failed;   // sent without an acceptable answer; still pending
  bool saved = false;             // what the round's save answered
};

class RKV_EXPORT RKVPixelManager {
 public:
  static constexpr double kRequestTimeout = 10.0;    // seconds, each pixel's request
  static constexpr int64_t kRequestCachePolicy = 1;  // ignore any local cache
  // 2026-01-01T00:00:00Z, in seconds since 1970: earlier than any pixel this library made under
  // a correct clock can expire.
  static constexpr std::chrono::seconds kEarliestPlausibleExpiration{1767225600};

  // The process-wide manager over RKVPixelStore's and RKVURLSession's shared instances.
  static std::shared_ptr<RKVPixelManager> sharedInstance();

  // A null store or session means the shared one.
  RKVPixelManager(std::shared_ptr<RKVPixelStore> pixelStore,
                  std::shared_ptr<RKVURLSession> urlSession);
  // Waits for the round under way, if any; rounds still queued are dropped, their handlers called
  // with an empty report.
  virtual ~RKVPixelManager();

  RKVPixelManager(const RKVPixelManager&) = delete;
  RKVPixelManager& operator=(const RKVPixelManager&) = delete;

  // Adds the pixel; when it was added (its ID was not present), saves the store at once. True
  // when it was added and saved. Virtual, like addPixels, so that a host can watch what is
  // queued (a player's log, a test) and then call this one.
  virtual bool addPixel(const RKVPixel& pixel);
  // Adds each pixel in order; when at least one was added, saves the store once at the end. True
  // when every pixel was added and the save succeeded.
  virtual bool addPixels(const std::vector<RKVPixel>& pixels);

  // Queues one sending round and returns at once.
  void callPixels() { callPixelsWithCompletionHandler(nullptr); }
  // The handler (may be null) runs on the manager's queue after the round, in every case.
  void callPixelsWithCompletionHandler(std::function<void()> completionHandler);
  // As above, with what the round did.
  void callPixelsWithReport(std::function<void(const RKVPixelRoundReport&)> reportHandler);

  std::vector<RKVPixel> allPixels() const;
  std::vector<RKVPixel> validPendingPixels() const;

  // An HTTP response with no error and a valid status code.
  static bool isResponseSuccessful(const RKVURLSessionResponse& response);
  // 200 to 399, and 404 (a URL that does not exist will never succeed: treated as delivered).
  static bool isStatusCodeValid(int64_t statusCode);

  const std::shared_ptr<RKVPixelStore>& pixelStore() const { return pixelStore_; }
  const std::shared_ptr<RKVURLSession>& urlSession() const { return urlSession_; }

 private:
  // Fills `report` as it goes, so that a round ended by a throw still reports what it did.
  void runRound(RKVPixelRoundReport& report);
  void queueRound(std::function<void(const RKVPixelRoundReport&)> reportHandler);

  std::shared_ptr<RKVPixelStore> pixelStore_;
  std::shared_ptr<RKVURLSession> urlSession_;
  // Set by the destructor; read by queued rounds, which may outlive the manager when it is
  // released by one of its own handlers.
  std::shared_ptr<std::atomic<bool>> closed_ = std::make_shared<std::atomic<bool>>(false);
  RKVSerialQueue queue_;
};

}  // namespace rkv
