#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTUniversalAdId.h"

#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

TEST(RKVVASTUniversalAdIdTest, ReadsElements) {
  struct Case {
    const char* xml;
    std::optional<std::string> registry;  // nullopt: no id
    std::string value;
  };
  const Case cases[] = {
      {"<UniversalAdId idRegistry='REG-A'>ABCD0001</UniversalAdId>", "REG-A", "ABCD0001"},
      {"<UniversalAdId idRegistry='REG-A'>unknown</UniversalAdId>", std::nullopt, ""},
      {"<UniversalAdId idRegistry='unknown'>unknown</UniversalAdId>", std::nullopt, ""},
      {"<UniversalAdId idRegistry='REG-A'>Unknown</UniversalAdId>", "REG-A", "Unknown"},
      {"<UniversalAdId idRegistry='unknown'>X1</UniversalAdId>", "unknown", "X1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-1'/>", "REG-A", "OLD-1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-1'>NEW-1</UniversalAdId>", "REG-A", "NEW-1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='unknown'/>", std::nullopt, ""},
      // Interrupted text is no text: the attribute stands in for it.
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-2'>a<B/>b</UniversalAdId>", "REG-A",
       "OLD-2"},
      {"<UniversalAdId idRegistry='REG-A'/>", std::nullopt, ""},
      {"<UniversalAdId idRegistry=''>X1</UniversalAdId>", std::nullopt, ""},
      {"<UniversalAdId idRegistry='REG-A' idValue=''/>", std::nullopt, ""},
      {"<UniversalAdId>ABCD0001</UniversalAdId>", std::nullopt, ""},
      {"<UniversalAdId idValue='OLD-1'/>", std::nullopt, ""},
  };
  for (const Case& c : cases) {
    std::optional<RKVVASTUniversalAdId> id =
        RKVVASTUniversalAdId::withDictionary(*test::element(c.xml));
    ASSERT_EQ(id.has_value(), c.registry.has_value()) << c.xml;
    if (!id) continue;
    EXPECT_EQ(id->registry(), *c.registry) << c.xml;
    EXPECT_EQ(id->value(), c.value) << c.xml;
    EXPECT_TRUE(id->isValid());
  }
  // The same rule holds when the text is empty in a tree built by hand.
  auto handMade = RKVXMLDictionary::make({{"_idRegistry", "R"}, {"__text", ""}, {"_idValue", "V"}});
  EXPECT_EQ(RKVVASTUniversalAdId::withDictionary(*handMade)->value(), "V");
  EXPECT_FALSE(RKVVASTUniversalAdId::withDictionary(
      *RKVXMLDictionary::make({{"_idRegistry", "R"}, {"__text", ""}})));
}

TEST(RKVVASTUniversalAdIdTest, EqualityAndArchive) {
  auto a = RKVVASTUniversalAdId::withRegistry("REG-A", "ABCD0001");
  ASSERT_TRUE(a);
  EXPECT_EQ(a, RKVVASTUniversalAdId::withRegistry("REG-A", "ABCD0001"));
  EXPECT_NE(a, RKVVASTUniversalAdId::withRegistry("REG-B", "ABCD0001"));
  EXPECT_NE(a, RKVVASTUniversalAdId::withRegistry("REG-A", "abcd0001"));
  EXPECT_FALSE(RKVVASTUniversalAdId::withRegistry("", "x"));

  EXPECT_EQ(a->archive(), R"({"registry":"REG-A","value":"ABCD0001"})");
  EXPECT_EQ(RKVVASTUniversalAdId::unarchive(a->archive()), a);
  for (const char* json : {"", "{}", R"({"registry":"R"})", R"({"registry":"R","value":1})",
                           R"({"registry":"R","value":"unknown"})", "[1]"}) {
    EXPECT_FALSE(RKVVASTUniversalAdId::unarchive(json)) << json;
  }
}

}  // namespace
}  // namespace rkv
