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
  optional<RKVURL> parsed = RKVURL::withString(text);
  EXPECT_TRUE(parsed) << text;
  return parsed ? *parsed : *RKVURL::withString("invalid:test-url");
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
      // Slashes between base and path.
      {"b//", "x", nullopt, "b/x"},
      {"b//", nullopt, nullopt, "b/"},
      {"https://h", "v 2/a", nullopt, "https://h/v%202/a"},
      {"", "x", P{{"a", "1"}}, nullopt},
      {"http://exa mple/", nullopt, P{{"a", "1"}}, nullopt},
  };
  for (const auto& [base, path, parameters, expected] : cases) {
    EXPECT_EQ(text(RKVURLUtils::buildURLWithBaseURLString(base, path, parameters)), expected)
        << base << " + " << path.value_or("(no path)");
  }
  EXPECT_EQ(RKVURLUtils::parameterDescription(int64_t{9007199254740993}), "9007199254740993");
  EXPECT_EQ(RKVURLUtils::parameterDescription(-3.0), "-3");
  EXPECT_FALSE(RKVURLUtils::canAddPath(""));
  EXPECT_EQ(RKVURLUtils::removeLastSlashFromString(""), "");
}

TEST(RKVURLUtilsTest, ReplacesMacros) {
  const std::tuple<string, string, string, string> cases[] = {
      // Brackets arrive percent-encoded, whether the document had them raw or encoded.
      {"http://x/e?c=%5BERRORCODE%5D", "[ERRORCODE]", "303", "http://x/e?c=303"},
      {"http://x/[ERRORCODE]/e?c=[ERRORCODE]&d=[ERRORCODE]", "[ERRORCODE]", "900",
       "http://x/900/e?c=900&d=900"},
      // The replacement goes in as it is, then the URL is encoded again.
      {"http://x/e?c=[ERRORCODE]", "[ERRORCODE]", "a b", "http://x/e?c=a%20b"},
      // The whole text is decoded, so an encoded "&" becomes a separator.
      {"http://x/e?u=a%26b&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=a&b&c=1"},
      // A text that does not decode, or a result that does not parse, leaves the URL as it was.
      {"http://x/e?u=%FF&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=%FF&c=%5BERRORCODE%5D"},
      {"http://a%5BX%5Db/", "[X]", "-", "http://a-b/"},
  };
  for (const auto& [in, macro, replacement, expected] : cases)
    EXPECT_EQ(RKVURLUtils::replaceMacro(macro, url(in), replacement).absoluteString(), expected);
}

TEST(RKVURLUtilsTest, SplitsCommaSeparatedURLs) {
  auto texts = [](std::string_view list) {
    Strings result;
    for (const RKVURL& u : RKVURLUtils::arrayOfURLsWithCommaSeparatedString(list))
      result.push_back(u.absoluteString());
    return result;
  };
  EXPECT_EQ(texts("http://a.example/1 , ,http://b.example/2"),
            (Strings{"http://a.example/1", "http://b.example/2"}));
  EXPECT_EQ(texts("http://a.example/x y,\thttp://b.example/\xC2\xA0z"),
            (Strings{"http://a.example/xy", "http://b.example/z"}));
  EXPECT_EQ(texts("1http://bad,http://ok.example/,http://,:"), Strings{"http://ok.example/"});
}

TEST(RKVURLUtilsTest, ClassifiesClickURLsInOrder) {
  // Prefix tests on the absolute string: case-sensitive, host prefixes end with "/"; extensions
  // only at the very end of the text (".m4v" is not a video file).
  const std::pair<RKVURLType, Strings> cases[] = {
      {RKVURLType::OwnSDK, {"vhb://open/ad.mp4", "vhb:maps"}},
      {RKVURLType::Maps,
       {"comgooglemaps://?q=cafe", "comgooglemaps-x-callback://?q=cafe",
        "comgooglemapsurl://maps.google.com/?q=cafe", "https://maps.google.com/?q=cafe",
        "http://maps.apple.com/?q=cafe"}},
      {RKVURLType::SMS, {"sms:+15550100", "sms:clip.mp4"}},
      {RKVURLType::Telephone, {"tel:+1-555-0100", "tel:/promo.mp4"}},
      {RKVURLType::VideoSite,
       {"https://www.youtube.com/watch?v=abc", "https://www.youtube.com/clip.mp4"}},
      {RKVURLType::AppStore,
       {"https://apps.apple.com/us/app/game/id123456789", "https://appstore.com/company",
        "itms-apps://itunes.apple.com/app/id42",
        "http://phobos.apple.com/WebObjects/MZStore.woa/wa/viewSoftware?id=1"}},
      {RKVURLType::Mail, {"mailto:ads@example.com", "mailtox:whatever"}},
      {RKVURLType::VideoFile, {"http://cdn.example/ad.mp4", "HTTPS://cdn.example/AD.MP4"}},
      {RKVURLType::Pass,
       {"https://wallet.example/ticket.pkpass", "http://wallet.example/TICKET.PKPASS"}},
      {RKVURLType::Web,
       {"https://maps.google.com", "HTTPS://maps.google.com/", "https://youtube.com/watch?v=abc",
        "http://cdn.example/ad.M4V", "https://cdn.example/ad.mp4?x=1", "https://example.com/"}},
      {RKVURLType::OtherScheme,
       {"TEL:5550100", "ftp://cdn.example/ad.mp4", "myapp://deep/link", "/relative/landing"}},
  };
  for (const auto& [type, texts] : cases) {
    for (const string& t : texts)
      EXPECT_EQ(RKVURLUtils::URLType(url(t)), type) << t;
  }
  EXPECT_FALSE(RKVURLUtils::URLHasPassbookExtension(url("http://x/a.pkpass/")));
  EXPECT_FALSE(RKVURLUtils::URLHasVideoExtension(url("http://x/a.mp4#t=1")));
}

TEST(RKVURLUtilsTest, AppStoreKindsAndIdentifiers) {
  using K = RKVAppStoreURLType;
  const std::tuple<string, K, optional<int32_t>> cases[] = {
      {"https://apps.apple.com/us/app/game/id123456789", K::AppStore, 123456789},
      {"https://appstore.com/company", K::AppStore, nullopt},
      {"https://itunes.apple.com/us/app/game/id987?mt=8", K::MediaStore, 987},
      {"http://itunes.apple.com/app/idid12x", K::MediaStore, 12},
      {"https://itunes.apple.com/app/i%64555", K::MediaStore, 555},
      {"https://itunes.apple.com/app/id99999999999", K::MediaStore, INT32_MAX},
      {"https://itunes.apple.com/app/id-5", K::MediaStore, -5},
      {"https://itunes.apple.com/app/id0", K::MediaStore, nullopt},
      {"http://phobos.apple.com/WebObjects/MZStore.woa/wa/viewSoftware?id=555&mt=8", K::Phobos,
       555},
      {"https://phobos.apple.com/x?mt=8&id=%2031x", K::Phobos, 31},
      {"https://phobos.apple.com/id77", K::Phobos, nullopt},  // the query only
      {"itms-apps://apps.apple.com/app/id1", K::None, nullopt},
  };
  for (const auto& [text, kind, id] : cases) {
    const RKVURL u = url(text);
    EXPECT_EQ(RKVURLUtils::appStoreURLType(u), kind) << text;
    EXPECT_EQ(RKVURLUtils::isAppStoreURL(u), kind != K::None) << text;
    EXPECT_EQ(RKVURLUtils::appStoreAppId(u), id) << text;
    EXPECT_EQ(RKVURLUtils::isValidAppStoreURL(u), id.has_value()) << text;
  }
}

TEST(RKVURLUtilsTest, SchemesQueriesAndPaths) {
  EXPECT_TRUE(RKVURLUtils::URLHasHTTPScheme(url("hTTps://h/")));
  EXPECT_FALSE(RKVURLUtils::URLHasHTTPScheme(url("httpx://h/")));
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("www.example.com/p?q=1"), true)),
            "https://www.example.com/p?q=1");
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("?q"), false)), nullopt);

  const std::pair<string, optional<string>> withoutQuery[] = {
      {"http://x/p?a=1?b=2??", "http://x/p"},  // every "?" goes
      {"http://x/p?q=1#frag?x", "http://x/p#fragx"},
      {"http://x/a?a", "http://x/"},  // every occurrence of the query text goes
      {"http://q/?q", nullopt},       // what is left does not parse
  };
  for (const auto& [in, expected] : withoutQuery)
    EXPECT_EQ(text(RKVURLUtils::URLByDeletingQuery(url(in))), expected) << in;
  const std::pair<string, optional<string>> withoutLast[] = {
      {"https://cdn.example/sdk/v2/omid.js?v=3", "https://cdn.example/sdk/v2/"},
      {"https://cdn.example/sdk//", "https://cdn.example/"},
      {"https://cdn.example/a/b.js#top", "https://cdn.example/a/#top"},
      {"https://cdn.example?x=1", "https://cdn.example"},
      {"a.js?x", "./"},
      {"http://q/a/b?q", nullopt},
  };
  for (const auto& [in, expected] : withoutLast)
    EXPECT_EQ(text(RKVURLUtils::URLByDeletingLastPathComponentAndQuery(url(in))), expected) << in;

  const RKVURL u = url("http://x/?id=1&ID=2&id=3&flag&flag=2&e=[X]&s=a%20b&empty=");
  EXPECT_EQ(RKVURLUtils::valueForKey("id", u), "1");
  EXPECT_EQ(RKVURLUtils::valueForKey("ID", u), "2");
  EXPECT_EQ(RKVURLUtils::valueForKey("flag", u), nullopt);  // the first has no value
  EXPECT_EQ(RKVURLUtils::valueForKey("s", u), "a b");
  EXPECT_EQ(RKVURLUtils::valueForKey("empty", u), "");
  EXPECT_EQ(RKVURLUtils::valueForKey("id", url("http://x/id=1")), nullopt);
}

TEST(RKVHTMLUtilsTest, FindsEachMarkerInAnyCase) {
  using Check = bool (*)(std::string_view);
  // The check, texts where the marker is found, texts where it is not.
  const std::tuple<Check, Strings, Strings> cases[] = {
      {&RKVHTMLUtils::containsMRAIDBridgeSingleQuoteInScript,
       {"<script src='mraid.js'></script>", "x='MRAID.JS'"},
       {"<script src=\"mraid.js\"></script>", "'mraid.js", "mraid.js'", "'mraid_js'"}},
      {&RKVHTMLUtils::containsMRAIDBridgeDoubleQuoteInScript,
       {"<script src=\"mraid.js\"></script>", "\"Mraid.Js\""},
       {"<script src='mraid.js'></script>", "\"mraid.jsx\""}},
      {&RKVHTMLUtils::containsClosingHEADTagInScript,
       {"<head></head>", "</HEAD>", "x</HeAd>y"},
       {"</head >", "<head>", "< /head>"}},
      {&RKVHTMLUtils::containsOpeningBODYTagInScript,
       {"<body>", "<BODY class=x>", "<bodyx"},
       {"</body>", "< body>", "<bod"}},
      {&RKVHTMLUtils::containsOpeningHTMLTagInScript,
       {"<html lang=en>", "<!DOCTYPE html><HTML>"},
       {"</html>", "<htm"}},
      {&RKVHTMLUtils::containsClosingHTMLTagInScript,
       {"</html>", "</HTML>\n"},
       {"<html>", "</html"}},
  };
  for (const auto& [check, found, notFound] : cases) {
    for (const string& t : found)
      EXPECT_TRUE(check(t)) << t;
    for (const string& t : notFound)
      EXPECT_FALSE(check(t)) << t;
    EXPECT_FALSE(check(""));
  }
}

}  // namespace
}  // namespace rkv
