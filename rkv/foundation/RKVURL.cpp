#include "rkv/foundation/RKVURL.h"

#include <cstring>
#include <ostream>

#include <arpa/inet.h>

#include "rkv/foundation/internal/RKVText.h"
#include "rkv/foundation/internal/RKVURLCharacters.h"

namespace rkv {

using namespace url_internal;

namespace {

constexpr size_t kMaxTextSize = size_t{1} << 30;

bool isOneOf(char c, char a, char b) {
  return c == a || c == b;
}

bool isOneOf(char c, char a, char b, char d) {
  return c == a || c == b || c == d;
}

// appendEncoded (keeping valid escapes) of text[i...] up to the first `stop` or `otherStop`,
// found in the same pass (neither is in `cls`); answers where it stopped.
size_t appendEncodedUntil(std::string& out, std::string_view text, size_t i, uint8_t cls, char stop,
                          char otherStop) {
  size_t runStart = i;
  for (; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (hasClass(c, cls)) continue;
    if (isOneOf(text[i], stop, otherStop)) break;
    if (isEscapeAt(text, i)) {  // an escape never spans a stop: stops are no hex digits
      i += 2;
      continue;
    }
    out.append(text, runStart, i - runStart);
    appendEscaped(out, c);
    runStart = i + 1;
  }
  out.append(text, runStart, i - runStart);
  return i;
}

bool isValidScheme(std::string_view scheme) {
  if (!internal::isASCIIAlpha(scheme.front())) return false;
  for (char c : scheme) {
    if (!hasClass(static_cast<unsigned char>(c), kSchemeChar)) return false;
  }
  return true;
}

// Every byte is in `cls` or starts a valid %XX escape.
bool isMadeOf(std::string_view text, uint8_t cls) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (hasClass(static_cast<unsigned char>(text[i]), cls)) continue;
    if (!isEscapeAt(text, i)) return false;
    i += 2;
  }
  return true;
}

// "[" IPv6address [ "%25" zone ] "]" or "[" IPvFuture "]"; `host` includes the brackets.
bool isValidIPLiteral(std::string_view host) {
  if (host.size() < 3 || host.front() != '[' || host.back() != ']') return false;
  std::string_view inner = host.substr(1, host.size() - 2);
  if (inner.front() == 'v' || inner.front() == 'V') {
    size_t dot = inner.find('.');
    if (dot == std::string_view::npos || dot < 2 || dot + 1 == inner.size()) return false;
    for (char c : inner.substr(1, dot - 1)) {
      if (!isHexDigit(c)) return false;
    }
    for (char c : inner.substr(dot + 1)) {
      if (!hasClass(static_cast<unsigned char>(c), kIPLiteralChar)) return false;
    }
    return true;
  }
  std::string_view address = inner;
  size_t percent = inner.find('%');
  if (percent != std::string_view::npos) {
    std::string_view zone = inner.substr(percent);
    if (zone.size() <= 3 || zone.substr(0, 3) != "%25" || !isMadeOf(zone.substr(3), kUnreserved)) {
      return false;
    }
    address = inner.substr(0, percent);
  }
  char buffer[64];  // the longest IPv6 text is 45 characters
  if (address.empty() || address.size() >= sizeof buffer) return false;
  std::memcpy(buffer, address.data(), address.size());
  buffer[address.size()] = '\0';
  unsigned char bytes[16];
  return inet_pton(AF_INET6, buffer, bytes) == 1;
}

// RFC 3986 section 5.2.4, on an encoded path.
std::string removeDotSegments(std::string_view input) {
  std::string output;
  output.reserve(input.size());
  auto dropLastSegment = [&output] {
    size_t slash = output.rfind('/');
    output.erase(slash == std::string::npos ? 0 : slash);
  };
  while (!input.empty()) {
    if (input.starts_with("../")) {
      input.remove_prefix(3);
    } else if (input.starts_with("./")) {
      input.remove_prefix(2);
    } else if (input.starts_with("/./")) {
      input.remove_prefix(2);
    } else if (input == "/.") {
      input = "/";
    } else if (input.starts_with("/../")) {
      input.remove_prefix(3);
      dropLastSegment();
    } else if (input == "/..") {
      input = "/";
      dropLastSegment();
    } else if (input == "." || input == "..") {
      input = {};
    } else {
      size_t next = input.find('/', 1);
      if (next == std::string_view::npos) next = input.size();
      output.append(input.substr(0, next));
      input.remove_prefix(next);
    }
  }
  return output;
}

std::string decodedOrRaw(std::string_view text) {
  if (auto decoded = RKVURL::removingPercentEncoding(text)) return std::move(*decoded);
  return std::string(text);
}

}  // namespace

// Builds an RKVURL in one pass over the text: each component is copied to the normalized text,
// encoded where needed, while its offsets are recorded.
class RKVURLParser {
 public:
  static std::optional<RKVURL> parse(std::string_view text) {
    text = internal::trimmed(text);
    if (text.empty() || text.size() >= kMaxTextSize) return std::nullopt;
    RKVURL url;
    std::string& out = url.text_;
    out.reserve(text.size() + 16);
    size_t i = 0;

    // A scheme ends at the first ":" unless a delimiter that cannot be part of it comes first.
    size_t colon = std::string_view::npos;
    for (size_t k = 0; k < text.size(); ++k) {
      const char c = text[k];
      if (c == ':') {
        colon = k;
        break;
      }
      if (c == '/' || c == '?' || c == '#' || c == '[' || c == ']' || c == '@') break;
    }
    if (colon == 0) return std::nullopt;
    if (colon != std::string_view::npos) {
      if (!isValidScheme(text.substr(0, colon))) return std::nullopt;
      out.append(text, 0, colon + 1);
      url.schemeEnd_ = static_cast<uint32_t>(colon);
      i = colon + 1;
    }

    if (text.size() - i >= 2 && text[i] == '/' && text[i + 1] == '/') {
      out.append("//");
      i += 2;
      size_t end = i;
      while (end < text.size() && !isOneOf(text[end], '/', '?', '#'))
        ++end;
      if (!parseAuthority(text.substr(i, end - i), url)) return std::nullopt;
      i = end;
    }

    url.pathBegin_ = static_cast<uint32_t>(out.size());
    if (!url.hasScheme() && !url.hasAuthority()) {
      size_t pathEnd = i;
      while (pathEnd < text.size() && !isOneOf(text[pathEnd], '?', '#'))
        ++pathEnd;
      std::string_view path = text.substr(i, pathEnd - i);
      // A ":" in the first segment of such a reference would read as a scheme delimiter.
      size_t slash = path.find('/');
      std::string_view first = path.substr(0, slash);
      for (size_t c; (c = first.find(':')) != std::string_view::npos;) {
        appendEncoded(out, first.substr(0, c), kPathChar, true);
        out.append("%3A");
        first.remove_prefix(c + 1);
      }
      appendEncoded(out, first, kPathChar, true);
      if (slash != std::string_view::npos) appendEncoded(out, path.substr(slash), kPathChar, true);
      i = pathEnd;
    } else {
      i = appendEncodedUntil(out, text, i, kPathChar, '?', '#');
    }
    url.pathEnd_ = static_cast<uint32_t>(out.size());

    if (i < text.size() && text[i] == '?') {
      out.push_back('?');
      url.queryBegin_ = static_cast<uint32_t>(out.size());
      i = appendEncodedUntil(out, text, i + 1, kQueryChar, '#', '#');
      url.queryEnd_ = static_cast<uint32_t>(out.size());
    }
    if (i < text.size()) {  // at "#"
      out.push_back('#');
      url.fragmentBegin_ = static_cast<uint32_t>(out.size());
      appendEncoded(out, text.substr(i + 1), kQueryChar, true);
    }
    return url;
  }

 private:
  static bool parseAuthority(std::string_view authority, RKVURL& url) {
    std::string& out = url.text_;
    // The last "@" ends the user information, so an "@" inside a password needs no encoding.
    size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
      std::string_view userInfo = authority.substr(0, at);
      size_t colon = userInfo.find(':');
      url.userBegin_ = static_cast<uint32_t>(out.size());
      appendEncoded(out, userInfo.substr(0, colon), kUserInfoChar, true);
      url.userEnd_ = static_cast<uint32_t>(out.size());
      if (colon != std::string_view::npos) {
        out.push_back(':');
        url.passwordBegin_ = static_cast<uint32_t>(out.size());
        appendEncoded(out, userInfo.substr(colon + 1), kUserInfoChar, true);
        url.passwordEnd_ = static_cast<uint32_t>(out.size());
      }
      out.push_back('@');
      authority.remove_prefix(at + 1);
    }

    std::string_view host;
    std::optional<std::string_view> portText;
    if (!authority.empty() && authority.front() == '[') {
      size_t close = authority.find(']');
      if (close == std::string_view::npos) return false;
      host = authority.substr(0, close + 1);
      if (!isValidIPLiteral(host)) return false;
      std::string_view rest = authority.substr(close + 1);
      if (!rest.empty()) {
        if (rest.front() != ':') return false;
        portText = rest.substr(1);
      }
    } else {
      size_t colon = authority.find(':');
      host = authority.substr(0, colon);
      if (colon != std::string_view::npos) portText = authority.substr(colon + 1);
      if (!isMadeOf(host, kHostChar)) return false;
    }
    if (host.empty() && url.hasScheme()) {
      std::string_view scheme = *url.scheme();
      if (internal::asciiEqualsIgnoringCase(scheme, "http") ||
          internal::asciiEqualsIgnoringCase(scheme, "https")) {
        return false;
      }
    }
    url.hostBegin_ = static_cast<uint32_t>(out.size());
    out.append(host);
    url.hostEnd_ = static_cast<uint32_t>(out.size());

    if (portText) {
      // An empty port ("host:") is kept as written and reads as no port.
      int32_t port = 0;
      for (char c : *portText) {
        if (c < '0' || c > '9') return false;
        port = port * 10 + (c - '0');
        if (port > 65535) return false;
      }
      out.push_back(':');
      out.append(*portText);
      if (!portText->empty()) url.port_ = port;
    }
    return true;
  }
};

std::optional<RKVURL> RKVURL::withString(std::string_view text) {
  return RKVURLParser::parse(text);
}

std::optional<RKVURL> RKVURL::withString(std::string_view reference, const RKVURL& base) {
  std::optional<RKVURL> ref = withString(reference);
  if (!ref) return std::nullopt;

  auto authorityOf = [](const RKVURL& url) -> std::optional<std::string_view> {
    if (!url.hasAuthority()) return std::nullopt;
    uint32_t begin = url.hasScheme() ? url.schemeEnd_ + 3 : 2;
    return url.slice(begin, url.pathBegin_);
  };

  std::optional<std::string_view> scheme, authority, query;
  std::string path;
  if (ref->hasScheme()) {
    scheme = ref->scheme();
    authority = authorityOf(*ref);
    path = removeDotSegments(ref->path());
    query = ref->query();
  } else {
    scheme = base.scheme();
    if (ref->hasAuthority()) {
      authority = authorityOf(*ref);
      path = removeDotSegments(ref->path());
      query = ref->query();
    } else {
      authority = authorityOf(base);
      if (ref->path().empty()) {
        path = base.path();
        query = ref->query() ? ref->query() : base.query();
      } else {
        if (ref->path().front() == '/') {
          path = removeDotSegments(ref->path());
        } else {
          std::string merged;
          if (base.hasAuthority() && base.path().empty()) {
            merged = "/";
          } else {
            std::string_view basePath = base.path();
            size_t slash = basePath.rfind('/');
            if (slash != std::string_view::npos) merged.assign(basePath.substr(0, slash + 1));
          }
          merged.append(ref->path());
          path = removeDotSegments(merged);
        }
        query = ref->query();
      }
    }
  }

  std::string result;
  result.reserve(base.text_.size() + ref->text_.size());
  if (scheme) {
    result.append(*scheme);
    result.push_back(':');
  }
  if (authority) {
    result.append("//");
    result.append(*authority);
  } else if (path.starts_with("//")) {
    result.append("/.");  // keeps an empty first segment from reading as an authority
  } else if (!scheme && path.find(':') < path.find('/')) {
    result.append("./");  // keeps a ":" in the first segment from reading as a scheme
  }
  result.append(path);
  if (query) {
    result.push_back('?');
    result.append(*query);
  }
  if (std::optional<std::string_view> fragment = ref->fragment()) {
    result.push_back('#');
    result.append(*fragment);
  }
  return withString(result);
}

std::optional<std::string> RKVURL::removingPercentEncoding(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t runStart = 0;
  for (size_t i = text.find('%'); i != std::string_view::npos; i = text.find('%', runStart)) {
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out.append(text, runStart, i - runStart);
    out.push_back(static_cast<char>(high * 16 + low));
    runStart = i + 3;
  }
  out.append(text, runStart, text.size() - runStart);
  if (!internal::isValidUTF8(out)) return std::nullopt;
  return out;
}

std::string_view RKVURL::slice(uint32_t begin, uint32_t end) const {
  return std::string_view(text_).substr(begin, end - begin);
}

std::optional<std::string_view> RKVURL::scheme() const {
  if (schemeEnd_ == kNone) return std::nullopt;
  return slice(0, schemeEnd_);
}

std::optional<std::string_view> RKVURL::user() const {
  if (userBegin_ == kNone) return std::nullopt;
  return slice(userBegin_, userEnd_);
}

std::optional<std::string_view> RKVURL::password() const {
  if (passwordBegin_ == kNone) return std::nullopt;
  return slice(passwordBegin_, passwordEnd_);
}

std::optional<std::string_view> RKVURL::host() const {
  if (hostBegin_ == kNone) return std::nullopt;
  return slice(hostBegin_, hostEnd_);
}

std::optional<uint16_t> RKVURL::port() const {
  if (port_ < 0) return std::nullopt;
  return static_cast<uint16_t>(port_);
}

std::string_view RKVURL::path() const {
  return slice(pathBegin_, pathEnd_);
}

std::optional<std::string_view> RKVURL::query() const {
  if (queryBegin_ == kNone) return std::nullopt;
  return slice(queryBegin_, queryEnd_);
}

std::optional<std::string_view> RKVURL::fragment() const {
  if (fragmentBegin_ == kNone) return std::nullopt;
  return slice(fragmentBegin_, static_cast<uint32_t>(text_.size()));
}

std::vector<std::string> RKVURL::pathComponents() const {
  std::vector<std::string> components;
  std::string_view rest = path();
  if (rest.starts_with('/')) components.emplace_back("/");
  while (!rest.empty()) {
    size_t slash = rest.find('/');
    std::string_view segment = rest.substr(0, slash);
    if (!segment.empty()) components.push_back(decodedOrRaw(segment));
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
  }
  return components;
}

std::string RKVURL::lastPathComponent() const {
  std::vector<std::string> components = pathComponents();
  return components.empty() ? std::string() : std::move(components.back());
}

std::vector<RKVURLQueryItem> RKVURL::queryItems() const {
  std::optional<std::string_view> text = query();
  if (!text) return {};
  return decodeQueryItems(*text);
}

std::vector<RKVURLQueryItem> url_internal::decodeQueryItems(std::string_view query) {
  std::vector<RKVURLQueryItem> items;
  if (query.empty()) return items;
  while (true) {
    size_t amp = query.find('&');
    std::string_view piece = query.substr(0, amp);
    size_t equals = piece.find('=');
    RKVURLQueryItem item;
    item.name = decodedOrRaw(piece.substr(0, equals));
    if (equals != std::string_view::npos) item.value = decodedOrRaw(piece.substr(equals + 1));
    items.push_back(std::move(item));
    if (amp == std::string_view::npos) break;
    query.remove_prefix(amp + 1);
  }
  return items;
}

std::ostream& operator<<(std::ostream& out, const RKVURL& url) {
  return out << url.absoluteString();
}

}  // namespace rkv
