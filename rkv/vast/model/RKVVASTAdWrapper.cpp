#include "rkv/vast/model/RKVVASTAdWrapper.h"

#include <vector>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

std::shared_ptr<RKVVASTAdWrapper> RKVVASTAdWrapper::withDictionary(
    const RKVXMLDictionary& adElement, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& errorHandler) {
  const RKVXMLDictionary* content =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("Wrapper", &adElement);
  if (content == nullptr) {
    const RKVVASTError failure = RKVVASTError::XML_PARSING_ERROR_WRAPPER();
    if (error != nullptr) *error = failure.error();
    if (errorHandler) {
      std::vector<RKVVASTURL> errorURLs;
      errorHandler(failure, errorURLs);
    }
    return nullptr;
  }
  auto ad = std::make_shared<RKVVASTAdWrapper>();
  ad->readAdAttributes(adElement);
  ad->findAdSystem(*content, errorHandler);
  ad->findAdTitle(*content, errorHandler);
  ad->findImpressionPixels(*content);
  ad->findErrorPixels(*content);
  ad->findViewabilityEvents(*content);
  // A wrapper's creatives report through the handler only: the error place stays untouched.
  ad->findCreatives(*content, true, nullptr, errorHandler);
  ad->findExtensions(*content);
  ad->findVASTAdTagURI(*content);
  ad->findAdVerifications(*content);
  return ad;
}

std::shared_ptr<RKVVASTAdWrapper> RKVVASTAdWrapper::withDictionary(
    const RKVXMLDictionary& adElement) {
  return withDictionary(adElement, nullptr, {});
}

void RKVVASTAdWrapper::findVASTAdTagURI(const RKVXMLDictionary& content) {
  adTagURL_ = RKVVASTURL::fromXML(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("VASTAdTagURI", &content));
}

std::optional<RKVURL> RKVVASTAdWrapper::nextActionURL() const {
  if (!adTagURL_) return std::nullopt;
  return adTagURL_->url();
}

bool RKVVASTAdWrapper::isValid() const {
  return RKVVASTAd::isValid();
}

}  // namespace rkv
