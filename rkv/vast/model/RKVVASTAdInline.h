// RKVVASTAdInline: an ad that carries its creatives (an Ad element with an InLine child).
// Thread-safety as RKVVASTAd.
#pragma once

#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTAd.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdInline : public RKVVASTAd {
 public:
  // Reads the Ad element. Without an InLine child: the error place gets the record of
  // XML_PARSING_ERROR, the handler receives it with an empty list, and the result is null.
  // Otherwise the ad is returned even when pieces were missing (it may be invalid).
  static std::shared_ptr<RKVVASTAdInline> withDictionary(
      const RKVXMLDictionary& adElement, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler);
  static std::shared_ptr<RKVVASTAdInline> withDictionary(const RKVXMLDictionary& adElement);

  // At least one linear, non-linear or companion creative, and the base is valid.
  bool isValid() const override;
  bool isInline() const override { return true; }
};

}  // namespace rkv
