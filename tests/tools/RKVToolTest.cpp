// The rkv tool, run in-process over the corpus, a fresh data folder and a loopback server.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/log/RKVLog.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"
#include "rkv/tracking/RKVIABMacros.h"

#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/support/RKVTestTLSServer.h"
#include "tests/support/RKVTestVASTDocuments.h"
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
using Outcome = std::pair<int, std::string>;
using ::testing::HasSubstr;

// What `rkv ARGS...` wrote and its exit status.
struct Result {
  int status;
  std::string out, err;
  // The status and the output, to compare at once.
  std::pair<int, std::string> outcome() const { return {status, out}; }
  // The one JSON value printed; fails the test when the output is not one.
  nlohmann::ordered_json json() const {
    auto json = nlohmann::ordered_json::parse(out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << out.substr(0, 200);
    return json;
  }
};

// `rkv ARGS...`, run as main() would, with `input` as standard input and `out` as standard
// output (a string when null).
Result runTool(std::vector<std::string> args, const std::string& input = "",
               std::ostream* out = nullptr) {
  args.insert(args.begin(), "rkv");
  std::vector<const char*> argv;
  for (const auto& arg : args)
    argv.push_back(arg.c_str());
  std::istringstream in(input);
  std::streambuf* const standardInput = std::cin.rdbuf(in.rdbuf());
  std::ostringstream text, err;
  const int status = run(static_cast<int>(argv.size()), argv.data(), out ? *out : text, err);
  std::cin.rdbuf(standardInput);
  return {status, text.str(), err.str()};
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
  if (key != "*") return json.contains(key) ? count(json[key], rest) : 0;
  size_t total = 0;
  for (const Json& item : json)
    total += count(item, rest);
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
  EXPECT_EQ(std::tuple(documents, refused, complete), std::tuple(76u, 6u, 65u));
}

class RKVDataFolderTest : public ::testing::Test {
 protected:
  // `rkv --data-dir DIR COMMAND ARGS...` with `input` as standard input.
  Result run(const std::string& command, Strings args, const std::string& input = "") {
    args.insert(args.begin(), {"--data-dir", dir_.path().string(), command});
    return runTool(std::move(args), input);
  }

  test::RKVTempDir dir_;
  test::RKVTestHTTPServer server_;
};

class RKVResolveTest : public RKVDataFolderTest {
 protected:
  // Writes the root document and returns its path.
  std::string root(const std::vector<RKVTestAd>& ads) {
    std::ofstream(dir_.file("root.xml")) << vastXML(ads);
    return dir_.file("root.xml");
  }
  // One line per entry of a JSON log: the event with its ad or error name, or the answer's ad
  // and depth or error code.
  static std::string summary(const Json& log) {
    std::string text;
    for (const Json& entry : log) {
      text += text.empty() ? "" : " | ";
      if (entry.contains("event"))
        text += entry["event"].get<std::string>() + " " + entry.value("adID", "") +
                entry.value("name", "");
      else if (entry.contains("ad"))
        text += entry["ad"]["id"].get<std::string>() + "/" + entry["ad"]["wrapperDepth"].dump();
      else
        text += entry["error"]["code"].dump();
    }
    return text;
  }
};

// The options shape the resolution; the JSON log holds every delegate call and answer in order.
TEST_F(RKVResolveTest, OptionsShapeTheResolutionAndTheJSONLogHasEveryCall) {
  std::vector<RKVTestAd> pod = {inlineAd("p2"), inlineAd("p1"), inlineAd("p3")};
  for (auto& ad : pod)
    ad.sequence = ad.id.substr(1);
  server_.setRoute("/pod", RKVTestRoute::answer(200, vastXML(pod)));
  server_.setRoute("/w1",
                   RKVTestRoute::answer(200, vastXML({wrapperAd("w1", server_.url("/inline"))})));
  server_.setRoute("/inline", RKVTestRoute::answer(200, vastXML({inlineAd("i")})));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(test::RKVTestServerBehavior::NeverAnswer));
  // w1 has no impression.
  const RKVTestAd impressed{
      .id = "w", .adTag = server_.url("/w1"), .impressions = {"http://imp.example/w"}};
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  const RKVTestAd passback{
      .id = "wp", .adTag = server_.url("/noad"), .errors = {"http://err.example/wp"}};
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
      EXPECT_THAT(result.out, HasSubstr(piece));
    if (c.status == kExitUsage) {
      EXPECT_EQ(result.out, "");
      EXPECT_FALSE(result.err.empty());
      EXPECT_LT(result.err.size(), 200u) << result.err;
    } else if (c.err.empty()) {
      EXPECT_EQ(result.err, "");
    }
    EXPECT_THAT(result.err, HasSubstr(c.err));
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
  EXPECT_THAT(err.str(), HasSubstr("Code=-1103 \"resource exceeds maximum size\""));
}

// Standard input that cannot be read (a directory, a closed descriptor) is a usage error, not an
// empty document. It takes the process's own descriptor 0, so the tool runs as main() runs it.
// An endless source (a device, a producer that never stops) ends in an error at the size limit
// rather than taking all memory.
TEST(RKVToolTest, UnreadableOrEndlessInputIsAnError) {
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
  EXPECT_EQ(Outcome(status, out.str()), Outcome(kExitUsage, ""));
  EXPECT_EQ(err.str(), "rkv inspect: cannot read standard input: Is a directory\n");

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
  std::signal(SIGPIPE, SIG_DFL);
  const Result result = runTool({"errors", "100"}, "", &out);
  EXPECT_EQ(Outcome(result.status, result.err),
            Outcome(kExitFailure, "rkv: cannot write the output\n"));
  ::close(ends[1]);
}

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
  ASSERT_EQ(added.outcome(), Outcome(kExitSuccess, "4 pixel(s) added\n")) << added.err;

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
  EXPECT_THAT(pixels({"list"}).out, HasSubstr(" pending expired until "));

  // 204 and 404 are delivered; the 500 stays for the next round. (Keys compare in order.)
  const Json round = json({"flush", "--json"});
  EXPECT_EQ(round,
            Json::parse(R"({"sent": [")" + ok + R"(", ")" + missing + R"(", ")" + later +
                        R"("], "pending": [")" + fail + R"("], "dropped": [")" + old + R"("]})"));
  EXPECT_EQ(server_.requestCount("/ok"), 2u);  // not the expired one
  EXPECT_EQ(server_.requestCount("/fail"), 1u);

  EXPECT_EQ(pixels({"flush"}).outcome(),
            Outcome(kExitSuccess, "pending " + fail + "\n0 sent, 0 dropped, 1 pending\n"));
  EXPECT_EQ(server_.requestCount("/fail"), 2u);

  EXPECT_EQ(pixels({"clear"}).outcome(), Outcome(kExitSuccess, "1 pixel(s) removed\n"));
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
    EXPECT_EQ(result.outcome(), Outcome(kExitFailure, "1 pixel(s) added\n"));
    EXPECT_EQ(result.err, "rkv pixels add: " + c.message + " (skipped)\n");
  }
  EXPECT_EQ(pixels({"add", "mailto:a@b.c"}).outcome(), Outcome(kExitFailure, "0 pixel(s) added\n"));

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
    EXPECT_EQ(result.outcome(), Outcome(kExitUsage, ""));
    EXPECT_FALSE(result.err.empty());
  }
  EXPECT_EQ(json({"list", "--json"})["pixels"].size(), std::size(cases));
}

// The batch's save fails (another connection holds the file's write lock past the busy
// time-out) and the file is free again right after: the batch the caller was told failed must
// not be written by a later save, nor by the defaults when they go. The other connection lets
// the file go when the failed write logs its error line (the data source is asked first).
TEST_F(RKVPixelsToolTest, AChangeWhoseSaveFailedIsNotWrittenLater) {
  auto withFirstWriteFailing = [&](const Strings& args) {
    std::string error;
    auto blocker = internal::RKVSQLiteDatabase::open(dir_.file("defaults.sqlite"), false, &error);
    EXPECT_TRUE(blocker && blocker->exec("BEGIN IMMEDIATE", &error)) << error;
    struct ReleaseOnError : RKVLogDataSource {
      internal::RKVSQLiteDatabase* blocker = nullptr;
      bool shouldLogMessageWithLevel(const RKVLog&, int64_t level) override {
        if (level == 2 && blocker) std::exchange(blocker, nullptr)->exec("ROLLBACK", nullptr);
        return false;
      }
    };
    auto source = std::make_shared<ReleaseOnError>();
    source->blocker = blocker.get();
    const auto log = RKVLog::sharedInstance();
    const auto previous = log->dataSource();
    log->setDataSource(source);
    const Result result = pixels(args);
    log->setDataSource(previous);
    EXPECT_EQ(source->blocker, nullptr);  // the write did fail
    return result;
  };
  ASSERT_EQ(pixels({"list"}).status, kExitSuccess);  // the file exists

  const Result added = withFirstWriteFailing({"add", server_.url("/ok")});
  EXPECT_EQ(added.status, kExitFailure);
  EXPECT_THAT(added.err, HasSubstr("none was added"));
  EXPECT_EQ(json({"list", "--json"})["pixels"], Json::array());

  ASSERT_EQ(pixels({"add", server_.url("/kept")}).status, kExitSuccess);
  const Result cleared = withFirstWriteFailing({"clear"});
  EXPECT_EQ(cleared.status, kExitFailure);
  EXPECT_THAT(cleared.err, HasSubstr("could not be saved"));
  const Json kept = json({"list", "--json"})["pixels"];
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0]["url"], server_.url("/kept"));
}

class RKVPlayToolTest : public RKVDataFolderTest {
 protected:
  RKVPlayToolTest() {
    serve("/inline.xml", inlineXML("<Duration>00:00:10</Duration>"));
    serve("/no-duration.xml", inlineXML(""));
    serve("/two-days.xml", inlineXML("<Duration>48:00:00</Duration>"));
    serve("/wrapper.xml",
          R"(<VAST version="4.0"><Ad id="wrapper-1"><Wrapper><AdSystem>W</AdSystem><VASTAdTagURI>)"
          R"(@/inline.xml</VASTAdTagURI><Impression>@/imp/wrapper?cb=[CACHEBUSTING]</Impression>)"
          "<Creatives><Creative><Linear>" +
              trackingEvents("start=/start/wrapper complete=/complete/wrapper") +
              "</Linear></Creative></Creatives></Wrapper></Ad></VAST>");
  }

  // Serves `xml` at `path`, every "@" in it replaced by the server's address.
  void serve(const std::string& path, std::string xml) {
    for (size_t at = xml.find('@'); at != std::string::npos; at = xml.find('@', at))
      xml.replace(at, 1, server_.url(""));
    server_.setRoute(path, RKVTestRoute::answer(200, xml));
  }
  // The TrackingEvents of "event=path" words; progress at 3 s.
  static std::string trackingEvents(const std::string& words) {
    std::istringstream in(words);
    std::string xml = "<TrackingEvents>";
    for (std::string word; in >> word;) {
      const std::string event = word.substr(0, word.find('='));
      xml += "<Tracking event=\"" + event + (event == "progress" ? "\" offset=\"00:00:03" : "") +
             "\">@" + word.substr(event.size() + 1) + "</Tracking>";
    }
    return xml + "</TrackingEvents>";
  }
  static std::string inlineXML(const std::string& duration) {
    return R"(<VAST version="4.0"><Ad id="inline-1"><InLine><AdSystem>S</AdSystem><AdTitle>T)"
           R"(</AdTitle><Impression>@/imp/inline?cb=[CACHEBUSTING]</Impression><ViewableImpression>)"
           R"(<Viewable>@/viewable?ph=[ADPLAYHEAD]</Viewable></ViewableImpression><Creatives>)"
           "<Creative><Linear>" +
           duration +
           trackingEvents(
               "start=/start/inline firstQuartile=/q1 midpoint=/mid thirdQuartile=/q3 "
               "complete=/complete/inline loaded=/loaded firstSecond=/first-second "
               "progress=/progress3 pause=/pause resume=/resume mute=/mute skip=/skip") +
           R"(<MediaFiles><MediaFile delivery="progressive" type="video/mp4" width="1280")"
           R"( height="720" bitrate="2000">@/media.mp4</MediaFile></MediaFiles></Linear>)"
           "</Creative></Creatives></InLine></Ad></VAST>";
  }

  Result play(Strings args) { return run("play", std::move(args)); }
  // The pixels' paths (all but the documents') in the order the server received them, each
  // answered 404, which delivers a pixel; impressions' [CACHEBUSTING] arrives as 8 digits.
  Strings received() const {
    Strings paths;
    for (const auto& request : server_.requests()) {
      std::string path = request.target.substr(0, request.target.find('?'));
      EXPECT_TRUE(path.rfind("/imp/", 0) != 0 ||
                  std::regex_search(request.target, std::regex("\\?cb=[0-9]{8}$")))
          << request.target;
      if (!path.ends_with(".xml")) paths.push_back(path);
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
  serve("/odd.xml", inlineXML("<Duration>00:00:10.244</Duration>"));
  ASSERT_EQ(play({"--speed", "50", server_.url("/odd.xml")}).status, kExitSuccess);
  const Strings received = this->received();
  EXPECT_EQ(std::count(received.begin(), received.end(), "/complete/inline"), 1);
}

TEST_F(RKVPlayToolTest, PlayerEventsAtTheEndComeTooLate) {
  // The ad has ended with complete at 10 s: there is nothing left to mute, pause or skip.
  const Result result = play({"--speed", "50", "--mute-at", "10", "--pause-at", "10", "--pause-for",
                              "1", "--skip-at", "10", server_.url("/inline.xml")});
  ASSERT_EQ(result.status, kExitSuccess) << result.err;
  EXPECT_THAT(result.out, HasSubstr("played to the end"));
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
  std::map<std::string, Json> fired;  // each event by its name
  for (const Json& event : output["events"])
    fired[event["event"].get<std::string>()] = event;
  EXPECT_EQ(fired["resume"]["t"], 4);
  const double viewable = fired["viewable"]["t"];
  EXPECT_GT(viewable, 4);
  // Its [ADPLAYHEAD] is the ad's position when it fired: three seconds were paused.
  EXPECT_THAT(
      fired["viewable"]["url"].get<std::string>(),
      HasSubstr("?ph=" + RKVIABMacros::percentEncode(*RKVIABMacros::playhead(viewable - 3))));
}

TEST_F(RKVPlayToolTest, ConsentInTheDataFolderFillsItsMacrosWhereverTheOptionStands) {
  {
    RKVUserDefaults defaults(
        std::make_shared<RKVSQLiteUserDefaultsStore>(dir_.file("defaults.sqlite")));
    defaults.setInteger("IABTCF_gdprApplies", 1);
    defaults.setString("IABTCF_TCString", "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA");
    defaults.setString("IABUSPrivacy_String", "1YNN");
    ASSERT_TRUE(defaults.synchronize());
  }
  std::string document = inlineXML("<Duration>00:00:01</Duration>");
  document.insert(document.find("<Impression>"),
                  "<Impression>@/consent?g=[GDPR]&amp;c=[GDPRCONSENT]&amp;us=[US_PRIVACY]"
                  "</Impression>");
  serve("/consent.xml", document);
  // The data folder may also follow the subcommand.
  ASSERT_EQ(runTool({"play", "--data-dir", dir_.path().string(), "--speed", "50",
                     server_.url("/consent.xml")})
                .status,
            kExitSuccess);
  const auto requests = server_.requests();
  EXPECT_TRUE(std::ranges::any_of(requests, [](const auto& request) {
    return request.target == "/consent?g=1&c=CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA&us=1YNN";
  }));
}

TEST_F(RKVPlayToolTest, WhatCannotBePlayedFiresItsErrorPixels) {
  const std::string pixels =
      "<Impression>@/imp</Impression><Error>@/error?code=[ERRORCODE]</Error>";
  // A wrapper whose ad tag leads nowhere, and an inline ad with nothing linear to play.
  serve("/lost.xml", R"(<VAST version="4.0"><Ad><Wrapper><AdSystem>W</AdSystem><VASTAdTagURI>)"
                     "@/missing.xml</VASTAdTagURI>" +
                         pixels + "</Wrapper></Ad></VAST>");
  serve("/banner.xml",
        R"(<VAST version="4.0"><Ad><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>)" + pixels +
            R"(<Creatives><Creative><NonLinearAds><NonLinear width="300" height="50">)"
            R"(<StaticResource creativeType="image/png">@/b.png</StaticResource></NonLinear>)"
            "</NonLinearAds></Creative></Creatives></InLine></Ad></VAST>");
  server_.setRoute("/error", RKVTestRoute::answer(204, ""));
  EXPECT_EQ(play({server_.url("/lost.xml")}).status, kExitFailure);
  EXPECT_EQ(play({server_.url("/banner.xml")}).status, kExitFailure);
  Strings errors;
  for (const auto& request : server_.requests())
    if (request.target.rfind("/error", 0) == 0) errors.push_back(request.target);
  // No answer after the wrapper (303); a linear ad expected (201).
  EXPECT_EQ(errors, Strings({"/error?code=303", "/error?code=201"}));
}

TEST_F(RKVPlayToolTest, WhatCannotBePlayedFailsWithItsReason) {
  const std::string ad = server_.url("/inline.xml");
  const struct {
    Strings args;
    int status;
    const char* says;
  } cases[] = {
      {{server_.url("/missing.xml")}, kExitFailure, "no ad to play"},
      {{server_.url("/no-duration.xml")}, kExitFailure, "no duration"},
      {{"--pause-at", "3", ad}, kExitUsage, "--pause-for"},
      {{"--visible", "1.5", ad}, kExitUsage, "from 0 to 1"},
      {{"--speed", "0", ad}, kExitUsage, "from 0.001 to 1000000"},
      {{"--pause-at", "1", "--pause-for", "1e300", ad}, kExitUsage, "from 0 to 86400"},
      {{server_.url("/two-days.xml")}, kExitFailure, "more than a day"},
  };
  for (const auto& c : cases) {
    const Result result = play(c.args);
    EXPECT_EQ(result.status, c.status) << c.args.front();
    EXPECT_THAT(result.err, HasSubstr(c.says));
  }
  EXPECT_TRUE(received().empty());
  // With the length given, the same creative plays.
  EXPECT_EQ(play({"--speed", "50", "--duration", "2", server_.url("/no-duration.xml")}).status,
            kExitSuccess);
}

}  // namespace
}  // namespace rkv::cli
