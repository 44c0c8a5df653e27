// The session facade (what it asks of its provider, synchronous waiting, provider replacement),
// host code that throws, and the table from libcurl results to transport errors.
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVHTTPURLResponse.h"
#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVCurlErrorMapping.h"
#include "rkv/net/internal/RKVRequestTimeout.h"

#include "tests/net/RKVNetTestSupport.h"
#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"

namespace rkv {
namespace {

using test::RKVCompletionRecorder;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;

const RKVURL kURL = *RKVURL::withString("http://ads.example.test/vast?id=1");

// Records each request and answers it with `body` from a thread of its own, as a transport
// would. With Drop it destroys the completion uncalled; with Hold it keeps it until answerLate()
// calls it twice, as a transport answering after the caller gave up would; with Throw it keeps
// it and throws.
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
    for (const auto& [completion, task] : held_) {
      for (int i = 0; i < 2; ++i)
        completion({"late", RKVHTTPURLResponse(kURL, 200, {}), std::nullopt}, task);
    }
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
  const RKVURLRequest& byDefault = first->requests.at(0);
  const RKVURLRequest& given = second->requests.at(0);
  EXPECT_EQ(byDefault.HTTPMethod() + " " + byDefault.URL().absoluteString(),
            "GET " + kURL.absoluteString());
  EXPECT_EQ(std::pair(byDefault.cachePolicy(), byDefault.timeoutInterval()),
            (std::pair<int64_t, double>(0, 60)));
  EXPECT_EQ(std::pair(given.cachePolicy(), given.timeoutInterval()),
            (std::pair<int64_t, double>(4, 2.5)));
}

TEST(RKVURLSessionTest, SynchronousRequestsNeverWaitForAnAnswerThatCannotCome) {
  // A provider that drops the completion uncalled, then no provider at all.
  RKVURLSession dropping(std::make_shared<RKVFakeProvider>("", RKVFakeProvider::Drop));
  auto dropped = dropping.synchronousDataRequestWithURL(kURL);
  EXPECT_EQ(failure(dropped), Failure(RKVURLError::SessionDomain, RKVURLError::NoResponse));
  EXPECT_FALSE(dropped.data);
  RKVURLSession empty(nullptr);
  EXPECT_EQ(empty.synchronousDataRequestWithURL(kURL).error->code, RKVURLError::NoResponse);
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
            Failure(RKVURLError::SessionDomain, RKVURLError::SynchronousRequestOnCompletionThread));
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
  EXPECT_EQ(failure(response), Failure(RKVURLError::Domain, RKVURLError::TimedOut));
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
            Failure(RKVURLError::SessionDomain, RKVURLError::NoResponse));
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
        server->setRoute("/silent",
                         RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
        RKVURLSession::sharedInstance()->asynchronousDataRequestWithURL(
            *RKVURL::withString(server->url("/silent")), [](RKVURLSessionResponse response, auto) {
              std::fprintf(stderr, "ended with %lld\n",
                           static_cast<long long>(response.error ? response.error->code : 0));
            });
        if (!test::eventually([&] { return server->requestCount("/silent") == 1; })) std::exit(2);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "ended with -999");
}

TEST(RKVCurlErrorMappingTest, EveryFailureKindHasItsPlatformCode) {
  using E = RKVURLError;
  // libcurl's result, the system's errno, whether our size limit stopped it, whether
  // the server's answer had no status line, the code; those
  // the loopback tests of the provider cannot provoke.
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
  for (const auto& [result, osErrno, tooLarge, noStatusLine, code] : cases) {
    EXPECT_EQ(internal::urlErrorCodeForCurlResult(result, osErrno, tooLarge, noStatusLine), code)
        << result;
  }
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

}  // namespace
}  // namespace rkv
