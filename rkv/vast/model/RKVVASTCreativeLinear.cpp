#include "rkv/vast/model/RKVVASTCreativeLinear.h"

#include <vector>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTMediaFileSelector.h"
#include "rkv/vast/model/internal/RKVElementReading.h"

namespace rkv {

namespace {

void report(const RKVVASTError& error, const RKVVASTInnerErrorHandler& errorHandler) {
  if (!errorHandler) return;
  std::vector<RKVVASTURL> errorURLs;
  errorHandler(error, errorURLs);
}

void reportMissingMediaFiles(std::optional<RKVError>* error,
                             const RKVVASTInnerErrorHandler& errorHandler) {
  const RKVVASTError missing = RKVVASTError::VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES();
  report(missing, errorHandler);
  *error = missing.error();
}

}  // namespace

std::shared_ptr<RKVVASTCreativeLinear> RKVVASTCreativeLinear::withDictionary(
    const RKVXMLDictionary& element, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper) {
  auto creative = std::make_shared<RKVVASTCreativeLinear>();
  creative->findSkipOffset(element);
  creative->findDuration(element, errorHandler);
  creative->findAdParameters(element);
  if (!creative->findMediaFiles(element, error, errorHandler, isWrapper)) return nullptr;
  creative->findTrackingEvents(element);
  creative->findClicks(element);
  creative->findIcons(element, isWrapper);
  return creative;
}

std::shared_ptr<RKVVASTCreativeLinear> RKVVASTCreativeLinear::withDictionary(
    const RKVXMLDictionary& element) {
  return withDictionary(element, nullptr, {}, false);
}

std::shared_ptr<RKVVASTCreativeLinear> RKVVASTCreativeLinear::initEmptyCreative() {
  return std::make_shared<RKVVASTCreativeLinear>();
}

void RKVVASTCreativeLinear::findSkipOffset(const RKVXMLDictionary& element) {
  if (const std::string* skipOffset = RKVXMLDictionaryUtils::findAttribute("_skipoffset", &element))
    skipOffset_ = *skipOffset;
}

void RKVVASTCreativeLinear::findDuration(const RKVXMLDictionary& element,
                                         const RKVVASTInnerErrorHandler& errorHandler) {
  duration_ = internal::childText("Duration", element);
  if (!duration_)
    report(RKVVASTError::VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION(), errorHandler);
}

void RKVVASTCreativeLinear::findAdParameters(const RKVXMLDictionary& element) {
  if (const std::string* adParameters =
          RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("AdParameters", &element))
    adParameters_ = *adParameters;
}

bool RKVVASTCreativeLinear::findMediaFiles(const RKVXMLDictionary& element,
                                           std::optional<RKVError>* error,
                                           const RKVVASTInnerErrorHandler& errorHandler,
                                           bool isWrapper) {
  const RKVXMLDictionary* mediaFiles =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("MediaFiles", &element);
  if (!isWrapper && (mediaFiles == nullptr || mediaFiles->empty())) {
    if (error != nullptr) reportMissingMediaFiles(error, errorHandler);
    return false;
  }
  if (mediaFiles != nullptr) {
    if (const RKVXMLArray* files =
            RKVXMLDictionaryUtils::findArrayForKey("MediaFile", mediaFiles)) {
      for (const RKVXMLValue& entry : *files) {
        const RKVXMLDictionary* file = entry.dictionary();
        if (file == nullptr) continue;
        // withDictionary answers only valid files.
        if (auto mediaFile = RKVVASTMediaFile::withDictionary(*file))
          mediaFiles_.push_back(std::move(mediaFile));
      }
    }
    if (const RKVXMLArray* files =
            RKVXMLDictionaryUtils::findArrayForKey("InteractiveCreativeFile", mediaFiles)) {
      for (const RKVXMLValue& entry : *files) {
        const RKVXMLDictionary* file = entry.dictionary();
        if (file == nullptr) continue;
        auto mediaFile = RKVVASTMediaFile::withDictionary(*file);
        if (mediaFile && mediaFile->isVPAID()) mediaFiles_.push_back(std::move(mediaFile));
      }
    }
  }
  // Made without a usable file all the same; isValidForWrapper then refuses it.
  if (!isWrapper && mediaFiles_.empty() && error != nullptr)
    reportMissingMediaFiles(error, errorHandler);
  return true;
}

void RKVVASTCreativeLinear::findTrackingEvents(const RKVXMLDictionary& element) {
  readTrackingEvents(element);
}

void RKVVASTCreativeLinear::findClicks(const RKVXMLDictionary& element) {
  const RKVXMLDictionary* videoClicks =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("VideoClicks", &element);
  if (videoClicks == nullptr) return;
  findClickTracking(*videoClicks);
  findClickThrough(*videoClicks);
}

void RKVVASTCreativeLinear::findClickThrough(const RKVXMLDictionary& videoClicks) {
  readClickThrough(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString("ClickThrough", &videoClicks));
}

void RKVVASTCreativeLinear::findClickTracking(const RKVXMLDictionary& videoClicks) {
  readClickTracking(RKVXMLDictionaryUtils::findArrayForKey("ClickTracking", &videoClicks));
}

void RKVVASTCreativeLinear::findIcons(const RKVXMLDictionary& element, bool /*isWrapper*/) {
  const RKVXMLDictionary* iconsElement =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("Icons", &element);
  const RKVXMLArray* entries = RKVXMLDictionaryUtils::findArrayForKey("Icon", iconsElement);
  if (entries == nullptr) return;
  for (const RKVXMLValue& entry : *entries) {
    const RKVXMLDictionary* iconElement = entry.dictionary();
    if (iconElement == nullptr) continue;
    // Icons are read as outside a wrapper, whatever the ad is: an icon needs a resource.
    auto icon = RKVVASTCreativeIcon::withDictionary(*iconElement, nullptr, {}, false);
    if (icon && icon->isValidForWrapper(false)) icons_.push_back(std::move(icon));
  }
}

bool RKVVASTCreativeLinear::isValidForWrapper(bool isWrapper) const {
  return isWrapper || !mediaFiles_.empty();
}

std::shared_ptr<RKVVASTMediaFile> RKVVASTCreativeLinear::mostAppropriateMediaFile() const {
  return RKVVASTMediaFileSelector(0, 5000, mediaFiles_).mediaFile();
}

}  // namespace rkv
