// rkv resolve against a loopback server, run in-process.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestVASTDocuments.h"
#include "tools/rkv/RKVCommandLine.h"

namespace rkv::cli {
namespace {

using test::inlineAd;
using test::RKVTestAd;
using test::RKVTestRoute;
using test::vastXML;
using test::wrapperAd;
using Lines = std::vector<std::string>;

struct Result {
  int status;
  std::string out;
  std::string err;
};

Result runTool(std::vector<std::string> args) {
  args.insert(args.begin(), {"rkv", "resolve"});
  std::vector<const char*> argv;
  for (const auto& arg : args)
    argv.push_back(arg.c_str());
  std::ostringstream out;
  std::ostringstream err;
  const int status = run(static_cast<int>(argv.size()), argv.data(), out, err);
  return {status, out.str(), err.str()};
}

// The answers of a JSON log: the ad's id and depth, or the error code.
Lines answers(const nlohmann::json& log) {
  Lines lines;
  for (const auto& entry : log) {
    if (!entry.contains("next")) continue;
    lines.push_back(entry.contains("ad")
                        ? entry["ad"]["id"].get<std::string>() + "/" +
                              std::to_string(entry["ad"]["wrapperDepth"].get<int>())
                        : std::to_string(entry["error"]["code"].get<int>()));
  }
  return lines;
}

class RKVResolveCommandTest : public ::testing::Test {
 protected:
  ~RKVResolveCommandTest() override { std::filesystem::remove(file_); }

  // Writes the root document and returns its path.
  std::string root(const std::vector<RKVTestAd>& ads) {
    std::ofstream(file_) << vastXML(ads);
    return file_.string();
  }
  void serve(const std::string& path, const std::vector<RKVTestAd>& ads) {
    server_.setRoute(path, RKVTestRoute::answer(200, vastXML(ads)));
  }

  test::RKVTestHTTPServer server_;
  std::filesystem::path file_ = std::filesystem::temp_directory_path() /
                                ("rkv-resolve-test-" + std::to_string(::getpid()) + ".xml");
};

TEST_F(RKVResolveCommandTest, TheJSONLogHasEveryCallAndAnswerInOrder) {
  serve("/w1", {wrapperAd("w1", server_.url("/inline"))});
  serve("/inline", {inlineAd("i")});
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  RKVTestAd passback = wrapperAd("wp", server_.url("/noad"));
  passback.errors = {"http://err.example/wp"};

  const Result result =
      runTool({root({wrapperAd("w0", server_.url("/w1")), passback}), "--json", "--fail"});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  const auto output = nlohmann::json::parse(result.out);
  ASSERT_EQ(output.size(), 1u);
  const auto& log = output["log"];
  ASSERT_EQ(log.size(), 6u) << log.dump(2);
  EXPECT_EQ(log[0], nlohmann::json::parse(R"({"event": "ready"})"));
  EXPECT_EQ(log[1], nlohmann::json::parse(R"({"event": "startResolveWrapper", "adID": "w0"})"));
  EXPECT_EQ(log[2]["next"], nlohmann::json::parse(R"({"dueToAdFailure": false})"));
  EXPECT_EQ(log[2]["ad"]["kind"], "inline");
  EXPECT_EQ(log[2]["ad"]["id"], "i");
  EXPECT_EQ(log[2]["ad"]["wrapperDepth"], 2);
  EXPECT_EQ(log[3], nlohmann::json::parse(R"({"event": "startResolveWrapper", "adID": "wp"})"));
  EXPECT_EQ(log[4], nlohmann::json::parse(R"({"event": "vastError",
      "name": "VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE", "vastCode": 303, "vendorCode": 303001,
      "errorURLs": ["http://err.example/noad", "http://err.example/wp"],
      "hasVASTResponse": true})"));
  EXPECT_EQ(log[5], nlohmann::json::parse(R"({"next": {"dueToAdFailure": true}, "error":
      {"domain": "RKVVASTErrorDomain", "code": 10007, "description": "No more Passback."}})"));
}

TEST_F(RKVResolveCommandTest, OptionsShapeTheResolution) {
  auto sequenced = [](std::string id, std::string sequence) {
    RKVTestAd ad = inlineAd(std::move(id));
    ad.sequence = std::move(sequence);
    return ad;
  };
  serve("/pod", {sequenced("p2", "2"), sequenced("p1", "1"), sequenced("p3", "3")});
  serve("/w1", {wrapperAd("w1", server_.url("/inline"))});
  serve("/inline", {inlineAd("i")});
  server_.setRoute("/silent", RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
  RKVTestAd impressed = wrapperAd("w", server_.url("/inline"));
  impressed.impressions = {"http://imp.example/w"};

  struct Case {
    std::vector<RKVTestAd> ads;  // the root document; none: the URL of /inline
    Lines options;
    Lines answers;
    int status;
  };
  const std::vector<Case> cases = {
      {{wrapperAd("w", server_.url("/pod"))}, {}, {"p2/1", "10005"}, kExitSuccess},
      {{wrapperAd("w", server_.url("/pod"))},
       {"--pods"},
       {"p1/1", "p2/1", "p3/1", "10005"},
       kExitSuccess},
      {{wrapperAd("w0", server_.url("/w1"))}, {}, {"i/2", "10005"}, kExitSuccess},
      {{wrapperAd("w0", server_.url("/w1"))}, {"--max-wrappers", "1"}, {"10005"}, kExitFailure},
      {{wrapperAd("w", server_.url("/inline"))}, {"--strict-impressions"}, {"10005"}, kExitFailure},
      {{impressed}, {"--strict-impressions"}, {"i/1", "10005"}, kExitSuccess},
      {{wrapperAd("w", server_.url("/silent"))}, {"--timeout", "0.5"}, {"10005"}, kExitFailure},
      {{inlineAd("a"), inlineAd("b")}, {"--fail"}, {"a/0", "b/0", "10007"}, kExitSuccess},
      {{}, {}, {"i/0", "10005"}, kExitSuccess},
  };
  for (const Case& c : cases) {
    Lines args = {c.ads.empty() ? server_.url("/inline") : root(c.ads), "--json"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    SCOPED_TRACE(testing::PrintToString(args));
    const Result result = runTool(args);
    EXPECT_EQ(result.status, c.status) << result.err;
    EXPECT_EQ(answers(nlohmann::json::parse(result.out)["log"]), c.answers) << result.out;
  }
}

TEST_F(RKVResolveCommandTest, ReadableOutputAndUsageErrors) {
  serve("/inline", {inlineAd("i")});
  const Result readable = runTool({server_.url("/inline")});
  EXPECT_EQ(readable.status, kExitSuccess) << readable.err;
  EXPECT_EQ(readable.out,
            "ready to provide ads\n"
            "next ad: ad \"i\" (inline, wrapper depth 0): AdSystem \"rkv-test\", AdTitle \"i\", 0 "
            "impression(s), 0 error URL(s), 1 linear, 0 non-linear and 0 companion creative(s)\n"
            "next ad: error 10005 \"No more ads available.\"\n"
            "1 ad(s) handed out\n");

  for (const Lines& args : std::vector<Lines>{{},
                                              {"/no/such/file.xml"},
                                              {"bad://[", "--json"},
                                              {server_.url("/inline"), "--timeout", "0"},
                                              {server_.url("/inline"), "--max-wrappers", "-1"}}) {
    SCOPED_TRACE(testing::PrintToString(args));
    const Result result = runTool(args);
    EXPECT_EQ(result.status, kExitUsage);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

}  // namespace
}  // namespace rkv::cli
