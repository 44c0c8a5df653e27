#include <gtest/gtest.h>

#include "rkv/net/RKVURLUtils.h"

namespace rkv {
namespace {

using std::nullopt;
using std::optional;
using std::string;

RKVURL url(std::string_view text) {
  optional<RKVURL> parsed = RKVURL::withString(text);
  EXPECT_TRUE(parsed.has_value()) << text;
  return parsed ? *parsed : *RKVURL::withString("invalid:test-url");
}

optional<string> text(const optional<RKVURL>& u) {
  if (!u) return nullopt;
  return u->absoluteString();
}

TEST(RKVURLUtilsTest, BuildsRequestURLs) {
  struct Case {
    string base;
    optional<string> path;
    optional<RKVURLParameters> parameters;
    optional<string> expected;
  };
  const Case cases[] = {
      // Keys in byte order (upper case first), values as text, spaces as %20.
      {"b", nullopt, RKVURLParameters{{"z", int64_t{1}}, {"a", "x y"}}, "b/?a=x%20y&z=1"},
      {"b", nullopt, RKVURLParameters{{"a", int64_t{2}}, {"B", int64_t{1}}}, "b/?B=1&a=2"},
      {"https://ads.example/", "/v1/call",
       RKVURLParameters{{"w", 2.0}, {"d", 1.5}, {"t", true}, {"f", false}, {"n", int64_t{-42}}},
       "https://ads.example/v1/call?d=1.5&f=0&n=-42&t=1&w=2"},
      // "&", "=" and "+" inside a value are not encoded; "%" and brackets are.
      {"https://ads.example", "call", RKVURLParameters{{"q", "a&b=c+d"}, {"r", "50%[x]"}},
       "https://ads.example/call?q=a&b=c+d&r=50%25%5Bx%5D"},
      // The base's query is replaced.
      {"https://h/api?old=1&e=[E]", nullopt, RKVURLParameters{{"k", "v"}}, "https://h/api?k=v"},
      // The "/" is added to the text as it is, here to the fragment.
      {"https://h/p#frag", nullopt, RKVURLParameters{{"k", "v"}}, "https://h/p?k=v#frag/"},
      {"https://h", nullopt, RKVURLParameters{}, "https://h/?"},
      // Slashes between base and path.
      {"b//", "x", nullopt, "b/x"},
      {"b//", "/x", nullopt, "b/x"},
      {"b//", nullopt, nullopt, "b/"},
      {"https://h/", "", nullopt, "https://h/"},
      {"https://h", "v 2/a", nullopt, "https://h/v%202/a"},
      // No URL.
      {"", "x", RKVURLParameters{{"a", "1"}}, nullopt},
      {"", nullopt, nullopt, nullopt},
      {"http://exa mple/", nullopt, nullopt, nullopt},
      {"http://exa mple/", nullopt, RKVURLParameters{{"a", "1"}}, nullopt},
      {"/", nullopt, nullopt, "/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.base + " + " + c.path.value_or("(no path)"));
    EXPECT_EQ(text(RKVURLUtils::buildURLWithBaseURLString(c.base, c.path, c.parameters)),
              c.expected);
  }
}

TEST(RKVURLUtilsTest, ParameterDescriptions) {
  EXPECT_EQ(RKVURLUtils::parameterDescription("text"), "text");
  EXPECT_EQ(RKVURLUtils::parameterDescription(int64_t{9007199254740993}), "9007199254740993");
  EXPECT_EQ(RKVURLUtils::parameterDescription(0.1), "0.1");
  EXPECT_EQ(RKVURLUtils::parameterDescription(-3.0), "-3");
  EXPECT_EQ(RKVURLUtils::parameterDescription(true), "1");
}

TEST(RKVURLUtilsTest, TrailingSlashHelpers) {
  EXPECT_TRUE(RKVURLUtils::canAddPath("https://h/"));
  EXPECT_FALSE(RKVURLUtils::canAddPath("https://h"));
  EXPECT_FALSE(RKVURLUtils::canAddPath(""));
  EXPECT_EQ(RKVURLUtils::removeLastSlashFromString("b//"), "b/");
  EXPECT_EQ(RKVURLUtils::removeLastSlashFromString("b"), "b");
  EXPECT_EQ(RKVURLUtils::removeLastSlashFromString(""), "");
}

TEST(RKVURLUtilsTest, ReplacesMacros) {
  struct Case {
    string url, macro, replacement, expected;
  };
  const Case cases[] = {
      // Brackets arrive percent-encoded, whether the document had them raw or encoded.
      {"http://x/e?c=[ERRORCODE]", "[ERRORCODE]", "303", "http://x/e?c=303"},
      {"http://x/e?c=%5BERRORCODE%5D", "[ERRORCODE]", "303", "http://x/e?c=303"},
      {"http://x/[ERRORCODE]/e?c=[ERRORCODE]&d=[ERRORCODE]", "[ERRORCODE]", "900",
       "http://x/900/e?c=900&d=900"},
      // The replacement goes in as it is, then the URL is encoded again.
      {"http://x/e?c=[ERRORCODE]", "[ERRORCODE]", "a b", "http://x/e?c=a%20b"},
      {"http://x/e?c=[ERRORCODE]", "[OTHER]", "1", "http://x/e?c=%5BERRORCODE%5D"},
      // The whole text is decoded, so an encoded "&" becomes a separator.
      {"http://x/e?u=a%26b&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=a&b&c=1"},
      // A text that does not decode, or a result that does not parse, leaves the URL as it was.
      {"http://x/e?u=%FF&c=[ERRORCODE]", "[ERRORCODE]", "1", "http://x/e?u=%FF&c=%5BERRORCODE%5D"},
      {"http://a%5BX%5Db/", "[X]", " ", "http://a%5BX%5Db/"},
      {"http://a%5BX%5Db/", "[X]", "-", "http://a-b/"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RKVURLUtils::replaceMacro(c.macro, url(c.url), c.replacement).absoluteString(),
              c.expected)
        << c.url;
  }
}

TEST(RKVURLUtilsTest, SplitsCommaSeparatedURLs) {
  auto texts = [](std::string_view list) {
    std::vector<string> result;
    for (const RKVURL& u : RKVURLUtils::arrayOfURLsWithCommaSeparatedString(list)) {
      result.push_back(u.absoluteString());
    }
    return result;
  };
  using V = std::vector<string>;
  EXPECT_EQ(texts("http://a.example/1 , ,http://b.example/2"),
            (V{"http://a.example/1", "http://b.example/2"}));
  EXPECT_EQ(texts("http://a.example/x y,\thttp://b.example/\xC2\xA0z"),
            (V{"http://a.example/xy", "http://b.example/z"}));
  EXPECT_EQ(texts("1http://bad,http://ok.example/,http://,:"), (V{"http://ok.example/"}));
  EXPECT_EQ(texts(" , ,,"), V{});
  EXPECT_EQ(texts(""), V{});
}

TEST(RKVURLUtilsTest, ClassifiesClickURLsInOrder) {
  const std::pair<string, RKVURLType> cases[] = {
      {"vhb://open/ad.mp4", RKVURLType::OwnSDK},
      {"vhb:maps", RKVURLType::OwnSDK},
      {"comgooglemaps://?q=cafe", RKVURLType::Maps},
      {"comgooglemaps-x-callback://?q=cafe", RKVURLType::Maps},
      {"comgooglemapsurl://maps.google.com/?q=cafe", RKVURLType::Maps},
      {"https://maps.google.com/?q=cafe", RKVURLType::Maps},
      {"http://maps.apple.com/?q=cafe", RKVURLType::Maps},
      {"https://maps.google.com", RKVURLType::Web},   // prefixes end with "/"
      {"HTTPS://maps.google.com/", RKVURLType::Web},  // prefixes are case-sensitive
      {"sms:+15550100", RKVURLType::SMS},
      {"sms:clip.mp4", RKVURLType::SMS},
      {"tel:+1-555-0100", RKVURLType::Telephone},
      {"tel:/promo.mp4", RKVURLType::Telephone},
      {"TEL:5550100", RKVURLType::OtherScheme},  // schemes are compared exactly
      {"https://www.youtube.com/watch?v=abc", RKVURLType::VideoSite},
      {"https://www.youtube.com/clip.mp4", RKVURLType::VideoSite},
      {"https://youtube.com/watch?v=abc", RKVURLType::Web},
      {"https://apps.apple.com/us/app/game/id123456789", RKVURLType::AppStore},
      {"https://appstore.com/company", RKVURLType::AppStore},
      {"itms-apps://itunes.apple.com/app/id42", RKVURLType::AppStore},
      {"http://phobos.apple.com/WebObjects/MZStore.woa/wa/viewSoftware?id=1", RKVURLType::AppStore},
      {"mailto:ads@example.com", RKVURLType::Mail},
      {"mailtox:whatever", RKVURLType::Mail},  // a prefix test on the text
      {"http://cdn.example/ad.mp4", RKVURLType::VideoFile},
      {"HTTPS://cdn.example/AD.MP4", RKVURLType::VideoFile},
      {"http://cdn.example/ad.M4V", RKVURLType::Web},  // .m4v is not taken as a video file
      {"https://cdn.example/ad.mp4?x=1", RKVURLType::Web},
      {"ftp://cdn.example/ad.mp4", RKVURLType::OtherScheme},
      {"https://wallet.example/ticket.pkpass", RKVURLType::Pass},
      {"http://wallet.example/TICKET.PKPASS", RKVURLType::Pass},
      {"https://example.com/landing", RKVURLType::Web},
      {"myapp://deep/link", RKVURLType::OtherScheme},
      {"/relative/landing", RKVURLType::OtherScheme},
  };
  for (const auto& [text, type] : cases) {
    EXPECT_EQ(RKVURLUtils::URLType(url(text)), type) << text;
  }
}

TEST(RKVURLUtilsTest, AppStoreKindsAndIdentifiers) {
  struct Case {
    string url;
    RKVAppStoreURLType kind;
    optional<int32_t> id;
  };
  const Case cases[] = {
      {"https://apps.apple.com/us/app/game/id123456789", RKVAppStoreURLType::AppStore, 123456789},
      {"http://apps.apple.com/app/id7?mt=8", RKVAppStoreURLType::AppStore, 7},
      {"https://appstore.com/company", RKVAppStoreURLType::AppStore, nullopt},
      {"https://apps.apple.com/", RKVAppStoreURLType::AppStore, nullopt},
      {"https://itunes.apple.com/us/app/game/id987?mt=8", RKVAppStoreURLType::MediaStore, 987},
      {"itms-apps://itunes.apple.com/app/ID42", RKVAppStoreURLType::MediaStore, 42},
      {"http://itunes.apple.com/app/idid12x", RKVAppStoreURLType::MediaStore, 12},
      {"https://itunes.apple.com/app/i%64555", RKVAppStoreURLType::MediaStore, 555},
      {"https://itunes.apple.com/app/id99999999999", RKVAppStoreURLType::MediaStore, INT32_MAX},
      {"https://itunes.apple.com/app/id-5", RKVAppStoreURLType::MediaStore, -5},
      {"https://itunes.apple.com/app/id0", RKVAppStoreURLType::MediaStore, nullopt},
      {"https://itunes.apple.com/app/game", RKVAppStoreURLType::MediaStore, nullopt},
      {"http://phobos.apple.com/WebObjects/MZStore.woa/wa/viewSoftware?id=555&mt=8",
       RKVAppStoreURLType::Phobos, 555},
      {"https://phobos.apple.com/x?mt=8&id=%2031x", RKVAppStoreURLType::Phobos, 31},
      {"https://phobos.apple.com/id77", RKVAppStoreURLType::Phobos, nullopt},  // query only
      {"https://phobos.apple.com/x?id=abc", RKVAppStoreURLType::Phobos, nullopt},
      {"https://example.com/app/id123", RKVAppStoreURLType::None, nullopt},
      {"itms-apps://apps.apple.com/app/id1", RKVAppStoreURLType::None, nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    const RKVURL u = url(c.url);
    EXPECT_EQ(RKVURLUtils::appStoreURLType(u), c.kind);
    EXPECT_EQ(RKVURLUtils::isAppStoreURL(u), c.kind != RKVAppStoreURLType::None);
    EXPECT_EQ(RKVURLUtils::appStoreAppId(u), c.id);
    EXPECT_EQ(RKVURLUtils::isValidAppStoreURL(u), c.id.has_value());
  }
  // Each extractor on its own ignores the kind of URL.
  EXPECT_EQ(RKVURLUtils::appIdentifierForAppStoreAndiTunesURL(url("https://x.example/id3")), 3);
  EXPECT_EQ(RKVURLUtils::appIdentifierForPhobosURL(url("https://x.example/?id=4")), 4);
}

TEST(RKVURLUtilsTest, Schemes) {
  EXPECT_TRUE(RKVURLUtils::URLHasScheme(url("myapp:x")));
  EXPECT_FALSE(RKVURLUtils::URLHasScheme(url("//h/p")));
  EXPECT_TRUE(RKVURLUtils::URLHasHTTPScheme(url("HTTP://h/")));
  EXPECT_TRUE(RKVURLUtils::URLHasHTTPScheme(url("hTTps://h/")));
  EXPECT_FALSE(RKVURLUtils::URLHasHTTPScheme(url("httpx://h/")));
  EXPECT_FALSE(RKVURLUtils::URLHasHTTPScheme(url("/h")));
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("www.example.com/p?q=1"), true)),
            "https://www.example.com/p?q=1");
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("www.example.com"), false)),
            "http://www.example.com");
  EXPECT_EQ(text(RKVURLUtils::URLByAddingHTTPSchemeTo(url("?q"), false)), nullopt);
}

TEST(RKVURLUtilsTest, DeletesQueries) {
  const std::pair<string, optional<string>> cases[] = {
      {"http://x/p", "http://x/p"},
      {"http://x/p?", "http://x/p"},
      {"http://x/p?a=1&b=[B]", "http://x/p"},
      {"http://x/p?a=1?b=2??", "http://x/p"},  // every "?" goes
      {"http://x/p?q=1#frag?x", "http://x/p#fragx"},
      {"http://x/a?a", "http://x/"},  // every occurrence of the query text goes
      {"http://q/?q", nullopt},       // what is left does not parse
  };
  for (const auto& [in, expected] : cases) {
    EXPECT_EQ(text(RKVURLUtils::URLByDeletingQuery(url(in))), expected) << in;
  }
}

TEST(RKVURLUtilsTest, DeletesLastPathComponentAndQuery) {
  const std::pair<string, optional<string>> cases[] = {
      {"https://cdn.example/sdk/v2/omid.js?v=3", "https://cdn.example/sdk/v2/"},
      {"https://cdn.example/sdk/v2/", "https://cdn.example/sdk/"},
      {"https://cdn.example/sdk//", "https://cdn.example/"},
      {"https://cdn.example/a.js", "https://cdn.example/"},
      {"https://cdn.example/a/b.js#top", "https://cdn.example/a/#top"},
      {"https://cdn.example/", "https://cdn.example/"},
      {"https://cdn.example", "https://cdn.example"},
      {"https://cdn.example?x=1", "https://cdn.example"},
      {"rel/a.js", "rel/"},
      {"a.js?x", "./"},
      {"http://q/a/b?q", nullopt},
  };
  for (const auto& [in, expected] : cases) {
    EXPECT_EQ(text(RKVURLUtils::URLByDeletingLastPathComponentAndQuery(url(in))), expected) << in;
  }
}

TEST(RKVURLUtilsTest, ValueForKey) {
  const RKVURL u = url("http://x/?id=1&ID=2&id=3&flag&flag=2&e=[X]&s=a%20b&empty=");
  EXPECT_EQ(RKVURLUtils::valueForKey("id", u), "1");
  EXPECT_EQ(RKVURLUtils::valueForKey("ID", u), "2");
  EXPECT_EQ(RKVURLUtils::valueForKey("flag", u), nullopt);  // the first has no value
  EXPECT_EQ(RKVURLUtils::valueForKey("e", u), "[X]");
  EXPECT_EQ(RKVURLUtils::valueForKey("s", u), "a b");
  EXPECT_EQ(RKVURLUtils::valueForKey("empty", u), "");
  EXPECT_EQ(RKVURLUtils::valueForKey("missing", u), nullopt);
  EXPECT_EQ(RKVURLUtils::valueForKey("id", url("http://x/id=1")), nullopt);
}

TEST(RKVURLUtilsTest, FileExtensions) {
  EXPECT_TRUE(RKVURLUtils::URLHasVideoExtension(url("myapp://x/a.Mp4")));
  EXPECT_FALSE(RKVURLUtils::URLHasVideoExtension(url("http://x/a.m4v")));
  EXPECT_FALSE(RKVURLUtils::URLHasVideoExtension(url("http://x/a.mp4#t=1")));
  EXPECT_TRUE(RKVURLUtils::URLHasPassbookExtension(url("file:///a.PkPass")));
  EXPECT_FALSE(RKVURLUtils::URLHasPassbookExtension(url("http://x/a.pkpass/")));
}

}  // namespace
}  // namespace rkv
