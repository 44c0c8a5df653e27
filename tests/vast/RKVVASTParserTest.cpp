#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTParser.h"
#include "rkv/vast/errors/RKVVASTError.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;

const std::string kInline =
    "<Ad id='a'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle><Creatives><Creative><Linear>"
    "<Duration>00:00:10</Duration><MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4"
    "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>";
const std::string kRootError = "<Error>http://e.test/root</Error>";

std::string vast(const std::string& version, const std::string& content) {
  return "<?xml version='1.0' encoding='UTF-8'?>\n<VAST" +
         (version.empty() ? "" : " version='" + version + "'") + ">" + content + "</VAST>";
}

TEST(RKVVASTParserTest, NoBytes) {
  for (const bool wrapper : {false, true}) {
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTParser::parseXMLAndGenerateVASTObjectModel(std::nullopt, wrapper, recorder.outer());
    EXPECT_FALSE(response.model());
    ASSERT_TRUE(response.error());
    EXPECT_EQ(*response.error(), RKVError("RKVVASTErrorDomain", 5032, "Unexpected response."));
    ASSERT_EQ(recorder.names(), Strings{"VAST_VPAID_ERROR_FETCH"});
    EXPECT_TRUE(recorder.reports()[0].urls.empty());
    EXPECT_FALSE(recorder.reports()[0].text);
  }
}

// Every document-level outcome, for an ad call and for a wrapper's answer.
TEST(RKVVASTParserTest, DocumentLevelChecks) {
  struct Case {
    const char* name;
    std::string document;
    bool wrapper;
    Strings reports;  // names, with "@url" for each error URL handed over
    bool model;
    std::optional<int64_t> errorVireoCode;  // of the response's record
  };
  const std::string illFormed = "<VAST version='4.2'><Ad>";
  const std::string adWithoutTitle =
      "<Ad><InLine><AdSystem>S</AdSystem><Creatives><Creative><Linear><Duration>1</Duration>"
      "<MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles>"
      "</Linear></Creative></Creatives></InLine></Ad>";
  const Case cases[] = {
      {"valid", vast("3.0", kInline), false, {}, true, std::nullopt},
      {"ill-formed", illFormed, false, {"XML_PARSING_ERROR"}, false, 100001},
      {"ill-formed wrapper answer", illFormed, true, {"XML_PARSING_ERROR_WRAPPER"}, false, 100002},
      {"no version",
       vast("", kRootError),
       false,
       {"VAST_VALIDATION_ERROR_MISSING_VERSION@http://e.test/root"},
       false,
       101001},
      {"unsupported version",
       vast("5.0", kRootError),
       false,
       {"VAST_VERSION_ERROR_NOT_SUPPORTED@http://e.test/root"},
       false,
       102001},
      {"unsupported version, wrapper answer",
       vast("5.0", kRootError),
       true,
       {"VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER@http://e.test/root"},
       false,
       102002},
      // Reported once: an earlier report silences the version's.
      {"unsupported version after a report",
       vast("1.0", adWithoutTitle),
       false,
       {"VAST_VALIDATION_ERROR_MISSING_ADTITLE"},
       false,
       102001},
      // An ad call without ads fires nothing; a wrapper's answer without ads reports one error
      // and answers with another.
      {"no ads", vast("3.0", kRootError), false, {}, true, 101005},
      {"no ads, wrapper answer",
       vast("3.0", kRootError),
       true,
       {"VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE@http://e.test/root"},
       true,
       101005},
      {"no usable ad, wrapper answer",
       vast("3.0", "<Ad><InLine/></Ad>"),
       true,
       {"XML_PARSING_ERROR"},
       true,
       101005},
      {"invalid ad",
       vast("4.2",
            "<Ad><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
            "<Error>http://e.test/ad</Error></InLine></Ad>"),
       false,
       {"VAST_VALIDATION_ERROR_MISSING_CREATIVES@http://e.test/ad"},
       true,
       std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::RKVLogCapture log;  // keeps the missing-version line off the test's output
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTParser::parseXMLAndGenerateVASTObjectModel(c.document, c.wrapper, recorder.outer());
    Strings reports;
    for (const auto& report : recorder.reports()) {
      std::string entry = report.name;
      for (const auto& url : report.urls)
        entry += "@" + url;
      reports.push_back(entry);
      EXPECT_EQ(report.text, c.document);
    }
    EXPECT_EQ(reports, c.reports);
    EXPECT_EQ(response.model() != nullptr, c.model);
    ASSERT_EQ(response.error().has_value(), c.errorVireoCode.has_value());
    if (c.errorVireoCode) {
      EXPECT_EQ(response.error()->domain, "RKVVASTErrorDomain");
      ASSERT_TRUE(response.error()->vastError);
      EXPECT_EQ(response.error()->vastError->vireoCode(), *c.errorVireoCode);
    }
  }
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
    ASSERT_EQ(recorder.names(), Strings{"VAST_VERSION_ERROR_NOT_SUPPORTED"});
    EXPECT_EQ(recorder.reports()[0].text, text);
  }
  // The short form: an ad call with no handler.
  const RKVVASTParserResponse response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(vast("4.1", kInline + kInline));
  ASSERT_TRUE(response.model());
  EXPECT_EQ(response.model()->ads().size(), 2u);
  EXPECT_FALSE(response.error());
}

}  // namespace
}  // namespace rkv
