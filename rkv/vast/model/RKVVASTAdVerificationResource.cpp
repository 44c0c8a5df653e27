#include "rkv/vast/model/RKVVASTAdVerificationResource.h"

#include <utility>

#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"
#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

// The element's text as a URL, when it has text and the text parses.
std::optional<RKVURL> elementURL(const RKVXMLDictionary& element) {
  const std::string* text = RKVXMLDictionaryUtils::findNodeText(&element);
  if (text == nullptr) return std::nullopt;
  return RKVURL::withString(*text);
}

}  // namespace

RKVVASTAdVerificationResource::RKVVASTAdVerificationResource(
    int64_t type, RKVURL url, std::optional<std::string> apiFramework, bool browserOptional,
    std::optional<std::string> executableType)
    : type_(type),
      url_(std::move(url)),
      apiFramework_(std::move(apiFramework)),
      browserOptional_(browserOptional),
      executableType_(std::move(executableType)) {}

std::shared_ptr<RKVVASTAdVerificationResource>
RKVVASTAdVerificationResource::javascriptResourceWithDictionary(const RKVXMLDictionary& element) {
  std::optional<RKVURL> url = elementURL(element);
  if (!url) return nullptr;
  return std::make_shared<RKVVASTAdVerificationResource>(
      0, std::move(*url), internal::attributeText("_apiFramework", element),
      internal::boolAttribute("_browserOptional", element), std::nullopt);
}

std::shared_ptr<RKVVASTAdVerificationResource>
RKVVASTAdVerificationResource::executableResourceWithDictionary(const RKVXMLDictionary& element) {
  std::optional<RKVURL> url = elementURL(element);
  if (!url) return nullptr;
  return std::make_shared<RKVVASTAdVerificationResource>(
      0, std::move(*url), internal::attributeText("_apiFramework", element), false,
      internal::attributeText("_type", element));
}

bool RKVVASTAdVerificationResource::isEqualToResource(
    const RKVVASTAdVerificationResource& other) const {
  return this == &other ||
         (type_ == other.type_ && url_ == other.url_ && apiFramework_ == other.apiFramework_ &&
          browserOptional_ == other.browserOptional_ && executableType_ == other.executableType_);
}

std::shared_ptr<RKVVASTAdVerificationResource> RKVVASTAdVerificationResource::copy() const {
  return std::make_shared<RKVVASTAdVerificationResource>(*this);
}

std::string RKVVASTAdVerificationResource::archive() const {
  return internal::toJSON(internal::archiveObject(*this));
}

std::shared_ptr<RKVVASTAdVerificationResource> RKVVASTAdVerificationResource::unarchive(
    std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  return object ? internal::unarchiveVerificationResource(*object) : nullptr;
}

}  // namespace rkv
