// Small VAST documents for tests and benchmarks that resolve wrappers: inline ads with one
// playable linear creative, wrappers pointing at an ad-tag URI, each with the impression, error
// and "start" tracking URLs asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace rkv::test {

struct RKVTestAd {
  std::string id;
  // Set: a wrapper following this URI. Unset: an inline ad.
  std::optional<std::string> adTag;
  std::vector<std::string> impressions;
  std::vector<std::string> errors;
  std::vector<std::string> starts;  // "start" tracking URLs of the linear creative
  std::optional<std::string> sequence;
  bool hasTitle = true;
  bool playable = true;  // inline: has a media file (without one the ad is invalid)
  bool hasAdTag = true;  // wrapper: writes its VASTAdTagURI
};

inline RKVTestAd inlineAd(std::string id) {
  RKVTestAd ad;
  ad.id = std::move(id);
  return ad;
}
inline RKVTestAd wrapperAd(std::string id, std::string adTag) {
  RKVTestAd ad = inlineAd(std::move(id));
  ad.adTag = std::move(adTag);
  return ad;
}

inline std::string vastAdXML(const RKVTestAd& ad) {
  auto urls = [](const char* element, const std::vector<std::string>& list) {
    std::string xml;
    for (const auto& url : list)
      xml += std::string("<") + element + "><![CDATA[" + url + "]]></" + element + ">";
    return xml;
  };
  std::string tracking;
  for (const auto& url : ad.starts)
    tracking += "<Tracking event=\"start\"><![CDATA[" + url + "]]></Tracking>";
  const char* kind = ad.adTag ? "Wrapper" : "InLine";
  std::string xml = "<Ad id=\"" + ad.id + "\"" +
                    (ad.sequence ? " sequence=\"" + *ad.sequence + "\"" : "") + "><" + kind +
                    "><AdSystem>rkv-test</AdSystem>";
  if (ad.hasTitle) xml += "<AdTitle>" + ad.id + "</AdTitle>";
  if (ad.adTag && ad.hasAdTag) xml += "<VASTAdTagURI><![CDATA[" + *ad.adTag + "]]></VASTAdTagURI>";
  xml += urls("Impression", ad.impressions) + urls("Error", ad.errors);
  if (ad.adTag) {
    if (!tracking.empty()) {
      xml += "<Creatives><Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>" +
             tracking + "</TrackingEvents></Linear></Creative></Creatives>";
    }
  } else {
    xml += "<Creatives><Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>" + tracking +
           "</TrackingEvents>";
    if (ad.playable) {
      xml +=
          "<MediaFiles><MediaFile delivery=\"progressive\" type=\"video/mp4\" width=\"1280\" "
          "height=\"720\" bitrate=\"2000\"><![CDATA[https://cdn.example.com/" +
          ad.id + ".mp4]]></MediaFile></MediaFiles>";
    }
    xml += "</Linear></Creative></Creatives>";
  }
  return xml + "</" + kind + "></Ad>";
}

// A VAST 3.0 document of the ads, in order; `rootErrors` are Error elements of the root.
inline std::string vastXML(const std::vector<RKVTestAd>& ads,
                           const std::vector<std::string>& rootErrors = {}) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><VAST version=\"3.0\">";
  for (const auto& url : rootErrors)
    xml += "<Error><![CDATA[" + url + "]]></Error>";
  for (const auto& ad : ads)
    xml += vastAdXML(ad);
  return xml + "</VAST>";
}

}  // namespace rkv::test
