#include "rkv/net/RKVHTTPURLResponse.h"

#include <unordered_map>
#include <utility>

#include "rkv/net/internal/RKVHeaderFields.h"

namespace rkv {

RKVHTTPURLResponse::RKVHTTPURLResponse(RKVURL url, int64_t statusCode,
                                       RKVHTTPHeaderFields headerFields)
    : url_(std::move(url)), statusCode_(statusCode) {
  // Indexed by lower-cased name, so that a hostile answer of many fields stays linear.
  std::unordered_map<std::string, size_t> positions;
  headers_.reserve(headerFields.size());
  for (auto& [name, value] : headerFields) {
    auto [it, inserted] =
        positions.try_emplace(internal::lowercasedHeaderName(name), headers_.size());
    if (inserted) {
      headers_.emplace_back(std::move(name), std::move(value));
    } else {
      headers_[it->second].second.append(", ").append(value);
    }
  }
}

std::optional<std::string> RKVHTTPURLResponse::valueForHTTPHeaderField(
    std::string_view field) const {
  auto it = internal::findHeaderField(headers_, field);
  if (it == headers_.end()) return std::nullopt;
  return it->second;
}

}  // namespace rkv
