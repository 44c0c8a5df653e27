#include <tuple>

#include <gtest/gtest.h>

#include "rkv/net/RKVHTMLUtils.h"
#include "rkv/net/RKVURLUtils.h"

namespace rkv {
namespace {

using std::nullopt;
using std::optional;
using std::string;
using Strings = std::vector<string>;

RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value();  // throws, failing the test, when it does not parse
}

optional<string> text(const optional<RKVURL>& u) {
  return u ? optional<string>(u->absoluteString()) : nullopt;
}

TEST(RKVURLUtilsTest, BuildsRequestURLs) {
  using P = RKVURLParameters;
  const std::tuple<string, optional<string>, optional<P>, optional<string>> cases[] = {
      // Keys in byte order (upper case first), values as text, spaces as %20.
      {"b", nullopt, P{{"z", int64_t{1}}, {"a", "x y"}, {"B", int64_t{1}}}, "b/?B=1&a=x%20y&z=1"},
      {"https://ads.example/", "/v1/call",
       P{{"w", 2.0}, {"d", 1.5}, {"t", true}, {"f", false}, {"n", int64_t{-42}}},
       "https://ads.example/v1/call?d=1.5&f=0&n=-42&t=1&w=2"},
      // "&", "=" and "+" inside a value are not encoded; "%" and brackets are.
      {"https://ads.example", "call", P{{"q", "a&b=c+d"}, {"r", "50%[x]"}},
       "https://ads.example/call?q=a&b=c+d&r=50%25%5Bx%5D"},
      // The base's query is replaced; the "/" is added to the text as it is, here the fragment.
      {"https://h/api?old=1&e=[E]", nullopt, P{{"k", "v"}}, "https://h/api?k=v"},
      {"https://h/p#frag", nullopt, P{{"k", "v"}}, "https://h/p?k=v#frag/"},
      {"https://h", nullopt, P{}, "https://h/?"},
      {"http://exa mple/", nullopt, P{{"a", "1"}}, nullopt},
  };
  for (const auto& [base, path, parameters, expected] : cases)
    EXPECT_EQ(text(RKVURLUtils::buildURLWithBaseURLString(base, path, parameters)), expected)
        << base << " + " << path.value_or("(no path)");
  EXPECT_EQ(RKVURLUtils::parameterDescription(int64_t{9007199254740993}), "9007199254740993");
}

TEST(RKVURLUtilsTest, ReplacesMacrosAndSplitsLists) {
  const std::tuple<string, string, string, string> cases[] = {
      // Brackets arrive percent-encoded, whether the document had them raw or encoded; the
      // replacement goes in as it is, then the URL is encoded again.
      {"http://x/[ERRORCODE]/e?c=%5BERRORCODE%5D", "[ERRORCODE]", "a b",
       "http://x/a%20b/e?c=a%20b"},
      // The whole text is decoded, so an encoded "&" becomes a separator.
      {"http://x/e?u=a%26b&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=a&b&c=1"},
      // A text that does not decode leaves the URL as it was.
      {"http://x/e?u=%FF&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=%FF&c=%5BERRORCODE%5D"},
  };
  for (const auto& [in, macro, replacement, expected] : cases)
    EXPECT_EQ(RKVURLUtils::replaceMacro(macro, url(in), replacement).absoluteString(), expected);

  Strings split;
  for (const RKVURL& u : RKVURLUtils::arrayOfURLsWithCommaSeparatedString(
           "http://a.example/x y , ,\thttp://b.example/\xC2\xA0z,1http://bad,http://,:"))
    split.push_back(u.absoluteString());
  EXPECT_EQ(split, (Strings{"http://a.example/xy", "http://b.example/z"}));
}

TEST(RKVURLUtilsTest, ClassifiesClickURLsAndReadsAppStoreIdentifiers) {
  // Prefix tests on the absolute string: case-sensitive, host prefixes end with "/"; extensions
  // only at the very end of the text (".m4v" is not a video file).
  const std::pair<RKVURLType, Strings> cases[] = {
      {RKVURLType::OwnSDK, {"vhb://open/ad.mp4"}},
      {RKVURLType::Maps, {"comgooglemaps-x-callback://?q=cafe", "http://maps.apple.com/?q=cafe"}},
      {RKVURLType::SMS, {"sms:clip.mp4"}},
      {RKVURLType::Telephone, {"tel:/promo.mp4"}},
      {RKVURLType::VideoSite, {"https://www.youtube.com/clip.mp4"}},
      {RKVURLType::AppStore,
       {"https://appstore.com/company", "itms-apps://itunes.apple.com/app/id42",
        "http://phobos.apple.com/WebObjects/MZStore.woa/wa/viewSoftware?id=1"}},
      {RKVURLType::Mail, {"mailtox:whatever"}},
      {RKVURLType::VideoFile, {"HTTPS://cdn.example/AD.MP4"}},
      {RKVURLType::Pass, {"http://wallet.example/TICKET.PKPASS"}},
      {RKVURLType::Web,
       {"https://maps.google.com", "HTTPS://maps.google.com/", "http://cdn.example/ad.M4V",
        "https://cdn.example/ad.mp4?x=1", "http://x/a.pkpass/"}},
      {RKVURLType::OtherScheme, {"TEL:5550100", "ftp://cdn.example/ad.mp4", "/relative/landing"}},
  };
  for (const auto& [type, texts] : cases)
    for (const string& t : texts)
      EXPECT_EQ(RKVURLUtils::URLType(url(t)), type) << t;

  using K = RKVAppStoreURLType;
  const std::tuple<string, K, optional<int32_t>> stores[] = {
      {"https://apps.apple.com/us/app/game/id123456789", K::AppStore, 123456789},
      {"https://appstore.com/company", K::AppStore, nullopt},
      // "id" is removed wherever it is; the rest is read as a C integer, clamped.
      {"http://itunes.apple.com/app/idid12x", K::MediaStore, 12},
      {"https://itunes.apple.com/app/i%64555", K::MediaStore, 555},
      {"https://itunes.apple.com/app/id99999999999", K::MediaStore, INT32_MAX},
      {"https://itunes.apple.com/app/id0", K::MediaStore, nullopt},
      {"https://phobos.apple.com/x?mt=8&id=%2031x", K::Phobos, 31},
      {"https://phobos.apple.com/id77", K::Phobos, nullopt},  // the query only
      {"itms-apps://apps.apple.com/app/id1", K::None, nullopt},
  };
  for (const auto& [text, kind, id] : stores) {
    const RKVURL u = url(text);
    EXPECT_EQ(RKVURLUtils::appStoreURLType(u), kind) << text;
    EXPECT_EQ(RKVURLUtils::appStoreAppId(u), id) << text;
    EXPECT_EQ(RKVURLUtils::isValidAppStoreURL(u), id.has_value()) << text;
  }
}

TEST(RKVURLUtilsTest, SchemesQueriesAndPaths) {
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("www.example.com/p?q=1"), true)),
            "https://www.example.com/p?q=1");
  // Every occurrence of the query text goes, then every "?".
  EXPECT_EQ(text(RKVURLUtils::URLByDeletingQuery(url("http://x/ab?b?"))), "http://x/a");
  EXPECT_EQ(text(RKVURLUtils::URLByDeletingLastPathComponentAndQuery(
                url("https://cdn.example/a/b.js?v=3#top"))),
            "https://cdn.example/a/#top");

  const RKVURL u = url("http://x/?id=1&ID=2&flag&flag=2&s=a%20b");
  EXPECT_EQ(RKVURLUtils::valueForKey("ID", u), "2");
  EXPECT_EQ(RKVURLUtils::valueForKey("flag", u), nullopt);  // the first has no value
  EXPECT_EQ(RKVURLUtils::valueForKey("s", u), "a b");
}

TEST(RKVHTMLUtilsTest, FindsEachMarkerInAnyCase) {
  using Check = bool (*)(std::string_view);
  // The check, a text where the marker is found, texts where it is not.
  const std::tuple<Check, string, Strings> cases[] = {
      {&RKVHTMLUtils::containsMRAIDBridgeSingleQuoteInScript,
       "x='MRAID.JS'",
       {"<script src=\"mraid.js\"></script>", "'mraid.js", "'mraid_js'"}},
      {&RKVHTMLUtils::containsMRAIDBridgeDoubleQuoteInScript,
       "\"Mraid.Js\"",
       {"<script src='mraid.js'></script>", "\"mraid.jsx\""}},
      {&RKVHTMLUtils::containsClosingHEADTagInScript, "x</HeAd>y", {"</head >", "< /head>"}},
      {&RKVHTMLUtils::containsOpeningBODYTagInScript, "<BODY class=x>", {"</body>", "<bod"}},
      {&RKVHTMLUtils::containsOpeningHTMLTagInScript, "<!DOCTYPE html><HTML>", {"</html>"}},
      {&RKVHTMLUtils::containsClosingHTMLTagInScript, "</HTML>\n", {"<html>", "</html"}},
  };
  for (const auto& [check, found, notFound] : cases) {
    EXPECT_TRUE(check(found)) << found;
    for (const string& miss : notFound)
      EXPECT_FALSE(check(miss)) << miss;
  }
}

}  // namespace
}  // namespace rkv
