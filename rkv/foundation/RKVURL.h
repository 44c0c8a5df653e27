// RKVURL: the library's URL value (an RFC 3986 URI or relative reference). Immutable; safe to
// copy and share between threads.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"

namespace rkv {

// One name/value pair of a query, percent-decoded. A pair written without "=" has no value.
struct RKV_EXPORT RKVURLQueryItem {
  std::string name;
  std::optional<std::string> value;

  friend bool operator==(const RKVURLQueryItem&, const RKVURLQueryItem&) = default;
};

// A parsed URL: one normalized text and the offsets of its components in it.
//
// Parsing is lenient in the way VAST documents need it: a character that is not allowed in its
// component is percent-encoded (spaces become %20, "[ERRORCODE]" in a query becomes
// %5BERRORCODE%5D, every byte of non-ASCII UTF-8 becomes %XX, a "%" that does not start a valid
// escape becomes %25); valid escapes are kept as written. Leading and trailing ASCII white space
// (space, tab, CR, LF, VT, FF) is trimmed before parsing; inner white space is encoded.
//
// Rejected (no URL): empty or white-space-only text; a text starting with ":" (empty scheme); a
// scheme not made of a letter followed by letters, digits, "+", "-" or "." (so "1http://x" and
// "ht tp://x" fail); a host with a character outside unreserved, sub-delims and valid escapes
// (spaces, brackets, non-ASCII: there is no IDNA conversion); a bracketed host that is not a
// valid IPv6 address (with an optional "%25" zone) or IPvFuture literal; a port that is not
// decimal digits or exceeds 65535; an http or https URL with an authority but an empty host
// ("http://"); a text of 1 GiB or more.
//
// The scheme and host keep the case they were written in. In a reference without scheme and
// authority, a ":" in the first path segment is encoded as %3A so that it cannot read as a
// scheme. The components below are views into absoluteString(), so they are percent-encoded
// exactly as it is; they stay valid as long as this object lives.
class RKV_EXPORT RKVURL {
 public:
  // Parses a URI or relative reference; nullopt when the text is rejected (see above).
  static std::optional<RKVURL> withString(std::string_view text);
  // Parses `reference` and resolves it against `base` (RFC 3986 section 5.2, dot segments
  // removed). nullopt when the reference is rejected or the resolved text would be.
  static std::optional<RKVURL> withString(std::string_view reference, const RKVURL& base);

  // Decodes every %XX escape. nullopt when an escape is malformed ("%", "%4", "%zz") or when the
  // decoded bytes are not valid UTF-8. The text is otherwise taken as it is ("+" stays "+").
  static std::optional<std::string> removingPercentEncoding(std::string_view text);

  // The whole normalized text. Never empty.
  const std::string& absoluteString() const { return text_; }

  bool hasScheme() const { return schemeEnd_ != kNone; }
  // True when the text has "//" authority (possibly with an empty host).
  bool hasAuthority() const { return hostBegin_ != kNone; }

  std::optional<std::string_view> scheme() const;
  std::optional<std::string_view> user() const;
  std::optional<std::string_view> password() const;
  // Present (possibly empty) whenever there is an authority. An IPv6 literal keeps its brackets.
  std::optional<std::string_view> host() const;
  std::optional<uint16_t> port() const;
  // The path as written (percent-encoded); empty when the URL has none.
  std::string_view path() const;
  // Absent when the text has no "?"; empty for a bare "?".
  std::optional<std::string_view> query() const;
  // Absent when the text has no "#"; empty for a bare "#".
  std::optional<std::string_view> fragment() const;

  // The percent-decoded path split at "/": an absolute path has "/" as its first component,
  // empty segments (a trailing slash, "//") are skipped. A segment whose escapes do not decode to
  // UTF-8 is kept encoded. "http://h/a/b/" gives {"/", "a", "b"}; "http://h" gives {}.
  std::vector<std::string> pathComponents() const;
  // The last of pathComponents(), or "" when there is none.
  std::string lastPathComponent() const;

  // The query split at "&", each piece at its first "=", names and values percent-decoded ("+"
  // is not a space). A piece that does not decode is kept as written. Empty when the query is
  // absent or empty; "a&&b" gives three items, the middle one with an empty name.
  std::vector<RKVURLQueryItem> queryItems() const;

  friend bool operator==(const RKVURL& a, const RKVURL& b) { return a.text_ == b.text_; }

 private:
  friend class RKVURLParser;
  static constexpr uint32_t kNone = UINT32_MAX;

  RKVURL() = default;
  std::string_view slice(uint32_t begin, uint32_t end) const;

  std::string text_;
  // Offsets into text_; kNone marks an absent component. An "end" is one past the last byte.
  uint32_t schemeEnd_ = kNone;  // the scheme is [0, schemeEnd_)
  uint32_t userBegin_ = kNone, userEnd_ = kNone;
  uint32_t passwordBegin_ = kNone, passwordEnd_ = kNone;
  uint32_t hostBegin_ = kNone, hostEnd_ = kNone;
  uint32_t pathBegin_ = 0, pathEnd_ = 0;
  uint32_t queryBegin_ = kNone, queryEnd_ = kNone;
  uint32_t fragmentBegin_ = kNone;  // the fragment runs to the end of the text
  int32_t port_ = -1;               // -1: no port
};

// Writes the absolute string.
RKV_EXPORT std::ostream& operator<<(std::ostream& out, const RKVURL& url);

}  // namespace rkv

template <>
struct std::hash<rkv::RKVURL> {
  size_t operator()(const rkv::RKVURL& url) const noexcept {
    return std::hash<std::string>()(url.absoluteString());
  }
};
