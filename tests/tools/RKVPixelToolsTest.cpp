// rkv pixels and rkv play, run in-process over a fresh data folder against a loopback server.
// pixels: what add keeps and skips, list's and flush's JSON, what a round sends, keeps and drops,
// clear, usage errors. play, over a wrapper, its inline ad and every pixel: what reaches the
// server, how often and in which order, the simulated times of the JSON, the player events,
// viewability, and the failures.
#include <algorithm>
#include <ctime>
#include <functional>
#include <iomanip>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/log/RKVLog.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"
#include "rkv/tracking/RKVIABMacros.h"

#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/tools/RKVToolRun.h"

namespace rkv::cli {
namespace {

using Json = nlohmann::ordered_json;
using Strings = std::vector<std::string>;
using test::RKVTestRoute;
using Result = test::RKVToolResult;

class RKVDataFolderTest : public ::testing::Test {
 protected:
  // `rkv --data-dir DIR COMMAND ARGS...` with `input` as standard input.
  Result run(const std::string& command, Strings args, const std::string& input = "") {
    args.insert(args.begin(), {"--data-dir", dir_.path().string(), command});
    return test::runTool(std::move(args), input);
  }

  test::RKVTempDir dir_;
  test::RKVTestHTTPServer server_;
};

class RKVPixelsToolTest : public RKVDataFolderTest {
 protected:
  RKVPixelsToolTest() {
    server_.setRoute("/ok", RKVTestRoute::answer(204, ""));
    server_.setRoute("/fail", RKVTestRoute::answer(500, ""));
  }
  Result pixels(Strings args, const std::string& input = "") {
    return run("pixels", std::move(args), input);
  }
  Json json(Strings args) {
    const Result result = pixels(std::move(args));
    EXPECT_EQ(result.status, kExitSuccess) << result.err;
    return Json::parse(result.out, nullptr, false);
  }
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

// Every pixel path of the two documents.
// clang-format off
const Strings kPixels = {"/imp/wrapper", "/imp/inline", "/loaded", "/start/wrapper", "/start/inline",
                         "/first-second", "/q1", "/progress3", "/mid", "/q3", "/complete/wrapper",
                         "/complete/inline", "/viewable", "/pause", "/resume", "/mute", "/skip"};
// clang-format on

class RKVPlayToolTest : public RKVDataFolderTest {
 protected:
  RKVPlayToolTest() {
    for (const std::string& path : kPixels)
      server_.setRoute(path, RKVTestRoute::answer(204, ""));
    server_.setRoute("/inline.xml",
                     RKVTestRoute::answer(200, inlineXML("<Duration>00:00:10</Duration>")));
    server_.setRoute("/no-duration.xml", RKVTestRoute::answer(200, inlineXML("")));
    server_.setRoute("/two-days.xml",
                     RKVTestRoute::answer(200, inlineXML("<Duration>48:00:00</Duration>")));
    server_.setRoute("/wrapper.xml", RKVTestRoute::answer(200, wrapperXML()));
  }

  std::string pixel(const std::string& path, const std::string& event,
                    const std::string& attributes = "") {
    return "<Tracking event=\"" + event + "\"" + attributes + "><![CDATA[" + server_.url(path) +
           "]]></Tracking>";
  }
  std::string inlineXML(const std::string& duration) {
    return "<VAST version=\"4.0\"><Ad id=\"inline-1\"><InLine><AdSystem>S</AdSystem><AdTitle>T"
           "</AdTitle><Impression><![CDATA[" +
           server_.url("/imp/inline?cb=[CACHEBUSTING]") +
           "]]></Impression><ViewableImpression><Viewable><![CDATA[" +
           server_.url("/viewable?ph=[ADPLAYHEAD]") +
           "]]></Viewable></ViewableImpression><Creatives><Creative><Linear>" + duration +
           "<TrackingEvents>" + pixel("/start/inline", "start") + pixel("/q1", "firstQuartile") +
           pixel("/mid", "midpoint") + pixel("/q3", "thirdQuartile") +
           pixel("/complete/inline", "complete") + pixel("/loaded", "loaded") +
           pixel("/first-second", "firstSecond") +
           pixel("/progress3", "progress", " offset=\"00:00:03\"") + pixel("/pause", "pause") +
           pixel("/resume", "resume") + pixel("/mute", "mute") + pixel("/skip", "skip") +
           "</TrackingEvents><MediaFiles><MediaFile delivery=\"progressive\" type=\"video/mp4\" "
           "width=\"1280\" height=\"720\" bitrate=\"2000\"><![CDATA[" +
           server_.url("/media.mp4") +
           "]]></MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad></VAST>";
  }
  std::string wrapperXML() {
    return "<VAST version=\"4.0\"><Ad id=\"wrapper-1\"><Wrapper><AdSystem>W</AdSystem>"
           "<VASTAdTagURI><![CDATA[" +
           server_.url("/inline.xml") + "]]></VASTAdTagURI><Impression><![CDATA[" +
           server_.url("/imp/wrapper?cb=[CACHEBUSTING]") +
           "]]></Impression><Creatives><Creative><Linear><TrackingEvents>" +
           pixel("/start/wrapper", "start") + pixel("/complete/wrapper", "complete") +
           "</TrackingEvents></Linear></Creative></Creatives></Wrapper></Ad></VAST>";
  }

  Result play(Strings args) { return run("play", std::move(args)); }
  // The pixel paths in the order the server received them; impressions' [CACHEBUSTING] arrives
  // as 8 digits.
  Strings received() const {
    Strings paths;
    for (const auto& request : server_.requests()) {
      std::string path = request.target.substr(0, request.target.find('?'));
      EXPECT_TRUE(path.rfind("/imp/", 0) != 0 ||
                  std::regex_search(request.target, std::regex("\\?cb=[0-9]{8}$")))
          << request.target;
      if (std::find(kPixels.begin(), kPixels.end(), path) != kPixels.end()) paths.push_back(path);
    }
    return paths;
  }
};

TEST_F(RKVPlayToolTest, AWrapperPlaysEveryLevelsPixelsOnceAtTheirSimulatedTimes) {
  const Result result = play({"--speed", "20", "--json", "--mute-at", "1", "--pause-at", "4",
                              "--pause-for", "1", server_.url("/wrapper.xml")});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  const Json output = Json::parse(result.out);
  EXPECT_EQ(output["ad"], Json({{"id", "inline-1"}, {"wrapperDepth", 1}}));
  EXPECT_EQ(output["mediaFile"], server_.url("/media.mp4"));
  EXPECT_EQ(output["duration"], 10.0);

  // Every pixel but the skip's reaches the server exactly once, in the JSON's firing order.
  const Strings received = this->received();
  EXPECT_EQ(received,
            Strings({"/loaded", "/imp/wrapper", "/imp/inline", "/start/inline", "/start/wrapper",
                     "/first-second", "/mute", "/viewable", "/q1", "/progress3", "/pause",
                     "/resume", "/mid", "/q3", "/complete/inline", "/complete/wrapper"}));
  Strings fired;
  std::vector<double> times;
  for (const Json& event : output["events"]) {
    const std::string url = event["url"].get<std::string>().substr(server_.url("").size());
    fired.push_back(url.substr(0, url.find('?')));
    times.push_back(event["t"].get<double>());
  }
  EXPECT_EQ(fired, received);
  // Simulated times: the viewable pixel two seconds after the first tick set the time base; the
  // pause moves everything after it by its second.
  EXPECT_EQ(times, (std::vector<double>{0, 0, 0, 0, 0, 1, 1, 2.25, 2.5, 3, 4, 5, 6, 8.5, 11, 11}));
  EXPECT_EQ(output["pixels"], Json({{"queued", 16}, {"sent", 16}, {"pending", 0}}));
}

TEST_F(RKVPlayToolTest, ASkippedAdOnAViewTooLittleOnScreenFiresNeitherCompleteNorViewable) {
  const Result result = play({"--speed", "20", "--json", "--visible", "0.4", "--skip-at", "6",
                              server_.url("/inline.xml")});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  EXPECT_EQ(received(), Strings({"/loaded", "/imp/inline", "/start/inline", "/first-second", "/q1",
                                 "/progress3", "/mid", "/skip"}));
}

TEST_F(RKVPlayToolTest, TheEndFiresCompleteWhateverTheDuration) {
  // 10.244 × 100 / 100, the offset of "complete", is a little more than 10.244.
  server_.setRoute("/odd.xml",
                   RKVTestRoute::answer(200, inlineXML("<Duration>00:00:10.244</Duration>")));
  ASSERT_EQ(play({"--speed", "50", server_.url("/odd.xml")}).status, kExitSuccess);
  const Strings received = this->received();
  EXPECT_EQ(std::count(received.begin(), received.end(), "/complete/inline"), 1);
}

TEST_F(RKVPlayToolTest, PlayerEventsAtTheEndComeTooLate) {
  // The ad has ended with complete at 10 s: there is nothing left to mute, pause or skip.
  const Result result = play({"--speed", "50", "--mute-at", "10", "--pause-at", "10", "--pause-for",
                              "1", "--skip-at", "10", server_.url("/inline.xml")});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  EXPECT_NE(result.out.find("played to the end"), std::string::npos) << result.out;
  const Strings received = this->received();
  ASSERT_FALSE(received.empty());
  EXPECT_EQ(received.back(), "/complete/inline");
}

TEST_F(RKVPlayToolTest, ViewableCountsOnlyTheSecondsThatPlayed) {
  // Paused from 1 s to 4 s on screen: two seconds of the ad have not played before the resume.
  const Result result = play({"--speed", "50", "--json", "--pause-at", "1", "--pause-for", "3",
                              server_.url("/inline.xml")});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  const Json output = result.json();
  std::map<std::string, double> at;
  for (const Json& event : output["events"])
    at[event["event"].get<std::string>()] = event["t"].get<double>();
  EXPECT_EQ(at.at("resume"), 4);
  EXPECT_GT(at.at("viewable"), 4);
  // Its [ADPLAYHEAD] is the ad's position when it fired: three seconds were paused.
  const std::string playhead =
      RKVIABMacros::percentEncode(*RKVIABMacros::playhead(at.at("viewable") - 3));
  for (const Json& event : output["events"]) {
    if (event["event"] == "viewable") {
      EXPECT_NE(event["url"].get<std::string>().find("?ph=" + playhead), std::string::npos);
    }
  }
}

TEST_F(RKVPlayToolTest, ConsentInTheDataFolderFillsItsMacrosWhereverTheOptionStands) {
  {
    RKVUserDefaults defaults(
        std::make_shared<RKVSQLiteUserDefaultsStore>((dir_.path() / "defaults.sqlite").string()));
    defaults.setInteger("IABTCF_gdprApplies", 1);
    defaults.setString("IABTCF_TCString", "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA");
    defaults.setString("IABUSPrivacy_String", "1YNN");
    ASSERT_TRUE(defaults.synchronize());
  }
  std::string document = inlineXML("<Duration>00:00:01</Duration>");
  document.insert(document.find("<Impression>"),
                  "<Impression><![CDATA[" +
                      server_.url("/consent?g=[GDPR]&c=[GDPRCONSENT]&us=[US_PRIVACY]") +
                      "]]></Impression>");
  server_.setRoute("/consent.xml", RKVTestRoute::answer(200, document));
  // The data folder may also follow the subcommand.
  ASSERT_EQ(test::runTool({"play", "--data-dir", dir_.path().string(), "--speed", "50",
                           server_.url("/consent.xml")})
                .status,
            kExitSuccess);
  const auto requests = server_.requests();
  EXPECT_TRUE(std::ranges::any_of(requests, [](const auto& request) {
    return request.target == "/consent?g=1&c=CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA&us=1YNN";
  }));
}

TEST_F(RKVPlayToolTest, WhatCannotBePlayedFiresItsErrorPixels) {
  const std::string error =
      "<Error><![CDATA[" + server_.url("/error?code=[ERRORCODE]") + "]]></Error>";
  const std::string impression = "<Impression><![CDATA[" + server_.url("/imp") + "]]></Impression>";
  // A wrapper whose ad tag leads nowhere, and an inline ad with nothing linear to play.
  server_.setRoute("/lost.xml",
                   RKVTestRoute::answer(200,
                                        "<VAST version=\"4.0\"><Ad><Wrapper><AdSystem>W</AdSystem>"
                                        "<VASTAdTagURI><![CDATA[" +
                                            server_.url("/missing.xml") + "]]></VASTAdTagURI>" +
                                            impression + error + "</Wrapper></Ad></VAST>"));
  server_.setRoute(
      "/banner.xml",
      RKVTestRoute::answer(
          200, "<VAST version=\"4.0\"><Ad><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>" +
                   impression + error +
                   "<Creatives><Creative><NonLinearAds><NonLinear width=\"300\" height=\"50\">"
                   "<StaticResource creativeType=\"image/png\"><![CDATA[" +
                   server_.url("/b.png") +
                   "]]></StaticResource></NonLinear></NonLinearAds></Creative></Creatives>"
                   "</InLine></Ad></VAST>"));
  server_.setRoute("/error", RKVTestRoute::answer(204, ""));
  EXPECT_EQ(play({server_.url("/lost.xml")}).status, kExitFailure);
  EXPECT_EQ(play({server_.url("/banner.xml")}).status, kExitFailure);
  Strings errors;
  for (const auto& request : server_.requests()) {
    if (request.target.rfind("/error", 0) == 0) errors.push_back(request.target);
  }
  // No answer after the wrapper (303); a linear ad expected (201).
  EXPECT_EQ(errors, Strings({"/error?code=303", "/error?code=201"}));
}

TEST_F(RKVPlayToolTest, WhatCannotBePlayedFailsWithItsReason) {
  const struct {
    Strings args;
    int status;
    const char* says;
  } cases[] = {
      {{server_.url("/missing.xml")}, kExitFailure, "no ad to play"},
      {{server_.url("/no-duration.xml")}, kExitFailure, "no duration"},
      {{"--pause-at", "3", server_.url("/inline.xml")}, kExitUsage, "--pause-for"},
      {{"--visible", "1.5", server_.url("/inline.xml")}, kExitUsage, "from 0 to 1"},
      {{"--speed", "0", server_.url("/inline.xml")}, kExitUsage, "from 0.001 to 1000000"},
      {{"--pause-at", "1", "--pause-for", "1e300", server_.url("/inline.xml")},
       kExitUsage,
       "from 0 to 86400"},
      {{server_.url("/two-days.xml")}, kExitFailure, "more than a day"},
  };
  for (const auto& c : cases) {
    const Result result = play(c.args);
    EXPECT_EQ(result.status, c.status) << c.args.front();
    EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
  }
  EXPECT_TRUE(received().empty());
  // With the length given, the same creative plays.
  EXPECT_EQ(play({"--speed", "50", "--duration", "2", server_.url("/no-duration.xml")}).status,
            kExitSuccess);
}

}  // namespace
}  // namespace rkv::cli
