// The shared ASCII and UTF-8 helpers.

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "rkv/foundation/internal/RKVText.h"

namespace rkv::internal {
namespace {

using namespace std::string_view_literals;

TEST(RKVTextTest, UTF8Validity) {
  // Empty, ASCII longer than eight bytes, U+00E9, U+20AC, U+1F600, U+D7FF (the last before the
  // surrogates), U+10FFFF, an embedded NUL.
  for (std::string_view bytes : {""sv, "plain ASCII, longer than eight bytes"sv, "caf\xC3\xA9"sv,
                                 "\xE2\x82\xAC and \xF0\x9F\x98\x80"sv, "\xED\x9F\xBF"sv,
                                 "\xF4\x8F\xBF\xBF"sv, "\0embedded NUL"sv})
    EXPECT_TRUE(isValidUTF8(bytes)) << testing::PrintToString(std::string(bytes));
  // Overlong forms of two, three and four bytes, the surrogates U+D800 and U+DFFF, U+110000, a
  // lead byte above F4, a lone continuation byte, sequences cut after a run of ASCII and inside
  // three and four bytes, a continuation that is not one, FF.
  for (std::string_view bytes :
       {"\xC0\xAF"sv, "\xC1\xBF"sv, "\xE0\x9F\xBF"sv, "\xF0\x8F\xBF\xBF"sv, "\xED\xA0\x80"sv,
        "\xED\xBF\xBF"sv, "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv, "\x80"sv, "12345678\xC3"sv,
        "\xE2\x82"sv, "\xF0\x9F\x98"sv, "\xE2\x28\xA1"sv, "\xFF"sv})
    EXPECT_FALSE(isValidUTF8(bytes)) << testing::PrintToString(std::string(bytes));
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
