#include "rkv/vast/model/RKVVASTAdExtension.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"
#include "rkv/vast/model/internal/RKVChildElements.h"
#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/vast/model/internal/RKVModelArchive.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

using Utils = RKVXMLDictionaryUtils;

template <typename T>
bool sameEntries(const std::optional<std::vector<std::shared_ptr<T>>>& a,
                 const std::optional<std::vector<std::shared_ptr<T>>>& b) {
  if (!a || !b) return !a && !b;
  return std::equal(a->begin(), a->end(), b->begin(), b->end(),
                    [](const std::shared_ptr<T>& x, const std::shared_ptr<T>& y) {
                      return x == y || (x && y && *x == *y);
                    });
}

// Numbers are read from digits only, so the one value JSON cannot carry is +infinity (a text
// of more digits than a double holds).
constexpr const char* kInfinity = "Infinity";

void archiveNumber(internal::RKVArchiveObject& object, const char* key,
                   const std::optional<double>& value) {
  if (!value) return;
  if (std::isfinite(*value)) {
    object[key] = *value;
  } else if (*value > 0) {
    object[key] = kInfinity;
  }
}

std::optional<double> unarchiveNumber(const internal::RKVArchiveObject& object, const char* key) {
  if (std::optional<double> number = internal::unarchiveNumber(object, key)) return number;
  if (internal::unarchiveString(object, key) == kInfinity)
    return std::numeric_limits<double>::infinity();
  return std::nullopt;
}

}  // namespace

// One field of the record: the element that fills it in its block and its archive key.
struct RKVVASTAdExtensionField {
  std::string_view elementName;
  const char* archiveKey;
  // Exactly one of the three is set.
  std::optional<double> RKVVASTAdExtension::*number = nullptr;
  std::optional<std::string> RKVVASTAdExtension::*text = nullptr;
  std::optional<RKVURL> RKVVASTAdExtension::*url = nullptr;
};

// The fields, in the order of the record, with their element names (which differ from the field
// names on purpose: "referrer", "ip", "baseUrl", the RTB "Id"s) and archive keys (the field
// names). They drive reading the macro blocks, equality and archiving.
struct RKVVASTAdExtensionFields {
  using Field = RKVVASTAdExtensionField;
  using E = RKVVASTAdExtension;

  static constexpr Field kMacros[] = {
      {"sessionID", "sessionID", &E::sessionID_},
      {"statDomainID", "statDomainID", &E::statDomainID_},
      {"networkID", "networkID", &E::networkID_},
      {"templateID", "templateID", &E::templateID_},
      {"advertiserID", "advertiserID", &E::advertiserID_},
      {"campaignID", "campaignID", &E::campaignID_},
      {"insertionID", "insertionID", &E::insertionID_},
      {"pageID", "pageID", nullptr, &E::pageID_},
      {"siteID", "siteID", &E::siteID_},
      {"formatID", "formatID", &E::formatID_},
      {"adBreakType", "adBreakType", &E::adBreakType_},
      {"target", "target", nullptr, &E::target_},
      {"baseUrl", "baseURL", nullptr, nullptr, &E::baseURL_},
      {"instances", "instances", &E::instances_},
      {"videoPlayerWidth", "videoPlayerWidth", &E::videoPlayerWidth_},
      {"videoPlayerHeight", "videoPlayerHeight", &E::videoPlayerHeight_},
      {"referrer", "referer", nullptr, &E::referer_},
      {"ip", "clientIP", nullptr, &E::clientIP_},
      {"contentID", "contentID", nullptr, &E::contentID_},
      {"contentProviderID", "contentProviderID", nullptr, &E::contentProviderID_},
  };
  static constexpr Field kRTBMacros[] = {
      {"AdvertiserId", "rtbAdvertiserID", nullptr, &E::rtbAdvertiserID_},
      {"DspId", "rtbDspID", nullptr, &E::rtbDspID_},
      {"BuyerId", "rtbBuyerID", nullptr, &E::rtbBuyerID_},
      {"DealId", "rtbDealID", nullptr, &E::rtbDealID_},
      {"AuctionId", "rtbAuctionID", nullptr, &E::rtbAuctionID_},
      {"PublisherId", "rtbPublisherID", nullptr, &E::rtbPublisherID_},
      {"BidLogTimeTicks", "rtbBidLogTimeTicks", nullptr, &E::rtbBidLogTimeTicks_},
      {"EnvironmentType", "rtbEnvironmentType", nullptr, &E::rtbEnvironmentType_},
      {"ImpressionHash", "rtbImpressionHash", nullptr, &E::rtbImpressionHash_},
  };
  // The text fields of the Extension element itself (read by processExtension; listed here for
  // equality and archiving).
  static constexpr Field kHints[] = {
      {"", "skipOffset", nullptr, &E::skipOffset_},
      {"", "sortRank", nullptr, &E::sortRank_},
      {"", "customScript", nullptr, &E::customScript_},
  };

  // Sets every field of the table whose element is a child of the block.
  template <size_t N>
  static void read(E& extension, const Field (&fields)[N], const RKVXMLDictionary& block) {
    for (const Field& field : fields) {
      const RKVXMLDictionary* child =
          Utils::findFirstObjectOfArrayAsDictionary(field.elementName, &block);
      if (child == nullptr) continue;
      const std::string* text = Utils::findNodeText(child);
      if (field.number) {
        extension.*field.number = Utils::stringToNSNumber(text);
      } else if (field.text) {
        extension.*field.text = internal::optionalText(text);
      } else {
        extension.*field.url = text ? RKVURL::withString(*text) : std::nullopt;
      }
    }
  }

  template <typename Visit>
  static void forEachTableField(Visit&& visit) {
    for (const Field& field : kHints)
      visit(field);
    for (const Field& field : kMacros)
      visit(field);
    for (const Field& field : kRTBMacros)
      visit(field);
  }

  static bool equal(const E& a, const E& b) {
    if (a.offsetIsForced_ != b.offsetIsForced_ || a.instanceCount_ != b.instanceCount_)
      return false;
    bool same = true;
    forEachTableField([&](const Field& field) {
      if (!same) return;
      if (field.number) {
        same = a.*field.number == b.*field.number;
      } else if (field.text) {
        same = a.*field.text == b.*field.text;
      } else {
        same = a.*field.url == b.*field.url;
      }
    });
    return same && sameEntries(a.metrics_, b.metrics_) &&
           sameEntries(a.adVerifications_, b.adVerifications_);
  }

  // Writes the field under its archive key when it is present.
  static void archiveField(internal::RKVArchiveObject& object, const E& extension,
                           const Field& field) {
    if (field.number) {
      archiveNumber(object, field.archiveKey, extension.*field.number);
    } else if (field.text) {
      internal::archiveString(object, field.archiveKey, extension.*field.text);
    } else if (const std::optional<RKVURL>& url = extension.*field.url) {
      object[field.archiveKey] = url->absoluteString();
    }
  }

  static internal::RKVArchiveObject archive(const E& extension) {
    internal::RKVArchiveObject object;
    object["offsetIsForced"] = extension.offsetIsForced_;
    for (const Field& field : kHints)
      archiveField(object, extension, field);
    object["instanceCount"] = extension.instanceCount_;
    if (extension.metrics_) {
      internal::RKVArchiveObject list = internal::RKVArchiveObject::array();
      for (const auto& metric : *extension.metrics_) {
        if (metric) list.push_back(internal::fromJSON(metric->archive()).value_or(nullptr));
      }
      object["metrics"] = std::move(list);
    }
    for (const Field& field : kMacros)
      archiveField(object, extension, field);
    for (const Field& field : kRTBMacros)
      archiveField(object, extension, field);
    if (extension.adVerifications_) {
      internal::RKVArchiveObject list = internal::RKVArchiveObject::array();
      for (const auto& script : *extension.adVerifications_) {
        if (script) list.push_back(internal::archiveObject(*script));
      }
      object["adVerifications"] = std::move(list);
    }
    return object;
  }

  static void unarchive(E& extension, const internal::RKVArchiveObject& object) {
    extension.offsetIsForced_ = internal::unarchiveBool(object, "offsetIsForced").value_or(false);
    extension.instanceCount_ = internal::unarchiveInteger(object, "instanceCount").value_or(0);
    forEachTableField([&](const Field& field) {
      if (field.number) {
        extension.*field.number = unarchiveNumber(object, field.archiveKey);
      } else if (field.text) {
        extension.*field.text = internal::unarchiveString(object, field.archiveKey);
      } else {
        extension.*field.url = internal::unarchiveURL(object, field.archiveKey);
      }
    });
    auto metrics = object.find("metrics");
    if (metrics != object.end() && metrics->is_array()) {
      extension.metrics_.emplace();
      for (const internal::RKVArchiveObject& entry : *metrics) {
        if (!entry.is_object()) continue;
        if (auto metric = RKVVASTTrackingEvent::unarchive(internal::toJSON(entry)))
          extension.metrics_->push_back(std::move(metric));
      }
    }
    auto scripts = object.find("adVerifications");
    if (scripts != object.end() && scripts->is_array()) {
      extension.adVerifications_.emplace();
      for (const internal::RKVArchiveObject& entry : *scripts) {
        if (!entry.is_object()) continue;
        if (auto script = internal::unarchiveExtensionScript(entry))
          extension.adVerifications_->push_back(std::move(script));
      }
    }
  }
};

RKVVASTAdExtension::RKVVASTAdExtension(const RKVXMLDictionary& extensionsElement) {
  internal::forEachChildElement(
      &extensionsElement, "Extension",
      [this](const RKVXMLDictionary& extension) { processExtension(extension); });
}

std::shared_ptr<RKVVASTAdExtension> RKVVASTAdExtension::withDictionary(
    const RKVXMLDictionary& extensionsElement) {
  return std::make_shared<RKVVASTAdExtension>(extensionsElement);
}

void RKVVASTAdExtension::processExtensions(const RKVXMLArray& extensionElements) {
  for (const RKVXMLValue& entry : extensionElements) {
    if (const RKVXMLDictionary* extension = entry.dictionary()) processExtension(*extension);
  }
}

void RKVVASTAdExtension::processExtension(const RKVXMLDictionary& extension) {
  if (const RKVXMLDictionary* offset =
          Utils::findFirstObjectOfArrayAsDictionary("offset", &extension)) {
    const std::string* forced = Utils::findAttribute("_isForced", offset);
    offsetIsForced_ = forced != nullptr && *forced == "1";
    if (const std::string* skip = Utils::findAttribute("_skipoffset", offset)) skipOffset_ = *skip;
  }
  if (const RKVXMLDictionary* sort =
          Utils::findFirstObjectOfArrayAsDictionary("sort", &extension)) {
    if (const std::string* rank = Utils::findAttribute("_rank", sort)) sortRank_ = *rank;
  }
  if (const RKVXMLDictionary* script =
          Utils::findFirstObjectOfArrayAsDictionary("customisedScript", &extension)) {
    customScript_ = internal::optionalText(Utils::findNodeText(script));
  }
  if (const RKVXMLDictionary* count =
          Utils::findFirstObjectOfArrayAsDictionary("instanceCount", &extension)) {
    instanceCount_ = RKVTextValues::integerValue(Utils::findNodeText(count));
  }
  const RKVXMLArray* metrics = Utils::findArrayForKey(
      "VireoMetric", Utils::findFirstObjectOfArrayAsDictionary("VireoMetrics", &extension));
  if (metrics != nullptr && !metrics->empty()) processMetrics(*metrics);
  if (const RKVXMLDictionary* macros =
          Utils::findFirstObjectOfArrayAsDictionary("VireoMacros", &extension)) {
    processMacros(*macros);
  }
  if (const RKVXMLDictionary* rtb =
          Utils::findFirstObjectOfArrayAsDictionary("RtbMacros", &extension)) {
    processRTBMacros(*rtb);
  }
  const RKVXMLArray* verifications = Utils::findArrayForKey(
      "Verification", Utils::findFirstObjectOfArrayAsDictionary("AdVerifications", &extension));
  if (verifications != nullptr && !verifications->empty()) processVerifications(*verifications);
}

void RKVVASTAdExtension::processMetrics(const RKVXMLArray& metricElements) {
  if (!metrics_) metrics_.emplace();
  for (const RKVXMLValue& entry : metricElements) {
    const RKVXMLDictionary* element = entry.dictionary();
    if (element == nullptr) continue;
    if (auto metric = RKVVASTTrackingEvent::withExtensionDictionary(*element))
      metrics_->push_back(std::move(metric));
  }
}

void RKVVASTAdExtension::processMacros(const RKVXMLDictionary& macros) {
  RKVVASTAdExtensionFields::read(*this, RKVVASTAdExtensionFields::kMacros, macros);
}

void RKVVASTAdExtension::processRTBMacros(const RKVXMLDictionary& rtbMacros) {
  RKVVASTAdExtensionFields::read(*this, RKVVASTAdExtensionFields::kRTBMacros, rtbMacros);
}

void RKVVASTAdExtension::processVerifications(const RKVXMLArray& verificationElements) {
  if (!adVerifications_) adVerifications_.emplace();
  for (const RKVXMLValue& entry : verificationElements) {
    if (const RKVXMLDictionary* verification = entry.dictionary())
      processVerification(*verification);
  }
}

void RKVVASTAdExtension::processVerification(const RKVXMLDictionary& verification) {
  // The first usable resource wins; the standard spelling is looked at first.
  std::optional<RKVURL> url;
  for (std::string_view key : {"JavaScriptResource", "JavascriptResource"}) {
    internal::forEachChildElement(&verification, key, [&url](const RKVXMLDictionary& resource) {
      if (url) return;
      const std::string* text = Utils::findNodeText(&resource);
      if (text != nullptr && !text->empty()) url = RKVURL::withString(*text);
    });
    if (url) break;
  }
  if (!url) return;
  adVerifications_->push_back(std::make_shared<RKVVASTAdExtensionAdVerification>(
      std::move(*url), internal::attributeText("_vendor", verification),
      internal::childText("VerificationParameters", verification)));
}

bool RKVVASTAdExtension::isEqualToExtension(const RKVVASTAdExtension& other) const {
  return this == &other || RKVVASTAdExtensionFields::equal(*this, other);
}

std::shared_ptr<RKVVASTAdExtension> RKVVASTAdExtension::copy() const {
  auto copy = std::make_shared<RKVVASTAdExtension>(*this);
  if (copy->metrics_) {
    for (auto& metric : *copy->metrics_) {
      if (metric) metric = metric->copy();
    }
  }
  return copy;
}

std::string RKVVASTAdExtension::archive() const {
  return internal::toJSON(RKVVASTAdExtensionFields::archive(*this));
}

std::shared_ptr<RKVVASTAdExtension> RKVVASTAdExtension::unarchive(std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  if (!object) return nullptr;
  auto extension = std::make_shared<RKVVASTAdExtension>();
  RKVVASTAdExtensionFields::unarchive(*extension, *object);
  return extension;
}

}  // namespace rkv
