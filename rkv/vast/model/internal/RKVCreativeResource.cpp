#include "rkv/vast/model/internal/RKVCreativeResource.h"

#include <string>

#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv::internal {

bool readCreativeResource(const RKVXMLDictionary& element, RKVCreativeResource& resource) {
  using Utils = RKVXMLDictionaryUtils;
  if (const std::string* text = Utils::findFirstObjectOfArrayAsString("StaticResource", &element)) {
    resource.staticResource = RKVVASTURL::fromXML(text);
    return true;
  }
  if (const std::string* text = Utils::findFirstObjectOfArrayAsString("IFrameResource", &element)) {
    resource.iFrameResource = RKVVASTURL::fromXML(text);
    return true;
  }
  if (const std::string* text = Utils::findFirstObjectOfArrayAsString("HTMLResource", &element)) {
    resource.htmlResource = RKVVASTURL::fromXML(text);
    return true;
  }
  return false;
}

}  // namespace rkv::internal
