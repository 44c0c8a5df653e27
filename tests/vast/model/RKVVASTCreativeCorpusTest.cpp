#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

#include "tests/support/RKVTestPaths.h"

namespace rkv {
namespace {

using Utils = RKVXMLDictionaryUtils;

struct Tally {
  size_t linear = 0, mediaFiles = 0, icons = 0, companions = 0, nonLinear = 0;
  std::vector<std::string> chosenFiles;
};

// Builds the creatives of every ad as an ad does, checking what is kept.
Tally readCreatives(const RKVXMLDictionary& root, const std::string& name) {
  Tally tally;
  const RKVXMLArray* ads = Utils::findArrayForKey("Ad", &root);
  for (size_t a = 0; ads != nullptr && a < ads->size(); ++a) {
    for (const bool wrapper : {false, true}) {
      const RKVXMLDictionary* content = Utils::findFirstObjectOfArrayAsDictionary(
          wrapper ? "Wrapper" : "InLine", (*ads)[a].dictionary());
      const RKVXMLArray* entries = Utils::findArrayForKey(
          "Creative", Utils::findFirstObjectOfArrayAsDictionary("Creatives", content));
      for (size_t c = 0; entries != nullptr && c < entries->size(); ++c) {
        const RKVXMLDictionary* creative = (*entries)[c].dictionary();
        if (const auto* element = Utils::findFirstObjectOfArrayAsDictionary("Linear", creative)) {
          std::optional<RKVError> error;
          auto linear = RKVVASTCreativeLinear::withDictionary(*element, &error, {}, wrapper);
          if (linear && linear->isValidForWrapper(wrapper)) {
            ++tally.linear;
            tally.mediaFiles += linear->mediaFiles().size();
            tally.icons += linear->icons().size();
            for (const auto& file : linear->mediaFiles())
              EXPECT_TRUE(file->isValid() && file->url()) << name;
            if (auto chosen = linear->mostAppropriateMediaFile())
              tally.chosenFiles.push_back(chosen->url()->lastPathComponent());
          }
        }
        if (const auto* element = Utils::findFirstObjectOfArrayAsDictionary(
                "Companion", Utils::findFirstObjectOfArrayAsDictionary("CompanionAds", creative))) {
          auto companion = RKVVASTCreativeCompanion::withDictionary(*element, nullptr, {}, wrapper);
          if (companion->isValidForWrapper(wrapper)) ++tally.companions;
        }
        if (const auto* element = Utils::findFirstObjectOfArrayAsDictionary(
                "NonLinear", Utils::findFirstObjectOfArrayAsDictionary("NonLinearAds", creative))) {
          auto nonLinear = RKVVASTCreativeNonLinear::withDictionary(*element, nullptr, {}, wrapper);
          if (nonLinear && nonLinear->isValidForWrapper(wrapper)) ++tally.nonLinear;
        }
      }
    }
  }
  return tally;
}

// Every document of the shared corpus is read without a failure.
TEST(RKVVASTCreativeCorpusTest, IABSamples) {
  Tally total;
  for (const auto& file :
       std::filesystem::recursive_directory_iterator(test::corpusDir() / "iab")) {
    if (file.path().extension() != ".xml") continue;
    RKVXMLDictionaryPtr root =
        RKVXMLDictionary::rkv_dictionaryWithXMLData(test::readFile(file.path()));
    if (!root) continue;  // documents that are not XML are the parser's concern
    const Tally tally = readCreatives(*root, file.path().string());
    total.linear += tally.linear;
    total.nonLinear += tally.nonLinear;
    total.companions += tally.companions;
  }
  EXPECT_GT(total.linear, 30u);
  EXPECT_GT(total.nonLinear, 3u);
  EXPECT_GT(total.companions, 3u);
}

TEST(RKVVASTCreativeCorpusTest, SyntheticDocument) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(
      test::readFile(test::corpusDir() / "synthetic/vast-4.2-200ads.xml"));
  ASSERT_TRUE(root);
  const Tally tally = readCreatives(*root, "synthetic");
  // 180 inline ads with a linear creative of 5 renditions and an icon, and a companion; the 20
  // wrappers carry a linear creative without media files.
  EXPECT_EQ(tally.linear, 200u);
  EXPECT_EQ(tally.mediaFiles, 180u * 5);
  EXPECT_EQ(tally.icons, 180u);
  EXPECT_EQ(tally.companions, 180u);
  // The 5000 kbit/s cap of a good connection takes the 4000 kbit/s rendition every time.
  EXPECT_EQ(tally.chosenFiles, std::vector<std::string>(180, "1920x1080.mp4"));
}

}  // namespace
}  // namespace rkv
