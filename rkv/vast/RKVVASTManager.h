// RKVVASTManager: turns one VAST answer into a sequence of playable ads. It keeps the root
// document's ads in a main store and two passback stores, resolves wrappers by fetching their
// ad-tag URIs (merging each wrapper into the ads it leads to), reports VAST failures with the
// error URLs to fire to its delegate, and hands out the adapter's player ads one at a time.
//
// Thread-safe. Every operation is synchronous on the calling thread, which must be neither the
// main thread nor the HTTP session's network thread: wrapper fetches block it (each bounded by
// the config's requestTimeout), and passback resolution blocks it until a background task has a
// result. The stores, the passback flags and the passback result slot are guarded by one mutex
// that is never held while the delegate, the adapter or the network is called. An ad is taken
// (checked and consumed) under that mutex, so it is handed out at most once even when several
// threads ask at a time. docs/ARCHITECTURE.md ("The VAST manager") has the details.
//
// Errors are records of RKVVASTErrorCodes::Domain with the manager's codes listed there.
//
// Lifetime: background tasks of a passback resolution may outlive the call that started them
// (results that lost the race for the slot then wait in the inline passback store) and even the
// manager; they keep the state they need alive themselves. Destruction forgets the delegate and
// the adapter and waits for delegate calls under way on other threads, so no delegate call names
// a destroyed manager (do not destroy a manager while holding a lock that its delegate takes);
// it does not wait for fetches, and tasks that start afterwards fetch nothing. Delegate and
// adapter calls that throw are caught and logged at error level.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/vast/RKVConsumableVideoAd.h"
#include "rkv/vast/RKVVASTManagerAdapter.h"
#include "rkv/vast/RKVVASTManagerConfig.h"
#include "rkv/vast/RKVVASTManagerDelegate.h"
#include "rkv/vast/RKVVASTManagerProtocol.h"
#include "rkv/vast/RKVVASTManagerResponse.h"
#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/RKVVASTParserResponse.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"

namespace rkv {

// The pixel manager is accepted by one initialiser for compatibility and not used.
class RKVPixelManager;

class RKV_EXPORT RKVVASTManager : public RKVVASTManagerProtocol {
 public:
  using Ads = std::vector<std::shared_ptr<RKVVASTAd>>;

  // A null session means the shared one (RKVURLSession::sharedInstance()). The delegate and the
  // adapter are held weakly: the host keeps them alive.
  RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                 std::weak_ptr<RKVVASTManagerAdapter> adapter,
                 std::shared_ptr<RKVURLSession> sessionManager, RKVVASTManagerConfig config);
  // A config of the given time-out (seconds), wrapper limit and pod handling; strict first-level
  // impression validation off.
  RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                 std::weak_ptr<RKVVASTManagerAdapter> adapter,
                 std::shared_ptr<RKVURLSession> sessionManager, double requestTimeout,
                 int64_t maximumWrappers, bool handleWrappersAdpods);
  // As above; `pixelManager` is accepted and ignored.
  RKVVASTManager(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                 std::weak_ptr<RKVVASTManagerAdapter> adapter,
                 std::shared_ptr<RKVURLSession> sessionManager,
                 const std::shared_ptr<RKVPixelManager>& pixelManager, double requestTimeout,
                 int64_t maximumWrappers, bool handleWrappersAdpods);
  // Forgets the delegate and the adapter; waits for delegate calls under way on other threads.
  ~RKVVASTManager() override;

  RKVVASTManager(const RKVVASTManager&) = delete;
  RKVVASTManager& operator=(const RKVVASTManager&) = delete;

  // What every initialiser ends in: clears both passback flags, makes the three stores empty and
  // keeps the delegate, the adapter, the session (the shared one for null) and the config. The
  // root model and the current root ad are left as they are.
  void configureWithDelegate(std::weak_ptr<RKVVASTManagerDelegate> delegate,
                             std::weak_ptr<RKVVASTManagerAdapter> adapter,
                             std::shared_ptr<RKVURLSession> sessionManager,
                             RKVVASTManagerConfig config);

  // --- RKVVASTManagerProtocol

  // Without a delegate or an adapter: logs (debug) why and does nothing. Otherwise has a model
  // made of the text, or of the URL's document when there is no text (`timeout` bounds the
  // download), passing every VAST failure on to didEncounterError. With a model: fills the
  // stores and calls vastManagerIsReadyToProvideAds; without: vastManagerDidFailWithError.
  void createAdsStoreWithXML(std::optional<std::string_view> xml, const std::optional<RKVURL>& url,
                             double timeout) override;
  // `timeout` <= 0: error 10001 (it bounds nothing else: every fetch is bounded by the config's
  // requestTimeout, and the wait for passback wrappers only by the config's adRequestDeadline,
  // when set). No root model: 10004. `dueToAdFailure`: the next passback ad, else 10006 while
  // passback wrappers are resolving, 10007 otherwise. Else the next main ad, else 10005. VAST
  // failures never come back here; they go to the delegate.
  RKVVASTManagerResponse nextAdWithTimeout(double timeout, bool dueToAdFailure) override;
  // Forgets the delegate and waits for its calls under way on other threads: no delegate call
  // starts, and none is under way, after this returns (except one on the calling thread, when
  // the delegate cancels from its own callback). Nothing in flight is stopped.
  void cancel() override;

  // --- State (snapshots: each accessor copies under the mutex)

  std::weak_ptr<RKVVASTManagerDelegate> delegate() const;
  std::weak_ptr<RKVVASTManagerAdapter> adapter() const;
  std::shared_ptr<RKVURLSession> urlSessionManager() const;
  RKVVASTManagerConfig config() const;
  std::shared_ptr<RKVVASTModel> rootVASTModel() const;
  Ads mainAdsStore() const;
  Ads inlinePassbackAdsStore() const;
  Ads wrapperPassbackAdsStore() const;
  // The main ad that addMainAds replaces. Only the host sets it.
  std::shared_ptr<RKVVASTAd> currentRootAd() const;
  void setCurrentRootAd(std::shared_ptr<RKVVASTAd> ad);
  bool isResolvingPassbackWrappers() const;
  bool didResolvePassbackWrappers() const;

  // --- Stores

  // Appends the ads to the main store, or, with a current root ad, puts them in its place (in
  // order, right after it, then removes it).
  void addMainAds(const Ads& ads);
  // Nothing without a root model. Of the ads the root model owns, inline ads go to the inline
  // passback store and wrappers to the wrapper passback store, each at most once.
  void addPassbackAds(const Ads& ads);
  // The main ads not yet consumed, in store order.
  Ads consumableMainAds() const;
  // The store holds an ad not yet consumed.
  bool hasInlinePassbacksAvailable() const;
  bool hasWrapperPassbacksAvailable() const;
  // The ad's position in the store (the same object), or 0 when the store lacks it.
  static size_t adIndex(const RKVVASTAd* ad, const Ads& inStore);

  // --- Resolution (the steps of nextAdWithTimeout, for hosts that drive them themselves)

  // The next main ad, converted by the adapter: takes the first main ad not yet consumed; an
  // invalid one or a failed wrapper falls back on findNextPassbackAd, then the next main ad; a
  // wrapper below maximumWrappers is resolved and the ads it leads to take the places after it;
  // one at or above the limit is reported (VAST_WRAPPER_ERROR_LIMIT_REACHED) and skipped. Null
  // when the main ads are exhausted (or the adapter made nothing of the inline ad found).
  std::shared_ptr<RKVConsumableVideoAd> findNextMainAd();
  // Fetches and reads the wrapper's ad-tag URI (bounded by `timeout` seconds), reporting through
  // `errorHandler`. Not a wrapper: error 10008. No ad-tag URI, or (with strict validation) a
  // first-level wrapper without impressions: the handler gets the validation error and the
  // response carries its record. A first-level wrapper is announced to the delegate
  // (didStartToResolveWrapperAd) before it is fetched.
  RKVVASTParserResponse resolveWrapper(const std::shared_ptr<RKVVASTAd>& ad, double timeout,
                                       const RKVVASTErrorHandler& errorHandler);
  // The first inline passback not yet consumed (skipping invalid ones), else the result of
  // resolving the passback wrappers, else null.
  std::shared_ptr<RKVConsumableVideoAd> findNextPassbackAd();
  // Resolves every wrapper passback in parallel on the background executor and waits until one
  // gives a valid ad (the first task to find the result slot empty wins) or until every wrapper
  // has been taken up and one task found nothing; with the config's adRequestDeadline, at most
  // that long. Results that lose the race for a filled slot stay in the inline passback store for
  // the next call; the first result to come after the caller left with an empty slot is consumed
  // into that slot, which nobody reads. Null at once while, or after, the passback wrappers
  // resolve, and when none is left.
  std::shared_ptr<RKVConsumableVideoAd> resolvePassbackWrappers();
  // Follows a wrapper passback down to an inline ad (one level deeper than the main path allows:
  // depth <= maximumWrappers is still fetched), merging each wrapper into the ad it leads to;
  // the inline ad is added to the inline passback store, not consumed. Null when the ad was
  // consumed already, when a level fails (reported to the delegate with the wrapper's error
  // URLs) or when the limit is passed.
  std::shared_ptr<RKVVASTAd> transformWrapperToInline(const std::shared_ptr<RKVVASTAd>& ad);
  // Tells the delegate (didFailToResolveWrapperAd) when `error` is the record of a VAST document
  // without ads (vendor code 101005).
  void checkIfWrapperErrorShouldTriggerVNoAdPixel(const RKVError& error,
                                                  const std::shared_ptr<RKVVASTAd>& ad);

 private:
  class Core;
  std::shared_ptr<Core> core_;
};

}  // namespace rkv
