// Hostile documents through the whole path, bytes to model: each ends in the parsing error or in
// a model, and nothing but the parsing error is reported for a document that does not parse.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTParser.h"

#include "tests/support/RKVTestPaths.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;

struct Outcome {
  bool model;
  Strings reports;
  size_t ads;
};

Outcome parse(std::string_view bytes, bool isWrapper = false) {
  test::RKVReportRecorder recorder;
  const RKVVASTParserResponse response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, isWrapper, recorder.outer());
  return {response.model() != nullptr, recorder.names(),
          response.model() ? response.model()->ads().size() : 0};
}

const std::string kAd =
    "<Ad id='1'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle><Impression><![CDATA["
    "http://i.example/p?a=1&b=[CACHEBUSTING]]]></Impression><Creatives><Creative><Linear>"
    "<Duration>00:00:05</Duration><MediaFiles><MediaFile type='video/mp4'>http://m.example/1.mp4"
    "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>";

TEST(RKVVASTHostileInputTest, DocumentsThatDoNotParse) {
  std::string deep = "<VAST version='4.2'>";
  for (int i = 0; i < 1'000'000; ++i)
    deep += "<Ad>";
  std::string bomb = "<?xml version='1.0'?><!DOCTYPE VAST [<!ENTITY a 'aaaaaaaaaaaaaaaaaaaa'>";
  const char* previous = "a";
  const char* names[] = {"b", "c", "d", "e", "f", "g", "h", "i", "j"};
  for (const char* name : names) {
    bomb += std::string("<!ENTITY ") + name + " '";
    for (int i = 0; i < 10; ++i)
      bomb += std::string("&") + previous + ";";
    bomb += "'>";
    previous = name;
  }
  bomb += "]><VAST version='4.2'>" + kAd + "<Extensions>&j;</Extensions></VAST>";
  const std::string invalidUTF8 = "<VAST version='4.2'>" + kAd +
                                  "<Error><![CDATA[http://e.example/\xC3\x28\xFF]]></Error></VAST>";

  for (const std::string* document : {&std::as_const(deep), &std::as_const(bomb), &invalidUTF8}) {
    for (const bool isWrapper : {false, true}) {
      const Outcome outcome = parse(*document, isWrapper);
      EXPECT_FALSE(outcome.model);
      EXPECT_EQ(outcome.reports,
                Strings{isWrapper ? "XML_PARSING_ERROR_WRAPPER" : "XML_PARSING_ERROR"});
    }
  }
}

TEST(RKVVASTHostileInputTest, ExternalEntitiesAreNeverFetched) {
  const std::string document =
      "<?xml version='1.0'?><!DOCTYPE VAST [<!ENTITY x SYSTEM 'file:///etc/passwd'>]>"
      "<VAST version='4.2'><Ad><InLine><AdSystem>S</AdSystem><AdTitle>[&x;]</AdTitle><Creatives>"
      "<Creative><Linear><Duration>1</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m.example/1.mp4</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine>"
      "</Ad></VAST>";
  const RKVVASTParserResponse response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(document);
  if (response.model()) {
    ASSERT_EQ(response.model()->ads().size(), 1u);
    EXPECT_EQ(response.model()->ads()[0]->adTitle().value_or("").find("root:"), std::string::npos);
  }
}

TEST(RKVVASTHostileInputTest, FiftyMegabytes) {
  std::string big = "<VAST version='4.2'>";
  size_t count = 0;
  while (big.size() < 50u * 1024 * 1024) {
    big += kAd;
    ++count;
  }
  big += "</VAST>";
  const Outcome outcome = parse(big);
  EXPECT_TRUE(outcome.model);
  EXPECT_TRUE(outcome.reports.empty());
  EXPECT_EQ(outcome.ads, count);
}

TEST(RKVVASTHostileInputTest, EveryTruncationOfAValidDocument) {
  const std::string xml =
      test::readFile(test::corpusDir() / "iab/vast-4.2/Inline_Companion_Tag-test.xml");
  ASSERT_FALSE(xml.empty()) << "corpus missing at " << test::corpusDir();
  const Outcome whole = parse(xml);
  ASSERT_TRUE(whole.model);
  ASSERT_EQ(whole.ads, 1u);
  const size_t rootEnd = xml.rfind("</VAST>") + 7;
  for (size_t length = 0; length < xml.size(); ++length) {
    const Outcome outcome = parse(std::string_view(xml).substr(0, length));
    if (length < rootEnd) {
      // Reports of ads read before the cut are never passed on.
      EXPECT_FALSE(outcome.model) << length;
      ASSERT_EQ(outcome.reports, Strings{"XML_PARSING_ERROR"}) << length;
    } else {
      EXPECT_EQ(outcome.ads, 1u) << length;
    }
  }
}

}  // namespace
}  // namespace rkv
