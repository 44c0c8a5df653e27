// RKVVASTCreativeLinear: the video creative of an ad, from a Linear element (duration, skip
// offset, ad parameters, media files, icons, tracking and clicks). Built on one thread and then
// read (see RKVVASTCreative).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTCreative.h"
#include "rkv/vast/model/RKVVASTCreativeIcon.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"

namespace rkv {

class RKV_EXPORT RKVVASTCreativeLinear : public RKVVASTCreative {
 public:
  // An empty creative: no fields, no media files.
  RKVVASTCreativeLinear() = default;

  // Reads the Linear element. A missing Duration is reported through the handler
  // (VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION) and the creative is still made. Outside a
  // wrapper, a Linear without MediaFiles (or with an empty one) gives null; see findMediaFiles
  // for what is reported.
  static std::shared_ptr<RKVVASTCreativeLinear> withDictionary(
      const RKVXMLDictionary& element, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // withDictionary with no error place, a handler that does nothing, and not a wrapper.
  static std::shared_ptr<RKVVASTCreativeLinear> withDictionary(const RKVXMLDictionary& element);
  static std::shared_ptr<RKVVASTCreativeLinear> initEmptyCreative();

  // The text of the Duration child, unparsed (a clock text), or nullopt.
  const std::optional<std::string>& duration() const { return duration_; }
  // The skipoffset attribute, unparsed (a clock text or a percentage), or nullopt.
  const std::optional<std::string>& skipOffset() const { return skipOffset_; }
  // The text of the AdParameters child, or nullopt.
  const std::optional<std::string>& adParameters() const { return adParameters_; }
  // Usable renditions in document order: MediaFile entries, then InteractiveCreativeFile ones.
  const std::vector<std::shared_ptr<RKVVASTMediaFile>>& mediaFiles() const { return mediaFiles_; }
  std::vector<std::shared_ptr<RKVVASTMediaFile>>& mediaFiles() { return mediaFiles_; }
  // Icons that have a resource.
  const std::vector<std::shared_ptr<RKVVASTCreativeIcon>>& icons() const { return icons_; }
  std::vector<std::shared_ptr<RKVVASTCreativeIcon>>& icons() { return icons_; }

  // The readers, in the order the initializer calls them; each takes the Linear element.
  void findSkipOffset(const RKVXMLDictionary& element);
  // Reports VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION (with an empty list) when there is no
  // Duration text.
  void findDuration(const RKVXMLDictionary& element, const RKVVASTInnerErrorHandler& errorHandler);
  void findAdParameters(const RKVXMLDictionary& element);
  // Appends the supported MediaFile entries with a URL, then the InteractiveCreativeFile entries
  // that are also VPAID files. Outside a wrapper, when the first MediaFiles child is absent or
  // empty, answers false; when it is absent or empty or gives no usable file and an error place
  // is given, the handler receives VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES (with an
  // empty list) and the error place its record. Answers true otherwise.
  bool findMediaFiles(const RKVXMLDictionary& element, std::optional<RKVError>* error,
                      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // Adds the events of the element's TrackingEvents child.
  void findTrackingEvents(const RKVXMLDictionary& element);
  // On the first VideoClicks child: findClickTracking, then findClickThrough.
  void findClicks(const RKVXMLDictionary& element);
  // From the first ClickThrough child of the VideoClicks element, when it gives a URL.
  void findClickThrough(const RKVXMLDictionary& videoClicks);
  // Appends every ClickTracking child of the VideoClicks element that gives a URL, in order.
  void findClickTracking(const RKVXMLDictionary& videoClicks);
  // Appends each Icon of the first Icons child that has a resource (read as outside a wrapper,
  // whatever isWrapper says).
  void findIcons(const RKVXMLDictionary& element, bool isWrapper);

  // True for a wrapper; otherwise true when there is a media file.
  bool isValidForWrapper(bool isWrapper) const override;

  // The file that a media file selector with bitrates 0 to 5000 kbit/s, on a good connection,
  // chooses among mediaFiles; null when there is none.
  std::shared_ptr<RKVVASTMediaFile> mostAppropriateMediaFile() const;

 private:
  std::optional<std::string> duration_;
  std::optional<std::string> skipOffset_;
  std::optional<std::string> adParameters_;
  std::vector<std::shared_ptr<RKVVASTMediaFile>> mediaFiles_;
  std::vector<std::shared_ptr<RKVVASTCreativeIcon>> icons_;
};

}  // namespace rkv
