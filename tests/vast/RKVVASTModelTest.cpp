#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;
using test::urlTexts;

const std::string kLinear =
    "<Creatives><Creative><Linear><Duration>00:00:10</Duration><MediaFiles>"
    "<MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles></Linear>"
    "</Creative></Creatives>";

// An inline ad (kind 'i') or a wrapper ('w') with the id and, when given, the sequence.
std::string ad(char kind, const std::string& id, const std::string& sequence = "-") {
  std::string attributes = " id='" + id + "'";
  if (sequence != "-") attributes += " sequence='" + sequence + "'";
  if (kind == 'w') {
    return "<Ad" + attributes +
           "><Wrapper><AdSystem>S</AdSystem><VASTAdTagURI>http://w.test/</VASTAdTagURI>"
           "</Wrapper></Ad>";
  }
  return "<Ad" + attributes + "><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>" + kLinear +
         "</InLine></Ad>";
}

struct Document {
  RKVXMLDictionaryPtr root;
  std::shared_ptr<RKVVASTModel> model;
};

Document read(const std::string& content, test::RKVReportRecorder* recorder = nullptr,
              std::optional<RKVError>* error = nullptr, const std::string& version = "4.2") {
  Document document;
  document.root = RKVXMLDictionary::rkv_dictionaryWithXMLString(
      "<VAST" + (version == "-" ? "" : " version='" + version + "'") + ">" + content + "</VAST>");
  EXPECT_TRUE(document.root) << content;
  if (!document.root) return document;
  document.model = RKVVASTModel::withDictionary(
      *document.root, error, recorder ? recorder->inner() : RKVVASTInnerErrorHandler());
  return document;
}

Strings ids(const RKVVASTModel::Ads& ads) {
  Strings result;
  for (const auto& a : ads)
    result.push_back(a->adID().value_or("(null)"));
  return result;
}

TEST(RKVVASTModelTest, RootErrorURLsOnlyWithoutAds) {
  const std::string errors =
      "<Error>http://e.test/1?c=[ERRORCODE]</Error><Error> </Error>"
      "<Error>http://bad host/</Error><Error>http://e.test/2</Error>";
  struct Case {
    std::string content;
    Strings pixels;
  };
  const Case cases[] = {
      {errors, {"http://e.test/1?c=%5BERRORCODE%5D", "http://e.test/2"}},
      {errors + ad('i', "a"), {}},
      // An Ad element that gives no ad still counts as an Ad element.
      {errors + "<Ad id='x'><Other>1</Other></Ad>", {}},
      {"", {}},
  };
  for (const Case& c : cases) {
    test::RKVReportRecorder recorder;
    Document document = read(c.content, &recorder);
    ASSERT_TRUE(document.model);
    EXPECT_EQ(urlTexts(document.model->errorPixels()), c.pixels) << c.content;
    EXPECT_TRUE(recorder.reports().empty());
  }
}

TEST(RKVVASTModelTest, MissingVersionRefusesTheDocument) {
  test::RKVLogCapture log;
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;
  Document document = read("<Error>http://e.test/1</Error>", &recorder, &error, "-");
  EXPECT_FALSE(document.model);
  ASSERT_EQ(recorder.names(), Strings{"VAST_VALIDATION_ERROR_MISSING_VERSION"});
  EXPECT_EQ(recorder.reports()[0].urls, Strings{"http://e.test/1"});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, 101);
  EXPECT_EQ(log.messages(2),
            Strings{"VAST XML Tag does not contain the version attribute and is invalid."});
  // Without a place or a handler it is refused all the same.
  EXPECT_FALSE(RKVVASTModel::withDictionary(*document.root));
}

TEST(RKVVASTModelTest, VersionsAreComparedAsWholeTexts) {
  for (const char* version : {"2.0", "3.0", "4.0", "4.1", "4.2"}) {
    EXPECT_TRUE(read(ad('i', "a"), nullptr, nullptr, version).model->versionIsSupported())
        << version;
  }
  for (const char* version : {"1.0", "3", "3.00", " 3.0", "4.2 ", "5.0", ""}) {
    Document document = read(ad('i', "a"), nullptr, nullptr, version);
    ASSERT_TRUE(document.model) << version;  // read all the same: the parser refuses it
    EXPECT_FALSE(document.model->versionIsSupported()) << version;
    EXPECT_EQ(document.model->version(), version);
    EXPECT_EQ(document.model->ads().size(), 1u);
  }
}

TEST(RKVVASTModelTest, AdsAndTheirReports) {
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;
  Document document = read(
      // kept: an inline ad without title (reported with its InLine's Error URLs)
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Error>http://e.test/inline</Error>" + kLinear +
          "</InLine></Ad>"
          // skipped silently: neither kind, or not an element
          "<Ad id='2'><Other>x</Other></Ad><Ad>text only</Ad>"
          // kept: a wrapper without title (reported with an empty list)
          "<Ad id='3'><Wrapper><AdSystem>S</AdSystem><Error>http://e.test/wrapper</Error>"
          "</Wrapper></Ad>"
          // dropped: an InLine value that is no element
          "<Ad id='4'><InLine/></Ad>"
          // kept but invalid: the report comes with the ad's own error pixels
          "<Ad id='5'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
          "<Error>http://e.test/5</Error></InLine></Ad>",
      &recorder, &error);
  ASSERT_TRUE(document.model);
  EXPECT_EQ(ids(document.model->ads()), (Strings{"1", "3", "5"}));
  EXPECT_FALSE(document.model->ads()[2]->isValid());

  const auto& reports = recorder.reports();
  ASSERT_EQ(recorder.names(), (Strings{"VAST_VALIDATION_ERROR_MISSING_ADTITLE",
                                       "VAST_VALIDATION_ERROR_MISSING_ADTITLE", "XML_PARSING_ERROR",
                                       "VAST_VALIDATION_ERROR_MISSING_CREATIVES"}));
  EXPECT_EQ(reports[0].urls, Strings{"http://e.test/inline"});
  EXPECT_TRUE(reports[1].urls.empty());
  EXPECT_TRUE(reports[2].urls.empty());
  EXPECT_EQ(reports[3].urls, Strings{"http://e.test/5"});
  EXPECT_EQ(document.model->sequencedAdsCount(), 0);
  EXPECT_EQ(document.model->wrapperCount(), 1);
}

TEST(RKVVASTModelTest, MainAndPassbackAds) {
  struct Case {
    const char* name;
    std::string ads;
    bool pod;
    Strings main, passback;
  };
  const Case cases[] = {
      {"no ads", "", false, {}, {}},
      {"one inline", ad('i', "a"), false, {"a"}, {}},
      {"pod by sequence",
       ad('i', "a", "2") + ad('i', "b") + ad('i', "c", "1"),
       true,
       {"c", "a"},
       {"b"}},
      // One sequenced ad is enough for a pod.
      {"single sequenced ad", ad('w', "a", "1"), true, {"a"}, {}},
      // Sequences that read 0 sort last, ties keep document order.
      {"unnumbered sequences",
       ad('i', "a", "abc") + ad('i', "b", "0") + ad('i', "c", "3") + ad('i', "d", "-1"),
       true,
       {"d", "c", "a", "b"},
       {}},
      // The passback list starts at the second ad, even when that is the main ad.
      {"wrapper then inline", ad('w', "a") + ad('i', "b"), false, {"b"}, {"b"}},
      {"wrappers only", ad('w', "a") + ad('w', "b") + ad('w', "c"), false, {"a"}, {"b", "c"}},
      {"inline first", ad('i', "a") + ad('w', "b"), false, {"a"}, {"b"}},
  };
  for (const Case& c : cases) {
    Document document = read(c.ads);
    ASSERT_TRUE(document.model) << c.name;
    EXPECT_EQ(document.model->isAdPod(), c.pod) << c.name;
    EXPECT_EQ(ids(document.model->mainAds()), c.main) << c.name;
    EXPECT_EQ(ids(document.model->passbackAds()), c.passback) << c.name;
  }
}

TEST(RKVVASTModelTest, AdAfterAndOwnership) {
  Document document = read(ad('i', "a") + ad('w', "b") + ad('i', "c"));
  const auto& ads = document.model->ads();
  ASSERT_EQ(ads.size(), 3u);
  Document other = read(ad('i', "a"));
  const auto stranger = other.model->firstAd();

  EXPECT_EQ(document.model->firstAd(), ads[0]);
  EXPECT_EQ(document.model->adAfter(nullptr), ads[0]);
  EXPECT_EQ(document.model->adAfter(ads[0].get()), ads[1]);
  EXPECT_EQ(document.model->adAfter(ads[1].get()), ads[2]);
  EXPECT_EQ(document.model->adAfter(ads[2].get()), nullptr);
  EXPECT_EQ(document.model->adAfter(stranger.get()), nullptr);
  EXPECT_TRUE(document.model->isOwnerOf(ads[1].get()));
  EXPECT_FALSE(document.model->isOwnerOf(stranger.get()));
  EXPECT_FALSE(document.model->isOwnerOf(nullptr));

  const RKVVASTModel empty("4.2", {}, {});
  EXPECT_EQ(empty.firstAd(), nullptr);
  EXPECT_EQ(empty.adAfter(nullptr), nullptr);
}

}  // namespace
}  // namespace rkv
