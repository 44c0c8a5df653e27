#include <gtest/gtest.h>

#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLDictionaryParser.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

#include "tests/xml/RKVXMLTreeTestSupport.h"

namespace rkv {
namespace {

using test::dump;

RKVXMLDictionaryPtr parse(std::string_view xml) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLString(xml);
  EXPECT_NE(root, nullptr) << xml;
  return root;
}

TEST(RKVXMLDictionaryTest, ContainerKeepsInsertionOrderAndIdentity) {
  RKVXMLDictionary d;
  for (int i = 40; i > 0; --i)
    d.set("k" + std::to_string(i), std::to_string(i));  // indexed
  d.set("k20", "replaced");
  EXPECT_EQ(d.size(), 40u);
  EXPECT_EQ(d.entries().front().first, "k40");
  EXPECT_EQ(*d.find("k20")->string(), "replaced");
  EXPECT_TRUE(d.erase("k40"));
  EXPECT_EQ(d.find("k40"), nullptr);
  EXPECT_EQ(*d.find("k1")->string(), "1");  // the index follows the erase
  EXPECT_EQ(d.entries().front().first, "k39");

  auto child = RKVXMLDictionary::make({{"__text", "x"}});
  RKVXMLValue a(child), b(child), c(RKVXMLDictionary::make({{"__text", "x"}}));
  EXPECT_TRUE(a.isSameObject(b));
  EXPECT_FALSE(a.isSameObject(c));
  EXPECT_TRUE(a.isEqual(c));
  // Dictionaries compare as maps: key order does not matter for equality.
  EXPECT_TRUE(RKVXMLValue(RKVXMLDictionary::make({{"a", "1"}, {"b", "2"}}))
                  .isEqual(RKVXMLValue(RKVXMLDictionary::make({{"b", "2"}, {"a", "1"}}))));
  EXPECT_FALSE(RKVXMLValue(RKVXMLArray::make({"1", "2"}))
                   .isEqual(RKVXMLValue(RKVXMLArray::make({"2", "1"}))));
}

TEST(RKVXMLDictionaryTest, ReadBackOperationsAndKeyPaths) {
  RKVXMLDictionaryPtr root = parse("<A x='1' y='2'>one<B>b</B>two<C/></A>");
  EXPECT_EQ(root->rkv_innerText(), "one\ntwo");
  EXPECT_EQ(dump(root->rkv_attributes()), R"({"x":"1","y":"2"})");
  EXPECT_EQ(dump(root->rkv_childNodes()), R"({"B":[{"__text":"b"}],"C":[]})");
  EXPECT_EQ(parse("<A/>")->rkv_childNodes(), nullptr);

  RKVXMLDictionaryPtr mapped =
      RKVXMLDictionaryParser(
          {.preserveComments = true, .attributesMode = RKVXMLDictionaryAttributesModeDictionary})
          .rkv_dictionaryWithString("<A k='v'><!--a&b--></A>");
  EXPECT_EQ(dump(mapped->rkv_attributes()), R"({"k":"v"})");
  EXPECT_EQ(dump(mapped->rkv_comments()), R"(["a&b"])");
  EXPECT_EQ(mapped->rkv_innerXML(), "<!--a&amp;b-->");

  RKVXMLDictionaryPtr vast = parse(
      "<VAST><Ad id='1'><InLine><AdTitle>T1</AdTitle></InLine></Ad>"
      "<Ad id='2'><InLine><AdTitle>T2</AdTitle></InLine></Ad></VAST>");
  EXPECT_EQ(dump(vast->valueForKeyPath("Ad.InLine.AdTitle.__text")), R"([[["T1"]],[["T2"]]])");
  EXPECT_EQ(dump(vast->valueForKeyPath("Ad.Missing")), "[null,null]");
  EXPECT_TRUE(vast->valueForKeyPath("__name.x").isNull());  // a string has no keys
  EXPECT_EQ(dump(vast->rkv_arrayValueForKeyPath("__name")), R"(["VAST"])");
  EXPECT_TRUE(vast->rkv_stringValueForKeyPath("Ad").isNull());  // the first Ad has no text
  EXPECT_EQ(dump(vast->rkv_dictionaryValueForKeyPath("Ad._id")), R"({"__text":"1"})");
}

TEST(RKVXMLDictionaryTest, WritesXMLBackThatReadsToTheSameTree) {
  for (const char* xml : {"<VAST version='4.2'><Ad id='a&amp;b'><InLine><AdTitle>x &lt; y</AdTitle>"
                          "<Impression><![CDATA[http://t/?a=1&b=2]]></Impression></InLine></Ad>"
                          "</VAST>",
                          "<R q='&quot;&apos;'><B>1</B><B>2</B><C k='v'/></R>"}) {
    RKVXMLDictionaryPtr tree = parse(xml);
    const std::string written = tree->rkv_XMLString();
    EXPECT_EQ(dump(parse(written)), dump(tree)) << written;
  }
  EXPECT_EQ(parse("<R a='1'><B>t</B></R>")->rkv_XMLString(), "<R a=\"1\"><B>t</B></R>");
  // A wrapped root (one entry, no "__name") is written as its content.
  RKVXMLDictionaryParser::Options options;
  options.wrapRootNode = true;
  EXPECT_EQ(RKVXMLDictionaryParser(options).rkv_dictionaryWithString("<R>t</R>")->rkv_XMLString(),
            "<R>t</R>");
}

TEST(RKVXMLDictionaryUtilsTest, LookupsAnswerNilForTheWrongKind) {
  using U = RKVXMLDictionaryUtils;
  RKVXMLDictionaryPtr root = parse("<R v='4.0'><Ad>first</Ad><Ad><X>1</X></Ad><E/>t<N>015</N></R>");
  const RKVXMLDictionary* r = root.get();
  EXPECT_EQ(U::findArrayForKey("Ad", r)->size(), 2u);
  EXPECT_EQ(U::findArrayForKey("_v", r), nullptr);  // a string, not a list
  EXPECT_EQ(*U::findNodeText(U::findFirstObjectOfArrayAsDictionary("Ad", r)), "first");
  EXPECT_EQ(U::findFirstObjectOfArrayAsDictionary("E", r), nullptr);  // empty list
  EXPECT_EQ(U::findObjectAtIndexOfArray(2, "Ad", r), nullptr);
  EXPECT_EQ(U::findFirstObjectOfArrayAsString("E", r), nullptr);
  EXPECT_EQ(*U::findAttribute("_v", r), "4.0");
  EXPECT_EQ(U::findAttribute("Ad", r), nullptr);  // a list, not a string
  EXPECT_EQ(*U::findNodeText(r), "t");            // one run beside children is still a string
  EXPECT_EQ(U::findNodeText(parse("<A>one<B/>two</A>").get()), nullptr);
  // Numbers are digits only.
  EXPECT_EQ(U::findNodeTextAsNSNumber(U::findFirstObjectOfArrayAsDictionary("N", r)), 15.0);
  for (const char* text : {"", " 7", "1.5", "-3", "12a", "+1"})
    EXPECT_EQ(U::stringToNSNumber(std::string_view(text)), std::nullopt) << text;
}

}  // namespace
}  // namespace rkv
