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
  EXPECT_TRUE(isHTTPToken("Content-Type"));
  EXPECT_TRUE(isHTTPToken("x!#$%&'*+-.^_`|~9"));
  // Empty, separators, controls, NUL and non-ASCII bytes.
  for (std::string_view text : {""sv, "a b"sv, "a\tb"sv, "a:b"sv, "a,b"sv, "(a)"sv, "a/b"sv,
                                "a;b"sv, "a=b"sv, "a@b"sv, "[a]"sv, "{a}"sv, "a\"b"sv, "a\\b"sv,
                                "a?b"sv, "a\x7F"sv, "\0a"sv, "caf\xC3\xA9"sv, "a\r\n"sv})
    EXPECT_FALSE(isHTTPToken(text)) << testing::PrintToString(std::string(text));
}

}  // namespace
}  // namespace rkv::internal
