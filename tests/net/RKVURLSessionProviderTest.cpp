// The production provider against real servers on 127.0.0.1.
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSessionProvider.h"

#include "tests/net/RKVNetTestSupport.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestTLSServer.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVCompletionRecorder;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using test::RKVTestServerBehavior;

constexpr size_t kResponseLimit = 256 * 1024;
constexpr long kRedirectLimit = 3;

RKVURL url(const std::string& text) {
  auto parsed = RKVURL::withString(text);
  EXPECT_TRUE(parsed) << text;
  return parsed ? *parsed : *RKVURL::withString("http://127.0.0.1/");
}

class RKVURLSessionProviderTest : public ::testing::Test {
 protected:
  RKVURLSessionProviderTest() {
    RKVURLSessionConfiguration configuration;
    configuration.maximumResponseBytes = kResponseLimit;
    configuration.maximumRedirects = kRedirectLimit;
    provider_ = std::make_shared<RKVURLSessionProvider>(configuration);
  }

  // Makes the request and waits for its one completion.
  test::RKVRecordedCompletion fetch(const RKVURLRequest& request) {
    RKVCompletionRecorder recorder(provider_);
    auto task = provider_->dataRequest(request, recorder.handler());
    EXPECT_TRUE(recorder.waitFor(1)) << request.URL();
    auto completions = recorder.completions();
    if (completions.empty()) return {};
    EXPECT_EQ(completions[0].task, task) << "the completion hands back the task returned";
    EXPECT_TRUE(completions[0].onCompletionThread);
    return completions[0];
  }

  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSessionProvider> provider_;
};

TEST_F(RKVURLSessionProviderTest, AnswersOfEveryStatusCarryTheirBodyAndNoError) {
  RKVTestRoute ok = RKVTestRoute::answer(200, "hello");
  ok.headers = {{"X-Test", "one"}, {"x-test", "two"}, {"Content-Type", "text/xml"}};
  server_.setRoute("/ok", ok);
  server_.setRoute("/missing", RKVTestRoute::answer(404, "no such ad"));
  server_.setRoute("/broken", RKVTestRoute::answer(500, ""));
  server_.setRoute("/moved", RKVTestRoute::redirect("/ok?from=moved"));
  server_.setRoute("/see-other", RKVTestRoute::redirect(server_.url("/missing"), 303));

  struct Case {
    std::string path;
    int64_t status;
    std::string body;
    std::string finalPath;
  };
  const Case cases[] = {
      {"/ok", 200, "hello", "/ok"},
      {"/missing", 404, "no such ad", "/missing"},
      {"/broken", 500, "", "/broken"},
      {"/moved", 200, "hello", "/ok?from=moved"},
      {"/see-other", 404, "no such ad", "/missing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    auto result = fetch(RKVURLRequest(url(server_.url(c.path))));
    EXPECT_FALSE(result.response.error);
    ASSERT_TRUE(result.response.data);
    EXPECT_EQ(*result.response.data, c.body);
    ASSERT_TRUE(result.response.response);
    EXPECT_EQ(result.response.response->statusCode(), c.status);
    EXPECT_EQ(result.response.response->URL().absoluteString(), server_.url(c.finalPath));
  }

  auto result = fetch(RKVURLRequest(url(server_.url("/moved"))));
  ASSERT_TRUE(result.response.response);
  // Only the final answer's fields; repeated ones joined in order.
  EXPECT_EQ(result.response.response->valueForHTTPHeaderField("X-TEST"), "one, two");
  EXPECT_EQ(result.response.response->valueForHTTPHeaderField("content-type"), "text/xml");
  EXPECT_FALSE(result.response.response->valueForHTTPHeaderField("Location"));
}

TEST_F(RKVURLSessionProviderTest, RequestsCarryTheirMethodFieldsAndBody) {
  server_.setRoute("/echo", RKVTestRoute::answer(200, "fine"));

  RKVURLRequest post(url(server_.url("/echo")));
  post.setHTTPMethod("POST");
  post.setValue("application/json", "Content-Type");
  post.setValue("a\r\nInjected: yes", "X-Evil");
  post.setValue("", "X-Empty");
  post.setHTTPBody(std::string("jsonMessage={\"a\":1}"));
  EXPECT_FALSE(fetch(post).response.error);

  RKVURLRequest head(url(server_.url("/echo")));
  head.setHTTPMethod("HEAD");
  auto headResult = fetch(head);
  EXPECT_FALSE(headResult.response.error);
  EXPECT_EQ(headResult.response.data, std::string());

  RKVURLRequest getWithBody(url(server_.url("/echo?q=1")));
  getWithBody.setHTTPBody(std::string("ignored"));
  EXPECT_FALSE(fetch(getWithBody).response.error);

  RKVURLRequest put(url(server_.url("/echo")));
  put.setHTTPMethod("PUT");
  put.setHTTPBody(std::string("replacement"));
  EXPECT_FALSE(fetch(put).response.error);

  RKVURLRequest badMethod(url(server_.url("/echo")));
  badMethod.setHTTPMethod("GET /x HTTP/1.1\r\n");
  auto refused = fetch(badMethod);
  ASSERT_TRUE(refused.response.error);
  EXPECT_EQ(refused.response.error->code, RKVURLError::Unknown);

  auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].body, "jsonMessage={\"a\":1}");
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_EQ(requests[0].header("X-Empty"), "");
  EXPECT_FALSE(requests[0].header("X-Evil"));
  EXPECT_FALSE(requests[0].header("Injected"));
  EXPECT_FALSE(requests[0].header("Expect"));
  EXPECT_EQ(requests[1].method, "HEAD");
  EXPECT_EQ(requests[2].method, "GET");
  EXPECT_EQ(requests[2].target, "/echo?q=1");
  EXPECT_EQ(requests[2].body, "");
  EXPECT_EQ(requests[3].method, "PUT");
  EXPECT_EQ(requests[3].body, "replacement");
}

TEST_F(RKVURLSessionProviderTest, CachePoliciesOnlyShapeTheRequestFields) {
  server_.setRoute("/pixel", RKVTestRoute::answer(200, ""));
  struct Case {
    int64_t policy;
    std::optional<std::string> ownCacheControl;
    std::optional<std::string> cacheControl;
    std::optional<std::string> pragma;
  };
  const Case cases[] = {
      {RKVURLRequest::UseProtocolCachePolicy, std::nullopt, std::nullopt, std::nullopt},
      {RKVURLRequest::ReloadIgnoringLocalCacheData, std::nullopt, "no-cache", std::nullopt},
      {RKVURLRequest::ReloadIgnoringLocalAndRemoteCacheData, std::nullopt, "no-cache", "no-cache"},
      {RKVURLRequest::ReloadIgnoringLocalAndRemoteCacheData, "max-age=0", "max-age=0", "no-cache"},
      {RKVURLRequest::ReturnCacheDataElseLoad, std::nullopt, std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.policy);
    RKVURLRequest request(url(server_.url("/pixel")), c.policy, 10.0);
    if (c.ownCacheControl) request.setValue(*c.ownCacheControl, "cache-control");
    ASSERT_FALSE(fetch(request).response.error);
    auto sent = server_.requests().back();
    EXPECT_EQ(sent.header("Cache-Control"), c.cacheControl);
    EXPECT_EQ(sent.header("Pragma"), c.pragma);
  }

  // Nothing is ever cached, so "cached answer only" cannot be served and loads nothing.
  const size_t before = server_.requests().size();
  auto result =
      fetch(RKVURLRequest(url(server_.url("/pixel")), RKVURLRequest::ReturnCacheDataDontLoad));
  ASSERT_TRUE(result.response.error);
  EXPECT_EQ(result.response.error->code, RKVURLError::ResourceUnavailable);
  EXPECT_EQ(server_.requests().size(), before);
}

TEST_F(RKVURLSessionProviderTest, TransportFailuresBecomeURLErrors) {
  RKVTestRoute drip = RKVTestRoute::misbehaving(RKVTestServerBehavior::Drip);
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  server_.setRoute("/drip", drip);
  server_.setRoute("/reset", RKVTestRoute::misbehaving(RKVTestServerBehavior::Reset));
  server_.setRoute("/hang-up", RKVTestRoute::misbehaving(RKVTestServerBehavior::Close));
  server_.setRoute("/endless", RKVTestRoute::misbehaving(RKVTestServerBehavior::EndlessBody));
  RKVTestRoute announcedTooLong = RKVTestRoute::answer(200, "short");
  announcedTooLong.headers = {{"Content-Length", std::to_string(kResponseLimit + 1)}};
  server_.setRoute("/too-long", announcedTooLong);
  server_.setRoute("/just-fits", RKVTestRoute::answer(200, std::string(kResponseLimit, 'a')));
  server_.setRoute("/loop", RKVTestRoute::redirect("/loop"));
  server_.setRoute("/to-file", RKVTestRoute::redirect("file:///etc/passwd"));
  server_.setRoute("/to-ftp", RKVTestRoute::redirect("ftp://127.0.0.1/"));
  const std::string refused = "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort());

  struct Case {
    std::string url;
    double timeout;
    int64_t code;
  };
  // Every time-out is short: the whole transfer is bounded, so a server that drips a byte a
  // second still times out.
  const std::vector<Case> cases = {
      {server_.url("/silent"), 1.0, RKVURLError::TimedOut},
      {server_.url("/drip"), 2.0, RKVURLError::TimedOut},
      {server_.url("/reset"), 30.0, RKVURLError::NetworkConnectionLost},
      {server_.url("/hang-up"), 30.0, RKVURLError::NetworkConnectionLost},
      {server_.url("/endless"), 30.0, RKVURLError::DataLengthExceedsMaximum},
      {server_.url("/too-long"), 30.0, RKVURLError::DataLengthExceedsMaximum},
      {server_.url("/loop"), 30.0, RKVURLError::HTTPTooManyRedirects},
      {server_.url("/to-file"), 30.0, RKVURLError::UnsupportedURL},
      {server_.url("/to-ftp"), 30.0, RKVURLError::UnsupportedURL},
      {refused + "/", 30.0, RKVURLError::CannotConnectToHost},
      {"file:///etc/passwd", 30.0, RKVURLError::UnsupportedURL},
      {"ftp://127.0.0.1:" + std::to_string(server_.port()) + "/", 30.0,
       RKVURLError::UnsupportedURL},
      {"relative/path", 30.0, RKVURLError::UnsupportedURL},
  };
  // All at once, as the network thread has to cope with them side by side.
  std::vector<RKVCompletionRecorder> recorders;
  std::vector<std::shared_ptr<RKVURLSessionTask>> tasks;
  for (const auto& c : cases) {
    recorders.emplace_back(provider_);
    tasks.push_back(provider_->dataRequest(RKVURLRequest(url(c.url), 0, c.timeout),
                                           recorders.back().handler()));
  }
  RKVCompletionRecorder fits(provider_);
  provider_->dataRequest(RKVURLRequest(url(server_.url("/just-fits"))), fits.handler());

  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].url);
    ASSERT_TRUE(recorders[i].waitFor(1));
    auto completion = recorders[i].completions()[0];
    EXPECT_EQ(completion.task, tasks[i]);
    EXPECT_TRUE(completion.onCompletionThread);
    ASSERT_TRUE(completion.response.error);
    EXPECT_EQ(completion.response.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(completion.response.error->code, cases[i].code)
        << completion.response.error->description();
    EXPECT_FALSE(completion.response.data);
    EXPECT_FALSE(completion.response.response);
  }
  ASSERT_TRUE(fits.waitFor(1));
  EXPECT_EQ(fits.completions()[0].response.data->size(), kResponseLimit);
  // The redirect limit counts redirects: the first request and kRedirectLimit more.
  EXPECT_EQ(server_.requestCount("/loop"), static_cast<size_t>(kRedirectLimit + 1));

  // A barrier: a duplicate completion of any of the above would have run before this one.
  fetch(RKVURLRequest(url(server_.url("/just-fits"))));
  for (const auto& recorder : recorders)
    EXPECT_EQ(recorder.count(), 1u);
}

TEST_F(RKVURLSessionProviderTest, CancelEndsARequestOnceWithTheCancellationError) {
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  server_.setRoute("/ok", RKVTestRoute::answer(200, "ok"));
  RKVCompletionRecorder recorder(provider_);
  auto task =
      provider_->dataRequest(RKVURLRequest(url(server_.url("/silent"))), recorder.handler());
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  task->cancel();
  task->cancel();
  ASSERT_TRUE(recorder.waitFor(1));
  auto completion = recorder.completions()[0];
  EXPECT_EQ(completion.task, task);
  EXPECT_TRUE(completion.onCompletionThread);
  ASSERT_TRUE(completion.response.error);
  EXPECT_EQ(completion.response.error->code, RKVURLError::Cancelled);
  EXPECT_FALSE(completion.response.data);

  // Cancelling a finished request changes nothing.
  auto finished = fetch(RKVURLRequest(url(server_.url("/ok"))));
  finished.task->cancel();
  task->cancel();
  fetch(RKVURLRequest(url(server_.url("/ok"))));
  EXPECT_EQ(recorder.count(), 1u);

  // Identifiers tell the tasks of one provider apart.
  EXPECT_TRUE(task->identifier());
  EXPECT_NE(task->identifier(), finished.task->identifier());
}

TEST_F(RKVURLSessionProviderTest, ReleasingTheTaskNeitherCancelsNorLosesTheCompletion) {
  server_.setRoute("/slow", RKVTestRoute::answer(200, "late", 200ms));
  RKVCompletionRecorder recorder(provider_);
  provider_->dataRequest(RKVURLRequest(url(server_.url("/slow"))), recorder.handler());
  ASSERT_TRUE(recorder.waitFor(1));
  auto completion = recorder.completions()[0];
  EXPECT_EQ(completion.response.data, "late");
  ASSERT_TRUE(completion.task);
}

TEST_F(RKVURLSessionProviderTest, RequestsToOneHostReuseTheirConnection) {
  server_.setRoute("/doc", RKVTestRoute::answer(200, "<VAST/>"));
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(fetch(RKVURLRequest(url(server_.url("/doc")))).response.data, "<VAST/>");
  EXPECT_EQ(server_.connectionCount(), 1);
}

TEST_F(RKVURLSessionProviderTest, ParallelRequestsFromManyThreadsAllComplete) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 8;
  for (int i = 0; i < kThreads * kPerThread; ++i) {
    server_.setRoute("/r" + std::to_string(i),
                     RKVTestRoute::answer(200, "body" + std::to_string(i), 20ms));
  }
  RKVCompletionRecorder recorder(provider_);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = t * kPerThread; i < (t + 1) * kPerThread; ++i) {
        RKVURLRequest request(url(server_.url("/r" + std::to_string(i))));
        request.setValue(std::to_string(i), "X-Index");
        provider_->dataRequest(request, recorder.handler());
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  ASSERT_TRUE(recorder.waitFor(kThreads * kPerThread));
  for (const auto& completion : recorder.completions()) {
    ASSERT_TRUE(completion.response.data);
    ASSERT_TRUE(completion.response.response);
    const std::string_view path = completion.response.response->URL().path();  // "/r<i>"
    EXPECT_EQ(*completion.response.data, "body" + std::string(path.substr(2)));
  }
  // Connections per host are capped (6 by default).
  EXPECT_LE(server_.connectionCount(), 6);
}

TEST_F(RKVURLSessionProviderTest, APeerResetWhileSendingIsAnErrorNotASignal) {
  // The default action of SIGPIPE ends the process; it must never reach it.
  struct sigaction previous {};
  struct sigaction defaultAction {};
  defaultAction.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &defaultAction, &previous);

  server_.setRoute("/reset", RKVTestRoute::misbehaving(RKVTestServerBehavior::Reset));
  RKVURLRequest upload(url(server_.url("/reset")));
  upload.setHTTPMethod("POST");
  upload.setHTTPBody(std::string(16 * 1024 * 1024, 'p'));
  auto result = fetch(upload);
  ASSERT_TRUE(result.response.error);
  EXPECT_EQ(result.response.error->code, RKVURLError::NetworkConnectionLost);

  sigaction(SIGPIPE, &previous, nullptr);
}

TEST_F(RKVURLSessionProviderTest, ShutdownEndsRequestsInFlightAndJoinsItsThread) {
  server_.setStallConnections(true);
  RKVCompletionRecorder recorder(provider_);
  std::vector<std::shared_ptr<RKVURLSessionTask>> tasks;
  for (int i = 0; i < 4; ++i) {
    tasks.push_back(provider_->dataRequest(RKVURLRequest(url(server_.url("/stalled")), 0, 600.0),
                                           recorder.handler()));
  }
  ASSERT_TRUE(test::eventually([&] { return server_.connectionCount() == 4; }));

  auto stopped = std::async(std::launch::async, [&] { provider_->shutdown(); });
  ASSERT_EQ(stopped.wait_for(test::kHangGuard), std::future_status::ready);
  // Every completion ran before shutdown() returned.
  ASSERT_EQ(recorder.count(), 4u);
  for (const auto& completion : recorder.completions()) {
    ASSERT_TRUE(completion.response.error);
    EXPECT_EQ(completion.response.error->code, RKVURLError::Cancelled);
  }
  EXPECT_FALSE(provider_->isCompletionThread());

  // Afterwards requests end at once, and cancelling changes nothing.
  RKVCompletionRecorder late;
  auto task = provider_->dataRequest(RKVURLRequest(url(server_.url("/stalled"))), late.handler());
  ASSERT_EQ(late.count(), 1u);
  EXPECT_EQ(late.completions()[0].task, task);
  EXPECT_EQ(late.completions()[0].response.error->code, RKVURLError::Cancelled);
  task->cancel();
  tasks[0]->cancel();
  provider_->shutdown();
  EXPECT_EQ(late.count(), 1u);
  EXPECT_EQ(recorder.count(), 4u);
}

TEST_F(RKVURLSessionProviderTest, AProviderReleasedByItsOwnCompletionStopsCleanly) {
  server_.setRoute("/ok", RKVTestRoute::answer(200, "ok"));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  auto holder = std::make_shared<std::shared_ptr<RKVURLSessionProvider>>(std::move(provider_));
  RKVCompletionRecorder pending;
  (*holder)->dataRequest(RKVURLRequest(url(server_.url("/silent"))), pending.handler());
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  RKVCompletionRecorder last;
  auto releaseProvider = last.handler();
  (*holder)->dataRequest(RKVURLRequest(url(server_.url("/ok"))),
                         [holder, releaseProvider](RKVURLSessionResponse response,
                                                   std::shared_ptr<RKVURLSessionTask> task) {
                           holder->reset();  // the last reference: destroyed on its own thread
                           releaseProvider(std::move(response), std::move(task));
                         });
  holder.reset();
  ASSERT_TRUE(last.waitFor(1));
  ASSERT_TRUE(pending.waitFor(1));
  EXPECT_EQ(pending.completions()[0].response.error->code, RKVURLError::Cancelled);
}

TEST(RKVURLSessionProviderTLSTest, CertificatesAreVerified) {
  test::RKVTestTLSServer server("secure");
  ASSERT_TRUE(server.isRunning()) << "needs the openssl command";
  const auto target = *RKVURL::withString(server.url("/vast.xml"));

  auto untrusting = std::make_shared<RKVURLSessionProvider>();
  RKVCompletionRecorder refused(untrusting);
  untrusting->dataRequest(RKVURLRequest(target), refused.handler());
  ASSERT_TRUE(refused.waitFor(1));
  ASSERT_TRUE(refused.completions()[0].response.error);
  EXPECT_EQ(refused.completions()[0].response.error->code, RKVURLError::ServerCertificateUntrusted);
  EXPECT_FALSE(refused.completions()[0].response.data);

  // The same server is fine once its certificate is trusted: the failure above was the
  // verification, not the connection.
  RKVURLSessionConfiguration configuration;
  configuration.certificateAuthorityFile = server.certificateFile().string();
  auto trusting = std::make_shared<RKVURLSessionProvider>(configuration);
  RKVCompletionRecorder accepted(trusting);
  trusting->dataRequest(RKVURLRequest(target), accepted.handler());
  ASSERT_TRUE(accepted.waitFor(1));
  EXPECT_FALSE(accepted.completions()[0].response.error);
  EXPECT_EQ(accepted.completions()[0].response.data, "secure");
}

}  // namespace
}  // namespace rkv
