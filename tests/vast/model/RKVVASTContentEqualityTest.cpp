// Equality of read ads by content: one change anywhere in a full ad makes two readings differ;
// identity and the consumed flag do not.
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/vast/model/RKVVASTContentEquality.h"

#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

// An ad with a value in every place a reader fills.
const std::string kFullAd =
    "<Ad id='a1' sequence='2'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
    "<Impression>http://i.test/1</Impression><Error>http://e.test/1</Error>"
    "<ViewableImpression><Viewable>http://v.test/1</Viewable></ViewableImpression>"
    "<AdVerifications><Verification vendor='V'><JavaScriptResource apiFramework='omid'>"
    "http://j.test/1.js</JavaScriptResource></Verification></AdVerifications>"
    "<Creatives><Creative><UniversalAdId idRegistry='R'>U1</UniversalAdId>"
    "<Linear skipoffset='00:00:05'><Duration>00:00:10</Duration>"
    "<AdParameters>P</AdParameters>"
    "<TrackingEvents><Tracking event='start'>http://t.test/start</Tracking></TrackingEvents>"
    "<VideoClicks><ClickThrough>http://c.test/through</ClickThrough>"
    "<ClickTracking>http://c.test/tracking</ClickTracking></VideoClicks>"
    "<MediaFiles><MediaFile id='m1' delivery='progressive' type='video/mp4' codec='H.264' "
    "bitrate='500' width='640' height='360' scalable='true'>http://m.test/1.mp4</MediaFile>"
    "</MediaFiles>"
    "<Icons><Icon program='AdChoices' width='20' height='20' xPosition='1' yPosition='2'>"
    "<StaticResource creativeType='image/png'>http://icon.test/1.png</StaticResource></Icon>"
    "</Icons></Linear></Creative>"
    "<Creative><NonLinearAds><NonLinear id='n1' width='300' height='50'>"
    "<StaticResource creativeType='image/png'>http://n.test/1.png</StaticResource>"
    "</NonLinear></NonLinearAds></Creative>"
    "<Creative><CompanionAds><Companion id='c1' width='300' height='250'>"
    "<StaticResource creativeType='image/png'>http://comp.test/1.png</StaticResource>"
    "</Companion></CompanionAds></Creative></Creatives>"
    "<Extensions><Extension><offset skipoffset='00:00:03'/></Extension></Extensions>"
    "</InLine></Ad>";

std::shared_ptr<RKVVASTAd> readInline(const std::string& xml) {
  return RKVVASTAdInline::withDictionary(*test::element(xml));
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST(RKVVASTContentEqualityTest, OneChangeAnywhereMakesTheAdsDiffer) {
  const auto ad = readInline(kFullAd);
  const auto again = readInline(kFullAd);
  ASSERT_NE(ad, again);
  EXPECT_TRUE(isEqualContent(*ad, *again));
  again->consume();
  EXPECT_TRUE(isEqualContent(*ad, *again));

  // clang-format off
  const std::pair<const char*, const char*> changes[] = {
      {"id='a1'", "id='a2'"}, {"sequence='2'", "sequence='3'"}, {">S<", ">S2<"}, {">T<", ">T2<"},
      {"http://i.test/1", "http://i.test/2"}, {"http://e.test/1", "http://e.test/2"},
      {"http://v.test/1", "http://v.test/2"}, {"vendor='V'", "vendor='W'"}, {">U1<", ">U2<"},
      {"skipoffset='00:00:05'", "skipoffset='00:00:06'"},
      {"<Duration>00:00:10", "<Duration>00:00:11"}, {">P<", ">Q<"},
      {"event='start'", "event='complete'"}, {"http://c.test/through", "http://c.test/other"},
      {"http://c.test/tracking", "http://c.test/other"}, {"id='m1'", "id='m2'"},
      {"codec='H.264'", "codec='H.265'"}, {"bitrate='500'", "bitrate='501'"},
      {"width='640'", "width='641'"}, {"scalable='true'", "scalable='false'"},
      {"http://m.test/1.mp4", "http://m.test/2.mp4"}, {"program='AdChoices'", "program='Other'"},
      {"xPosition='1'", "xPosition='3'"}, {"http://icon.test/1.png", "http://icon.test/2.png"},
      {"id='n1'", "id='n2'"}, {"width='300' height='50'", "width='300' height='51'"},
      {"http://n.test/1.png", "http://n.test/2.png"}, {"id='c1'", "id='c2'"},
      {"http://comp.test/1.png", "http://comp.test/2.png"},
      {"skipoffset='00:00:03'", "skipoffset='00:00:04'"},
  };
  // clang-format on
  for (const auto& [from, to] : changes) {
    SCOPED_TRACE(std::string(from) + " -> " + to);
    const auto changed = readInline(replaced(kFullAd, from, to));
    EXPECT_FALSE(isEqualContent(*ad, *changed));
    EXPECT_FALSE(isEqualContent(*changed, *ad));
  }
}

}  // namespace
}  // namespace rkv
