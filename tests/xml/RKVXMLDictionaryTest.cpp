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

TEST(RKVXMLDictionaryTest, ReadBackOperations) {
  RKVXMLDictionaryPtr root = parse("<A x='1' y='2'>one<B>b</B>two<C/></A>");
  EXPECT_EQ(*root->rkv_nodeName(), "A");
  EXPECT_EQ(root->rkv_innerText(), "one\ntwo");
  EXPECT_EQ(dump(root->rkv_attributes()), R"({"x":"1","y":"2"})");
  EXPECT_EQ(dump(root->rkv_childNodes()), R"({"B":[{"__text":"b"}],"C":[]})");

  EXPECT_EQ(parse("<A/>")->rkv_attributes(), nullptr);
  EXPECT_EQ(parse("<A/>")->rkv_childNodes(), nullptr);

  RKVXMLDictionaryParser::Options options;
  options.attributesMode = RKVXMLDictionaryAttributesModeDictionary;
  options.preserveComments = true;
  RKVXMLDictionaryPtr mapped =
      RKVXMLDictionaryParser(options).rkv_dictionaryWithString("<A k='v'><!--a&b--></A>");
  ASSERT_NE(mapped, nullptr);
  EXPECT_EQ(dump(mapped->rkv_attributes()), R"({"k":"v"})");
  EXPECT_EQ(dump(mapped->rkv_comments()), R"(["a&b"])");
  EXPECT_EQ(mapped->rkv_innerXML(), "<!--a&amp;b-->");
}

TEST(RKVXMLDictionaryTest, KeyPaths) {
  RKVXMLDictionaryPtr root = parse(
      "<VAST><Ad id='1'><InLine><AdTitle>T1</AdTitle></InLine></Ad>"
      "<Ad id='2'><InLine><AdTitle>T2</AdTitle></InLine></Ad></VAST>");
  EXPECT_EQ(dump(root->valueForKeyPath("Ad._id")), R"(["1","2"])");
  EXPECT_EQ(dump(root->valueForKeyPath("Ad.InLine.AdTitle.__text")), R"([[["T1"]],[["T2"]]])");
  EXPECT_EQ(dump(root->valueForKeyPath("Ad.Missing")), "[null,null]");
  EXPECT_TRUE(root->valueForKeyPath("Nope.deeper").isNull());
  EXPECT_TRUE(root->valueForKeyPath("__name.x").isNull());  // a string has no keys

  EXPECT_EQ(dump(root->rkv_arrayValueForKeyPath("__name")), R"(["VAST"])");
  EXPECT_EQ(root->rkv_arrayValueForKeyPath("Nope"), nullptr);

  EXPECT_EQ(dump(root->rkv_stringValueForKeyPath("__name")), R"("VAST")");
  // The first Ad has no text of its own.
  EXPECT_TRUE(root->rkv_stringValueForKeyPath("Ad").isNull());
  EXPECT_EQ(dump(root->rkv_dictionaryValueForKeyPath("__name")), R"({"__text":"VAST"})");
  EXPECT_EQ(dump(root->rkv_dictionaryValueForKeyPath("Ad._id")), R"({"__text":"1"})");
  EXPECT_EQ(root->rkv_dictionaryValueForKeyPath("Ad").dictionary(),
            (*root->find("Ad")->array())[0].dictionary());
}

TEST(RKVXMLDictionaryTest, WritesXMLBackThatReadsToTheSameTree) {
  const char* documents[] = {
      "<VAST version='4.2'><Ad id='a&amp;b'><InLine><AdTitle>x &lt; y</AdTitle>"
      "<Impression><![CDATA[http://t/?a=1&b=2]]></Impression></InLine></Ad></VAST>",
      "<R q='&quot;&apos;'><B>1</B><B>2</B><C k='v'/></R>",
  };
  for (const char* xml : documents) {
    RKVXMLDictionaryPtr tree = parse(xml);
    std::string written = tree->rkv_XMLString();
    RKVXMLDictionaryPtr reread = parse(written);
    EXPECT_EQ(dump(reread), dump(tree)) << written;
  }
  EXPECT_EQ(parse("<R a='1'><B>t</B></R>")->rkv_XMLString(), "<R a=\"1\"><B>t</B></R>");
  EXPECT_EQ(parse("<R/>")->rkv_XMLString(), "<R/>");
  // A wrapped root (one entry, no "__name") is written as its content.
  RKVXMLDictionaryParser::Options options;
  options.wrapRootNode = true;
  RKVXMLDictionaryPtr wrapped =
      RKVXMLDictionaryParser(options).rkv_dictionaryWithString("<R>t</R>");
  EXPECT_EQ(wrapped->rkv_XMLString(), "<R>t</R>");
  EXPECT_EQ(RKVXMLDictionaryParser::XMLStringForNode(RKVXMLValue("a<b"), "S"), "<S>a&lt;b</S>");
  EXPECT_EQ(
      RKVXMLDictionaryParser::XMLStringForNode(RKVXMLValue(RKVXMLArray::make({"1", "2"})), "N"),
      "<N>1</N>\n<N>2</N>");
  EXPECT_EQ(rkv_XMLEncodedString("a<b & 'c'"), "a&lt;b &amp; &apos;c&apos;");
  EXPECT_EQ(rkv_XMLEncodedString("\"&amp;\""), "&quot;&amp;amp;&quot;");
}

TEST(RKVXMLDictionaryUtilsTest, LookupsAnswerNilForTheWrongKind) {
  using U = RKVXMLDictionaryUtils;
  RKVXMLDictionaryPtr root =
      parse("<R v='4.0'><Ad>first</Ad><Ad><X>1</X></Ad><E/>t<N>15</N><F>1.5</F></R>");
  const RKVXMLDictionary* r = root.get();
  ASSERT_NE(U::findArrayForKey("Ad", r), nullptr);
  EXPECT_EQ(U::findArrayForKey("Ad", r)->size(), 2u);
  EXPECT_EQ(U::findArrayForKey("_v", r), nullptr);  // a string, not a list
  EXPECT_EQ(U::findArrayForKey("Ad", nullptr), nullptr);
  EXPECT_EQ(*U::findNodeText(U::findFirstObjectOfArrayAsDictionary("Ad", r)), "first");
  EXPECT_EQ(U::findFirstObjectOfArrayAsDictionary("E", r), nullptr);  // empty list
  EXPECT_NE(U::findObjectAtIndexOfArray(1, "Ad", r), nullptr);
  EXPECT_EQ(U::findObjectAtIndexOfArray(2, "Ad", r), nullptr);
  EXPECT_EQ(U::findFirstObjectOfArrayAsString("E", r), nullptr);
  EXPECT_EQ(*U::findAttribute("_v", r), "4.0");
  EXPECT_EQ(U::findAttribute("Ad", r), nullptr);  // a list, not a string
  EXPECT_EQ(*U::findNodeText(r), "t");            // one run beside children is still a string
  EXPECT_EQ(U::findNodeTextAsNSNumber(U::findFirstObjectOfArrayAsDictionary("N", r)), 15.0);
  EXPECT_EQ(U::findNodeTextAsNSNumber(U::findFirstObjectOfArrayAsDictionary("F", r)), std::nullopt);

  RKVXMLDictionaryPtr interrupted = parse("<A>one<B/>two</A>");
  EXPECT_EQ(U::findNodeText(interrupted.get()), nullptr);

  // Numbers are digits only.
  EXPECT_EQ(U::stringToNSNumber(std::string_view("007")), 7.0);
  for (const char* text : {"", " 7", "1.5", "-3", "12a", "+1"})
    EXPECT_EQ(U::stringToNSNumber(std::string_view(text)), std::nullopt) << text;
  EXPECT_EQ(U::stringToNSNumber(static_cast<const std::string*>(nullptr)), std::nullopt);
}

}  // namespace
}  // namespace rkv
