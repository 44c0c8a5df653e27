// Reading VAST documents: the model, the parser's document-level checks, hostile input, the
// corpus read ad by ad, and the generator's download.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/RKVVASTParser.h"
#include "rkv/vast/model/RKVVASTContentEquality.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;

// An inline ad (kind 'i') or a wrapper ('w') with the id and, when given, the sequence.
std::string ad(char kind, const std::string& id, const std::string& sequence = "-") {
  const std::string open =
      "<Ad id='" + id + "'" + (sequence == "-" ? "" : " sequence='" + sequence + "'") + ">";
  if (kind == 'w') return open + "<Wrapper><AdSystem>S</AdSystem></Wrapper></Ad>";
  return open +
         "<InLine><AdSystem>S</AdSystem><AdTitle>T</"
         "AdTitle><Creatives><Creative><Linear><Duration>00:00:10</Duration>"
         "<MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles>"
         "</Linear></Creative></Creatives></InLine></Ad>";
}

const std::string kInline = ad('i', "a");
// Blank and unusable error URLs are dropped.
const std::string kRootError =
    "<Error> </Error><Error>http://bad host/</Error><Error>http://e.test/root</Error>";

std::string vast(const std::string& version, const std::string& content) {
  return "<?xml version='1.0' encoding='UTF-8'?>\n<VAST" +
         (version.empty() ? "" : " version='" + version + "'") + ">" + content + "</VAST>";
}

struct Document {
  RKVXMLDictionaryPtr root;
  std::shared_ptr<RKVVASTModel> model;
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;

  explicit Document(const std::string& content) {
    root =
        RKVXMLDictionary::rkv_dictionaryWithXMLString("<VAST version='4.2'>" + content + "</VAST>");
    model = RKVVASTModel::withDictionary(*root, &error, recorder.inner());
  }
};

// The ids, each followed by "@" and the sequence of an ad that has one.
Strings ids(const RKVVASTModel::Ads& ads) {
  Strings result;
  for (const auto& a : ads)
    result.push_back(a->adID().value_or("(null)") + (a->hasSequence() ? "@" : "") +
                     a->adSequence().value_or(""));
  return result;
}

TEST(RKVVASTModelTest, AdsAndTheirReports) {
  Document document(
      // kept and valid: an inline ad with a blank system and title, reported with its InLine's
      // error URLs
      "<Ad id='1'><InLine><AdSystem> </AdSystem><AdTitle/><Error>http://e.test/inline</Error>"
      "<Creatives><Creative><Linear><Duration>1</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m/1</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"
      // skipped silently: neither kind, or not an element
      "<Ad id='2'><Other>x</Other></Ad><Ad>text only</Ad>"
      // kept and valid: a wrapper without title and with a blank system, reported with an
      // empty list
      "<Ad id='3'><Wrapper><AdSystem> </AdSystem><Error>http://e.test/wrapper</Error>"
      "</Wrapper></Ad>"
      // dropped: an InLine value that is no element
      "<Ad id='4'><InLine/></Ad>"
      // kept but invalid
      "<Ad id='5'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
      "<Error>http://e.test/5</Error></InLine></Ad>");
  EXPECT_EQ(ids(document.model->ads()), (Strings{"1", "3", "5"}));
  EXPECT_TRUE(document.model->ads()[0]->isValid() && document.model->ads()[1]->isValid());
  EXPECT_FALSE(document.model->ads()[2]->isValid());
  EXPECT_EQ(
      document.recorder.lines(),
      (Strings{"VAST_VALIDATION_ERROR_MISSING_ADSYSTEM http://e.test/inline",
               "VAST_VALIDATION_ERROR_MISSING_ADTITLE http://e.test/inline",
               "VAST_VALIDATION_ERROR_MISSING_ADSYSTEM", "VAST_VALIDATION_ERROR_MISSING_ADTITLE",
               "XML_PARSING_ERROR", "VAST_VALIDATION_ERROR_MISSING_CREATIVES http://e.test/5"}));
  EXPECT_EQ(document.model->wrapperCount(), 1);

  // Ads follow each other in document order; ads of another model belong to none.
  const auto& ads = document.model->ads();
  Document other(ad('i', "a"));
  EXPECT_EQ(document.model->adAfter(ads[1].get()), ads[2]);
  EXPECT_TRUE(document.model->isOwnerOf(ads[1].get()));
  EXPECT_FALSE(document.model->isOwnerOf(other.model->firstAd().get()));
}

TEST(RKVVASTModelTest, MainAndPassbackAds) {
  struct Case {
    std::string ads;
    bool pod;
    Strings main, passback;
  };
  const Case cases[] = {
      {"", false, {}, {}},
      {ad('i', "a") + ad('w', "b") + ad('w', "c"), false, {"a"}, {"b", "c"}},
      {ad('i', "a", "2") + ad('i', "b") + ad('i', "c", "1"), true, {"c@1", "a@2"}, {"b"}},
      // One sequenced ad is enough for a pod.
      {ad('w', "a", "1"), true, {"a@1"}, {}},
      // A sequence is read as its leading number and kept as written; one that reads 0 becomes
      // the largest int and sorts last, ties keep document order.
      {ad('i', "a", "abc") + ad('i', "b", "0") + ad('i', "c", " 3x") + ad('i', "d", "-1"),
       true,
       {"d@-1", "c@ 3x", "a@2147483647", "b@2147483647"},
       {}},
      // The passback list starts at the second ad, even when that is the main ad.
      {ad('w', "a") + ad('i', "b"), false, {"b"}, {"b"}},
  };
  for (const Case& c : cases) {
    Document document(c.ads);
    EXPECT_EQ(document.model->isAdPod(), c.pod) << c.ads;
    EXPECT_EQ(ids(document.model->mainAds()), c.main) << c.ads;
    EXPECT_EQ(ids(document.model->passbackAds()), c.passback) << c.ads;
  }
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
      // Versions are compared as whole texts.
      {vast("3.00", kInline), false, "VAST_VERSION_ERROR_NOT_SUPPORTED; no model, 102/102001"},
      // Reported once: an earlier report silences the version's.
      {vast("1.0", untitled), false, "VAST_VALIDATION_ERROR_MISSING_ADTITLE; no model, 102/102001"},
      // An ad call without ads fires nothing; a wrapper's answer without ads reports one error
      // and answers with another.
      {vast("3.0", kRootError), false, "model, 101/101005"},
      {vast("3.0", kRootError), true,
       "VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE" + root + "model, 101/101005"},
      {vast("3.0", "<Ad><InLine/></Ad>"), true, "XML_PARSING_ERROR; model, 101/101005"},
      // The root's error URLs count only when there is no Ad element at all.
      {vast("3.0", kRootError + "<Ad><Other/></Ad>"), true,
       "VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE; model, 101/101005"},
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
}

std::string parse(std::string_view bytes, bool isWrapper = false) {
  test::RKVReportRecorder recorder;
  return test::outcome(
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, isWrapper, recorder.outer()),
      recorder);
}

// Read by the short form: an ad call with no handler.
TEST(RKVVASTHostileInputTest, FiftyMegabytes) {
  std::string big = "<VAST version='4.2'>";
  size_t count = 0;
  for (; big.size() < 50u * 1024 * 1024; ++count)
    big += kInline;
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

// Compares the streamed reading with the whole tree's; gives the number of ads read.
size_t expectSameReadings(const std::string& bytes) {
  test::RKVReportRecorder streamed;
  const auto response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, false, streamed.outer());
  test::RKVReportRecorder whole;
  std::shared_ptr<RKVVASTModel> model;
  std::optional<RKVError> error;
  if (RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(bytes))
    model = RKVVASTModel::withDictionary(*root, &error, whole.inner());
  // The parser adds its own document-level reports after the model's.
  Strings reports = streamed.lines();
  if (reports.size() > whole.lines().size()) reports.resize(whole.lines().size());
  EXPECT_EQ(reports, whole.lines());
  // Both readings have a model or neither has, and their ads are equal one by one.
  const std::shared_ptr<RKVVASTModel>& streamedModel = response.model();
  EXPECT_EQ(streamedModel != nullptr, model != nullptr);
  if (!streamedModel || !model) return 0;
  EXPECT_EQ(streamedModel->ads().size(), model->ads().size());
  for (size_t i = 0; i < std::min(model->ads().size(), streamedModel->ads().size()); ++i)
    EXPECT_TRUE(isEqualContent(*streamedModel->ads()[i], *model->ads()[i])) << "ad " << i;
  return streamedModel->ads().size();
}

TEST(RKVVASTCorpusTest, AdsReadAsTheyEndMatchTheWholeTreeForOddDocumentsToo) {
  test::RKVLogCapture log;
  size_t files = 0, ads = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    SCOPED_TRACE(entry.path());
    ads += expectSameReadings(test::readFile(entry.path()));
    ++files;
  }
  EXPECT_GT(files, 70u);
  EXPECT_GT(ads, 250u);  // the synthetic document alone has 200

  // Documents that are odd for reading ahead.
  const std::string ad =
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Error>http://e.test/1</Error></InLine></Ad>";
  for (const std::string& document : {
           "<VAST>" + ad + "</VAST>",
           // An element that turns the version attribute into a list after the ads were read.
           "<VAST version='4.2'>" + ad + "<_version>5</_version></VAST>",
           "<VAST version='4.2'><_version>5</_version>" + ad + "</VAST>",
           "<VAST version='4.2'>" + ad + "<Error>http://e.test/root</Error>" + ad + "</VAST>",
       }) {
    SCOPED_TRACE(document);
    expectSameReadings(document);
  }
}

using test::RKVTestRoute;
const std::string kDocument = vast("4.0", kInline);

TEST(RKVVASTModelGeneratorTest, ArgumentsInOrderThenTheDownload) {
  test::RKVTestHTTPServer server;
  server.setRoute("/vast", RKVTestRoute::answer(200, kDocument));
  server.setRoute("/empty", RKVTestRoute::answer(200, ""));
  server.setRoute("/slow", RKVTestRoute::answer(200, kDocument, std::chrono::seconds(5)));
  const auto session = std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>());
  const auto noExchange = std::make_shared<RKVURLSession>(nullptr);
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(test::RKVTestHTTPServer::closedPort());
  const std::string unableToDownload = "; no model, 10003 Unable to download XML.";
  struct Case {
    std::optional<std::string> xml;
    std::string url;  // a path on the server, or a whole URL
    double timeout;
    bool wrapper;
    std::shared_ptr<RKVURLSession> session;
    std::string outcome;
  };
  const Case cases[] = {
      // The arguments are tested in order: bytes win over the URL, once time is left.
      {kDocument, "/vast", 0, false, session, "no model, 5031 Connection timed out."},
      {std::nullopt, "", -1, false, session, "no model, 5031 Connection timed out."},
      {kDocument, "/vast", 5, false, session, "model"},
      {std::nullopt, "", 5, false, session, "no model, 10002 No XML Input."},
      {std::nullopt, "/vast", 5, false, session, "model"},
      // An answer of any status is parsed (the manager's tests read a 404's body).
      {std::nullopt, "/empty", 5, false, session, "XML_PARSING_ERROR; no model, 100/100001"},
      // The download errors are the wrapper forms whatever the generator reads for.
      {std::nullopt, "/slow", 0.3, false, session,
       "VAST_WRAPPER_ERROR_FETCH_TIMEOUT; no model, 301/301003"},
      {std::nullopt, refused + "/vast", 5, false, session,
       "VAST_WRAPPER_ERROR_FETCH" + unableToDownload},
      {std::nullopt, "/vast", 5, false, noExchange, "VAST_WRAPPER_ERROR" + unableToDownload},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url + " in " + std::to_string(c.timeout));
    const std::string text = c.url.starts_with("http") ? c.url : server.url(c.url);
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTModelGenerator(c.session, c.wrapper)
            .generateVASTModelFromXML(c.xml,
                                      c.url.empty() ? std::nullopt : RKVURL::withString(text),
                                      c.timeout, recorder.outer());
    EXPECT_EQ(test::outcome(response, recorder), c.outcome);
    // The document text comes with parsing errors only.
    for (size_t i = 0; i < recorder.lines().size(); ++i)
      EXPECT_EQ(recorder.texts()[i].has_value(), recorder.lines()[i].starts_with("XML_PARSING"));
  }
  // Only one request reached /vast, and cache policy 0 asks nothing of caches on the way.
  EXPECT_EQ(server.requestCount("/vast"), 1u);
  EXPECT_FALSE(server.requests()[0].header("Cache-Control"));
}

}  // namespace
}  // namespace rkv
