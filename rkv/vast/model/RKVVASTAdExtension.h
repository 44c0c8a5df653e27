// RKVVASTAdExtension: the vendor's own extensions of an ad (an Extensions element) read into one
// flat record: delivery and real-time-bidding identifiers, extra metric events, player hints and
// verification scripts. Built on one thread and then read; not synchronised. The ad that owns it
// may append to metrics() while merging a wrapper, on the thread that resolves the ad.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVVASTAdExtensionAdVerification.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdExtension {
 public:
  using Metrics = std::vector<std::shared_ptr<RKVVASTTrackingEvent>>;
  using AdVerifications = std::vector<std::shared_ptr<RKVVASTAdExtensionAdVerification>>;

  // An empty record: every optional field absent, offsetIsForced false, instanceCount 0.
  RKVVASTAdExtension() = default;
  // An Extensions element: processExtensions over its Extension children (a list, or a single
  // element).
  explicit RKVVASTAdExtension(const RKVXMLDictionary& extensionsElement);
  // The same, shared. Never null.
  static std::shared_ptr<RKVVASTAdExtension> withDictionary(
      const RKVXMLDictionary& extensionsElement);

  // Reads the Extension elements in order. Each child an Extension has sets its fields, so a
  // later Extension overwrites an earlier one field by field; a missing child leaves its fields
  // as they are. Metrics and verification scripts accumulate instead:
  //   offset            offsetIsForced = ("_isForced" is exactly "1"); skipOffset = "_skipoffset"
  //                     when that attribute is present
  //   sort              sortRank = "_rank" when present
  //   customisedScript  customScript = its text
  //   instanceCount     instanceCount = its text read as an integer (0 without text)
  //   VireoMetrics      processMetrics of its VireoMetric children, when it has any
  //   VireoMacros       processMacros
  //   RtbMacros         processRTBMacros
  //   AdVerifications   processVerifications of its Verification children, when it has any
  // A child element present without text sets a text or number field to absent.
  void processExtensions(const RKVXMLArray& extensionElements);
  // Appends the events that the metric elements make (RKVVASTTrackingEvent::
  // withExtensionDictionary; the others are dropped) to metrics, creating the list if absent.
  void processMetrics(const RKVXMLArray& metricElements);
  // Reads each macro child present, by its first occurrence: sessionID, statDomainID, networkID,
  // templateID, advertiserID, campaignID, insertionID, siteID, formatID, adBreakType, instances,
  // videoPlayerWidth and videoPlayerHeight as numbers (digits only, else absent); pageID,
  // target, referrer (into referer), ip (into clientIP), contentID and contentProviderID as
  // text; baseUrl (into baseURL) as a URL (absent when it does not parse).
  void processMacros(const RKVXMLDictionary& macros);
  // Reads each RTB child present as text: AdvertiserId, DspId, BuyerId, DealId, AuctionId,
  // PublisherId, BidLogTimeTicks, EnvironmentType, ImpressionHash into the rtb...ID fields.
  void processRTBMacros(const RKVXMLDictionary& rtbMacros);
  // For each Verification element, the first usable script URL (a JavaScriptResource child
  // whose text is non-empty and parses, else such a JavascriptResource child) with "_vendor"
  // and the text of the first VerificationParameters child becomes one script appended to
  // adVerifications (created if absent); a Verification without a usable URL is dropped.
  void processVerifications(const RKVXMLArray& verificationElements);

  bool offsetIsForced() const { return offsetIsForced_; }
  void setOffsetIsForced(bool value) { offsetIsForced_ = value; }
  const std::optional<std::string>& skipOffset() const { return skipOffset_; }
  void setSkipOffset(std::optional<std::string> value) { skipOffset_ = std::move(value); }
  const std::optional<std::string>& sortRank() const { return sortRank_; }
  void setSortRank(std::optional<std::string> value) { sortRank_ = std::move(value); }
  const std::optional<std::string>& customScript() const { return customScript_; }
  void setCustomScript(std::optional<std::string> value) { customScript_ = std::move(value); }
  int64_t instanceCount() const { return instanceCount_; }
  void setInstanceCount(int64_t value) { instanceCount_ = value; }

  // Absent until the first metric block is read. The ad merging a wrapper appends its own
  // metrics to the wrapper's list through the mutable accessor.
  const std::optional<Metrics>& metrics() const { return metrics_; }
  std::optional<Metrics>& metrics() { return metrics_; }
  void setMetrics(std::optional<Metrics> value) { metrics_ = std::move(value); }

  // Delivery identifiers: numbers (the node text read as digits only) or text.
  const std::optional<double>& sessionID() const { return sessionID_; }
  void setSessionID(std::optional<double> value) { sessionID_ = value; }
  const std::optional<double>& statDomainID() const { return statDomainID_; }
  void setStatDomainID(std::optional<double> value) { statDomainID_ = value; }
  const std::optional<double>& networkID() const { return networkID_; }
  void setNetworkID(std::optional<double> value) { networkID_ = value; }
  const std::optional<double>& templateID() const { return templateID_; }
  void setTemplateID(std::optional<double> value) { templateID_ = value; }
  const std::optional<double>& advertiserID() const { return advertiserID_; }
  void setAdvertiserID(std::optional<double> value) { advertiserID_ = value; }
  const std::optional<double>& campaignID() const { return campaignID_; }
  void setCampaignID(std::optional<double> value) { campaignID_ = value; }
  const std::optional<double>& insertionID() const { return insertionID_; }
  void setInsertionID(std::optional<double> value) { insertionID_ = value; }
  // Text, unlike the other identifiers.
  const std::optional<std::string>& pageID() const { return pageID_; }
  void setPageID(std::optional<std::string> value) { pageID_ = std::move(value); }
  const std::optional<double>& siteID() const { return siteID_; }
  void setSiteID(std::optional<double> value) { siteID_ = value; }
  const std::optional<double>& formatID() const { return formatID_; }
  void setFormatID(std::optional<double> value) { formatID_ = value; }
  const std::optional<double>& adBreakType() const { return adBreakType_; }
  void setAdBreakType(std::optional<double> value) { adBreakType_ = value; }
  const std::optional<std::string>& target() const { return target_; }
  void setTarget(std::optional<std::string> value) { target_ = std::move(value); }
  const std::optional<RKVURL>& baseURL() const { return baseURL_; }
  void setBaseURL(std::optional<RKVURL> value) { baseURL_ = std::move(value); }
  const std::optional<double>& instances() const { return instances_; }
  void setInstances(std::optional<double> value) { instances_ = value; }
  const std::optional<double>& videoPlayerWidth() const { return videoPlayerWidth_; }
  void setVideoPlayerWidth(std::optional<double> value) { videoPlayerWidth_ = value; }
  const std::optional<double>& videoPlayerHeight() const { return videoPlayerHeight_; }
  void setVideoPlayerHeight(std::optional<double> value) { videoPlayerHeight_ = value; }
  const std::optional<std::string>& referer() const { return referer_; }
  void setReferer(std::optional<std::string> value) { referer_ = std::move(value); }
  const std::optional<std::string>& clientIP() const { return clientIP_; }
  void setClientIP(std::optional<std::string> value) { clientIP_ = std::move(value); }
  const std::optional<std::string>& contentID() const { return contentID_; }
  void setContentID(std::optional<std::string> value) { contentID_ = std::move(value); }
  const std::optional<std::string>& contentProviderID() const { return contentProviderID_; }
  void setContentProviderID(std::optional<std::string> value) {
    contentProviderID_ = std::move(value);
  }

  // Real-time-bidding identifiers, all text.
  const std::optional<std::string>& rtbAdvertiserID() const { return rtbAdvertiserID_; }
  void setRtbAdvertiserID(std::optional<std::string> value) { rtbAdvertiserID_ = std::move(value); }
  const std::optional<std::string>& rtbDspID() const { return rtbDspID_; }
  void setRtbDspID(std::optional<std::string> value) { rtbDspID_ = std::move(value); }
  const std::optional<std::string>& rtbBuyerID() const { return rtbBuyerID_; }
  void setRtbBuyerID(std::optional<std::string> value) { rtbBuyerID_ = std::move(value); }
  const std::optional<std::string>& rtbDealID() const { return rtbDealID_; }
  void setRtbDealID(std::optional<std::string> value) { rtbDealID_ = std::move(value); }
  const std::optional<std::string>& rtbAuctionID() const { return rtbAuctionID_; }
  void setRtbAuctionID(std::optional<std::string> value) { rtbAuctionID_ = std::move(value); }
  const std::optional<std::string>& rtbPublisherID() const { return rtbPublisherID_; }
  void setRtbPublisherID(std::optional<std::string> value) { rtbPublisherID_ = std::move(value); }
  const std::optional<std::string>& rtbBidLogTimeTicks() const { return rtbBidLogTimeTicks_; }
  void setRtbBidLogTimeTicks(std::optional<std::string> value) {
    rtbBidLogTimeTicks_ = std::move(value);
  }
  const std::optional<std::string>& rtbEnvironmentType() const { return rtbEnvironmentType_; }
  void setRtbEnvironmentType(std::optional<std::string> value) {
    rtbEnvironmentType_ = std::move(value);
  }
  const std::optional<std::string>& rtbImpressionHash() const { return rtbImpressionHash_; }
  void setRtbImpressionHash(std::optional<std::string> value) {
    rtbImpressionHash_ = std::move(value);
  }

  // Absent until the first verification block is read.
  const std::optional<AdVerifications>& adVerifications() const { return adVerifications_; }
  std::optional<AdVerifications>& adVerifications() { return adVerifications_; }
  void setAdVerifications(std::optional<AdVerifications> value) {
    adVerifications_ = std::move(value);
  }

  // Every field equal: absent on both sides, or equal by value (lists element by element, in
  // order; an absent list differs from an empty one).
  bool isEqualToExtension(const RKVVASTAdExtension& other) const;
  friend bool operator==(const RKVVASTAdExtension& a, const RKVVASTAdExtension& b) {
    return a.isEqualToExtension(b);
  }

  // A new record with the same fields; the metric events are copied (their offsets may still
  // be set), the immutable scripts shared.
  std::shared_ptr<RKVVASTAdExtension> copy() const;

  // A JSON object under each field's archive key (the field's own name); absent fields are left
  // out, lists hold the archives of their entries as objects. A number too large for a double
  // is written as the text "Infinity".
  std::string archive() const;
  // Null only when the text is not a JSON object. A key that is missing or of the wrong type
  // leaves its field as in an empty record; list entries that read back as null are dropped.
  static std::shared_ptr<RKVVASTAdExtension> unarchive(std::string_view json);

 private:
  friend struct RKVVASTAdExtensionFields;  // the field tables that drive reading and archiving

  void processExtension(const RKVXMLDictionary& extension);
  void processVerification(const RKVXMLDictionary& verification);

  bool offsetIsForced_ = false;
  std::optional<std::string> skipOffset_;
  std::optional<std::string> sortRank_;
  std::optional<std::string> customScript_;
  int64_t instanceCount_ = 0;
  std::optional<Metrics> metrics_;
  std::optional<double> sessionID_;
  std::optional<double> statDomainID_;
  std::optional<double> networkID_;
  std::optional<double> templateID_;
  std::optional<double> advertiserID_;
  std::optional<double> campaignID_;
  std::optional<double> insertionID_;
  std::optional<std::string> pageID_;
  std::optional<double> siteID_;
  std::optional<double> formatID_;
  std::optional<double> adBreakType_;
  std::optional<std::string> target_;
  std::optional<RKVURL> baseURL_;
  std::optional<double> instances_;
  std::optional<double> videoPlayerWidth_;
  std::optional<double> videoPlayerHeight_;
  std::optional<std::string> referer_;
  std::optional<std::string> clientIP_;
  std::optional<std::string> contentID_;
  std::optional<std::string> contentProviderID_;
  std::optional<std::string> rtbAdvertiserID_;
  std::optional<std::string> rtbDspID_;
  std::optional<std::string> rtbBuyerID_;
  std::optional<std::string> rtbDealID_;
  std::optional<std::string> rtbAuctionID_;
  std::optional<std::string> rtbPublisherID_;
  std::optional<std::string> rtbBidLogTimeTicks_;
  std::optional<std::string> rtbEnvironmentType_;
  std::optional<std::string> rtbImpressionHash_;
  std::optional<AdVerifications> adVerifications_;
};

}  // namespace rkv
