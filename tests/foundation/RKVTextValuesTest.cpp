#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVTextValues.h"

namespace rkv {
namespace {

TEST(RKVTextValuesTest, IntegerReadings) {
  constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
  constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();
  constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
  constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
  struct Case {
    std::string text;
    int64_t integer;
    int32_t int32;
  };
  const Case cases[] = {
      {"42", 42, 42},
      {" \t\n-17xyz", -17, -17},
      {"+8", 8, 8},
      {"12.9", 12, 12},
      {"1e3", 1, 1},
      {"", 0, 0},
      {"abc", 0, 0},
      {"- 5", 0, 0},
      {"\xC2\xA0"
       "5",
       0, 0},  // no-break space is not skipped
      {"2147483648", 2147483648, kMax32},
      {"-2147483649", -2147483649, kMin32},
      {"9223372036854775807", kMax64, kMax32},
      {"9223372036854775808", kMax64, kMax32},
      {"-9223372036854775808", kMin64, kMin32},
      {"-9223372036854775809", kMin64, kMin32},
      {"123456789012345678901234567890", kMax64, kMax32},
      {"-000000000000000000000000000000000012", -12, -12},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RKVTextValues::integerValue(c.text), c.integer) << c.text;
    EXPECT_EQ(RKVTextValues::intValue(c.text), c.int32) << c.text;
  }
  EXPECT_EQ(RKVTextValues::integerValue(static_cast<const std::string*>(nullptr)), 0);
}

TEST(RKVTextValuesTest, FloatingReadings) {
  EXPECT_DOUBLE_EQ(RKVTextValues::doubleValue("  3.25s"), 3.25);
  EXPECT_DOUBLE_EQ(RKVTextValues::doubleValue("-.5"), -0.5);
  EXPECT_DOUBLE_EQ(RKVTextValues::doubleValue("2e2x"), 200.0);
  EXPECT_DOUBLE_EQ(RKVTextValues::doubleValue("inf"), 0.0);
  EXPECT_DOUBLE_EQ(RKVTextValues::doubleValue("0x10"), 0.0);
  EXPECT_TRUE(std::isinf(RKVTextValues::doubleValue("1e999")));
  EXPECT_FLOAT_EQ(RKVTextValues::floatValue("1.5"), 1.5f);
  EXPECT_TRUE(std::isinf(RKVTextValues::floatValue("1e40")));
  EXPECT_EQ(RKVTextValues::floatValue(static_cast<const std::string*>(nullptr)), 0.0f);
}

TEST(RKVTextValuesTest, BooleanReading) {
  for (const char* text : {"true", "TRUE", "t", "yes", "Y", "1", "9", " \n+007", "-1", "2x"})
    EXPECT_TRUE(RKVTextValues::boolValue(text)) << text;
  for (const char* text : {"false", "no", "0", "000", "", "  ", "+", "0.5", "on", "x1", "-0"})
    EXPECT_FALSE(RKVTextValues::boolValue(text)) << text;
  EXPECT_FALSE(RKVTextValues::boolValue(static_cast<const std::string*>(nullptr)));
}

// Attribute texts as VAST documents write them, through every reading.
TEST(RKVTextValuesTest, AttributeTexts) {
  struct Case {
    const char* text;
    double number;    // doubleValue and floatValue
    int64_t integer;  // intValue and integerValue
    bool boolean;
  };
  const Case cases[] = {
      {"right", 0, 0, false}, {" 12", 12, 12, true}, {"1e3", 1000, 1, true},
      {"-0", -0.0, 0, false}, {"yes", 0, 0, true},   {"No", 0, 0, false},
      {"0001", 1, 1, true},   {"+1", 1, 1, true},    {"1280px", 1280, 1280, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RKVTextValues::doubleValue(c.text), c.number) << c.text;
    EXPECT_EQ(RKVTextValues::floatValue(c.text), static_cast<float>(c.number)) << c.text;
    EXPECT_EQ(RKVTextValues::intValue(c.text), c.integer) << c.text;
    EXPECT_EQ(RKVTextValues::integerValue(c.text), c.integer) << c.text;
    EXPECT_EQ(RKVTextValues::boolValue(c.text), c.boolean) << c.text;
  }
  EXPECT_TRUE(std::signbit(RKVTextValues::floatValue("-0")));
  // Underflow and subnormals read as the platform reads them.
  EXPECT_EQ(RKVTextValues::doubleValue("1e-400"), 0.0);
  EXPECT_EQ(RKVTextValues::doubleValue("5e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(RKVTextValues::doubleValue("+1.5e2x"), 150.0);
  // Narrowing rounds to the nearest float; only beyond half an ulp above the maximum is infinite.
  EXPECT_EQ(RKVTextValues::floatValue("3.4028235e38"), std::numeric_limits<float>::max());
  EXPECT_EQ(RKVTextValues::floatValue("3.4028236e38"), std::numeric_limits<float>::infinity());
  EXPECT_EQ(RKVTextValues::floatValue("-1e39"), -std::numeric_limits<float>::infinity());
}

}  // namespace
}  // namespace rkv
