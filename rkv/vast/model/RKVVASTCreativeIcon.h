// RKVVASTCreativeIcon: an icon shown over the video, from an Icon element of a linear creative.
// Built on one thread and then read (see RKVVASTCreative).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTCreative.h"
#include "rkv/vast/model/internal/RKVCreativeResource.h"

namespace rkv {

class RKV_EXPORT RKVVASTCreativeIcon : public RKVVASTCreative {
 public:
  // An empty creative: no fields, no resource.
  RKVVASTCreativeIcon() = default;

  // Never null: an icon without a resource is made, and is then valid only for a wrapper.
  // Nothing is reported.
  static std::shared_ptr<RKVVASTCreativeIcon> withDictionary(
      const RKVXMLDictionary& element, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // withDictionary with no error place, a handler that does nothing, and not a wrapper.
  static std::shared_ptr<RKVVASTCreativeIcon> withDictionary(const RKVXMLDictionary& element);
  static std::shared_ptr<RKVVASTCreativeIcon> initEmptyCreative();

  // Attributes as written (nullopt when absent); duration and offset are unparsed clock texts.
  const std::optional<std::string>& program() const { return program_; }
  const std::optional<std::string>& duration() const { return duration_; }
  const std::optional<std::string>& offset() const { return offset_; }
  const std::optional<std::string>& apiFramework() const { return apiFramework_; }
  // Float readings of the attributes (RKVTextValues); 0 when absent or not a number. Positions
  // written as words ("left", "right", "top", "bottom") read 0: hosts read positions as numbers.
  float width() const { return width_; }
  float height() const { return height_; }
  float xPosition() const { return xPosition_; }
  float yPosition() const { return yPosition_; }
  // At most one of the three is set.
  const std::optional<RKVVASTURL>& staticResource() const { return resource_.staticResource; }
  const std::optional<RKVVASTURL>& iFrameResource() const { return resource_.iFrameResource; }
  const std::optional<RKVVASTURL>& htmlResource() const { return resource_.htmlResource; }

  // The readers, in the order the initializer calls them.
  void findAttributes(const RKVXMLDictionary& element);
  // StaticResource, then IFrameResource, then HTMLResource; only the first kind found is read.
  void findResource(const RKVXMLDictionary& element);
  // On the first IconClicks child: findClickTracking, then findClickThrough.
  void findClicks(const RKVXMLDictionary& element);
  // From the first IconClickThrough child of the IconClicks element, when it gives a URL.
  void findClickThrough(const RKVXMLDictionary& iconClicks);
  // Appends every IconClickTracking child of the IconClicks element that gives a URL, in order.
  void findClickTracking(const RKVXMLDictionary& iconClicks);
  // Adds the events of the element's TrackingEvents child.
  void findTrackingEvents(const RKVXMLDictionary& element);

  // True for a wrapper; otherwise true when a resource is set.
  bool isValidForWrapper(bool isWrapper) const override;

 private:
  std::optional<std::string> program_;
  std::optional<std::string> duration_;
  std::optional<std::string> offset_;
  std::optional<std::string> apiFramework_;
  float width_ = 0;
  float height_ = 0;
  float xPosition_ = 0;
  float yPosition_ = 0;
  internal::RKVCreativeResource resource_;
};

}  // namespace rkv
