// The production provider against real servers on 127.0.0.1.
#include <algorithm>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <strings.h>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSessionProvider.h"

#include "tests/net/RKVNetTestSupport.h"
#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestTLSServer.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVCompletionRecorder;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using Behavior = test::RKVTestServerBehavior;

constexpr size_t kResponseLimit = 256 * 1024;
constexpr long kRedirectLimit = 3;

// SIGPIPE's default action ends the process: while this lives, a peer's reset must never reach it.
struct DefaultSigpipe {
  DefaultSigpipe() {
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &defaultAction, &previous);
  }
  ~DefaultSigpipe() { sigaction(SIGPIPE, &previous, nullptr); }
  struct sigaction previous {};
};

class RKVURLSessionProviderTest : public ::testing::Test {
 protected:
  RKVURLRequest request(const std::string& path, double timeout = 30, int64_t policy = 0) const {
    return RKVURLRequest(*RKVURL::withString(server_.url(path)), policy, timeout);
  }

  struct Started {
    RKVCompletionRecorder recorder;
    std::shared_ptr<RKVURLSessionTask> task;
  };
  Started start(const RKVURLRequest& request) {
    RKVCompletionRecorder recorder(provider_);
    return {recorder, provider_->dataRequest(request, recorder.handler())};
  }
  // Waits for the request's one completion, on the network thread with the task that
  // dataRequest returned.
  test::RKVRecordedCompletion finish(const Started& started) {
    EXPECT_TRUE(started.recorder.waitFor(1));
    auto completions = started.recorder.completions();
    if (completions.empty()) return {};
    EXPECT_EQ(completions[0].task, started.task);
    EXPECT_TRUE(completions[0].onCompletionThread);
    return completions[0];
  }
  test::RKVRecordedCompletion fetch(const RKVURLRequest& request) { return finish(start(request)); }

  // A large POST to /reset: the server resets the connection while the body is being sent.
  RKVURLRequest upload() const {
    RKVURLRequest made = request("/reset");
    made.setHTTPMethod("POST");
    made.setHTTPBody(std::string(16 * 1024 * 1024, 'p'));
    return made;
  }

  static int64_t errorCode(const std::optional<RKVURLSessionResponse>& response) {
    return response && response->error ? response->error->code : 0;
  }
  static int64_t errorCode(const test::RKVRecordedCompletion& completion) {
    return errorCode(completion.response);
  }

  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSessionProvider> provider_ = [] {
    RKVURLSessionConfiguration configuration;
    configuration.maximumResponseBytes = kResponseLimit;
    configuration.maximumRedirects = kRedirectLimit;
    return std::make_shared<RKVURLSessionProvider>(configuration);
  }();
};

TEST_F(RKVURLSessionProviderTest, AnswersOfEveryStatusCarryTheirBodyAndNoError) {
  RKVTestRoute ok = RKVTestRoute::answer(200, "hello");
  ok.headers = {{"X-Test", "one"}, {"x-test", "two"}, {"Content-Type", "text/xml"}};
  server_.setRoute("/ok", ok);
  server_.setRoute("/missing", RKVTestRoute::answer(404, "no such ad"));
  server_.setRoute("/moved", RKVTestRoute::redirect("/ok?from=moved"));
  // Path, status, body, final path.
  const std::tuple<std::string, int64_t, std::string, std::string> cases[] = {
      {"/ok", 200, "hello", "/ok"},
      {"/missing", 404, "no such ad", "/missing"},
      {"/moved", 200, "hello", "/ok?from=moved"},
  };
  for (const auto& [path, status, body, finalPath] : cases) {
    auto result = fetch(request(path));
    EXPECT_FALSE(result.response.error) << path;
    EXPECT_EQ(result.response.data, body) << path;
    ASSERT_TRUE(result.response.response) << path;
    EXPECT_EQ(result.response.response->statusCode(), status);
    EXPECT_EQ(result.response.response->URL().absoluteString(), server_.url(finalPath));
  }
  // Only the final answer's fields; repeated ones joined in order.
  auto moved = fetch(request("/moved")).response.response;
  EXPECT_EQ(moved->valueForHTTPHeaderField("X-TEST"), "one, two");
  EXPECT_EQ(moved->valueForHTTPHeaderField("content-type"), "text/xml");
  EXPECT_FALSE(moved->valueForHTTPHeaderField("Location"));
}

TEST_F(RKVURLSessionProviderTest, RequestsCarryTheirMethodFieldsAndBody) {
  server_.setRoute("/echo", RKVTestRoute::answer(200, "fine"));
  auto with = [&](const std::string& path, const char* method, std::optional<std::string> body) {
    RKVURLRequest made = request(path);
    made.setHTTPMethod(method);
    if (body) made.setHTTPBody(*body);
    return made;
  };
  RKVURLRequest post = with("/echo", "POST", "jsonMessage={\"a\":1}");
  // Field names ignore case: a value replaces or joins the field of any spelling.
  post.setValue("text/plain", "Content-Type");
  post.setValue("application/json", "content-type");
  post.addValue("gzip", "Accept-Encoding");
  post.addValue("br", "ACCEPT-ENCODING");
  post.setValue("a\r\nInjected: yes", "X-Evil");
  post.setValue("", "X-Empty");
  // Names that are not tokens are never sent; every character a token may hold is.
  const std::string bad[] = {
      "",     "X Y",  "X\tY",   "X:Y",       "X(Y",    "X)Y",  "X,Y",  "X/Y", "X;Y",
      "X<Y",  "X=Y",  "X>Y",    "X?Y",       "X@Y",    "X[Y",  "X]Y",  "X{Y", "X}Y",
      "X\"Y", "X\\Y", "X\x7fY", "X\xc3\xa9", "X\x01Y", "X\rY", "X\nY",
  };
  for (size_t i = 0; i < std::size(bad); ++i)
    post.setValue("refused-" + std::to_string(i), bad[i]);
  post.setValue("token", "X-Tok!#$%&'*+-.^_`|~9");
  EXPECT_FALSE(fetch(post).response.error);
  EXPECT_EQ(fetch(with("/echo", "HEAD", std::nullopt)).response.data, std::string());
  EXPECT_FALSE(fetch(with("/echo?q=1", "GET", "ignored")).response.error);
  EXPECT_EQ(errorCode(fetch(with("/echo", "GET /x HTTP/1.1\r\n", std::nullopt))),
            RKVURLError::Unknown);

  auto sent = server_.requests();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].method + " " + sent[0].body, "POST jsonMessage={\"a\":1}");
  EXPECT_EQ(sent[0].header("Content-Type"), "application/json");
  EXPECT_EQ(sent[0].header("Accept-Encoding"), "gzip,br");
  EXPECT_EQ(sent[0].header("X-Empty"), "");
  EXPECT_FALSE(sent[0].header("X-Evil") || sent[0].header("Injected") || sent[0].header("Expect"));
  for (const auto& [name, value] : sent[0].headers)
    EXPECT_EQ(value.find("refused-"), std::string::npos) << "sent " << name << ": " << value;
  EXPECT_EQ(sent[0].header("X-Tok!#$%&'*+-.^_`|~9"), "token");
  EXPECT_EQ(sent[1].method, "HEAD");
  EXPECT_EQ(sent[2].method + " " + sent[2].target + " " + sent[2].body, "GET /echo?q=1 ");
}

TEST_F(RKVURLSessionProviderTest, CachePoliciesAddNoFields) {
  server_.setRoute("/pixel", RKVTestRoute::answer(200, ""));
  auto isCacheControl = [](const auto& f) { return !strcasecmp(f.first.c_str(), "Cache-Control"); };
  // Nothing is ever cached here, so every policy that may load simply loads; the caller's own
  // Cache-Control goes out as set, alone.
  for (int64_t policy :
       {RKVURLRequest::UseProtocolCachePolicy, RKVURLRequest::ReloadIgnoringLocalCacheData,
        RKVURLRequest::ReturnCacheDataElseLoad,
        RKVURLRequest::ReloadIgnoringLocalAndRemoteCacheData,
        RKVURLRequest::ReloadRevalidatingCacheData}) {
    for (bool own : {false, true}) {
      RKVURLRequest made = request("/pixel", 10, policy);
      if (own) made.setValue("max-age=0", "cache-control");
      // Both ways a request is run: the network thread's and the caller's.
      ASSERT_FALSE(fetch(made).response.error);
      ASSERT_FALSE(provider_->synchronousDataRequest(made)->error);
      auto sent = server_.requests();
      for (size_t i = sent.size() - 2; i < sent.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "policy " << policy << (own ? ", own field" : ""));
        EXPECT_FALSE(sent[i].header("Pragma"));
        EXPECT_EQ(sent[i].header("Cache-Control"),
                  own ? std::optional<std::string>("max-age=0") : std::nullopt);
        EXPECT_EQ(std::ranges::count_if(sent[i].headers, isCacheControl), own ? 1 : 0);
      }
    }
  }
  // Nothing is ever cached, so "cached answer only" cannot be served and loads nothing.
  const size_t before = server_.requests().size();
  EXPECT_EQ(errorCode(fetch(request("/pixel", 30, RKVURLRequest::ReturnCacheDataDontLoad))),
            RKVURLError::ResourceUnavailable);
  EXPECT_EQ(server_.requests().size(), before);
}

TEST_F(RKVURLSessionProviderTest, TransportFailuresBecomeURLErrors) {
  DefaultSigpipe sigpipe;
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  server_.setRoute("/drip", RKVTestRoute::misbehaving(Behavior::Drip));
  server_.setRoute("/reset", RKVTestRoute::misbehaving(Behavior::Reset));
  server_.setRoute("/endless", RKVTestRoute::misbehaving(Behavior::EndlessBody));
  server_.setRoute("/not-http", RKVTestRoute::misbehaving(Behavior::NotHTTP));
  RKVTestRoute announcedTooLong = RKVTestRoute::answer(200, "short");
  announcedTooLong.headers = {{"Content-Length", std::to_string(kResponseLimit + 1)}};
  server_.setRoute("/too-long", announcedTooLong);
  server_.setRoute("/just-fits", RKVTestRoute::answer(200, std::string(kResponseLimit, 'a')));
  server_.setRoute("/loop", RKVTestRoute::redirect("/loop"));
  server_.setRoute("/to-file", RKVTestRoute::redirect("file:///etc/passwd"));
  const std::string refused = "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort());
  // The whole transfer is bounded, so a server that drips a byte a second still times out.
  const std::pair<RKVURLRequest, int64_t> cases[] = {
      {request("/silent", 1.0), RKVURLError::TimedOut},
      {request("/drip", 2.0), RKVURLError::TimedOut},
      {request("/reset"), RKVURLError::NetworkConnectionLost},
      {upload(), RKVURLError::NetworkConnectionLost},
      {request("/endless"), RKVURLError::DataLengthExceedsMaximum},
      {request("/too-long"), RKVURLError::DataLengthExceedsMaximum},
      {request("/loop"), RKVURLError::HTTPTooManyRedirects},
      {request("/to-file"), RKVURLError::UnsupportedURL},
      // libcurl refuses an answer without status line as it refuses a scheme; this is the server.
      {request("/not-http"), RKVURLError::BadServerResponse},
      {RKVURLRequest(*RKVURL::withString(refused + "/")), RKVURLError::CannotConnectToHost},
      {RKVURLRequest(*RKVURL::withString("file:///etc/passwd")), RKVURLError::UnsupportedURL},
      {RKVURLRequest(*RKVURL::withString("relative/path")), RKVURLError::UnsupportedURL},
  };
  // All at once, as the network thread has to cope with them side by side.
  std::vector<Started> started;
  for (const auto& [failing, code] : cases)
    started.push_back(start(failing));
  const Started fits = start(request("/just-fits"));
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].first.URL().absoluteString() + " " + cases[i].first.HTTPMethod());
    auto completion = finish(started[i]);
    ASSERT_TRUE(completion.response.error);
    EXPECT_EQ(completion.response.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(completion.response.error->code, cases[i].second);
    // The reason a tool prints.
    EXPECT_EQ(completion.response.error->localizedDescription,
              RKVURLError::descriptionForCode(cases[i].second));
    EXPECT_FALSE(completion.response.data || completion.response.response);
  }
  EXPECT_EQ(finish(fits).response.data.value_or("").size(), kResponseLimit);
  // The redirect limit counts redirects: the first request and kRedirectLimit more.
  EXPECT_EQ(server_.requestCount("/loop"), static_cast<size_t>(kRedirectLimit + 1));
  // A barrier: a duplicate completion of any of the above would have run before this one.
  fetch(request("/just-fits"));
  for (const Started& each : started)
    EXPECT_EQ(each.recorder.count(), 1u);
}

TEST_F(RKVURLSessionProviderTest, CancelEndsARequestOnceAndDroppingTheTaskDoesNot) {
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  server_.setRoute("/slow", RKVTestRoute::answer(200, "late", 200ms));
  const Started silent = start(request("/silent"));
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  silent.task->cancel();
  silent.task->cancel();
  EXPECT_EQ(errorCode(finish(silent)), RKVURLError::Cancelled);

  // Released at once, the task neither cancels its request nor loses its completion.
  RKVCompletionRecorder released(provider_);
  provider_->dataRequest(request("/slow"), released.handler());
  ASSERT_TRUE(released.waitFor(1));
  EXPECT_EQ(released.completions()[0].response.data, "late");
  // Cancelling a finished request changes nothing.
  released.completions()[0].task->cancel();
  silent.task->cancel();
  fetch(request("/slow"));
  EXPECT_EQ(silent.recorder.count() + released.count(), 2u);
}

TEST_F(RKVURLSessionProviderTest, ACompletionThatThrowsIsReportedAndTheThreadGoesOn) {
  server_.setRoute("/ok", RKVTestRoute::answer(200, "ok"));
  test::RKVLogCapture errors;
  test::RKVTestEvent thrown;
  provider_->dataRequest(request("/ok"), [&](RKVURLSessionResponse, auto) {
    thrown.set();
    throw std::runtime_error("host failure");
  });
  ASSERT_TRUE(thrown.wait());
  // The network thread survived and still runs completions.
  EXPECT_EQ(fetch(request("/ok")).response.data, "ok");
  auto lines = errors.errorMessages();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("host failure"), std::string::npos) << lines[0];
}

TEST_F(RKVURLSessionProviderTest, ConnectionsAreReusedAndCappedPerHost) {
  server_.setRoute("/doc", RKVTestRoute::answer(200, "<VAST/>"));
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(fetch(request("/doc")).response.data, "<VAST/>");
  EXPECT_EQ(server_.connectionCount(), 1);

  // Requests from many threads at once all complete, on at most 6 connections (5 new ones).
  constexpr int kThreads = 4;
  constexpr int kPerThread = 8;
  for (int i = 0; i < kThreads * kPerThread; ++i)
    server_.setRoute("/r" + std::to_string(i), RKVTestRoute::answer(200, std::to_string(i), 20ms));
  RKVCompletionRecorder recorder(provider_);
  test::onThreads(kThreads, [&](int t) {
    for (int i = t * kPerThread; i < (t + 1) * kPerThread; ++i)
      provider_->dataRequest(request("/r" + std::to_string(i)), recorder.handler());
  });
  ASSERT_TRUE(recorder.waitFor(kThreads * kPerThread));
  for (const auto& completion : recorder.completions()) {
    ASSERT_TRUE(completion.response.response);
    EXPECT_EQ("/r" + completion.response.data.value_or(""),
              completion.response.response->URL().path());
  }
  EXPECT_LE(server_.connectionCount(), 6);
}

TEST_F(RKVURLSessionProviderTest, ShutdownEndsRequestsInFlightAndJoinsItsThread) {
  server_.setStallConnections(true);
  RKVCompletionRecorder recorder(provider_);
  std::vector<std::shared_ptr<RKVURLSessionTask>> tasks;
  for (int i = 0; i < 4; ++i)
    tasks.push_back(provider_->dataRequest(request("/stalled", 600), recorder.handler()));
  ASSERT_TRUE(test::eventually([&] { return server_.connectionCount() == 4; }));
  auto stopped = std::async(std::launch::async, [&] { provider_->shutdown(); });
  ASSERT_EQ(stopped.wait_for(test::kHangGuard), std::future_status::ready);
  // Every completion ran before shutdown() returned.
  ASSERT_EQ(recorder.count(), 4u);
  for (const auto& completion : recorder.completions())
    EXPECT_EQ(errorCode(completion), RKVURLError::Cancelled);

  // Afterwards requests end at once, on the caller's thread, and cancelling changes nothing.
  RKVCompletionRecorder late;
  auto task = provider_->dataRequest(request("/stalled"), late.handler());
  ASSERT_EQ(late.count(), 1u);
  EXPECT_EQ(late.completions()[0].task, task);
  EXPECT_EQ(errorCode(late.completions()[0]), RKVURLError::Cancelled);
  task->cancel();
  tasks[0]->cancel();
  provider_->shutdown();
  EXPECT_EQ(late.count() + recorder.count(), 5u);
}

TEST_F(RKVURLSessionProviderTest, AProviderReleasedByItsOwnCompletionStopsCleanly) {
  server_.setRoute("/ok", RKVTestRoute::answer(200, "ok"));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  auto holder = std::make_shared<std::shared_ptr<RKVURLSessionProvider>>(std::move(provider_));
  RKVCompletionRecorder pending;
  (*holder)->dataRequest(request("/silent"), pending.handler());
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  RKVCompletionRecorder last;
  (*holder)->dataRequest(request("/ok"),
                         [holder, record = last.handler()](auto response, auto task) {
                           holder->reset();  // the last reference: destroyed on its own thread
                           record(std::move(response), std::move(task));
                         });
  holder.reset();
  ASSERT_TRUE(last.waitFor(1));
  ASSERT_TRUE(pending.waitFor(1));
  EXPECT_EQ(errorCode(pending.completions()[0]), RKVURLError::Cancelled);
}

// Refusing an untrusted certificate (-1202) is shown by the tool's diagnostics; here, trusting it.
TEST_F(RKVURLSessionProviderTest, ACertificateAuthorityFileIsTrusted) {
  test::RKVTestTLSServer server("secure");
  ASSERT_TRUE(server.isRunning()) << "needs the openssl command";
  provider_ = std::make_shared<RKVURLSessionProvider>(
      RKVURLSessionConfiguration{.certificateAuthorityFile = server.certificateFile().string()});
  EXPECT_EQ(fetch(RKVURLRequest(*RKVURL::withString(server.url("/vast.xml")))).response.data,
            "secure");
}

// Synchronous requests run on the caller's thread with connections of their own; they must keep
// every guarantee of the network thread's transfers.
TEST_F(RKVURLSessionProviderTest, SynchronousRequestsReuseConnectionsAndEndWithShutdown) {
  server_.setRoute("/doc", RKVTestRoute::answer(200, "<VAST/>"));
  server_.setRoute("/reset", RKVTestRoute::misbehaving(Behavior::Reset));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  for (int i = 0; i < 3; ++i) {
    auto answer = provider_->synchronousDataRequest(request("/doc"));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->data, "<VAST/>");
  }
  EXPECT_EQ(server_.connectionCount(), 1);

  std::optional<RKVURLSessionResponse> reset;
  {
    DefaultSigpipe sigpipe;
    reset = provider_->synchronousDataRequest(upload());
  }
  EXPECT_EQ(errorCode(reset), RKVURLError::NetworkConnectionLost);

  auto waiting = std::async(std::launch::async,
                            [&] { return provider_->synchronousDataRequest(request("/silent")); });
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  provider_->shutdown();
  ASSERT_EQ(waiting.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(errorCode(waiting.get()), RKVURLError::Cancelled);
  EXPECT_EQ(errorCode(provider_->synchronousDataRequest(request("/doc"))), RKVURLError::Cancelled);
}

}  // namespace
}  // namespace rkv
