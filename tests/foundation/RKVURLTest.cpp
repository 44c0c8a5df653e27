#include <unordered_set>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVURL.h"
#include "rkv/foundation/RKVURLComponents.h"

namespace rkv {
namespace {

using std::nullopt;
using std::optional;
using std::string;
using Items = std::vector<RKVURLQueryItem>;
using Strings = std::vector<string>;

TEST(RKVURLTest, NormalizesOrRejects) {
  // The text, and the absolute string it parses to; that string is a fixed point of parsing.
  const std::pair<string, string> accepted[] = {
      // Macros in brackets, as ad servers write them inside CDATA.
      {"http://x/p?e=[ERRORCODE]&a=1", "http://x/p?e=%5BERRORCODE%5D&a=1"},
      {"http://x/[ERRORCODE]/p", "http://x/%5BERRORCODE%5D/p"},
      // Escapes already present are kept as written; a stray "%" is encoded.
      {"http://x/?e=%5BERRORCODE%5d", "http://x/?e=%5BERRORCODE%5d"},
      {"http://x/?share=100%&e=%zz%4", "http://x/?share=100%25&e=%25zz%254"},
      // Query characters stay as they are; "?" may repeat inside a query.
      {"http://x/p?a=1&b=c=d&u=http://y/?z=1;w", "http://x/p?a=1&b=c=d&u=http://y/?z=1;w"},
      // White space: trimmed at the ends (as text around CDATA leaves it), encoded inside.
      {"  \thttp://x/a b?q=x y#f g\r\n ", "http://x/a%20b?q=x%20y#f%20g"},
      // Non-ASCII UTF-8, bytes that are not UTF-8 at all, NUL, characters never allowed.
      {"https://x/caf\xC3\xA9?v=\xFF\x80", "https://x/caf%C3%A9?v=%FF%80"},
      {string("http://x/a\0b", 12), "http://x/a%00b"},
      {"http://x/a|b^c`d{e}f\"g<h>i\\j", "http://x/a%7Cb%5Ec%60d%7Be%7Df%22g%3Ch%3Ei%5Cj"},
      {"http://x/?a#b#c[d]", "http://x/?a#b%23c%5Bd%5D"},
      // Case is kept; the last "@" ends the user information.
      {"HtTpS://Example.COM/Path", "HtTpS://Example.COM/Path"},
      {"http://a@b c:d@e@h/", "http://a%40b%20c:d%40e@h/"},
      // IP literals and ports.
      {"http://[fe80::1%25en0]:8080/", "http://[fe80::1%25en0]:8080/"},
      {"http://[v1.fe:x]/", "http://[v1.fe:x]/"},
      {"http://h:/p", "http://h:/p"},
      // Other schemes, with and without authority; relative references.
      {"file:///tmp/a.xml", "file:///tmp/a.xml"},
      {"tel:+1 555 0100", "tel:+1%20555%200100"},
      {"localhost:8080", "localhost:8080"},
      {"//host/p", "//host/p"},
      {"../a b", "../a%20b"},
      // A ":" after "[" or "@" cannot end a scheme, and is encoded in a first segment.
      {"[a:b]/c:d", "%5Ba%3Ab%5D/c:d"},
  };
  for (const auto& [text, expected] : accepted) {
    optional<RKVURL> url = RKVURL::withString(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->absoluteString(), expected);
    EXPECT_EQ(RKVURL::withString(url->absoluteString()), url) << expected;
  }
  // clang-format off
  const char* rejected[] = {
      "", " \t\r\n", "://x", "http://", "https:///p", "HTTP://:80/", "http://exa mple.com/",
      "http://h:65536/", "http://h:8a/", "http://h:1:2/", "1http://x", "caf\xC3\xA9:x",
      "http://[::1/", "http://[::1]x/", "http://[1.2.3.4]/", "http://[fe80::1%en0]/",
      "http://[v1.]/", "http://a[b]/", "http://ex%zzample/", "http://ex\xC3\xA4mple/"};
  // clang-format on
  for (const char* text : rejected)
    EXPECT_FALSE(RKVURL::withString(text)) << text;
}

// scheme|user|password|host|port|path|query|fragment, "-" for an absent component.
string components(const RKVURL& url) {
  auto part = [](optional<std::string_view> value) { return string(value.value_or("-")) + "|"; };
  EXPECT_EQ(url.hasScheme(), url.scheme().has_value());
  EXPECT_EQ(url.hasAuthority(), url.host().has_value());
  return part(url.scheme()) + part(url.user()) + part(url.password()) + part(url.host()) +
         (url.port() ? std::to_string(*url.port()) : "-") + "|" + part(url.path()) +
         part(url.query()) + string(url.fragment().value_or("-"));
}

TEST(RKVURLTest, ComponentsPathsAndQueryItemsAreReadFromTheNormalizedText) {
  const std::pair<string, string> cases[] = {
      {"HTTPS://u%20s:p@w@Host.example:0443/a/b;c?x=[1]&y#frag",
       "HTTPS|u%20s|p%40w|Host.example|443|/a/b;c|x=%5B1%5D&y|frag"},
      {"ftp://:@h:/", "ftp|||h|-|/|-|-"},
      {"mailto:a@b.example", "mailto|-|-|-|-|a@b.example|-|-"},
      {"//cdn.example/v.mp4?", "-|-|-|cdn.example|-|/v.mp4||-"},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(components(*RKVURL::withString(text)), expected) << text;
  // A copy's views must not point into the destroyed original.
  optional<RKVURL> original = RKVURL::withString("http://x/?e=[ERRORCODE]");
  const RKVURL copy = *original;
  original.reset();
  EXPECT_EQ(copy.query(), "e=%5BERRORCODE%5D");

  const std::pair<string, Strings> paths[] = {
      {"http://h", {}},
      {"http://h//a///b.mp4/?x=/y", {"/", "a", "b.mp4"}},
      {"http://h/a%20b/c%2Fd/%FF", {"/", "a b", "c/d", "%FF"}},  // not UTF-8: kept encoded
  };
  for (const auto& [text, expected] : paths) {
    EXPECT_EQ(RKVURL::withString(text)->pathComponents(), expected) << text;
    EXPECT_EQ(RKVURL::withString(text)->lastPathComponent(),
              expected.empty() ? "" : expected.back());
  }
  const std::pair<string, Items> queries[] = {
      {"http://h/?a&&b=", {{"a", nullopt}, {"", nullopt}, {"b", ""}}},
      {"http://h/?k=a=b&n%20m=x+y%26z&bad=%FF#x=1",
       {{"k", "a=b"}, {"n m", "x+y&z"}, {"bad", "%FF"}}},
  };
  for (const auto& [text, expected] : queries)
    EXPECT_EQ(RKVURL::withString(text)->queryItems(), expected) << text;
}

TEST(RKVURLTest, RemovingPercentEncoding) {
  const std::pair<string, string> decoded[] = {
      {"plain+text", "plain+text"},
      {"http://x/?e=%5BERRORCODE%5d", "http://x/?e=[ERRORCODE]"},
      {"%F0%9F%8E%AC", "\xF0\x9F\x8E\xAC"},
  };
  for (const auto& [text, expected] : decoded)
    EXPECT_EQ(RKVURL::removingPercentEncoding(text), expected) << text;
  // Bad escapes, then decoded bytes that are not UTF-8: not UTF-8, an overlong "/", a surrogate,
  // above U+10FFFF, a truncated sequence, and a raw byte.
  for (const char* text :
       {"abc%4", "%zz", "%%41", "%FF", "%C0%AF", "%ED%A0%80", "%F4%90%80%80", "%E2%82", "\xC3"})
    EXPECT_EQ(RKVURL::removingPercentEncoding(text), nullopt) << text;
}

TEST(RKVURLTest, ResolvesReferencesAgainstABase) {
  auto resolve = [](std::string_view reference, std::string_view base) -> optional<string> {
    optional<RKVURL> resolved = RKVURL::withString(reference, *RKVURL::withString(base));
    return resolved ? optional<string>(resolved->absoluteString()) : nullopt;
  };
  // Examples of RFC 3986 section 5.4, then VAST-style ones.
  const std::pair<string, string> cases[] = {
      {"g:h", "g:h"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"../..", "http://a/"},
      {"/../g", "http://a/g"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"media/ad 1.mp4?e=[ERRORCODE]", "http://a/b/c/media/ad%201.mp4?e=%5BERRORCODE%5D"},
  };
  for (const auto& [reference, expected] : cases)
    EXPECT_EQ(resolve(reference, "http://a/b/c/d;p?q"), expected) << reference;
  EXPECT_EQ(resolve("a.xml", "http://h"), "http://h/a.xml");  // empty base path
  EXPECT_EQ(resolve("", "http://h/p"), nullopt);              // empty text is never a URL
  EXPECT_EQ(resolve("//", "http://h/p"), nullopt);            // http with an empty host
  // Results that must not be read back as an authority or a scheme.
  EXPECT_EQ(resolve("..//g", "foo:/a/b"), "foo:/.//g");
  EXPECT_EQ(resolve("./a:b", "c"), "./a:b");
  EXPECT_FALSE(RKVURL::withString("./a:b")->hasScheme());
}

TEST(RKVURLTest, EqualityIsOnTheNormalizedText) {
  optional<RKVURL> a = RKVURL::withString("http://x/?e=[ERRORCODE]");
  optional<RKVURL> b = RKVURL::withString("http://x/?e=%5BERRORCODE%5D");
  optional<RKVURL> c = RKVURL::withString("HTTP://x/?e=%5BERRORCODE%5D");
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);  // nothing is case-folded
  EXPECT_EQ((std::unordered_set<RKVURL>{*a, *b, *c}.size()), 2u);
}

TEST(RKVURLComponentsTest, QueryItemsReplaceTheQuery) {
  auto withItems = [](std::string_view text, const optional<Items>& items) -> string {
    optional<RKVURLComponents> components = RKVURLComponents::withString(text);
    if (!components) return "<no components>";
    components->setQueryItems(items);
    optional<RKVURL> url = components->URL();
    return url ? url->absoluteString() : "<no URL>";
  };
  const std::tuple<string, optional<Items>, string> cases[] = {
      {"http://b/p?old=1&e=[ERRORCODE]#frag", Items{{"a", "x y"}, {"z", "1"}},
       "http://b/p?a=x%20y&z=1#frag"},
      // "&", "=", "+" and the other query characters pass through; "%" is always encoded.
      {"http://b/", Items{{"q", "a&b=c+d/e?f:g@h"}}, "http://b/?q=a&b=c+d/e?f:g@h"},
      {"http://b/", Items{{"p", "100%"}, {"e", "%5B"}}, "http://b/?p=100%25&e=%255B"},
      {"http://b/", Items{{"flag", nullopt}, {"", ""}, {"na me", "v"}},
       "http://b/?flag&=&na%20me=v"},
      {"http://b/?x=1", Items{}, "http://b/?"},
      {"http://b/?x=1#f", nullopt, "http://b/#f"},
      {"?x=1", nullopt, "<no URL>"},  // nothing left
      {"http://exa mple/", Items{}, "<no components>"},
  };
  for (const auto& [base, items, expected] : cases)
    EXPECT_EQ(withItems(base, items), expected) << base;

  // "&" and "=" left in a value split it on the way back, as on the platform.
  optional<RKVURLComponents> components = RKVURLComponents::withString("http://b/?a=1");
  components->setQueryItems(Items{{"sp ace", "a&b=c%"}, {"none", nullopt}});
  EXPECT_EQ(components->percentEncodedQuery(), "sp%20ace=a&b=c%25&none");
  EXPECT_EQ(components->queryItems(), (Items{{"sp ace", "a"}, {"b", "c%"}, {"none", nullopt}}));
  components->setQueryItems(nullopt);
  EXPECT_EQ(components->queryItems(), nullopt);
}

}  // namespace
}  // namespace rkv
