// RKVURLUtils: stateless operations on URLs and URL texts (request URLs, macros, URL lists,
// click-URL classification, app-store identifiers, schemes and queries). Thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

// A request parameter. In a URL it is written as its description: the text as it is, integers
// in decimal, doubles in their shortest round-trip form (1.5, 1, 1e+20), booleans as 1 or 0.
using RKVURLParameterValue = std::variant<std::string, int64_t, double, bool>;
// Parameters by name. The map's order (byte-wise, so upper case before lower case) is the order
// they are written in.
using RKVURLParameters = std::map<std::string, RKVURLParameterValue>;

// What should open a click URL.
enum class RKVURLType : int {
  None = 0,
  Web = 1,
  Maps = 2,
  SMS = 3,
  Telephone = 4,
  VideoSite = 5,
  AppStore = 6,
  Mail = 7,
  VideoFile = 8,
  OwnSDK = 9,
  OtherScheme = 10,
  Pass = 11,
};

// Which store a store URL belongs to.
enum class RKVAppStoreURLType : int {
  AppStore = 0,
  MediaStore = 1,
  Phobos = 2,
  None = 3,
};

class RKV_EXPORT RKVURLUtils {
 public:
  // The base without its trailing slashes, then "/" and the path (one "/" between them whether
  // or not the path starts with one; just "/" without a path), then the parameters as the
  // query, replacing any query of the base: "b//" + "x" gives "b/x". Without parameters the
  // text is parsed as it is. Absent for an empty base or a text that does not parse.
  static std::optional<RKVURL> buildURLWithBaseURLString(
      std::string_view base, std::optional<std::string_view> path,
      const std::optional<RKVURLParameters>& parameters);
  // The description of a parameter value (see RKVURLParameterValue).
  static std::string parameterDescription(const RKVURLParameterValue& value);

  // True when the text ends with "/".
  static bool canAddPath(std::string_view string);
  // The text without its last character when that is "/", otherwise the text.
  static std::string removeLastSlashFromString(std::string_view string);

  // Decodes the URL's text, replaces every occurrence of `macro` by `byString` as it is, and
  // parses the result. The URL is returned unchanged when the text does not decode or the
  // result does not parse; so a macro written %5BERRORCODE%5D is found as [ERRORCODE].
  static RKVURL replaceMacro(std::string_view macro, const RKVURL& inURL,
                             std::string_view byString);

  // White space removed, split at ",", each piece parsed; pieces that do not parse (empty ones
  // included) are dropped. Order is kept.
  static std::vector<RKVURL> arrayOfURLsWithCommaSeparatedString(std::string_view string);

  // Classifies a click URL; the first matching test wins: own SDK scheme, maps, sms, tel, video
  // site, app store, "mailto", video file over HTTP(S), pass over HTTP(S), web, other scheme.
  static RKVURLType URLType(const RKVURL& url);
  static RKVAppStoreURLType appStoreURLType(const RKVURL& url);
  static bool isAppStoreURL(const RKVURL& url);
  // The store's app identifier, for every kind of store URL; absent when there is none or it
  // reads 0.
  static std::optional<int32_t> appStoreAppId(const RKVURL& url);
  // True for a store URL from which an app identifier can be read.
  static bool isValidAppStoreURL(const RKVURL& url);
  // The last path component, lower-cased, with every "id" removed, read as a C integer (leading
  // white space, an optional sign, digits; clamped to 32 bits); absent when that reads 0.
  static std::optional<int32_t> appIdentifierForAppStoreAndiTunesURL(const RKVURL& url);
  // The query parameter "id" read the same way; absent when missing or 0.
  static std::optional<int32_t> appIdentifierForPhobosURL(const RKVURL& url);

  static bool URLHasScheme(const RKVURL& url);
  // The scheme, lower-cased, is "http" or "https".
  static bool URLHasHTTPScheme(const RKVURL& url);
  // "https://" (secured) or "http://" put before the URL's text, parsed. Meant for URLs without
  // a scheme; nothing checks that.
  static std::optional<RKVURL> URLByAddingHTTPSchemeTo(const RKVURL& url, bool secured);
  // The URL itself when it has no query. Otherwise every occurrence of the query's text is
  // removed from the URL's text, then every "?", and the rest is parsed (absent if it fails).
  static std::optional<RKVURL> URLByDeletingQuery(const RKVURL& url);
  // The query deleted as above, then the last path component unless the path has none or is
  // just "/": "http://h/a/b.js?v=1" gives "http://h/a/". Absent only when deleting the query
  // gives no URL.
  static std::optional<RKVURL> URLByDeletingLastPathComponentAndQuery(const RKVURL& url);
  // The value of the first query item named exactly `key`; absent when there is none or it has
  // no value.
  static std::optional<std::string> valueForKey(std::string_view key, const RKVURL& fromURL);

  // The lower-cased text ends with ".mp4" or starts with ".m4v" (which a URL never does: only
  // ".mp4" files count as video files, on purpose).
  static bool URLHasVideoExtension(const RKVURL& url);
  // The lower-cased text ends with ".pkpass".
  static bool URLHasPassbookExtension(const RKVURL& url);
};

}  // namespace rkv
