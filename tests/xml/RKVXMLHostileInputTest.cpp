// Untrusted documents must give a tree or nil, promptly, without exhausting the stack or memory.
#include <filesystem>

#include <gtest/gtest.h>

#include "rkv/xml/RKVXMLDictionaryParser.h"

#include "tests/support/RKVTestPaths.h"

namespace rkv {
namespace {

RKVXMLDictionaryPtr parse(std::string_view xml) {
  return RKVXMLDictionary::rkv_dictionaryWithXMLData(xml);
}

TEST(RKVXMLHostileInputTest, DeepNestingIsRefusedWithoutRecursion) {
  constexpr size_t kDepth = 1'000'000;
  std::string xml;
  xml.reserve(kDepth * 7 + 16);
  for (size_t i = 0; i < kDepth; ++i)
    xml += "<a>";
  for (size_t i = 0; i < kDepth; ++i)
    xml += "</a>";
  RKVXMLDictionaryParser parser;
  EXPECT_EQ(parser.rkv_dictionaryWithData(xml), nullptr);
  ASSERT_TRUE(parser.parsingError().has_value());
  EXPECT_EQ(parser.parsingError()->code, RKVXMLParseError::kDepthLimitExceeded);

  // Up to the limit a document is read.
  std::string limit;
  for (size_t i = 0; i < RKVXMLPushParser::kDefaultMaximumDepth; ++i)
    limit += "<a x='1'>";
  for (size_t i = 0; i < RKVXMLPushParser::kDefaultMaximumDepth; ++i)
    limit += "</a>";
  EXPECT_NE(parse(limit), nullptr);
}

TEST(RKVXMLHostileInputTest, DestroyingAMillionLevelTreeUsesConstantStack) {
  auto root = RKVXMLDictionary::make();
  RKVXMLDictionary* cursor = root.get();
  for (int i = 0; i < 1'000'000; ++i) {
    auto child = RKVXMLDictionary::make();
    RKVXMLDictionary* next = child.get();
    cursor->set("c", RKVXMLArray::make({RKVXMLValue(std::move(child))}));
    cursor = next;
  }
  RKVXMLDictionaryPtr copy = root;  // a second owner keeps the tree alive through the first reset
  root.reset();
  EXPECT_EQ(copy.use_count(), 1);
  copy.reset();  // would overflow the stack if destruction recursed per level
  SUCCEED();
}

TEST(RKVXMLHostileInputTest, EntityExpansionAndExternalEntitiesAreContained) {
  std::string bomb =
      "<?xml version='1.0'?><!DOCTYPE l [<!ENTITY a "
      "'aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa'>";
  const char* prev = "a";
  std::string names[] = {"b", "c", "d", "e", "f", "g", "h", "i", "j"};
  for (const std::string& name : names) {
    bomb += "<!ENTITY " + name + " '";
    for (int i = 0; i < 10; ++i)
      bomb += std::string("&") + prev + ";";
    bomb += "'>";
    prev = name.c_str();
  }
  bomb += "]><l>&j;</l>";
  EXPECT_EQ(parse(bomb), nullptr);

  // An external entity is never fetched: its reference is skipped, not replaced.
  const char* external =
      "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><r>[&x;]</r>";
  RKVXMLDictionaryPtr tree = parse(external);
  if (tree) {
    std::optional<std::string> text = tree->rkv_innerText();
    EXPECT_EQ(text.value_or("").find("root:"), std::string::npos);
  }
  const char* parameter =
      "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY % p SYSTEM 'file:///etc/passwd'> %p;]><r/>";
  RKVXMLDictionaryPtr withParameter = parse(parameter);
  if (withParameter) {
    EXPECT_EQ(withParameter->size(), 1u);
  }
}

TEST(RKVXMLHostileInputTest, LargeAndWideDocumentsAreRead) {
  // 50 MB of ads.
  std::string ad =
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Impression><![CDATA[http://i.example/"
      "p?a=1&b=[CACHEBUSTING]]]></Impression></InLine></Ad>";
  std::string big = "<VAST version='4.2'>";
  while (big.size() < 50u * 1024 * 1024)
    big += ad;
  big += "</VAST>";
  RKVXMLDictionaryPtr tree = parse(big);
  ASSERT_NE(tree, nullptr);
  EXPECT_GT(tree->find("Ad")->array()->size(), 300'000u);

  // 200,000 differently named siblings: insertion stays linear thanks to the key index.
  std::string wide = "<R>";
  for (int i = 0; i < 200'000; ++i)
    wide += "<n" + std::to_string(i) + ">x</n" + std::to_string(i) + ">";
  wide += "</R>";
  RKVXMLDictionaryPtr wideTree = parse(wide);
  ASSERT_NE(wideTree, nullptr);
  EXPECT_EQ(wideTree->size(), 200'001u);
  EXPECT_NE(wideTree->find("n199999"), nullptr);
}

TEST(RKVXMLHostileInputTest, EveryTruncationOfAValidDocumentIsHandled) {
  std::string xml = test::readFile(test::corpusDir() / "iab/vast-4.2/Inline_Linear_Tag-test.xml");
  ASSERT_FALSE(xml.empty()) << "corpus missing at " << test::corpusDir();
  ASSERT_NE(parse(xml), nullptr);
  size_t parsed = 0;
  for (size_t length = 0; length < xml.size(); ++length) {
    if (parse(std::string_view(xml).substr(0, length))) ++parsed;
  }
  // Only cuts inside the trailing white space after the root leave a complete document.
  EXPECT_LT(parsed, 4u);
}

TEST(RKVXMLCorpusTest, EveryCorpusDocumentIsWellFormed) {
  size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    ++files;
    RKVXMLDictionaryPtr tree = RKVXMLDictionary::rkv_dictionaryWithXMLFile(entry.path().string());
    EXPECT_NE(tree, nullptr) << entry.path();
  }
  EXPECT_EQ(files, 76u);
}

}  // namespace
}  // namespace rkv
