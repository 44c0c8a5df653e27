// The session facade: what it asks of its provider, synchronous waiting, provider replacement.
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"

#include "tests/net/RKVNetTestSupport.h"
#include "tests/support/RKVTestHTTPServer.h"

namespace rkv {
namespace {

using test::RKVCompletionRecorder;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;

// Records each request and answers it with `answer` from a thread of its own, as a transport
// would; or, with `dropCompletions`, destroys the completion without calling it.
class RKVRecordingProvider final : public RKVURLSessionProviderProtocol {
 public:
  explicit RKVRecordingProvider(RKVURLSessionResponse answer, bool dropCompletions = false)
      : answer_(std::move(answer)), dropCompletions_(dropCompletions) {}
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
    tasks_.push_back(task);
    if (dropCompletions_) return task;
    threads_.emplace_back(
        [this, task, completion = std::move(completion)] { completion(answer_, task); });
    return task;
  }

  std::vector<RKVURLRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  std::vector<std::shared_ptr<RKVURLSessionTask>> tasks() const {
    std::lock_guard lock(mutex_);
    return tasks_;
  }

 private:
  const RKVURLSessionResponse answer_;
  const bool dropCompletions_;
  mutable std::mutex mutex_;
  std::vector<RKVURLRequest> requests_;
  std::vector<std::shared_ptr<RKVURLSessionTask>> tasks_;
  std::vector<std::thread> threads_;
};

RKVURLSessionResponse answerWithBody(std::string body, int64_t status = 200) {
  return RKVURLSessionResponse{
      std::move(body), RKVHTTPURLResponse(*RKVURL::withString("http://double.test/"), status, {}),
      std::nullopt};
}

const RKVURL kURL = *RKVURL::withString("http://ads.example.test/vast?id=1");

TEST(RKVURLSessionTest, RequestsByURLAreGETsWithTheGivenOrDefaultPolicyAndTimeOut) {
  auto provider = std::make_shared<RKVRecordingProvider>(answerWithBody("<VAST/>"));
  RKVURLSession session(provider);
  RKVCompletionRecorder recorder;
  session.asynchronousDataRequestWithURL(kURL, recorder.handler());
  session.asynchronousDataRequestWithURL(kURL, RKVURLRequest::ReloadIgnoringLocalCacheData, 10.0,
                                         recorder.handler());
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL).data, "<VAST/>");
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL, 4, 2.5).data, "<VAST/>");
  ASSERT_TRUE(recorder.waitFor(2));

  struct Expected {
    int64_t cachePolicy;
    double timeout;
  };
  const Expected expected[] = {{0, 60.0}, {1, 10.0}, {0, 60.0}, {4, 2.5}};
  auto requests = provider->requests();
  ASSERT_EQ(requests.size(), 4u);
  for (size_t i = 0; i < requests.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(requests[i].URL(), kURL);
    EXPECT_EQ(requests[i].HTTPMethod(), "GET");
    EXPECT_TRUE(requests[i].allHTTPHeaderFields().empty());
    EXPECT_FALSE(requests[i].HTTPBody());
    EXPECT_EQ(requests[i].cachePolicy(), expected[i].cachePolicy);
    EXPECT_EQ(requests[i].timeoutInterval(), expected[i].timeout);
  }
}

TEST(RKVURLSessionTest, AsynchronousRequestsHandBackTheProvidersTaskUnchanged) {
  auto provider = std::make_shared<RKVRecordingProvider>(answerWithBody("x"));
  RKVURLSession session(provider);
  RKVCompletionRecorder recorder;
  RKVURLRequest request(kURL);
  request.setHTTPMethod("POST");
  request.setHTTPBody(std::string("jsonMessage={}"));
  auto task = session.asynchronousDataRequestWithURLRequest(request, recorder.handler());
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(task, provider->tasks()[0]);
  EXPECT_EQ(recorder.completions()[0].task, task);
  EXPECT_EQ(task->identifier(), 100);
  EXPECT_EQ(provider->requests()[0].HTTPBody(), "jsonMessage={}");

  // Without a data task, the identifier is the test identifier, absent until set; resume and
  // cancel do nothing.
  RKVURLSessionTask bare;
  EXPECT_FALSE(bare.identifier());
  bare.resume();
  bare.cancel();
  bare.setTestIdentifier(7);
  EXPECT_EQ(bare.identifier(), 7);
}

TEST(RKVURLSessionTest, ReplacingTheProviderRoutesEveryLaterRequestThroughTheNewOne) {
  auto first = std::make_shared<RKVRecordingProvider>(answerWithBody("first"));
  auto second = std::make_shared<RKVRecordingProvider>(answerWithBody("second", 404));
  RKVURLSession session(first);
  EXPECT_EQ(session.synchronousDataRequestWithURL(kURL).data, "first");

  session.setSessionProvider(second);
  EXPECT_EQ(session.sessionProvider(), second);
  auto response = session.synchronousDataRequestWithURL(kURL);
  EXPECT_EQ(response.data, "second");
  ASSERT_TRUE(response.response);
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
  // A provider that drops the completion uncalled.
  RKVURLSession dropping(std::make_shared<RKVRecordingProvider>(answerWithBody(""), true));
  auto dropped = dropping.synchronousDataRequestWithURL(kURL);
  ASSERT_TRUE(dropped.error);
  EXPECT_EQ(dropped.error->domain, RKVURLError::SessionDomain);
  EXPECT_EQ(dropped.error->code, RKVURLError::NoResponse);
  EXPECT_FALSE(dropped.data);

  // No provider at all.
  RKVURLSession empty(nullptr);
  EXPECT_EQ(empty.synchronousDataRequestWithURL(kURL).error->code, RKVURLError::NoResponse);
  RKVCompletionRecorder recorder;
  EXPECT_EQ(empty.asynchronousDataRequestWithURL(kURL, recorder.handler()), nullptr);
}

class RKVURLSessionNetworkTest : public ::testing::Test {
 protected:
  RKVURL url(const std::string& path) const { return *RKVURL::withString(server_.url(path)); }

  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSessionProvider> provider_ = std::make_shared<RKVURLSessionProvider>();
  RKVURLSession session_{provider_};
};

TEST_F(RKVURLSessionNetworkTest, SynchronousRequestsReturnTheAnswerOrTheTransportError) {
  server_.setRoute("/vast.xml", RKVTestRoute::answer(200, "<VAST version=\"4.0\"/>"));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
  auto answer = session_.synchronousDataRequestWithURL(url("/vast.xml"));
  EXPECT_FALSE(answer.error);
  EXPECT_EQ(answer.data, "<VAST version=\"4.0\"/>");
  ASSERT_TRUE(answer.response);
  EXPECT_EQ(answer.response->statusCode(), 200);

  // A host that takes the request and never answers: the request's own time-out ends it.
  auto timedOut = session_.synchronousDataRequestWithURL(url("/silent"), 0, 1.0);
  ASSERT_TRUE(timedOut.error);
  EXPECT_EQ(timedOut.error->code, RKVURLError::TimedOut);
  EXPECT_FALSE(timedOut.data);
  EXPECT_FALSE(timedOut.response);
}

TEST_F(RKVURLSessionNetworkTest, SynchronousRequestsOnTheCompletionThreadAreRefused) {
  server_.setRoute("/a", RKVTestRoute::answer(200, "a"));
  std::promise<RKVURLSessionResponse> nested;
  session_.asynchronousDataRequestWithURL(
      url("/a"), [&](RKVURLSessionResponse, std::shared_ptr<RKVURLSessionTask>) {
        nested.set_value(session_.synchronousDataRequestWithURL(url("/a")));
      });
  auto future = nested.get_future();
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  auto refused = future.get();
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->domain, RKVURLError::SessionDomain);
  EXPECT_EQ(refused.error->code, RKVURLError::SynchronousRequestOnCompletionThread);
  EXPECT_FALSE(refused.data);
  // Refused without loading: the server saw only the outer request.
  EXPECT_EQ(server_.requestCount("/a"), 1u);
}

TEST(RKVURLSessionSharedTest, TheSharedSessionLoadsThroughTheSharedProvider) {
  auto session = RKVURLSession::sharedInstance();
  EXPECT_EQ(session, RKVURLSession::sharedInstance());
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
            *RKVURL::withString(server->url("/silent")),
            [](RKVURLSessionResponse response, std::shared_ptr<RKVURLSessionTask>) {
              std::fprintf(stderr, "ended with %lld\n",
                           static_cast<long long>(response.error ? response.error->code : 0));
            });
        if (!test::eventually([&] { return server->requestCount("/silent") == 1; })) std::exit(2);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "ended with -999");
}

}  // namespace
}  // namespace rkv
