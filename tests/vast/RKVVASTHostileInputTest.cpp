// Hostile documents through the whole path, bytes to model: each ends in the parsing error or in
// a model, and nothing but the parsing error is reported for a document that does not parse.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTParser.h"

#include "tests/support/RKVTestPaths.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

std::string parse(std::string_view bytes, bool isWrapper = false) {
  test::RKVReportRecorder recorder;
  return test::outcome(
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, isWrapper, recorder.outer()),
      recorder);
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
  for (char name = 'b'; name <= 'j'; ++name) {
    bomb += std::string("<!ENTITY ") + name + " '";
    for (int i = 0; i < 10; ++i)
      bomb += std::string("&") + static_cast<char>(name - 1) + ";";
    bomb += "'>";
  }
  bomb += "]><VAST version='4.2'>" + kAd + "<Extensions>&j;</Extensions></VAST>";
  const std::string invalidUTF8 = "<VAST version='4.2'>" + kAd +
                                  "<Error><![CDATA[http://e.example/\xC3\x28\xFF]]></Error></VAST>";
  for (const std::string& document : {deep, bomb, invalidUTF8}) {
    EXPECT_EQ(parse(document), "XML_PARSING_ERROR; no model, 100/100001");
    EXPECT_EQ(parse(document, true), "XML_PARSING_ERROR_WRAPPER; no model, 303/100002");
  }
}

TEST(RKVVASTHostileInputTest, ExternalEntitiesAreNeverFetched) {
  const std::string document =
      "<?xml version='1.0'?><!DOCTYPE VAST [<!ENTITY x SYSTEM 'file:///etc/passwd'>]>"
      "<VAST version='4.2'><Ad><InLine><AdSystem>S</AdSystem><AdTitle>[&x;]</AdTitle><Creatives>"
      "<Creative><Linear><Duration>1</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m.example/1.mp4</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine>"
      "</Ad></VAST>";
  const auto model = RKVVASTParser::parseXMLAndGenerateVASTObjectModel(document).model();
  ASSERT_TRUE(model);
  EXPECT_EQ(model->ads().at(0)->adTitle(), "[]");  // the entity is skipped, not fetched
}

TEST(RKVVASTHostileInputTest, FiftyMegabytes) {
  std::string big = "<VAST version='4.2'>";
  size_t count = 0;
  for (; big.size() < 50u * 1024 * 1024; ++count)
    big += kAd;
  const auto model = RKVVASTParser::parseXMLAndGenerateVASTObjectModel(big + "</VAST>").model();
  ASSERT_TRUE(model);
  EXPECT_EQ(model->ads().size(), count);
}

TEST(RKVVASTHostileInputTest, EveryTruncationOfAValidDocument) {
  const std::string xml =
      test::readFile(test::corpusDir() / "iab/vast-4.2/Inline_Companion_Tag-test.xml");
  ASSERT_EQ(parse(xml), "model") << "corpus missing at " << test::corpusDir();
  // Reports of ads read before the cut are never passed on.
  const size_t rootEnd = xml.rfind("</VAST>") + 7;
  for (size_t length = 0; length < xml.size(); ++length) {
    ASSERT_EQ(parse(std::string_view(xml).substr(0, length)),
              length < rootEnd ? "XML_PARSING_ERROR; no model, 100/100001" : "model")
        << length;
  }
}

}  // namespace
}  // namespace rkv
