#include <sstream>
#include <unordered_set>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVURL.h"

namespace rkv {
namespace {

using std::nullopt;
using std::optional;
using std::string;
using std::string_view;

// Text to parse and the absolute string expected; nullopt when the text must be rejected.
struct ParseCase {
  string text;
  optional<string> expected;
};

class RKVURLParseTest : public testing::TestWithParam<ParseCase> {};

TEST_P(RKVURLParseTest, NormalizesOrRejects) {
  const ParseCase& c = GetParam();
  optional<RKVURL> url = RKVURL::withString(c.text);
  if (!c.expected) {
    EXPECT_FALSE(url.has_value()) << "accepted as " << *url;
    return;
  }
  ASSERT_TRUE(url.has_value());
  EXPECT_EQ(url->absoluteString(), *c.expected);
  // The normalized text is a fixed point of parsing.
  optional<RKVURL> again = RKVURL::withString(url->absoluteString());
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(*again, *url);
}

INSTANTIATE_TEST_SUITE_P(
    VASTStyle, RKVURLParseTest,
    testing::Values(
        // Macros in brackets, as ad servers write them inside CDATA.
        ParseCase{"http://x/p?e=[ERRORCODE]", "http://x/p?e=%5BERRORCODE%5D"},
        ParseCase{"https://t.example.com/imp?cb=[CACHEBUSTING]&ts=[TIMESTAMP]&a=1",
                  "https://t.example.com/imp?cb=%5BCACHEBUSTING%5D&ts=%5BTIMESTAMP%5D&a=1"},
        ParseCase{"http://x/[ERRORCODE]/p", "http://x/%5BERRORCODE%5D/p"},
        // Escapes already present are kept as written; a stray "%" is encoded.
        ParseCase{"http://x/?e=%5BERRORCODE%5d", "http://x/?e=%5BERRORCODE%5d"},
        ParseCase{"http://x/?share=100%&e=%zz%4", "http://x/?share=100%25&e=%25zz%254"},
        // Query characters stay as they are; "?" may repeat inside a query.
        ParseCase{"http://x/p?a=1&b=c=d&u=http://y/?z=1;w",
                  "http://x/p?a=1&b=c=d&u=http://y/?z=1;w"},
        // White space: trimmed at the ends, encoded inside.
        ParseCase{"  \thttp://x/a b?q=x y#f g\r\n ", "http://x/a%20b?q=x%20y#f%20g"},
        ParseCase{"http://x/a\tb\nc", "http://x/a%09b%0Ac"},
        // Non-ASCII UTF-8 and bytes that are not UTF-8 at all.
        ParseCase{"https://x/caf\xC3\xA9?v=\xC3\xBC", "https://x/caf%C3%A9?v=%C3%BC"},
        ParseCase{"http://x/\xFF\x80", "http://x/%FF%80"},
        ParseCase{string("http://x/a\0b", 12), "http://x/a%00b"},
        // Characters never allowed in a path, query or fragment.
        ParseCase{"http://x/a|b^c`d{e}f\"g<h>i\\j",
                  "http://x/a%7Cb%5Ec%60d%7Be%7Df%22g%3Ch%3Ei%5Cj"},
        ParseCase{"http://x/?a#b#c[d]", "http://x/?a#b%23c%5Bd%5D"},
        // Case is kept; scheme characters beyond letters.
        ParseCase{"HtTpS://Example.COM/Path", "HtTpS://Example.COM/Path"},
        ParseCase{"com.example-app+x://open", "com.example-app+x://open"},
        // User information: the last "@" ends it; escapes and encoding apply.
        ParseCase{"http://user:pa:ss@h:8080/p", "http://user:pa:ss@h:8080/p"},
        ParseCase{"http://a@b c:d@e@h/", "http://a%40b%20c:d%40e@h/"},
        // IP literals and ports.
        ParseCase{"http://[::1]:8080/vast.xml", "http://[::1]:8080/vast.xml"},
        ParseCase{"http://[2001:db8::7]/", "http://[2001:db8::7]/"},
        ParseCase{"http://[fe80::1%25en0]/", "http://[fe80::1%25en0]/"},
        ParseCase{"http://[::ffff:192.0.2.1]/", "http://[::ffff:192.0.2.1]/"},
        ParseCase{"http://[v1.fe:x]/", "http://[v1.fe:x]/"},
        ParseCase{"http://192.0.2.1:0/", "http://192.0.2.1:0/"},
        ParseCase{"http://h:65535", "http://h:65535"}, ParseCase{"http://h:/p", "http://h:/p"},
        ParseCase{"http://ex%41mple.com/", "http://ex%41mple.com/"},
        // Other schemes, with and without authority.
        ParseCase{"file:///tmp/a.xml", "file:///tmp/a.xml"},
        ParseCase{"mailto:someone@example.com?subject=Hi there",
                  "mailto:someone@example.com?subject=Hi%20there"},
        ParseCase{"tel:+1 555 0100", "tel:+1%20555%200100"}, ParseCase{"http:", "http:"},
        ParseCase{"localhost:8080", "localhost:8080"},
        // Relative references.
        ParseCase{"/path?x", "/path?x"}, ParseCase{"//host/p", "//host/p"}, ParseCase{"//", "//"},
        ParseCase{"p?q", "p?q"}, ParseCase{"?q", "?q"}, ParseCase{"#f", "#f"}, ParseCase{"?", "?"},
        ParseCase{"../a b", "../a%20b"},
        // A ":" after "[" or "@" cannot end a scheme, and is encoded in a first segment.
        ParseCase{"[a:b]/c:d", "%5Ba%3Ab%5D/c:d"}, ParseCase{"@a:b", "@a%3Ab"},
        // Rejected.
        ParseCase{"", nullopt}, ParseCase{"   ", nullopt}, ParseCase{"\t\r\n", nullopt},
        ParseCase{":", nullopt}, ParseCase{"://x", nullopt}, ParseCase{"http://", nullopt},
        ParseCase{"https:///p", nullopt}, ParseCase{"HTTP://:80/", nullopt},
        ParseCase{"http://exa mple.com/", nullopt}, ParseCase{"http://h:99999/", nullopt},
        ParseCase{"http://h:65536/", nullopt}, ParseCase{"http://h:8a/", nullopt},
        ParseCase{"http://h:-1/", nullopt}, ParseCase{"http://h:1:2/", nullopt},
        ParseCase{"1http://x", nullopt}, ParseCase{"ht tp://x", nullopt},
        ParseCase{"-x:y", nullopt}, ParseCase{"caf\xC3\xA9:x", nullopt},
        ParseCase{"http://[::1/", nullopt}, ParseCase{"http://[::g]/", nullopt},
        ParseCase{"http://[::1]x/", nullopt}, ParseCase{"http://[]/", nullopt},
        ParseCase{"http://[1.2.3.4]/", nullopt}, ParseCase{"http://[fe80::1%en0]/", nullopt},
        ParseCase{"http://[fe80::1%25]/", nullopt}, ParseCase{"http://[v1.]/", nullopt},
        ParseCase{"http://[vz.a]/", nullopt}, ParseCase{"http://a[b]/", nullopt},
        ParseCase{"http://ex%zzample/", nullopt}, ParseCase{"http://ex\xC3\xA4mple/", nullopt},
        ParseCase{"http://a<b/", nullopt}));

TEST(RKVURLTest, ComponentsAreViewsOfTheNormalizedText) {
  struct Case {
    string text;
    optional<string_view> scheme, user, password, host;
    optional<uint16_t> port;
    string_view path;
    optional<string_view> query, fragment;
  };
  const Case cases[] = {
      {"HTTPS://u%20s:p@w@Host.example:0443/a/b;c?x=[1]&y#frag", "HTTPS", "u%20s", "p%40w",
       "Host.example", 443, "/a/b;c", "x=%5B1%5D&y", "frag"},
      {"http://[::1]:8080", "http", nullopt, nullopt, "[::1]", 8080, "", nullopt, nullopt},
      {"http://@h/", "http", "", nullopt, "h", nullopt, "/", nullopt, nullopt},
      {"ftp://:@h:/", "ftp", "", "", "h", nullopt, "/", nullopt, nullopt},
      {"file:///etc/hosts", "file", nullopt, nullopt, "", nullopt, "/etc/hosts", nullopt, nullopt},
      {"mailto:a@b.example", "mailto", nullopt, nullopt, nullopt, nullopt, "a@b.example", nullopt,
       nullopt},
      {"//cdn.example/v.mp4?", nullopt, nullopt, nullopt, "cdn.example", nullopt, "/v.mp4", "",
       nullopt},
      {"rel/p#", nullopt, nullopt, nullopt, nullopt, nullopt, "rel/p", nullopt, ""},
      {"?a=1#", nullopt, nullopt, nullopt, nullopt, nullopt, "", "a=1", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    optional<RKVURL> url = RKVURL::withString(c.text);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->hasScheme(), c.scheme.has_value());
    EXPECT_EQ(url->hasAuthority(), c.host.has_value());
    EXPECT_EQ(url->scheme(), c.scheme);
    EXPECT_EQ(url->user(), c.user);
    EXPECT_EQ(url->password(), c.password);
    EXPECT_EQ(url->host(), c.host);
    EXPECT_EQ(url->port(), c.port);
    EXPECT_EQ(url->path(), c.path);
    EXPECT_EQ(url->query(), c.query);
    EXPECT_EQ(url->fragment(), c.fragment);
  }
}

TEST(RKVURLTest, PathComponentsFollowThePlatformRules) {
  struct Case {
    string text;
    std::vector<string> components;
    string last;
  };
  const Case cases[] = {
      {"http://h", {}, ""},
      {"http://h/", {"/"}, "/"},
      {"http://h/a/b/", {"/", "a", "b"}, "b"},
      {"http://h//a///b.mp4?x=/y", {"/", "a", "b.mp4"}, "b.mp4"},
      {"https://apps.example/us/app/name/id123456789?mt=8",
       {"/", "us", "app", "name", "id123456789"},
       "id123456789"},
      {"http://h/a%20b/c%2Fd", {"/", "a b", "c/d"}, "c/d"},
      {"http://h/%FF", {"/", "%FF"}, "%FF"},  // not UTF-8: kept encoded
      {"a/b", {"a", "b"}, "b"},
      {"?q", {}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    optional<RKVURL> url = RKVURL::withString(c.text);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->pathComponents(), c.components);
    EXPECT_EQ(url->lastPathComponent(), c.last);
  }
}

TEST(RKVURLTest, QueryItemsAreSplitThenDecoded) {
  using Items = std::vector<RKVURLQueryItem>;
  struct Case {
    string text;
    Items items;
  };
  const Case cases[] = {
      {"http://h/", {}},
      {"http://h/?", {}},
      {"http://h/?id=123&mt=8", {{"id", "123"}, {"mt", "8"}}},
      {"http://h/?a&&b=", {{"a", nullopt}, {"", nullopt}, {"b", ""}}},
      {"http://h/?k=a=b&e=[ERRORCODE]", {{"k", "a=b"}, {"e", "[ERRORCODE]"}}},
      {"http://h/?n%20m=x+y%26z", {{"n m", "x+y&z"}}},
      {"http://h/?bad=%FF#x=1", {{"bad", "%FF"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    optional<RKVURL> url = RKVURL::withString(c.text);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->queryItems(), c.items);
  }
}

TEST(RKVURLTest, RemovingPercentEncoding) {
  const std::pair<string, optional<string>> cases[] = {
      {"", ""},
      {"plain+text", "plain+text"},
      {"a%20b%2fc", "a b/c"},
      {"http://x/?e=%5BERRORCODE%5D", "http://x/?e=[ERRORCODE]"},
      {"caf%C3%A9", "caf\xC3\xA9"},
      {"%F0%9F%8E%AC", "\xF0\x9F\x8E\xAC"},
      {"%", nullopt},
      {"abc%4", nullopt},
      {"%zz", nullopt},
      {"%%41", nullopt},
      {"%FF", nullopt},           // not UTF-8
      {"%C0%AF", nullopt},        // overlong "/"
      {"%ED%A0%80", nullopt},     // surrogate
      {"%F4%90%80%80", nullopt},  // above U+10FFFF
      {"%E2%82", nullopt},        // truncated sequence
      {"\xC3", nullopt},          // raw bytes are checked too
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(RKVURL::removingPercentEncoding(text), expected) << text;
  }
}

TEST(RKVURLTest, ResolvesReferencesAgainstABase) {
  // The reference resolution examples of RFC 3986 (section 5.4), then VAST-style ones.
  optional<RKVURL> base = RKVURL::withString("http://a/b/c/d;p?q");
  ASSERT_TRUE(base.has_value());
  const std::pair<string, string> cases[] = {
      {"g:h", "g:h"},
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"},
      {"http:g", "http:g"},
      {"media/ad 1.mp4?e=[ERRORCODE]", "http://a/b/c/media/ad%201.mp4?e=%5BERRORCODE%5D"},
  };
  for (const auto& [reference, expected] : cases) {
    optional<RKVURL> resolved = RKVURL::withString(reference, *base);
    ASSERT_TRUE(resolved.has_value()) << reference;
    EXPECT_EQ(resolved->absoluteString(), expected) << reference;
  }
}

TEST(RKVURLTest, ResolutionEdgeCases) {
  auto resolve = [](string_view reference, string_view base) -> optional<string> {
    optional<RKVURL> b = RKVURL::withString(base);
    if (!b) return "bad base";
    optional<RKVURL> r = RKVURL::withString(reference, *b);
    if (!r) return nullopt;
    return r->absoluteString();
  };
  EXPECT_EQ(resolve("a.xml", "http://h"), "http://h/a.xml");  // empty base path
  EXPECT_EQ(resolve("", "http://h/p"), nullopt);              // empty text is never a URL
  EXPECT_EQ(resolve("//", "http://h/p"), nullopt);            // http with an empty host
  EXPECT_EQ(resolve("x", "1http://h/"), "bad base");
  // Results that must not be read back as an authority or a scheme.
  EXPECT_EQ(resolve("..//g", "foo:/a/b"), "foo:/.//g");
  EXPECT_EQ(resolve("./a:b", "c"), "./a:b");
  optional<RKVURL> tricky = RKVURL::withString(*resolve("./a:b", "c"));
  ASSERT_TRUE(tricky.has_value());
  EXPECT_FALSE(tricky->hasScheme());
}

TEST(RKVURLTest, ValueSemantics) {
  optional<RKVURL> a = RKVURL::withString("http://x/?e=[ERRORCODE]");
  optional<RKVURL> b = RKVURL::withString("http://x/?e=%5BERRORCODE%5D");
  optional<RKVURL> c = RKVURL::withString("HTTP://x/?e=%5BERRORCODE%5D");
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(*a, *b);
  EXPECT_NE(*a, *c);  // equality is on the text; nothing is case-folded
  std::unordered_set<RKVURL> set{*a, *b, *c};
  EXPECT_EQ(set.size(), 2u);
  std::ostringstream out;
  out << *a;
  EXPECT_EQ(out.str(), "http://x/?e=%5BERRORCODE%5D");
  RKVURL copy = *a;
  a.reset();  // the copy's views must not point into the destroyed original
  EXPECT_EQ(copy.query(), "e=%5BERRORCODE%5D");
}

}  // namespace
}  // namespace rkv
