// Reading VAST documents (model, parser, hostile input, the corpus) and downloading them; the VAST
// manager and the VAST pixels against real HTTP servers on 127.0.0.1.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/vast/RKVVASTManager.h"
#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/RKVVASTParser.h"
#include "rkv/vast/RKVVASTPixelManager.h"
#include "rkv/vast/RKVVASTTrackingEventFactory.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"
#include "rkv/vast/model/RKVVASTContentEquality.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/support/RKVTestThreads.h"
#include "tests/support/RKVTestVASTDocuments.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::inlineAd;
using test::RKVTestAd;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using test::url;
using test::vastXML;
using test::wrapperAd;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Behavior = test::RKVTestServerBehavior;
using Lines = std::vector<std::string>;

// A session of its own for a test's wrapper fetches, answers capped at 1 MiB.
std::shared_ptr<RKVURLSession> testSession() {
  RKVURLSessionConfiguration oneMebibyteAtMost;
  oneMebibyteAtMost.maximumResponseBytes = 1024 * 1024;
  return std::make_shared<RKVURLSession>(
      std::make_shared<RKVURLSessionProvider>(oneMebibyteAtMost));
}

// The reports, each followed by "; ", then "model" or "no model", then the error's code and vendor
// code, or its description without a VAST error: "XML_PARSING_ERROR; no model, 100/100001".
std::string outcome(const RKVVASTParserResponse& response,
                    const test::RKVReportRecorder& recorder) {
  std::string text;
  for (const std::string& line : recorder.lines)
    text += line + "; ";
  text += response.model() ? "model" : "no model";
  if (const std::optional<RKVError>& error = response.error()) {
    text += ", " + std::to_string(error->code);
    text += error->vastError ? "/" + std::to_string(error->vastError->vireoCode())
                             : " " + error->localizedDescription.value_or("-");
  }
  return text;
}

// An inline ad (kind 'i') or a wrapper ('w') with the id and, when given, the sequence.
std::string ad(char kind, const std::string& id, const std::string& sequence = "-") {
  const std::string open =
      "<Ad id='" + id + "'" + (sequence == "-" ? "" : " sequence='" + sequence + "'") + ">";
  if (kind == 'w') return open + "<Wrapper><AdSystem>S</AdSystem></Wrapper></Ad>";
  return open +
         "<InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle><Creatives><Creative><Linear>"
         "<Duration>00:00:10</Duration><MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4"
         "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>";
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
  explicit Document(const std::string& content)
      : root(test::element("<VAST version='4.2'>" + content + "</VAST>")),
        model(RKVVASTModel::withDictionary(*root, &error, recorder.inner())) {}
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;
  RKVXMLDictionaryPtr root;
  std::shared_ptr<RKVVASTModel> model;
};

// The ids, each followed by "@" and the sequence of an ad that has one.
Lines ids(const RKVVASTModel::Ads& ads) {
  Lines result;
  for (const auto& a : ads)
    result.push_back(a->adID().value_or("(null)") + (a->hasSequence() ? "@" : "") +
                     a->adSequence().value_or(""));
  return result;
}

TEST(RKVVASTModelTest, AdsAndTheirReports) {
  Document document(
      // kept, valid: blank system and title, reported with the InLine's error URLs
      "<Ad id='1'><InLine><AdSystem> </AdSystem><AdTitle/><Error>http://e.test/inline</Error>"
      "<Creatives><Creative><Linear><Duration>1</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m/1</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"
      // skipped silently: neither kind, or not an element
      "<Ad id='2'><Other>x</Other></Ad><Ad>text only</Ad>"
      // kept, valid: a wrapper with a blank system and no title, reported with no URLs
      "<Ad id='3'><Wrapper><AdSystem> "
      "</AdSystem><Error>http://e.test/wrapper</Error></Wrapper></Ad>"
      // dropped: an InLine value that is no element
      "<Ad id='4'><InLine/></Ad>"
      // kept but invalid
      "<Ad id='5'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
      "<Error>http://e.test/5</Error></InLine></Ad>");
  EXPECT_EQ(ids(document.model->ads()), (Lines{"1", "3", "5"}));
  EXPECT_TRUE(document.model->ads()[0]->isValid() && document.model->ads()[1]->isValid());
  EXPECT_FALSE(document.model->ads()[2]->isValid());
  EXPECT_EQ(
      document.recorder.lines,
      (Lines{"VAST_VALIDATION_ERROR_MISSING_ADSYSTEM http://e.test/inline",
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
  const std::string sequences =
      ad('i', "a", "abc") + ad('i', "b", "0") + ad('i', "c", " 3x") + ad('i', "d", "-1");
  const struct {
    std::string ads;
    bool pod;
    Lines main, passback;
  } cases[] = {
      {"", false, {}, {}},
      {ad('i', "a") + ad('w', "b") + ad('w', "c"), false, {"a"}, {"b", "c"}},
      {ad('i', "a", "2") + ad('i', "b") + ad('i', "c", "1"), true, {"c@1", "a@2"}, {"b"}},
      // One sequenced ad is enough for a pod.
      {ad('w', "a", "1"), true, {"a@1"}, {}},
      // A sequence is read as its leading number and kept as written; one that reads 0 becomes
      // the largest int and sorts last, ties keep document order.
      {sequences, true, {"d@-1", "c@ 3x", "a@2147483647", "b@2147483647"}, {}},
      // The passback list starts at the second ad, even when that is the main ad.
      {ad('w', "a") + ad('i', "b"), false, {"b"}, {"b"}},
  };
  for (const auto& c : cases) {
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
  const struct {
    std::optional<std::string> document;
    bool wrapper;
    std::string outcome;
  } cases[] = {
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
      // No ads: an ad call fires nothing; a wrapper's answer reports one error, answers another.
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document.value_or("(none)"));
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTParser::parseXMLAndGenerateVASTObjectModel(c.document, c.wrapper, recorder.outer());
    EXPECT_EQ(outcome(response, recorder), c.outcome);
    for (const auto& text : recorder.texts)
      EXPECT_EQ(text, c.document);
  }
}

std::string parse(std::string_view bytes, bool isWrapper = false) {
  test::RKVReportRecorder recorder;
  return outcome(
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
  for (size_t length = 0; length < xml.size(); ++length)
    ASSERT_EQ(parse(std::string_view(xml).substr(0, length)),
              length < rootEnd ? "XML_PARSING_ERROR; no model, 100/100001" : "model")
        << length;
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
  Lines reports = streamed.lines;
  if (reports.size() > whole.lines.size()) reports.resize(whole.lines.size());
  EXPECT_EQ(reports, whole.lines);
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
  const struct {
    std::optional<std::string> xml;
    std::string url;  // a path on the server, or a whole URL
    double timeout;
    std::shared_ptr<RKVURLSession> session;
    std::string outcome;
  } cases[] = {
      // The arguments are tested in order: bytes win over the URL, once time is left.
      {kDocument, "/vast", 0, session, "no model, 5031 Connection timed out."},
      {std::nullopt, "", -1, session, "no model, 5031 Connection timed out."},
      {kDocument, "/vast", 5, session, "model"},
      {std::nullopt, "", 5, session, "no model, 10002 No XML Input."},
      {std::nullopt, "/vast", 5, session, "model"},
      // An answer of any status is parsed (the manager's tests read a 404's body).
      {std::nullopt, "/empty", 5, session, "XML_PARSING_ERROR; no model, 100/100001"},
      // The download errors are the wrapper forms even for an ad call.
      {std::nullopt, "/slow", 0.3, session,
       "VAST_WRAPPER_ERROR_FETCH_TIMEOUT; no model, 301/301003"},
      {std::nullopt, refused + "/vast", 5, session, "VAST_WRAPPER_ERROR_FETCH" + unableToDownload},
      {std::nullopt, "/vast", 5, noExchange, "VAST_WRAPPER_ERROR" + unableToDownload},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url + " in " + std::to_string(c.timeout));
    const std::string text = c.url.starts_with("http") ? c.url : server.url(c.url);
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        RKVVASTModelGenerator(c.session, false)
            .generateVASTModelFromXML(c.xml,
                                      c.url.empty() ? std::nullopt : RKVURL::withString(text),
                                      c.timeout, recorder.outer());
    EXPECT_EQ(outcome(response, recorder), c.outcome);
    // The document text comes with parsing errors only.
    for (size_t i = 0; i < recorder.lines.size(); ++i)
      EXPECT_EQ(recorder.texts[i].has_value(), recorder.lines[i].starts_with("XML_PARSING"));
  }
  // Only one request reached /vast, and cache policy 0 asks nothing of caches on the way.
  EXPECT_EQ(server.requestCount("/vast"), 1u);
  EXPECT_FALSE(server.requests()[0].header("Cache-Control"));
}

// The shared executor joins threads that retired after their idle time only at its next task;
// shutting it down after the last test joins them before exit, as a host may.
struct JoinTheSharedExecutor : ::testing::Environment {
  void TearDown() override { RKVBackgroundExecutor::sharedInstance().shutdown(); }
};
const auto* const kJoinTheSharedExecutor =
    ::testing::AddGlobalTestEnvironment(new JoinTheSharedExecutor);

const std::string kNoMoreAds = "10005 No more ads available.";
const std::string kNoMorePassback = "10007 No more Passback.";
const std::string kIncomplete = "10006 Passback resolution incomplete.";

struct HandedOutAd : RKVConsumableVideoAd {
  explicit HandedOutAd(std::shared_ptr<RKVVASTAd> vastAd) : ad(std::move(vastAd)) {}
  std::shared_ptr<RKVVASTAd> ad;
};

struct PassThroughAdapter : RKVVASTManagerAdapter {
  std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) override {
    if (throws) throw std::runtime_error("adapter failure");
    return std::make_shared<HandedOutAd>(ad);
  }
  std::atomic<bool> throws{false};
};

std::string joined(const Lines& lines, const std::string& separator = " | ") {
  std::string text;
  for (const auto& line : lines)
    text += (text.empty() ? "" : separator) + line;
  return text;
}

// Every delegate call as one line ("ready", "failed <code>", "start <ad id>", "fail <ad id>",
// "error <name> [<error URLs>] text|-"), joined by " | ", sorted for calls from parallel tasks.
class RecordingDelegate : public RKVVASTManagerDelegate {
 public:
  void vastManagerIsReadyToProvideAds() override { add("ready"); }
  void vastManagerDidFailWithError(const std::optional<RKVError>& error) override {
    add("failed " + (error ? std::to_string(error->code) : std::string("-")));
  }
  void didEncounterError(RKVVASTManager&, const RKVVASTError& error,
                         const std::vector<RKVVASTURL>& errorURLs,
                         const std::optional<std::string>& text) override {
    add("error " + error.errorName().value_or("?") + " [" + joined(test::urlTexts(errorURLs), " ") +
        "] " + (text ? "text" : "-"));
  }
  void didStartToResolveWrapperAd(RKVVASTManager& manager,
                                  const std::shared_ptr<RKVVASTAd>& ad) override {
    add("start " + ad->adID().value_or("?"));
    if (onStart) onStart(manager);
  }
  void didFailToResolveWrapperAd(RKVVASTManager&, const std::shared_ptr<RKVVASTAd>& ad) override {
    add("fail " + ad->adID().value_or("?"));
  }

  std::string calls(bool sorted = false) const {
    std::lock_guard lock(mutex_);
    Lines lines = calls_;
    if (sorted) std::sort(lines.begin(), lines.end());
    return joined(lines);
  }
  std::function<void(RKVVASTManager&)> onStart;

 private:
  void add(std::string line) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(line));
  }
  mutable std::mutex mutex_;
  Lines calls_;
};

// "<ad id>/<wrapper depth>" for an ad, "<code> <description>" for an error.
std::string answer(const RKVVASTManagerResponse& response) {
  if (auto handed = std::dynamic_pointer_cast<HandedOutAd>(response.ad())) {
    EXPECT_FALSE(response.error());
    return handed->ad->adID().value_or("?") + "/" + std::to_string(handed->ad->wrapperDepth());
  }
  if (!response.error()) return "neither ad nor error";
  EXPECT_TRUE(RKVVASTErrorCodes::isInDomain(*response.error())) << response.error()->domain;
  return std::to_string(response.error()->code) + " " +
         response.error()->localizedDescription.value_or("");
}

// Every answer up to and including the first error.
std::string drain(RKVVASTManager& manager, bool dueToAdFailure = false) {
  Lines answers;
  for (int i = 0; i < 20; ++i) {
    RKVVASTManagerResponse response = manager.nextAdWithTimeout(5.0, dueToAdFailure);
    answers.push_back(answer(response));
    if (!response.ad()) break;
  }
  return joined(answers);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

size_t logged(const test::RKVLogCapture& log, const std::string& prefix) {
  return std::ranges::count_if(log.debugMessages(),
                               [&](const std::string& m) { return m.starts_with(prefix); });
}

// One level of a wrapper chain: kCreatives linear creatives of kEvents start events to
// http://t.example/<id>/<creative>/<event>; a wrapper follows `adTag`, an inline ad plays.
constexpr int kCreatives = 20;
constexpr int kEvents = 20;
std::string levelXML(const std::string& id, const std::string& adTag) {
  const std::string kind = adTag.empty() ? "InLine" : "Wrapper";
  std::string xml = "<VAST version='3.0'><Ad id='" + id + "'><" + kind +
                    "><AdSystem>s</AdSystem><AdTitle>" + id + "</AdTitle>";
  if (!adTag.empty()) xml += "<VASTAdTagURI><![CDATA[" + adTag + "]]></VASTAdTagURI>";
  xml += "<Impression>http://i.example/" + id + "</Impression><Creatives>";
  for (int c = 0; c < kCreatives; ++c) {
    const std::string at = id + "/" + std::to_string(c) + "/";
    xml += "<Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>";
    for (int e = 0; e < kEvents; ++e)
      xml += "<Tracking event='start'>http://t.example/" + at + std::to_string(e) + "</Tracking>";
    xml += "</TrackingEvents>";
    if (adTag.empty())
      xml += "<MediaFiles><MediaFile type='video/mp4'>http://m.example/" + at +
             "f.mp4</MediaFile></MediaFiles>";
    xml += "</Linear></Creative>";
  }
  return xml + "</Creatives></" + kind + "></Ad></VAST>";
}

class RKVVASTManagerTest : public ::testing::Test {
 protected:
  // A manager that has read a root document of these ads, with a fresh delegate.
  std::unique_ptr<RKVVASTManager> managerOver(const std::vector<RKVTestAd>& ads,
                                              RKVVASTManagerConfig config = {}) {
    delegate_ = std::make_shared<RecordingDelegate>();
    auto manager = std::make_unique<RKVVASTManager>(delegate_, adapter_, session_, config);
    if (!ads.empty()) manager->createAdsStoreWithXML(vastXML(ads), std::nullopt, 5.0);
    return manager;
  }
  void serve(const std::string& path, const std::vector<RKVTestAd>& ads,
             std::chrono::milliseconds delay = 0ms) {
    server_.setRoute(path, RKVTestRoute::answer(200, vastXML(ads), delay));
  }
  std::string url(const std::string& path) const { return server_.url(path); }
  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSession> session_ = testSession();
  std::shared_ptr<RecordingDelegate> delegate_;
  std::shared_ptr<PassThroughAdapter> adapter_ = std::make_shared<PassThroughAdapter>();
  const std::string closed_ =
      "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort()) + "/vast";
};

TEST_F(RKVVASTManagerTest, ConfigAndErrorCodesWhereTheyArise) {
  // Without a delegate (or after cancel) or without an adapter, nothing but a log line.
  for (int missing = 0; missing < 3; ++missing) {
    test::RKVLogCapture log;
    auto delegate = std::make_shared<RecordingDelegate>();
    RKVVASTManager manager(missing == 0 ? nullptr : delegate, missing == 1 ? nullptr : adapter_,
                           session_, {});
    if (missing == 2) manager.cancel();
    manager.createAdsStoreWithXML(vastXML({inlineAd("a")}), std::nullopt, 5.0);
    EXPECT_EQ(log.debugMessages(), Lines{std::string("VAST Manager cannot work without its ") +
                                         (missing == 1 ? "adapter" : "delegate") + " set!"});
    EXPECT_EQ(delegate->calls(), "");
    EXPECT_EQ(answer(manager.nextAdWithTimeout(5.0, false)), "10004 Unable to create VAST Model.");
  }

  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  auto manager = managerOver({}, {1.0, 5, false, false});
  manager->createAdsStoreWithXML(std::nullopt, std::nullopt, 5.0);
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(closed_), 5.0);
  // The root document's download is bounded by the time-out it is given.
  const auto start = std::chrono::steady_clock::now();
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(url("/silent")), 1.0);
  EXPECT_LE(secondsSince(start), 2.0);  // the time-out, and a margin only a hang exceeds
  manager->createAdsStoreWithXML(vastXML({inlineAd("a"), inlineAd("b")}), std::nullopt, 5.0);
  EXPECT_EQ(delegate_->calls(),
            "failed 10002 | error VAST_WRAPPER_ERROR_FETCH [] - | failed 10003 | "
            "error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [] - | failed 301 | ready");
  // A time-out of zero or less is refused even while ads remain.
  EXPECT_EQ(answer(manager->nextAdWithTimeout(0.0, true)), "10001 VASTManager Timeout.");
  EXPECT_EQ(drain(*manager), "a/0 | " + kNoMoreAds);
  EXPECT_EQ(drain(*manager, true), "b/0 | " + kNoMorePassback);
  const RKVVASTParserResponse notAWrapper =
      manager->resolveWrapper(manager->mainAdsStore().at(0), 5.0, nullptr);
  EXPECT_FALSE(notAWrapper.model());
  EXPECT_EQ(notAWrapper.error(),
            RKVError(std::string(RKVVASTErrorCodes::Domain), 10008, "No ad available."));
}

// The root document's w0, then /c1 ... /c5 answer the wrappers w1 ... w5 and /c6 the inline ad,
// which has no title; every level carries its impression, error and start pixels.
TEST_F(RKVVASTManagerTest, ChainsAreMergedUpToTheWrapperLimitPassbacksGoOneLevelDeeper) {
  const std::vector<std::string> levels = {"w0", "w1", "w2", "w3", "w4", "w5", "i"};
  auto level = [&](size_t n) {
    RKVTestAd ad = n < 6 ? wrapperAd(levels[n], url("/c" + std::to_string(n + 1))) : inlineAd("i");
    ad.hasTitle = n < 6;
    ad.impressions = {"http://imp.example/" + ad.id};
    ad.errors = {"http://err.example/" + ad.id};
    ad.starts = {"http://start.example/" + ad.id};
    return ad;
  };
  for (size_t n = 1; n <= 6; ++n)
    serve("/c" + std::to_string(n), {level(n)});
  // The pixels of levels `from` down to w0, as merged lists hold them.
  auto pixels = [&](const std::string& kind, size_t from) {
    std::string text;
    for (size_t n = from + 1; n-- > 0;)
      text += (text.empty() ? "" : " ") + ("http://" + kind + ".example/" + levels[n]);
    return text;
  };
  const std::string refused = " | error VAST_WRAPPER_ERROR_LIMIT_REACHED [";
  EXPECT_EQ(drain(*managerOver({level(0)}, {5.0, 0, false, false})), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready" + refused + pixels("err", 0) + "] -");
  // The main path refuses the wrapper at depth 5, the passback path still fetches its ad.
  EXPECT_EQ(drain(*managerOver({level(0)}, {5.0, 5, false, false})), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w0" + refused + pixels("err", 5) + "] -");
  EXPECT_EQ(server_.requestCount("/c6"), 0u);
  auto passbackPath = managerOver({inlineAd("main"), level(0)}, {5.0, 5, false, false});
  EXPECT_EQ(drain(*passbackPath), "main/0 | " + kNoMoreAds);
  EXPECT_EQ(drain(*passbackPath, true), "i/6 | " + kNoMorePassback);
  // An error without a VAST code fires the pixels on the passback path only.
  EXPECT_EQ(delegate_->calls(), "ready | start w0 | error VAST_VALIDATION_ERROR_MISSING_ADTITLE [" +
                                    pixels("err", 6) + "] text");

  // Under a higher limit the main path merges every level; only the root's wrapper is announced.
  auto manager = managerOver({level(0)}, {5.0, 6, false, false});
  RKVVASTManagerResponse response = manager->nextAdWithTimeout(5.0, false);
  ASSERT_EQ(answer(response), "i/6");
  const RKVVASTAd& ad = *std::dynamic_pointer_cast<HandedOutAd>(response.ad())->ad;
  EXPECT_EQ(joined(test::urlTexts(ad.impressions()), " "), pixels("imp", 6));
  EXPECT_EQ(joined(test::urlTexts(ad.errorPixels()), " "), pixels("err", 6));
  EXPECT_EQ(joined(test::urlTexts(ad.linearCreatives().at(0)->trackingEvents()), " "),
            pixels("start", 6));
  EXPECT_EQ(delegate_->calls(),
            "ready | start w0 | error VAST_VALIDATION_ERROR_MISSING_ADTITLE [] text");
  EXPECT_EQ(server_.requestCount("/c6"), 2u);  // once per path that reached it
}

// The ways a wrapper's fetch can fail, each bounded by the time-out and reported with the
// wrapper's error URLs. Other transport errors (an untrusted certificate, a redirect to another
// scheme, a body without end, a server that drips) map to the same report.
TEST_F(RKVVASTManagerTest, FailedAndRefusedWrappersReachTheDelegateWithinTheTimeOut) {
  RKVTestHTTPServer stalled;
  stalled.setStallConnections(true);
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  server_.setRoute("/missing", RKVTestRoute::answer(404, vastXML({inlineAd("i404")})));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  RKVTestRoute slowLoop = RKVTestRoute::redirect("/slow-loop");
  slowLoop.delay = 300ms;
  server_.setRoute("/slow-loop", slowLoop);

  const std::string pixels = " [http://err.example/w] ";
  const std::string fetch = "start w | error VAST_WRAPPER_ERROR_FETCH" + pixels + "-";
  const std::string timedOut = "start w | error VAST_WRAPPER_ERROR_FETCH_TIMEOUT" + pixels + "-";
  const struct {
    std::string adTag;
    std::string calls;  // after "ready"
    std::string answer = kNoMoreAds;
  } cases[] = {
      {url("/noad"),
       "start w | error VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE [http://err.example/noad "
       "http://err.example/w] text | fail w"},
      {url("/missing"), "start w", "i404/1 | " + kNoMoreAds},  // the body of a 404 is read
      {url("/silent"), timedOut},
      {stalled.url("/stalled"), timedOut},
      {url("/slow-loop"), timedOut},  // redirects without end, each answer late
      {closed_, fetch},
      {"file:///etc/passwd", fetch},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.adTag);
    RKVTestAd wrapper = wrapperAd("w", c.adTag);
    wrapper.errors = {"http://err.example/w"};
    // 2 s leave a loaded or sanitized machine time to answer; only a hang exceeds the margin.
    auto manager = managerOver({wrapper}, {2.0, 5, false, false});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(drain(*manager), c.answer);
    EXPECT_LE(secondsSince(start), 3.0);
    EXPECT_EQ(delegate_->calls(), "ready | " + c.calls);
  }
}

TEST_F(RKVVASTManagerTest, PassbackWrappersResolveInParallelAndLaterResultsWaitTheirTurn) {
  const auto delay = 1000ms;
  std::vector<RKVTestAd> ads = {inlineAd("main")};
  for (const std::string n : {"1", "2", "3", "4"}) {
    serve("/slow" + n, {inlineAd("s" + n)}, delay);
    ads.push_back(wrapperAd("w" + n, url("/slow" + n)));
  }
  test::RKVLogCapture log;
  auto manager = managerOver(ads);
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, false)), "main/0");

  const auto start = std::chrono::steady_clock::now();
  const std::string first = answer(manager->nextAdWithTimeout(5.0, true));
  EXPECT_LT(secondsSince(start), 2 * std::chrono::duration<double>(delay).count())
      << "four fetches of " << delay.count() << " ms each ran one after the other";
  ASSERT_EQ(first.size(), 4u) << first;  // "s<n>/1"

  // The three results that lost the race wait in the inline passback store, each handed out once.
  ASSERT_TRUE(test::eventually([&] { return logged(log, "Resolved wrapper ad: ") == 4; }));
  Lines answers = {first};
  for (auto response = manager->nextAdWithTimeout(5.0, true); response.ad();
       response = manager->nextAdWithTimeout(5.0, true))
    answers.push_back(answer(response));
  std::sort(answers.begin(), answers.end());
  EXPECT_EQ(joined(answers), "s1/1 | s2/1 | s3/1 | s4/1");
  EXPECT_EQ(delegate_->calls(true), "ready | start w1 | start w2 | start w3 | start w4");
}

TEST_F(RKVVASTManagerTest, ADelegateMayCancelFromItsCallbackOrOutliveTheManager) {
  RKVTestAd late = inlineAd("late");
  late.hasTitle = false;  // reported when read
  serve("/late", {late}, 500ms);
  serve("/untitled", {late});
  serve("/fast", {inlineAd("fast")});
  {
    test::RKVLogCapture log;
    auto manager = managerOver(
        {inlineAd("main"), wrapperAd("w1", url("/fast")), wrapperAd("w2", url("/late"))});
    EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
    EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), "fast/1");
    ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/late") == 1; }));
    manager.reset();  // while /late is still being fetched
    ASSERT_TRUE(test::eventually([&] { return logged(log, "Resolved wrapper ad: late") == 1; }));
  }
  EXPECT_EQ(delegate_->calls(true), "ready | start w1 | start w2");

  auto manager = managerOver({});
  delegate_->onStart = [](RKVVASTManager& cancelled) { cancelled.cancel(); };
  manager->createAdsStoreWithXML(vastXML({wrapperAd("w", url("/untitled"))}), std::nullopt, 5.0);
  EXPECT_EQ(drain(*manager), "late/1 | " + kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w") << "no report of the missing title";
}

// One passback wrapper fails fast, ending the last wrapper taken up: the caller is woken with an
// empty slot. The other answers late, is consumed into that slot, and nobody hands it out.
TEST_F(RKVVASTManagerTest, AResultAfterTheCallerWasWokenEmptyGoesIntoTheSlotNobodyReads) {
  server_.setRoute("/fails", RKVTestRoute::answer(200, vastXML({}), 300ms));
  serve("/slow", {inlineAd("slow")}, 1500ms);
  auto manager =
      managerOver({inlineAd("main"), wrapperAd("f", url("/fails")), wrapperAd("s", url("/slow"))});
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kNoMorePassback);
  ASSERT_TRUE(test::eventually([&] {
    const RKVVASTManager::Ads store = manager->inlinePassbackAdsStore();
    return store.size() == 1 && store[0]->hasBeenConsumed();
  })) << "the late result was left unconsumed for a later call";
  EXPECT_EQ(drain(*manager, true), kNoMorePassback);
  EXPECT_EQ(delegate_->calls(true),
            "error VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE [] text | ready | start f | start s");
}

TEST_F(RKVVASTManagerTest, AskingWhileAPassbackResolvesAndCancellingDuringADelegateCall) {
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({})));
  auto manager = managerOver({inlineAd("main"), wrapperAd("w", url("/noad"))});
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  test::RKVTestEvent entered;
  test::RKVTestEvent release;
  std::atomic<bool> callEnded{false};
  delegate_->onStart = [&](RKVVASTManager&) {  // on the passback task's thread
    entered.set();
    EXPECT_TRUE(release.wait());
    callEnded = true;
  };
  auto resolving =
      std::async(std::launch::async, [&] { return answer(manager->nextAdWithTimeout(5.0, true)); });
  ASSERT_TRUE(entered.wait());
  // Another request while the passback wrapper resolves does not wait for it.
  EXPECT_TRUE(manager->isResolvingPassbackWrappers());
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  auto cancelling = std::async(std::launch::async, [&] {
    manager->cancel();
    return callEnded.load();
  });
  std::this_thread::sleep_for(200ms);  // lets cancel reach its wait; not a bound on anything
  release.set();
  ASSERT_EQ(cancelling.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_TRUE(cancelling.get()) << "cancel returned while a delegate call was under way";
  ASSERT_EQ(resolving.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(resolving.get(), kNoMorePassback);
  // The errors of the wrapper's answer were met after cancel.
  EXPECT_EQ(delegate_->calls(), "ready | start w");
}

// On a passback task's thread an exception would end the process; it is logged once instead, and
// resolution goes on (an adapter that threw made nothing of its ad).
TEST_F(RKVVASTManagerTest, ADelegateOrAdapterThatThrowsIsLoggedOnceAndResolutionGoesOn) {
  serve("/p", {inlineAd("p")});
  const struct {
    bool delegateThrows;
    std::string answers;
    std::string logged;
  } cases[] = {
      {true, "p/1 | " + kNoMorePassback,
       "RKVVASTManagerDelegate::didStartToResolveWrapperAd threw (delegate failure)"},
      {false, kNoMorePassback,
       "RKVVASTManagerAdapter::convertVASTAdToConsumableVideoAd threw (adapter failure)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.logged);
    auto manager = managerOver({inlineAd("main"), wrapperAd("w", url("/p"))});
    EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
    test::RKVLogCapture log;
    if (c.delegateThrows)
      delegate_->onStart = [](RKVVASTManager&) { throw std::runtime_error("delegate failure"); };
    adapter_->throws = !c.delegateThrows;
    EXPECT_EQ(drain(*manager, true), c.answers);
    adapter_->throws = false;
    EXPECT_EQ(log.errorMessages(), Lines{c.logged + "; the exception was dropped."});
    EXPECT_EQ(delegate_->calls(), "ready | start w");
  }
}

TEST_F(RKVVASTManagerTest, ADeadlineBoundsARequestThatWaitsForPassbackWrappers) {
  RKVVASTManagerConfig config(30.0, 5, false, false);
  EXPECT_FALSE(config.adRequestDeadline()) << "off by default";
  const std::string description = config.description();
  constexpr double kDeadline = 1.0;
  config.setAdRequestDeadline(kDeadline);
  EXPECT_EQ(config.description(), description);

  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  auto manager = managerOver(
      {inlineAd("main"), wrapperAd("w1", url("/silent")), wrapperAd("w2", url("/silent"))}, config);
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  EXPECT_GE(secondsSince(start), kDeadline);
  EXPECT_LT(secondsSince(start), kDeadline + 2.0) << "the fetches take 30 s";
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  // Destruction does not wait for the fetches either.
  manager.reset();
  EXPECT_LT(secondsSince(start), kDeadline + 2.0);
  EXPECT_EQ(server_.requestCount("/silent"), 2u);
}

// A transport that keeps every completion and never calls it.
class NeverCompletingProvider : public RKVURLSessionProviderProtocol {
 public:
  std::shared_ptr<RKVURLSessionTask> dataRequest(const RKVURLRequest& /*request*/,
                                                 RKVURLSessionCompletion completion) override {
    std::lock_guard lock(mutex_);
    kept_.push_back(std::move(completion));
    return std::make_shared<RKVURLSessionTask>();
  }
  // Destroys the completions uncalled, which ends any wait for them.
  void forget() {
    std::vector<RKVURLSessionCompletion> kept;
    std::lock_guard lock(mutex_);
    kept.swap(kept_);
  }

 private:
  std::mutex mutex_;
  std::vector<RKVURLSessionCompletion> kept_;
};

TEST_F(RKVVASTManagerTest, ATransportThatNeverCompletesDoesNotHangARequestForAnAd) {
  auto provider = std::make_shared<NeverCompletingProvider>();
  session_ = std::make_shared<RKVURLSession>(provider);
  std::shared_ptr<RKVVASTManager> manager =
      managerOver({wrapperAd("w", closed_)}, {1.0, 5, false, false});
  // On a thread of its own, so that a hang fails the test instead of stalling the suite.
  auto answered = std::make_shared<std::promise<std::string>>();
  std::future<std::string> answer_ = answered->get_future();
  std::thread([manager, answered] {
    answered->set_value(answer(manager->nextAdWithTimeout(5.0, false)));
  }).detach();
  const bool ended = answer_.wait_for(test::kHangGuard) == std::future_status::ready;
  provider->forget();  // ends the wait, had it hung
  ASSERT_TRUE(ended) << "the request for an ad waits for a completion that never comes";
  EXPECT_EQ(answer_.get(), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w | error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [] -");
}

// Five wrappers of 20 linear creatives with 20 events each, then an inline ad of the same shape.
// Pouring every creative's list into every creative at every level would grow 20-fold a level
// (beyond 2 GB at the fifth); merged without duplicates and under the ceiling, it costs little.
TEST_F(RKVVASTManagerTest, AChainBuiltToGrowStaysBounded) {
  const std::vector<std::string> levels = {"w1", "w2", "w3", "w4", "w5", "i"};
  for (size_t n = 1; n < levels.size(); ++n) {
    const std::string next = n + 1 < levels.size() ? server_.url("/" + levels[n + 1]) : "";
    server_.setRoute("/" + levels[n], RKVTestRoute::answer(200, levelXML(levels[n], next)));
  }
  test::RKVLogCapture log;
  rusage before{};
  getrusage(RUSAGE_SELF, &before);

  auto manager = managerOver({}, {10.0, 5, false, false});
  manager->createAdsStoreWithXML(levelXML("w1", server_.url("/w2")), std::nullopt, 10.0);
  RKVVASTManagerResponse response = manager->nextAdWithTimeout(10.0, false);

  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  // A few MB are expected; the unbounded merge needs gigabytes.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 256 * 1024) << "kilobytes";
  ASSERT_EQ(answer(response), "i/5");
  const auto ad = std::dynamic_pointer_cast<HandedOutAd>(response.ad())->ad;
  ASSERT_EQ(ad->linearCreatives().size(), static_cast<size_t>(kCreatives));

  // No creative holds an event twice; the ad holds its own events and at most the ceiling more.
  size_t held = 0;
  std::set<std::string> urls;
  for (const auto& creative : ad->linearCreatives()) {
    const Lines own = test::urlTexts(creative->trackingEvents());
    EXPECT_EQ(std::set<std::string>(own.begin(), own.end()).size(), own.size());
    held += own.size();
    urls.insert(own.begin(), own.end());
  }
  const size_t own = kCreatives * kEvents;
  EXPECT_EQ(ad->mergedEntryCount(), RKVVASTAd::kMaximumMergedEntries);
  EXPECT_EQ(held + ad->impressions().size(), own + 1 + RKVVASTAd::kMaximumMergedEntries);
  // Every level's impression is kept; the last wrapper's first creative follows the ad's events.
  EXPECT_EQ(ad->impressions().size(), levels.size());
  const Lines first = test::urlTexts(ad->linearCreatives()[0]->trackingEvents());
  ASSERT_GE(first.size(), static_cast<size_t>(2 * kEvents));
  for (int e = 0; e < kEvents; ++e)
    EXPECT_EQ(first[kEvents + e], "http://t.example/w5/0/" + std::to_string(e));
  EXPECT_TRUE(urls.contains("http://t.example/w1/0/0"));
  // One warning for each ad that reached the ceiling, naming it and the wrapper merged into it.
  Lines warnings;
  for (size_t n = 1; n < levels.size(); ++n)
    warnings.push_back("Merging wrapper ad '" + levels[n - 1] + "' into ad '" + levels[n] +
                       "': the ad reached its ceiling of 5000 merged entries; the rest of what "
                       "the wrapper brings is dropped.");
  EXPECT_EQ(log.messages(3), warnings);
}

std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name,
                                            std::optional<std::string> offset = std::nullopt) {
  return std::make_shared<RKVVASTTrackingEvent>(name, std::move(offset),
                                                url("http://t.example/" + name));
}

TEST(RKVVASTTrackingEventFactoryTest, OffsetsFromNamesAndAttributes) {
  // A clock offset or a percentage wins over the name; an offset of no known kind leaves the
  // name's; "pause" is fired by the player, not by time.
  // clang-format off
  const struct {
    std::string name;
    std::optional<std::string> offset;
    double expected;  // for a content of 30 s
  } cases[] = {
      {"start", std::nullopt, 0}, {"firstQuartile", std::nullopt, 7.5},
      {"midpoint", std::nullopt, 15}, {"thirdQuartile", std::nullopt, 22.5},
      {"complete", std::nullopt, 30}, {"midpoint", "00:00:05", 5}, {"midpoint", "10%", 3},
      {"midpoint", "soon", 15}, {"progress", "00:01:02.500", 62.5}, {"pause", std::nullopt, -1}};
  // clang-format on
  std::vector<std::shared_ptr<RKVVASTTrackingEvent>> events = {nullptr};  // left out
  for (const auto& c : cases) {
    events.push_back(event(c.name, c.offset));
    events.back()->setEventOffset(123);  // whatever it was, it is recomputed
  }
  RKVVASTTrackingEventFactory factory(events, 30);
  const auto tracking = factory.trackingEvents();
  ASSERT_EQ(tracking.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].name + " " + cases[i].offset.value_or("-"));
    EXPECT_EQ(tracking[i], events[i + 1]);  // the same objects, in order, changed in place
    EXPECT_DOUBLE_EQ(events[i + 1]->eventOffset(), cases[i].expected);
  }
  // Without a content length there is no share of it.
  RKVVASTTrackingEventFactory unknownLength({event("midpoint")}, 0);
  EXPECT_DOUBLE_EQ(unknownLength.events()[0]->eventOffset(), -1);
}

// A pixel manager that notes each pixel handed to addPixel, as a host watching the queue would.
struct WatchedPixelManager : RKVPixelManager {
  using RKVPixelManager::RKVPixelManager;
  bool addPixel(const RKVPixel& pixel) override {
    added.push_back(pixel.url().absoluteString());
    return RKVPixelManager::addPixel(pixel);
  }
  Lines added;
};

// A VAST pixel manager over a pixel manager whose store lives in memory.
struct VASTPixels {
  std::shared_ptr<WatchedPixelManager> manager = std::make_shared<WatchedPixelManager>(
      std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(
          std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()),
          "test")),
      testSession());
  RKVVASTPixelManager vast{manager};

  // Waits until the rounds requested so far have ended (rounds run one after the other).
  void waitForRounds() {
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    manager->callPixelsWithCompletionHandler([done] { done->set_value(); });
    ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  }
};

TEST(RKVVASTPixelManagerTest, ErrorPixelsCarryTheCodeOrAreNotCalled) {
  RKVTestHTTPServer server;
  server.setRoute("/error", RKVTestRoute::answer(200, ""));
  server.setRoute("/other", RKVTestRoute::answer(204, ""));
  VASTPixels pixels;
  test::RKVLogCapture capture;
  pixels.vast.callVASTErrorPixels(std::vector{RKVVASTURL(url("http://t.example/e"))}, -1);
  pixels.vast.callVASTErrorPixels(std::vector<RKVVASTURL>{}, 402);
  pixels.vast.callVASTErrorPixels(std::nullopt, 900);
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
  EXPECT_THAT(capture.debugMessages(),
              ElementsAre("Error pixels cannot be called for error code: -1",
                          "No error pixels to call for error code: 402",
                          "No error pixels to call for error code: 900"));
  for (int64_t code : {301, -2}) {
    SCOPED_TRACE(code);
    pixels.vast.callVASTErrorPixels(
        std::vector{RKVVASTURL(url(server.url("/error?code=[ERRORCODE]&n=1"))),
                    RKVVASTURL(url(server.url("/other?c=%5BERRORCODE%5D")))},
        code);
    pixels.waitForRounds();
  }
  // The round each call requests sends its pixels, in order; the macro is found either way.
  const Lines sent = {"/error?code=301&n=1", "/other?c=301", "/error?code=-2&n=1", "/other?c=-2"};
  Lines targets, added;
  for (const auto& request : server.requests())
    targets.push_back(request.target);
  for (const std::string& target : sent)
    added.push_back(server.url(target));
  EXPECT_EQ(targets, sent);
  EXPECT_EQ(pixels.manager->added, added);
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
}

}  // namespace
}  // namespace rkv
