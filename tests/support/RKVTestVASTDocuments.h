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
  std::optional<std::string> adTag;  // set: a wrapper following this URI; unset: an inline ad
  std::vector<std::string> impressions{}, errors{};
  std::vector<std::string> starts{};  // "start" tracking URLs of the linear creative
  std::optional<std::string> sequence{};
  bool hasTitle = true;
};

inline RKVTestAd wrapperAd(std::string id, std::optional<std::string> adTag) {
  return {std::move(id), std::move(adTag)};
}
inline RKVTestAd inlineAd(std::string id) {
  return wrapperAd(std::move(id), std::nullopt);
}

inline std::string vastAdXML(const RKVTestAd& ad) {
  auto elements = [](const std::string& open, const std::string& close,
                     const std::vector<std::string>& urls) {
    std::string xml;
    for (const auto& url : urls)
      xml += open + "<![CDATA[" + url + "]]>" + close;
    return xml;
  };
  const std::string kind = ad.adTag ? "Wrapper" : "InLine";
  std::string xml = "<Ad id=\"" + ad.id + "\"" +
                    (ad.sequence ? " sequence=\"" + *ad.sequence + "\"" : "") + "><" + kind +
                    "><AdSystem>rkv-test</AdSystem>";
  if (ad.hasTitle) xml += "<AdTitle>" + ad.id + "</AdTitle>";
  if (ad.adTag) xml += "<VASTAdTagURI><![CDATA[" + *ad.adTag + "]]></VASTAdTagURI>";
  xml += elements("<Impression>", "</Impression>", ad.impressions) +
         elements("<Error>", "</Error>", ad.errors);
  // A wrapper carries a linear creative only for its tracking.
  if (ad.adTag && ad.starts.empty()) return xml + "</Wrapper></Ad>";
  xml += "<Creatives><Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>" +
         elements("<Tracking event=\"start\">", "</Tracking>", ad.starts) + "</TrackingEvents>";
  if (!ad.adTag) {
    xml +=
        "<MediaFiles><MediaFile delivery=\"progressive\" type=\"video/mp4\" width=\"1280\" "
        "height=\"720\" bitrate=\"2000\"><![CDATA[https://cdn.example.com/" +
        ad.id + ".mp4]]></MediaFile></MediaFiles>";
  }
  return xml + "</Linear></Creative></Creatives></" + kind + "></Ad>";
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
