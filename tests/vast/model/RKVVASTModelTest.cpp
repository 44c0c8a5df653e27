// The VAST document model: media files, creatives, events, universal ad ids; inline and wrapper
// ads, their merge and equality by content; the vendor extension record, ad verifications.
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAdExtension.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdVerification.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/vast/model/RKVVASTContentEquality.h"
#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeIcon.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"
#include "rkv/vast/model/RKVVASTMediaFileSelector.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/RKVVASTUniversalAdId.h"
#include "rkv/vast/model/RKVVASTViewabilityEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using std::nullopt;
using test::element;
using test::url;
using test::urlTexts;
using Strings = std::vector<std::string>;
using Tracking = RKVVASTTrackingEvent;
using Extension = RKVVASTAdExtension;
using Resource = RKVVASTAdVerificationResource;
using Event = RKVVASTAdVerificationEvent;
using V = RKVVASTAdVerification;

std::string text(const std::optional<RKVVASTURL>& url) {
  return url ? url->url().absoluteString() : "-";
}

std::shared_ptr<RKVVASTMediaFile> mediaFile(const std::string& attributes,
                                            const std::string& url = "http://m.test/f") {
  return RKVVASTMediaFile::withDictionary(
      *element("<MediaFile " + attributes + ">" + url + "</MediaFile>"));
}

std::shared_ptr<Tracking> tracking(const std::string& attributes,
                                   const std::string& text = "http://t.test/") {
  return Tracking::withDictionary(*element("<Tracking " + attributes + ">" + text + "</Tracking>"));
}

TEST(RKVVASTMediaFileTest, SupportedTypesAndAttributes) {
  for (const char* attributes :
       {"type='VIDEO/MP4'", "type='Video/3gpp'", "type='video/m4v'", "type='video/MPEGURL'",
        "type='application/vnd.apple.mpegurl'", "type='application/x-mpegURL'",
        "type='application/x-javascript' apiFramework='vpaid'"})
    EXPECT_TRUE(mediaFile(attributes)) << attributes;
  for (const char* attributes :
       {"type='video/webm'", "type='video/mp4 '", "", "type='application/javascript'",
        "type='text/javascript' apiFramework='VPAID'"})
    EXPECT_FALSE(mediaFile(attributes)) << attributes;
  EXPECT_FALSE(mediaFile("type='video/mp4'", "http://bad host/f.mp4"));
  // Numbers are leading numbers, or 0.
  auto numbers = mediaFile("type='video/mp4' bitrate='1500.5' maxBitrate='abc' height=' 720px'");
  EXPECT_EQ((std::vector{numbers->bitrate(), numbers->maxBitrate(), numbers->height()}),
            (std::vector{1500.5f, 0.f, 720.f}));
  // A bitrate is declared only by an attribute that starts with a number; the others read 0.
  const std::pair<const char*, bool> declarations[] = {
      {nullptr, false}, {"", false},    {"abc", false}, {" \t", false},    {".", false},
      {"-", false},     {"inf", false}, {"nan", false}, {" 12kbps", true}, {"-1", true},
      {".5", true},     {"+.5", true},  {"0", true},
  };
  for (const auto& [bitrate, declared] : declarations) {
    SCOPED_TRACE(bitrate ? bitrate : "absent");
    auto file = mediaFile(bitrate ? std::string("type='video/mp4' bitrate='") + bitrate + "'"
                                  : "type='video/mp4'");
    EXPECT_EQ(file->declaresBitrate(), declared);
    if (!declared) {
      EXPECT_EQ(file->bitrate(), 0);
    }
  }
}

TEST(RKVVASTMediaFileSelectorTest, Choices) {
  // Name (the URL's path), bitrate (null: no bitrate attribute), width, height.
  using Files = std::vector<std::tuple<const char*, const char*, int, int>>;
  const Files ladder = {
      {"a1500", "1500", 1280, 720}, {"a3000", "3000", 1920, 1080}, {"a800", "800", 640, 360}};
  const Files aboveCap = {
      {"small", "4000", 640, 360}, {"large", "3000", 1920, 1080}, {"mid", "5000", 1280, 720}};
  const Files undeclared = {
      {"mid", "-1", 1280, 720}, {"small", "-1", 640, 360}, {"small2", "-1", 640, 360}};
  const Files someUndeclared = {
      {"none", "-1", 1920, 1080}, {"low", "400", 320, 180}, {"rich", "900", 640, 360}};
  // Left out or not a number, the bitrate is not declared either, though it reads 0.
  const Files notWritten = {
      {"small", nullptr, 640, 360}, {"large", "abc", 1920, 1080}, {"mid", "", 1280, 720}};
  const Files hdWithout = {{"hd", nullptr, 1920, 1080}, {"sd", "800", 640, 360}};
  const Files zeroDeclared = {{"undeclared", nullptr, 640, 360}, {"zero", "0", 1920, 1080}};
  // A frame of area -1 is the running best's starting marker, so the next file replaces it.
  const Files markerArea = {{"marker", "-1", -1, 1}, {"real", "-1", 2, 2}};
  // Files, minimum and maximum bitrate, access type (6 wi-fi, 0 none), the choice.
  const std::tuple<Files, float, float, int64_t, const char*> cases[] = {
      {ladder, 0, 2000, 6, "a1500"},         // the richest under the cap on a good connection
      {ladder, 0, 2000, 0, "a800"},          // the leanest on a low one
      {ladder, 0, 3000, 6, "a3000"},         // the cap is inclusive
      {ladder, 2000, 2000, 6, "a1500"},      // the minimum is not a filter
      {aboveCap, 0, 2000, 6, "large"},       // all above the cap: the largest frame
      {aboveCap, 0, 2000, 0, "large"},       // a low connection does not consult the cap
      {undeclared, 0, 5000, 0, "small"},     // no bitrates: the smallest frame, first of equals
      {someUndeclared, 0, 5000, 6, "rich"},  // undeclared bitrates are skipped
      {someUndeclared, 0, 5000, 0, "low"},
      {markerArea, 0, 5000, 0, "real"},
      {notWritten, 0, 5000, 6, "large"},  // no bitrate written: the largest frame
      {notWritten, 0, 5000, 0, "small"},  // and the smallest on a low connection
      {hdWithout, 0, 5000, 0, "sd"},      // the file that declares one wins on a low one
      {hdWithout, 0, 5000, 6, "sd"},
      {zeroDeclared, 0, 5000, 0, "zero"},  // a written 0 is declared
      {zeroDeclared, 0, 5000, 6, "zero"},
      {{}, 0, 5000, 0, "none"},
  };
  for (const auto& [files, minBitrate, maxBitrate, accessType, expected] : cases) {
    std::vector<std::shared_ptr<RKVVASTMediaFile>> made;
    for (const auto& [name, bitrate, width, height] : files) {
      const std::string written = bitrate ? " bitrate='" + std::string(bitrate) + "'" : "";
      made.push_back(mediaFile("type='video/mp4'" + written + " width='" + std::to_string(width) +
                                   "' height='" + std::to_string(height) + "'",
                               std::string("http://m.test/") + name));
    }
    auto chosen = RKVVASTMediaFileSelector(minBitrate, maxBitrate, made, accessType).mediaFile();
    EXPECT_EQ(chosen ? chosen->url()->lastPathComponent() : "none", expected)
        << expected << " at " << accessType;
  }
  // Equal bitrates keep list order (from the end on a low connection), 40 of them against an
  // unstable sort.
  std::vector<std::shared_ptr<RKVVASTMediaFile>> equal;
  for (int i = 0; i < 40; ++i)
    equal.push_back(mediaFile("type='video/mp4' bitrate='1000'", "http://m/" + std::to_string(i)));
  EXPECT_EQ(RKVVASTMediaFileSelector(0, 5000, equal, 6).mediaFile(), equal.front());
  EXPECT_EQ(RKVVASTMediaFileSelector(0, 5000, equal, 0).mediaFile(), equal.back());
  for (int64_t type : {-1, 0, 1, 2, 3, 7})
    EXPECT_TRUE(RKVVASTMediaFileSelector::isConsideredLowNetworkConnection(type)) << type;
  // The default access type is a good one; the same file object comes back; nulls are skipped.
  auto only = mediaFile("type='video/mp4' bitrate='700'");
  EXPECT_EQ(RKVVASTMediaFileSelector(0, 5000, {nullptr, only, nullptr}).mediaFile(), only);
}

TEST(RKVVASTCreativeLinearTest, ReadsALinearElement) {
  auto linear = RKVVASTCreativeLinear::withDictionary(*element(
      "<Linear><Duration>00:00:30.000</Duration><MediaFiles><MediaFile type='video/webm' "
      "bitrate='900'>http://m/webm</MediaFile><MediaFile type='video/mp4' bitrate='3000'>"
      "http://m/3000</MediaFile><InteractiveCreativeFile type='application/javascript' "
      "apiFramework='VPAID'>http://m/vpaid</InteractiveCreativeFile>"
      "<InteractiveCreativeFile type='application/javascript' apiFramework='SIMID'>"
      "http://m/simid</InteractiveCreativeFile><InteractiveCreativeFile type='video/mp4'>"
      "http://m/icf</InteractiveCreativeFile><MediaFile type='application/javascript' "
      "apiFramework='VPAID'>http://m/vpaid2</MediaFile><MediaFile type='video/mp4' "
      "bitrate='6000'>http://m/6000</MediaFile></MediaFiles><Icons><Icon program='AdChoices'>"
      "<StaticResource>http://i/i.png</StaticResource></Icon><Icon program='bare'/>"
      "<Icon program='frame'><IFrameResource>http://i/f</IFrameResource></Icon></Icons>"
      "</Linear>"));
  // MediaFile entries first, then the interactive files that are VPAID.
  Strings files;
  for (const auto& file : linear->mediaFiles())
    files.push_back(file->url()->absoluteString());
  EXPECT_EQ(files,
            (Strings{"http://m/3000", "http://m/vpaid2", "http://m/6000", "http://m/vpaid"}));
  EXPECT_EQ(linear->icons().size(), 2u);  // the icon without a resource is dropped
  // Under the 5000 cap the 3000 file is the richest (the VPAID files declare no bitrate: 0).
  EXPECT_EQ(linear->mostAppropriateMediaFile()->url()->absoluteString(), "http://m/3000");
}

// What a Linear element reports, whether it is made and whether an inline ad keeps it.
TEST(RKVVASTCreativeLinearTest, Reporting) {
  const std::string duration = "<Duration>00:00:10</Duration>";
  const std::string files =
      "<MediaFiles><MediaFile type='video/mp4'>http://m/f</MediaFile></MediaFiles>";
  const std::string webm =
      "<MediaFiles><MediaFile type='video/webm'>http://m/w</MediaFile></MediaFiles>";
  const std::string media = "VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES";
  const std::string time = "VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION";
  // Content, wrapper, error place, made, reported, kept outside a wrapper (the ad's tests:
  // plainer).
  const std::string noURL = "<MediaFiles><MediaFile type='video/mp4'/></MediaFiles>";
  const std::tuple<std::string, bool, bool, bool, std::string, bool> cases[] = {
      {"<Duration/>" + files, false, false, true, time, true},
      {duration + "<MediaFiles/>", false, true, false, media, false},
      {duration + noURL, false, true, true, media, false},
      {duration + webm, false, false, true, "", false},
      {duration, true, true, true, "", false},  // a wrapper needs no media files
      {files, true, false, true, time, true},
  };
  for (const auto& [content, wrapper, errorPlace, made, reported, kept] : cases) {
    SCOPED_TRACE(content + (wrapper ? " (wrapper)" : "") + (errorPlace ? " (place)" : ""));
    test::RKVReportRecorder reports;
    std::optional<RKVError> error;
    auto linear = RKVVASTCreativeLinear::withDictionary(
        *element("<Linear>" + content + "</Linear>"), errorPlace ? &error : nullptr,
        reports.inner(), wrapper);
    ASSERT_EQ(linear != nullptr, made);
    EXPECT_EQ(reports.lines, reported.empty() ? Strings{} : Strings{reported});
    EXPECT_EQ(error ? error->code : 0, reported == media ? 401 : 0);
    EXPECT_EQ(linear && linear->isValidForWrapper(false), kept);
    EXPECT_EQ(linear && linear->isValidForWrapper(true), made);
  }
  // The empty creative a merge adds is kept only in a wrapper; universal ad ids, once each.
  auto empty = RKVVASTCreativeLinear::initEmptyCreative();
  EXPECT_FALSE(empty->isValidForWrapper(false));
  EXPECT_TRUE(empty->isValidForWrapper(true));
  auto a = *RKVVASTUniversalAdId::withRegistry("R", "A");
  auto b = *RKVVASTUniversalAdId::withRegistry("R", "B");
  empty->addUniversalAdIds({a, b, a});
  empty->addUniversalAdIds({*RKVVASTUniversalAdId::withRegistry("R", "B")});
  EXPECT_EQ(empty->universalAdIds(), (std::vector<RKVVASTUniversalAdId>{a, b}));
}

// The three creatives share the resource rule: only the first kind found, in the order static,
// iframe, HTML, is read; a static resource whose text is no URL still wins and leaves nothing.
template <typename Creative>
void checkResources(const std::string& tag) {
  const std::string s = "<StaticResource creativeType='image/png'>http://r/s</StaticResource>";
  const std::string i = "<IFrameResource>http://r/i</IFrameResource>";
  const std::string h = "<HTMLResource>http://r/h</HTMLResource>";
  const std::pair<std::string, Strings> cases[] = {
      {h + i + s, {"http://r/s", "-", "-"}},
      {h + i, {"-", "http://r/i", "-"}},
      {h, {"-", "-", "http://r/h"}},
      {"<StaticResource>http://bad host/</StaticResource>" + i, {"-", "-", "-"}},
  };
  for (const auto& [children, expected] : cases) {
    SCOPED_TRACE(tag + children);
    auto creative =
        Creative::withDictionary(*element("<" + tag + ">" + children + "</" + tag + ">"));
    ASSERT_TRUE(creative);
    EXPECT_EQ((Strings{text(creative->staticResource()), text(creative->iFrameResource()),
                       text(creative->htmlResource())}),
              expected);
    EXPECT_EQ(creative->isValidForWrapper(false), expected != Strings(3, "-"));
    EXPECT_TRUE(creative->isValidForWrapper(true));
  }
}

TEST(RKVVASTCreativeResourcesTest, ResourcePrecedenceAndTheNonLinearError) {
  checkResources<RKVVASTCreativeNonLinear>("NonLinear");
  checkResources<RKVVASTCreativeCompanion>("Companion");
  checkResources<RKVVASTCreativeIcon>("Icon");
  // A companion without any resource is made, and kept only in a wrapper; a non-linear one is
  // refused even in a wrapper, with an error the handler is not told about.
  EXPECT_FALSE(
      RKVVASTCreativeCompanion::withDictionary(*element("<Companion/>"))->isValidForWrapper(false));
  for (bool wrapper : {false, true}) {
    std::optional<RKVError> error;
    test::RKVReportRecorder reports;
    EXPECT_EQ(RKVVASTCreativeNonLinear::withDictionary(*element("<NonLinear width='3'/>"), &error,
                                                       reports.inner(), wrapper),
              nullptr);
    EXPECT_EQ(error, RKVVASTError::VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE().error());
    EXPECT_TRUE(reports.lines.empty());
  }
}

TEST(RKVVASTTrackingEventTest, NamesElementsAndLists) {
  test::RKVLogCapture log;
  for (const char* name : {"creativeView", "start", "firstSecond", "progress", "loaded"})
    EXPECT_TRUE(tracking(std::string("event='") + name + "'")->isEventConsumable()) << name;
  for (const char* name : {"click", "mute", "skip", "vpaidAdInteraction", "playerCollapse"})
    EXPECT_FALSE(tracking(std::string("event='") + name + "'")->isEventConsumable()) << name;
  // "viewcount" is consumable but comes only from extension metrics; names are case-sensitive;
  // refusing a name logs nothing, an unknown name made by hand is logged and never consumed.
  EXPECT_TRUE(Tracking::isEventConsumableFromName("viewcount"));
  for (const char* name : {"viewcount", "Start", "acceptInvitation", ""})
    EXPECT_EQ(tracking(std::string("event='") + name + "'"), nullptr) << name;
  EXPECT_TRUE(log.debugMessages().empty());
  EXPECT_FALSE(Tracking("acceptInvitation", nullopt, url("http://t/")).isEventConsumable());
  EXPECT_FALSE(RKVVASTViewabilityEvent("start", url("http://v/")).isEventConsumable());
  EXPECT_EQ(log.debugMessages().size(), 2u);

  for (const char* xml :
       {"<Tracking>http://t.test/</Tracking>", "<Tracking event='start'>a<B/>b</Tracking>"})
    EXPECT_EQ(Tracking::withDictionary(*element(xml)), nullptr) << xml;
  auto progress = tracking("event='progress' offset='00:00:05.000'", "http://t.test/p?x=[A]");
  EXPECT_EQ(progress->offset(), "00:00:05.000");
  EXPECT_EQ(progress->eventURL().absoluteString(), "http://t.test/p?x=%5BA%5D");
  EXPECT_EQ(Tracking::withExtensionDictionary(*element("<M name='ViewCount'>http://m/</M>")),
            nullptr);

  // Only the first TrackingEvents is read, invalid entries skipped, order kept; none valid: absent.
  auto found = Tracking::findTrackingEvents(
      *element("<Linear><TrackingEvents><Tracking event='start'>http://t.test/1</Tracking>"
               "<Tracking event='Start'>http://t.test/x</Tracking><Tracking event='pause'>"
               "http://t.test/2</Tracking></TrackingEvents><TrackingEvents>"
               "<Tracking event='mute'>http://t.test/3</Tracking></TrackingEvents></Linear>"));
  EXPECT_EQ(urlTexts(found.value()), (Strings{"http://t.test/1", "http://t.test/2"}));
  EXPECT_EQ(
      Tracking::findTrackingEvents(*element(
          "<L><TrackingEvents><Tracking event='x'>http://t/</Tracking></TrackingEvents></L>")),
      nullopt);
}

TEST(RKVVASTTrackingEventTest, EqualityCopyAndArchive) {
  auto a = tracking("event='progress' offset='25%'");
  for (const auto& other : {tracking("event='progress' offset='50%'"), tracking("event='progress'"),
                            tracking("event='complete' offset='25%'"),
                            tracking("event='progress' offset='25%'", "http://t.test/q")})
    EXPECT_FALSE(a->isEqual(*other));
  auto b = a->copy();
  EXPECT_TRUE(b != a && *b == *a);
  b->setEventOffset(3);
  EXPECT_FALSE(*a == *b);
  // Events of different classes are never equal, even with the same name and URL.
  const RKVURL one = url("http://v.test/1");
  Tracking tracked("viewcount", nullopt, one);
  RKVVASTViewabilityEvent viewed("viewcount", one);
  EXPECT_FALSE(viewed.isEqual(tracked) || tracked.isEqual(viewed));

  auto pause = tracking("event='pause'", "http://t.test/p?e=[ERRORCODE]");
  EXPECT_EQ(pause->archive(),
            R"({"name":"pause","url":"http://t.test/p?e=%5BERRORCODE%5D","eventOffset":-1.0})");
  for (const auto& event : {a, b, pause})
    EXPECT_TRUE(*Tracking::unarchive(event->archive()) == *event) << event->archive();
  EXPECT_EQ(Tracking::unarchive(R"({"name":"start","url":"http://bad host/"})"), nullptr);
}

TEST(RKVVASTUniversalAdIdTest, ReadsElementsAndArchives) {
  // The text wins over idValue; interrupted text is no text; a value of exactly "unknown" is no id.
  const std::pair<const char*, const char*> cases[] = {
      {"<UniversalAdId idRegistry='REG-A'>unknown</UniversalAdId>", "-"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-1'>NEW-1</UniversalAdId>", "REG-A/NEW-1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-2'>a<B/>b</UniversalAdId>", "REG-A/OLD-2"},
      {"<UniversalAdId idRegistry=''>X1</UniversalAdId>", "-"},
  };
  for (const auto& [xml, expected] : cases) {
    auto id = RKVVASTUniversalAdId::withDictionary(*element(xml));
    EXPECT_EQ(id ? id->registry() + "/" + id->value() : "-", expected) << xml;
  }
  auto a = RKVVASTUniversalAdId::withRegistry("REG-A", "ABCD0001");
  EXPECT_EQ(a->archive(), R"({"registry":"REG-A","value":"ABCD0001"})");
  EXPECT_EQ(RKVVASTUniversalAdId::unarchive(a->archive()), a);
  EXPECT_FALSE(RKVVASTUniversalAdId::unarchive(R"({"registry":"R","value":"unknown"})"));
}

const std::string kBasics = "<AdSystem>S</AdSystem><AdTitle>T</AdTitle>";
const std::string kErrors = "<Error>http://e.test/1?c=[ERRORCODE]</Error>";
const std::string kMedia =
    "<MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles>";
const std::string kNonLinear =
    "<Creative><NonLinearAds><NonLinear><StaticResource>http://n.test/1.png</StaticResource>"
    "</NonLinear></NonLinearAds></Creative>";

std::string creatives(const std::string& entries) {
  return "<Creatives>" + entries + "</Creatives>";
}
std::string track(const std::string& url, const char* event = "start") {
  return std::string("<Tracking event='") + event + "'>" + url + "</Tracking>";
}

// A linear creative that plays, with these Tracking and ClickTracking elements.
std::string linear(const std::string& tracking, const std::string& clicks = "") {
  return "<Creative><Linear><Duration>00:00:10</Duration>" + kMedia + "<TrackingEvents>" +
         tracking + "</TrackingEvents><VideoClicks>" + clicks +
         "</VideoClicks></Linear></Creative>";
}

// An inline ad, or a wrapper, read from the content of its InLine (Wrapper) element.
std::shared_ptr<RKVVASTAd> readAd(bool wrapper, const std::string& content,
                                  test::RKVReportRecorder* recorder = nullptr,
                                  std::optional<RKVError>* error = nullptr) {
  const std::string kind = wrapper ? "Wrapper" : "InLine";
  const auto ad = element("<Ad><" + kind + ">" + content + "</" + kind + "></Ad>");
  const auto handler = recorder ? recorder->inner() : RKVVASTInnerErrorHandler();
  if (wrapper) return RKVVASTAdWrapper::withDictionary(*ad, error, handler);
  return RKVVASTAdInline::withDictionary(*ad, error, handler);
}

// What an inline ad's creatives say about the ad. Reports name the error without its
// "VAST_VALIDATION_ERROR_" prefix, with "+" when the ad's error pixels were handed over.
TEST(RKVVASTAdTest, CreativesDecideTheInlineAd) {
  const std::string mediaFiles = "LINEAR_MISSING_MEDIAFILES";
  const std::string noDuration = "<Creative><Linear>" + kMedia + "<TrackingEvents>" +
                                 track("http://t.test/l") + "</TrackingEvents></Linear></Creative>";
  const std::string noMedia = "<Creative><Linear><Duration>00:00:05</Duration></Linear></Creative>";
  const std::string companion =
      "<Creative><CompanionAds><Companion><StaticResource>http://c.test/1.png</StaticResource>"
      "</Companion></CompanionAds></Creative>";
  const std::string bareNonLinear =
      "<Creative><NonLinearAds><NonLinear width='1'/></NonLinearAds></Creative>";
  const struct {
    std::string creatives;
    bool place;
    std::string reports, placed;
    bool valid;
    std::string kept;  // linear, non-linear and companion creatives
  } cases[] = {
      {creatives(linear("")), true, "", "", true, "100"},
      {"", false, "MISSING_CREATIVES+", "", false, "000"},
      // Companions alone do not make an ad.
      {creatives(companion), true, "MISSING_CREATIVES+", "MISSING_CREATIVES", false, "001"},
      {creatives(noMedia), true, mediaFiles + "+", mediaFiles, false, "000"},
      {creatives(noMedia), false, "", "", false, "000"},
      // Only errors without a VAST code are reported, and only the last linear error is kept.
      {creatives(noDuration), true, "LINEAR_MISSING_DURATION", "", true, "100"},
      {creatives(noDuration + kNonLinear), true, "", "", true, "110"},
      {creatives(noDuration + noMedia), true, "", mediaFiles, true, "100"},
      {creatives(bareNonLinear), true, "MISSING_CREATIVES+", "MISSING_CREATIVES", false, "000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.creatives + (c.place ? "" : " without a place"));
    test::RKVReportRecorder recorder;
    std::optional<RKVError> error;
    auto ad = readAd(false, kBasics + kErrors + c.creatives, &recorder, c.place ? &error : nullptr);
    std::string reports;
    for (std::string line : recorder.lines) {
      const size_t pixels = line.find(" http://e.test/1?c=%5BERRORCODE%5D");
      if (pixels != std::string::npos) line.replace(pixels, std::string::npos, "+");
      reports += line.substr(line.find("ERROR_") + 6);
    }
    EXPECT_EQ(reports, c.reports);
    EXPECT_EQ(error ? error->vastError->errorName().value_or("").substr(22) : "", c.placed);
    EXPECT_EQ(ad->isValid(), c.valid);
    EXPECT_EQ(ad->hasTriggeredAParsingError(), !c.valid);
    EXPECT_EQ(std::to_string(ad->linearCreatives().size()) +
                  std::to_string(ad->nonLinearCreatives().size()) +
                  std::to_string(ad->companionCreatives().size()),
              c.kept);
  }
}

TEST(RKVVASTAdTest, VerificationsFromEitherPlace) {
  auto verification = [](const std::string& vendor) {
    return "<Verification vendor='" + vendor + "'><JavaScriptResource>http://s.test/" + vendor +
           ".js</JavaScriptResource></Verification>";
  };
  const std::string current = "<AdVerifications>" + verification("a") + verification("b") +
                              "<Verification vendor='no-script'/></AdVerifications>";
  const std::string older = "<Extensions><Extension type='AdVerifications'><AdVerifications>" +
                            verification("old") +
                            "</AdVerifications></Extension><Extension type='other'>"
                            "<AdVerifications>" +
                            verification("other") + "</AdVerifications></Extension></Extensions>";
  // The older form is read only when the current one holds no Verification.
  const std::pair<std::string, Strings> cases[] = {
      {current + older, {"a", "b"}},
      {"<AdVerifications><Verification/></AdVerifications>" + older, {"old"}},
  };
  for (const auto& [content, expected] : cases) {
    Strings vendors;
    const auto ad = readAd(true, kBasics + content);
    for (const auto& v : ad->adVerifications())
      vendors.push_back(v->vendor().value_or("(null)"));
    EXPECT_EQ(vendors, expected) << content;
  }
}

TEST(RKVVASTAdTest, MergePoursTheWrapperIntoTheAd) {
  auto extension = [](const char* url, const char* page) {
    return std::string("<Extensions><Extension><VireoMetrics><VireoMetric name='viewcount'>") +
           url + "</VireoMetric></VireoMetrics><VireoMacros><pageID>" + page +
           "</pageID></VireoMacros></Extension></Extensions>";
  };
  auto linearWith = [](const std::string& n) {
    return linear(track("http://w.test/t" + n),
                  "<ClickTracking>http://w.test/c" + n + "</ClickTracking>");
  };
  const std::string others =
      "<Creative><NonLinearAds><NonLinear><StaticResource>http://w.test/nl.png</StaticResource>"
      "</NonLinear><TrackingEvents>" +
      track("http://w.test/nl") +
      "</TrackingEvents></NonLinearAds><CompanionAds><Companion><TrackingEvents>" +
      track("http://w.test/co", "creativeView") +
      "</TrackingEvents></Companion></CompanionAds></Creative>";
  auto wrapper = readAd(
      true, kBasics +
                "<ViewableImpression><Viewable>http://w.test/view</Viewable></ViewableImpression>" +
                creatives(linearWith("1") + linearWith("2") + others) +
                extension("http://w.test/metric", "wrapper") +
                "<AdVerifications><Verification vendor='w'><JavaScriptResource>http://w.test/v.js"
                "</JavaScriptResource></Verification></AdVerifications>");
  auto ad = readAd(false, kBasics + creatives(linear(track("http://a.test/t"))) +
                              extension("http://a.test/metric", "ad"));
  const auto wrapperExtension = wrapper->extensions();

  ad->merge(*wrapper);
  EXPECT_EQ(ad->wrapperDepth(), 1);
  // The manager's chain test checks the impressions and error URLs of every level, in order.
  ASSERT_EQ(ad->viewabilityEvents().size(), 3u);  // its metric, the wrapper's view and metric
  EXPECT_EQ(ad->viewabilityEvents()[1]->eventURL().absoluteString(), "http://w.test/view");
  // Every wrapper linear creative's tracking and clicks go to every linear creative of the ad.
  ASSERT_EQ(ad->linearCreatives().size(), 1u);
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->trackingEvents()),
            (Strings{"http://a.test/t", "http://w.test/t1", "http://w.test/t2"}));
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->clickTracking()),
            (Strings{"http://w.test/c1", "http://w.test/c2"}));
  // Kinds the ad lacked get an empty creative carrying the wrapper's tracking of that kind.
  ASSERT_EQ(ad->companionCreatives().size(), 1u);
  EXPECT_EQ(urlTexts(ad->companionCreatives()[0]->trackingEvents()), Strings{"http://w.test/co"});
  EXPECT_FALSE(ad->companionCreatives()[0]->staticResource());
  ASSERT_EQ(ad->nonLinearCreatives().size(), 1u);
  EXPECT_EQ(urlTexts(ad->nonLinearCreatives()[0]->trackingEvents()), Strings{"http://w.test/nl"});
  EXPECT_FALSE(ad->nonLinearCreatives()[0]->staticResource());
  // The wrapper's extension replaces the ad's and collects the ad's metrics.
  EXPECT_EQ(ad->extensions(), wrapperExtension);
  EXPECT_EQ(ad->extensions()->metrics()->back()->url().absoluteString(), "http://a.test/metric");
  ASSERT_EQ(ad->adVerifications().size(), 1u);
  EXPECT_EQ(ad->adVerifications()[0]->vendor(), "w");

  // A wrapper without metrics leaves the ad's extension alone, and still gives empty creatives.
  auto third =
      readAd(false, kBasics + creatives(kNonLinear) +
                        "<Extensions><Extension><sort rank='2'/></Extension></Extensions>");
  third->merge(*readAd(true, kBasics));
  EXPECT_EQ(third->wrapperDepth(), 1);
  EXPECT_EQ(third->extensions()->sortRank(), "2");
  EXPECT_EQ(third->linearCreatives().size() + third->companionCreatives().size(), 2u);
}

TEST(RKVVASTAdTest, MergeLeavesOutWhatACreativeHoldsAndStopsAtTheCeiling) {
  auto progress = [](const char* offset) {
    return std::string("<Tracking event='progress' offset='") + offset +
           "'>http://x.test/a</Tracking>";
  };
  const std::string click = "<ClickTracking>http://x.test/click</ClickTracking>";
  // Short lists: an event equal in name, offset and URL, or a click URL, comes once, whether the
  // creative held it or an earlier wrapper creative brought it.
  auto ad = readAd(false, kBasics + creatives(linear(track("http://x.test/a"))));
  auto wrapper = readAd(
      true, kBasics + creatives(linear(track("http://x.test/a") +
                                           track("http://x.test/a", "complete") + progress("5"),
                                       click) +
                                linear(progress("5") + progress("10"), click)));
  ad->merge(*wrapper);
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->trackingEvents()), Strings(4, "http://x.test/a"));
  Strings names;
  for (const auto& event : ad->linearCreatives()[0]->trackingEvents())
    names.push_back(event->name() + event->offset().value_or(""));
  EXPECT_EQ(names, (Strings{"start", "complete", "progress5", "progress10"}));
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->clickTracking()), Strings{"http://x.test/click"});
  EXPECT_EQ(ad->mergedEntryCount(), 4u);
  // Merged into itself, the ad's creatives already hold everything.
  ad->merge(*ad);
  EXPECT_EQ(ad->linearCreatives()[0]->trackingEvents().size(), 4u);

  // Long lists go through a set of the keys, with the same outcome and order.
  auto numbered = [](int from, int to) {
    std::string xml;
    for (int i = from; i < to; ++i)
      xml += track("http://x.test/" + std::to_string(i));
    return xml;
  };
  auto longAd = readAd(false, kBasics + creatives(linear(numbered(0, 50))));
  longAd->merge(
      *readAd(true, kBasics + creatives(linear(numbered(25, 100)) + linear(numbered(90, 110)))));
  Strings expected;
  for (int i = 0; i < 110; ++i)
    expected.push_back("http://x.test/" + std::to_string(i));
  EXPECT_EQ(urlTexts(longAd->linearCreatives()[0]->trackingEvents()), expected);

  // Beyond the ceiling the rest is dropped (impressions first in, tracking last), later merges too.
  auto big = readAd(true, kBasics + creatives(linear(track("http://x.test/w"))));
  const size_t ceiling = RKVVASTAd::kMaximumMergedEntries;
  for (size_t i = 0; i < ceiling + 10; ++i)
    big->impressions().emplace_back(url("http://x.test/i" + std::to_string(i)));
  auto full = readAd(false, kBasics + "<Impression>http://x.test/own</Impression>" +
                                creatives(linear(track("http://x.test/own"))));
  full->merge(*big);
  full->merge(*wrapper);
  EXPECT_EQ(full->mergedEntryCount(), ceiling);
  EXPECT_EQ(full->impressions().size(), 1 + ceiling);
  EXPECT_EQ(full->impressions().back().url().absoluteString(),
            "http://x.test/i" + std::to_string(ceiling - 1));
  EXPECT_EQ(urlTexts(full->linearCreatives()[0]->trackingEvents()), Strings{"http://x.test/own"});
  EXPECT_EQ(full->wrapperDepth(), 1);
}

// An ad with a value in every place a reader fills.
const std::string kFullAd =
    "<Ad id='a1' sequence='2'><InLine><AdSystem>S</AdSystem><AdTitle>T</AdTitle>"
    "<Impression>http://i.test/1</Impression><Error>http://e.test/1</Error><ViewableImpression>"
    "<Viewable>http://v.test/1</Viewable></ViewableImpression><AdVerifications>"
    "<Verification vendor='V'><JavaScriptResource apiFramework='omid'>http://j.test/1.js"
    "</JavaScriptResource></Verification></AdVerifications><Creatives><Creative>"
    "<UniversalAdId idRegistry='R'>U1</UniversalAdId><Linear skipoffset='00:00:05'>"
    "<Duration>00:00:10</Duration><AdParameters>P</AdParameters><TrackingEvents>"
    "<Tracking event='start'>http://t.test/start</Tracking></TrackingEvents><VideoClicks>"
    "<ClickThrough>http://c.test/through</ClickThrough><ClickTracking>http://c.test/tracking"
    "</ClickTracking></VideoClicks><MediaFiles><MediaFile id='m1' delivery='progressive' "
    "type='video/mp4' codec='H.264' bitrate='500' width='640' height='360' "
    "scalable='true'>http://m.test/1.mp4</MediaFile></MediaFiles><Icons>"
    "<Icon program='AdChoices' width='20' height='20' xPosition='1' yPosition='2'>"
    "<StaticResource creativeType='image/png'>http://icon.test/1.png</StaticResource></Icon>"
    "</Icons></Linear></Creative><Creative><NonLinearAds><NonLinear id='n1' width='300' "
    "height='50'><StaticResource creativeType='image/png'>http://n.test/1.png</StaticResource>"
    "</NonLinear></NonLinearAds></Creative><Creative><CompanionAds>"
    "<Companion id='c1' width='300' height='250'><StaticResource "
    "creativeType='image/png'>http://comp.test/1.png</StaticResource></Companion></CompanionAds>"
    "</Creative></Creatives><Extensions><Extension><offset skipoffset='00:00:03'/></Extension>"
    "</Extensions></InLine></Ad>";

std::shared_ptr<RKVVASTAd> readInline(const std::string& xml) {
  return RKVVASTAdInline::withDictionary(*element(xml));
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

// One Extensions element with one Extension holding `content`.
std::shared_ptr<Extension> extensionWith(const std::string& content) {
  return Extension::withDictionary(
      *element("<Extensions><Extension>" + content + "</Extension></Extensions>"));
}

// `<parent><child>text</child></parent>`; the child may carry attributes ("name attr='v'").
std::string block(std::string_view parent, std::string_view child, std::string_view text) {
  return "<" + std::string(parent) + "><" + std::string(child) + ">" + std::string(text) + "</" +
         std::string(child.substr(0, child.find(' '))) + "></" + std::string(parent) + ">";
}

// The archive of a record holding `entry` besides the fields every record has.
std::string archiveWith(const std::string& entry) {
  return R"({"offsetIsForced":false,"instanceCount":0)" + (entry.empty() ? "" : "," + entry) + "}";
}

TEST(RKVVASTAdExtensionTest, EverySpellingIsReadUnderItsElementAndArchivedUnderItsKey) {
  // Element and archive key of each text field; the "rtb" ones are read from RtbMacros.
  // clang-format off
  const std::pair<const char*, std::string> texts[] = {
      {"pageID", "pageID"}, {"target", "target"}, {"referrer", "referer"}, {"ip", "clientIP"},
      {"contentID", "contentID"}, {"contentProviderID", "contentProviderID"},
      {"AdvertiserId", "rtbAdvertiserID"}, {"DspId", "rtbDspID"}, {"BuyerId", "rtbBuyerID"},
      {"DealId", "rtbDealID"}, {"AuctionId", "rtbAuctionID"}, {"PublisherId", "rtbPublisherID"},
      {"BidLogTimeTicks", "rtbBidLogTimeTicks"}, {"EnvironmentType", "rtbEnvironmentType"},
      {"ImpressionHash", "rtbImpressionHash"}};
  // clang-format on
  for (const auto& [element, key] : texts) {
    const char* parent = key.starts_with("rtb") ? "RtbMacros" : "VireoMacros";
    auto extension = extensionWith(block(parent, element, "abc 1"));
    EXPECT_EQ(extension->archive(), archiveWith("\"" + key + "\":\"abc 1\""));
    EXPECT_EQ(*Extension::unarchive(extension->archive()), *extension) << key;
    EXPECT_FALSE(*extension == Extension() || Extension() == *extension) << key;
  }
  // The number fields take digits only; element and archive key are alike.
  for (const char* element :
       {"sessionID", "statDomainID", "networkID", "templateID", "advertiserID", "campaignID",
        "insertionID", "siteID", "formatID", "adBreakType", "instances", "videoPlayerWidth",
        "videoPlayerHeight"}) {
    auto extension = extensionWith(block("VireoMacros", element, "123"));
    EXPECT_EQ(extension->archive(), archiveWith("\"" + std::string(element) + "\":123.0"));
    EXPECT_EQ(*Extension::unarchive(extension->archive()), *extension) << element;
    for (const char* text : {"abc", "12.5", "-3"})
      EXPECT_EQ(extensionWith(block("VireoMacros", element, text))->archive(), archiveWith(""));
  }
  // Archive keys are not element names, and macros belong in their block.
  EXPECT_EQ(extensionWith("<VireoMacros><referer>r</referer><clientIP>i</clientIP>"
                          "<baseURL>http://b</baseURL></VireoMacros><RtbMacros><DealID>d</DealID>"
                          "<rtbDealID>d</rtbDealID></RtbMacros><customScript>s</customScript>"
                          "<DspId>a</DspId>")
                ->archive(),
            archiveWith(""));
  // More digits than a double holds read as infinity, which survives the archive.
  auto huge = extensionWith(block("VireoMacros", "siteID", std::string(400, '9')));
  EXPECT_TRUE(std::isinf(huge->siteID().value_or(0)));
  EXPECT_EQ(*Extension::unarchive(huge->archive()), *huge);
}

TEST(RKVVASTAdExtensionTest, PlayerHintsAndLaterExtensionsOverwritingFieldByField) {
  auto hints = extensionWith(
      "<offset isForced='1' skipoffset='00:00:05'/><sort rank='3'/>"
      "<customisedScript><![CDATA[run(<x>)]]></customisedScript>"
      "<instanceCount>7 instances</instanceCount>"
      "<VireoMacros><baseUrl>https://ads.example/a b</baseUrl></VireoMacros>");
  EXPECT_EQ(hints->archive(), R"x({"offsetIsForced":true,"skipOffset":"00:00:05","sortRank":"3",)x"
                              R"x("customScript":"run(<x>)","instanceCount":7,)x"
                              R"x("baseURL":"https://ads.example/a%20b"})x");
  EXPECT_EQ(*Extension::unarchive(hints->archive()), *hints);
  // Only the text "1" forces the offset.
  for (const char* attribute : {"isForced='true'", "isForced=' 1'", "other='1'"})
    EXPECT_FALSE(extensionWith(std::string("<offset ") + attribute + "/>")->offsetIsForced());

  RKVXMLDictionaryPtr extensions = element(
      "<Extensions>"
      "<Extension><offset isForced='1' skipoffset='5'/><sort rank='1'/>"
      "<customisedScript>first</customisedScript><instanceCount>2</instanceCount>"
      "<VireoMacros><siteID>1</siteID><pageID>p1</pageID><networkID>9</networkID></VireoMacros>"
      "<RtbMacros><DealId>d1</DealId><DspId>s1</DspId></RtbMacros></Extension>"
      "<Extension type='other'/>"
      "<Extension><offset isForced='0'/><sort order='2'/><instanceCount>x</instanceCount>"
      "<VireoMacros><siteID>2</siteID><networkID>n/a</networkID></VireoMacros>"
      "<RtbMacros><DspId>s2</DspId></RtbMacros></Extension>"
      "</Extensions>");
  // The later offset has no skipoffset, nor the later sort a rank; "x" reads 0; a present
  // networkID that is not a number empties the field.
  auto extension = Extension::withDictionary(*extensions);
  EXPECT_EQ(extension->archive(),
            R"({"offsetIsForced":false,"skipOffset":"5","sortRank":"1","customScript":"first",)"
            R"("instanceCount":0,"pageID":"p1","siteID":2.0,"rtbDspID":"s2","rtbDealID":"d1"})");
  Extension listed;
  listed.processExtensions(*extensions->find("Extension")->array());
  EXPECT_EQ(listed, *extension);
}

TEST(RKVVASTAdExtensionTest, CopyArchiveAndEqualityCoverTheLists) {
  auto extension =
      extensionWith("<offset isForced='1'/><instanceCount>3</instanceCount>" +
                    block("VireoMetrics", "VireoMetric name='viewcount'", "http://m/1") +
                    block("VireoMacros", "baseUrl", "http://b") +
                    block("AdVerifications", "Verification",
                          "<JavaScriptResource>http://s.js</JavaScriptResource>"));
  // Each copy changed in one field differs, all read back equal; the first owns its metrics.
  std::vector<std::shared_ptr<Extension>> variants = {extension};
  for (int i = 0; i < 7; ++i)
    variants.push_back(extension->copy());
  variants[1]->metrics()->front()->setEventOffset(2.0);
  variants[2]->setInstanceCount(4);
  variants[3]->setBaseURL(RKVURL::withString("http://c"));
  variants[4]->adVerifications()->clear();
  variants[5]->setAdVerifications(std::nullopt);
  variants[6]->setOffsetIsForced(false);
  for (const auto& variant : variants) {
    EXPECT_EQ(variant == extension || variant == variants[7], *variant == *extension)
        << variant->archive();
    EXPECT_EQ(*Extension::unarchive(variant->archive()), *variant) << variant->archive();
  }
  // Keys of the wrong type read as missing.
  auto wrongTypes = Extension::unarchive(
      R"({"siteID":"5","pageID":5,"offsetIsForced":"yes","adVerifications":{"x":1},)"
      R"("metrics":[{"name":"viewcount"},3,{"name":"viewcount","url":"http://m"}]})");
  EXPECT_EQ(wrongTypes->archive(),
            archiveWith(R"("metrics":[{"name":"viewcount","url":"http://m","eventOffset":-1.0}])"));
}

TEST(RKVVASTAdVerificationTest, ResourcesAndTheVerificationNotExecutedEvents) {
  test::RKVLogCapture log;
  auto verification = V::withDictionary(*element(
      "<Verification vendor='iabtechlab.com-omid'><ExecutableResource apiFramework='native' "
      "type='bin' browserOptional='true'>http://e/1</ExecutableResource>"
      "<JavascriptResource apiFramework='omid' browserOptional='1'>http://j/lower"
      "</JavascriptResource><JavaScriptResource apiFramework='omid' "
      "browserOptional='true'>http://j/1</JavaScriptResource><JavaScriptResource "
      "browserOptional='false'>http://j/2</JavaScriptResource><JavaScriptResource "
      "apiFramework='no-text'/><JavaScriptResource>http://[not a host/</JavaScriptResource>"
      "<VerificationParameters><![CDATA[{\"k\":1}]]></VerificationParameters><TrackingEvents>"
      "<Tracking event='creativeView'>http://t/view</Tracking><Tracking "
      "event='verificationNotExecuted'>http://t/1?reason=[REASON]</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://bad host</Tracking>"
      "<Tracking>http://t/nameless</Tracking><Tracking "
      "event='VerificationNotExecuted'>http://t/case</Tracking></TrackingEvents></Verification>"));
  EXPECT_EQ(verification->verificationParameters(), "{\"k\":1}");
  // Both script spellings in that order, then the executables, which are never browser-optional.
  const Resource expected[] = {
      Resource(0, url("http://j/1"), "omid", true, std::nullopt),
      Resource(0, url("http://j/2"), std::nullopt, false, std::nullopt),
      Resource(0, url("http://j/lower"), "omid", true, std::nullopt),
      Resource(0, url("http://e/1"), "native", false, "bin"),
  };
  ASSERT_EQ(verification->resources().size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(*verification->resources()[i], expected[i]) << i;
  EXPECT_EQ(urlTexts(verification->trackingEvents()), Strings{"http://t/1?reason=%5BREASON%5D"});
  // The refused names were logged, word for word.
  const std::string rest =
      "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
  EXPECT_EQ(log.debugMessages(),
            (Strings{"Event 'creativeView" + rest, "Event 'VerificationNotExecuted" + rest}));
  // No usable resource, no verification.
  EXPECT_EQ(V::withDictionary(*element("<Verification><JavaScriptResource>a<b/>c"
                                       "</JavaScriptResource></Verification>")),
            nullptr);
}

TEST(RKVVASTAdVerificationTest, EqualityAndArchivesCoverEveryField) {
  auto event = Event::withName("verificationNotExecuted", url("http://t/[REASON]"));
  auto at = [](const char* text, int64_t type = 0, std::optional<std::string> api = "omid",
               bool optional = false, std::optional<std::string> executable = "bin") {
    return std::make_shared<Resource>(type, url(text), api, optional, executable);
  };
  const V base("v", {at("http://a", 0, "omid", true, std::nullopt), at("http://b")}, {event}, "p");
  EXPECT_EQ(*V::unarchive(base.archive()), base);
  EXPECT_EQ(base, V("v", base.resources(), {event->copy()}, "p"));
  // Each variant differs from the base in one field, both ways round, and reads back equal.
  const auto a = base.resources()[0];
  for (const V& other :
       {V(std::nullopt, base.resources(), {event}, "p"), V("v", {a}, {event}, "p"),
        V("v", {at("http://b"), a}, {event}, "p"), V("v", {a, at("http://b", 1)}, {event}, "p"),
        V("v", {a, at("http://b", 0, std::nullopt)}, {event}, "p"),
        V("v", {a, at("http://b", 0, "omid", true)}, {event}, "p"),
        V("v", {a, at("http://b", 0, "omid", false, "js")}, {event}, "p"),
        V("v", base.resources(), {Event::withName("verificationNotExecuted", url("http://u"))},
          "p"),
        V("v", base.resources(), {event}, std::nullopt)}) {
    EXPECT_FALSE(base == other || other == base) << other.archive();
    EXPECT_EQ(*V::unarchive(other.archive()), other) << other.archive();
  }
  // An event of another class with the same name and URL is not equal.
  RKVVASTTrackingEvent tracking("verificationNotExecuted", std::nullopt, event->url());
  EXPECT_FALSE(event->isEqual(tracking) || tracking.isEqual(*event));
}

}  // namespace
}  // namespace rkv
