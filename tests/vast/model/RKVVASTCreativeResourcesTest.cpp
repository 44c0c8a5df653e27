#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeIcon.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"

#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using test::element;
using Strings = std::vector<std::string>;
using Texts = std::vector<std::optional<std::string>>;
using Floats = std::vector<float>;

std::string text(const std::optional<RKVVASTURL>& url) {
  return url ? url->url().absoluteString() : "-";
}

Strings texts(const std::vector<RKVVASTURL>& list) {
  Strings result;
  for (const RKVVASTURL& url : list)
    result.push_back(url.url().absoluteString());
  return result;
}

// The three creatives share the resource rule: only the first kind found, in the order static,
// iframe, HTML, is read.
template <typename Creative>
void checkResources(const std::string& tag) {
  const std::string s = "<StaticResource creativeType='image/png'>http://r/s</StaticResource>";
  const std::string i = "<IFrameResource>http://r/i</IFrameResource>";
  const std::string h = "<HTMLResource>http://r/h</HTMLResource>";
  const std::pair<std::string, Strings> cases[] = {
      {h + i + s, {"http://r/s", "-", "-"}},
      {h + i, {"-", "http://r/i", "-"}},
      {h, {"-", "-", "http://r/h"}},
      // A static resource whose text is no URL still wins, and leaves nothing set.
      {"<StaticResource>http://bad host/</StaticResource>" + i, {"-", "-", "-"}},
  };
  for (const auto& [children, expected] : cases) {
    SCOPED_TRACE(tag + ": " + children);
    auto creative =
        Creative::withDictionary(*element("<" + tag + ">" + children + "</" + tag + ">"));
    ASSERT_TRUE(creative);
    EXPECT_EQ((Strings{text(creative->staticResource()), text(creative->iFrameResource()),
                       text(creative->htmlResource())}),
              expected);
    EXPECT_EQ(creative->isValidForWrapper(false), expected != Strings(3, "-"));
    EXPECT_TRUE(creative->isValidForWrapper(true));
  }
  auto empty = Creative::initEmptyCreative();
  EXPECT_FALSE(empty->isValidForWrapper(false));
  EXPECT_TRUE(empty->isValidForWrapper(true));
}

TEST(RKVVASTCreativeResourcesTest, ResourcePrecedence) {
  checkResources<RKVVASTCreativeNonLinear>("NonLinear");
  checkResources<RKVVASTCreativeCompanion>("Companion");
  checkResources<RKVVASTCreativeIcon>("Icon");
  // Companions and icons without any resource are made, and kept only in a wrapper.
  EXPECT_FALSE(
      RKVVASTCreativeCompanion::withDictionary(*element("<Companion/>"))->isValidForWrapper(false));
  EXPECT_FALSE(RKVVASTCreativeIcon::withDictionary(*element("<Icon/>"))->isValidForWrapper(false));
}

TEST(RKVVASTCreativeNonLinearTest, RefusedWithoutResourceEvenInAWrapper) {
  const char* xml =
      "<NonLinear><NonLinearClickThrough>http://c/</NonLinearClickThrough></NonLinear>";
  for (bool wrapper : {false, true}) {
    std::optional<RKVError> error;
    int reported = 0;
    auto creative = RKVVASTCreativeNonLinear::withDictionary(
        *element(xml), &error, [&](const RKVVASTError&, std::vector<RKVVASTURL>&) { ++reported; },
        wrapper);
    EXPECT_EQ(creative, nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "RKVVASTErrorDomain");
    EXPECT_EQ(error->code, 101);
    EXPECT_EQ(error->localizedDescription,
              "The <StaticResource> tag of a NonLinear creative is missing or empty in the VAST "
              "response.");
    EXPECT_EQ(reported, 0);  // the handler is not told
  }
  EXPECT_EQ(RKVVASTCreativeNonLinear::withDictionary(*element(xml)), nullptr);
}

TEST(RKVVASTCreativeNonLinearTest, Fields) {
  auto creative = RKVVASTCreativeNonLinear::withDictionary(*element(
      "<NonLinear id='n1' width='300' height='50.5' expandedWidth='600px' expandedHeight='x'"
      " scalable='YES' maintainAspectRatio='false' minSuggestedDuration='00:00:05'"
      " apiFramework='VPAID'><StaticResource>http://r/s.png</StaticResource>"
      "<AdParameters>p=1</AdParameters>"
      "<NonLinearClickThrough>http://c/through</NonLinearClickThrough>"
      "<NonLinearClickTracking>http://c/1</NonLinearClickTracking>"
      "<NonLinearClickTracking>http://c/2</NonLinearClickTracking>"
      "<TrackingEvents><Tracking event='start'>http://t/</Tracking></TrackingEvents></NonLinear>"));
  ASSERT_TRUE(creative);
  EXPECT_EQ((Texts{creative->id(), creative->minSuggestedDuration(), creative->apiFramework(),
                   creative->adParameters()}),
            (Texts{"n1", "00:00:05", "VPAID", "p=1"}));
  EXPECT_TRUE(creative->scalable());
  EXPECT_FALSE(creative->maintainAspectRatio());
  EXPECT_EQ((Floats{creative->width(), creative->height(), creative->expandedWidth(),
                    creative->expandedHeight()}),
            (Floats{300, 50.5f, 600, 0}));
  EXPECT_EQ(text(creative->clickThrough()), "http://c/through");
  EXPECT_EQ(texts(creative->clickTracking()), (Strings{"http://c/1", "http://c/2"}));
  // Its tracking comes from the enclosing NonLinearAds, never from the element.
  EXPECT_TRUE(creative->trackingEvents().empty());
}

TEST(RKVVASTCreativeCompanionTest, FieldsClicksAndTracking) {
  auto companion = RKVVASTCreativeCompanion::withDictionary(*element(
      "<Companion id='c1' adSlotID='slot' width='300' height='250' assetWidth='600'"
      " assetHeight='500'><IFrameResource>http://r/frame</IFrameResource>"
      "<AdParameters>x</AdParameters>"
      "<CompanionClickThrough>  </CompanionClickThrough>"
      "<CompanionClickThrough>http://c/second</CompanionClickThrough>"
      "<CompanionClickTracking>http://c/1</CompanionClickTracking>"
      "<CompanionClickTracking id='blank'/>"
      "<CompanionClickTracking>http://bad host/</CompanionClickTracking>"
      "<CompanionClickTracking>http://c/2</CompanionClickTracking>"
      "<TrackingEvents><Tracking event='creativeView'>http://t/cv</Tracking></TrackingEvents>"
      "</Companion>"));
  ASSERT_TRUE(companion);
  EXPECT_EQ((Texts{companion->id(), companion->adSlotID(), companion->adParameters()}),
            (Texts{"c1", "slot", "x"}));
  EXPECT_EQ((Floats{companion->width(), companion->height(), companion->assetWidth(),
                    companion->assetHeight()}),
            (Floats{300, 250, 600, 500}));
  // The white-space-only click-through is stripped from the tree, so the second one is the
  // first child; blank and unparsable click tracking entries are skipped, in order.
  EXPECT_EQ(text(companion->clickThrough()), "http://c/second");
  EXPECT_EQ(texts(companion->clickTracking()), (Strings{"http://c/1", "http://c/2"}));
  ASSERT_EQ(companion->trackingEvents().size(), 1u);
  EXPECT_EQ(companion->trackingEvents()[0]->eventName(), "creativeView");
}

TEST(RKVVASTCreativeIconTest, FieldsAndClicks) {
  auto icon = RKVVASTCreativeIcon::withDictionary(*element(
      "<Icon program='AdChoices' width='20' height='20.5' xPosition='right' yPosition='12'"
      " duration='00:00:10' offset='00:00:01' apiFramework='none'>"
      "<HTMLResource>http://r/h</HTMLResource>"
      "<IconClicks><IconClickThrough>http://c/through</IconClickThrough>"
      "<IconClickTracking>http://c/1</IconClickTracking>"
      "<IconClickTracking>http://c/2</IconClickTracking></IconClicks>"
      "<IconClicks><IconClickTracking>http://c/ignored</IconClickTracking></IconClicks>"
      "<TrackingEvents><Tracking event='creativeView'>http://t/cv</Tracking></TrackingEvents>"
      "</Icon>"));
  ASSERT_TRUE(icon);
  EXPECT_EQ((Texts{icon->program(), icon->duration(), icon->offset(), icon->apiFramework()}),
            (Texts{"AdChoices", "00:00:10", "00:00:01", "none"}));
  // Positions written as words read 0.
  EXPECT_EQ((Floats{icon->width(), icon->height(), icon->xPosition(), icon->yPosition()}),
            (Floats{20, 20.5f, 0, 12}));
  EXPECT_EQ(text(icon->clickThrough()), "http://c/through");
  EXPECT_EQ(texts(icon->clickTracking()), (Strings{"http://c/1", "http://c/2"}));
  EXPECT_EQ(icon->trackingEvents().size(), 1u);
  // Click elements outside IconClicks are not the icon's.
  EXPECT_FALSE(RKVVASTCreativeIcon::withDictionary(
                   *element("<Icon><IconClickThrough>http://c/</IconClickThrough></Icon>"))
                   ->clickThrough());
}

}  // namespace
}  // namespace rkv
