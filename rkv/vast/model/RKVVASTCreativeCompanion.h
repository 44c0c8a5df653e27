// RKVVASTCreativeCompanion: a banner shown beside the player, from a Companion element. Built on
// one thread and then read (see RKVVASTCreative).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTCreative.h"
#include "rkv/vast/model/internal/RKVCreativeResource.h"

namespace rkv {

class RKV_EXPORT RKVVASTCreativeCompanion : public RKVVASTCreative {
 public:
  // An empty creative: no fields, no resource.
  RKVVASTCreativeCompanion() = default;

  // Never null: a companion without a resource is made, and is then valid only for a wrapper.
  // Nothing is reported.
  static std::shared_ptr<RKVVASTCreativeCompanion> withDictionary(
      const RKVXMLDictionary& element, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // withDictionary with no error place, a handler that does nothing, and not a wrapper.
  static std::shared_ptr<RKVVASTCreativeCompanion> withDictionary(const RKVXMLDictionary& element);
  static std::shared_ptr<RKVVASTCreativeCompanion> initEmptyCreative();

  // Attributes as written (nullopt when absent).
  const std::optional<std::string>& id() const { return id_; }
  const std::optional<std::string>& adSlotID() const { return adSlotID_; }
  // Float readings of the attributes (RKVTextValues); 0 when absent or not a number.
  float width() const { return width_; }
  float height() const { return height_; }
  float assetWidth() const { return assetWidth_; }
  float assetHeight() const { return assetHeight_; }
  // The text of the AdParameters child, or nullopt.
  const std::optional<std::string>& adParameters() const { return adParameters_; }
  // At most one of the three is set.
  const std::optional<RKVVASTURL>& staticResource() const { return resource_.staticResource; }
  const std::optional<RKVVASTURL>& iFrameResource() const { return resource_.iFrameResource; }
  const std::optional<RKVVASTURL>& htmlResource() const { return resource_.htmlResource; }

  // The readers, in the order the initializer calls them.
  void findAttributes(const RKVXMLDictionary& element);
  // StaticResource, then IFrameResource, then HTMLResource; only the first kind found is read.
  void findResource(const RKVXMLDictionary& element);
  void findAdParameters(const RKVXMLDictionary& element);
  // From the first CompanionClickThrough child, when it gives a URL.
  void findClickThrough(const RKVXMLDictionary& element);
  // Appends every CompanionClickTracking child that gives a URL, in order.
  void findClickTracking(const RKVXMLDictionary& element);
  // Adds the events of the element's TrackingEvents child.
  void findTrackingEvents(const RKVXMLDictionary& element);

  // True for a wrapper; otherwise true when a resource is set.
  bool isValidForWrapper(bool isWrapper) const override;

 private:
  std::optional<std::string> id_;
  std::optional<std::string> adSlotID_;
  float width_ = 0;
  float height_ = 0;
  float assetWidth_ = 0;
  float assetHeight_ = 0;
  std::optional<std::string> adParameters_;
  internal::RKVCreativeResource resource_;
};

}  // namespace rkv
