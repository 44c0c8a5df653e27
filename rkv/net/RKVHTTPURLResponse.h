// RKVHTTPURLResponse: the head of one HTTP answer (status code, header fields and the URL it came
// from after redirects). Immutable; safe to share between threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVURLRequest.h"

namespace rkv {

class RKV_EXPORT RKVHTTPURLResponse {
 public:
  // `headerFields` as received, repeated names allowed: fields of the same name (compared
  // without ASCII case) are joined into the first one's entry with ", ", in order.
  RKVHTTPURLResponse(RKVURL url, int64_t statusCode, RKVHTTPHeaderFields headerFields);

  // The URL that answered: the request's URL, or the last redirect's target.
  const RKVURL& URL() const { return url_; }
  int64_t statusCode() const { return statusCode_; }
  // One entry per field name, in order of first appearance.
  const RKVHTTPHeaderFields& allHeaderFields() const { return headers_; }
  // The field's value, looked up without regard to ASCII case; nullopt when absent.
  std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;

 private:
  RKVURL url_;
  int64_t statusCode_;
  RKVHTTPHeaderFields headers_;
};

}  // namespace rkv
