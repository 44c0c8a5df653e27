#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTModelGenerator.h"

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using test::RKVTestRoute;

const std::string kDocument =
    "<VAST version='4.0'><Ad id='a'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
    "<Creatives><Creative><Linear><Duration>00:00:10</Duration><MediaFiles>"
    "<MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles></Linear>"
    "</Creative></Creatives></InLine></Ad></VAST>";

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

TEST(RKVVASTModelGeneratorTest, ArgumentsInOrderThenTheDownload) {
  test::RKVTestHTTPServer server;
  server.setRoute("/vast", RKVTestRoute::answer(200, kDocument));
  server.setRoute("/not-found", RKVTestRoute::answer(404, kDocument));
  server.setRoute("/server-error", RKVTestRoute::answer(500, "<html>oops"));
  server.setRoute("/empty", RKVTestRoute::answer(200, ""));
  server.setRoute("/slow", RKVTestRoute::answer(200, kDocument, std::chrono::seconds(5)));
  const auto session = std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>());
  const auto noExchange = std::make_shared<RKVURLSession>(nullptr);
  const auto emptyAnswer = std::make_shared<RKVURLSession>(std::make_shared<EmptyAnswerProvider>());
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(test::RKVTestHTTPServer::closedPort());
  const std::string parsing = "XML_PARSING_ERROR; no model, 100/100001";
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
      // An HTTP error status is no transport error: its body is read like any other.
      {std::nullopt, "/not-found", 5, false, session, "model"},
      {std::nullopt, "/server-error", 5, false, session, parsing},
      {std::nullopt, "/server-error", 5, true, session,
       "XML_PARSING_ERROR_WRAPPER; no model, 303/100002"},
      {std::nullopt, "/empty", 5, false, session, parsing},
      // The download errors are the wrapper forms whatever the generator reads for.
      {std::nullopt, "/slow", 0.3, false, session,
       "VAST_WRAPPER_ERROR_FETCH_TIMEOUT; no model, 301/301003"},
      {std::nullopt, refused + "/vast", 5, false, session,
       "VAST_WRAPPER_ERROR_FETCH" + unableToDownload},
      {std::nullopt, "/vast", 5, false, noExchange, "VAST_WRAPPER_ERROR" + unableToDownload},
      {std::nullopt, "/vast", 5, true, emptyAnswer, "no model"},
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
