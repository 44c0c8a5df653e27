// RKVVASTClickEvent: one click URL with its kind. Immutable after construction; safe to share
// between threads.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

class RKV_EXPORT RKVVASTClickEvent {
 public:
  RKVVASTClickEvent(std::string type, RKVURL url);

  // Null when the type or the URL text is empty or white space only, or the text does not parse
  // as a URL.
  static std::shared_ptr<RKVVASTClickEvent> withType(std::string_view type,
                                                     std::string_view urlString);

  // The kind of click.
  const std::string& type() const { return type_; }
  const RKVURL& url() const { return url_; }

  // Type and URL equal.
  bool isEqualToClickEvent(const RKVVASTClickEvent& other) const;
  friend bool operator==(const RKVVASTClickEvent& a, const RKVVASTClickEvent& b) {
    return a.isEqualToClickEvent(b);
  }

 private:
  std::string type_;
  RKVURL url_;
};

}  // namespace rkv
