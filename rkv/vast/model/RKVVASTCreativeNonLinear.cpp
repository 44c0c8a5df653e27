#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/internal/RKVElementReading.h"

namespace rkv {

std::shared_ptr<RKVVASTCreativeNonLinear> RKVVASTCreativeNonLinear::withDictionary(
    const RKVXMLDictionary& element, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& /*errorHandler*/, bool /*isWrapper*/) {
  auto creative = std::make_shared<RKVVASTCreativeNonLinear>();
  creative->findAttributes(element, error);
  // Without a resource there is nothing to show, wrapper or not.
  if (!creative->findResource(element, error)) return nullptr;
  creative->findAdParameters(element);
  creative->findClickThrough(element);
  creative->findClickTracking(element);
  return creative;
}

std::shared_ptr<RKVVASTCreativeNonLinear> RKVVASTCreativeNonLinear::withDictionary(
    const RKVXMLDictionary& element) {
  return withDictionary(element, nullptr, {}, false);
}

std::shared_ptr<RKVVASTCreativeNonLinear> RKVVASTCreativeNonLinear::initEmptyCreative() {
  return std::make_shared<RKVVASTCreativeNonLinear>();
}

bool RKVVASTCreativeNonLinear::findAttributes(const RKVXMLDictionary& element,
                                              std::optional<RKVError>* /*error*/) {
  id_ = internal::attributeText("_id", element);
  minSuggestedDuration_ = internal::attributeText("_minSuggestedDuration", element);
  apiFramework_ = internal::attributeText("_apiFramework", element);
  scalable_ = internal::boolAttribute("_scalable", element);
  maintainAspectRatio_ = internal::boolAttribute("_maintainAspectRatio", element);
  width_ = internal::floatAttribute("_width", element);
  height_ = internal::floatAttribute("_height", element);
  expandedWidth_ = internal::floatAttribute("_expandedWidth", element);
  expandedHeight_ = internal::floatAttribute("_expandedHeight", element);
  return true;
}

bool RKVVASTCreativeNonLinear::findResource(const RKVXMLDictionary& element,
                                            std::optional<RKVError>* error) {
  if (internal::readCreativeResource(element, resource_)) return true;
  if (error != nullptr) {
    *error = RKVVASTError::VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE().error();
  }
  return false;
}

void RKVVASTCreativeNonLinear::findAdParameters(const RKVXMLDictionary& element) {
  adParameters_ = internal::childText("AdParameters", element);
}

void RKVVASTCreativeNonLinear::findClickThrough(const RKVXMLDictionary& element) {
  readClickThrough(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("NonLinearClickThrough", &element));
}

void RKVVASTCreativeNonLinear::findClickTracking(const RKVXMLDictionary& element) {
  readClickTracking(RKVXMLDictionaryUtils::findArrayForKey("NonLinearClickTracking", &element));
}

bool RKVVASTCreativeNonLinear::isValidForWrapper(bool isWrapper) const {
  return isWrapper || resource_.isSet();
}

}  // namespace rkv
