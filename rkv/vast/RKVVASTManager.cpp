#include "rkv/vast/RKVVASTManager.h"

#include <algorithm>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/log/RKVLog.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/errors/RKVVASTError.h"

namespace rkv {

namespace {

constexpr const char* kErrorDomain = "RKVVASTErrorDomain";

RKVError managerError(int64_t code, const char* description) {
  return RKVUtils::errorWithDomain(kErrorDomain, code, description);
}

bool storeContains(const RKVVASTManager::Ads& store, const RKVVASTAd* ad) {
  return std::any_of(store.begin(), store.end(),
                     [ad](const std::shared_ptr<RKVVASTAd>& entry) { return entry.get() == ad; });
}

bool hasUnconsumed(const RKVVASTManager::Ads& store) {
  return std::any_of(store.begin(), store.end(), [](const std::shared_ptr<RKVVASTAd>& entry) {
    return !entry->hasBeenConsumed();
  });
}

std::shared_ptr<RKVLog> consoleLog() {
  return RKVLog::sharedInstance();
}

}  // namespace

// The manager's state and logic. The public object is a shell around it so that background tasks
// can keep what they use alive after the manager is gone.
class RKVVASTManager::Core : public std::enable_shared_from_this<Core> {
 public:
  // One resolution of the passback wrappers: the result slot its tasks share and the semaphore its
  // caller waits on. Lock order: the manager's mutex first, then this one.
  struct PassbackResolution {
    explicit PassbackResolution(uint64_t passbackGeneration) : generation(passbackGeneration) {}

    const uint64_t generation;  // the manager's passback generation when it started
    RKVMutex mu;
    RKVCondVar signalled;
    std::shared_ptr<RKVConsumableVideoAd> slot RKV_GUARDED_BY(mu);
    std::shared_ptr<RKVVASTAd> slotAd RKV_GUARDED_BY(mu);  // what the slot was made of
    // A task won the slot and is converting its ad; the slot counts as full meanwhile.
    bool claimed RKV_GUARDED_BY(mu) = false;
    // A task put its result in the slot (the adapter may have made nothing of it).
    bool filled RKV_GUARDED_BY(mu) = false;
    // The caller has taken the slot; results that come later stay in the inline passback store.
    bool closed RKV_GUARDED_BY(mu) = false;
    int signals RKV_GUARDED_BY(mu) = 0;
    size_t unfinishedTasks RKV_GUARDED_BY(mu) = 0;
  };

  explicit Core(RKVVASTManager* owner) : owner_(owner) {}

  void configure(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                 std::weak_ptr<RKVVASTManagerAdapter> adapter,
                 std::shared_ptr<RKVURLSession> sessionManager, RKVVASTManagerConfig config)
      RKV_EXCLUDES(mu_) {
    if (!sessionManager) sessionManager = RKVURLSession::sharedInstance();
    Ads main;
    Ads inlinePassbacks;
    Ads wrapperPassbacks;
    {
      RKVMutexLock lock(mu_);
      isResolvingPassbackWrappers_ = false;
      didResolvePassbackWrappers_ = false;
      ++passbackGeneration_;
      main.swap(mainAdsStore_);
      inlinePassbacks.swap(inlinePassbackAdsStore_);
      wrapperPassbacks.swap(wrapperPassbackAdsStore_);
      delegate_.swap(delegate);
      adapter_.swap(adapter);
      session_.swap(sessionManager);
      config_ = config;
    }
    // What was replaced is released here, without the mutex.
  }

  // The manager is being destroyed: no delegate or adapter call starts from now on, and those
  // under way on other threads end before this returns.
  void detach() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    owner_ = nullptr;
    delegate_.reset();
    adapter_.reset();
    while (hasDelegateCallsOnOtherThreads())
      delegateCallsEnded_.wait(mu_);
  }

  void cancel() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    delegate_.reset();
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
    return mainAdsStore_;
  }
  Ads inlinePassbackAdsStore() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return inlinePassbackAdsStore_;
  }
  Ads wrapperPassbackAdsStore() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return wrapperPassbackAdsStore_;
  }
  std::shared_ptr<RKVVASTAd> currentRootAd() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return currentRootAd_;
  }
  void setCurrentRootAd(std::shared_ptr<RKVVASTAd> ad) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    currentRootAd_ = std::move(ad);
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
    if (!currentRootAd_) {
      mainAdsStore_.insert(mainAdsStore_.end(), ads.begin(), ads.end());
      return;
    }
    const RKVVASTAd* replaced = currentRootAd_.get();
    const size_t at = std::min(adIndex(replaced, mainAdsStore_) + 1, mainAdsStore_.size());
    mainAdsStore_.insert(mainAdsStore_.begin() + static_cast<std::ptrdiff_t>(at), ads.begin(),
                         ads.end());
    std::erase_if(mainAdsStore_, [replaced](const std::shared_ptr<RKVVASTAd>& ad) {
      return ad.get() == replaced;
    });
  }

  void addPassbackAds(const Ads& ads) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    if (!rootVASTModel_) return;
    for (const auto& ad : ads) {
      if (!ad || !rootVASTModel_->isOwnerOf(ad.get())) continue;
      if (ad->isInline()) {
        if (!storeContains(inlinePassbackAdsStore_, ad.get()))
          inlinePassbackAdsStore_.push_back(ad);
      } else if (ad->isWrapper() && !storeContains(wrapperPassbackAdsStore_, ad.get())) {
        wrapperPassbackAdsStore_.push_back(ad);
      }
    }
  }

  Ads consumableMainAds() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    Ads consumable;
    for (const auto& ad : mainAdsStore_) {
      if (!ad->hasBeenConsumed()) consumable.push_back(ad);
    }
    return consumable;
  }

  bool hasInlinePassbacksAvailable() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return hasUnconsumed(inlinePassbackAdsStore_);
  }

  bool hasWrapperPassbacksAvailable() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return hasUnconsumed(wrapperPassbackAdsStore_);
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
      tellDelegate([&response](RKVVASTManagerDelegate& delegate, RKVVASTManager&) {
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
    tellDelegate([](RKVVASTManagerDelegate& delegate, RKVVASTManager&) {
      delegate.vastManagerIsReadyToProvideAds();
    });
  }

  RKVVASTManagerResponse nextAd(double timeout, bool dueToAdFailure) RKV_EXCLUDES(mu_) {
    if (timeout <= 0) return {nullptr, managerError(kErrorTimeout, "VASTManager Timeout.")};
    if (!rootVASTModel())
      return {nullptr, managerError(kErrorNoModel, "Unable to create VAST Model.")};
    if (dueToAdFailure) {
      if (auto ad = findNextPassbackAd()) return {std::move(ad), std::nullopt};
      if (isResolvingPassbackWrappers()) {
        return {nullptr, managerError(kErrorPassbackResolutionIncomplete,
                                      "Passback resolution incomplete.")};
      }
      return {nullptr, managerError(kErrorNoMorePassback, "No more Passback.")};
    }
    if (auto ad = findNextMainAd()) return {std::move(ad), std::nullopt};
    return {nullptr, managerError(kErrorNoMoreAds, "No more ads available.")};
  }

  // --- Resolution

  std::shared_ptr<RKVConsumableVideoAd> findNextMainAd() RKV_EXCLUDES(mu_) {
    // Each round starts again from the first main ad not yet consumed (a loop rather than the
    // recursion it stands for, so that a long store cannot exhaust the stack).
    while (true) {
      const Ads snapshot = consumableMainAds();
      bool startAgain = false;
      for (const auto& ad : snapshot) {
        if (!take(*ad)) continue;  // another caller took it meanwhile
        if (!ad->isValid()) {
          if (auto passback = findNextPassbackAd()) return passback;
          startAgain = true;
          break;
        }
        if (ad->isInline()) return convert(ad);

        const RKVVASTManagerConfig settings = config();
        if (ad->wrapperDepth() >= settings.maximumWrappers()) {
          reportLimitReached(*ad);
          if (auto passback = findNextPassbackAd()) return passback;
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
          if (auto passback = findNextPassbackAd()) return passback;
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
      return {nullptr, managerError(kErrorNoAdAvailable, "No ad available.")};
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
      tellDelegate([&ad](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
        delegate.didStartToResolveWrapperAd(manager, ad);
      });
    }
    RKVVASTModelGenerator generator(session, true);
    return generator.generateVASTModelFromXML(std::nullopt, adTagURL, timeout, errorHandler);
  }

  std::shared_ptr<RKVConsumableVideoAd> findNextPassbackAd() RKV_EXCLUDES(mu_) {
    while (true) {
      std::shared_ptr<RKVVASTAd> ad;
      bool wrappersLeft;
      {
        RKVMutexLock lock(mu_);
        for (const auto& candidate : inlinePassbackAdsStore_) {
          if (!candidate->hasBeenConsumed()) {
            candidate->consume();
            ad = candidate;
            break;
          }
        }
        wrappersLeft = hasUnconsumed(wrapperPassbackAdsStore_);
      }
      if (ad) {
        if (ad->isValid()) return convert(ad);
        continue;
      }
      return wrappersLeft ? resolvePassbackWrappers() : nullptr;
    }
  }

  std::shared_ptr<RKVConsumableVideoAd> resolvePassbackWrappers() RKV_EXCLUDES(mu_);

  std::shared_ptr<RKVVASTAd> transformWrapperToInline(std::shared_ptr<RKVVASTAd> ad)
      RKV_EXCLUDES(mu_) {
    // Each level's result is transformed in turn (a loop for the recursion of one level).
    while (ad) {
      if (ad->hasBeenConsumed()) return nullptr;
      consoleLog()->logDebugWithFormat("Transforming wrapper ad: {}",
                                       RKVUtils::nullableDescription(ad->adID()));
      if (ad->isInline()) {
        RKVMutexLock lock(mu_);
        if (!storeContains(inlinePassbackAdsStore_, ad.get()))
          inlinePassbackAdsStore_.push_back(ad);
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
    if (error.domain != kErrorDomain || !error.vastError) return;
    if (error.vastError->vireoCode() != noAdCode) return;
    tellDelegate([&ad](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
      delegate.didFailToResolveWrapperAd(manager, ad);
    });
  }

 private:
  struct PassbackTask;

  // Checks and consumes in one step, so that two threads never both take an ad.
  bool take(RKVVASTAd& ad) RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    if (ad.hasBeenConsumed()) return false;
    ad.consume();
    return true;
  }

  // The adapter's player ad for `ad`; null without an adapter. Called without the mutex held.
  std::shared_ptr<RKVConsumableVideoAd> convert(const std::shared_ptr<RKVVASTAd>& ad)
      RKV_EXCLUDES(mu_) {
    std::shared_ptr<RKVVASTManagerAdapter> adapter;
    {
      RKVMutexLock lock(mu_);
      adapter = adapter_.lock();
    }
    if (!adapter) return nullptr;
    try {
      return adapter->convertVASTAdToConsumableVideoAd(ad);
    } catch (...) {
      consoleLog()->logError("VAST Manager: the adapter threw while converting an ad.");
      return nullptr;
    }
  }

  // Calls the delegate, when there is one and the manager is alive, without the mutex held. The
  // call is counted so that the manager's destruction can wait for it.
  template <typename Call>
  void tellDelegate(const Call& call) RKV_EXCLUDES(mu_) {
    std::shared_ptr<RKVVASTManagerDelegate> delegate;
    RKVVASTManager* owner;
    {
      RKVMutexLock lock(mu_);
      delegate = delegate_.lock();
      owner = owner_;
      if (!delegate || !owner) return;
      delegateCalls_.push_back(std::this_thread::get_id());
    }
    try {
      call(*delegate, *owner);
    } catch (...) {
      consoleLog()->logError("VAST Manager: the delegate threw; the exception was dropped.");
    }
    RKVMutexLock lock(mu_);
    auto it = std::find(delegateCalls_.begin(), delegateCalls_.end(), std::this_thread::get_id());
    if (it != delegateCalls_.end()) delegateCalls_.erase(it);
    delegateCallsEnded_.notifyAll();
  }

  bool hasDelegateCallsOnOtherThreads() const RKV_REQUIRES(mu_) {
    const std::thread::id self = std::this_thread::get_id();
    for (const std::thread::id& id : delegateCalls_) {
      if (id != self) return true;
    }
    return false;
  }

  void reportError(const RKVVASTError& error, const std::vector<RKVVASTURL>& errorURLs,
                   const std::optional<std::string>& vastText) RKV_EXCLUDES(mu_) {
    tellDelegate([&](RKVVASTManagerDelegate& delegate, RKVVASTManager& manager) {
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
          if (!mainAdsStore_.empty()) {
            pixels = mainAdsStore_[adIndex(wrapper.get(), mainAdsStore_)]->errorPixels();
          }
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
    const size_t at = std::min(adIndex(wrapper.get(), mainAdsStore_) + 1, mainAdsStore_.size());
    mainAdsStore_.insert(mainAdsStore_.begin() + static_cast<std::ptrdiff_t>(at), resolved.begin(),
                         resolved.end());
  }

  // A passback task's result goes into the slot when the slot is still empty; true when it did
  // (the caller is woken by finishPassbackTask, once the flags are settled).
  bool offerPassbackResult(PassbackResolution& resolution, const std::shared_ptr<RKVVASTAd>& result)
      RKV_EXCLUDES(mu_);
  // The end of one passback task, with or without a result. When every wrapper passback has
  // been taken up (or this was the last task) the flags move to "resolved"; then the caller is
  // woken if this task filled the slot, or if the slot is still empty in that case.
  void finishPassbackTask(PassbackResolution& resolution, bool filledSlot) RKV_EXCLUDES(mu_);

  mutable RKVMutex mu_;
  RKVCondVar delegateCallsEnded_;
  RKVVASTManager* owner_ RKV_GUARDED_BY(mu_);
  std::weak_ptr<RKVVASTManagerDelegate> delegate_ RKV_GUARDED_BY(mu_);
  std::weak_ptr<RKVVASTManagerAdapter> adapter_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVURLSession> session_ RKV_GUARDED_BY(mu_);
  RKVVASTManagerConfig config_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVVASTModel> rootVASTModel_ RKV_GUARDED_BY(mu_);
  Ads mainAdsStore_ RKV_GUARDED_BY(mu_);
  Ads inlinePassbackAdsStore_ RKV_GUARDED_BY(mu_);
  Ads wrapperPassbackAdsStore_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVVASTAd> currentRootAd_ RKV_GUARDED_BY(mu_);
  bool isResolvingPassbackWrappers_ RKV_GUARDED_BY(mu_) = false;
  bool didResolvePassbackWrappers_ RKV_GUARDED_BY(mu_) = false;
  // Counts configurations, so that tasks of a resolution started before a reconfiguration leave
  // the new flags alone.
  uint64_t passbackGeneration_ RKV_GUARDED_BY(mu_) = 0;
  // One entry per delegate call under way: the thread making it.
  std::vector<std::thread::id> delegateCalls_ RKV_GUARDED_BY(mu_);
};

// One wrapper passback being resolved on the background executor, owned by the submitted task.
// When the executor drops the task unrun (it is shutting down), the destructor still counts the
// task as finished (its wrapper consumed, without a result), so the caller is never left waiting.
struct RKVVASTManager::Core::PassbackTask {
  PassbackTask(std::shared_ptr<Core> core, std::shared_ptr<PassbackResolution> resolution,
               std::shared_ptr<RKVVASTAd> wrapper)
      : core_(std::move(core)), resolution_(std::move(resolution)), wrapper_(std::move(wrapper)) {}
  ~PassbackTask() {
    if (ran_) return;
    core_->take(*wrapper_);
    core_->finishPassbackTask(*resolution_, false);
  }
  PassbackTask(const PassbackTask&) = delete;
  PassbackTask& operator=(const PassbackTask&) = delete;

  void run() {
    ran_ = true;
    std::shared_ptr<RKVVASTAd> result = core_->transformWrapperToInline(wrapper_);
    if (result) {
      consoleLog()->logDebugWithFormat("Resolved wrapper ad: {}",
                                       RKVUtils::nullableDescription(result->adID()));
    }
    const bool filledSlot = core_->offerPassbackResult(*resolution_, result);
    core_->finishPassbackTask(*resolution_, filledSlot);
  }

 private:
  std::shared_ptr<Core> core_;
  std::shared_ptr<PassbackResolution> resolution_;
  std::shared_ptr<RKVVASTAd> wrapper_;
  bool ran_ = false;
};

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::Core::resolvePassbackWrappers() {
  Ads wrappers;
  uint64_t generation;
  {
    RKVMutexLock lock(mu_);
    if (isResolvingPassbackWrappers_ || didResolvePassbackWrappers_ ||
        !hasUnconsumed(wrapperPassbackAdsStore_)) {
      return nullptr;
    }
    isResolvingPassbackWrappers_ = true;
    wrappers = wrapperPassbackAdsStore_;
    generation = passbackGeneration_;
  }
  auto resolution = std::make_shared<PassbackResolution>(generation);
  {
    RKVMutexLock lock(resolution->mu);
    resolution->unfinishedTasks = wrappers.size();
  }
  for (const auto& wrapper : wrappers) {
    auto task = std::make_shared<PassbackTask>(shared_from_this(), resolution, wrapper);
    RKVBackgroundExecutor::sharedInstance().submit([task] { task->run(); },
                                                   RKVTaskPriority::kBackground);
  }

  std::shared_ptr<RKVConsumableVideoAd> result;
  std::shared_ptr<RKVVASTAd> resultAd;
  {
    // No time limit: every task ends, its fetches being bounded by the request time-out.
    RKVMutexLock lock(resolution->mu);
    while (resolution->signals == 0)
      resolution->signalled.wait(resolution->mu);
    resolution->closed = true;
    result = resolution->slot;
    resultAd = resolution->slotAd;
  }
  consoleLog()->logDebugWithFormat(
      "Returning resolved ad: {}",
      RKVUtils::nullableDescription(resultAd ? resultAd->adID() : std::nullopt));
  return result;
}

bool RKVVASTManager::Core::offerPassbackResult(PassbackResolution& resolution,
                                               const std::shared_ptr<RKVVASTAd>& result) {
  if (!result) return false;
  {
    RKVMutexLock lock(mu_);
    RKVMutexLock slotLock(resolution.mu);
    // The first task to find the slot empty wins. A slot that is being filled, filled or taken
    // is not empty; a result that loses stays in the inline passback store for a later call.
    if (resolution.closed || resolution.claimed || resolution.filled || result->hasBeenConsumed()) {
      return false;
    }
    result->consume();
    resolution.claimed = true;
  }
  std::shared_ptr<RKVConsumableVideoAd> converted;
  const bool valid = result->isValid();
  if (valid) converted = convert(result);
  RKVMutexLock slotLock(resolution.mu);
  resolution.claimed = false;
  if (!valid) return false;
  resolution.filled = true;
  resolution.slot = std::move(converted);
  resolution.slotAd = result;
  return true;
}

void RKVVASTManager::Core::finishPassbackTask(PassbackResolution& resolution, bool filledSlot) {
  bool lastTask;
  {
    RKVMutexLock slotLock(resolution.mu);
    lastTask = --resolution.unfinishedTasks == 0;
  }
  bool settled = false;
  {
    RKVMutexLock lock(mu_);
    if (lastTask || !hasUnconsumed(wrapperPassbackAdsStore_)) {
      settled = true;
      if (resolution.generation == passbackGeneration_) {
        isResolvingPassbackWrappers_ = false;
        didResolvePassbackWrappers_ = true;
      }
    }
  }
  RKVMutexLock slotLock(resolution.mu);
  if (filledSlot || (settled && !resolution.filled && !resolution.claimed)) {
    ++resolution.signals;
    resolution.signalled.notifyAll();
  }
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
  for (size_t i = 0; i < inStore.size(); ++i) {
    if (inStore[i].get() == ad) return i;
  }
  return 0;
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::findNextMainAd() {
  std::shared_ptr<Core> core = core_;
  return core->findNextMainAd();
}

RKVVASTParserResponse RKVVASTManager::resolveWrapper(const std::shared_ptr<RKVVASTAd>& ad,
                                                     double timeout,
                                                     const RKVVASTErrorHandler& errorHandler) {
  std::shared_ptr<Core> core = core_;
  return core->resolveWrapper(ad, timeout, errorHandler);
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::findNextPassbackAd() {
  std::shared_ptr<Core> core = core_;
  return core->findNextPassbackAd();
}

std::shared_ptr<RKVConsumableVideoAd> RKVVASTManager::resolvePassbackWrappers() {
  std::shared_ptr<Core> core = core_;
  return core->resolvePassbackWrappers();
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
