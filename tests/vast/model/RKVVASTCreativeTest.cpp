// Media files and their selection, the linear, non-linear, companion and icon creatives, their
// events, URLs and universal ad ids.

#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
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
using Strings = std::vector<std::string>;
using Tracking = RKVVASTTrackingEvent;
using Floats = std::vector<float>;

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
  auto file = mediaFile("type='video/mp4' bitrate='1500.5' maxBitrate='abc' height=' 720px'");
  EXPECT_EQ((Floats{file->bitrate(), file->maxBitrate(), file->height()}),
            (Floats{1500.5f, 0, 720}));
  // A bitrate is declared only by an attribute that starts with a number; the others read 0.
  const std::pair<const char*, bool> declarations[] = {
      {nullptr, false}, {"", false},    {"abc", false}, {" \t", false},    {".", false},
      {"-", false},     {"inf", false}, {"nan", false}, {" 12kbps", true}, {"-1", true},
      {".5", true},     {"+.5", true},  {"0", true},
  };
  for (const auto& [bitrate, declared] : declarations) {
    auto withBitrate = mediaFile(std::string("type='video/mp4'") +
                                 (bitrate ? std::string(" bitrate='") + bitrate + "'" : ""));
    const char* shown = bitrate ? bitrate : "absent";
    EXPECT_EQ(withBitrate->declaresBitrate(), declared) << shown;
    if (!declared) {
      EXPECT_EQ(withBitrate->bitrate(), 0) << shown;
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
  // Equal bitrates keep list order, and are walked from the end on a low connection; enough of
  // them that a sort that is not stable would reorder them.
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
  auto linear = RKVVASTCreativeLinear::withDictionary(
      *element("<Linear><Duration>00:00:30.000</Duration><MediaFiles>"
               "<MediaFile type='video/webm' bitrate='900'>http://m/webm</MediaFile>"
               "<MediaFile type='video/mp4' bitrate='3000'>http://m/3000</MediaFile>"
               "<InteractiveCreativeFile type='application/javascript' apiFramework='VPAID'>"
               "http://m/vpaid</InteractiveCreativeFile>"
               "<InteractiveCreativeFile type='application/javascript' apiFramework='SIMID'>"
               "http://m/simid</InteractiveCreativeFile>"
               "<InteractiveCreativeFile type='video/mp4'>http://m/icf</InteractiveCreativeFile>"
               "<MediaFile type='application/javascript' apiFramework='VPAID'>http://m/vpaid2"
               "</MediaFile><MediaFile type='video/mp4' bitrate='6000'>http://m/6000</MediaFile>"
               "</MediaFiles>"
               "<Icons><Icon program='AdChoices'><StaticResource>http://i/i.png</StaticResource>"
               "</Icon><Icon program='bare'/><Icon program='frame'>"
               "<IFrameResource>http://i/f</IFrameResource></Icon></Icons></Linear>"));
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
  // Content, in a wrapper, with an error place, made, reported, kept outside a wrapper. The
  // inline ad's tests cover the plain cases.
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
    EXPECT_EQ(reports.lines(), reported.empty() ? Strings{} : Strings{reported});
    EXPECT_EQ(error ? error->code : 0, reported == media ? 401 : 0);
    EXPECT_EQ(linear && linear->isValidForWrapper(false), kept);
    EXPECT_EQ(linear && linear->isValidForWrapper(true), made);
  }
  // The empty creative a merge adds is kept only in a wrapper; universal ad ids are kept once
  // each.
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
    auto creative =
        Creative::withDictionary(*element("<" + tag + ">" + children + "</" + tag + ">"));
    ASSERT_TRUE(creative) << tag << children;
    EXPECT_EQ((Strings{text(creative->staticResource()), text(creative->iFrameResource()),
                       text(creative->htmlResource())}),
              expected)
        << tag << children;
    EXPECT_EQ(creative->isValidForWrapper(false), expected != Strings(3, "-")) << tag << children;
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
    EXPECT_TRUE(reports.lines().empty());
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

  // Only the first TrackingEvents is read; invalid entries are skipped, order is kept; a list
  // with nothing valid is absent.
  auto found = Tracking::findTrackingEvents(
      *element("<Linear><TrackingEvents><Tracking event='start'>http://t.test/1</Tracking>"
               "<Tracking event='Start'>http://t.test/x</Tracking>"
               "<Tracking event='pause'>http://t.test/2</Tracking></TrackingEvents>"
               "<TrackingEvents><Tracking event='mute'>http://t.test/3</Tracking>"
               "</TrackingEvents></Linear>"));
  Strings urls;
  for (const auto& event : found.value())
    urls.push_back(event->eventURL().absoluteString());
  EXPECT_EQ(urls, (Strings{"http://t.test/1", "http://t.test/2"}));
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
  // The text wins over the older idValue attribute; interrupted text is no text; "unknown"
  // (exactly) as the value means no id.
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

}  // namespace
}  // namespace rkv
