#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/RKVVASTModel.h"
#include "rkv/xml/RKVXMLDictionary.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVReportRecorder.h"

namespace rkv {
namespace {

using Strings = std::vector<std::string>;
using test::urlTexts;

// An inline ad (kind 'i') or a wrapper ('w') with the id and, when given, the sequence.
std::string ad(char kind, const std::string& id, const std::string& sequence = "-") {
  const std::string open =
      "<Ad id='" + id + "'" + (sequence == "-" ? "" : " sequence='" + sequence + "'") + ">";
  if (kind == 'w') return open + "<Wrapper><AdSystem>S</AdSystem></Wrapper></Ad>";
  return open +
         "<InLine><AdSystem>S</AdSystem><AdTitle>T</"
         "AdTitle><Creatives><Creative><Linear><Duration>00:00:10</Duration>"
         "<MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles>"
         "</Linear></Creative></Creatives></InLine></Ad>";
}

struct Document {
  RKVXMLDictionaryPtr root;
  std::shared_ptr<RKVVASTModel> model;
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;

  explicit Document(const std::string& content, const std::string& version = " version='4.2'") {
    root = RKVXMLDictionary::rkv_dictionaryWithXMLString("<VAST" + version + ">" + content +
                                                         "</VAST>");
    model = RKVVASTModel::withDictionary(*root, &error, recorder.inner());
  }
};

Strings ids(const RKVVASTModel::Ads& ads) {
  Strings result;
  for (const auto& a : ads)
    result.push_back(a->adID().value_or("(null)"));
  return result;
}

TEST(RKVVASTModelTest, VersionAndRootErrorURLs) {
  // The root's error URLs are kept only when the document has no Ad element at all.
  const std::string errors =
      "<Error>http://e.test/1?c=[ERRORCODE]</Error><Error> </Error>"
      "<Error>http://bad host/</Error><Error>http://e.test/2</Error>";
  EXPECT_EQ(urlTexts(Document(errors).model->errorPixels()),
            (Strings{"http://e.test/1?c=%5BERRORCODE%5D", "http://e.test/2"}));
  for (const std::string& content : {errors + ad('i', "a"), errors + "<Ad id='x'><Other/></Ad>"})
    EXPECT_TRUE(Document(content).model->errorPixels().empty()) << content;

  test::RKVLogCapture log;
  Document unversioned("<Error>http://e.test/1</Error>", "");
  EXPECT_FALSE(unversioned.model);
  EXPECT_EQ(unversioned.recorder.lines(),
            Strings{"VAST_VALIDATION_ERROR_MISSING_VERSION http://e.test/1"});
  EXPECT_EQ(unversioned.error->code, 101);
  EXPECT_EQ(log.messages(2),
            Strings{"VAST XML Tag does not contain the version attribute and is invalid."});

  // Versions are compared as whole texts; an unsupported one is still read (the parser refuses).
  for (const char* version : {"2.0", "3.0", "4.0", "4.1", "4.2"})
    EXPECT_TRUE(Document(ad('i', "a"), std::string(" version='") + version + "'")
                    .model->versionIsSupported());
  for (const char* version : {"1.0", "3", "3.00", " 3.0", "5.0", ""}) {
    Document document(ad('i', "a"), std::string(" version='") + version + "'");
    EXPECT_FALSE(document.model->versionIsSupported()) << version;
    EXPECT_EQ(document.model->ads().size(), 1u);
  }
}

TEST(RKVVASTModelTest, AdsAndTheirReports) {
  Document document(
      // kept: an inline ad without title, reported with its InLine's error URLs
      "<Ad id='1'><InLine><AdSystem>S</AdSystem><Error>http://e.test/inline</Error>"
      "<Creatives><Creative><Linear><Duration>1</Duration><MediaFiles><MediaFile type='video/mp4'>"
      "http://m/1</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"
      // skipped silently: neither kind, or not an element
      "<Ad id='2'><Other>x</Other></Ad><Ad>text only</Ad>"
      // kept: a wrapper without title, reported with an empty list
      "<Ad id='3'><Wrapper><AdSystem>S</AdSystem><Error>http://e.test/wrapper</Error>"
      "</Wrapper></Ad>"
      // dropped: an InLine value that is no element
      "<Ad id='4'><InLine/></Ad>"
      // kept but invalid
      "<Ad id='5'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
      "<Error>http://e.test/5</Error></InLine></Ad>");
  EXPECT_EQ(ids(document.model->ads()), (Strings{"1", "3", "5"}));
  EXPECT_FALSE(document.model->ads()[2]->isValid());
  EXPECT_EQ(document.recorder.lines(),
            (Strings{"VAST_VALIDATION_ERROR_MISSING_ADTITLE http://e.test/inline",
                     "VAST_VALIDATION_ERROR_MISSING_ADTITLE", "XML_PARSING_ERROR",
                     "VAST_VALIDATION_ERROR_MISSING_CREATIVES http://e.test/5"}));
  EXPECT_EQ(document.model->wrapperCount(), 1);

  // Ads follow each other in document order; ads of another model belong to none.
  const auto& ads = document.model->ads();
  Document other(ad('i', "a"));
  EXPECT_EQ(document.model->adAfter(nullptr), ads[0]);
  EXPECT_EQ(document.model->adAfter(ads[1].get()), ads[2]);
  EXPECT_EQ(document.model->adAfter(ads[2].get()), nullptr);
  EXPECT_EQ(document.model->adAfter(other.model->firstAd().get()), nullptr);
  EXPECT_TRUE(document.model->isOwnerOf(ads[1].get()));
  EXPECT_FALSE(document.model->isOwnerOf(other.model->firstAd().get()));
}

TEST(RKVVASTModelTest, MainAndPassbackAds) {
  struct Case {
    std::string ads;
    bool pod;
    Strings main, passback;
  };
  const Case cases[] = {
      {"", false, {}, {}},
      {ad('i', "a") + ad('w', "b") + ad('w', "c"), false, {"a"}, {"b", "c"}},
      {ad('i', "a", "2") + ad('i', "b") + ad('i', "c", "1"), true, {"c", "a"}, {"b"}},
      // One sequenced ad is enough for a pod.
      {ad('w', "a", "1"), true, {"a"}, {}},
      // Sequences that read 0 sort last, ties keep document order.
      {ad('i', "a", "abc") + ad('i', "b", "0") + ad('i', "c", "3") + ad('i', "d", "-1"),
       true,
       {"d", "c", "a", "b"},
       {}},
      // The passback list starts at the second ad, even when that is the main ad.
      {ad('w', "a") + ad('i', "b"), false, {"b"}, {"b"}},
      {ad('w', "a") + ad('w', "b") + ad('w', "c"), false, {"a"}, {"b", "c"}},
  };
  for (const Case& c : cases) {
    Document document(c.ads);
    EXPECT_EQ(document.model->isAdPod(), c.pod) << c.ads;
    EXPECT_EQ(ids(document.model->mainAds()), c.main) << c.ads;
    EXPECT_EQ(ids(document.model->passbackAds()), c.passback) << c.ads;
  }
}

}  // namespace
}  // namespace rkv
