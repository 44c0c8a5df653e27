#include "rkv/vast/model/RKVVASTClickEvent.h"

#include <optional>
#include <utility>

#include "rkv/foundation/RKVUtils.h"

namespace rkv {

RKVVASTClickEvent::RKVVASTClickEvent(std::string type, RKVURL url)
    : type_(std::move(type)), url_(std::move(url)) {}

std::shared_ptr<RKVVASTClickEvent> RKVVASTClickEvent::withType(std::string_view type,
                                                               std::string_view urlString) {
  if (RKVUtils::stringIsEmptyOrWhiteSpace(type) || RKVUtils::stringIsEmptyOrWhiteSpace(urlString))
    return nullptr;
  std::optional<RKVURL> url = RKVURL::withString(urlString);
  if (!url) return nullptr;
  return std::make_shared<RKVVASTClickEvent>(std::string(type), std::move(*url));
}

bool RKVVASTClickEvent::isEqualToClickEvent(const RKVVASTClickEvent& other) const {
  return type_ == other.type_ && url_ == other.url_;
}

}  // namespace rkv
