#include "rkv/vast/RKVVASTManager.h"

#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/foundation/internal/RKVCallGate.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/log/RKVLog.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"
#include "rkv/vast/internal/RKVPassbackResolution.h"
#include "rkv/vast/internal/RKVVASTAdStores.h"

namespace rkv {

namespace {

using internal::RKVPassbackResolution;
using internal::RKVVASTAdStores;
using Clock = std::chrono::steady_clock;
// When a request for an ad stops waiting for passback wrappers; none: no limit.
using Deadline = std::optional<Clock::time_point>;

std::shared_ptr<RKVLog> consoleLog() {
  return RKVLog::sharedInstance();
}

// The deadline of a request for an ad that starts now.
Deadline deadlineFrom(const RKVVASTManagerConfig& config) {
  const std::optional<double>& seconds = config.adRequestDeadline();
  if (!seconds) return std::nullopt;
  const Clock::time_point now = Clock::now();
  if (!(*seconds > 0)) return now;  // zero, negative or not a number: at once
  // Beyond a century the deadline is as good as none (and would overflow the clock).
  if (*seconds > 3.2e9) return std::nullopt;
  return now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

}  // namespace

// The manager's state and logic. The public object is a shell around it so that background tasks
// can keep what they use alive after the manager is gone.
class RKV_HIDDEN RKVVASTManager::Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(RKVVASTManager* owner) : owner_(owner) {}

  void configure(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                 std::weak_ptr<RKVVASTManagerAdapter> adapter,
                 std::shared_ptr<RKVURLSession> sessionManager, RKVVASTManagerConfig config)
      RKV_EXCLUDES(mu_) {
    if (!sessionManager) sessionManager = RKVURLSession::sharedInstance();
    RKVVASTAdStores replaced;
    {
      RKVMutexLock lock(mu_);
      isResolvingPassbackWrappers_ = false;
      didResolvePassbackWrappers_ = false;
      ++passbackGeneration_;
      std::swap(replaced, stores_);
      delegate_.swap(delegate);
      adapter_.swap(adapter);
      session_.swap(sessionManager);
      config_ = config;
    }
    // What was replaced is released here, without the mutex.
  }

  // The manager is being destroyed: no delegate or adapter call starts from now on, those under
  // way on other threads end before this returns, and passback tasks not yet started skip their
  // fetches. Fetches under way are not waited for.
  void detach() RKV_EXCLUDES(mu_) {
    {
      RKVMutexLock lock(mu_);
      owner_ = nullptr;
      delegate_.reset();
      adapter_.reset();
    }
    delegateCalls_.close();
  }

  // Forgets the delegate, then waits for its calls under way on other threads: a call enters
  // the gate under the mutex, together with its copy of the delegate, so none starts after this.
  void cancel() RKV_EXCLUDES(mu_) {
    {
      RKVMutexLock lock(mu_);
      delegate_.reset();
    }
    delegateCalls_.drain();
  }

  bool isDetached() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return owner_ == nullptr;
  }

  // --- Accessors

  std::weak_ptr<RKVVASTManagerDelegate> delegate() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return delegate_;
  }
  std::weak_ptr<RKVVASTManagerAdapter> adapter() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return adapter_;
  }
  std::shared_ptr<RKVURLSession> session() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return session_;
  }
  RKVVASTManagerConfig config() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return config_;
  }
  std::shared_ptr<RKVVASTModel> rootVASTModel() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return rootVASTModel_;
  }
  Ads mainAdsStore() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.mainAds();
  }
  Ads inlinePassbackAdsStore() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.inlinePassbackAds();
  }
  Ads wrapperPassbackAdsStore() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.wrapperPassbackAds();
  }
  std::shared_ptr<RKVVASTAd> currentRootAd() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return currentRootAd_;
  }
  void setCurrentRootAd(std::shared_ptr<RKVVASTAd> ad) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    currentRootAd_.swap(ad);
  }
  bool isResolvingPassbackWrappers() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return isResolvingPassbackWrappers_;
  }
  bool didResolvePassbackWrappers() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return didResolvePassbackWrappers_;
  }

  // --- Stores

  void addMainAds(const Ads& ads) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    stores_.addMainAds(ads, currentRootAd_.get());
  }
  void addPassbackAds(const Ads& ads) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    if (rootVASTModel_) stores_.addPassbackAds(ads, *rootVASTModel_);
  }
  Ads consumableMainAds() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.consumableMainAds();
  }
  bool hasInlinePassbacksAvailable() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.hasInlinePassbacksAvailable();
  }
  bool hasWrapperPassbacksAvailable() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return stores_.hasWrapperPassbacksAvailable();
  }

  // --- The protocol

  void createAdsStore(std::optional<std::string_view> xml, const std::optional<RKVURL>& url,
                      double timeout) RKV_EXCLUDES(mu_) {
    bool hasDelegate;
    bool hasAdapter;
    std::shared_ptr<RKVURLSession> session;
    {
      RKVMutexLock lock(mu_);
      // expired(), not lock(): a temporary owner could end up destroying the delegate here.
      hasDelegate = !delegate_.expired();
      hasAdapter = !adapter_.expired();
      session = session_;
    }
    if (!hasDelegate) {
      consoleLog()->logDebug("VAST Manager cannot work without its delegate set!");
      return;
    }
    if (!hasAdapter) {
      consoleLog()->logDebug("VAST Manager cannot work without its adapter set!");
      return;
    }
    RKVVASTModelGenerator generator(session, false);
    RKVVASTParserResponse response = generator.generateVASTModelFromXML(
        xml, url, timeout,
        [this](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs,
               const std::optional<std::string>& vastText) {
          reportError(error, errorURLs, vastText);
        });
    const std::shared_ptr<RKVVASTModel>& model = response.model();
    if (!model) {
      tellDelegate("RKVVASTManagerDelegate::vastManagerDidFailWithError",
                   [&response](RKVVASTManagerDelegate& delegate, RKVVASTManager&) {
                     delegate.vastManagerDidFailWithError(response.error());
                   });
      return;
    }
    {
      RKVMutexLock lock(mu_);
      rootVASTModel_ = model;
    }
    addMainAds(model->mainAds());
    addPassbackAds(model->passbackAds());
    tellDelegate("RKVVASTManagerDelegate::vastManagerIsReadyToProvideAds",
                 [](RKVVASTManagerDelegate& delegate, RKVVASTManager&) {
                   delegate.vastManagerIsReadyToProvideAds();
                 });
  }

  RKVVASTManagerResponse nextAd(double timeout, bool dueToAdFailure) RKV_EXCLUDES(mu_) {
    using Codes = RKVVASTErrorCodes;
    const Deadline deadline = deadlineFrom(config());
    if (timeout <= 0) return {nullptr, Codes::errorWithCode(Codes::ManagerTimeout)};
    if (!rootVASTModel()) return {nullptr, Codes::errorWithCode(Codes::UnableToCreateVASTModel)};
    if (dueToAdFailure) {
      if (auto ad = findNextPassbackAd(deadline)) return {std::move(ad), std::nullopt};
      if (isResolvingPassbackWrappers())
        return {nullptr, Codes::errorWithCode(Codes::PassbackResolutionIncomplete)};
      return {nullptr, Codes::errorWithCode(Codes::NoMorePassback)};
    }
    if (auto ad = findNextMainAd(deadline)) return {std::move(ad), std::nullopt};
    return {nullptr, Codes::errorWithCode(Codes::NoMoreAdsAvailable)};
  }

  // --- Resolution

  std::shared_ptr<RKVConsumableVideoAd> findNextMainAd(const Deadline& deadline) RKV_EXCLUDES(mu_) {
    // Each round starts again from the first main ad not yet consumed (a loop rather than the
    // recursion it stands for, so that a long store cannot exhaust the stack).
    while (true) {
      const Ads snapshot = consumableMainAds();
      bool startAgain = false;
      for (const auto& ad : snapshot) {
        if (!take(*ad)) continue;  // another caller took it meanwhile
        if (!ad->isValid()) {
          if (auto passback = findNextPassbackAd(deadline)) return passback;
          startAgain = true;
          break;
        }
        if (ad->isInline()) return convert(ad);

        const RKVVASTManagerConfig settings = config();
        if (ad->wrapperDepth() >= settings.maximumWrappers()) {
          reportLimitReached(*ad);
          if (auto passback = findNextPassbackAd(deadline)) return passback;
          startAgain = true;
          break;
        }
        const RKVVASTParserResponse response =
            resolveWrapper(ad, settings.requestTimeout(), mainPathErrorHandler(ad));
        if (response.model() && !response.error()) {
          insertResolvedAds(ad, *response.model(), settings.handleWrappersAdpods());
          startAgain = true;
          break;
        }
        if (response.error()) {
          checkIfWrapperErrorShouldTriggerVNoAdPixel(*response.error(), ad);
          if (auto passback = findNextPassbackAd(deadline)) return passback;
          startAgain = true;
          break;
        }
        // Neither a model nor an error (an empty answer): on with the next ad of the snapshot.
      }
      if (!startAgain) return nullptr;
    }
  }

  RKVVASTParserResponse resolveWrapper(const std::shared_ptr<RKVVASTAd>& ad, double timeout,
                                       const RKVVASTErrorHandler& errorHandler) RKV_EXCLUDES(mu_) {
    if (!ad || !ad->isWrapper()) {
      return {nullptr, RKVVASTErrorCodes::errorWithCode(RKVVASTErrorCodes::NoAdAvailable)};
    }
    const std::optional<RKVURL> adTagURL = ad->nextActionURL();
    if (!adTagURL) {
      return refuseWrapper(RKVVASTError::VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI(),
                           errorHandler);
    }
    std::shared_ptr<RKVVASTModel> root;
    std::shared_ptr<RKVURLSession> session;
    bool strict;
    {
      RKVMutexLock lock(mu_);
      root = rootVASTModel_;
      session = session_;
      strict = config_.strictWrapperFirstLevelImpressionValidation();
    }
    const bool firstLevel = root && root->isOwnerOf(ad.get());
    if (firstLevel && strict && ad->impressions().empty()) {
      return refuseWrapper(RKVVASTError::VAST_VALIDATION_ERROR_MISSING_IMPRESSION(), errorHandler);
    }
    if (firstLevel) {
      tellDelegate("RKVVASTManagerDelegate::didStartToResolveWrapperAd",
                   [&ad](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
                     delegate.didStartToResolveWrapperAd(manager, ad);
                   });
    }
    RKVVASTModelGenerator generator(session, true);
    return generator.generateVASTModelFromXML(std::nullopt, adTagURL, timeout, errorHandler);
  }

  std::shared_ptr<RKVConsumableVideoAd> findNextPassbackAd(const Deadline& deadline)
      RKV_EXCLUDES(mu_) {
    while (true) {
      std::shared_ptr<RKVVASTAd> ad;
      bool wrappersLeft;
      {
        RKVMutexLock lock(mu_);
        ad = stores_.takeInlinePassback();
        wrappersLeft = stores_.hasWrapperPassbacksAvailable();
      }
      if (ad) {
        if (ad->isValid()) return convert(ad);
        continue;
      }
      return wrappersLeft ? resolvePassbackWrappers(deadline) : nullptr;
    }
  }

  std::shared_ptr<RKVConsumableVideoAd> resolvePassbackWrappers(const Deadline& deadline)
      RKV_EXCLUDES(mu_);

  std::shared_ptr<RKVVASTAd> transformWrapperToInline(std::shared_ptr<RKVVASTAd> ad)
      RKV_EXCLUDES(mu_) {
    // Each level's result is transformed in turn (a loop for the recursion of one level).
    while (ad) {
      if (ad->hasBeenConsumed()) return nullptr;
      consoleLog()->logDebugWithFormat("Transforming wrapper ad: {}",
                                       RKVUtils::nullableDescription(ad->adID()));
      if (ad->isInline()) {
        RKVMutexLock lock(mu_);
        stores_.addInlinePassback(ad);
        return ad;
      }
      if (!ad->isWrapper() || !take(*ad)) return nullptr;

      const RKVVASTManagerConfig settings = config();
      // One level more than the main path follows: the passback path is the last chance of an
      // ad break, so it still fetches a wrapper at the limit. Both limits are kept on purpose.
      if (ad->wrapperDepth() > settings.maximumWrappers()) {
        reportLimitReached(*ad);
        return nullptr;
      }
      const RKVVASTParserResponse response =
          resolveWrapper(ad, settings.requestTimeout(),
                         [this, ad](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs,
                                    const std::optional<std::string>& vastText) {
                           // On this path the wrapper's error URLs go with every error, VAST code
                           // or not.
                           const std::vector<RKVVASTURL>& pixels = ad->errorPixels();
                           errorURLs.insert(errorURLs.end(), pixels.begin(), pixels.end());
                           reportError(error, errorURLs, vastText);
                         });
      if (response.model()) {
        std::shared_ptr<RKVVASTAd> first = response.model()->firstAd();
        if (!first) return nullptr;
        first->merge(*ad);
        ad = std::move(first);
        continue;
      }
      if (response.error()) checkIfWrapperErrorShouldTriggerVNoAdPixel(*response.error(), ad);
      return nullptr;
    }
    return nullptr;
  }

  void checkIfWrapperErrorShouldTriggerVNoAdPixel(const RKVError& error,
                                                  const std::shared_ptr<RKVVASTAd>& ad)
      RKV_EXCLUDES(mu_) {
    static const int64_t noAdCode =
        RKVVASTError::VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER().vireoCode();
    if (!RKVVASTErrorCodes::isInDomain(error) || !error.vastError) return;
    if (error.vastError->vireoCode() != noAdCode) return;
    tellDelegate("RKVVASTManagerDelegate::didFailToResolveWrapperAd",
                 [&ad](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
                   delegate.didFailToResolveWrapperAd(manager, ad);
                 });
  }

 private:
  class PassbackTask;

  // Checks and consumes in one step, so that two threads never both take an ad.
  bool take(RKVVASTAd& ad) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return RKVVASTAdStores::take(ad);
  }

  // The adapter's player ad for `ad`; null without an adapter or when the adapter threw. Called
  // without the mutex held.
  std::shared_ptr<RKVConsumableVideoAd> convert(const std::shared_ptr<RKVVASTAd>& ad)
      RKV_EXCLUDES(mu_) {
    std::shared_ptr<RKVVASTManagerAdapter> adapter;
    {
      RKVMutexLock lock(mu_);
      adapter = adapter_.lock();
    }
    if (!adapter) return nullptr;
    return internal::callHostOrDefault(
        "RKVVASTManagerAdapter::convertVASTAdToConsumableVideoAd",
        [&] { return adapter->convertVASTAdToConsumableVideoAd(ad); });
  }

  // Calls the delegate, when there is one and the manager is alive, without the mutex held. The
  // copy of the delegate and the entry into the gate happen under the mutex, so that cancel and
  // destruction (which forget the delegate under it, then wait at the gate) wait for this call.
  template <typename Call>
  void tellDelegate(std::string_view site, const Call& call) RKV_EXCLUDES(mu_) {
    std::shared_ptr<RKVVASTManagerDelegate> delegate;
    RKVVASTManager* owner;
    std::optional<internal::RKVCallGate::Pass> pass;  // left before the delegate is released
    {
      RKVMutexLock lock(mu_);
      delegate = delegate_.lock();
      owner = owner_;
      if (!delegate || !owner) return;
      pass.emplace(delegateCalls_.enter());
      if (!*pass) return;
    }
    internal::callHost(site, [&] { call(*delegate, *owner); });
  }

  void reportError(const RKVVASTError& error, const std::vector<RKVVASTURL>& errorURLs,
                   const std::optional<std::string>& vastText) RKV_EXCLUDES(mu_) {
    tellDelegate("RKVVASTManagerDelegate::didEncounterError",
                 [&](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
                   delegate.didEncounterError(manager, error, errorURLs, vastText);
                 });
  }

  void reportLimitReached(const RKVVASTAd& ad) RKV_EXCLUDES(mu_) {
    reportError(RKVVASTError::VAST_WRAPPER_ERROR_LIMIT_REACHED(), ad.errorPixels(), std::nullopt);
  }

  // The validation refusals of resolveWrapper: reported with a fresh list and no text.
  static RKVVASTParserResponse refuseWrapper(const RKVVASTError& error,
                                             const RKVVASTErrorHandler& errorHandler) {
    std::vector<RKVVASTURL> errorURLs;
    if (errorHandler) errorHandler(error, errorURLs, std::nullopt);
    return {nullptr, error.error()};
  }

  // The error handler of a main wrapper: a failure without a VAST code fires nothing; any other
  // also fires the error URLs of the ad at the wrapper's place in the main store.
  RKVVASTErrorHandler mainPathErrorHandler(const std::shared_ptr<RKVVASTAd>& wrapper) {
    return [this, wrapper](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs,
                           const std::optional<std::string>& vastText) {
      if (error.VASTCode() == -1) {
        errorURLs.clear();
      } else {
        std::vector<RKVVASTURL> pixels;
        {
          RKVMutexLock lock(mu_);
          pixels = stores_.mainErrorPixelsAtPlaceOf(wrapper.get());
        }
        errorURLs.insert(errorURLs.end(), pixels.begin(), pixels.end());
      }
      reportError(error, errorURLs, vastText);
    };
  }

  // The ads a main wrapper led to take the places right after it, in order, each carrying the
  // wrapper merged in. The wrapper itself stays (consumed) in the store.
  void insertResolvedAds(const std::shared_ptr<RKVVASTAd>& wrapper, const RKVVASTModel& model,
                         bool handleWrappersAdpods) RKV_EXCLUDES(mu_) {
    Ads resolved;
    if (handleWrappersAdpods) {
      resolved = model.mainAds();
    } else if (auto first = model.firstAd()) {
      resolved.push_back(std::move(first));
    }
    // Nobody else sees these ads yet: merge before they are published.
    for (const auto& ad : resolved)
      ad->merge(*wrapper);
    RKVMutexLock lock(mu_);
    stores_.insertMainAdsAfter(wrapper.get(), resolved);
  }

  // A passback task's result goes into the slot when the slot is still empty; true when it did
  // (the caller is woken by finishPassbackTask, once the flags are settled).
  bool offerPassbackResult(RKVPassbackResolution& resolution,
                           const std::shared_ptr<RKVVASTAd>& result) RKV_EXCLUDES(mu_);
  // The end of one passback task, with or without a result. When every wrapper passback has
  // been taken up (or this was the last task) the flags move to "resolved"; then the caller is
  // woken if this task filled the slot, or if the slot is still empty in that case.
  void finishPassbackTask(RKVPassbackResolution& resolution, bool filledSlot) RKV_EXCLUDES(mu_);

  mutable RKVMutex mu_;
  // Delegate calls under way, waited for by cancel and destruction.
  internal::RKVCallGate delegateCalls_;
  RKVVASTManager* owner_ RKV_GUARDED_BY(mu_);
  std::weak_ptr<RKVVASTManagerDelegate> delegate_ RKV_GUARDED_BY(mu_);
  std::weak_ptr<RKVVASTManagerAdapter> adapter_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVURLSession> session_ RKV_GUARDED_BY(mu_);
  RKVVASTManagerConfig config_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVVASTModel> rootVASTModel_ RKV_GUARDED_BY(mu_);
  RKVVASTAdStores stores_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVVASTAd> currentRootAd_ RKV_GUARDED_BY(mu_);
  bool isResolvingPassbackWrappers_ RKV_GUARDED_BY(mu_) = false;
  bool didResolvePassbackWrappers_ RKV_GUARDED_BY(mu_) = false;
  // Counts configurations, so that tasks of a resolution started before a reconfiguration leave
  // the new flags alone.
  uint64_t passbackGeneration_ RKV_GUARDED_BY(mu_) = 0;
};

// One wrapper passback being resolved on the background executor, owned by the submitted task.
// When the executor drops the task unrun (it is shutting down), the destructor still counts the
// task as finished (its wrapper consumed, without a result), so the caller is never left waiting.
// A task that starts after the manager is gone takes up its wrapper without fetching it: nobody
// can ask for the result, and a process that is exiting should not start new transfers.
class RKVVASTManager::Core::PassbackTask {
 public:
  PassbackTask(std::shared_ptr<Core> core, std::shared_ptr<RKVPassbackResolution> resolution,
               std::shared_ptr<RKVVASTAd> wrapper)
      : core_(std::move(core)), resolution_(std::move(resolution)), wrapper_(std::move(wrapper)) {}
  ~PassbackTask() {
    if (!ran_) skip();
  }
  PassbackTask(const PassbackTask&) = delete;
  PassbackTask& operator=(const PassbackTask&) = delete;

  void run() {
    ran_ = true;
    if (core_->isDetached()) {
      skip();
      return;
    }
    std::shared_ptr<RKVVASTAd> result = core_->transformWrapperToInline(wrapper_);
    if (result) {
      consoleLog()->logDebugWithFormat("Resolved wrapper ad: {}",
                                       RKVUtils::nullableDescription(result->adID()));
    }
    const bool filledSlot = core_->offerPassbackResult(*resolution_, result);
    core_->finishPassbackTask(*resolution_, filledSlot);
  }

 private:
  void skip() {
    core_->take(*wrapper_);
    core_->finishPassbackTask(*resolution_, false);
  }

  std::shared_ptr<Core> core_;
  std::shared_ptr<RKVPassbackResolution> resolution_;
  std::shared_ptr<RKVVASTAd> wrapper_;
  bool ran_ = false;
};

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::Core::resolvePassbackWrappers(
    const Deadline& deadline) {
  Ads wrappers;
  uint64_t generation;
  {
    RKVMutexLock lock(mu_);
    if (isResolvingPassbackWrappers_ || didResolvePassbackWrappers_ ||
        !stores_.hasWrapperPassbacksAvailable()) {
      return nullptr;
    }
    isResolvingPassbackWrappers_ = true;
    wrappers = stores_.wrapperPassbackAds();
    generation = passbackGeneration_;
  }
  auto resolution = std::make_shared<RKVPassbackResolution>(generation, wrappers.size());
  for (const auto& wrapper : wrappers) {
    auto task = std::make_shared<PassbackTask>(shared_from_this(), resolution, wrapper);
    RKVBackgroundExecutor::sharedInstance().submit([task] { task->run(); },
                                                   RKVTaskPriority::kBackground);
  }

  // Without a deadline there is no time limit: every task ends, its fetches being bounded by the
  // request time-out. With one, the caller leaves at the deadline as if woken with an empty slot.
  const RKVPassbackResolution::Outcome outcome = resolution->wait(deadline);
  if (outcome.deadlinePassed && !outcome.ad) {
    consoleLog()->logDebug("Passback resolution: the request's deadline passed.");
  }
  consoleLog()->logDebugWithFormat(
      "Returning resolved ad: {}",
      RKVUtils::nullableDescription(outcome.vastAd ? outcome.vastAd->adID() : std::nullopt));
  return outcome.ad;
}

bool RKVVASTManager::Core::offerPassbackResult(RKVPassbackResolution& resolution,
                                               const std::shared_ptr<RKVVASTAd>& result) {
  if (!result) return false;
  {
    RKVMutexLock lock(mu_);
    // The first task to find the slot empty wins, even after the caller was woken with an empty
    // slot (that result is consumed into a slot nobody reads). A result that loses stays,
    // unconsumed, in the inline passback store for a later call.
    if (result->hasBeenConsumed() || !resolution.claim()) return false;
    result->consume();
  }
  if (!result->isValid()) {
    resolution.release();
    return false;
  }
  resolution.fill(convert(result), result);
  return true;
}

void RKVVASTManager::Core::finishPassbackTask(RKVPassbackResolution& resolution, bool filledSlot) {
  const bool lastTask = resolution.finishTask();
  bool settled = false;
  {
    RKVMutexLock lock(mu_);
    if (lastTask || !stores_.hasWrapperPassbacksAvailable()) {
      settled = true;
      if (resolution.generation() == passbackGeneration_) {
        isResolvingPassbackWrappers_ = false;
        didResolvePassbackWrappers_ = true;
      }
    }
  }
  resolution.wakeAfterTask(filledSlot, settled);
}

// --- RKVVASTManager

RKVVASTManager::RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                               std::weak_ptr<RKVVASTManagerAdapter> adapter,
                               std::shared_ptr<RKVURLSession> sessionManager,
                               RKVVASTManagerConfig config)
    : core_(std::make_shared<Core>(this)) {
  configureWithDelegate(std::move(delegate), std::move(adapter), std::move(sessionManager), config);
}

RKVVASTManager::RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                               std::weak_ptr<RKVVASTManagerAdapter> adapter,
                               std::shared_ptr<RKVURLSession> sessionManager, double requestTimeout,
                               int64_t maximumWrappers, bool handleWrappersAdpods)
    : RKVVASTManager(
          std::move(delegate), std::move(adapter), std::move(sessionManager),
          RKVVASTManagerConfig(requestTimeout, maximumWrappers, handleWrappersAdpods, false)) {}

RKVVASTManager::RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                               std::weak_ptr<RKVVASTManagerAdapter> adapter,
                               std::shared_ptr<RKVURLSession> sessionManager,
                               const std::shared_ptr<RKVPixelManager>& /*pixelManager*/,
                               double requestTimeout, int64_t maximumWrappers,
                               bool handleWrappersAdpods)
    : RKVVASTManager(std::move(delegate), std::move(adapter), std::move(sessionManager),
                     requestTimeout, maximumWrappers, handleWrappersAdpods) {}

RKVVASTManager::~RKVVASTManager() {
  core_->detach();
}

void RKVVASTManager::configureWithDelegate(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                                           std::weak_ptr<RKVVASTManagerAdapter> adapter,
                                           std::shared_ptr<RKVURLSession> sessionManager,
                                           RKVVASTManagerConfig config) {
  core_->configure(std::move(delegate), std::move(adapter), std::move(sessionManager), config);
}

// Each operation holds the core for its whole run, so a delegate that destroys the manager from
// a callback does not pull the state from under it.
void RKVVASTManager::createAdsStoreWithXML(std::optional<std::string_view> xml,
                                           const std::optional<RKVURL>& url, double timeout) {
  std::shared_ptr<Core> core = core_;
  core->createAdsStore(xml, url, timeout);
}

RKVVASTManagerResponse RKVVASTManager::nextAdWithTimeout(double timeout, bool dueToAdFailure) {
  std::shared_ptr<Core> core = core_;
  return core->nextAd(timeout, dueToAdFailure);
}

void RKVVASTManager::cancel() {
  core_->cancel();
}

std::weak_ptr<RKVVASTManagerDelegate> RKVVASTManager::delegate() const {
  return core_->delegate();
}
std::weak_ptr<RKVVASTManagerAdapter> RKVVASTManager::adapter() const {
  return core_->adapter();
}
std::shared_ptr<RKVURLSession> RKVVASTManager::urlSessionManager() const {
  return core_->session();
}
RKVVASTManagerConfig RKVVASTManager::config() const {
  return core_->config();
}
std::shared_ptr<RKVVASTModel> RKVVASTManager::rootVASTModel() const {
  return core_->rootVASTModel();
}
RKVVASTManager::Ads RKVVASTManager::mainAdsStore() const {
  return core_->mainAdsStore();
}
RKVVASTManager::Ads RKVVASTManager::inlinePassbackAdsStore() const {
  return core_->inlinePassbackAdsStore();
}
RKVVASTManager::Ads RKVVASTManager::wrapperPassbackAdsStore() const {
  return core_->wrapperPassbackAdsStore();
}
std::shared_ptr<RKVVASTAd> RKVVASTManager::currentRootAd() const {
  return core_->currentRootAd();
}
void RKVVASTManager::setCurrentRootAd(std::shared_ptr<RKVVASTAd> ad) {
  core_->setCurrentRootAd(std::move(ad));
}
bool RKVVASTManager::isResolvingPassbackWrappers() const {
  return core_->isResolvingPassbackWrappers();
}
bool RKVVASTManager::didResolvePassbackWrappers() const {
  return core_->didResolvePassbackWrappers();
}

void RKVVASTManager::addMainAds(const Ads& ads) {
  core_->addMainAds(ads);
}
void RKVVASTManager::addPassbackAds(const Ads& ads) {
  core_->addPassbackAds(ads);
}
RKVVASTManager::Ads RKVVASTManager::consumableMainAds() const {
  return core_->consumableMainAds();
}
bool RKVVASTManager::hasInlinePassbacksAvailable() const {
  return core_->hasInlinePassbacksAvailable();
}
bool RKVVASTManager::hasWrapperPassbacksAvailable() const {
  return core_->hasWrapperPassbacksAvailable();
}

size_t RKVVASTManager::adIndex(const RKVVASTAd* ad, const Ads& inStore) {
  return RKVVASTAdStores::adIndex(ad, inStore);
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::findNextMainAd() {
  std::shared_ptr<Core> core = core_;
  return core->findNextMainAd(deadlineFrom(core->config()));
}

RKVVASTParserResponse RKVVASTManager::resolveWrapper(const std::shared_ptr<RKVVASTAd>& ad,
                                                     double timeout,
                                                     const RKVVASTErrorHandler& errorHandler) {
  std::shared_ptr<Core> core = core_;
  return core->resolveWrapper(ad, timeout, errorHandler);
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::findNextPassbackAd() {
  std::shared_ptr<Core> core = core_;
  return core->findNextPassbackAd(deadlineFrom(core->config()));
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::resolvePassbackWrappers() {
  std::shared_ptr<Core> core = core_;
  return core->resolvePassbackWrappers(deadlineFrom(core->config()));
}

std::shared_ptr<RKVVASTAd> RKVVASTManager::transformWrapperToInline(
    const std::shared_ptr<RKVVASTAd>& ad) {
  std::shared_ptr<Core> core = core_;
  return core->transformWrapperToInline(ad);
}

void RKVVASTManager::checkIfWrapperErrorShouldTriggerVNoAdPixel(
    const RKVError& error, const std::shared_ptr<RKVVASTAd>& ad) {
  std::shared_ptr<Core> core = core_;
  core->checkIfWrapperErrorShouldTriggerVNoAdPixel(error, ad);
}

}  // namespace rkv
