// rkv pixels, run in-process over a fresh data folder and a loopback server: what add keeps and
// skips, list's and flush's JSON, what a round sends, keeps and drops, clear, usage errors.
#include <ctime>
#include <functional>
#include <iomanip>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/log/RKVLog.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"

#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/tools/RKVToolRun.h"

namespace rkv::cli {
namespace {

using Json = nlohmann::ordered_json;
using Strings = std::vector<std::string>;
using test::RKVTestRoute;

using Result = test::RKVToolResult;

class RKVPixelsToolTest : public ::testing::Test {
 protected:
  RKVPixelsToolTest() {
    server_.setRoute("/ok", RKVTestRoute::answer(204, ""));
    server_.setRoute("/fail", RKVTestRoute::answer(500, ""));
  }

  // `rkv --data-dir DIR pixels ARGS...` with `input` as standard input.
  Result pixels(Strings args, const std::string& input = "") {
    args.insert(args.begin(), {"--data-dir", dir_.path().string(), "pixels"});
    return test::runTool(std::move(args), input);
  }
  Json json(Strings args) {
    const Result result = pixels(std::move(args));
    EXPECT_EQ(result.status, kExitSuccess) << result.err;
    return Json::parse(result.out, nullptr, false);
  }

  test::RKVTestHTTPServer server_;
  test::RKVTempDir dir_;
};

TEST_F(RKVPixelsToolTest, AddListFlushAndClear) {
  const std::string ok = server_.url("/ok?n=1"), fail = server_.url("/fail"),
                    missing = server_.url("/missing"), later = server_.url("/ok?n=2");
  // Arguments and standard input, in order; blank lines are ignored.
  const Result added = pixels({"add", ok, fail, "-"}, "\n" + missing + "\n  \n" + later + "\n");
  ASSERT_EQ(added.status, kExitSuccess) << added.err;
  EXPECT_EQ(added.out, "4 pixel(s) added\n");

  const Json list = json({"list", "--json"});
  ASSERT_EQ(list.size(), 1u);
  ASSERT_EQ(list["pixels"].size(), 4u);
  const auto dayFromNow = std::time(nullptr) + 86400;
  const Strings urls = {ok, fail, missing, later};
  for (size_t i = 0; i < urls.size(); ++i) {
    const Json& pixel = list["pixels"][i];
    // Keys compare in order; the id and the date are checked on their own.
    EXPECT_EQ(pixel, Json({{"id", pixel.value("id", Json())},
                           {"url", urls[i]},
                           {"status", "pending"},
                           {"expirationDate", pixel.value("expirationDate", Json())}}));
    EXPECT_TRUE(pixel["id"].is_number_unsigned());
    const std::string date = pixel["expirationDate"];
    ASSERT_TRUE(std::regex_match(date, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"))) << date;
    std::tm utc{};
    std::istringstream(date) >> std::get_time(&utc, "%Y-%m-%dT%H:%M:%SZ");
    EXPECT_NEAR(static_cast<double>(::timegm(&utc)), static_cast<double>(dayFromNow), 60.0);
  }
  EXPECT_NE(list["pixels"][0]["id"], list["pixels"][1]["id"]);
  // An expired pixel is dropped unsent.
  const std::string old = server_.url("/ok?old");
  ASSERT_EQ(pixels({"add", "--expires", "-10", old}).status, kExitSuccess);
  EXPECT_NE(pixels({"list"}).out.find(" pending expired until "), std::string::npos);

  // 204 and 404 are delivered; the 500 stays for the next round. (Keys compare in order.)
  const Json round = json({"flush", "--json"});
  EXPECT_EQ(round,
            Json::parse(R"({"sent": [")" + ok + R"(", ")" + missing + R"(", ")" + later +
                        R"("], "pending": [")" + fail + R"("], "dropped": [")" + old + R"("]})"));
  EXPECT_EQ(server_.requestCount("/ok"), 2u);  // not the expired one
  EXPECT_EQ(server_.requestCount("/fail"), 1u);

  const Result again = pixels({"flush"});
  EXPECT_EQ(again.status, kExitSuccess);
  EXPECT_EQ(again.out, "pending " + fail + "\n0 sent, 0 dropped, 1 pending\n");
  EXPECT_EQ(server_.requestCount("/fail"), 2u);

  const Result cleared = pixels({"clear"});
  EXPECT_EQ(cleared.status, kExitSuccess);
  EXPECT_EQ(cleared.out, "1 pixel(s) removed\n");
  EXPECT_EQ(json({"list", "--json"})["pixels"], Json::array());
  EXPECT_EQ(pixels({"list"}).out, "0 pixel(s)\n");
}

// Texts that are not http(s) URLs are named and skipped, the others still added; usage errors
// print nothing on the output and add nothing.
TEST_F(RKVPixelsToolTest, SkippedTextsAndUsageErrors) {
  const struct {
    std::string text, message;
  } cases[] = {
      {"not a url", "not a valid URL: not a url"},
      {"ftp://host/file", "not an http or https URL: ftp://host/file"},
      {"http://", "not a valid URL: http://"},
      {"/ok", "not a valid URL: /ok"},
      {"http://h:99999/x", "not a valid URL: http://h:99999/x"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Result result = pixels({"add", "-", server_.url("/ok")}, c.text + "\n");
    EXPECT_EQ(result.status, kExitFailure);
    EXPECT_EQ(result.err, "rkv pixels add: " + c.message + " (skipped)\n");
    EXPECT_EQ(result.out, "1 pixel(s) added\n");
  }
  const Result none = pixels({"add", "mailto:a@b.c"});
  EXPECT_EQ(none.status, kExitFailure);
  EXPECT_EQ(none.out, "0 pixel(s) added\n");

  const Strings usage[] = {
      {},
      {"add"},
      {"add", "--expires", "soon", "http://h/"},
      {"add", "--expires", "inf", "http://h/"},
      // Beyond the clock's range (about 292 years around 1970): the date would wrap around.
      {"add", "--expires", "8e9", "http://h/"},
      {"add", "--expires", "-9.5e9", "http://h/"},
      {"list", "extra"},
      {"flush", "--frob"},
      {"send"},
  };
  for (const Strings& args : usage) {
    SCOPED_TRACE(testing::PrintToString(args));
    const Result result = pixels(args);
    EXPECT_EQ(result.status, kExitUsage);
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(result.err.empty());
  }
  EXPECT_EQ(json({"list", "--json"})["pixels"].size(), std::size(cases));
}

// The batch's save fails (another connection holds the file's write lock past the busy
// time-out) and the file is free again right after: the batch the caller was told failed must
// not be written by a later save, nor by the defaults when they go.
// Runs `args` with the defaults file held by another connection until the first failed write
// has logged its error line (the data source is asked first), which then lets the file go.
TEST_F(RKVPixelsToolTest, AChangeWhoseSaveFailedIsNotWrittenLater) {
  auto withFirstWriteFailing = [&](const Strings& args) {
    std::string error;
    auto blocker = internal::RKVSQLiteDatabase::open((dir_.path() / "defaults.sqlite").string(),
                                                     false, &error);
    EXPECT_TRUE(blocker && blocker->exec("BEGIN IMMEDIATE", &error)) << error;
    struct ReleaseOnError : RKVLogDataSource {
      std::function<void()> release;
      bool shouldLogMessageWithLevel(const RKVLog&, int64_t level) override {
        if (level == 2 && release) std::exchange(release, nullptr)();
        return false;
      }
    };
    auto source = std::make_shared<ReleaseOnError>();
    source->release = [&] { blocker->exec("ROLLBACK", nullptr); };
    const auto log = RKVLog::sharedInstance();
    const auto previous = log->dataSource();
    log->setDataSource(source);
    const Result result = pixels(args);
    log->setDataSource(previous);
    EXPECT_EQ(source->release, nullptr);  // the write did fail
    return result;
  };
  ASSERT_EQ(pixels({"list"}).status, kExitSuccess);  // the file exists

  const Result added = withFirstWriteFailing({"add", server_.url("/ok")});
  EXPECT_EQ(added.status, kExitFailure);
  EXPECT_NE(added.err.find("none was added"), std::string::npos) << added.err;
  EXPECT_EQ(json({"list", "--json"})["pixels"], Json::array());

  ASSERT_EQ(pixels({"add", server_.url("/kept")}).status, kExitSuccess);
  const Result cleared = withFirstWriteFailing({"clear"});
  EXPECT_EQ(cleared.status, kExitFailure);
  EXPECT_NE(cleared.err.find("could not be saved"), std::string::npos) << cleared.err;
  const Json kept = json({"list", "--json"})["pixels"];
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0]["url"], server_.url("/kept"));
}

}  // namespace
}  // namespace rkv::cli
