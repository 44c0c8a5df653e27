// RKVVASTManagerProtocol: what a player asks of a VAST manager: fill the stores from one VAST
// answer, then take ads one at a time until an error comes back, or stop listening.
// Thread-safety is the implementation's (RKVVASTManager: see its header).
#pragma once

#include <optional>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/RKVVASTManagerResponse.h"

namespace rkv {

class RKV_EXPORT RKVVASTManagerProtocol {
 public:
  virtual ~RKVVASTManagerProtocol() = default;

  // Reads the VAST text, or downloads the URL when there is no text (blocking up to `timeout`
  // seconds), and tells the delegate whether ads can be asked for.
  virtual void createAdsStoreWithXML(std::optional<std::string_view> xml,
                                     const std::optional<RKVURL>& url, double timeout) = 0;
  // The next playable ad, or the error saying why there is none. `dueToAdFailure`: the previous
  // ad failed to play, so a fallback (passback) ad is wanted. Blocks while wrappers resolve.
  virtual RKVVASTManagerResponse nextAdWithTimeout(double timeout, bool dueToAdFailure) = 0;
  // Stops calling the delegate; nothing under way is stopped.
  virtual void cancel() = 0;

 protected:
  RKVVASTManagerProtocol() = default;
  RKVVASTManagerProtocol(const RKVVASTManagerProtocol&) = default;
  RKVVASTManagerProtocol& operator=(const RKVVASTManagerProtocol&) = default;
};

}  // namespace rkv
