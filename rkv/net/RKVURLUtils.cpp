#include "rkv/net/RKVURLUtils.h"

#include <array>
#include <charconv>
#include <climits>

#include "rkv/foundation/RKVURLComponents.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/foundation/internal/RKVText.h"

namespace rkv {

namespace {

// The own SDK family's scheme.
constexpr std::string_view kOwnSDKScheme = "vhb";

constexpr std::array<std::string_view, 3> kMapsSchemes = {
    "comgooglemaps", "comgooglemaps-x-callback", "comgooglemapsurl"};
// A search company's web maps site and the platform maker's maps site.
constexpr std::array<std::string_view, 4> kMapsPrefixes = {
    "http://maps.google.com/", "https://maps.google.com/",  //
    "http://maps.apple.com/", "https://maps.apple.com/"};
// The public video-sharing site.
constexpr std::array<std::string_view, 2> kVideoSitePrefixes = {"http://www.youtube.com/",
                                                                "https://www.youtube.com/"};
// The store's short links and its "apps" host.
constexpr std::array<std::string_view, 4> kAppStorePrefixes = {
    "http://appstore.com/", "https://appstore.com/",  //
    "http://apps.apple.com/", "https://apps.apple.com/"};
// The older media store, also opened through the store application's own scheme.
constexpr std::array<std::string_view, 3> kMediaStorePrefixes = {
    "http://itunes.apple.com/", "https://itunes.apple.com/", "itms-apps://itunes.apple.com/"};
// The store's legacy host, which carries the identifier in the query ("?id=...").
constexpr std::array<std::string_view, 2> kPhobosPrefixes = {"http://phobos.apple.com/",
                                                             "https://phobos.apple.com/"};

template <size_t N>
bool startsWithAny(std::string_view text, const std::array<std::string_view, N>& prefixes) {
  for (std::string_view prefix : prefixes) {
    if (text.starts_with(prefix)) return true;
  }
  return false;
}

template <size_t N>
bool isAnyOf(std::optional<std::string_view> text, const std::array<std::string_view, N>& set) {
  if (!text) return false;
  for (std::string_view candidate : set) {
    if (*text == candidate) return true;
  }
  return false;
}

// Every occurrence of `what` (not empty) replaced by `with`, scanning left to right.
std::string replacingOccurrences(std::string_view text, std::string_view what,
                                 std::string_view with) {
  std::string result;
  result.reserve(text.size());
  size_t from = 0;
  for (size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, from)) {
    result.append(text, from, at - from);
    result.append(with);
    from = at + what.size();
  }
  result.append(text, from, text.size() - from);
  return result;
}

// A C integer read: leading white space, an optional sign, then digits up to the first other
// character; no digits read 0, values beyond 32 bits are clamped.
int32_t leadingInt32(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
    ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > int64_t{INT32_MAX} + 1) break;
  }
  if (negative) value = -value;
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

std::optional<int32_t> nonZero(int32_t value) {
  if (value == 0) return std::nullopt;
  return value;
}

}  // namespace

std::string RKVURLUtils::parameterDescription(const RKVURLParameterValue& value) {
  struct Describe {
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "1" : "0"; }
    std::string operator()(double number) const {
      char buffer[64];
      auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, number);
      if (error != std::errc()) return "0";
      return std::string(buffer, end);
    }
  };
  return std::visit(Describe(), value);
}

std::optional<RKVURL> RKVURLUtils::buildURLWithBaseURLString(
    std::string_view base, std::optional<std::string_view> path,
    const std::optional<RKVURLParameters>& parameters) {
  if (base.empty()) return std::nullopt;
  while (base.ends_with('/'))
    base.remove_suffix(1);
  std::string text(base);
  if (path) {
    if (!path->starts_with('/')) text.push_back('/');
    text.append(*path);
  } else {
    text.push_back('/');
  }
  if (!parameters) return RKVURL::withString(text);

  std::optional<RKVURLComponents> components = RKVURLComponents::withString(text);
  if (!components) return std::nullopt;
  std::vector<RKVURLQueryItem> items;
  items.reserve(parameters->size());
  for (const auto& [name, value] : *parameters) {
    items.push_back({name, parameterDescription(value)});
  }
  components->setQueryItems(items);
  return components->URL();
}

bool RKVURLUtils::canAddPath(std::string_view string) {
  return string.ends_with('/');
}

std::string RKVURLUtils::removeLastSlashFromString(std::string_view string) {
  if (string.ends_with('/')) string.remove_suffix(1);
  return std::string(string);
}

RKVURL RKVURLUtils::replaceMacro(std::string_view macro, const RKVURL& inURL,
                                 std::string_view byString) {
  std::optional<std::string> decoded = RKVURL::removingPercentEncoding(inURL.absoluteString());
  if (!decoded) return inURL;
  if (!macro.empty()) *decoded = replacingOccurrences(*decoded, macro, byString);
  std::optional<RKVURL> replaced = RKVURL::withString(*decoded);
  return replaced ? *replaced : inURL;
}

std::vector<RKVURL> RKVURLUtils::arrayOfURLsWithCommaSeparatedString(std::string_view string) {
  const std::string compact = RKVUtils::stringByRemovingWhiteSpace(string);
  std::vector<RKVURL> urls;
  std::string_view rest = compact;
  while (true) {
    size_t comma = rest.find(',');
    if (std::optional<RKVURL> url = RKVURL::withString(rest.substr(0, comma))) {
      urls.push_back(std::move(*url));
    }
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  return urls;
}

RKVURLType RKVURLUtils::URLType(const RKVURL& url) {
  const std::string& text = url.absoluteString();
  const std::optional<std::string_view> scheme = url.scheme();
  if (text.empty()) return RKVURLType::None;
  if (scheme == kOwnSDKScheme) return RKVURLType::OwnSDK;
  if (isAnyOf(scheme, kMapsSchemes) || startsWithAny(text, kMapsPrefixes)) {
    return RKVURLType::Maps;
  }
  if (scheme == "sms") return RKVURLType::SMS;
  if (scheme == "tel") return RKVURLType::Telephone;
  if (startsWithAny(text, kVideoSitePrefixes)) return RKVURLType::VideoSite;
  if (isAppStoreURL(url)) return RKVURLType::AppStore;
  if (text.starts_with("mailto")) return RKVURLType::Mail;
  if (URLHasHTTPScheme(url)) {
    if (URLHasVideoExtension(url)) return RKVURLType::VideoFile;
    if (URLHasPassbookExtension(url)) return RKVURLType::Pass;
    return RKVURLType::Web;
  }
  return RKVURLType::OtherScheme;
}

RKVAppStoreURLType RKVURLUtils::appStoreURLType(const RKVURL& url) {
  const std::string& text = url.absoluteString();
  if (startsWithAny(text, kAppStorePrefixes)) return RKVAppStoreURLType::AppStore;
  if (startsWithAny(text, kMediaStorePrefixes)) return RKVAppStoreURLType::MediaStore;
  if (startsWithAny(text, kPhobosPrefixes)) return RKVAppStoreURLType::Phobos;
  return RKVAppStoreURLType::None;
}

bool RKVURLUtils::isAppStoreURL(const RKVURL& url) {
  return appStoreURLType(url) != RKVAppStoreURLType::None;
}

std::optional<int32_t> RKVURLUtils::appStoreAppId(const RKVURL& url) {
  switch (appStoreURLType(url)) {
    case RKVAppStoreURLType::AppStore:
    case RKVAppStoreURLType::MediaStore:
      return appIdentifierForAppStoreAndiTunesURL(url);
    case RKVAppStoreURLType::Phobos:
      return appIdentifierForPhobosURL(url);
    case RKVAppStoreURLType::None:
      break;
  }
  return std::nullopt;
}

bool RKVURLUtils::isValidAppStoreURL(const RKVURL& url) {
  return isAppStoreURL(url) && appStoreAppId(url).has_value();
}

std::optional<int32_t> RKVURLUtils::appIdentifierForAppStoreAndiTunesURL(const RKVURL& url) {
  const std::string component = internal::asciiLowercased(url.lastPathComponent());
  return nonZero(leadingInt32(replacingOccurrences(component, "id", "")));
}

std::optional<int32_t> RKVURLUtils::appIdentifierForPhobosURL(const RKVURL& url) {
  std::optional<std::string> id = valueForKey("id", url);
  if (!id) return std::nullopt;
  return nonZero(leadingInt32(*id));
}

bool RKVURLUtils::URLHasScheme(const RKVURL& url) {
  return url.hasScheme();
}

bool RKVURLUtils::URLHasHTTPScheme(const RKVURL& url) {
  const std::optional<std::string_view> scheme = url.scheme();
  if (!scheme) return false;
  const std::string lower = internal::asciiLowercased(*scheme);
  return lower == "http" || lower == "https";
}

std::optional<RKVURL> RKVURLUtils::URLByAddingHTTPSchemeTo(const RKVURL& url, bool secured) {
  std::string text = secured ? "https://" : "http://";
  text.append(url.absoluteString());
  return RKVURL::withString(text);
}

std::optional<RKVURL> RKVURLUtils::URLByDeletingQuery(const RKVURL& url) {
  const std::optional<std::string_view> query = url.query();
  if (!query) return url;
  std::string text = url.absoluteString();
  if (!query->empty()) text = replacingOccurrences(text, *query, "");
  text = replacingOccurrences(text, "?", "");
  return RKVURL::withString(text);
}

std::optional<RKVURL> RKVURLUtils::URLByDeletingLastPathComponentAndQuery(const RKVURL& url) {
  std::optional<RKVURL> result = url.query() ? URLByDeletingQuery(url) : url;
  if (!result) return std::nullopt;
  const std::vector<std::string> components = result->pathComponents();
  if (components.empty() || components.back() == "/") return result;

  // Keep everything up to the path, the path up to the "/" before its last segment, and what
  // follows the path.
  const std::string& text = result->absoluteString();
  const std::string_view path = result->path();
  const size_t pathBegin = static_cast<size_t>(path.data() - text.data());
  size_t end = path.size();
  while (end > 0 && path[end - 1] == '/')
    --end;
  const size_t slash = path.rfind('/', end - 1);
  std::string shortened = text.substr(0, pathBegin);
  if (slash != std::string_view::npos) {
    shortened.append(path.substr(0, slash + 1));
  } else if (!result->hasScheme() && !result->hasAuthority()) {
    shortened.append("./");  // a relative reference to the current folder
  }
  shortened.append(text, pathBegin + path.size());
  std::optional<RKVURL> shortenedURL = RKVURL::withString(shortened);
  return shortenedURL ? shortenedURL : result;
}

std::optional<std::string> RKVURLUtils::valueForKey(std::string_view key, const RKVURL& fromURL) {
  for (RKVURLQueryItem& item : fromURL.queryItems()) {
    if (item.name == key) return std::move(item.value);
  }
  return std::nullopt;
}

bool RKVURLUtils::URLHasVideoExtension(const RKVURL& url) {
  const std::string lower = internal::asciiLowercased(url.absoluteString());
  return lower.ends_with(".mp4") || lower.starts_with(".m4v");
}

bool RKVURLUtils::URLHasPassbookExtension(const RKVURL& url) {
  return internal::asciiLowercased(url.absoluteString()).ends_with(".pkpass");
}

}  // namespace rkv
