#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/xml/RKVXMLDictionaryParser.h"
#include "rkv/xml/internal/RKVXMLEncodings.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

std::string declared(const std::string& encoding, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"" + encoding + "\"?>" + body;
}

// A character from U+0080 to U+FFFF in UTF-8.
std::string utf8(int c) {
  if (c < 0x800) return {char(0xC0 | (c >> 6)), char(0x80 | (c & 0x3F))};
  return {char(0xE0 | (c >> 12)), char(0x80 | ((c >> 6) & 0x3F)), char(0x80 | (c & 0x3F))};
}

// The title and the attribute of <Ad id='...'><AdTitle>...</AdTitle></Ad>, or "nil".
std::string titleAndId(const std::string& xml) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(xml);
  if (!root) return "nil";
  RKVXMLValue title = root->rkv_stringValueForKeyPath("AdTitle");
  const RKVXMLValue* id = root->find("_id");
  return (title.string() ? *title.string() : "?") + "|" +
         (id && id->string() ? *id->string() : "?");
}

TEST(RKVXMLEncodingTest, SingleByteEncodingsAreReadAsUTF8) {
  struct Case {
    const char* encoding;
    std::string bytes;     // in the declared encoding
    std::string expected;  // UTF-8
  };
  // clang-format off
  const Case cases[] = {
      // Smart quotes, e acute and the euro sign of windows-1252, under its names in any case.
      {"windows-1252", "\x93\xE9\x94 \x80", "\u201C\u00E9\u201D \u20AC"},
      {"WINDOWS-1252", "\x80", "\u20AC"}, {"cp1252", "\x80", "\u20AC"},
      // The euro sign sits at 0xA4 in ISO-8859-15, where ISO-8859-1 (expat's own) has the
      // currency sign.
      {"ISO-8859-15", "\xA4", "\u20AC"}, {"ISO-8859-1", "\xA4", "\u00A4"},
      {"ISO-8859-2", "\xA9", "\u0160"}, {"windows-1250", "\x8A", "\u0160"},
      {"windows-1251", "\xC0\xE0", "\u0410\u0430"}, {"KOI8-R", "\xE1\xC1", "\u0410\u0430"},
      // Decoders that hold a character back to combine it with the next one.
      {"windows-1255", "\xE0", "\u05D0"},
      {"windows-1258", "\xC3-", "\u0102-"},
  };
  // clang-format on
  for (const Case& c : cases) {
    const std::string xml =
        declared(c.encoding, "<Ad id='" + c.bytes + "'><AdTitle>" + c.bytes + "</AdTitle></Ad>");
    EXPECT_EQ(titleAndId(xml), c.expected + "|" + c.expected) << c.encoding;
  }
}

TEST(RKVXMLEncodingTest, OtherEncodingsStillFail) {
  // A byte windows-1252 leaves undefined; an unknown name, multi-byte and stateful encodings,
  // EBCDIC (not ASCII where markup needs it), and a name that is no encoding name.
  std::vector<std::string> documents = {declared("windows-1252", "<A>\x81</A>")};
  for (const char* encoding : {"x-no-such-encoding", "Shift_JIS", "ISO-2022-JP", "UTF-7", "IBM037",
                               "windows-1252//TRANSLIT"})
    documents.push_back(declared(encoding, "<A>x</A>"));
  for (const std::string& xml : documents) {
    RKVXMLDictionaryParser parser;
    EXPECT_EQ(parser.rkv_dictionaryWithData(xml), nullptr) << xml;
    EXPECT_TRUE(parser.parsingError()) << xml;
  }
}

// Each common single-byte encoding: expat accepts its table, and every character above ASCII
// reads back as that character.
TEST(RKVXMLEncodingTest, EveryCharacterOfCommonEncodingsIsRead) {
  std::vector<std::string> names = {"KOI8-R", "KOI8-U", "CP437", "CP850", "CP866", "MACINTOSH"};
  for (int n = 1250; n <= 1258; ++n)
    names.push_back("windows-" + std::to_string(n));
  for (int n = 2; n <= 16; ++n)
    if (n != 12) names.push_back("ISO-8859-" + std::to_string(n));
  for (const std::string& name : names) {
    const internal::RKVSingleByteTable* table = internal::singleByteEncodingTable(name);
    ASSERT_NE(table, nullptr) << name;
    std::string bytes = "[", expected = "[";
    size_t defined = 0;
    for (int b = 0; b < 256; ++b) {
      int c = (*table)[static_cast<size_t>(b)];
      if (b < 0x80 && (b >= 0x20 || b == '\t' || b == '\n' || b == '\r')) {
        ASSERT_EQ(c, b) << name;
      }
      if (b < 0x80 || c < 0) continue;
      ++defined;
      EXPECT_GE(c, 0x80) << name << " " << b;
      EXPECT_LE(c, 0xFFFF) << name << " " << b;
      if (c == 0xFFFE || c == 0xFFFF || (c >= 0xD800 && c <= 0xDFFF)) continue;
      bytes += static_cast<char>(b);
      expected += utf8(c);
    }
    EXPECT_GE(defined, 64u) << name;
    RKVXMLDictionaryPtr root =
        RKVXMLDictionary::rkv_dictionaryWithXMLData(declared(name, "<A>" + bytes + "]</A>"));
    ASSERT_NE(root, nullptr) << name;
    EXPECT_EQ(root->rkv_innerText(), expected + "]") << name;
  }
}

// Each thread reuses one expat parser, reset between documents: the encoding handler works on
// a new parser and on a reused one, after failures too, and on several threads at once.
TEST(RKVXMLEncodingTest, ReusedParsersKeepReadingDeclaredEncodings) {
  const std::string latin = declared("ISO-8859-15", "<Ad id='\xA4'><AdTitle>\xA4</AdTitle></Ad>");
  const std::string windows =
      declared("windows-1252", "<Ad id='\x80'><AdTitle>\x80</AdTitle></Ad>");
  const std::string plain = "<Ad id='\xE2\x82\xAC'><AdTitle>\xE2\x82\xAC</AdTitle></Ad>";
  const std::string unknown = declared("x-unknown", "<Ad/>");
  const std::string euro = "\u20AC|\u20AC";
  test::onThreads(5, [&](int) {
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(titleAndId(windows), euro);
      EXPECT_EQ(titleAndId(plain), euro);
      EXPECT_EQ(titleAndId(unknown), "nil");
      EXPECT_EQ(titleAndId(latin), euro);
      EXPECT_EQ(titleAndId("<Ad>"), "nil");
    }
  });
}

}  // namespace
}  // namespace rkv
