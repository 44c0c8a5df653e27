#include "rkv/vast/model/RKVVASTAdVerification.h"

#include <algorithm>
#include <utility>

#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"
#include "rkv/vast/model/internal/RKVChildElements.h"
#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

template <typename T>
void dropNulls(std::vector<std::shared_ptr<T>>& list) {
  list.erase(std::remove(list.begin(), list.end(), nullptr), list.end());
}

template <typename T>
bool sameEntries(const std::vector<std::shared_ptr<T>>& a,
                 const std::vector<std::shared_ptr<T>>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const std::shared_ptr<T>& x, const std::shared_ptr<T>& y) {
                      return x == y || *x == *y;  // entries are never null
                    });
}

}  // namespace

RKVVASTAdVerification::RKVVASTAdVerification(std::optional<std::string> vendor, Resources resources,
                                             Events trackingEvents,
                                             std::optional<std::string> verificationParameters)
    : vendor_(std::move(vendor)),
      resources_(std::move(resources)),
      trackingEvents_(std::move(trackingEvents)),
      verificationParameters_(std::move(verificationParameters)) {
  dropNulls(resources_);
  dropNulls(trackingEvents_);
}

std::shared_ptr<RKVVASTAdVerification> RKVVASTAdVerification::withDictionary(
    const RKVXMLDictionary& element) {
  std::optional<std::string> vendor = internal::attributeText("_vendor", element);
  std::optional<std::string> parameters = internal::childText("VerificationParameters", element);

  Events events;
  internal::forEachChildElement(
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("TrackingEvents", &element),
      "Tracking", [&events](const RKVXMLDictionary& tracking) {
        if (auto event = RKVVASTAdVerificationEvent::withDictionary(tracking))
          events.push_back(std::move(event));
      });

  // Both spellings of the JavaScript resource occur in the field; the standard one is read
  // first.
  Resources resources;
  auto addJavascript = [&resources](const RKVXMLDictionary& child) {
    if (auto resource = RKVVASTAdVerificationResource::javascriptResourceWithDictionary(child))
      resources.push_back(std::move(resource));
  };
  internal::forEachChildElement(&element, "JavaScriptResource", addJavascript);
  internal::forEachChildElement(&element, "JavascriptResource", addJavascript);
  internal::forEachChildElement(
      &element, "ExecutableResource", [&resources](const RKVXMLDictionary& child) {
        if (auto resource = RKVVASTAdVerificationResource::executableResourceWithDictionary(child))
          resources.push_back(std::move(resource));
      });
  if (resources.empty()) return nullptr;
  return std::make_shared<RKVVASTAdVerification>(std::move(vendor), std::move(resources),
                                                 std::move(events), std::move(parameters));
}

std::shared_ptr<RKVVASTAdVerification> RKVVASTAdVerification::withOMIDJavascriptResourceURL(
    RKVURL url, std::optional<std::string> vendor,
    std::optional<std::string> verificationParameters) {
  Resources resources{std::make_shared<RKVVASTAdVerificationResource>(0, std::move(url), "omid",
                                                                      true, std::nullopt)};
  return std::make_shared<RKVVASTAdVerification>(std::move(vendor), std::move(resources), Events(),
                                                 std::move(verificationParameters));
}

bool RKVVASTAdVerification::isEqualToAdVerification(const RKVVASTAdVerification& other) const {
  return this == &other || (vendor_ == other.vendor_ && sameEntries(resources_, other.resources_) &&
                            sameEntries(trackingEvents_, other.trackingEvents_) &&
                            verificationParameters_ == other.verificationParameters_);
}

std::shared_ptr<RKVVASTAdVerification> RKVVASTAdVerification::copy() const {
  return std::make_shared<RKVVASTAdVerification>(*this);
}

std::string RKVVASTAdVerification::archive() const {
  return internal::toJSON(internal::archiveObject(*this));
}

std::shared_ptr<RKVVASTAdVerification> RKVVASTAdVerification::unarchive(std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  return object ? internal::unarchiveAdVerification(*object) : nullptr;
}

}  // namespace rkv
