// The rkv tool, run in-process: inspect over the corpus; resolve's options and its log of
// delegate calls and answers; one table of every command's outputs, statuses, usage errors,
// diagnostics and lost output; the version and the error catalogue.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/net/RKVURLSessionProvider.h"

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/support/RKVTestTLSServer.h"
#include "tests/support/RKVTestVASTDocuments.h"
#include "tests/tools/RKVToolRun.h"
#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVInput.h"
#include "tools/rkv/RKVInspection.h"

namespace rkv::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Strings = std::vector<std::string>;
using test::inlineAd;
using test::RKVTestAd;
using test::RKVTestRoute;
using test::vastXML;
using test::wrapperAd;

using Result = test::RKVToolResult;
using test::runTool;

bool contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

size_t occurrences(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
    ++count;
  return count;
}

// The number of values at `path` below `json`: keys separated by "/", "*" for every element.
size_t count(const Json& json, std::string_view path) {
  if (path.empty()) return 1;
  const std::string key(path.substr(0, path.find('/')));
  const std::string_view rest = path.substr(std::min(path.size(), key.size() + 1));
  size_t total = 0;
  if (key == "*") {
    for (const Json& item : json)
      total += count(item, rest);
  } else if (json.contains(key)) {
    total = count(json[key], rest);
  }
  return total;
}

TEST(RKVToolTest, InspectGivesOneJSONObjectForEveryCorpusDocument) {
  const Strings keys = {"ok",      "error",   "reported",    "version", "errorPixels",
                        "isAdPod", "mainAds", "passbackAds", "ads"};
  size_t documents = 0, refused = 0, complete = 0;
  for (const auto& entry : fs::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    SCOPED_TRACE(entry.path());
    ++documents;
    const Result result = runTool({"inspect", "--json", entry.path().string()});
    const Json json = result.json();
    const Json& ads = json["ads"];
    Strings found;
    for (const auto& item : json.items())
      found.push_back(item.key());
    EXPECT_EQ(found, keys);
    EXPECT_EQ(json["ok"], result.status == kExitSuccess);
    const std::string xml = test::readFile(entry.path());
    // The VAST 1.0 documents (no version attribute) are refused cleanly.
    if (xml.find("<VideoAdServingTemplate") != std::string::npos) {
      ++refused;
      EXPECT_EQ(result.status, kExitFailure);
      EXPECT_EQ(json["reported"][0]["name"], "VAST_VALIDATION_ERROR_MISSING_VERSION");
      EXPECT_EQ(json["error"]["code"], 101);
      continue;
    }
    EXPECT_EQ(result.status, kExitSuccess);
    // A document whose ads are all valid shows every ad, impression, media file, non-linear
    // creative and tracking event (of every creative, icons included, and verification); but
    // two samples with a second NonLinear, which is not read, and tracking of unknown names.
    const std::string name = entry.path().filename().string();
    if (occurrences(ads.dump(), R"("valid":false)") > 0 || name == "vast_inline_nonlinear.xml" ||
        name == "vast_wrapper_nonlinear_1.xml")
      continue;
    ++complete;
    EXPECT_EQ(ads.size(), occurrences(xml, "<Ad "));
    EXPECT_EQ(occurrences(ads.dump(), R"("kind":"wrapper")"), occurrences(xml, "<Wrapper"));
    EXPECT_EQ(count(ads, "*/impressions/*"), occurrences(xml, "<Impression"));
    EXPECT_EQ(count(ads, "*/linear/*/mediaFiles/*"), occurrences(xml, "<MediaFile "));
    EXPECT_EQ(count(ads, "*/nonLinear/*"),
              occurrences(xml, "<NonLinear ") + occurrences(xml, "<NonLinear>"));
    size_t tracking = count(ads, "*/linear/*/icons/*/trackingEvents/*");
    for (const std::string kind : {"linear", "nonLinear", "companion", "adVerifications"})
      tracking += count(ads, "*/" + kind + "/*/trackingEvents/*");
    EXPECT_EQ(tracking, occurrences(xml, "<Tracking "));
  }
  EXPECT_EQ(documents, 76u);
  EXPECT_EQ(refused, 6u);
  EXPECT_EQ(complete, 65u);
}

class RKVResolveTest : public ::testing::Test {
 protected:
  ~RKVResolveTest() override { fs::remove(file_); }
  // Writes the root document and returns its path.
  std::string root(const std::vector<RKVTestAd>& ads) {
    std::ofstream(file_) << vastXML(ads);
    return file_.string();
  }
  void serve(const std::string& path, const std::vector<RKVTestAd>& ads) {
    server_.setRoute(path, RKVTestRoute::answer(200, vastXML(ads)));
  }
  // One line per entry of a JSON log: the event with its ad or error name, or the answer's ad
  // and depth or error code.
  static std::string summary(const Json& log) {
    std::string text;
    for (const Json& entry : log) {
      text += text.empty() ? "" : " | ";
      if (entry.contains("event")) {
        text += entry["event"].get<std::string>() + " " + entry.value("adID", "") +
                entry.value("name", "");
      } else if (entry.contains("ad")) {
        text += entry["ad"]["id"].get<std::string>() + "/" + entry["ad"]["wrapperDepth"].dump();
      } else {
        text += entry["error"]["code"].dump();
      }
    }
    return text;
  }

  test::RKVTestHTTPServer server_;
  fs::path file_ =
      fs::temp_directory_path() / ("rkv-resolve-" + std::to_string(::getpid()) + ".xml");
};

// The options shape the resolution; the JSON log holds every delegate call and answer in order.
TEST_F(RKVResolveTest, OptionsShapeTheResolutionAndTheJSONLogHasEveryCall) {
  std::vector<RKVTestAd> pod = {inlineAd("p2"), inlineAd("p1"), inlineAd("p3")};
  for (auto& ad : pod)
    ad.sequence = ad.id.substr(1);
  serve("/pod", pod);
  serve("/w1", {wrapperAd("w1", server_.url("/inline"))});
  serve("/inline", {inlineAd("i")});
  server_.setRoute("/silent", RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
  RKVTestAd impressed = wrapperAd("w", server_.url("/w1"));  // w1 has no impression
  impressed.impressions = {"http://imp.example/w"};
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  RKVTestAd passback = wrapperAd("wp", server_.url("/noad"));
  passback.errors = {"http://err.example/wp"};
  const struct {
    std::vector<RKVTestAd> ads;  // the root document; none: the URL of /inline
    Strings options;
    std::string answers;
    int status;
  } cases[] = {
      {{wrapperAd("w", server_.url("/pod"))}, {}, "p2/1 | 10005", kExitSuccess},
      {{wrapperAd("w", server_.url("/pod"))}, {"--pods"}, "p1/1 | p2/1 | p3/1 | 10005", 0},
      {{wrapperAd("w0", server_.url("/w1"))}, {"--max-wrappers", "1"}, "10005", kExitFailure},
      {{wrapperAd("w", server_.url("/inline"))}, {"--strict-impressions"}, "10005", kExitFailure},
      {{impressed}, {"--strict-impressions"}, "i/2 | 10005", kExitSuccess},
      {{wrapperAd("w", server_.url("/silent"))}, {"--timeout", "0.5"}, "10005", kExitFailure},
      {{inlineAd("a"), inlineAd("b")}, {"--fail"}, "a/0 | b/0 | 10007", kExitSuccess},
      {{}, {}, "i/0 | 10005", kExitSuccess},
      {{wrapperAd("w0", server_.url("/w1")), passback}, {"--fail"}, "i/2 | 10007", kExitSuccess},
  };
  Json log;  // the last row's, checked in full below
  for (const auto& c : cases) {
    Strings args = {"resolve", c.ads.empty() ? server_.url("/inline") : root(c.ads), "--json"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    SCOPED_TRACE(testing::PrintToString(args));
    const Result result = runTool(args);
    EXPECT_EQ(result.status, c.status) << result.err;
    Json answers = Json::array();
    log = result.json()["log"];
    for (const Json& entry : log)
      if (entry.contains("next")) answers.push_back(entry);
    EXPECT_EQ(summary(answers), c.answers);
  }
  EXPECT_EQ(summary(log),
            "ready  | startResolveWrapper w0 | i/2 | startResolveWrapper wp | "
            "vastError VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE | 10007");
  EXPECT_EQ(log[4], Json::parse(R"({"event": "vastError",
      "name": "VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE", "vastCode": 303, "vendorCode": 303001,
      "errorURLs": ["http://err.example/noad", "http://err.example/wp"],
      "hasVASTResponse": true})"));
  EXPECT_EQ(log[5], Json::parse(R"({"next": {"dueToAdFailure": true}, "error":
      {"domain": "RKVVASTErrorDomain", "code": 10007, "description": "No more Passback."}})"));
}

// One table for what each command prints and returns. Every argument is read by one rule: "-",
// a URL (a scheme and "://"), or a file; what cannot be read, and option values out of range, are
// usage errors that print nothing on the output and one short message. Otherwise the error stream
// says why a download failed (the transport's record) or why the bytes are not XML (expat's
// message, line and column), and is empty when there is nothing to say. Document text cannot fake
// lines of the readable outputs.
TEST(RKVToolTest, OutputsStatusesAndDiagnostics) {
  test::RKVTestHTTPServer server;
  server.setRoute("/broken", RKVTestRoute::answer(200, "<VAST version='4.2'>\n  <Ad></VAST>"));
  server.setRoute("/ftp", RKVTestRoute::redirect("ftp://127.0.0.1/x"));
  server.setRoute("/inline", RKVTestRoute::answer(200, vastXML({inlineAd("i")})));
  server.setRoute("/slow", RKVTestRoute::answer(200, "<VAST/>", std::chrono::seconds(5)));
  const std::string closed =
      "http://127.0.0.1:" + std::to_string(test::RKVTestHTTPServer::closedPort()) + "/x";
  test::RKVTestTLSServer tls(vastXML({inlineAd("t")}));
  ASSERT_TRUE(tls.isRunning());
  const std::string directory = fs::temp_directory_path().string();
  const std::string timeoutMessage = "--timeout: must be a number of seconds greater than 0";
  const std::string wholeNumber = "--max-wrappers: must be a whole number, 0 or more";
  const std::string escaped =
      "<VAST version='4.2'><Ad id='a&#10;b'><InLine><AdSystem>S&#9;s</AdSystem>"
      "<AdTitle>T&#10;#2 inline ad, id &quot;x&quot;&#13;&#x7F;&#x85;.</AdTitle><Creatives>"
      "<Creative><Linear><Duration>00:00:10</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m.test/1.mp4</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"
      "</VAST>";
  const std::string title = "\"T\\n#2 inline ad, id \"x\"\\r\\x7F\\u0085.\"";
  const std::string notFound = "/no/such/file.xml";
  const struct {
    Strings args;
    std::string input;
    int status;
    Strings out;      // pieces of the output
    std::string err;  // a piece of the error stream; empty: nothing on it (but a usage error)
  } cases[] = {
      // clang-format off
      {{"inspect", (test::corpusDir() / "iab/vast-4.2/Inline_Companion_Tag-test.xml").string()}, "", kExitSuccess,
       {"VAST 4.2: 1 ad(s)", "linear creative 1", "media file video/mp4", "tracking start",
        "companion creative 1"}, ""},
      // Standard input read as the answer to a wrapper: the wrapper forms of the errors.
      {{"inspect", "--json", "--wrapper", "-"}, "<VAST version='4.2'>", kExitFailure,
       {"XML_PARSING_ERROR_WRAPPER"},
       "rkv inspect: not well-formed XML at line 1, column 21: no element found\n"},
      // A document without ads has a model, and so succeeds, with the missing-ad error.
      {{"inspect", "--json", "-"}, "<VAST version='3.0'><Error>http://e.test/[E]</Error></VAST>",
       kExitSuccess, {"http://e.test/%5BE%5D"}, ""},
      {{"inspect", "-"}, "<VAST version='4.2'>\n<Ad><b></Ad>", kExitFailure, {},
       "rkv inspect: not well-formed XML at line 2, column 10: mismatched tag\n"},
      // A parsing error of a well-formed document has no XML reason to give.
      {{"inspect", "-"}, "<VAST version='4.2'><Ad><Foo/></Ad></VAST>", kExitSuccess, {}, ""},
      {{"inspect", server.url("/broken")}, "", kExitFailure, {},
       "rkv inspect: not well-formed XML at line 2, column 9: mismatched tag\n"},
      {{"inspect", server.url("/inline")}, "", kExitSuccess, {}, ""},
      // URLs are downloaded as wrappers are, within the time-out.
      {{"inspect", "--json", "--timeout", "0.3", server.url("/slow")}, "", kExitFailure,
       {"VAST_WRAPPER_ERROR_FETCH_TIMEOUT"}, "Code=-1001"},
      {{"inspect", "--json", closed}, "", kExitFailure, {}, "rkv inspect: download of " + closed +
       " failed: Error Domain=NSURLErrorDomain Code=-1004 \"Could not connect to the server.\"\n"},
      {{"inspect", server.url("/ftp")}, "", kExitFailure, {}, "rkv inspect: download of " +
       server.url("/ftp") + " failed: Error Domain=NSURLErrorDomain Code=-1002 \"unsupported URL\"\n"},
      {{"inspect", tls.url("/vast")}, "", kExitFailure, {}, "rkv inspect: download of " +
       tls.url("/vast") + " failed: Error Domain=NSURLErrorDomain Code=-1202 \"The certificate for "
       "this server is invalid.\"\n"},
      {{"resolve", "-"}, vastXML({wrapperAd("w", closed)}), kExitFailure, {},
       "rkv resolve: download of " + closed + " failed: Error Domain=NSURLErrorDomain Code=-1004"},
      {{"resolve", "-"}, "<VAST version='4.2'>\n<Ad><b></Ad>", kExitFailure, {},
       "rkv resolve: not well-formed XML at line 2, column 10: mismatched tag\n"},
      {{"resolve", "-"}, vastXML({wrapperAd("w", server.url("/broken"))}), kExitFailure, {},
       "rkv resolve: a wrapper's answer is not well-formed XML at line 2, column 9: mismatched tag\n"},
      {{"resolve", server.url("/inline")}, "", kExitSuccess,
       {"next ad: error 10005 \"No more ads available.\"\n"}, ""},
      {{"inspect", "-"}, escaped, kExitSuccess,
       {"#1 inline ad, id \"a\\nb\"", "system \"S\\ts\", title " + title + "\n"}, ""},
      {{"resolve", "-"}, escaped, kExitSuccess, {"AdTitle " + title}, ""},
      {{"--version"}, "", kExitSuccess, {}, ""},
      {{"no-such-command"}, "", kExitUsage, {}, ""},
      {{"--data-dir", "", "errors", "301"}, "", kExitUsage, {}, "--data-dir: must not be empty"},
      // Global options may follow the subcommand (rkv inspect --verbose URL).
      {{"errors", "301", "--data-dir", ""}, "", kExitUsage, {}, "--data-dir: must not be empty"},
      {{"errors", "7"}, "", kExitFailure, {}, "rkv errors: no VAST error has the code 7\n"},
      {{"errors", "301", "7"}, "", kExitFailure, {"VAST_WRAPPER_ERROR_FETCH\""},
       "rkv errors: no VAST error has the code 7\n"},
      {{"errors", "seven"}, "", kExitUsage, {}, ""},
      // Codes are decimal, as printed: a leading zero is not octal, "0x12D" is no code.
      {{"errors", "0301003"}, "", kExitSuccess, {"VAST_WRAPPER_ERROR_FETCH_TIMEOUT"}, ""},
      {{"errors", "0x12D"}, "", kExitUsage, {}, "code: must be a whole number in decimal"},
      {{"inspect"}, "", kExitUsage, {}, ""},
      {{"inspect", directory}, "", kExitUsage, {}, "rkv inspect: cannot read " + directory + ": Is a directory"},
      {{"resolve", notFound}, "", kExitUsage, {},
       "rkv resolve: cannot read " + notFound + ": No such file or directory"},
      {{"inspect", "http://host:99999/x"}, "", kExitUsage, {}, "rkv inspect: not a valid URL: http://host:99999/x"},
      {{"resolve", "http:///x"}, "", kExitUsage, {}, "rkv resolve: not a valid URL: http:///x"},
      {{"inspect", "ftp://host/x"}, "", kExitUsage, {}, "rkv inspect: not an http or https URL: ftp://host/x"},
      {{"resolve", "FILE://host/x"}, "", kExitUsage, {}, "rkv resolve: not an http or https URL: FILE://host/x"},
      {{"resolve", closed, "--timeout", "0"}, "", kExitUsage, {}, timeoutMessage},
      {{"resolve", closed, "--timeout", "-1"}, "", kExitUsage, {}, timeoutMessage},
      {{"resolve", closed, "--timeout", "abc"}, "", kExitUsage, {}, timeoutMessage},
      {{"resolve", closed, "--timeout", "inf"}, "", kExitUsage, {}, timeoutMessage},
      // inspect passes any time-out on: 0 or less is the generator's 5031.
      {{"inspect", "--json", "--timeout", "0", "-"}, vastXML({inlineAd("i")}), kExitFailure,
       {"\"code\": 5031"}, ""},
      {{"inspect", "--timeout", "abc", "-"}, "", kExitUsage, {}, "--timeout: must be a number of seconds"},
      {{"inspect", "--timeout", "nan", "-"}, "", kExitUsage, {}, "--timeout: must be a number of seconds"},
      {{"resolve", server.url("/inline"), "--max-wrappers", "08"}, "", kExitSuccess, {"i"}, ""},
      {{"resolve", closed, "--max-wrappers", "-1"}, "", kExitUsage, {}, wholeNumber},
      {{"resolve", closed, "--max-wrappers", "1.5"}, "", kExitUsage, {}, wholeNumber},
      // clang-format on
  };
  struct Full : std::streambuf {
    int overflow(int) override { return traits_type::eof(); }
  } device;
  std::ostream full(&device);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const Result result = runTool(c.args, c.input);
    EXPECT_EQ(result.status, c.status);
    for (const std::string& piece : c.out)
      EXPECT_TRUE(contains(result.out, piece)) << piece << "\n" << result.out;
    if (c.status == kExitUsage) {
      EXPECT_EQ(result.out, "");
      EXPECT_FALSE(result.err.empty());
      EXPECT_LT(result.err.size(), 200u) << result.err;
    } else if (c.err.empty()) {
      EXPECT_EQ(result.err, "");
    }
    EXPECT_TRUE(contains(result.err, c.err)) << result.err;
    // Output that cannot be written (a full device, a closed pipe) fails the command; a command
    // that writes nothing, a usage error among them, keeps its status.
    full.clear();
    const Result lost = runTool(c.args, c.input, &full);
    const bool wrote = !result.out.empty();
    EXPECT_EQ(lost.status, wrote ? kExitFailure : c.status);
    EXPECT_EQ(lost.err, result.err + (wrote ? "rkv: cannot write the output\n" : ""));
  }
  EXPECT_EQ(runTool({"--version"}).out,
            std::string("RKVCoreKit ") + build::kVersion + " (revision 204)\n");
  // The error catalogue; a code matches the VAST code or the vendor code.
  EXPECT_EQ(runTool({"errors"}).json().size(), 45u);
  std::vector<int64_t> vendorCodes;
  for (const auto& entry : runTool({"errors", "301", "10000301"}).json())
    vendorCodes.push_back(entry["vireoCode"]);
  EXPECT_EQ(vendorCodes, (std::vector<int64_t>{101006, 301001, 301002, 301003, 10000301}));
  // JSON has its own escapes.
  EXPECT_EQ(runTool({"inspect", "--json", "-"}, escaped).json()["ads"][0]["adTitle"],
            "T\n#2 inline ad, id \"x\"\r\x7F\u0085.");

  // A body over the provider's limit.
  server.setRoute("/big", RKVTestRoute::answer(200, std::string(4096, ' ')));
  RKVURLSessionConfiguration small;
  small.maximumResponseBytes = 1024;
  const RKVInspection inspection = inspectURL(*RKVURL::withString(server.url("/big")), false, 5,
                                              std::make_shared<RKVURLSessionProvider>(small));
  std::ostringstream err;
  writeInspectionDiagnostics(err, inspection, "rkv inspect: ");
  EXPECT_TRUE(contains(err.str(), "Code=-1103 \"resource exceeds maximum size\"")) << err.str();
}

// Standard input that cannot be read (a directory, a closed descriptor) is a usage error, not an
// empty document. It takes the process's own descriptor 0, so the tool runs as main() runs it.
TEST(RKVToolTest, UnreadableStandardInputIsAUsageError) {
  const int saved = ::dup(0);
  ASSERT_GE(saved, 0);
  const int directory = ::open(fs::temp_directory_path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(directory, 0);
  ::dup2(directory, 0);
  ::close(directory);
  std::clearerr(stdin);
  const char* const argv[] = {"rkv", "inspect", "-"};
  std::ostringstream out, err;
  const int status = run(3, argv, out, err);
  ::dup2(saved, 0);
  ::close(saved);
  std::clearerr(stdin);
  std::cin.clear();
  EXPECT_EQ(status, kExitUsage);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "rkv inspect: cannot read standard input: Is a directory\n");
}

// An endless source (a device, a producer that never stops) ends in an error at the size limit
// rather than taking all memory.
TEST(RKVToolTest, AnEndlessInputStopsAtTheSizeLimit) {
  struct Zeros : std::streambuf {
    std::streamsize xsgetn(char* bytes, std::streamsize count) override {
      std::fill_n(bytes, count, '\0');
      return count;
    }
  } zeros;
  std::istream endless(&zeros);
  std::string problem;
  EXPECT_FALSE(readInput("-", endless, problem, 100000));
  EXPECT_EQ(problem, "cannot read standard input: more than 100000 bytes");
  EXPECT_FALSE(readInput("/dev/zero", endless, problem, 100000));
  EXPECT_EQ(problem, "cannot read /dev/zero: more than 100000 bytes");
}

// Output to a pipe whose reader has gone is lost output like any other (exit 1 and a message),
// not a SIGPIPE that ends the tool with 141.
TEST(RKVToolTest, AClosedPipeIsAWriteErrorNotASignal) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  struct Pipe : std::streambuf {
    int fd = -1;
    int overflow(int c) override {
      const char byte = static_cast<char>(c);
      return ::write(fd, &byte, 1) == 1 ? c : traits_type::eof();
    }
  } pipe;
  pipe.fd = ends[1];
  std::ostream out(&pipe);
  std::ostringstream err;
  std::signal(SIGPIPE, SIG_DFL);
  const char* const argv[] = {"rkv", "errors", "100"};
  EXPECT_EQ(run(3, argv, out, err), kExitFailure);
  EXPECT_EQ(err.str(), "rkv: cannot write the output\n");
  ::close(ends[1]);
}

}  // namespace
}  // namespace rkv::cli
