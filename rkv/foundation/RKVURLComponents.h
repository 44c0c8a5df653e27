// RKVURLComponents: a URL taken apart so that its query can be replaced, then put together again.
// A plain value: not synchronised; copy it to share it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

class RKV_EXPORT RKVURLComponents {
 public:
  explicit RKVURLComponents(const RKVURL& url);
  // nullopt when the text does not parse as an RKVURL.
  static std::optional<RKVURLComponents> withString(std::string_view text);

  // The query as it will be written (percent-encoded); nullopt when there is none.
  const std::optional<std::string>& percentEncodedQuery() const { return query_; }
  // The query's items, decoded as RKVURL::queryItems does; nullopt when there is no query.
  std::optional<std::vector<RKVURLQueryItem>> queryItems() const;
  // Replaces the query. Each item is written "name=value" ("name" alone without a value) and
  // items are joined with "&". Names and values are taken as plain text: every character that a
  // query may not hold is percent-encoded, "%" included, while "&", "=", "+", "/", "?", ":" and
  // "@" are left as they are. An empty list makes an empty query (a bare "?"); nullopt removes
  // the query.
  void setQueryItems(const std::optional<std::vector<RKVURLQueryItem>>& items);

  // The URL these components make; nullopt only when they make an empty text.
  std::optional<RKVURL> URL() const;

 private:
  std::string beforeQuery_;  // scheme, authority and path, encoded
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace rkv
