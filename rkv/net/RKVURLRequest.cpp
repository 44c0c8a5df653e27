#include "rkv/net/RKVURLRequest.h"

#include "rkv/net/internal/RKVHeaderFields.h"

namespace rkv {

RKVURLRequest::RKVURLRequest(RKVURL url, int64_t cachePolicy, double timeoutInterval)
    : url_(std::move(url)), cachePolicy_(cachePolicy), timeoutInterval_(timeoutInterval) {}

void RKVURLRequest::setHTTPMethod(std::string method) {
  method_ = method.empty() ? std::string("GET") : std::move(method);
}

std::optional<std::string> RKVURLRequest::valueForHTTPHeaderField(std::string_view field) const {
  auto it = internal::findHeaderField(headers_, field);
  if (it == headers_.end()) return std::nullopt;
  return it->second;
}

void RKVURLRequest::setValue(std::optional<std::string> value, std::string_view field) {
  auto it = internal::findHeaderField(headers_, field);
  if (!value) {
    if (it != headers_.end()) headers_.erase(it);
  } else if (it != headers_.end()) {
    it->second = std::move(*value);
  } else {
    headers_.emplace_back(std::string(field), std::move(*value));
  }
}

void RKVURLRequest::addValue(std::string_view value, std::string_view field) {
  auto it = internal::findHeaderField(headers_, field);
  if (it == headers_.end()) {
    headers_.emplace_back(std::string(field), std::string(value));
  } else {
    it->second.append(",").append(value);
  }
}

}  // namespace rkv
