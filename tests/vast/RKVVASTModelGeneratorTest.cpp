#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/errors/RKVVASTError.h"

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;
using test::RKVTestRoute;

const std::string kDocument =
    "<VAST version='4.0'><Ad id='a'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
    "<Creatives><Creative><Linear><Duration>00:00:10</Duration><MediaFiles>"
    "<MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles></Linear>"
    "</Creative></Creatives></InLine></Ad></VAST>";

RKVURL url(const std::string& text) {
  return *RKVURL::withString(text);
}

// A provider that answers every request at once with an empty record: no body, no response, no
// error, which the real transport never produces.
class EmptyAnswerProvider : public RKVURLSessionProviderProtocol {
 public:
  std::shared_ptr<RKVURLSessionTask> dataRequest(const RKVURLRequest&,
                                                 RKVURLSessionCompletion completion) override {
    completion(RKVURLSessionResponse{}, nullptr);
    return nullptr;
  }
};

class RKVVASTModelGeneratorTest : public ::testing::Test {
 protected:
  test::RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSession> session_ =
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>());
};

TEST_F(RKVVASTModelGeneratorTest, TheArgumentsAreTestedInOrder) {
  server_.setRoute("/vast", RKVTestRoute::answer(200, kDocument));
  const std::optional<RKVURL> vastURL = url(server_.url("/vast"));
  struct Case {
    const char* name;
    std::optional<std::string> xml;
    std::optional<RKVURL> url;
    double timeout;
    std::optional<int64_t> errorCode;
    std::optional<std::string> description;
  };
  const Case cases[] = {
      {"no time left, even with bytes", kDocument, vastURL, 0, 5031, "Connection timed out."},
      {"negative time-out", std::nullopt, std::nullopt, -1, 5031, "Connection timed out."},
      {"bytes win over the URL", kDocument, vastURL, 5, std::nullopt, std::nullopt},
      {"nothing to read", std::nullopt, std::nullopt, 5, 10002, "No XML Input."},
  };
  const RKVVASTModelGenerator generator(session_);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        generator.generateVASTModelFromXML(c.xml, c.url, c.timeout, recorder.outer());
    EXPECT_TRUE(recorder.reports().empty());
    EXPECT_EQ(response.model() != nullptr, !c.errorCode);
    if (c.errorCode) {
      ASSERT_TRUE(response.error());
      EXPECT_EQ(*response.error(), RKVError("RKVVASTErrorDomain", *c.errorCode, c.description));
    }
  }
  EXPECT_EQ(server_.requestCount("/vast"), 0u);
}

TEST_F(RKVVASTModelGeneratorTest, Download) {
  server_.setRoute("/vast", RKVTestRoute::answer(200, kDocument));
  server_.setRoute("/not-found", RKVTestRoute::answer(404, kDocument));
  server_.setRoute("/server-error", RKVTestRoute::answer(500, "<html>oops"));
  server_.setRoute("/empty", RKVTestRoute::answer(200, ""));
  server_.setRoute("/slow", RKVTestRoute::answer(200, kDocument, std::chrono::seconds(5)));
  const auto refused = "http://127.0.0.1:" + std::to_string(test::RKVTestHTTPServer::closedPort());
  const std::string unableToDownload = "Unable to download XML.";

  struct Case {
    const char* name;
    std::string url;
    bool isWrapper;
    double timeout;
    std::shared_ptr<RKVURLSession> session;  // null: the fixture's
    Strings reports;
    bool textReported;
    bool model;
    std::optional<RKVError> error;
  };
  const RKVError timedOut = RKVVASTError::VAST_WRAPPER_ERROR_FETCH_TIMEOUT().error();
  const Case cases[] = {
      {"answer", server_.url("/vast"), false, 5, nullptr, {}, false, true, std::nullopt},
      // An HTTP error status is no transport error: its body is read like any other.
      {"404 with a VAST body",
       server_.url("/not-found"),
       false,
       5,
       nullptr,
       {},
       false,
       true,
       std::nullopt},
      {"500 page",
       server_.url("/server-error"),
       false,
       5,
       nullptr,
       {"XML_PARSING_ERROR"},
       true,
       false,
       RKVVASTError::XML_PARSING_ERROR().error()},
      {"500 page for a wrapper",
       server_.url("/server-error"),
       true,
       5,
       nullptr,
       {"XML_PARSING_ERROR_WRAPPER"},
       true,
       false,
       RKVVASTError::XML_PARSING_ERROR_WRAPPER().error()},
      {"empty body",
       server_.url("/empty"),
       false,
       5,
       nullptr,
       {"XML_PARSING_ERROR"},
       true,
       false,
       RKVVASTError::XML_PARSING_ERROR().error()},
      // The download errors are the wrapper forms whatever isWrapper says.
      {"time-out",
       server_.url("/slow"),
       false,
       0.3,
       nullptr,
       {"VAST_WRAPPER_ERROR_FETCH_TIMEOUT"},
       false,
       false,
       timedOut},
      {"refused",
       refused + "/vast",
       false,
       5,
       nullptr,
       {"VAST_WRAPPER_ERROR_FETCH"},
       false,
       false,
       RKVError("RKVVASTErrorDomain", 10003, unableToDownload)},
      {"no exchange at all",
       server_.url("/vast"),
       false,
       5,
       std::make_shared<RKVURLSession>(nullptr),
       {"VAST_WRAPPER_ERROR"},
       false,
       false,
       RKVError("RKVVASTErrorDomain", 10003, unableToDownload)},
      {"no body and no error",
       server_.url("/vast"),
       true,
       5,
       std::make_shared<RKVURLSession>(std::make_shared<EmptyAnswerProvider>()),
       {},
       false,
       false,
       std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const RKVVASTModelGenerator generator(c.session ? c.session : session_, c.isWrapper);
    test::RKVReportRecorder recorder;
    const RKVVASTParserResponse response =
        generator.generateVASTModelFromXML(std::nullopt, url(c.url), c.timeout, recorder.outer());
    EXPECT_EQ(recorder.names(), c.reports);
    for (const auto& report : recorder.reports()) {
      EXPECT_TRUE(report.urls.empty());
      EXPECT_EQ(report.text.has_value(), c.textReported);
    }
    EXPECT_EQ(response.model() != nullptr, c.model);
    EXPECT_EQ(response.error(), c.error);
    if (response.error() && c.error && c.error->vastError) {
      ASSERT_TRUE(response.error()->vastError);
      EXPECT_EQ(response.error()->vastError->vireoCode(), c.error->vastError->vireoCode());
    }
  }
  // Cache policy 0 asks nothing of caches on the way.
  const auto requests = server_.requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_FALSE(requests[0].header("Cache-Control"));
}

}  // namespace
}  // namespace rkv
