#include "rkv/vast/model/RKVVASTAd.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/log/RKVLog.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/vast/model/RKVVASTUniversalAdId.h"
#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

using Utils = RKVXMLDictionaryUtils;

// The sequence that stands for "0", "abc" and "": INT32_MAX written with "%d", so that such ads
// sort after every numbered ad of a pod and still count as sequenced.
constexpr const char* kUnnumberedSequence = "2147483647";

void report(const RKVVASTInnerErrorHandler& errorHandler, const RKVVASTError& error,
            std::vector<RKVVASTURL> errorURLs = {}) {
  if (errorHandler) errorHandler(error, errorURLs);
}

// What one merge may still add to the receiving ad: the ad's ceiling less what earlier merges
// added. The first entry refused writes the one warning line of the ad.
class MergeBudget {
 public:
  MergeBudget(size_t& used, bool& reported, const RKVVASTAd& receiver, const RKVVASTAd& wrapper)
      : used_(used), reported_(reported), receiver_(receiver), wrapper_(wrapper) {}

  size_t remaining() const { return RKVVASTAd::kMaximumMergedEntries - used_; }
  bool exhausted() const { return used_ >= RKVVASTAd::kMaximumMergedEntries; }
  // Counts one entry; false (and the warning, once per ad) when the ceiling is reached.
  bool take() {
    if (!exhausted()) {
      ++used_;
      return true;
    }
    if (!reported_) {
      reported_ = true;
      RKVLog::sharedInstance()->logWarningWithFormat(
          "Merging wrapper ad '{}' into ad '{}': the ad reached its ceiling of {} merged "
          "entries; the rest of what the wrapper brings is dropped.",
          wrapper_.adID().value_or("(null)"), receiver_.adID().value_or("(null)"),
          RKVVASTAd::kMaximumMergedEntries);
    }
    return false;
  }

 private:
  size_t& used_;
  bool& reported_;
  const RKVVASTAd& receiver_;
  const RKVVASTAd& wrapper_;
};

// Appends `source` to `target` while the budget lasts; the two may be the same list (an ad
// merged into itself).
template <typename T>
void append(std::vector<T>& target, const std::vector<T>& source, MergeBudget& budget) {
  const size_t count = source.size();
  for (size_t i = 0; i < count; ++i) {
    if (!budget.take()) return;
    // By index and through a copy: target.push_back may move `source` when they are one list.
    T entry = source[i];
    target.push_back(std::move(entry));
  }
}

// What makes two entries of a creative's list the same: name, offset and URL of a tracking event,
// the URL of a click-tracking URL. The views point into the event objects (held by pointer, so
// they never move) or into the elements of a list whose room was reserved beforehand.
struct TrackingKey {
  std::string_view name;
  std::string_view offset;
  bool hasOffset;
  std::string_view url;
  bool operator==(const TrackingKey&) const = default;
};

struct TrackingKeyHash {
  size_t operator()(const TrackingKey& key) const {
    const std::hash<std::string_view> hash;
    size_t h = hash(key.url);
    h = h * 31 + hash(key.name);
    return h * 31 + (key.hasOffset ? hash(key.offset) + 1 : 0);
  }
};

TrackingKey keyOf(const std::shared_ptr<RKVVASTTrackingEvent>& event) {
  const std::optional<std::string>& offset = event->offset();
  return {event->name(), offset ? std::string_view(*offset) : std::string_view(),
          offset.has_value(), event->url().absoluteString()};
}

std::string_view keyOf(const RKVVASTURL& url) {
  return url.url().absoluteString();
}

bool isNull(const std::shared_ptr<RKVVASTTrackingEvent>& event) {
  return event == nullptr;
}

bool isNull(const RKVVASTURL&) {
  return false;
}

// Appends to one receiving list the entries of the wrapper's lists that it does not hold yet
// (by key), while the budget lasts. Short lists are searched in place; longer ones through a
// hash set of the keys, so that a merge costs time in proportion to the entries it looks at.
template <typename Entry, typename Key, typename Hash>
class NewEntryAppender {
 public:
  // `incoming`: how many entries the sources hold together, at most.
  NewEntryAppender(std::vector<Entry>& target, size_t incoming, MergeBudget& budget)
      : target_(target), budget_(budget) {
    // Room for everything that can be appended, so that the keys' views into the list's elements
    // stay valid.
    target_.reserve(target_.size() + std::min(incoming, budget_.remaining()));
    hashed_ = target_.size() + incoming > kSearchInPlaceLimit;
    if (hashed_) {
      keys_.reserve(target_.size() + std::min(incoming, budget_.remaining()));
      for (const Entry& entry : target_) {
        if (!isNull(entry)) keys_.insert(keyOf(entry));
      }
    }
  }

  void append(const std::vector<Entry>& source) {
    // A list is never appended to itself: every entry of it is already there.
    if (&source == &target_) return;
    for (const Entry& entry : source) {
      if (budget_.exhausted()) {
        budget_.take();  // the warning, once
        return;
      }
      if (isNull(entry) || holds(entry)) continue;
      budget_.take();
      target_.push_back(entry);
      if (hashed_) keys_.insert(keyOf(target_.back()));
    }
  }

 private:
  static constexpr size_t kSearchInPlaceLimit = 32;

  bool holds(const Entry& entry) const {
    const Key key = keyOf(entry);
    if (hashed_) return keys_.contains(key);
    return std::ranges::any_of(
        target_, [&key](const Entry& held) { return !isNull(held) && keyOf(held) == key; });
  }

  std::vector<Entry>& target_;
  MergeBudget& budget_;
  bool hashed_ = false;
  std::unordered_set<Key, Hash> keys_;
};

// Gives the receiver an empty creative of the kind when it has none, then pours the tracking
// and click tracking of every wrapper creative into every receiver creative, leaving out what a
// receiver creative already holds.
template <typename Creative>
void mergeCreatives(std::vector<std::shared_ptr<Creative>>& receiver,
                    const std::vector<std::shared_ptr<Creative>>& wrapper, MergeBudget& budget) {
  if (receiver.empty()) receiver.push_back(Creative::initEmptyCreative());
  size_t incomingEvents = 0;
  size_t incomingClicks = 0;
  for (const std::shared_ptr<Creative>& source : wrapper) {
    if (source == nullptr) continue;
    incomingEvents += std::as_const(*source).trackingEvents().size();
    incomingClicks += std::as_const(*source).clickTracking().size();
  }
  if (incomingEvents + incomingClicks == 0) return;
  // The wrapper's list is walked by index: it may be the receiver's own list.
  for (size_t r = 0; r < receiver.size(); ++r) {
    const std::shared_ptr<Creative>& target = receiver[r];
    if (target == nullptr) continue;
    if (budget.exhausted()) {
      budget.take();  // the warning, once
      return;
    }
    NewEntryAppender<std::shared_ptr<RKVVASTTrackingEvent>, TrackingKey, TrackingKeyHash> events(
        target->trackingEvents(), incomingEvents, budget);
    NewEntryAppender<RKVVASTURL, std::string_view, std::hash<std::string_view>> clicks(
        target->clickTracking(), incomingClicks, budget);
    for (size_t i = 0; i < wrapper.size(); ++i) {
      if (wrapper[i] == nullptr) continue;
      events.append(std::as_const(*wrapper[i]).trackingEvents());
      clicks.append(std::as_const(*wrapper[i]).clickTracking());
    }
  }
}

// The URLs of the entries of a list (Impression, Error), entries that make none dropped.
void appendURLs(const RKVXMLArray* entries, std::vector<RKVVASTURL>& target) {
  if (entries == nullptr) return;
  for (const RKVXMLValue& entry : *entries) {
    if (std::optional<RKVVASTURL> url = RKVVASTURL::fromXML(entry))
      target.push_back(std::move(*url));
  }
}

// The verifications that the Verification entries make, appended.
void appendVerifications(const RKVXMLArray& entries, RKVVASTAd::AdVerifications& target) {
  for (const RKVXMLValue& entry : entries) {
    const RKVXMLDictionary* element = entry.dictionary();
    if (element == nullptr) continue;
    if (auto verification = RKVVASTAdVerification::withDictionary(*element))
      target.push_back(std::move(verification));
  }
}

}  // namespace

std::shared_ptr<RKVVASTAd> RKVVASTAd::withDictionary(
    const RKVXMLDictionary& adElement, std::optional<RKVError>* /*error*/,
    const RKVVASTInnerErrorHandler& /*errorHandler*/) {
  auto ad = std::make_shared<RKVVASTAd>();
  ad->readAdAttributes(adElement);
  return ad;
}

std::shared_ptr<RKVVASTAd> RKVVASTAd::withDictionary(const RKVXMLDictionary& adElement) {
  return withDictionary(adElement, nullptr, {});
}

void RKVVASTAd::readAdAttributes(const RKVXMLDictionary& adElement) {
  adID_ = internal::attributeText("_id", adElement);
  const std::string* sequence = Utils::findAttribute("_sequence", &adElement);
  if (sequence == nullptr) return;
  // A sequence that reads as 0 ("0", "abc", "") is deliberately turned into the largest number.
  adSequence_ =
      RKVTextValues::integerValue(*sequence) == 0 ? std::string(kUnnumberedSequence) : *sequence;
}

void RKVVASTAd::setExtensions(std::shared_ptr<RKVVASTAdExtension> extensions) {
  extensions_ = std::move(extensions);
}

void RKVVASTAd::findAdSystem(const RKVXMLDictionary& content,
                             const RKVVASTInnerErrorHandler& errorHandler) {
  if (const std::string* text = Utils::findFirstObjectOfArrayAsString("AdSystem", &content))
    adSystem_ = *text;
  if (!adSystem_ || adSystem_->empty())
    report(errorHandler, RKVVASTError::VAST_VALIDATION_ERROR_MISSING_ADSYSTEM());
}

void RKVVASTAd::findAdTitle(const RKVXMLDictionary& content,
                            const RKVVASTInnerErrorHandler& errorHandler) {
  if (const std::string* text = Utils::findFirstObjectOfArrayAsString("AdTitle", &content))
    adTitle_ = *text;
  if (!adTitle_ || adTitle_->empty())
    report(errorHandler, RKVVASTError::VAST_VALIDATION_ERROR_MISSING_ADTITLE());
}

void RKVVASTAd::findImpressionPixels(const RKVXMLDictionary& content) {
  appendURLs(Utils::findArrayForKey("Impression", &content), impressions_);
}

void RKVVASTAd::findErrorPixels(const RKVXMLDictionary& content) {
  appendURLs(Utils::findArrayForKey("Error", &content), errorPixels_);
}

void RKVVASTAd::findViewabilityEvents(const RKVXMLDictionary& content) {
  const RKVXMLDictionary* viewable =
      Utils::findFirstObjectOfArrayAsDictionary("ViewableImpression", &content);
  if (viewable == nullptr) return;
  using Make = std::shared_ptr<RKVVASTViewabilityEvent> (*)(RKVURL);
  static constexpr std::pair<std::string_view, Make> kKinds[] = {
      {"Viewable", &RKVVASTViewabilityEvent::viewableEventWithURL},
      {"NotViewable", &RKVVASTViewabilityEvent::notViewableEventWithURL},
      {"ViewUndetermined", &RKVVASTViewabilityEvent::viewUndeterminedEventWithURL},
  };
  for (const auto& [key, make] : kKinds) {
    const RKVXMLArray* entries = Utils::findArrayForKey(key, viewable);
    if (entries == nullptr) continue;
    for (const RKVXMLValue& entry : *entries) {
      const std::string* text = Utils::findNodeText(entry.dictionary());
      if (text == nullptr || text->empty()) continue;
      if (std::optional<RKVURL> url = RKVURL::withString(*text))
        viewabilityEvents_.push_back(make(std::move(*url)));
    }
  }
}

bool RKVVASTAd::findCreatives(const RKVXMLDictionary& content, bool forWrapper,
                              std::optional<RKVError>* error,
                              const RKVVASTInnerErrorHandler& errorHandler) {
  const RKVXMLDictionary* creatives =
      Utils::findFirstObjectOfArrayAsDictionary("Creatives", &content);
  if (creatives == nullptr) {
    if (forWrapper) return true;  // a wrapper need not carry creatives
    const RKVVASTError missing = RKVVASTError::VAST_VALIDATION_ERROR_MISSING_CREATIVES();
    if (error != nullptr) *error = missing.error();
    report(errorHandler, missing, errorPixels_);
    markParsingError();
    return true;
  }

  const bool wrapper = isWrapper();
  // Linear creatives report through this: only the last error is kept, and it is passed on
  // below only when it decides the ad's fate.
  std::optional<RKVVASTError> lastLinearError;
  const RKVVASTInnerErrorHandler recordLinearError =
      [&lastLinearError](const RKVVASTError& linearError, std::vector<RKVVASTURL>&) {
        lastLinearError = linearError;
      };

  if (const RKVXMLArray* entries = Utils::findArrayForKey("Creative", creatives)) {
    for (const RKVXMLValue& entry : *entries) {
      const RKVXMLDictionary* creative = entry.dictionary();
      if (creative == nullptr) continue;

      std::vector<RKVVASTUniversalAdId> universalAdIds;
      if (const RKVXMLArray* ids = Utils::findArrayForKey("UniversalAdId", creative)) {
        for (const RKVXMLValue& idEntry : *ids) {
          if (const RKVXMLDictionary* idElement = idEntry.dictionary()) {
            if (std::optional<RKVVASTUniversalAdId> id =
                    RKVVASTUniversalAdId::withDictionary(*idElement))
              universalAdIds.push_back(std::move(*id));
          }
        }
      }

      if (const RKVXMLDictionary* element =
              Utils::findFirstObjectOfArrayAsDictionary("Linear", creative)) {
        auto linear =
            RKVVASTCreativeLinear::withDictionary(*element, error, recordLinearError, wrapper);
        if (linear) {
          linear->addUniversalAdIds(universalAdIds);
          if (linear->isValidForWrapper(wrapper)) linearCreatives_.push_back(std::move(linear));
        }
      }

      // Only the first Companion of a CompanionAds and the first NonLinear of a NonLinearAds are
      // read; the others are ignored by design.
      if (const RKVXMLDictionary* element = Utils::findFirstObjectOfArrayAsDictionary(
              "Companion", Utils::findFirstObjectOfArrayAsDictionary("CompanionAds", creative))) {
        auto companion =
            RKVVASTCreativeCompanion::withDictionary(*element, error, errorHandler, wrapper);
        if (companion && companion->isValidForWrapper(wrapper))
          companionCreatives_.push_back(std::move(companion));
      }

      if (const RKVXMLDictionary* nonLinearAds =
              Utils::findFirstObjectOfArrayAsDictionary("NonLinearAds", creative)) {
        if (const RKVXMLDictionary* element =
                Utils::findFirstObjectOfArrayAsDictionary("NonLinear", nonLinearAds)) {
          auto nonLinear =
              RKVVASTCreativeNonLinear::withDictionary(*element, error, errorHandler, wrapper);
          if (nonLinear && nonLinear->isValidForWrapper(wrapper))
            nonLinearCreatives_.push_back(std::move(nonLinear));
        }
        // The NonLinearAds' tracking goes to every non-linear creative read so far, those of
        // earlier Creative entries included.
        if (std::optional<RKVVASTTrackingEventList> events =
                RKVVASTTrackingEvent::findTrackingEvents(*nonLinearAds)) {
          for (const auto& nonLinear : nonLinearCreatives_)
            nonLinear->addTrackingEvents(*events);
        }
      }
    }
  }

  if (!forWrapper && linearCreatives_.empty() && nonLinearCreatives_.empty()) {
    // Companions alone do not make an ad.
    if (error != nullptr) {
      const RKVVASTError failure =
          lastLinearError.value_or(RKVVASTError::VAST_VALIDATION_ERROR_MISSING_CREATIVES());
      *error = failure.error();
      report(errorHandler, failure, errorPixels_);
    }
    markParsingError();
  } else if (nonLinearCreatives_.empty() && lastLinearError && lastLinearError->VASTCode() == -1) {
    // A vendor-only error (a missing duration) is worth reporting; the ad stays valid.
    report(errorHandler, *lastLinearError);
  }
  return true;
}

void RKVVASTAd::findExtensions(const RKVXMLDictionary& content) {
  const RKVXMLDictionary* element =
      Utils::findFirstObjectOfArrayAsDictionary("Extensions", &content);
  if (element == nullptr) return;
  extensions_ = RKVVASTAdExtension::withDictionary(*element);
  const std::optional<RKVVASTAdExtension::Metrics>& metrics = std::as_const(*extensions_).metrics();
  if (!metrics) return;
  for (const auto& metric : *metrics) {
    if (metric->eventName() == "viewcount")
      viewabilityEvents_.push_back(
          RKVVASTViewabilityEvent::viewableEventWithURL(metric->eventURL()));
  }
}

void RKVVASTAd::findAdVerifications(const RKVXMLDictionary& content) {
  const RKVXMLArray* verifications = Utils::findArrayForKey(
      "Verification", Utils::findFirstObjectOfArrayAsDictionary("AdVerifications", &content));
  if (verifications != nullptr && !verifications->empty()) {
    appendVerifications(*verifications, adVerifications_);
    return;
  }
  // The older place: an Extension of type "AdVerifications".
  const RKVXMLArray* extensions = Utils::findArrayForKey(
      "Extension", Utils::findFirstObjectOfArrayAsDictionary("Extensions", &content));
  if (extensions == nullptr) return;
  for (const RKVXMLValue& entry : *extensions) {
    const RKVXMLDictionary* extension = entry.dictionary();
    const std::string* type = Utils::findAttribute("_type", extension);
    if (type == nullptr || *type != "AdVerifications") continue;
    if (!extension->contains("AdVerifications")) continue;
    if (const RKVXMLArray* entries = Utils::findArrayForKey(
            "Verification",
            Utils::findFirstObjectOfArrayAsDictionary("AdVerifications", extension)))
      appendVerifications(*entries, adVerifications_);
  }
}

bool RKVVASTAd::isValid() const {
  return !hasTriggeredAParsingError_;
}

bool RKVVASTAd::hasSequence() const {
  return adSequence_ && !adSequence_->empty();
}

std::optional<RKVURL> RKVVASTAd::nextActionURL() const {
  return std::nullopt;
}

void RKVVASTAd::merge(const RKVVASTAd& wrapper) {
  MergeBudget budget(mergedEntryCount_, mergeCeilingReported_, *this, wrapper);
  wrapperDepth_ = wrapper.wrapperDepth_ + 1;
  append(errorPixels_, wrapper.errorPixels_, budget);
  append(impressions_, wrapper.impressions_, budget);
  append(viewabilityEvents_, wrapper.viewabilityEvents_, budget);

  mergeCreatives(linearCreatives_, wrapper.linearCreatives_, budget);
  mergeCreatives(companionCreatives_, wrapper.companionCreatives_, budget);
  mergeCreatives(nonLinearCreatives_, wrapper.nonLinearCreatives_, budget);

  // The wrapper's extension wins: it takes this ad's metrics and replaces this ad's extension
  // (whose other data is dropped). The metrics only move from level to level, so they are not
  // counted against the ceiling.
  if (wrapper.extensions_ && wrapper.extensions_->metrics()) {
    // An extension already shared with the wrapper holds its metrics already.
    if (extensions_ && extensions_ != wrapper.extensions_) {
      if (const auto& own = std::as_const(*extensions_).metrics()) {
        auto& metrics = *wrapper.extensions_->metrics();
        metrics.insert(metrics.end(), own->begin(), own->end());
      }
    }
    extensions_ = wrapper.extensions_;
  }

  append(adVerifications_, wrapper.adVerifications_, budget);
}

}  // namespace rkv
