#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTParser.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

const std::string kInline =
    "<Ad id='a'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle><Creatives><Creative><Linear>"
    "<Duration>00:00:10</Duration><MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4"
    "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>";
const std::string kRootError = "<Error>http://e.test/root</Error>";

std::string vast(const std::string& version, const std::string& content) {
  return "<?xml version='1.0' encoding='UTF-8'?>\n<VAST" +
         (version.empty() ? "" : " version='" + version + "'") + ">" + content + "</VAST>";
}

// Every document-level outcome, for an ad call and for a wrapper's answer.
TEST(RKVVASTParserTest, DocumentLevelChecks) {
  const std::string illFormed = "<VAST version='4.2'><Ad>";
  std::string untitled = kInline;
  untitled.erase(untitled.find("<AdTitle>"), 20);
  const std::string root = " http://e.test/root; ";
  const std::string invalid =
      "<Ad><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle><Error>http://e.test/ad</Error>"
      "</InLine></Ad>";
  struct Case {
    std::optional<std::string> document;
    bool wrapper;
    std::string outcome;
  };
  const Case cases[] = {
      {std::nullopt, false, "VAST_VPAID_ERROR_FETCH; no model, 5032 Unexpected response."},
      {vast("3.0", kInline + kInline), false, "model"},
      {illFormed, false, "XML_PARSING_ERROR; no model, 100/100001"},
      {illFormed, true, "XML_PARSING_ERROR_WRAPPER; no model, 303/100002"},
      {vast("", kRootError), false,
       "VAST_VALIDATION_ERROR_MISSING_VERSION" + root + "no model, 101/101001"},
      {vast("5.0", kRootError), false,
       "VAST_VERSION_ERROR_NOT_SUPPORTED" + root + "no model, 102/102001"},
      {vast("5.0", kRootError), true,
       "VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER" + root + "no model, 102/102002"},
      // Reported once: an earlier report silences the version's.
      {vast("1.0", untitled), false, "VAST_VALIDATION_ERROR_MISSING_ADTITLE; no model, 102/102001"},
      // An ad call without ads fires nothing; a wrapper's answer without ads reports one error
      // and answers with another.
      {vast("3.0", kRootError), false, "model, 101/101005"},
      {vast("3.0", kRootError), true,
       "VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE" + root + "model, 101/101005"},
      {vast("3.0", "<Ad><InLine/></Ad>"), true, "XML_PARSING_ERROR; model, 101/101005"},
      {vast("4.2", invalid), false,
       "VAST_VALIDATION_ERROR_MISSING_CREATIVES http://e.test/ad; model"},
  };
  test::RKVLogCapture log;  // keeps the missing-version line off the test's output
  for (const Case& c : cases) {
    SCOPED_TRACE(c.document.value_or("(none)"));
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTParser::parseXMLAndGenerateVASTObjectModel(c.document, c.wrapper, recorder.outer());
    EXPECT_EQ(test::outcome(response, recorder), c.outcome);
    for (const auto& text : recorder.texts())
      EXPECT_EQ(text, c.document);
  }
  // The short form reads an ad call with no handler.
  EXPECT_EQ(
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(vast("4.1", kInline)).model()->ads().size(),
      1u);
}

TEST(RKVVASTParserTest, TheTextIsTheDocumentDecodedAsUTF8) {
  // Well-formed Latin-1 is no UTF-8: the report comes without text.
  const std::string latin1 =
      "<?xml version='1.0' encoding='ISO-8859-1'?><VAST version='9'>"
      "<Extensions>caf\xE9</Extensions></VAST>";
  const std::string utf8 = "<VAST version='9'><Extensions>caf\xC3\xA9</Extensions></VAST>";
  for (const auto& [document, text] :
       {std::pair{latin1, std::optional<std::string>()}, std::pair{utf8, std::optional(utf8)}}) {
    test::RKVReportRecorder recorder;
    RKVVASTParser::parseXMLAndGenerateVASTObjectModel(document, false, recorder.outer());
    EXPECT_EQ(recorder.lines(), std::vector<std::string>{"VAST_VERSION_ERROR_NOT_SUPPORTED"});
    EXPECT_EQ(recorder.texts(), std::vector{text});
  }
}

}  // namespace
}  // namespace rkv
