#include "rkv/foundation/RKVURLComponents.h"

#include "rkv/foundation/internal/RKVURLCharacters.h"

namespace rkv {

using namespace url_internal;

RKVURLComponents::RKVURLComponents(const RKVURL& url) {
  const std::string& text = url.absoluteString();
  std::optional<std::string_view> query = url.query();
  std::optional<std::string_view> fragment = url.fragment();
  size_t prefixEnd = text.size();
  if (query) {
    prefixEnd = static_cast<size_t>(query->data() - text.data()) - 1;
  } else if (fragment) {
    prefixEnd = static_cast<size_t>(fragment->data() - text.data()) - 1;
  }
  beforeQuery_.assign(text, 0, prefixEnd);
  if (query) query_.emplace(*query);
  if (fragment) fragment_.emplace(*fragment);
}

std::optional<RKVURLComponents> RKVURLComponents::withString(std::string_view text) {
  std::optional<RKVURL> url = RKVURL::withString(text);
  if (!url) return std::nullopt;
  return RKVURLComponents(*url);
}

std::optional<std::vector<RKVURLQueryItem>> RKVURLComponents::queryItems() const {
  if (!query_) return std::nullopt;
  return decodeQueryItems(*query_);
}

void RKVURLComponents::setQueryItems(const std::optional<std::vector<RKVURLQueryItem>>& items) {
  if (!items) {
    query_.reset();
    return;
  }
  std::string query;
  for (const RKVURLQueryItem& item : *items) {
    if (&item != &items->front()) query.push_back('&');
    appendEncoded(query, item.name, kQueryChar, false);
    if (item.value) {
      query.push_back('=');
      appendEncoded(query, *item.value, kQueryChar, false);
    }
  }
  query_ = std::move(query);
}

std::optional<RKVURL> RKVURLComponents::URL() const {
  std::string text = beforeQuery_;
  if (query_) {
    text.push_back('?');
    text.append(*query_);
  }
  if (fragment_) {
    text.push_back('#');
    text.append(*fragment_);
  }
  return RKVURL::withString(text);
}

}  // namespace rkv
