#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"

#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using test::element;
using Strings = std::vector<std::string>;

// Records the names of the errors a creative reports, checking that each list is fresh.
struct Reports {
  Strings names;
  RKVVASTInnerErrorHandler handler() {
    return [this](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs) {
      EXPECT_TRUE(errorURLs.empty());
      names.push_back(error.errorName().value_or("(null)"));
    };
  }
};

Strings texts(const std::vector<RKVVASTURL>& list) {
  Strings result;
  for (const RKVVASTURL& url : list)
    result.push_back(url.url().absoluteString());
  return result;
}

TEST(RKVVASTMediaFileTest, SupportedTypes) {
  const char* kept[] = {"type='video/mp4'",
                        "type='VIDEO/MP4'",
                        "type='Video/3gpp'",
                        "type='video/m4v'",
                        "type='application/vnd.apple.mpegurl'",
                        "type='application/x-mpegURL'",
                        "type='video/MPEGURL' delivery='streaming'",
                        "type='APPLICATION/JAVASCRIPT' apiFramework='VPAID'",
                        "type='application/x-javascript' apiFramework='vpaid'"};
  const char* dropped[] = {"type='video/webm'",
                           "type='video/mp4 '",
                           "",
                           "type='application/javascript'",
                           "type='application/javascript' apiFramework='SIMID'",
                           "type='text/javascript' apiFramework='VPAID'"};
  for (const char* attributes : kept) {
    EXPECT_TRUE(RKVVASTMediaFile::withDictionary(
        *element(std::string("<MediaFile ") + attributes + ">http://m/f</MediaFile>")))
        << attributes;
  }
  for (const char* attributes : dropped) {
    EXPECT_FALSE(RKVVASTMediaFile::withDictionary(
        *element(std::string("<MediaFile ") + attributes + ">http://m/f</MediaFile>")))
        << attributes;
  }
  for (const char* xml : {"<MediaFile type='video/mp4'/>",  // no URL, or none that parses
                          "<MediaFile type='video/mp4'>http://bad host/f.mp4</MediaFile>"})
    EXPECT_FALSE(RKVVASTMediaFile::withDictionary(*element(xml))) << xml;
}

TEST(RKVVASTMediaFileTest, Attributes) {
  auto file = RKVVASTMediaFile::withDictionary(
      *element("<MediaFile id='m1' delivery='progressive' type='video/mp4' scalable='true'"
               " maintainAspectRatio='0' codec='H.264' bitrate='1500.5' minBitrate='800'"
               " maxBitrate='abc' width='1280' height=' 720px' fileSize='1e6'>"
               "<![CDATA[ http://m.test/f.mp4?a=1&b=2 ]]></MediaFile>"));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->id(), "m1");
  EXPECT_EQ(file->delivery(), "progressive");
  EXPECT_EQ(file->codec(), "H.264");
  EXPECT_EQ(file->apiFramework(), std::nullopt);
  EXPECT_TRUE(file->scalable());
  EXPECT_FALSE(file->maintainAspectRatio());
  EXPECT_EQ((std::vector<float>{file->bitrate(), file->minBitrate(), file->maxBitrate(),
                                file->width(), file->height(), file->fileSize()}),
            (std::vector<float>{1500.5f, 800, 0, 1280, 720, 1e6f}));
  EXPECT_EQ(file->url()->absoluteString(), "http://m.test/f.mp4?a=1&b=2");
}

TEST(RKVVASTCreativeLinearTest, ReadsALinearElement) {
  Reports reports;
  std::optional<RKVError> error;
  auto linear = RKVVASTCreativeLinear::withDictionary(
      *element("<Linear skipoffset='00:00:05'>"
               "<Duration>00:00:30.000</Duration><AdParameters>{\"k\":1}</AdParameters>"
               "<MediaFiles>"
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
               "<TrackingEvents><Tracking event='start'>http://t/start</Tracking></TrackingEvents>"
               "<VideoClicks><ClickThrough>http://c/landing</ClickThrough>"
               "<ClickTracking>http://c/1</ClickTracking><ClickTracking id='empty'/>"
               "<ClickTracking>http://c/2</ClickTracking></VideoClicks>"
               "<Icons><Icon program='AdChoices'><StaticResource>http://i/i.png</StaticResource>"
               "</Icon><Icon program='bare'/><Icon program='frame'>"
               "<IFrameResource>http://i/f</IFrameResource></Icon></Icons>"
               "</Linear>"),
      &error, reports.handler(), false);
  ASSERT_TRUE(linear);
  EXPECT_TRUE(reports.names.empty());
  EXPECT_FALSE(error);
  EXPECT_EQ(linear->skipOffset(), "00:00:05");
  EXPECT_EQ(linear->duration(), "00:00:30.000");
  EXPECT_EQ(linear->adParameters(), "{\"k\":1}");
  // MediaFile entries first, then the interactive files that are VPAID.
  Strings files;
  for (const auto& file : linear->mediaFiles())
    files.push_back(file->url()->absoluteString());
  EXPECT_EQ(files,
            (Strings{"http://m/3000", "http://m/vpaid2", "http://m/6000", "http://m/vpaid"}));
  ASSERT_EQ(linear->trackingEvents().size(), 1u);
  EXPECT_EQ(linear->clickThrough()->url().absoluteString(), "http://c/landing");
  EXPECT_EQ(texts(linear->clickTracking()), (Strings{"http://c/1", "http://c/2"}));
  ASSERT_EQ(linear->icons().size(), 2u);  // the icon without a resource is dropped
  EXPECT_EQ(linear->icons()[1]->program(), "frame");
  // Under the 5000 cap the 3000 file is the richest (the VPAID files declare no bitrate: 0).
  EXPECT_EQ(linear->mostAppropriateMediaFile()->url()->absoluteString(), "http://m/3000");
}

// What a Linear element reports, whether it is made and whether the ad keeps it.
TEST(RKVVASTCreativeLinearTest, Reporting) {
  const std::string duration = "<Duration>00:00:10</Duration>";
  const std::string files =
      "<MediaFiles><MediaFile type='video/mp4'>http://m/f</MediaFile></MediaFiles>";
  const std::string webm =
      "<MediaFiles><MediaFile type='video/webm'>http://m/w</MediaFile></MediaFiles>";
  const std::string media = "VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES";
  const std::string time = "VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION";
  struct Case {
    std::string content;
    bool wrapper, errorPlace, made;
    Strings reported;
    bool keptOutsideWrapper;
  };
  const Case cases[] = {
      {duration + files, false, true, true, {}, true},
      {files, false, true, true, {time}, true},
      {"<Duration/>" + files, false, false, true, {time}, true},
      {duration, false, true, false, {media}, false},
      {duration + "<MediaFiles/>", false, true, false, {media}, false},
      {duration, false, false, false, {}, false},  // reported only with an error place
      {duration + "<MediaFiles><MediaFile type='video/mp4'/></MediaFiles>",
       false,
       true,
       true,
       {media},
       false},
      {duration + webm, false, true, true, {media}, false},
      {duration + webm, false, false, true, {}, false},
      {duration, true, true, true, {}, false},  // a wrapper needs no media files
      {files, true, false, true, {time}, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.content + (c.wrapper ? " (wrapper)" : "") + (c.errorPlace ? " (place)" : ""));
    Reports reports;
    std::optional<RKVError> error;
    auto linear = RKVVASTCreativeLinear::withDictionary(
        *element("<Linear>" + c.content + "</Linear>"), c.errorPlace ? &error : nullptr,
        reports.handler(), c.wrapper);
    ASSERT_EQ(linear != nullptr, c.made);
    EXPECT_EQ(reports.names, c.reported);
    EXPECT_EQ(error ? error->code : 0, c.reported == Strings{media} ? 401 : 0);
    EXPECT_EQ(linear && linear->isValidForWrapper(false), c.keptOutsideWrapper);
    EXPECT_EQ(linear && linear->isValidForWrapper(true), c.made);
  }
}

TEST(RKVVASTCreativeLinearTest, EmptyCreativeAndAppending) {
  auto empty = RKVVASTCreativeLinear::initEmptyCreative();
  EXPECT_TRUE(empty->trackingEvents().empty() && empty->mediaFiles().empty());
  EXPECT_FALSE(empty->clickThrough() || empty->duration());
  EXPECT_FALSE(empty->isValidForWrapper(false));
  EXPECT_TRUE(empty->isValidForWrapper(true));
  EXPECT_EQ(empty->mostAppropriateMediaFile(), nullptr);
  EXPECT_FALSE(RKVVASTCreative::initEmptyCreative()->isValidForWrapper(true));

  auto events = RKVVASTTrackingEvent::findTrackingEvents(
      *element("<L><TrackingEvents><Tracking event='start'>http://t/1</Tracking>"
               "<Tracking event='start'>http://t/1</Tracking></TrackingEvents></L>"));
  ASSERT_TRUE(events);
  empty->addTrackingEvents(*events);
  empty->addTrackingEvents(*events);
  EXPECT_EQ(empty->trackingEvents().size(), 4u);  // appended as they are, duplicates included

  // Universal ad ids are kept once each, by value.
  auto a = *RKVVASTUniversalAdId::withRegistry("R", "A");
  auto b = *RKVVASTUniversalAdId::withRegistry("R", "B");
  empty->addUniversalAdIds({a, b, a});
  empty->addUniversalAdIds({*RKVVASTUniversalAdId::withRegistry("R", "B")});
  EXPECT_EQ(empty->universalAdIds(), (std::vector<RKVVASTUniversalAdId>{a, b}));
}

}  // namespace
}  // namespace rkv
