// RKVVASTCreativeNonLinear: an overlay shown over the video, from a NonLinear element. Built on
// one thread and then read (see RKVVASTCreative).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTCreative.h"
#include "rkv/vast/model/internal/RKVCreativeResource.h"

namespace rkv {

class RKV_EXPORT RKVVASTCreativeNonLinear : public RKVVASTCreative {
 public:
  // An empty creative: no fields, no resource.
  RKVVASTCreativeNonLinear() = default;

  // Null when the element has none of StaticResource, IFrameResource and HTMLResource, even in a
  // wrapper; the error place, when given, then receives the record of
  // VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE (the handler is not called). The element
  // carries no tracking events: the ad adds those of the enclosing NonLinearAds.
  static std::shared_ptr<RKVVASTCreativeNonLinear> withDictionary(
      const RKVXMLDictionary& element, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // withDictionary with no error place, a handler that does nothing, and not a wrapper.
  static std::shared_ptr<RKVVASTCreativeNonLinear> withDictionary(const RKVXMLDictionary& element);
  static std::shared_ptr<RKVVASTCreativeNonLinear> initEmptyCreative();

  // Attributes as written (nullopt when absent); minSuggestedDuration is an unparsed clock text.
  const std::optional<std::string>& id() const { return id_; }
  const std::optional<std::string>& minSuggestedDuration() const { return minSuggestedDuration_; }
  const std::optional<std::string>& apiFramework() const { return apiFramework_; }
  // Boolean and float readings of the attributes (RKVTextValues); false / 0 when absent.
  bool scalable() const { return scalable_; }
  bool maintainAspectRatio() const { return maintainAspectRatio_; }
  float width() const { return width_; }
  float height() const { return height_; }
  float expandedWidth() const { return expandedWidth_; }
  float expandedHeight() const { return expandedHeight_; }
  // The text of the AdParameters child, or nullopt.
  const std::optional<std::string>& adParameters() const { return adParameters_; }
  // At most one of the three is set.
  const std::optional<RKVVASTURL>& staticResource() const { return resource_.staticResource; }
  const std::optional<RKVVASTURL>& iFrameResource() const { return resource_.iFrameResource; }
  const std::optional<RKVVASTURL>& htmlResource() const { return resource_.htmlResource; }

  // The readers, in the order the initializer calls them.
  // Reads the attributes; always answers true (nothing is required).
  bool findAttributes(const RKVXMLDictionary& element, std::optional<RKVError>* error);
  // The resource rule (StaticResource, then IFrameResource, then HTMLResource; only the first
  // kind found is read). False, with the error place filled, when none of them exists.
  bool findResource(const RKVXMLDictionary& element, std::optional<RKVError>* error);
  void findAdParameters(const RKVXMLDictionary& element);
  // From the first NonLinearClickThrough child, when it gives a URL.
  void findClickThrough(const RKVXMLDictionary& element);
  // Appends every NonLinearClickTracking child that gives a URL, in order.
  void findClickTracking(const RKVXMLDictionary& element);

  // True for a wrapper; otherwise true when a resource is set.
  bool isValidForWrapper(bool isWrapper) const override;

 private:
  std::optional<std::string> id_;
  std::optional<std::string> minSuggestedDuration_;
  std::optional<std::string> apiFramework_;
  bool scalable_ = false;
  bool maintainAspectRatio_ = false;
  float width_ = 0;
  float height_ = 0;
  float expandedWidth_ = 0;
  float expandedHeight_ = 0;
  std::optional<std::string> adParameters_;
  internal::RKVCreativeResource resource_;
};

}  // namespace rkv
