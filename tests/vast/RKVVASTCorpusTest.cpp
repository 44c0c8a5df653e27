#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/RKVVASTParser.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/vast/RKVReportRecorder.h"
#include "tools/rkv/RKVAdJSON.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;

std::vector<std::filesystem::path> corpusFiles() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() == ".xml") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

struct Reading {
  Strings reports;  // name and URLs of each report
  std::vector<std::string> ads;
  bool model = false;
};

Strings describe(const test::RKVReportRecorder& recorder) {
  Strings reports;
  for (const auto& report : recorder.reports()) {
    std::string entry = report.name;
    for (const auto& url : report.urls)
      entry += " " + url;
    reports.push_back(entry);
  }
  return reports;
}

Reading readStreamed(const std::string& bytes) {
  test::RKVReportRecorder recorder;
  const RKVVASTParserResponse response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, false, recorder.outer());
  Reading reading{describe(recorder), {}, response.model() != nullptr};
  if (response.model()) {
    for (const auto& ad : response.model()->ads())
      reading.ads.push_back(cli::adJSON(*ad).dump());
  }
  return reading;
}

Reading readWholeTree(const std::string& bytes) {
  test::RKVReportRecorder recorder;
  Reading reading;
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(bytes);
  if (!root) return reading;
  std::optional<RKVError> error;
  const auto model = RKVVASTModel::withDictionary(*root, &error, recorder.inner());
  reading.reports = describe(recorder);
  reading.model = model != nullptr;
  if (model) {
    for (const auto& ad : model->ads())
      reading.ads.push_back(cli::adJSON(*ad).dump());
  }
  return reading;
}

// The parser reads each ad as soon as its element ends; the result must be the one the whole
// tree gives, reports included.
TEST(RKVVASTCorpusTest, AdsReadAsTheyEndMatchTheWholeTree) {
  test::RKVLogCapture log;
  const auto files = corpusFiles();
  ASSERT_GT(files.size(), 70u);
  size_t ads = 0;
  for (const auto& file : files) {
    const std::string bytes = test::readFile(file);
    const Reading streamed = readStreamed(bytes);
    const Reading whole = readWholeTree(bytes);
    EXPECT_EQ(streamed.model, whole.model) << file;
    EXPECT_EQ(streamed.ads, whole.ads) << file;
    // The parser adds its own document-level reports after the model's.
    ASSERT_GE(streamed.reports.size(), whole.reports.size()) << file;
    EXPECT_TRUE(std::equal(whole.reports.begin(), whole.reports.end(), streamed.reports.begin()))
        << file;
    ads += streamed.ads.size();
  }
  EXPECT_GT(ads, 250u);  // the synthetic document alone has 200
}

TEST(RKVVASTCorpusTest, ReadingAheadChangesNothingForOddDocuments) {
  test::RKVLogCapture log;
  const std::string ad =
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Error>http://e.test/1</Error></InLine></Ad>";
  const char* documents[] = {
      // Ill-formed after an ad: only the parsing error is reported.
      "<VAST version='4.2'>AD<Ad>",
      // No version: no ad is read, only the missing version is reported.
      "<VAST>AD</VAST>",
      // An element that turns the version attribute into a list after the ads were read.
      "<VAST version='4.2'>AD<_version>5</_version></VAST>",
      "<VAST version='4.2'><_version>5</_version>AD</VAST>",
      "<VAST version='4.2'>AD<Error>http://e.test/root</Error>AD</VAST>",
  };
  for (std::string document : documents) {
    document.replace(document.find("AD"), 2, ad);
    if (size_t again = document.find("AD"); again != std::string::npos)
      document.replace(again, 2, ad);
    const Reading streamed = readStreamed(document);
    const Reading whole = readWholeTree(document);
    EXPECT_EQ(streamed.model, whole.model) << document;
    EXPECT_EQ(streamed.ads, whole.ads) << document;
    ASSERT_GE(streamed.reports.size(), whole.reports.size()) << document;
    EXPECT_TRUE(std::equal(whole.reports.begin(), whole.reports.end(), streamed.reports.begin()))
        << document;
  }
  EXPECT_EQ(readStreamed(std::string("<VAST version='4.2'>") + ad + "<Ad>").reports,
            Strings{"XML_PARSING_ERROR"});
}

}  // namespace
}  // namespace rkv
