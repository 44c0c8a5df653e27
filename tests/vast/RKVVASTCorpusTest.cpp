// The parser reads each ad as soon as its element ends; the result must be the one the whole tree
// gives, reports included.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/vast/RKVVASTParser.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestPaths.h"
#include "tests/vast/RKVReportRecorder.h"
#include "tools/rkv/RKVAdJSON.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;

// The reports, then the JSON of each ad, or "no model".
Strings readModel(const std::shared_ptr<RKVVASTModel>& model, Strings reports) {
  if (!model) reports.push_back("no model");
  for (const auto& ad : model ? model->ads() : RKVVASTModel::Ads())
    reports.push_back(cli::adJSON(*ad).dump());
  return reports;
}

// Compares the streamed reading with the whole tree's; gives the number of ads read.
size_t expectSameReadings(const std::string& bytes) {
  test::RKVReportRecorder streamed;
  const auto response =
      RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, false, streamed.outer());
  test::RKVReportRecorder whole;
  std::shared_ptr<RKVVASTModel> model;
  std::optional<RKVError> error;
  if (RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(bytes))
    model = RKVVASTModel::withDictionary(*root, &error, whole.inner());
  // The parser adds its own document-level reports after the model's.
  Strings reports = streamed.lines();
  if (reports.size() > whole.lines().size()) reports.resize(whole.lines().size());
  EXPECT_EQ(readModel(response.model(), reports), readModel(model, whole.lines()));
  return response.model() ? response.model()->ads().size() : 0;
}

TEST(RKVVASTCorpusTest, AdsReadAsTheyEndMatchTheWholeTree) {
  test::RKVLogCapture log;
  size_t files = 0, ads = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    SCOPED_TRACE(entry.path());
    ads += expectSameReadings(test::readFile(entry.path()));
    ++files;
  }
  EXPECT_GT(files, 70u);
  EXPECT_GT(ads, 250u);  // the synthetic document alone has 200
}

TEST(RKVVASTCorpusTest, ReadingAheadChangesNothingForOddDocuments) {
  test::RKVLogCapture log;
  const std::string ad =
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Error>http://e.test/1</Error></InLine></Ad>";
  for (const std::string& document : {
           // Ill-formed after an ad: only the parsing error is reported.
           "<VAST version='4.2'>" + ad + "<Ad>",
           // No version: no ad is read, only the missing version is reported.
           "<VAST>" + ad + "</VAST>",
           // An element that turns the version attribute into a list after the ads were read.
           "<VAST version='4.2'>" + ad + "<_version>5</_version></VAST>",
           "<VAST version='4.2'><_version>5</_version>" + ad + "</VAST>",
           "<VAST version='4.2'>" + ad + "<Error>http://e.test/root</Error>" + ad + "</VAST>",
       }) {
    SCOPED_TRACE(document);
    expectSameReadings(document);
  }
  test::RKVReportRecorder recorder;
  RKVVASTParser::parseXMLAndGenerateVASTObjectModel("<VAST version='4.2'>" + ad + "<Ad>", false,
                                                    recorder.outer());
  EXPECT_EQ(recorder.lines(), Strings{"XML_PARSING_ERROR"});
}

}  // namespace
}  // namespace rkv
