// The session facade (what it asks of its provider, synchronous waiting, provider replacement),
// requests and responses, and the table from libcurl results to transport errors.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVHTTPURLResponse.h"
#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVCurlErrorMapping.h"

#include "tests/net/RKVNetTestSupport.h"
#include "tests/support/RKVTestHTTPServer.h"

namespace rkv {
namespace {

using test::RKVCompletionRecorder;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;

const RKVURL kURL = *RKVURL::withString("http://ads.example.test/vast?id=1");

// Records each request and answers it with `answer` from a thread of its own, as a transport
// would; or, with `dropCompletions`, destroys the completion without calling it.
class RKVRecordingProvider final : public RKVURLSessionProviderProtocol {
 public:
  explicit RKVRecordingProvider(std::string body, int64_t status = 200, bool drop = false)
      : answer_{std::move(body), RKVHTTPURLResponse(kURL, status, {}), std::nullopt}, drop_(drop) {}
  ~RKVRecordingProvider() override {
    for (auto& thread : threads_)
      thread.join();
  }
  std::shared_ptr<RKVURLSessionTask> dataRequest(const RKVURLRequest& request,
                                                 RKVURLSessionCompletion completion) override {
    auto task = std::make_shared<RKVURLSessionTask>();
    std::lock_guard lock(mutex_);
    task->setTestIdentifier(static_cast<int64_t>(requests_.size()) + 100);
    requests_.push_back(request);
    if (!drop_) threads_.emplace_back([this, task, completion] { completion(answer_, task); });
    return task;
  }
  std::vector<RKVURLRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  const RKVURLSessionResponse answer_;
  const bool drop_;
  mutable std::mutex mutex_;
  std::vector<RKVURLRequest> requests_;
  std::vector<std::thread> threads_;
};

TEST(RKVURLSessionTest, RequestsByURLAreGETsWithTheGivenOrDefaultPolicyAndTimeOut) {
  auto provider = std::make_shared<RKVRecordingProvider>("<VAST/>");
  RKVURLSession session(provider);
  RKVCompletionRecorder recorder;
  session.asynchronousDataRequestWithURL(kURL, recorder.handler());
  session.asynchronousDataRequestWithURL(kURL, RKVURLRequest::ReloadIgnoringLocalCacheData, 10.0,
                                         recorder.handler());
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL).data, "<VAST/>");
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL, 4, 2.5).data, "<VAST/>");
  ASSERT_TRUE(recorder.waitFor(2));
  const std::pair<int64_t, double> expected[] = {{0, 60.0}, {1, 10.0}, {0, 60.0}, {4, 2.5}};
  auto requests = provider->requests();
  ASSERT_EQ(requests.size(), 4u);
  for (size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].URL(), kURL);
    EXPECT_EQ(requests[i].HTTPMethod(), "GET");
    EXPECT_TRUE(requests[i].allHTTPHeaderFields().empty());
    EXPECT_FALSE(requests[i].HTTPBody());
    EXPECT_EQ(requests[i].cachePolicy(), expected[i].first) << i;
    EXPECT_EQ(requests[i].timeoutInterval(), expected[i].second) << i;
  }

  // A request goes to the provider as it is, and its task comes back unchanged.
  RKVURLRequest post(kURL);
  post.setHTTPMethod("POST");
  post.setHTTPBody(std::string("jsonMessage={}"));
  auto task = session.asynchronousDataRequestWithURLRequest(post, recorder.handler());
  ASSERT_TRUE(recorder.waitFor(3));
  EXPECT_EQ(recorder.completions()[2].task, task);
  EXPECT_EQ(task->identifier(), 104);
  EXPECT_EQ(provider->requests()[4].HTTPBody(), "jsonMessage={}");
}

TEST(RKVURLSessionTest, ReplacingTheProviderRoutesEveryLaterRequestThroughTheNewOne) {
  auto first = std::make_shared<RKVRecordingProvider>("first");
  auto second = std::make_shared<RKVRecordingProvider>("second", 404);
  RKVURLSession session(first);
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL).data, "first");
  session.setSessionProvider(second);
  auto response = session.synchronousDataRequestWithURL(kURL);
  EXPECT_EQ(response.data, "second");
  EXPECT_EQ(response.response->statusCode(), 404);
  EXPECT_FALSE(response.error);
  RKVCompletionRecorder recorder;
  session.asynchronousDataRequestWithURL(kURL, recorder.handler());
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(recorder.completions()[0].response.data, "second");
  EXPECT_EQ(first->requests().size(), 1u);
  EXPECT_EQ(second->requests().size(), 2u);
}

TEST(RKVURLSessionTest, SynchronousRequestsNeverWaitForAnAnswerThatCannotCome) {
  // A provider that drops the completion uncalled, then no provider at all.
  RKVURLSession dropping(std::make_shared<RKVRecordingProvider>("", 200, true));
  auto dropped = dropping.synchronousDataRequestWithURL(kURL);
  ASSERT_TRUE(dropped.error);
  EXPECT_EQ(dropped.error->domain, RKVURLError::SessionDomain);
  EXPECT_EQ(dropped.error->code, RKVURLError::NoResponse);
  EXPECT_FALSE(dropped.data);
  RKVURLSession empty(nullptr);
  EXPECT_EQ(empty.synchronousDataRequestWithURL(kURL).error->code, RKVURLError::NoResponse);
  RKVCompletionRecorder recorder;
  EXPECT_EQ(empty.asynchronousDataRequestWithURL(kURL, recorder.handler()), nullptr);

  // A host that takes the request and never answers: the request's own time-out ends the wait.
  RKVTestHTTPServer server;
  server.setRoute("/a", RKVTestRoute::answer(200, "a"));
  server.setRoute("/silent", RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
  RKVURLSession session(std::make_shared<RKVURLSessionProvider>());
  auto timedOut =
      session.synchronousDataRequestWithURL(*RKVURL::withString(server.url("/silent")), 0, 1.0);
  EXPECT_EQ(timedOut.error->code, RKVURLError::TimedOut);
  EXPECT_FALSE(timedOut.data || timedOut.response);

  // On the completion thread the wait would never end: refused at once, without loading.
  const RKVURL a = *RKVURL::withString(server.url("/a"));
  std::promise<RKVURLSessionResponse> nested;
  session.asynchronousDataRequestWithURL(a, [&](RKVURLSessionResponse, auto) {
    nested.set_value(session.synchronousDataRequestWithURL(a));
  });
  auto future = nested.get_future();
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  auto refused = future.get();
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->domain, RKVURLError::SessionDomain);
  EXPECT_EQ(refused.error->code, RKVURLError::SynchronousRequestOnCompletionThread);
  EXPECT_EQ(server.requestCount("/a"), 1u);
}

TEST(RKVURLSessionSharedTest, TheSharedSessionLoadsThroughTheSharedProvider) {
  auto session = RKVURLSession::sharedInstance();
  EXPECT_EQ(session->sessionProvider(), RKVURLSessionProvider::sharedInstance());
  // Left running on purpose: the shared provider is stopped at process exit.
  RKVTestHTTPServer server;
  server.setRoute("/shared", RKVTestRoute::answer(200, "shared"));
  EXPECT_EQ(session->synchronousDataRequestWithURL(*RKVURL::withString(server.url("/shared"))).data,
            "shared");
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

TEST(RKVURLRequestTest, HeaderFieldsIgnoreCase) {
  RKVURLRequest request(kURL);
  request.setValue("application/json", "Content-Type");
  request.setValue("text/plain", "content-type");
  request.addValue("gzip", "Accept-Encoding");
  request.addValue("br", "ACCEPT-ENCODING");
  request.setValue("", "X-Empty");
  EXPECT_EQ(request.allHTTPHeaderFields(),
            (RKVHTTPHeaderFields{
                {"Content-Type", "text/plain"}, {"Accept-Encoding", "gzip,br"}, {"X-Empty", ""}}));
  EXPECT_EQ(request.valueForHTTPHeaderField("CONTENT-TYPE"), "text/plain");
  request.setValue(std::nullopt, "content-TYPE");
  EXPECT_FALSE(request.valueForHTTPHeaderField("Content-Type"));
  request.setHTTPMethod("");
  EXPECT_EQ(request.HTTPMethod(), "GET");

  // A response joins repeated fields under their first spelling.
  RKVHTTPURLResponse response(kURL, 200,
                              {{"Set-Cookie", "a=1"},
                               {"Content-Type", "text/xml"},
                               {"set-cookie", "b=2"},
                               {"SET-COOKIE", "c=3"}});
  EXPECT_EQ(response.allHeaderFields(),
            (RKVHTTPHeaderFields{{"Set-Cookie", "a=1, b=2, c=3"}, {"Content-Type", "text/xml"}}));
  EXPECT_EQ(response.valueForHTTPHeaderField("content-type"), "text/xml");
}

TEST(RKVCurlErrorMappingTest, EveryFailureKindHasItsPlatformCode) {
  using E = RKVURLError;
  // libcurl's result, the system's errno, whether our size limit stopped it, the code; those
  // the loopback tests of the provider cannot provoke.
  const std::tuple<CURLcode, long, bool, int64_t> cases[] = {
      {CURLE_COULDNT_RESOLVE_HOST, 0, false, E::CannotFindHost},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, false, E::CannotConnectToHost},
      {CURLE_COULDNT_CONNECT, ENETUNREACH, false, E::NotConnectedToInternet},
      {CURLE_COULDNT_CONNECT, EHOSTUNREACH, false, E::NotConnectedToInternet},
      {CURLE_COULDNT_CONNECT, ENETDOWN, false, E::NotConnectedToInternet},
      {CURLE_GOT_NOTHING, 0, false, E::NetworkConnectionLost},
      {CURLE_PARTIAL_FILE, 0, false, E::NetworkConnectionLost},
      {CURLE_WEIRD_SERVER_REPLY, 0, false, E::BadServerResponse},
      {CURLE_URL_MALFORMAT, 0, false, E::BadURL},
      {CURLE_WRITE_ERROR, 0, true, E::DataLengthExceedsMaximum},
      {CURLE_WRITE_ERROR, 0, false, E::Unknown},
      {CURLE_BAD_CONTENT_ENCODING, 0, false, E::CannotDecodeContentData},
      {CURLE_SSL_CONNECT_ERROR, 0, false, E::SecureConnectionFailed},
      {CURLE_OUT_OF_MEMORY, 0, false, E::Unknown},
      {CURLE_OK, 0, false, E::Unknown},
  };
  for (const auto& [result, osErrno, tooLarge, code] : cases)
    EXPECT_EQ(internal::urlErrorCodeForCurlResult(result, osErrno, tooLarge), code) << result;
  const RKVError timedOut = internal::urlErrorForCurlResult(CURLE_OPERATION_TIMEDOUT, 0, false);
  EXPECT_EQ(timedOut.domain, "NSURLErrorDomain");
  EXPECT_EQ(timedOut.localizedDescription, "The request timed out.");
  EXPECT_EQ(RKVURLError::errorWithCode(-12345).localizedDescription, "unknown error");
}

}  // namespace
}  // namespace rkv
