// The resource rule shared by the non-linear, companion and icon creatives.
#pragma once

#include <optional>

#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::internal {

struct RKVCreativeResource {
  std::optional<RKVVASTURL> staticResource;
  std::optional<RKVVASTURL> iFrameResource;
  std::optional<RKVVASTURL> htmlResource;

  bool isSet() const { return staticResource || iFrameResource || htmlResource; }
};

// Only the first kind whose text exists, in the order StaticResource, IFrameResource,
// HTMLResource, is read (RKVVASTURL::fromXML of its text, so a text that is no URL leaves the
// field empty). Answers whether any of the three texts exists.
bool readCreativeResource(const RKVXMLDictionary& element, RKVCreativeResource& resource);

}  // namespace rkv::internal
