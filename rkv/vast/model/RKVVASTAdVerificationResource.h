// RKVVASTAdVerificationResource: one script a verification loads, either a JavaScript resource
// (apiFramework set, executableType absent) or an executable one (executableType set). Immutable;
// safe to share between threads once built.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdVerificationResource {
 public:
  // Stores the fields as given. The type is carried, compared and archived but tells nothing:
  // resources built from XML all have type 0 and differ by executableType and apiFramework.
  RKVVASTAdVerificationResource(int64_t type, RKVURL url, std::optional<std::string> apiFramework,
                                bool browserOptional, std::optional<std::string> executableType);

  // A JavaScriptResource element: the URL is the element's text, apiFramework "_apiFramework",
  // browserOptional the boolean reading of "_browserOptional" (false when missing); no
  // executable type. Null when the element has no text or the text does not parse as a URL.
  static std::shared_ptr<RKVVASTAdVerificationResource> javascriptResourceWithDictionary(
      const RKVXMLDictionary& element);
  // An ExecutableResource element: the URL is the element's text, apiFramework "_apiFramework",
  // executableType "_type"; browserOptional false. Null as above.
  static std::shared_ptr<RKVVASTAdVerificationResource> executableResourceWithDictionary(
      const RKVXMLDictionary& element);

  int64_t type() const { return type_; }
  const RKVURL& url() const { return url_; }
  const std::optional<std::string>& apiFramework() const { return apiFramework_; }
  bool browserOptional() const { return browserOptional_; }
  const std::optional<std::string>& executableType() const { return executableType_; }

  // Every field equal (absent on both sides counts as equal).
  bool isEqualToResource(const RKVVASTAdVerificationResource& other) const;
  friend bool operator==(const RKVVASTAdVerificationResource& a,
                         const RKVVASTAdVerificationResource& b) {
    return a.isEqualToResource(b);
  }

  std::shared_ptr<RKVVASTAdVerificationResource> copy() const;

  // Keys "type", "url", "apiFramework", "browserOptional", "executableType"; absent fields are
  // left out.
  std::string archive() const;
  // Null when the text is not a JSON object or "url" is missing or does not parse. A missing
  // "type" reads 0 and a missing "browserOptional" false.
  static std::shared_ptr<RKVVASTAdVerificationResource> unarchive(std::string_view json);

 private:
  int64_t type_;
  RKVURL url_;
  std::optional<std::string> apiFramework_;
  bool browserOptional_;
  std::optional<std::string> executableType_;
};

}  // namespace rkv
