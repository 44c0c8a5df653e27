// The session facade, the libcurl result table and the production provider on 127.0.0.1.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <strings.h>

#include "rkv/net/RKVHTTPURLResponse.h"
#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVCurlErrorMapping.h"
#include "rkv/net/internal/RKVRequestTimeout.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestTLSServer.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using Behavior = test::RKVTestServerBehavior;
using E = RKVURLError;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct RKVRecordedCompletion {
  RKVURLSessionResponse response;
  std::shared_ptr<RKVURLSessionTask> task;
  bool onCompletionThread = false;
};

class RKVCompletionRecorder {
 public:
  // `provider` (may be null) is asked whether each completion runs on its completion thread.
  explicit RKVCompletionRecorder(
      std::shared_ptr<RKVURLSessionProviderProtocol> provider = nullptr) {
    state_->provider = provider;
  }

  RKVURLSessionCompletion handler() const {
    return
        [state = state_](RKVURLSessionResponse response, std::shared_ptr<RKVURLSessionTask> task) {
          const auto provider = state->provider.lock();
          const bool onThread = provider && provider->isCompletionThread();
          std::lock_guard lock(state->mutex);
          state->completions.push_back({std::move(response), std::move(task), onThread});
        };
  }

  // True when `n` completions have arrived before the hang guard.
  bool waitFor(size_t n) const {
    return test::eventually([&] { return count() >= n; });
  }
  std::vector<RKVRecordedCompletion> completions() const {
    std::lock_guard lock(state_->mutex);
    return state_->completions;
  }
  size_t count() const { return completions().size(); }

 private:
  struct State {
    std::weak_ptr<RKVURLSessionProviderProtocol> provider;
    std::mutex mutex;
    std::vector<RKVRecordedCompletion> completions;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

const RKVURL kURL = *RKVURL::withString("http://ads.example.test/vast?id=1");

// Records each request and answers it with `body` from a thread of its own, as a transport would;
// Drop destroys the completion uncalled; Hold keeps it until answerLate() calls it twice (a
// transport answering after the caller gave up); Throw keeps it and throws.
class RKVFakeProvider final : public RKVURLSessionProviderProtocol {
 public:
  enum Mode { Answer, Drop, Hold, Throw };
  explicit RKVFakeProvider(std::string body, Mode mode = Answer)
      : body_(std::move(body)), mode_(mode) {}
  std::shared_ptr<RKVURLSessionTask> dataRequest(const RKVURLRequest& request,
                                                 RKVURLSessionCompletion completion) override {
    auto task = std::make_shared<RKVURLSessionTask>();
    std::lock_guard lock(mutex_);
    requests.push_back(request);
    if (mode_ == Hold || mode_ == Throw) held_.emplace_back(std::move(completion), task);
    if (mode_ == Throw) throw std::runtime_error("provider failure");
    if (mode_ != Answer) return task;
    answers_.push_back(std::async(std::launch::async, [this, task, completion] {
      completion({body_, RKVHTTPURLResponse(kURL, 200, {}), std::nullopt}, task);
    }));
    return task;
  }
  void answerLate() {
    std::lock_guard lock(mutex_);
    for (const auto& [completion, task] : held_)
      for (int i = 0; i < 2; ++i)
        completion({"late", RKVHTTPURLResponse(kURL, 200, {}), std::nullopt}, task);
  }
  std::vector<RKVURLRequest> requests;

 private:
  const std::string body_;
  const Mode mode_;
  std::mutex mutex_;
  std::vector<std::pair<RKVURLSessionCompletion, std::shared_ptr<RKVURLSessionTask>>> held_;
  std::vector<std::future<void>> answers_;  // each waits for its thread when destroyed
};

// The domain and code of a response's error; empty and 0 without one.
using Failure = std::pair<std::string, int64_t>;
Failure failure(const RKVURLSessionResponse& response) {
  return response.error ? Failure(response.error->domain, response.error->code) : Failure();
}

TEST(RKVURLSessionTest, RequestsByURLAreGETsAndReplacingTheProviderReroutesThem) {
  auto first = std::make_shared<RKVFakeProvider>("first");
  RKVURLSession session(first);
  RKVCompletionRecorder recorder;
  session.asynchronousDataRequestWithURL(kURL, recorder.handler());
  auto second = std::make_shared<RKVFakeProvider>("second");
  session.setSessionProvider(second);
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL, 4, 2.5).data, "second");
  ASSERT_TRUE(recorder.waitFor(1));
  // Policy 0 and 60 seconds unless given.
  auto shape = [](const RKVURLRequest& r) {
    return std::tuple(r.HTTPMethod(), r.URL().absoluteString(), r.cachePolicy(),
                      r.timeoutInterval());
  };
  EXPECT_EQ(shape(first->requests.at(0)), std::tuple("GET", kURL.absoluteString(), 0, 60.0));
  EXPECT_EQ(shape(second->requests.at(0)), std::tuple("GET", kURL.absoluteString(), 4, 2.5));
}

TEST(RKVURLSessionTest, SynchronousRequestsNeverWaitForAnAnswerThatCannotCome) {
  // A provider that drops the completion uncalled, then no provider at all.
  RKVURLSession dropping(std::make_shared<RKVFakeProvider>("", RKVFakeProvider::Drop));
  auto dropped = dropping.synchronousDataRequestWithURL(kURL);
  EXPECT_EQ(failure(dropped), Failure(E::SessionDomain, E::NoResponse));
  EXPECT_FALSE(dropped.data);
  RKVURLSession empty(nullptr);
  EXPECT_EQ(empty.synchronousDataRequestWithURL(kURL).error->code, E::NoResponse);
  RKVCompletionRecorder recorder;
  EXPECT_EQ(empty.asynchronousDataRequestWithURL(kURL, recorder.handler()), nullptr);

  // On the completion thread the wait would never end: refused at once, without loading.
  RKVTestHTTPServer server;
  server.setRoute("/a", RKVTestRoute::answer(200, "a"));
  RKVURLSession session(std::make_shared<RKVURLSessionProvider>());
  const RKVURL a = *RKVURL::withString(server.url("/a"));
  std::promise<RKVURLSessionResponse> nested;
  session.asynchronousDataRequestWithURL(a, [&](RKVURLSessionResponse, auto) {
    nested.set_value(session.synchronousDataRequestWithURL(a));
  });
  auto future = nested.get_future();
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(failure(future.get()),
            Failure(E::SessionDomain, E::SynchronousRequestOnCompletionThread));
  EXPECT_EQ(server.requestCount("/a"), 1u);
}

TEST(RKVURLSessionTest, ASynchronousRequestGivesUpAfterItsTimeoutPlusAGrace) {
  constexpr double kTimeout = 0.2;
  const auto grace = std::chrono::duration<double>(RKVURLSession::SYNCHRONOUS_WAIT_GRACE);
  auto provider = std::make_shared<RKVFakeProvider>("", RKVFakeProvider::Hold);
  RKVURLSession session(provider);
  auto pending = std::async(std::launch::async, [&] {
    const auto start = std::chrono::steady_clock::now();
    auto response = session.synchronousDataRequestWithURL(kURL, 0, kTimeout);
    return std::pair(std::move(response), std::chrono::steady_clock::now() - start);
  });
  // Only a wait without a bound misses this; the provider then answers to end it.
  EXPECT_EQ(pending.wait_for(std::chrono::duration<double>(kTimeout) + grace + test::kHangGuard),
            std::future_status::ready);
  // The completions come after the caller gave up, twice each: ignored, and harmless.
  provider->answerLate();
  auto [response, waited] = pending.get();
  EXPECT_EQ(failure(response), Failure(E::Domain, E::TimedOut));
  EXPECT_FALSE(response.data || response.response);
  EXPECT_GE(waited, std::chrono::duration<double>(kTimeout));
  // The wait is the time-out the transport applies: 60 s for none.
  const std::pair<double, double> timeouts[] = {
      {0.0, 60.0}, {-1.0, 60.0}, {std::nan(""), 60.0}, {2.5, 2.5}, {1e12, 86400.0}};
  for (const auto& [given, applied] : timeouts)
    EXPECT_EQ(internal::effectiveRequestTimeout(given), applied) << given;
}

TEST(RKVURLSessionTest, AProviderThatThrowsIsReportedAndAnswersNothing) {
  // The completion is taken, then thrown: it may stay alive.
  RKVURLSession session(std::make_shared<RKVFakeProvider>("", RKVFakeProvider::Throw));
  test::RKVLogCapture errors;
  RKVCompletionRecorder recorder;
  EXPECT_EQ(session.asynchronousDataRequestWithURL(kURL, recorder.handler()), nullptr);
  EXPECT_EQ(failure(session.synchronousDataRequestWithURL(kURL, 0, 600)),
            Failure(E::SessionDomain, E::NoResponse));
  EXPECT_EQ(errors.errorMessages().size(), 2u);

  // A data task that throws is reported too; the task answers as if it had none.
  struct RKVThrowingDataTask final : RKVURLDataTask {
    void resume() override { throw std::runtime_error("resume"); }
    void cancel() override { throw std::runtime_error("cancel"); }
    int64_t taskIdentifier() const override { throw std::runtime_error("identifier"); }
  };
  RKVURLSessionTask task(std::make_shared<RKVThrowingDataTask>());
  task.resume();
  task.cancel();
  EXPECT_FALSE(task.identifier());
  EXPECT_EQ(errors.errorMessages().size(), 5u);
}

TEST(RKVURLSessionSharedDeathTest, ExitEndsTheSharedProvidersRequestsInFlight) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // Never destroyed: exit() does not unwind, and the server must outlive the exit.
        auto* server = new RKVTestHTTPServer();
        server->setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
        RKVURLSession::sharedInstance()->asynchronousDataRequestWithURL(
            *RKVURL::withString(server->url("/silent")), [](RKVURLSessionResponse response, auto) {
              std::fprintf(stderr, "ended with %lld\n",
                           static_cast<long long>(response.error ? response.error->code : 0));
            });
        std::exit(test::eventually([&] { return server->requestCount("/silent") == 1; }) ? 0 : 2);
      },
      ::testing::ExitedWithCode(0), "ended with -999");
}

TEST(RKVCurlErrorMappingTest, EveryFailureKindHasItsPlatformCode) {
  // libcurl's result, the system's errno, whether our size limit stopped it, whether the answer
  // had no status line, the code; those the loopback tests of the provider cannot provoke.
  const std::tuple<CURLcode, long, bool, bool, int64_t> cases[] = {
      {CURLE_COULDNT_RESOLVE_HOST, 0, false, false, E::CannotFindHost},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, false, false, E::CannotConnectToHost},
      {CURLE_COULDNT_CONNECT, ENETUNREACH, false, false, E::NotConnectedToInternet},
      {CURLE_COULDNT_CONNECT, EHOSTUNREACH, false, false, E::NotConnectedToInternet},
      {CURLE_GOT_NOTHING, 0, false, false, E::NetworkConnectionLost},
      {CURLE_WEIRD_SERVER_REPLY, 0, false, false, E::BadServerResponse},
      {CURLE_URL_MALFORMAT, 0, false, false, E::BadURL},
      {CURLE_WRITE_ERROR, 0, true, false, E::DataLengthExceedsMaximum},
      {CURLE_WRITE_ERROR, 0, false, false, E::Unknown},
      {CURLE_BAD_CONTENT_ENCODING, 0, false, false, E::CannotDecodeContentData},
      {CURLE_SSL_CONNECT_ERROR, 0, false, false, E::SecureConnectionFailed},
      {CURLE_UNSUPPORTED_PROTOCOL, 0, false, false, E::UnsupportedURL},  // a redirect's scheme
      {CURLE_UNSUPPORTED_PROTOCOL, 0, false, true, E::BadServerResponse},
      {CURLE_OK, 0, false, false, E::Unknown},
  };
  for (const auto& [result, osErrno, tooLarge, noStatusLine, code] : cases)
    EXPECT_EQ(internal::urlErrorCodeForCurlResult(result, osErrno, tooLarge, noStatusLine), code)
        << result;
  // A time-out reads as the platform words it.
  EXPECT_EQ(internal::urlErrorForCurlResult(CURLE_OPERATION_TIMEDOUT, 0, false, false)
                .localizedDescription,
            "The request timed out.");

  // Every code the table gives carries a reason of its own for a tool to print.
  // clang-format off
  const int64_t codes[] = {E::Cancelled, E::BadURL, E::TimedOut, E::UnsupportedURL,
      E::CannotFindHost, E::CannotConnectToHost, E::NetworkConnectionLost, E::HTTPTooManyRedirects,
      E::ResourceUnavailable, E::NotConnectedToInternet, E::BadServerResponse,
      E::CannotDecodeContentData, E::DataLengthExceedsMaximum, E::SecureConnectionFailed,
      E::ServerCertificateUntrusted};
  // clang-format on
  // An empty reason collides with "", a code missing from the table with the unknown one's.
  std::set<std::string> reasons{"", *E::errorWithCode(E::Unknown).localizedDescription};
  for (int64_t code : codes) {
    const std::string reason = E::errorWithCode(code).localizedDescription.value_or("");
    EXPECT_TRUE(reasons.insert(reason).second) << code << " shares its reason: " << reason;
  }
  for (int64_t code : {E::SynchronousRequestOnCompletionThread, E::NoResponse})
    EXPECT_TRUE(reasons.insert(*E::sessionErrorWithCode(code).localizedDescription).second);
}

constexpr size_t kResponseLimit = 256 * 1024;
constexpr long kRedirectLimit = 3;

// SIGPIPE's default action ends the process: while this lives, a peer's reset must never reach it.
struct DefaultSigpipe {
  void (*previous)(int) = std::signal(SIGPIPE, SIG_DFL);
  ~DefaultSigpipe() { std::signal(SIGPIPE, previous); }
};

class RKVURLSessionProviderTest : public ::testing::Test {
 protected:
  RKVURLSessionProviderTest() {
    server_.setRoute("/doc", RKVTestRoute::answer(200, "<VAST/>"));
    server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
    server_.setRoute("/drip", RKVTestRoute::misbehaving(Behavior::Drip));
    server_.setRoute("/reset", RKVTestRoute::misbehaving(Behavior::Reset));
    server_.setRoute("/endless", RKVTestRoute::misbehaving(Behavior::EndlessBody));
    server_.setRoute("/not-http", RKVTestRoute::misbehaving(Behavior::NotHTTP));
  }
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
  RKVRecordedCompletion finish(const Started& started) {
    EXPECT_TRUE(started.recorder.waitFor(1));
    auto completions = started.recorder.completions();
    if (completions.empty()) return {};
    EXPECT_EQ(completions[0].task, started.task);
    EXPECT_TRUE(completions[0].onCompletionThread);
    return completions[0];
  }
  RKVRecordedCompletion fetch(const RKVURLRequest& request) { return finish(start(request)); }

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
  auto with = [&](const std::string& path, const char* method, std::optional<std::string> body) {
    RKVURLRequest made = request(path);
    made.setHTTPMethod(method);
    if (body) made.setHTTPBody(*body);
    return made;
  };
  RKVURLRequest post = with("/doc", "POST", "jsonMessage={\"a\":1}");
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
  EXPECT_EQ(fetch(with("/doc", "HEAD", std::nullopt)).response.data, std::string());
  EXPECT_FALSE(fetch(with("/doc?q=1", "GET", "ignored")).response.error);
  EXPECT_EQ(errorCode(fetch(with("/doc", "GET /x HTTP/1.1\r\n", std::nullopt)).response),
            E::Unknown);

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
  EXPECT_EQ(sent[2].method + " " + sent[2].target + " " + sent[2].body, "GET /doc?q=1 ");
}

TEST_F(RKVURLSessionProviderTest, CachePoliciesAddNoFields) {
  auto isCacheControl = [](const auto& f) { return !strcasecmp(f.first.c_str(), "Cache-Control"); };
  // Nothing is ever cached here, so every policy that may load simply loads; the caller's own
  // Cache-Control goes out as set, alone.
  for (int64_t policy :
       {RKVURLRequest::UseProtocolCachePolicy, RKVURLRequest::ReloadIgnoringLocalCacheData,
        RKVURLRequest::ReturnCacheDataElseLoad,
        RKVURLRequest::ReloadIgnoringLocalAndRemoteCacheData,
        RKVURLRequest::ReloadRevalidatingCacheData}) {
    for (bool own : {false, true}) {
      RKVURLRequest made = request("/doc", 10, policy);
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
  EXPECT_EQ(errorCode(fetch(request("/doc", 30, RKVURLRequest::ReturnCacheDataDontLoad)).response),
            E::ResourceUnavailable);
  EXPECT_EQ(server_.requests().size(), before);
}

TEST_F(RKVURLSessionProviderTest, TransportFailuresBecomeURLErrors) {
  DefaultSigpipe sigpipe;
  RKVTestRoute announcedTooLong = RKVTestRoute::answer(200, "short");
  announcedTooLong.headers = {{"Content-Length", std::to_string(kResponseLimit + 1)}};
  server_.setRoute("/too-long", announcedTooLong);
  server_.setRoute("/just-fits", RKVTestRoute::answer(200, std::string(kResponseLimit, 'a')));
  server_.setRoute("/loop", RKVTestRoute::redirect("/loop"));
  server_.setRoute("/to-file", RKVTestRoute::redirect("file:///etc/passwd"));
  const std::string refused = "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort());
  // The whole transfer is bounded, so a server that drips a byte a second still times out.
  const std::pair<RKVURLRequest, int64_t> cases[] = {
      {request("/silent", 1.0), E::TimedOut},
      {request("/drip", 2.0), E::TimedOut},
      {request("/reset"), E::NetworkConnectionLost},
      {upload(), E::NetworkConnectionLost},
      {request("/endless"), E::DataLengthExceedsMaximum},
      {request("/too-long"), E::DataLengthExceedsMaximum},
      {request("/loop"), E::HTTPTooManyRedirects},
      {request("/to-file"), E::UnsupportedURL},
      // libcurl refuses an answer without status line as it refuses a scheme; this is the server.
      {request("/not-http"), E::BadServerResponse},
      {RKVURLRequest(*RKVURL::withString(refused + "/")), E::CannotConnectToHost},
      {RKVURLRequest(*RKVURL::withString("file:///etc/passwd")), E::UnsupportedURL},
      {RKVURLRequest(*RKVURL::withString("relative/path")), E::UnsupportedURL},
  };
  // All at once, as the network thread has to cope with them side by side.
  std::vector<Started> started;
  for (const auto& [failing, code] : cases)
    started.push_back(start(failing));
  const Started fits = start(request("/just-fits"));
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].first.URL().absoluteString() + " " + cases[i].first.HTTPMethod());
    auto completion = finish(started[i]);
    EXPECT_EQ(failure(completion.response), Failure(E::Domain, cases[i].second));
    ASSERT_TRUE(completion.response.error);
    // The reason a tool prints.
    EXPECT_EQ(completion.response.error->localizedDescription,
              E::descriptionForCode(cases[i].second));
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
  server_.setRoute("/slow", RKVTestRoute::answer(200, "late", 200ms));
  const Started silent = start(request("/silent"));
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  silent.task->cancel();
  silent.task->cancel();
  EXPECT_EQ(errorCode(finish(silent).response), E::Cancelled);

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
  test::RKVLogCapture errors;
  test::RKVTestEvent thrown;
  provider_->dataRequest(request("/doc"), [&](RKVURLSessionResponse, auto) {
    thrown.set();
    throw std::runtime_error("host failure");
  });
  ASSERT_TRUE(thrown.wait());
  // The network thread survived and still runs completions.
  EXPECT_EQ(fetch(request("/doc")).response.data, "<VAST/>");
  EXPECT_THAT(errors.errorMessages(), ElementsAre(HasSubstr("host failure")));
}

TEST_F(RKVURLSessionProviderTest, ConnectionsAreReusedAndCappedPerHost) {
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(fetch(request("/doc")).response.data, "<VAST/>");
  EXPECT_EQ(server_.connectionCount(), 1);

  // Requests from many threads at once all complete, on at most 6 connections (5 new ones).
  constexpr int kThreads = 4, kPerThread = 8;
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
    EXPECT_EQ(errorCode(completion.response), E::Cancelled);

  // Afterwards requests end at once, on the caller's thread, and cancelling changes nothing.
  RKVCompletionRecorder late;
  auto task = provider_->dataRequest(request("/stalled"), late.handler());
  ASSERT_EQ(late.count(), 1u);
  EXPECT_EQ(late.completions()[0].task, task);
  EXPECT_EQ(errorCode(late.completions()[0].response), E::Cancelled);
  task->cancel();
  tasks[0]->cancel();
  provider_->shutdown();
  EXPECT_EQ(late.count() + recorder.count(), 5u);
}

TEST_F(RKVURLSessionProviderTest, AProviderReleasedByItsOwnCompletionStopsCleanly) {
  auto holder = std::make_shared<std::shared_ptr<RKVURLSessionProvider>>(std::move(provider_));
  RKVCompletionRecorder pending;
  (*holder)->dataRequest(request("/silent"), pending.handler());
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  RKVCompletionRecorder last;
  (*holder)->dataRequest(request("/doc"),
                         [holder, record = last.handler()](auto response, auto task) {
                           holder->reset();  // the last reference: destroyed on its own thread
                           record(std::move(response), std::move(task));
                         });
  holder.reset();
  ASSERT_TRUE(last.waitFor(1));
  ASSERT_TRUE(pending.waitFor(1));
  EXPECT_EQ(errorCode(pending.completions()[0].response), E::Cancelled);
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
  DefaultSigpipe sigpipe;
  for (int i = 0; i < 3; ++i) {
    auto answer = provider_->synchronousDataRequest(request("/doc"));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->data, "<VAST/>");
  }
  EXPECT_EQ(server_.connectionCount(), 1);

  EXPECT_EQ(errorCode(provider_->synchronousDataRequest(upload())), E::NetworkConnectionLost);

  auto waiting = std::async(std::launch::async,
                            [&] { return provider_->synchronousDataRequest(request("/silent")); });
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  provider_->shutdown();
  ASSERT_EQ(waiting.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(errorCode(waiting.get()), E::Cancelled);
  EXPECT_EQ(errorCode(provider_->synchronousDataRequest(request("/doc"))), E::Cancelled);
}

}  // namespace
}  // namespace rkv
