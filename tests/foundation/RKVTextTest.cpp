// The shared ASCII and UTF-8 helpers.

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "rkv/foundation/internal/RKVText.h"

namespace rkv::internal {
namespace {

using namespace std::string_view_literals;

TEST(RKVTextTest, UTF8Validity) {
  // clang-format off
  const std::pair<std::string_view, bool> cases[] = {
      {"", true},
      {"plain ASCII, longer than eight bytes", true},
      {"caf\xC3\xA9", true},                          // U+00E9
      {"\xE2\x82\xAC and \xF0\x9F\x98\x80", true},    // U+20AC, U+1F600
      {"\xED\x9F\xBF", true},                         // U+D7FF, last before the surrogates
      {"\xF4\x8F\xBF\xBF", true},                     // U+10FFFF
      {"\0embedded NUL"sv, true},
      {"\xC0\xAF", false},                            // overlong "/"
      {"\xC1\xBF", false},                            // overlong, two bytes
      {"\xE0\x9F\xBF", false},                        // overlong, three bytes
      {"\xF0\x8F\xBF\xBF", false},                    // overlong, four bytes
      {"\xED\xA0\x80", false},                        // U+D800, a surrogate
      {"\xED\xBF\xBF", false},                        // U+DFFF
      {"\xF4\x90\x80\x80", false},                    // U+110000
      {"\xF5\x80\x80\x80", false},                    // no lead byte above F4
      {"\x80", false},                                // a lone continuation byte
      {"12345678\xC3", false},                        // cut after a run of ASCII
      {"\xE2\x82", false},                            // cut inside three bytes
      {"\xF0\x9F\x98", false},                        // cut inside four bytes
      {"\xE2\x28\xA1", false},                        // a continuation that is not one
      {"\xFF", false},
  };
  // clang-format on
  for (const auto& [bytes, valid] : cases) {
    EXPECT_EQ(isValidUTF8(bytes), valid) << testing::PrintToString(std::string(bytes));
  }
}

TEST(RKVTextTest, HTTPTokens) {
  const std::pair<std::string_view, bool> cases[] = {
      {"Content-Type", true},
      {"x!#$%&'*+-.^_`|~9", true},
      {"", false},
      {"a b", false},
      {"a\tb", false},
      {"a:b", false},
      {"a,b", false},
      {"(a)", false},
      {"a/b", false},
      {"a;b", false},
      {"a=b", false},
      {"a@b", false},
      {"[a]", false},
      {"{a}", false},
      {"a\"b", false},
      {"a\\b", false},
      {"a?b", false},
      {"a\x7F", false},
      {"\0a"sv, false},
      {"caf\xC3\xA9", false},
      {"a\r\n", false},
  };
  for (const auto& [text, token] : cases) {
    EXPECT_EQ(isHTTPToken(text), token) << testing::PrintToString(std::string(text));
  }
}

TEST(RKVTextTest, TrimmingAndCaseFolding) {
  // Text, characters to trim, expected.
  const std::tuple<std::string_view, std::string_view, std::string_view> trims[] = {
      {" \t\r\n\v\fvalue \n", kASCIIWhiteSpace, "value"},
      {"  inner  space ", kASCIIWhiteSpace, "inner  space"},
      {" \t\n", kASCIIWhiteSpace, ""},
      {"", kASCIIWhiteSpace, ""},
      {"\xC2\xA0nbsp", kASCIIWhiteSpace, "\xC2\xA0nbsp"},  // non-ASCII space stays
      {"--x-y--", "-", "x-y"},
      {"model\0\n"sv, "\0\n"sv, "model"},
  };
  for (const auto& [text, characters, expected] : trims) {
    EXPECT_EQ(trimmed(text, characters), expected) << testing::PrintToString(std::string(text));
    std::string inPlace(text);
    trimInPlace(inPlace, characters);
    EXPECT_EQ(inPlace, expected) << testing::PrintToString(std::string(text));
  }

  EXPECT_EQ(asciiLowercased("HTTP://Ex\xC3\x89mple.COM/"), "http://ex\xC3\x89mple.com/");
  // a, b, equal ignoring case.
  const std::tuple<std::string_view, std::string_view, bool> comparisons[] = {
      {"HTTPS", "https", true},
      {"hTtP", "HtTp", true},
      {"http", "https", false},
      {"", "", true},
      {"[", "{", false},
      {"@", "`", false},                // 0x40 vs 0x60
      {"\xC3\x89", "\xC3\xA9", false},  // non-ASCII bytes are never folded
  };
  for (const auto& [a, b, equal] : comparisons) {
    EXPECT_EQ(asciiEqualsIgnoringCase(a, b), equal) << a << " / " << b;
  }
  EXPECT_TRUE(asciiStartsWithIgnoringCase("Content-Length", "content-"));
  EXPECT_FALSE(asciiStartsWithIgnoringCase("Con", "content-"));
  EXPECT_TRUE(asciiEndsWithIgnoringCase("image/PNG", "/png"));
  EXPECT_FALSE(asciiEndsWithIgnoringCase("png", "/png"));
}

}  // namespace
}  // namespace rkv::internal
