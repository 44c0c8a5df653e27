#include "rkv/net/RKVPixelManager.h"

#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/log/RKVLog.h"

namespace rkv {

namespace {

// The pixels among `dropped` whose expiration precedes any a correct clock gives.
size_t countImplausiblyOld(const std::vector<RKVPixel>& dropped) {
  const RKVPixel::Date floor(RKVPixelManager::kEarliestPlausibleExpiration);
  size_t count = 0;
  for (const RKVPixel& pixel : dropped)
    if (pixel.expirationDate() < floor) ++count;
  return count;
}

}  // namespace

std::shared_ptr<RKVPixelManager> RKVPixelManager::sharedInstance() {
  // Never destroyed: destroying it at exit would wait for a round that may take minutes.
  static auto* const instance =
      new std::shared_ptr<RKVPixelManager>(std::make_shared<RKVPixelManager>(
          RKVPixelStore::sharedInstance(), RKVURLSession::sharedInstance()));
  return *instance;
}

RKVPixelManager::RKVPixelManager(std::shared_ptr<RKVPixelStore> pixelStore,
                                 std::shared_ptr<RKVURLSession> urlSession)
    : pixelStore_(pixelStore ? std::move(pixelStore) : RKVPixelStore::sharedInstance()),
      urlSession_(urlSession ? std::move(urlSession) : RKVURLSession::sharedInstance()),
      queue_("rkv.pixels") {}

RKVPixelManager::~RKVPixelManager() {
  closed_->store(true);
  // queue_ goes first among the members: it waits for the round under way, which still uses the
  // store and the session.
}

bool RKVPixelManager::addPixel(const RKVPixel& pixel) {
  if (!pixelStore_->addPixel(pixel)) return false;
  return pixelStore_->saveToDisk();
}

bool RKVPixelManager::addPixels(const std::vector<RKVPixel>& pixels) {
  bool allAdded = true;
  bool anyAdded = false;
  for (const RKVPixel& pixel : pixels) {
    const bool added = pixelStore_->addPixel(pixel);
    anyAdded = anyAdded || added;
    allAdded = allAdded && added;
  }
  if (!anyAdded) return false;
  return pixelStore_->saveToDisk() && allAdded;
}

void RKVPixelManager::callPixelsWithCompletionHandler(std::function<void()> completionHandler) {
  if (!completionHandler) {
    queueRound(nullptr);
    return;
  }
  queueRound([handler = std::move(completionHandler)](const RKVPixelRoundReport&) { handler(); });
}

void RKVPixelManager::callPixelsWithReport(
    std::function<void(const RKVPixelRoundReport&)> reportHandler) {
  queueRound(std::move(reportHandler));
}

void RKVPixelManager::queueRound(std::function<void(const RKVPixelRoundReport&)> reportHandler) {
  auto handler =
      std::make_shared<std::function<void(const RKVPixelRoundReport&)>>(std::move(reportHandler));
  auto finish = [](const std::function<void(const RKVPixelRoundReport&)>& call,
                   const RKVPixelRoundReport& report) {
    if (call) internal::callHost("RKVPixelManager round handler", [&] { call(report); });
  };
  const bool queued = queue_.async([this, closed = closed_, handler, finish] {
    RKVPixelRoundReport report;
    if (!closed->load()) {
      // Host code the round calls (a log output, say) may throw: that ends the round where it
      // is, and the handler is still called. What the round did not save, the next save writes.
      internal::callHost("A pixel round", [&] { runRound(report); });
    }
    // Nothing of the manager is touched after this: the handler may release it.
    finish(*handler, report);
  });
  if (!queued) {
    RKVLog::sharedInstance()->logError("A pixel round could not be queued; pixels stay pending");
    finish(*handler, RKVPixelRoundReport{});
  }
}

void RKVPixelManager::runRound(RKVPixelRoundReport& report) {
  const std::shared_ptr<RKVLog> log = RKVLog::sharedInstance();
  report.dropped = pixelStore_->deleteObsoletePixels();
  if (const size_t stale = countImplausiblyOld(report.dropped); stale > 0) {
    log->logWarningWithFormat(
        "Dropped {} expired pixel(s) whose expiration date is before 2026: they were made while "
        "the device clock was wrong (not yet set from the network?)",
        stale);
  }
  std::vector<RKVPixel> pending = pixelStore_->validPendingPixels();
  for (RKVPixel& pixel : pending) {
    const RKVURLSessionResponse response = urlSession_->synchronousDataRequestWithURL(
        pixel.url(), kRequestCachePolicy, kRequestTimeout);
    if (isResponseSuccessful(response)) {
      pixel.setStatus(RKVPixelStatus::success);
      pixelStore_->deletePixel(pixel);
      report.sent.push_back(std::move(pixel));
    } else {
      log->logDebugWithFormat("Can't send pixel '{}'!", pixel.url().absoluteString());
      report.failed.push_back(std::move(pixel));
    }
  }
  report.saved = pixelStore_->saveToDisk();
}

std::vector<RKVPixel> RKVPixelManager::allPixels() const {
  return pixelStore_->allPixels();
}

std::vector<RKVPixel> RKVPixelManager::validPendingPixels() const {
  return pixelStore_->validPendingPixels();
}

bool RKVPixelManager::isResponseSuccessful(const RKVURLSessionResponse& response) {
  return response.response.has_value() && !response.error.has_value() &&
         isStatusCodeValid(response.response->statusCode());
}

bool RKVPixelManager::isStatusCodeValid(int64_t statusCode) {
  // 404 on purpose: a URL that does not exist will never succeed, so the pixel is dropped rather
  // than retried until it expires.
  return (statusCode >= 200 && statusCode <= 399) || statusCode == 404;
}

}  // namespace rkv
