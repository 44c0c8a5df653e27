#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVStringTables.h"
#include "rkv/foundation/RKVUtils.h"

namespace rkv {
namespace {

TEST(RKVUtilsTest, WhiteSpaceIsHorizontalOnly) {
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace(std::nullopt));
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace(""));
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace(" \t "));
  EXPECT_TRUE(RKVUtils::stringIsEmptyOrWhiteSpace("\xC2\xA0\xE2\x80\x89\xE3\x80\x80"));
  EXPECT_FALSE(RKVUtils::stringIsEmptyOrWhiteSpace("\n"));
  EXPECT_FALSE(RKVUtils::stringIsEmptyOrWhiteSpace(" x "));
  EXPECT_FALSE(RKVUtils::stringIsEmptyOrWhiteSpace("\xE2\x80\x8B"));  // zero-width space

  EXPECT_EQ(RKVUtils::stringByRemovingWhiteSpace(" a\tb \xC2\xA0"
                                                 "c\n"),
            "abc\n");
  EXPECT_EQ(RKVUtils::stringByRemovingWhiteSpace("\xC3\xA9 \xE2\x80\x8A!"), "\xC3\xA9!");
  // A truncated multi-byte sequence is kept, not read past.
  EXPECT_EQ(RKVUtils::stringByRemovingWhiteSpace("a \xE2\x80"), "a\xE2\x80");
}

TEST(RKVUtilsTest, ConsentStringsAndDigits) {
  EXPECT_TRUE(RKVUtils::isValidGDPRConsentString("abc.DEF-_09"));
  EXPECT_TRUE(RKVUtils::isValidGDPRConsentString("BOEFEAyOEFEAyAHABDENAI4AAAB9vABAASA"));
  EXPECT_TRUE(RKVUtils::isValidGDPRConsentString("\xE2\x84\xAA"));  // Kelvin sign lowers to k
  EXPECT_FALSE(RKVUtils::isValidGDPRConsentString("abc def"));
  EXPECT_FALSE(RKVUtils::isValidGDPRConsentString("abc+def"));
  EXPECT_FALSE(RKVUtils::isValidGDPRConsentString("abc\xC3\xA9"));
  EXPECT_FALSE(RKVUtils::isValidGDPRConsentString(""));
  EXPECT_FALSE(RKVUtils::isValidGDPRConsentString(std::nullopt));

  EXPECT_TRUE(RKVUtils::stringIsDigitsOnly("0123"));
  EXPECT_FALSE(RKVUtils::stringIsDigitsOnly("12a"));
  EXPECT_FALSE(RKVUtils::stringIsDigitsOnly("-3"));
  EXPECT_FALSE(RKVUtils::stringIsDigitsOnly("1.5"));
  EXPECT_FALSE(RKVUtils::stringIsDigitsOnly(""));
  EXPECT_FALSE(RKVUtils::stringIsDigitsOnly(std::nullopt));
}

void expectColor(const std::optional<RKVColor>& color, double red, double green, double blue,
                 double alpha) {
  ASSERT_TRUE(color.has_value());
  EXPECT_DOUBLE_EQ(color->red, red);
  EXPECT_DOUBLE_EQ(color->green, green);
  EXPECT_DOUBLE_EQ(color->blue, blue);
  EXPECT_DOUBLE_EQ(color->alpha, alpha);
}

TEST(RKVUtilsTest, ColorParsing) {
  expectColor(RKVUtils::colorFromString("#F0A"), 1.0, 0.0, 170.0 / 255.0, 1.0);
  expectColor(RKVUtils::colorFromString("#f0a"), 1.0, 0.0, 170.0 / 255.0, 1.0);
  // Four and eight digits put alpha first.
  expectColor(RKVUtils::colorFromString("#80FF0000"), 1.0, 0.0, 0.0, 128.0 / 255.0);
  expectColor(RKVUtils::colorFromString("#8F00"), 1.0, 0.0, 0.0, 136.0 / 255.0);
  expectColor(RKVUtils::colorFromString("#00FF7f"), 0.0, 1.0, 127.0 / 255.0, 1.0);
  // Every occurrence of the prefix goes.
  expectColor(RKVUtils::colorFromString("##FFF"), 1.0, 1.0, 1.0, 1.0);
  expectColor(RKVUtils::colorFromString("#F#F#F"), 1.0, 1.0, 1.0, 1.0);
  // The prefix is required unless it is optional or empty.
  EXPECT_EQ(RKVUtils::colorFromString("F0A"), std::nullopt);
  expectColor(RKVUtils::colorFromString("F0A", "#", true), 1.0, 0.0, 170.0 / 255.0, 1.0);
  expectColor(RKVUtils::colorFromString("F0A", ""), 1.0, 0.0, 170.0 / 255.0, 1.0);
  expectColor(RKVUtils::colorFromString("0xFF0000", "0x"), 1.0, 0.0, 0.0, 1.0);

  for (const char* bad : {"#12345", "#GG0000", "#", "", "#FFF ", "# FFF", "#FFFFFFFFF", "#-FF",
                          "#\xEF\xBC\xA6\xEF\xBC\xA6\xEF\xBC\xA6"}) {
    EXPECT_EQ(RKVUtils::colorFromString(bad), std::nullopt) << '"' << bad << '"';
  }
  EXPECT_EQ(RKVUtils::colorFromString(std::nullopt), std::nullopt);
}

TEST(RKVUtilsTest, ColorComponents) {
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("F", 0, 1), 1.0);
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("A0", 0, 2), 160.0 / 255.0);
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("12345", 3, 2), 69.0 / 255.0);
  // Out of range or not hexadecimal: 0, never a read past the text.
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("FF", 1, 2), 0.0);
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("FF", 3, 1), 0.0);
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("FF", std::numeric_limits<size_t>::max(), 2), 0.0);
  EXPECT_DOUBLE_EQ(RKVUtils::colorComponentFrom("zz", 0, 2), 0.0);
}

TEST(RKVUtilsTest, ColorFormatting) {
  const RKVColor red{1.0, 0.0, 0.0, 1.0};
  EXPECT_EQ(RKVUtils::colorStringFromColor(red, true), "#FFFF0000");
  EXPECT_EQ(RKVUtils::colorStringFromColor(red, false), "#FF0000");
  EXPECT_EQ(RKVUtils::colorStringFromColor(red, "0x", false), "0xFF0000");
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{0.5, 0.2, 1.0 / 255.0, 0.0}, true),
            "#00803301");
  // Parsing what was formatted gives the colour back.
  const RKVColor odd{10.0 / 255.0, 200.0 / 255.0, 33.0 / 255.0, 128.0 / 255.0};
  EXPECT_EQ(RKVUtils::colorFromString(RKVUtils::colorStringFromColor(odd, true)), odd);
  // Out-of-range components keep their digits; non-finite ones print 00.
  EXPECT_EQ(RKVUtils::colorStringFromColor(RKVColor{2.0, 0.0, 0.0, 1.0}, false), "#1FE0000");
  EXPECT_EQ(
      RKVUtils::colorStringFromColor(RKVColor{std::numeric_limits<double>::quiet_NaN(),
                                              std::numeric_limits<double>::infinity(), 1e300, 1.0},
                                     false),
      "#000000");
}

TEST(RKVUtilsTest, LocalizedStringsFallBackToTheKey) {
  RKVStringTables::registerTable("com.example.sdk", "Ads", {{"skip", "Passer"}});
  RKVStringTables::registerTable("com.example.sdk", "", {{"close", "Fermer"}});
  EXPECT_EQ(RKVUtils::localizedStringForKey("skip", "Ads", "com.example.sdk"), "Passer");
  EXPECT_EQ(RKVUtils::localizedStringForKey("close", std::nullopt, "com.example.sdk"), "Fermer");
  EXPECT_EQ(RKVUtils::localizedStringForKey("close", "Localizable", "com.example.sdk"), "Fermer");
  // A missing key, table or bundle gives the key itself; an absent key gives "".
  EXPECT_EQ(RKVUtils::localizedStringForKey("close", "Ads", "com.example.sdk"), "close");
  EXPECT_EQ(RKVUtils::localizedStringForKey("skip", "Other", "com.example.sdk"), "skip");
  EXPECT_EQ(RKVUtils::localizedStringForKey("skip", "Ads", "com.example.other"), "skip");
  EXPECT_EQ(RKVUtils::localizedStringForKey(std::nullopt, "Ads", "com.example.sdk"), "");
  // Registering again replaces a text and keeps the others.
  RKVStringTables::registerTable("com.example.sdk", "Ads", {{"skip", "Saltar"}});
  EXPECT_EQ(RKVUtils::localizedStringForKey("skip", "Ads", "com.example.sdk"), "Saltar");
  RKVStringTables::removeBundle("com.example.sdk");
  EXPECT_EQ(RKVUtils::localizedStringForKey("skip", "Ads", "com.example.sdk"), "skip");
}

TEST(RKVUtilsTest, ErrorRecords) {
  const RKVError described = RKVUtils::errorWithDomain("RKVAdRequestError", 100, "No URL.");
  EXPECT_EQ(described.domain, "RKVAdRequestError");
  EXPECT_EQ(described.code, 100);
  EXPECT_EQ(described.localizedDescription, "No URL.");
  EXPECT_TRUE(described.hasUserInfo());
  EXPECT_EQ(described.vastError, nullptr);
  // An empty description is still a description; an absent one leaves no user information.
  EXPECT_TRUE(RKVUtils::errorWithDomain("RKVFutureError", 1000, "").hasUserInfo());
  EXPECT_FALSE(RKVUtils::errorWithDomain("RKVFutureError", 1000).hasUserInfo());

  EXPECT_EQ(RKVUtils::nullableDescription(std::nullopt), "(null)");
  EXPECT_EQ(RKVUtils::nullableDescription(std::string()), "");
}

}  // namespace
}  // namespace rkv
