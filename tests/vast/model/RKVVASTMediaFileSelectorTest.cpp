#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTMediaFile.h"
#include "rkv/vast/model/RKVVASTMediaFileSelector.h"

#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

struct File {
  const char* name;  // the URL's path, to tell the files apart
  const char* bitrate;
  int width;
  int height;
};

std::vector<std::shared_ptr<RKVVASTMediaFile>> mediaFiles(const std::vector<File>& files) {
  std::vector<std::shared_ptr<RKVVASTMediaFile>> result;
  for (const File& file : files) {
    auto made = RKVVASTMediaFile::withDictionary(*test::element(
        "<MediaFile type='video/mp4' bitrate='" + std::string(file.bitrate) + "' width='" +
        std::to_string(file.width) + "' height='" + std::to_string(file.height) +
        "'>http://m.test/" + file.name + "</MediaFile>"));
    EXPECT_TRUE(made) << file.name;
    if (made) result.push_back(made);
  }
  return result;
}

std::string chosen(float minBitrate, float maxBitrate, const std::vector<File>& files,
                   int64_t accessType) {
  auto file =
      RKVVASTMediaFileSelector(minBitrate, maxBitrate, mediaFiles(files), accessType).mediaFile();
  return file ? file->url()->lastPathComponent() : "none";
}

TEST(RKVVASTMediaFileSelectorTest, Choices) {
  const std::vector<File> ladder = {
      {"a1500", "1500", 1280, 720}, {"a3000", "3000", 1920, 1080}, {"a800", "800", 640, 360}};
  const std::vector<File> aboveCap = {
      {"small", "4000", 640, 360}, {"large", "3000", 1920, 1080}, {"mid", "5000", 1280, 720}};
  const std::vector<File> undeclared = {
      {"mid", "-1", 1280, 720}, {"small", "-1", 640, 360}, {"small2", "-1", 640, 360}};
  const std::vector<File> ties = {{"first", "1000", 640, 360}, {"second", "1000", 640, 360}};
  const std::vector<File> someUndeclared = {
      {"none", "-1", 1920, 1080}, {"low", "400", 320, 180}, {"rich", "900", 640, 360}};
  // A frame of area -1 is the running best's starting marker, so the next file replaces it.
  const std::vector<File> markerArea = {{"marker", "-1", -1, 1}, {"real", "-1", 2, 2}};
  struct Case {
    const char* name;
    std::vector<File> files;
    float minBitrate, maxBitrate;
    int64_t accessType;
    const char* expected;
  };
  const Case cases[] = {
      {"richest under the cap on wi-fi", ladder, 0, 2000, 6, "a1500"},
      {"leanest off wi-fi", ladder, 0, 2000, 0, "a800"},
      {"access types 4 and 5 are good", ladder, 0, 2000, 4, "a1500"},
      {"access type 5", ladder, 0, 2000, 5, "a1500"},
      {"access type 3 is low", ladder, 0, 2000, 3, "a800"},
      {"the cap is inclusive", ladder, 0, 3000, 6, "a3000"},
      {"minimum bitrate is not a filter", ladder, 2000, 2000, 6, "a1500"},
      {"minimum bitrate off wi-fi", ladder, 1000, 2000, 0, "a800"},
      {"all above the cap: largest frame", aboveCap, 0, 2000, 6, "large"},
      {"off wi-fi the cap is not consulted", aboveCap, 0, 2000, 0, "large"},
      {"no bitrates off wi-fi: smallest frame, first of equals", undeclared, 0, 5000, 0, "small"},
      {"no bitrates on wi-fi: largest frame", undeclared, 0, 5000, 6, "mid"},
      {"equal bitrates keep list order on wi-fi", ties, 0, 5000, 6, "first"},
      {"equal bitrates walked from the end off wi-fi", ties, 0, 5000, 0, "second"},
      {"undeclared bitrates are skipped on wi-fi", someUndeclared, 0, 5000, 6, "rich"},
      {"undeclared bitrates are skipped off wi-fi", someUndeclared, 0, 5000, 0, "low"},
      {"an area equal to the marker is replaced", markerArea, 0, 5000, 0, "real"},
      {"empty list", {}, 0, 5000, 6, "none"},
      {"empty list off wi-fi", {}, 0, 5000, 0, "none"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(chosen(c.minBitrate, c.maxBitrate, c.files, c.accessType), c.expected) << c.name;
}

TEST(RKVVASTMediaFileSelectorTest, DefaultsAndConnectionKinds) {
  RKVVASTMediaFileSelector selector(100, 2000, {});
  EXPECT_EQ(selector.networkAccessType(), 6);
  EXPECT_FLOAT_EQ(selector.minBitrate(), 100);
  EXPECT_FLOAT_EQ(selector.maxBitrate(), 2000);
  EXPECT_EQ(selector.mediaFile(), nullptr);

  for (int64_t type : {4, 5, 6})
    EXPECT_FALSE(RKVVASTMediaFileSelector::isConsideredLowNetworkConnection(type)) << type;
  for (int64_t type : {-1, 0, 1, 2, 3, 7, 100})
    EXPECT_TRUE(RKVVASTMediaFileSelector::isConsideredLowNetworkConnection(type)) << type;

  // The same file objects come back, not copies; null entries are ignored.
  auto files = mediaFiles({{"only", "700", 1, 1}});
  files.push_back(nullptr);
  EXPECT_EQ(RKVVASTMediaFileSelector(0, 5000, files).mediaFile(), files[0]);
}

}  // namespace
}  // namespace rkv
