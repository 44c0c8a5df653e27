#include <random>

#include <gtest/gtest.h>

#include "rkv/xml/RKVXMLDictionaryParser.h"

#include "tests/xml/RKVXMLTreeTestSupport.h"

namespace rkv {
namespace {

using test::dump;

std::string parseDefault(std::string_view xml) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLString(xml);
  return root ? dump(root) : "nil";
}

std::string parseWith(const RKVXMLDictionaryParser::Options& options, std::string_view xml) {
  RKVXMLDictionaryParser parser(options);
  RKVXMLDictionaryPtr root = parser.rkv_dictionaryWithString(xml);
  return root ? dump(root) : "nil";
}

TEST(RKVXMLDictionaryParserTest, DefaultShapes) {
  struct Case {
    const char* xml;
    const char* tree;
  } cases[] = {
      {"<VAST version='3.0'><Ad id='7'><InLine><AdSystem>X</AdSystem></InLine></Ad></VAST>",
       R"({"__name":"VAST","_version":"3.0","Ad":[{"_id":"7","InLine":[{"AdSystem":[{"__text":"X"}]}]}]})"},
      // text trimmed, root never stripped
      {"<A>  x  </A>", R"({"__name":"A","__text":"x"})"},
      {"<A/>", R"({"__name":"A"})"},
      // a stripped empty child leaves its name mapped to an empty list
      {"<R><B/></R>", R"({"__name":"R","B":[]})"},
      {"<R><B>t</B></R>", R"({"__name":"R","B":[{"__text":"t"}]})"},
      {"<R><B>  \n\t </B></R>", R"({"__name":"R","B":[]})"},
      // attributes keep an element from being stripped
      {"<R><B x='1'/></R>", R"({"__name":"R","B":[{"_x":"1"}]})"},
      // an element whose children were stripped is not empty: it holds their empty lists
      {"<R><B><C/></B></R>", R"({"__name":"R","B":[{"C":[]}]})"},
      // CDATA is one run with the white space around it, then trimmed; nothing is unescaped
      {"<R><U>\n  <![CDATA[ http://a.b/p?x=1&y=%5B2%5D ]]>\n</U></R>",
       R"({"__name":"R","U":[{"__text":"http://a.b/p?x=1&y=%5B2%5D"}]})"},
      // entities and character references are decoded in text and attributes
      {"<R a='&lt;&#65;&gt;'>&amp;&#x42;</R>", R"({"__name":"R","_a":"<A>","__text":"&B"})"},
      // comments do not end a text run
      {"<A>a<!-- c -->b</A>", R"({"__name":"A","__text":"ab"})"},
      // text interrupted by a child becomes a list of runs
      {"<A>one<B/>two</A>", R"({"__name":"A","__text":["one","two"],"B":[]})"},
      // repeated children keep document order; keys keep insertion order
      {"<A><Z>1</Z><Y>2</Y><Z>3</Z></A>",
       R"({"__name":"A","Z":[{"__text":"1"},{"__text":"3"}],"Y":[{"__text":"2"}]})"},
      // qualified names are kept as written
      {"<a:R xmlns:a='urn:x'><a:B>1</a:B></a:R>",
       R"({"__name":"a:R","_xmlns:a":"urn:x","a:B":[{"__text":"1"}]})"},
      // non-ASCII white space is trimmed too (U+00A0, U+3000)
      {"<A>\xC2\xA0x\xE3\x80\x80</A>", R"({"__name":"A","__text":"x"})"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(parseDefault(c.xml), c.tree) << c.xml;
}

TEST(RKVXMLDictionaryParserTest, IllFormedDocumentsGiveNil) {
  const char* documents[] = {
      "",
      "   ",
      "<A/><B/>",            // two roots
      "<A><B></A>",          // missing end tag
      "<A>&undefined;</A>",  // undefined entity
      "<A x='1' x='2'/>",    // duplicate attribute
      "not xml at all",
      "<A><![CDATA[\xff\xfe]]></A>",  // invalid UTF-8 inside CDATA
      "<A>\xc3</A>",                  // truncated UTF-8 sequence
  };
  for (const char* xml : documents) {
    RKVXMLDictionaryParser parser;
    EXPECT_EQ(parser.rkv_dictionaryWithString(xml), nullptr) << xml;
    EXPECT_TRUE(parser.parsingError().has_value()) << xml;
  }
  EXPECT_EQ(RKVXMLDictionary::rkv_dictionaryWithXMLFile("/nonexistent/file.xml"), nullptr);
}

TEST(RKVXMLDictionaryParserTest, OptionsChangeTheShape) {
  using Options = RKVXMLDictionaryParser::Options;
  auto with = [](auto change) {
    Options options;
    change(options);
    return options;
  };
  const char* xml = "<R a='1'><B>t</B><C/><B>u</B><!--note--></R>";

  EXPECT_EQ(parseWith(with([](Options& o) { o.collapseTextNodes = true; }), xml),
            R"({"__name":"R","_a":"1","B":["t","u"],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.stripEmptyNodes = false; }), xml),
            R"({"__name":"R","_a":"1","B":[{"__text":"t"},{"__text":"u"}],"C":[{"__text":""}]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.alwaysUseArrays = false; }), xml),
            R"({"__name":"R","_a":"1","B":[{"__text":"t"},{"__text":"u"}]})");
  EXPECT_EQ(
      parseWith(with([](Options& o) { o.preserveComments = true; }), xml),
      R"({"__name":"R","_a":"1","B":[{"__text":"t"},{"__text":"u"}],"C":[],"__comments":["note"]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.wrapRootNode = true; }), xml),
            R"({"R":{"__name":"R","_a":"1","B":[{"__text":"t"},{"__text":"u"}],"C":[]}})");
  EXPECT_EQ(
      parseWith(with([](Options& o) { o.attributesMode = 1; }), xml),
      R"({"__name":"R","__attributes":{"a":"1"},"B":[{"__text":"t"},{"__text":"u"}],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.attributesMode = 2; }), xml),
            R"({"__name":"R","a":"1","B":[{"__text":"t"},{"__text":"u"}],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.attributesMode = 3; }), xml),
            R"({"__name":"R","B":[{"__text":"t"},{"__text":"u"}],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.attributesMode = 99; }), xml),
            R"({"__name":"R","B":[{"__text":"t"},{"__text":"u"}],"C":[]})");
  // "__name" on every node does not keep an empty node from being stripped.
  EXPECT_EQ(
      parseWith(with([](Options& o) { o.nodeNameMode = 1; }), xml),
      R"({"__name":"R","_a":"1","B":[{"__name":"B","__text":"t"},{"__name":"B","__text":"u"}],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.nodeNameMode = 2; }), xml),
            R"({"_a":"1","B":[{"__text":"t"},{"__text":"u"}],"C":[]})");
  EXPECT_EQ(parseWith(with([](Options& o) { o.trimWhiteSpace = false; }), "<R> a <B/> b </R>"),
            R"({"__name":"R","__text":[" a "," b "],"B":[]})");
  // A wrapped root is collapsed or stripped like any other child.
  EXPECT_EQ(parseWith(with([](Options& o) {
                        o.wrapRootNode = true;
                        o.nodeNameMode = 2;
                        o.collapseTextNodes = true;
                      }),
                      "<R>x</R>"),
            R"({"R":"x"})");
}

TEST(RKVXMLDictionaryParserTest, SharedInstanceIsTheOptionTemplate) {
  RKVXMLDictionaryParser& shared = RKVXMLDictionaryParser::sharedInstance();
  ASSERT_EQ(&shared, &RKVXMLDictionaryParser::sharedInstance());
  RKVXMLDictionaryParser::Options saved = shared.options();
  shared.setCollapseTextNodes(true);
  EXPECT_EQ(parseDefault("<R><B>t</B></R>"), R"({"__name":"R","B":["t"]})");
  RKVXMLDictionaryParser copy(shared);
  EXPECT_TRUE(copy.collapseTextNodes());
  shared.setOptions(saved);
  EXPECT_EQ(parseDefault("<R><B>t</B></R>"), R"({"__name":"R","B":[{"__text":"t"}]})");
}

// --- The node-name search -----------------------------------------------------------------------
//
// The builder finds an ended element's key in its parent directly. The rule it implements is a
// search over the parent's keys in key order (the first key whose value is the node itself, or a
// list holding a dictionary equal to it). This reference builder follows the rule literally;
// random documents under every option combination must give identical trees.

class LiteralTreeBuilder final : public RKVXMLPushParserDelegate {
 public:
  explicit LiteralTreeBuilder(const RKVXMLDictionaryParser::Options& o) : o_(o) {}
  RKVXMLDictionaryPtr root;

  void didStartElement(std::string_view name, const RKVXMLAttributes& attributes) override {
    endText();
    auto node = RKVXMLDictionary::make();
    bool named = o_.nodeNameMode == 0 ? root == nullptr : o_.nodeNameMode == 1;
    if (named) node->set("__name", std::string(name));
    if (!attributes.empty()) {
      auto map = RKVXMLDictionary::make();
      attributes.forEach([&](std::string_view k, std::string_view v) {
        if (o_.attributesMode == 0) node->set("_" + std::string(k), std::string(v));
        if (o_.attributesMode == 1) map->set(k, std::string(v));
        if (o_.attributesMode == 2) node->set(k, std::string(v));
      });
      if (o_.attributesMode == 1) node->set("__attributes", map);
    }
    if (root) {
      RKVXMLDictionary& parent = *stack.back();
      RKVXMLValue* existing = parent.find(name);
      if (existing && existing->isArray()) {
        existing->array()->push_back(node);
      } else if (existing) {
        *existing = pair(*existing, node);
      } else if (o_.alwaysUseArrays) {
        parent.set(name, RKVXMLArray::make({node}));
      } else {
        parent.set(name, node);
      }
      stack.push_back(node);
    } else {
      root = node;
      stack = {node};
      if (o_.wrapRootNode) {
        root = RKVXMLDictionary::make({{std::string(name), node}});
        stack.insert(stack.begin(), root);
      }
    }
  }

  void didEndElement(std::string_view) override {
    endText();
    RKVXMLDictionaryPtr node = stack.back();
    stack.pop_back();
    if (node->rkv_attributes() || node->rkv_childNodes() || !node->rkv_comments().isNull()) return;
    if (stack.empty()) return;
    RKVXMLDictionary& parent = *stack.back();
    std::optional<std::string> key;
    if (const RKVXMLValue* own = node->find("__name")) {
      if (!own->string()) return;
      key = *own->string();
    } else {
      RKVXMLValue self(node);
      for (const auto& [k, v] : parent.entries()) {
        bool hit = v.isSameObject(self);
        if (const RKVXMLArray* list = v.array()) {
          for (const RKVXMLValue& item : *list)
            hit = hit || (item.isDictionary() && item.isEqual(self));
        }
        if (hit) {
          key = k;
          break;
        }
      }
      if (!key) return;
    }
    std::optional<std::string> text = node->rkv_innerText();
    RKVXMLValue* value = parent.find(*key);
    if (text && o_.collapseTextNodes) {
      if (value && value->isArray()) {
        if (!value->array()->empty()) (*value->array())[value->array()->size() - 1] = *text;
      } else {
        parent.set(*key, *text);
      }
    } else if (!text && o_.stripEmptyNodes) {
      if (value && value->isArray()) {
        if (!value->array()->empty()) value->array()->pop_back();
      } else {
        parent.erase(*key);
      }
    } else if (!text && !o_.collapseTextNodes && !o_.stripEmptyNodes) {
      node->set("__text", "");
    }
  }

  void foundCharacters(std::string_view t) override { addText(t); }
  void foundCDATA(std::string_view t) override { addText(t); }
  void foundComment(std::string_view t) override {
    if (!o_.preserveComments || stack.empty()) return;
    RKVXMLValue* comments = stack.back()->find("__comments");
    if (comments && comments->isArray()) {
      comments->array()->push_back(std::string(t));
    } else if (comments) {
      *comments = pair(*comments, std::string(t));
    } else {
      stack.back()->set("__comments", RKVXMLArray::make({std::string(t)}));
    }
  }
  void parseErrorOccurred(const RKVXMLParseError&) override { root = nullptr; }

 private:
  static RKVXMLArrayPtr pair(RKVXMLValue first, RKVXMLValue second) {
    std::vector<RKVXMLValue> items;
    items.push_back(std::move(first));
    items.push_back(std::move(second));
    return RKVXMLArray::make(std::move(items));
  }
  void addText(std::string_view t) {
    if (!pending) pending = std::string();
    pending->append(t);
  }
  void endText() {
    if (!pending) return;
    std::string run = std::move(*pending);
    pending.reset();
    if (o_.trimWhiteSpace) {
      size_t b = run.find_first_not_of(" \t\n\r");
      size_t e = run.find_last_not_of(" \t\n\r");
      run = b == std::string::npos ? "" : run.substr(b, e - b + 1);
    }
    if (run.empty()) return;
    RKVXMLDictionary& node = *stack.back();
    RKVXMLValue* existing = node.find("__text");
    if (existing && existing->isArray()) {
      existing->array()->push_back(run);
    } else if (existing) {
      *existing = pair(*existing, run);
    } else {
      node.set("__text", run);
    }
  }

  RKVXMLDictionaryParser::Options o_;
  std::vector<RKVXMLDictionaryPtr> stack;
  std::optional<std::string> pending;
};

std::string randomDocument(std::mt19937& rng) {
  const char* names[] = {"A", "B", "C", "__name", "__text", "_x", "__comments", "__attributes"};
  const char* texts[] = {"", "t", "u", " ", "t"};
  std::uniform_int_distribution<int> pick(0, 99);
  std::string xml = "<R>";
  std::vector<std::string> open;
  int budget = 40;
  while (budget-- > 0) {
    int roll = pick(rng);
    if (roll < 35 && open.size() < 5) {
      std::string name = names[pick(rng) % 8];
      xml += "<" + name;
      if (pick(rng) < 15) xml += " k='v'";
      xml += ">";
      open.push_back(name);
    } else if (roll < 65 && !open.empty()) {
      xml += "</" + open.back() + ">";
      open.pop_back();
    } else if (roll < 90) {
      xml += texts[pick(rng) % 5];
    } else {
      xml += "<!--c-->";
    }
  }
  while (!open.empty()) {
    xml += "</" + open.back() + ">";
    open.pop_back();
  }
  return xml + "</R>";
}

TEST(RKVXMLDictionaryParserTest, NodeNameSearchMatchesTheLiteralRuleUnderEveryOption) {
  std::mt19937 rng(20261122);
  int compared = 0;
  for (int mask = 0; mask < 64; ++mask) {
    for (int64_t attributesMode : {0, 1, 2, 3}) {
      for (int64_t nodeNameMode : {0, 1, 2}) {
        RKVXMLDictionaryParser::Options o;
        o.collapseTextNodes = mask & 1;
        o.stripEmptyNodes = mask & 2;
        o.trimWhiteSpace = mask & 4;
        o.alwaysUseArrays = mask & 8;
        o.preserveComments = mask & 16;
        o.wrapRootNode = mask & 32;
        o.attributesMode = attributesMode;
        o.nodeNameMode = nodeNameMode;
        for (int round = 0; round < 4; ++round) {
          std::string xml = randomDocument(rng);
          RKVXMLDictionaryParser parser(o);
          RKVXMLDictionaryPtr actual = parser.rkv_dictionaryWithString(xml);
          LiteralTreeBuilder literal(o);
          RKVXMLPushParser push(xml);
          push.setReportsComments(o.preserveComments);
          ASSERT_TRUE(push.parse(literal)) << xml;
          ASSERT_EQ(dump(actual), dump(literal.root))
              << xml << " options mask " << mask << " attributes " << attributesMode << " names "
              << nodeNameMode;
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 64 * 4 * 3 * 4);
}

}  // namespace
}  // namespace rkv
