#include "rkv/vast/model/RKVVASTCreativeCompanion.h"

#include "rkv/vast/model/internal/RKVElementReading.h"

namespace rkv {

std::shared_ptr<RKVVASTCreativeCompanion> RKVVASTCreativeCompanion::withDictionary(
    const RKVXMLDictionary& element, std::optional<RKVError>* /*error*/,
    const RKVVASTInnerErrorHandler& /*errorHandler*/, bool /*isWrapper*/) {
  auto creative = std::make_shared<RKVVASTCreativeCompanion>();
  creative->findAttributes(element);
  creative->findResource(element);
  creative->findAdParameters(element);
  creative->findClickThrough(element);
  creative->findClickTracking(element);
  creative->findTrackingEvents(element);
  return creative;
}

std::shared_ptr<RKVVASTCreativeCompanion> RKVVASTCreativeCompanion::withDictionary(
    const RKVXMLDictionary& element) {
  return withDictionary(element, nullptr, {}, false);
}

std::shared_ptr<RKVVASTCreativeCompanion> RKVVASTCreativeCompanion::initEmptyCreative() {
  return std::make_shared<RKVVASTCreativeCompanion>();
}

void RKVVASTCreativeCompanion::findAttributes(const RKVXMLDictionary& element) {
  id_ = internal::attributeText("_id", element);
  adSlotID_ = internal::attributeText("_adSlotID", element);
  width_ = internal::floatAttribute("_width", element);
  height_ = internal::floatAttribute("_height", element);
  assetWidth_ = internal::floatAttribute("_assetWidth", element);
  assetHeight_ = internal::floatAttribute("_assetHeight", element);
}

void RKVVASTCreativeCompanion::findResource(const RKVXMLDictionary& element) {
  internal::readCreativeResource(element, resource_);
}

void RKVVASTCreativeCompanion::findAdParameters(const RKVXMLDictionary& element) {
  adParameters_ = internal::childText("AdParameters", element);
}

void RKVVASTCreativeCompanion::findClickThrough(const RKVXMLDictionary& element) {
  readClickThrough(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("CompanionClickThrough", &element));
}

void RKVVASTCreativeCompanion::findClickTracking(const RKVXMLDictionary& element) {
  readClickTracking(RKVXMLDictionaryUtils::findArrayForKey("CompanionClickTracking", &element));
}

void RKVVASTCreativeCompanion::findTrackingEvents(const RKVXMLDictionary& element) {
  readTrackingEvents(element);
}

bool RKVVASTCreativeCompanion::isValidForWrapper(bool isWrapper) const {
  return isWrapper || resource_.isSet();
}

}  // namespace rkv
