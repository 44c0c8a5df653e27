#include "rkv/vast/model/RKVVASTAdInline.h"

#include <vector>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

std::shared_ptr<RKVVASTAdInline> RKVVASTAdInline::withDictionary(
    const RKVXMLDictionary& adElement, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& errorHandler) {
  const RKVXMLDictionary* content =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("InLine", &adElement);
  if (content == nullptr) {
    const RKVVASTError failure = RKVVASTError::XML_PARSING_ERROR();
    if (error != nullptr) *error = failure.error();
    if (errorHandler) {
      std::vector<RKVVASTURL> errorURLs;
      errorHandler(failure, errorURLs);
    }
    return nullptr;
  }
  auto ad = std::make_shared<RKVVASTAdInline>();
  ad->readAdAttributes(adElement);
  ad->findAdSystem(*content, errorHandler);
  ad->findAdTitle(*content, errorHandler);
  ad->findImpressionPixels(*content);
  ad->findErrorPixels(*content);
  ad->findViewabilityEvents(*content);
  ad->findCreatives(*content, false, error, errorHandler);
  ad->findExtensions(*content);
  ad->findAdVerifications(*content);
  return ad;
}

std::shared_ptr<RKVVASTAdInline> RKVVASTAdInline::withDictionary(
    const RKVXMLDictionary& adElement) {
  return withDictionary(adElement, nullptr, {});
}

bool RKVVASTAdInline::isValid() const {
  const bool hasCreative =
      !linearCreatives().empty() || !nonLinearCreatives().empty() || !companionCreatives().empty();
  return hasCreative && RKVVASTAd::isValid();
}

}  // namespace rkv
