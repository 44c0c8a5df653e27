// RKVVASTAdExtensionAdVerification: a verification script as the ad extension carries it, one
// JavaScript URL with its vendor and parameters. Immutable; safe to share between threads.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdExtensionAdVerification {
 public:
  explicit RKVVASTAdExtensionAdVerification(
      RKVURL javascriptResourceURL, std::optional<std::string> vendor = std::nullopt,
      std::optional<std::string> verificationParameters = std::nullopt);

  const RKVURL& javascriptResourceURL() const { return javascriptResourceURL_; }
  const std::optional<std::string>& vendor() const { return vendor_; }
  const std::optional<std::string>& verificationParameters() const {
    return verificationParameters_;
  }

  // Script URL, vendor and parameters equal.
  bool isEqualToScript(const RKVVASTAdExtensionAdVerification& other) const;
  friend bool operator==(const RKVVASTAdExtensionAdVerification& a,
                         const RKVVASTAdExtensionAdVerification& b) {
    return a.isEqualToScript(b);
  }

  std::shared_ptr<RKVVASTAdExtensionAdVerification> copy() const;

  // Keys "javascriptResourceURL", "vendor", "verificationParameters"; absent fields are left
  // out.
  std::string archive() const;
  // Null when the text is not a JSON object or "javascriptResourceURL" is missing or does not
  // parse.
  static std::shared_ptr<RKVVASTAdExtensionAdVerification> unarchive(std::string_view json);

 private:
  RKVURL javascriptResourceURL_;
  std::optional<std::string> vendor_;
  std::optional<std::string> verificationParameters_;
};

}  // namespace rkv
