// `rkv inspect`, run as the built tool: every corpus document, the counts of real samples, the
// outline, standard input, URLs through a loopback server, and the exit statuses.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestPaths.h"

namespace rkv {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Strings = std::vector<std::string>;

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

class RKVInspectCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/rkv-inspect-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Runs the tool with the arguments, standard input from `input`.
  ToolRun run(const Strings& args, const std::string& input = "") {
    const fs::path in = dir_ / "in", out = dir_ / "out", err = dir_ / "err";
    std::ofstream(in, std::ios::binary) << input;
    std::string command = quoted(test::toolPath().string());
    for (const std::string& arg : args)
      command += " " + quoted(arg);
    command += " <" + quoted(in) + " >" + quoted(out) + " 2>" + quoted(err);
    const int raw = std::system(command.c_str());
    ToolRun result;
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.out = test::readFile(out);
    result.err = test::readFile(err);
    return result;
  }

  // The JSON object the run printed; fails the test unless it is exactly one object.
  static Json parse(const ToolRun& run, const std::string& what) {
    Json json;
    try {
      json = Json::parse(run.out);
    } catch (const std::exception& e) {
      ADD_FAILURE() << what << ": " << e.what() << "\n" << run.out.substr(0, 200);
    }
    EXPECT_TRUE(json.is_object()) << what;
    return json;
  }

  fs::path dir_;
};

size_t occurrences(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
    ++count;
  return count;
}

template <typename Count>
size_t sum(const Json& list, Count count) {
  size_t total = 0;
  for (const Json& item : list)
    total += count(item);
  return total;
}

// Every tracking event of every creative (icons included) and every verification.
size_t trackingEvents(const Json& ad) {
  size_t total = 0;
  for (const char* kind : {"linear", "nonLinear", "companion", "adVerifications"}) {
    total += sum(ad[kind], [](const Json& c) { return c["trackingEvents"].size(); });
  }
  total += sum(ad["linear"], [](const Json& linear) {
    return sum(linear["icons"], [](const Json& icon) { return icon["trackingEvents"].size(); });
  });
  return total;
}

TEST_F(RKVInspectCommandTest, EveryCorpusDocumentGivesOneJSONObject) {
  const Strings keys = {"ok",      "error",   "reported",    "version", "errorPixels",
                        "isAdPod", "mainAds", "passbackAds", "ads"};
  size_t documents = 0, refused = 0;
  for (const auto& entry : fs::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    ++documents;
    const std::string name = entry.path().string();
    const ToolRun result = run({"inspect", "--json", name});
    ASSERT_TRUE(result.status == 0 || result.status == 1) << name << "\n" << result.err;
    const Json json = parse(result, name);
    Strings found;
    for (const auto& item : json.items())
      found.push_back(item.key());
    EXPECT_EQ(found, keys) << name;
    EXPECT_EQ(json["ok"], result.status == 0) << name;
    for (const Json& index : json["mainAds"])
      EXPECT_LT(index.get<size_t>(), json["ads"].size()) << name;

    // The VAST 1.0 documents (no version attribute) are refused cleanly.
    if (test::readFile(entry.path()).find("<VideoAdServingTemplate") != std::string::npos) {
      ++refused;
      EXPECT_EQ(result.status, 1) << name;
      EXPECT_EQ(json["error"]["code"], 101) << name;
      ASSERT_EQ(json["reported"].size(), 1u) << name;
      EXPECT_EQ(json["reported"][0]["name"], "VAST_VALIDATION_ERROR_MISSING_VERSION");
      EXPECT_EQ(json["reported"][0]["vendorCode"], 101001);
      EXPECT_TRUE(json["ads"].empty());
    } else {
      EXPECT_EQ(result.status, 0) << name;
    }
  }
  EXPECT_EQ(documents, 76u);
  EXPECT_EQ(refused, 6u);
}

// What the samples hold, counted in their XML.
TEST_F(RKVInspectCommandTest, SamplesYieldWhatTheyContain) {
  const char* samples[] = {
      "iab/vast-4.2/Inline_Linear_Tag-test.xml",
      "iab/vast-4.2/Inline_Companion_Tag-test.xml",
      "iab/vast-4.1/Ad_Verification-test.xml",
      "iab/vast-3.0/Inline_Non-Linear_Tag-test.xml",
      "iab/vast-4.0/Wrapper_Tag-test.xml",
      "iab/vast-1-2.0/tremor-video-samples/vast2Nonlinear.xml",
      "synthetic/vast-4.2-200ads.xml",
  };
  for (const char* sample : samples) {
    const std::string xml = test::readFile(test::corpusDir() / sample);
    const ToolRun result = run({"inspect", "--json", (test::corpusDir() / sample).string()});
    ASSERT_EQ(result.status, 0) << sample;
    const Json json = parse(result, sample);
    const Json& ads = json["ads"];
    EXPECT_EQ(ads.size(), occurrences(xml, "<Ad ")) << sample;
    EXPECT_EQ(sum(ads, [](const Json& ad) { return ad["kind"] == "wrapper" ? 1u : 0u; }),
              occurrences(xml, "<Wrapper"))
        << sample;
    EXPECT_EQ(sum(ads, [](const Json& ad) { return ad["impressions"].size(); }),
              occurrences(xml, "<Impression"))
        << sample;
    EXPECT_EQ(sum(ads,
                  [](const Json& ad) {
                    return sum(ad["linear"],
                               [](const Json& linear) { return linear["mediaFiles"].size(); });
                  }),
              occurrences(xml, "<MediaFile "))
        << sample;
    EXPECT_EQ(sum(ads, trackingEvents), occurrences(xml, "<Tracking ")) << sample;
    EXPECT_EQ(sum(ads, [](const Json& ad) { return ad["nonLinear"].size(); }),
              occurrences(xml, "<NonLinear "))
        << sample;
    EXPECT_EQ(sum(ads, [](const Json& ad) { return ad["adVerifications"].size(); }),
              occurrences(xml, "<Verification>") + occurrences(xml, "<Verification "))
        << sample;
    for (const Json& ad : ads)
      EXPECT_TRUE(ad["valid"]) << sample;
  }

  // One sample in detail.
  const ToolRun linear =
      run({"inspect", "--json",
           (test::corpusDir() / "iab/vast-4.2/Inline_Linear_Tag-test.xml").string()});
  const Json ad = parse(linear, "linear")["ads"][0];
  EXPECT_EQ(ad["id"], "20001");
  EXPECT_EQ(ad["sequence"], "1");
  EXPECT_EQ(ad["linear"][0]["duration"], "00:00:16");
  EXPECT_EQ(ad["linear"][0]["mostAppropriateMediaFile"],
            "https://iab-publicfiles.s3.amazonaws.com/vast/VAST-4.0-Short-Intro.mp4");
  EXPECT_EQ(ad["linear"][0]["mediaFiles"][0]["width"], 1280);
  EXPECT_EQ(ad["linear"][0]["trackingEvents"][1]["offset"], "00:00:10");
  EXPECT_EQ(ad["linear"][0]["universalAdIds"][0]["registry"], "Ad-ID");
  EXPECT_TRUE(ad["extensions"].is_object());
  EXPECT_TRUE(ad["adTagURI"].is_null());
}

TEST_F(RKVInspectCommandTest, OutlineInputsAndExitStatuses) {
  const std::string sample =
      (test::corpusDir() / "iab/vast-4.2/Inline_Companion_Tag-test.xml").string();
  const ToolRun outline = run({"inspect", sample});
  EXPECT_EQ(outline.status, 0);
  for (const char* piece : {"VAST 4.2: 1 ad(s)", "inline ad", "linear creative 1",
                            "media file video/mp4", "tracking start", "companion creative 1"})
    EXPECT_NE(outline.out.find(piece), std::string::npos) << piece << "\n" << outline.out;

  // Standard input, read as the answer to a wrapper: the wrapper forms of the errors.
  const ToolRun piped = run({"inspect", "--json", "--wrapper", "-"}, "<VAST version='4.2'>");
  EXPECT_EQ(piped.status, 1);
  const Json json = parse(piped, "piped");
  EXPECT_EQ(json["reported"][0]["name"], "XML_PARSING_ERROR_WRAPPER");
  EXPECT_EQ(json["error"]["code"], 303);
  EXPECT_TRUE(json["version"].is_null());
  EXPECT_EQ(json["isAdPod"], false);

  // A document without ads has a model, and so succeeds, with the missing-ad error.
  const ToolRun empty = run({"inspect", "--json", "-"},
                            "<VAST version='3.0'><Error>http://e.test/[ERRORCODE]</Error></VAST>");
  EXPECT_EQ(empty.status, 0);
  const Json noAds = parse(empty, "no ads");
  EXPECT_EQ(noAds["ok"], true);
  EXPECT_EQ(noAds["error"]["code"], 101);
  EXPECT_EQ(noAds["errorPixels"], Json::array({"http://e.test/%5BERRORCODE%5D"}));

  const ToolRun missing = run({"inspect", (dir_ / "no-such-file.xml").string()});
  EXPECT_EQ(missing.status, 2);
  EXPECT_TRUE(missing.out.empty());
  EXPECT_NE(missing.err.find("cannot read"), std::string::npos);
  EXPECT_EQ(run({"inspect"}).status, 2);

  // Console log lines go to standard error only.
  const ToolRun verbose = run({"--verbose", "inspect", "--json", "-"}, "<VideoAdServingTemplate/>");
  EXPECT_EQ(verbose.status, 1);
  parse(verbose, "verbose");
  EXPECT_NE(verbose.err.find("VAST XML Tag does not contain the version attribute and is invalid."),
            std::string::npos);
}

TEST_F(RKVInspectCommandTest, URLsAreDownloadedAsWrappersAre) {
  test::RKVTestHTTPServer server;
  const std::string document =
      test::readFile(test::corpusDir() / "iab/vast-4.2/Inline_Linear_Tag-test.xml");
  server.setRoute("/vast", test::RKVTestRoute::answer(404, document));
  server.setRoute("/slow", test::RKVTestRoute::answer(200, document, std::chrono::seconds(5)));

  const ToolRun found = run({"inspect", "--json", server.url("/vast")});
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_EQ(parse(found, "404")["ads"].size(), 1u);

  const ToolRun slow = run({"inspect", "--json", "--timeout", "0.3", server.url("/slow")});
  EXPECT_EQ(slow.status, 1);
  const Json timedOut = parse(slow, "slow");
  EXPECT_EQ(timedOut["reported"][0]["name"], "VAST_WRAPPER_ERROR_FETCH_TIMEOUT");
  EXPECT_EQ(timedOut["error"]["code"], 301);

  const ToolRun refused =
      run({"inspect", "--json",
           "http://127.0.0.1:" + std::to_string(test::RKVTestHTTPServer::closedPort()) + "/vast"});
  EXPECT_EQ(refused.status, 1);
  const Json failed = parse(refused, "refused");
  EXPECT_EQ(failed["reported"][0]["name"], "VAST_WRAPPER_ERROR_FETCH");
  EXPECT_EQ(failed["error"]["code"], 10003);
  EXPECT_EQ(failed["error"]["description"], "Unable to download XML.");
}

}  // namespace
}  // namespace rkv
