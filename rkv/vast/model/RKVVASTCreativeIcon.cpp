#include "rkv/vast/model/RKVVASTCreativeIcon.h"

#include "rkv/vast/model/internal/RKVElementReading.h"

namespace rkv {

std::shared_ptr<RKVVASTCreativeIcon> RKVVASTCreativeIcon::withDictionary(
    const RKVXMLDictionary& element, std::optional<RKVError>* /*error*/,
    const RKVVASTInnerErrorHandler& /*errorHandler*/, bool /*isWrapper*/) {
  auto creative = std::make_shared<RKVVASTCreativeIcon>();
  creative->findAttributes(element);
  creative->findResource(element);
  creative->findClicks(element);
  creative->findTrackingEvents(element);
  return creative;
}

std::shared_ptr<RKVVASTCreativeIcon> RKVVASTCreativeIcon::withDictionary(
    const RKVXMLDictionary& element) {
  return withDictionary(element, nullptr, {}, false);
}

std::shared_ptr<RKVVASTCreativeIcon> RKVVASTCreativeIcon::initEmptyCreative() {
  return std::make_shared<RKVVASTCreativeIcon>();
}

void RKVVASTCreativeIcon::findAttributes(const RKVXMLDictionary& element) {
  program_ = internal::attributeText("_program", element);
  duration_ = internal::attributeText("_duration", element);
  offset_ = internal::attributeText("_offset", element);
  apiFramework_ = internal::attributeText("_apiFramework", element);
  width_ = internal::floatAttribute("_width", element);
  height_ = internal::floatAttribute("_height", element);
  xPosition_ = internal::floatAttribute("_xPosition", element);
  yPosition_ = internal::floatAttribute("_yPosition", element);
}

void RKVVASTCreativeIcon::findResource(const RKVXMLDictionary& element) {
  internal::readCreativeResource(element, resource_);
}

void RKVVASTCreativeIcon::findClicks(const RKVXMLDictionary& element) {
  const RKVXMLDictionary* iconClicks =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("IconClicks", &element);
  if (iconClicks == nullptr) return;
  findClickTracking(*iconClicks);
  findClickThrough(*iconClicks);
}

void RKVVASTCreativeIcon::findClickThrough(const RKVXMLDictionary& iconClicks) {
  readClickThrough(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("IconClickThrough", &iconClicks));
}

void RKVVASTCreativeIcon::findClickTracking(const RKVXMLDictionary& iconClicks) {
  readClickTracking(RKVXMLDictionaryUtils::findArrayForKey("IconClickTracking", &iconClicks));
}

void RKVVASTCreativeIcon::findTrackingEvents(const RKVXMLDictionary& element) {
  readTrackingEvents(element);
}

bool RKVVASTCreativeIcon::isValidForWrapper(bool isWrapper) const {
  return isWrapper || resource_.isSet();
}

}  // namespace rkv
