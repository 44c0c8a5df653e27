// Readings of texts (numbers, times, colours), URLs, error records and quaternions, and the shared
// ASCII and UTF-8 checks.

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVError.h"
#include "rkv/foundation/RKVQuaternion.h"
#include "rkv/foundation/RKVTextValues.h"
#include "rkv/foundation/RKVTimeUtils.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/foundation/internal/RKVText.h"

namespace rkv {
namespace {

using std::nullopt;
using std::optional;
using std::string;
using namespace std::string_view_literals;
using T = RKVTimeUtils;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(RKVTextValuesTest, EveryReadingOfATextTakesItsLeadingNumber) {
  constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
  constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
  constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
  // Text, double (and float), integer, int, bool. A no-break space is not white space.
  const std::tuple<string, double, int64_t, int32_t, bool> rows[] = {
      {" \t\n-17xyz", -17, -17, -17, true},
      {"+1.5e2x", 150, 1, 1, true},
      {"-.5", -0.5, 0, 0, false},
      {"yes", 0, 0, 0, true},
      {"\u00A05", 0, 0, 0, false},
      {"-2147483649", -2147483649, -2147483649, kMin32, true},
      {"9223372036854775808", 9223372036854775808.0, kMax64, kMax32, true},
  };
  for (const auto& [text, number, integer, int32, boolean] : rows) {
    EXPECT_EQ(RKVTextValues::doubleValue(text), number) << text;
    EXPECT_EQ(RKVTextValues::floatValue(text), static_cast<float>(number)) << text;
    EXPECT_EQ(RKVTextValues::integerValue(text), integer) << text;
    EXPECT_EQ(RKVTextValues::intValue(text), int32) << text;
    EXPECT_EQ(RKVTextValues::boolValue(text), boolean) << text;
  }
  // Narrowing rounds to the nearest float; only beyond half an ulp above the maximum is infinite.
  EXPECT_EQ(RKVTextValues::floatValue("3.4028235e38"), std::numeric_limits<float>::max());
  EXPECT_EQ(RKVTextValues::floatValue("3.4028236e38"), std::numeric_limits<float>::infinity());
}

TEST(RKVTimeUtilsTest, ClockTextsAndPercentagesAtTheirBounds) {
  const std::pair<string, double> clocks[] = {
      {"00:00:15", 15.0},           {"15", 15.0},          {"1:2", 62.0},
      {"00:00:05.5", 5.5},          {"00:00:05.05", 5.05}, {"00:00:05.005", 5.005},
      {"59:59:59.999", 215999.999},
  };
  for (const auto& [text, seconds] : clocks)
    EXPECT_DOUBLE_EQ(T::timeIntervalFromVASTDuration(text), seconds) << text;
  // Out of bounds, malformed, surrounded by white space, or with full-width digits.
  for (const char* text : {"60:00:00", "00:60:00", "00:00:60", "00:00:15.1234", "00:00:05.", ".5",
                           "1:2:3:4", "-1", " 15", "15\n", "", "\xEF\xBC\x91\xEF\xBC\x95"})
    EXPECT_DOUBLE_EQ(T::timeIntervalFromVASTDuration(text), -1.0) << text;
  EXPECT_DOUBLE_EQ(T::timeIntervalFromVASTDuration(nullopt), -1.0);
  // Fields are leading numbers (empty is 0), every field in [0, 60), the fraction padded on the
  // right and counted in characters, not bytes.
  const std::tuple<string, string, string, optional<string>, double> fields[] = {
      {"", "", "", nullopt, 0.0},      {"01:", "02", " 3", "", 3723.0},
      {"60", "0", "0", nullopt, -1.0}, {"0", "0", "1", "05", 1.05},
      {"0", "0", "1", "1234", -1.0},   {"0", "0", "1", "\xC3\xA9\xC3\xA9", 1.0},
  };
  for (const auto& [h, m, s, ms, seconds] : fields)
    EXPECT_DOUBLE_EQ(T::timeIntervalWithHours(h, m, s, ms), seconds) << h << "|" << m << "|" << s;

  for (const auto& [text, percent] : {std::pair{"0%", 0.0}, {"100%", 100.0}, {"007%", 7.0}})
    EXPECT_DOUBLE_EQ(T::percentageFromPercentVASTDuration(text), percent) << text;
  for (const char* text : {"101%", "25.5%", "-5%", " 5%", "%", "25", "25%%"})
    EXPECT_DOUBLE_EQ(T::percentageFromPercentVASTDuration(text), -1.0) << text;
  EXPECT_DOUBLE_EQ(T::percentageFromPercentVASTDuration(nullopt), -1.0);
  // Offset kinds and percent offsets are checked through the VAST tracking event factory.
  EXPECT_DOUBLE_EQ(T::timeIntervalFromPercentage(kNaN, 10.0), -1.0);

  // Huge texts are refused whole, or read whole.
  const string digits(100 * 1024, '1');
  EXPECT_DOUBLE_EQ(T::timeIntervalFromVASTDuration(digits), -1.0);
  string colons;
  for (int i = 0; i < 50 * 1024; ++i)
    colons += "1:";
  EXPECT_DOUBLE_EQ(T::timeIntervalFromVASTDuration(colons + "1"), -1.0);
  EXPECT_DOUBLE_EQ(T::percentageFromPercentVASTDuration(string(100 * 1024, '0') + "5%"), 5.0);
}

TEST(RKVTimeUtilsTest, TimecodesDurationTextsAndTimeOfDay) {
  // Sorted, once each, only clock texts.
  EXPECT_EQ(T::consumableTimecodes(std::vector<string>{"00:00:10", "5", "00:00:05", "25%", "5.0"}),
            (std::vector<double>{5.0, 10.0}));
  EXPECT_EQ(T::stringFromDuration(359999), "99:59:59");
  EXPECT_EQ(T::stringFromDuration(360000), nullopt);

  using std::chrono::seconds;
  const auto date = std::chrono::system_clock::time_point(seconds(13 * 3600 + 4 * 60 + 5));
  EXPECT_EQ(T::timeFromDate(date, RKVCalendar::withUTCOffset(seconds(11 * 3600))), "00:04:05");
  // The current calendar follows the time zone of the moment.
  const char* saved = std::getenv("TZ");
  const optional<string> previous = saved ? optional<string>(saved) : nullopt;
  setenv("TZ", "XYZ-2", 1);  // two hours east of UTC
  const optional<string> east = T::timeFromDate(date);
  previous ? setenv("TZ", previous->c_str(), 1) : unsetenv("TZ");
  EXPECT_EQ(east, "15:04:05");
}

TEST(RKVUtilsTest, TextChecksAndConsentStrings) {
  // White space is horizontal only, Unicode spaces included; zero-width space is not one.
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace(nullopt));
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace(" \t\xC2\xA0\xE2\x80\x89\xE3\x80\x80"));
  for (const char* text : {"\n", " x ", "\xE2\x80\x8B"})
    EXPECT_FALSE(RKVUtils::stringIsEmptyOrWhiteSpace(text)) << text;
  // A truncated multi-byte sequence is kept, not read past.
  EXPECT_EQ(RKVUtils::stringByRemovingWhiteSpace("\xC3\xA9 \xE2\x80\x8A!\t\n\xE2\x80"),
            "\xC3\xA9!\n\xE2\x80");
  // Consent strings: ASCII letters, digits, ".", "-" and "_" (the Kelvin sign lowers to "k").
  for (const char* text : {"abc.DEF-_09", "\xE2\x84\xAA"})
    EXPECT_TRUE(RKVUtils::isValidGDPRConsentString(text)) << text;
  for (const char* text : {"abc def", "abc+def", "abc\xC3\xA9", ""})
    EXPECT_FALSE(RKVUtils::isValidGDPRConsentString(text)) << text;
}

TEST(RKVUtilsTest, ColorsReadAndWritten) {
  auto argb = [](const optional<RKVColor>& c) -> string {
    return c ? RKVUtils::colorStringFromColor(*c, true) : "none";
  };
  // Three and six digits are RGB, four and eight put alpha first; every "#" goes.
  const std::pair<string, string> hashed[] = {
      {"#F0A", "#FFFF00AA"},  {"#80FF0000", "#80FF0000"},
      {"#8F00", "#88FF0000"}, {"#F#F#F", "#FFFFFFFF"},
      {"F0A", "none"},        {"#12345", "none"},
      {"#GG0000", "none"},    {"#FFF ", "none"},
  };
  for (const auto& [text, expected] : hashed)
    EXPECT_EQ(argb(RKVUtils::colorFromString(text)), expected) << text;
  // The prefix is required unless it is optional or empty.
  EXPECT_EQ(argb(RKVUtils::colorFromString("F0A", "#", true)), "#FFFF00AA");
  EXPECT_EQ(argb(RKVUtils::colorFromString("0xFF0000", "0x")), "#FFFF0000");
  // Components are exact fractions of 255; out of range or not hexadecimal, 0.
  EXPECT_EQ(RKVUtils::colorFromString("#0A80FF"), (RKVColor{10 / 255.0, 128 / 255.0, 1.0, 1.0}));
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("FF", std::numeric_limits<size_t>::max(), 2), 0.0);
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{1.0, 0.0, 0.0, 1.0}, "0x", false), "0xFF0000");
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{0.5, 0.2, 1.0 / 255.0, 0.0}, true),
            "#00803301");
  // Out-of-range components keep their digits; non-finite ones print 00.
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{2.0, 0.0, 0.0, 1.0}, false), "#1FE0000");
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{kNaN, kInf, 1e300, 1.0}, false), "#000000");
}

TEST(RKVUtilsTest, ErrorRecords) {
  // An empty description is still a description; an absent one leaves no user information.
  EXPECT_TRUE(RKVUtils::errorWithDomain("RKVFutureError", 1000, "").hasUserInfo());
  const RKVError bare = RKVUtils::errorWithDomain("RKVFutureError", 1000);
  EXPECT_FALSE(bare.hasUserInfo());
  EXPECT_EQ(bare.description(), "Error Domain=RKVFutureError Code=1000");
  EXPECT_NE(bare, RKVError("RKVFutureError", 1000, ""));
}

TEST(RKVQuaternionTest, RotationsProductsAndEquality) {
  using std::numbers::pi;
  auto components = [](const RKVQuaternion& q) { return std::array{q.w(), q.x(), q.y(), q.z()}; };
  auto expectNear = [&](const RKVQuaternion& q, std::array<double, 4> expected) {
    for (size_t i = 0; i < 4; ++i)
      EXPECT_NEAR(components(q)[i], expected[i], 1e-12) << i;
  };
  expectNear(RKVQuaternion::withAngle(pi / 2, 1), {std::sqrt(0.5), 0, std::sqrt(0.5), 0});
  // The axis is not normalised.
  expectNear(RKVQuaternion::withAngle(pi, 2.0, 0.0, 0.0), {0, 2, 0, 0});
  // Euler angles compose about x, then y, then z.
  EXPECT_EQ(RKVQuaternion::withXe(0.3, -0.4, 1.1),
            RKVQuaternion::withAngle(0.3, 0)
                .multipliedBy(RKVQuaternion::withAngle(-0.4, 1))
                .multipliedBy(RKVQuaternion::withAngle(1.1, 2)));
  // i * j = k, j * i = -k: the order matters.
  const RKVQuaternion i(0, 1, 0, 0), j(0, 0, 1, 0);
  expectNear(i.multipliedBy(j), {0, 0, 0, 1});
  expectNear(j.multipliedBy(i), {0, 0, 0, -1});
  // Inversion divides by the squared norm without a sign change.
  expectNear(RKVQuaternion(1, 1, 1, 1).inverted(), {0.25, 0.25, 0.25, 0.25});
  EXPECT_EQ(RKVQuaternion(1, 2, 3, 4).vector4(), (std::array<float, 4>{2, 3, 4, 1}));
  // Components equal within 1e-9; NaN components equal nothing but the very same object.
  const RKVQuaternion q(0.1, 0.2, 0.3, 0.4);
  EXPECT_EQ(q, RKVQuaternion(0.1 + 5e-10, 0.2, 0.3, 0.4 - 5e-10));
  EXPECT_FALSE(q == RKVQuaternion(0.1, 0.2, 0.3, 0.4 + 2e-9));
  const RKVQuaternion nan(kNaN, 0, 0, 0);
  EXPECT_TRUE(nan == nan);
  EXPECT_FALSE(nan.isEqualToQuaternion(nan));
  EXPECT_FALSE(nan == RKVQuaternion(nan));
}

using Items = std::vector<RKVURLQueryItem>;

TEST(RKVURLTest, NormalizesOrRejects) {
  // The text, and the absolute string it parses to; that string is a fixed point of parsing.
  const std::pair<string, string> accepted[] = {
      // Macros in brackets, as ad servers write them inside CDATA.
      {"http://x/p?e=[ERRORCODE]&a=1", "http://x/p?e=%5BERRORCODE%5D&a=1"},
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
      // Case is kept; the last "@" ends the user information.
      {"HtTpS://Example.COM/Path", "HtTpS://Example.COM/Path"},
      {"http://a@b c:d@e@h/", "http://a%40b%20c:d%40e@h/"},
      // IP literals and ports.
      {"http://[fe80::1%25en0]:8080/", "http://[fe80::1%25en0]:8080/"},
      // Other schemes, with and without authority; relative references.
      {"tel:+1 555 0100", "tel:+1%20555%200100"},
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
      "http://[::1]x/", "http://[1.2.3.4]/", "http://[fe80::1%en0]/", "http://a[b]/",
      "http://ex\xC3\xA4mple/"};
  // clang-format on
  for (const char* text : rejected)
    EXPECT_FALSE(RKVURL::withString(text)) << text;
  // Equality is on the normalized text; nothing is case-folded.
  const std::unordered_set<RKVURL> set = {*RKVURL::withString("http://x/?e=[ERRORCODE]"),
                                          *RKVURL::withString("http://x/?e=%5BERRORCODE%5D"),
                                          *RKVURL::withString("HTTP://x/?e=%5BERRORCODE%5D")};
  EXPECT_EQ(set.size(), 2u);
}

// scheme|user|password|host|port|path|query|fragment, "-" for an absent component.
string components(const RKVURL& url) {
  auto part = [](optional<std::string_view> value) { return string(value.value_or("-")) + "|"; };
  return part(url.scheme()) + part(url.user()) + part(url.password()) + part(url.host()) +
         (url.port() ? std::to_string(*url.port()) : "-") + "|" + part(url.path()) +
         part(url.query()) + string(url.fragment().value_or("-"));
}

TEST(RKVURLTest, ComponentsPathsAndQueryItemsAreReadFromTheNormalizedText) {
  const std::pair<string, string> cases[] = {
      {"HTTPS://u%20s:p@w@Host.example:0443/a/b;c?x=[1]&y#frag",
       "HTTPS|u%20s|p%40w|Host.example|443|/a/b;c|x=%5B1%5D&y|frag"},
      {"ftp://:@h:/", "ftp|||h|-|/|-|-"},
      {"//cdn.example/v.mp4?", "-|-|-|cdn.example|-|/v.mp4||-"},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(components(*RKVURL::withString(text)), expected) << text;
  // A copy's views must not point into the destroyed original.
  optional<RKVURL> original = RKVURL::withString("http://x/?e=[ERRORCODE]");
  const RKVURL copy = *original;
  original.reset();
  EXPECT_EQ(copy.query(), "e=%5BERRORCODE%5D");

  const std::pair<string, std::vector<string>> paths[] = {
      {"http://h", {}},
      {"http://h//a///b.mp4/?x=/y", {"/", "a", "b.mp4"}},
      {"http://h/a%20b/c%2Fd/%FF", {"/", "a b", "c/d", "%FF"}},  // not UTF-8: kept encoded
  };
  for (const auto& [text, expected] : paths) {
    EXPECT_EQ(RKVURL::withString(text)->pathComponents(), expected) << text;
    EXPECT_EQ(RKVURL::withString(text)->lastPathComponent(),
              expected.empty() ? "" : expected.back());
  }
  EXPECT_EQ(RKVURL::withString("http://h/?a&&k=a=b&n%20m=x+y%26z&bad=%FF#x=1")->queryItems(),
            (Items{{"a", nullopt}, {"", nullopt}, {"k", "a=b"}, {"n m", "x+y&z"}, {"bad", "%FF"}}));
}

TEST(RKVURLTest, RemovingPercentEncoding) {
  EXPECT_EQ(RKVURL::removingPercentEncoding("a+b?e=%5BERRORCODE%5d"), "a+b?e=[ERRORCODE]");
  EXPECT_EQ(RKVURL::removingPercentEncoding("%F0%9F%8E%AC"), "\xF0\x9F\x8E\xAC");
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
  // clang-format off
  const std::pair<string, string> cases[] = {
      {"g:h", "g:h"}, {"//g", "http://g"}, {"?y", "http://a/b/c/d;p?y"}, {"../..", "http://a/"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"}, {"/../g", "http://a/g"},
      {"g;x=1/../y", "http://a/b/c/y"}, {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"media/ad 1.mp4?e=[ERRORCODE]", "http://a/b/c/media/ad%201.mp4?e=%5BERRORCODE%5D"}};
  // clang-format on
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

TEST(RKVTextTest, UTF8Validity) {
  // Empty, ASCII longer than eight bytes, U+00E9, U+20AC, U+1F600, U+D7FF (the last before the
  // surrogates), U+10FFFF, an embedded NUL.
  for (std::string_view bytes : {""sv, "plain ASCII, longer than eight bytes"sv, "caf\xC3\xA9"sv,
                                 "\xE2\x82\xAC and \xF0\x9F\x98\x80"sv, "\xED\x9F\xBF"sv,
                                 "\xF4\x8F\xBF\xBF"sv, "\0embedded NUL"sv})
    EXPECT_TRUE(internal::isValidUTF8(bytes)) << testing::PrintToString(std::string(bytes));
  // Overlong forms of two, three and four bytes, the surrogates U+D800 and U+DFFF, U+110000, a
  // lead byte above F4, a lone continuation byte, sequences cut after a run of ASCII and inside
  // three and four bytes, a continuation that is not one, FF.
  for (std::string_view bytes :
       {"\xC0\xAF"sv, "\xC1\xBF"sv, "\xE0\x9F\xBF"sv, "\xF0\x8F\xBF\xBF"sv, "\xED\xA0\x80"sv,
        "\xED\xBF\xBF"sv, "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv, "\x80"sv, "12345678\xC3"sv,
        "\xE2\x82"sv, "\xF0\x9F\x98"sv, "\xE2\x28\xA1"sv, "\xFF"sv})
    EXPECT_FALSE(internal::isValidUTF8(bytes)) << testing::PrintToString(std::string(bytes));
}

TEST(RKVTextTest, HTTPTokens) {
  EXPECT_TRUE(internal::isHTTPToken("Content-Type"));
  EXPECT_TRUE(internal::isHTTPToken("x!#$%&'*+-.^_`|~9"));
  // Empty, separators, controls, NUL and non-ASCII bytes.
  for (std::string_view text : {""sv, "a b"sv, "a\tb"sv, "a:b"sv, "a,b"sv, "(a)"sv, "a/b"sv,
                                "a;b"sv, "a=b"sv, "a@b"sv, "[a]"sv, "{a}"sv, "a\"b"sv, "a\\b"sv,
                                "a?b"sv, "a\x7F"sv, "\0a"sv, "caf\xC3\xA9"sv, "a\r\n"sv})
    EXPECT_FALSE(internal::isHTTPToken(text)) << testing::PrintToString(std::string(text));
}

}  // namespace
}  // namespace rkv
