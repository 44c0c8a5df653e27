// RKVVASTManagerDelegate: what a VAST manager tells its host. Every operation is optional (the
// default does nothing). Calls come on the thread that called the manager, except those made
// while passback wrappers resolve, which come on background threads, possibly several at once:
// implementations must be thread-safe. The manager holds its delegate weakly and never holds a
// lock of its own while calling it, so a delegate may call the manager back.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv {

class RKVVASTManager;

class RKV_EXPORT RKVVASTManagerDelegate {
 public:
  virtual ~RKVVASTManagerDelegate() = default;

  // The stores are filled: ads may be asked for.
  virtual void vastManagerIsReadyToProvideAds() {}
  // No model could be made of the VAST answer. The error is absent only for an answer that gave
  // neither a model nor an error (an empty body).
  virtual void vastManagerDidFailWithError(const std::optional<RKVError>& /*error*/) {}
  // A VAST failure met on the way. The host fires `errorURLs` with the error's VAST code (none
  // when the code is -1); `VASTResponse` is the text of the document it was found in, absent
  // when no document was received.
  virtual void didEncounterError(RKVVASTManager& /*vastManager*/, const RKVVASTError& /*error*/,
                                 const std::vector<RKVVASTURL>& /*errorURLs*/,
                                 const std::optional<std::string>& /*VASTResponse*/) {}
  // A wrapper of the root document is about to be fetched.
  virtual void didStartToResolveWrapperAd(RKVVASTManager& /*vastManager*/,
                                          const std::shared_ptr<RKVVASTAd>& /*ad*/) {}
  // A wrapper led to a VAST document without ads (the host fires its own "no ad" pixel).
  virtual void didFailToResolveWrapperAd(RKVVASTManager& /*vastManager*/,
                                         const std::shared_ptr<RKVVASTAd>& /*ad*/) {}

 protected:
  RKVVASTManagerDelegate() = default;
  RKVVASTManagerDelegate(const RKVVASTManagerDelegate&) = default;
  RKVVASTManagerDelegate& operator=(const RKVVASTManagerDelegate&) = default;
};

}  // namespace rkv
