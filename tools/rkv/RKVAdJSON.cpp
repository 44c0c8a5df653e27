#include "tools/rkv/RKVAdJSON.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeIcon.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"

namespace rkv::cli {

namespace {

using Json = nlohmann::ordered_json;

// Whole numbers print without a fraction; an overflowed reading (infinity) prints as null.
Json numberJSON(double value) {
  if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 1e15)
    return Json(static_cast<int64_t>(value));
  return Json(value);
}

template <typename T>
Json optionalJSON(const std::optional<T>& value) {
  if (!value) return nullptr;
  if constexpr (std::is_floating_point_v<T>) {
    return numberJSON(*value);
  } else {
    return Json(*value);
  }
}

Json plainURLJSON(const std::optional<RKVURL>& url) {
  return url ? Json(url->absoluteString()) : Json(nullptr);
}

Json trackingEventsJSON(const RKVVASTTrackingEventList& events) {
  Json list = Json::array();
  for (const auto& event : events) {
    list.push_back({{"name", event->name()},
                    {"offset", textJSON(event->offset())},
                    {"url", event->url().absoluteString()},
                    {"eventOffset", numberJSON(event->eventOffset())}});
  }
  return list;
}

Json universalAdIdsJSON(const RKVVASTCreative& creative) {
  Json list = Json::array();
  for (const RKVVASTUniversalAdId& id : creative.universalAdIds())
    list.push_back({{"registry", id.registry()}, {"value", id.value()}});
  return list;
}

// The fields every creative carries, in the order the tool prints them.
void addClicksAndTracking(Json& object, const RKVVASTCreative& creative) {
  object["clickThrough"] = urlJSON(creative.clickThrough());
  object["clickTracking"] = urlsJSON(creative.clickTracking());
  object["trackingEvents"] = trackingEventsJSON(creative.trackingEvents());
}

template <typename Creative>
void addResources(Json& object, const Creative& creative) {
  object["staticResource"] = urlJSON(creative.staticResource());
  object["iFrameResource"] = urlJSON(creative.iFrameResource());
  object["htmlResource"] = urlJSON(creative.htmlResource());
}

Json mediaFileJSON(const RKVVASTMediaFile& file) {
  return {{"id", textJSON(file.id())},
          {"delivery", textJSON(file.delivery())},
          {"type", textJSON(file.type())},
          {"codec", textJSON(file.codec())},
          {"apiFramework", textJSON(file.apiFramework())},
          {"bitrate", numberJSON(file.bitrate())},
          {"minBitrate", numberJSON(file.minBitrate())},
          {"maxBitrate", numberJSON(file.maxBitrate())},
          {"width", numberJSON(file.width())},
          {"height", numberJSON(file.height())},
          {"fileSize", numberJSON(file.fileSize())},
          {"scalable", file.scalable()},
          {"maintainAspectRatio", file.maintainAspectRatio()},
          {"url", plainURLJSON(file.url())}};
}

Json iconJSON(const RKVVASTCreativeIcon& icon) {
  Json object = {
      {"program", textJSON(icon.program())},       {"width", numberJSON(icon.width())},
      {"height", numberJSON(icon.height())},       {"xPosition", numberJSON(icon.xPosition())},
      {"yPosition", numberJSON(icon.yPosition())}, {"duration", textJSON(icon.duration())},
      {"offset", textJSON(icon.offset())},         {"apiFramework", textJSON(icon.apiFramework())}};
  addResources(object, icon);
  addClicksAndTracking(object, icon);
  return object;
}

Json linearJSON(const RKVVASTCreativeLinear& linear) {
  Json object = {{"duration", textJSON(linear.duration())},
                 {"skipOffset", textJSON(linear.skipOffset())},
                 {"adParameters", textJSON(linear.adParameters())}};
  Json files = Json::array();
  for (const auto& file : linear.mediaFiles())
    files.push_back(mediaFileJSON(*file));
  object["mediaFiles"] = std::move(files);
  const std::shared_ptr<RKVVASTMediaFile> chosen = linear.mostAppropriateMediaFile();
  object["mostAppropriateMediaFile"] = chosen ? plainURLJSON(chosen->url()) : Json(nullptr);
  object["trackingEvents"] = trackingEventsJSON(linear.trackingEvents());
  object["clickThrough"] = urlJSON(linear.clickThrough());
  object["clickTracking"] = urlsJSON(linear.clickTracking());
  Json icons = Json::array();
  for (const auto& icon : linear.icons())
    icons.push_back(iconJSON(*icon));
  object["icons"] = std::move(icons);
  object["universalAdIds"] = universalAdIdsJSON(linear);
  return object;
}

Json nonLinearJSON(const RKVVASTCreativeNonLinear& nonLinear) {
  Json object = {{"id", textJSON(nonLinear.id())},
                 {"width", numberJSON(nonLinear.width())},
                 {"height", numberJSON(nonLinear.height())},
                 {"expandedWidth", numberJSON(nonLinear.expandedWidth())},
                 {"expandedHeight", numberJSON(nonLinear.expandedHeight())},
                 {"scalable", nonLinear.scalable()},
                 {"maintainAspectRatio", nonLinear.maintainAspectRatio()},
                 {"minSuggestedDuration", textJSON(nonLinear.minSuggestedDuration())},
                 {"apiFramework", textJSON(nonLinear.apiFramework())},
                 {"adParameters", textJSON(nonLinear.adParameters())}};
  addResources(object, nonLinear);
  addClicksAndTracking(object, nonLinear);
  object["universalAdIds"] = universalAdIdsJSON(nonLinear);
  return object;
}

Json companionJSON(const RKVVASTCreativeCompanion& companion) {
  Json object = {{"id", textJSON(companion.id())},
                 {"adSlotID", textJSON(companion.adSlotID())},
                 {"width", numberJSON(companion.width())},
                 {"height", numberJSON(companion.height())},
                 {"assetWidth", numberJSON(companion.assetWidth())},
                 {"assetHeight", numberJSON(companion.assetHeight())},
                 {"adParameters", textJSON(companion.adParameters())}};
  addResources(object, companion);
  addClicksAndTracking(object, companion);
  object["universalAdIds"] = universalAdIdsJSON(companion);
  return object;
}

Json verificationJSON(const RKVVASTAdVerification& verification) {
  Json resources = Json::array();
  for (const auto& resource : verification.resources()) {
    resources.push_back({{"type", resource->type()},
                         {"url", resource->url().absoluteString()},
                         {"apiFramework", textJSON(resource->apiFramework())},
                         {"browserOptional", resource->browserOptional()},
                         {"executableType", textJSON(resource->executableType())}});
  }
  Json events = Json::array();
  for (const auto& event : verification.trackingEvents())
    events.push_back({{"name", event->name()}, {"url", event->url().absoluteString()}});
  return {{"vendor", textJSON(verification.vendor())},
          {"verificationParameters", textJSON(verification.verificationParameters())},
          {"resources", std::move(resources)},
          {"trackingEvents", std::move(events)}};
}

Json extensionJSON(const RKVVASTAdExtension& e) {
  Json metrics = nullptr;
  if (e.metrics()) metrics = trackingEventsJSON(*e.metrics());
  Json scripts = nullptr;
  if (e.adVerifications()) {
    scripts = Json::array();
    for (const auto& script : *e.adVerifications()) {
      scripts.push_back(
          {{"javascriptResourceURL", script->javascriptResourceURL().absoluteString()},
           {"vendor", textJSON(script->vendor())},
           {"verificationParameters", textJSON(script->verificationParameters())}});
    }
  }
  return {{"offsetIsForced", e.offsetIsForced()},
          {"skipOffset", textJSON(e.skipOffset())},
          {"sortRank", textJSON(e.sortRank())},
          {"customScript", textJSON(e.customScript())},
          {"instanceCount", e.instanceCount()},
          {"metrics", std::move(metrics)},
          {"sessionID", optionalJSON(e.sessionID())},
          {"statDomainID", optionalJSON(e.statDomainID())},
          {"networkID", optionalJSON(e.networkID())},
          {"templateID", optionalJSON(e.templateID())},
          {"advertiserID", optionalJSON(e.advertiserID())},
          {"campaignID", optionalJSON(e.campaignID())},
          {"insertionID", optionalJSON(e.insertionID())},
          {"pageID", textJSON(e.pageID())},
          {"siteID", optionalJSON(e.siteID())},
          {"formatID", optionalJSON(e.formatID())},
          {"adBreakType", optionalJSON(e.adBreakType())},
          {"target", textJSON(e.target())},
          {"baseURL", plainURLJSON(e.baseURL())},
          {"instances", optionalJSON(e.instances())},
          {"videoPlayerWidth", optionalJSON(e.videoPlayerWidth())},
          {"videoPlayerHeight", optionalJSON(e.videoPlayerHeight())},
          {"referer", textJSON(e.referer())},
          {"clientIP", textJSON(e.clientIP())},
          {"contentID", textJSON(e.contentID())},
          {"contentProviderID", textJSON(e.contentProviderID())},
          {"rtbAdvertiserID", textJSON(e.rtbAdvertiserID())},
          {"rtbDspID", textJSON(e.rtbDspID())},
          {"rtbBuyerID", textJSON(e.rtbBuyerID())},
          {"rtbDealID", textJSON(e.rtbDealID())},
          {"rtbAuctionID", textJSON(e.rtbAuctionID())},
          {"rtbPublisherID", textJSON(e.rtbPublisherID())},
          {"rtbBidLogTimeTicks", textJSON(e.rtbBidLogTimeTicks())},
          {"rtbEnvironmentType", textJSON(e.rtbEnvironmentType())},
          {"rtbImpressionHash", textJSON(e.rtbImpressionHash())},
          {"adVerifications", std::move(scripts)}};
}

}  // namespace

Json urlJSON(const std::optional<RKVVASTURL>& url) {
  return url ? Json(url->url().absoluteString()) : Json(nullptr);
}

Json urlsJSON(const std::vector<RKVVASTURL>& urls) {
  Json list = Json::array();
  for (const RKVVASTURL& url : urls)
    list.push_back(url.url().absoluteString());
  return list;
}

Json textJSON(const std::optional<std::string>& text) {
  return optionalJSON(text);
}

Json errorJSON(const std::optional<RKVError>& error) {
  if (!error) return nullptr;
  return {{"domain", error->domain},
          {"code", error->code},
          {"description", textJSON(error->localizedDescription)}};
}

Json adJSON(const RKVVASTAd& ad) {
  const auto* wrapper = dynamic_cast<const RKVVASTAdWrapper*>(&ad);
  Json kind = ad.isInline() ? Json("inline") : ad.isWrapper() ? Json("wrapper") : Json(nullptr);
  Json viewability = Json::array();
  for (const auto& event : ad.viewabilityEvents())
    viewability.push_back({{"name", event->name()}, {"url", event->url().absoluteString()}});
  Json linear = Json::array();
  for (const auto& creative : ad.linearCreatives())
    linear.push_back(linearJSON(*creative));
  Json nonLinear = Json::array();
  for (const auto& creative : ad.nonLinearCreatives())
    nonLinear.push_back(nonLinearJSON(*creative));
  Json companion = Json::array();
  for (const auto& creative : ad.companionCreatives())
    companion.push_back(companionJSON(*creative));
  Json verifications = Json::array();
  for (const auto& verification : ad.adVerifications())
    verifications.push_back(verificationJSON(*verification));

  return {{"kind", std::move(kind)},
          {"id", textJSON(ad.adID())},
          {"sequence", textJSON(ad.adSequence())},
          {"hasSequence", ad.hasSequence()},
          {"adSystem", textJSON(ad.adSystem())},
          {"adTitle", textJSON(ad.adTitle())},
          {"valid", ad.isValid()},
          {"wrapperDepth", ad.wrapperDepth()},
          {"impressions", urlsJSON(ad.impressions())},
          {"errorPixels", urlsJSON(ad.errorPixels())},
          {"adTagURI", wrapper ? urlJSON(wrapper->adTagURL()) : Json(nullptr)},
          {"viewabilityEvents", std::move(viewability)},
          {"linear", std::move(linear)},
          {"nonLinear", std::move(nonLinear)},
          {"companion", std::move(companion)},
          {"adVerifications", std::move(verifications)},
          {"extensions", ad.extensions() ? extensionJSON(*ad.extensions()) : Json(nullptr)}};
}

std::string dumpJSON(const nlohmann::ordered_json& value, int indent, int level) {
  std::string text = value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
  if (level <= 0 || indent < 0) return text;
  // JSON strings never hold a raw line break, so every one of them starts a line to indent.
  const std::string prefix(static_cast<size_t>(indent * level), ' ');
  std::string indented;
  indented.reserve(text.size() + text.size() / 8);
  for (char c : text) {
    indented.push_back(c);
    if (c == '\n') indented += prefix;
  }
  return indented;
}

}  // namespace rkv::cli
