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

// Builds the creatives of every ad of a document as an ad does, counting what is kept.
void readCreatives(const std::filesystem::path& path, Tally& tally) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(test::readFile(path));
  if (!root) return;  // documents that are not XML are the parser's concern
  auto first = [](const char* key, const RKVXMLDictionary* in) {
    return Utils::findFirstObjectOfArrayAsDictionary(key, in);
  };
  const RKVXMLArray* ads = Utils::findArrayForKey("Ad", root.get());
  for (size_t a = 0; ads != nullptr && a < ads->size(); ++a) {
    for (const bool wrapper : {false, true}) {
      const RKVXMLDictionary* content =
          first(wrapper ? "Wrapper" : "InLine", (*ads)[a].dictionary());
      const RKVXMLArray* entries = Utils::findArrayForKey("Creative", first("Creatives", content));
      for (size_t c = 0; entries != nullptr && c < entries->size(); ++c) {
        const RKVXMLDictionary* creative = (*entries)[c].dictionary();
        if (const auto* element = first("Linear", creative)) {
          std::optional<RKVError> error;
          auto linear = RKVVASTCreativeLinear::withDictionary(*element, &error, {}, wrapper);
          if (linear && linear->isValidForWrapper(wrapper)) {
            ++tally.linear;
            tally.mediaFiles += linear->mediaFiles().size();
            tally.icons += linear->icons().size();
            for (const auto& file : linear->mediaFiles())
              EXPECT_TRUE(file->isValid() && file->url()) << path;
            if (auto chosen = linear->mostAppropriateMediaFile())
              tally.chosenFiles.push_back(chosen->url()->lastPathComponent());
          }
        }
        if (const auto* element = first("Companion", first("CompanionAds", creative))) {
          auto companion = RKVVASTCreativeCompanion::withDictionary(*element, nullptr, {}, wrapper);
          tally.companions += companion->isValidForWrapper(wrapper);
        }
        if (const auto* element = first("NonLinear", first("NonLinearAds", creative))) {
          auto nonLinear = RKVVASTCreativeNonLinear::withDictionary(*element, nullptr, {}, wrapper);
          tally.nonLinear += nonLinear && nonLinear->isValidForWrapper(wrapper);
        }
      }
    }
  }
}

TEST(RKVVASTCreativeCorpusTest, EveryCorpusDocumentIsRead) {
  Tally iab;
  for (const auto& file :
       std::filesystem::recursive_directory_iterator(test::corpusDir() / "iab")) {
    if (file.path().extension() == ".xml") readCreatives(file.path(), iab);
  }
  EXPECT_GT(iab.linear, 30u);
  EXPECT_GT(iab.nonLinear, 3u);
  EXPECT_GT(iab.companions, 3u);

  // 180 inline ads with a linear creative of 5 renditions and an icon, and a companion; the 20
  // wrappers carry a linear creative without media files. The 5000 kbit/s cap of a good
  // connection takes the 4000 kbit/s rendition every time.
  Tally synthetic;
  readCreatives(test::corpusDir() / "synthetic/vast-4.2-200ads.xml", synthetic);
  EXPECT_EQ(synthetic.linear, 200u);
  EXPECT_EQ(synthetic.mediaFiles, 180u * 5);
  EXPECT_EQ(synthetic.icons, 180u);
  EXPECT_EQ(synthetic.companions, 180u);
  EXPECT_EQ(synthetic.chosenFiles, std::vector<std::string>(180, "1920x1080.mp4"));
}

}  // namespace
}  // namespace rkv
