// RKVURLRequest: one HTTP request to make (URL, method, header fields, body, cache policy and
// time-out), the value callers hand to the session. A plain value: not synchronized, copy it to
// give it to another thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

// Header fields in order, one entry per name.
using RKVHTTPHeaderFields = std::vector<std::pair<std::string, std::string>>;

class RKV_EXPORT RKVURLRequest {
 public:
  // The platform's cache policies. No answer is ever kept on the device, so every policy but 3
  // is met by loading, and none adds a header field (docs/ARCHITECTURE.md, "HTTP session"): a
  // caller that wants caches on the way bypassed sets Cache-Control itself. 3 (cached answer
  // only) fails with -1008 unloaded.
  static constexpr int64_t UseProtocolCachePolicy = 0;
  static constexpr int64_t ReloadIgnoringLocalCacheData = 1;
  static constexpr int64_t ReturnCacheDataElseLoad = 2;
  static constexpr int64_t ReturnCacheDataDontLoad = 3;
  static constexpr int64_t ReloadIgnoringLocalAndRemoteCacheData = 4;
  static constexpr int64_t ReloadRevalidatingCacheData = 5;

  // A GET request without header fields or body. `timeoutInterval` is in seconds.
  explicit RKVURLRequest(RKVURL url, int64_t cachePolicy = UseProtocolCachePolicy,
                         double timeoutInterval = 60.0);

  const RKVURL& URL() const { return url_; }
  void setURL(RKVURL url) { url_ = std::move(url); }

  // "GET" unless set; an empty method is taken as "GET".
  const std::string& HTTPMethod() const { return method_; }
  void setHTTPMethod(std::string method);

  int64_t cachePolicy() const { return cachePolicy_; }
  void setCachePolicy(int64_t cachePolicy) { cachePolicy_ = cachePolicy; }

  // Seconds the whole exchange may take (connection, redirects, answer). Zero, negative or NaN
  // stand for the session's default of 60 seconds when the request is made.
  double timeoutInterval() const { return timeoutInterval_; }
  void setTimeoutInterval(double seconds) { timeoutInterval_ = seconds; }

  // Sent for every method but GET and HEAD. Absent and empty differ: an empty body is sent as
  // "Content-Length: 0".
  const std::optional<std::string>& HTTPBody() const { return body_; }
  void setHTTPBody(std::optional<std::string> body) { body_ = std::move(body); }

  // Field names compare without regard to ASCII case; an entry keeps the spelling it was first
  // set with. A field whose name is not an HTTP token (empty, or holding white space, a control
  // byte or a separator such as ":" or "("), or whose value holds CR, LF or NUL, is kept here
  // but never sent.
  const RKVHTTPHeaderFields& allHTTPHeaderFields() const { return headers_; }
  std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;
  // Replaces the field's value; nullopt removes the field.
  void setValue(std::optional<std::string> value, std::string_view field);
  // Appends to the field's value, separated by ",", or adds the field.
  void addValue(std::string_view value, std::string_view field);

 private:
  RKVURL url_;
  std::string method_ = "GET";
  int64_t cachePolicy_;
  double timeoutInterval_;
  std::optional<std::string> body_;
  RKVHTTPHeaderFields headers_;
};

}  // namespace rkv
