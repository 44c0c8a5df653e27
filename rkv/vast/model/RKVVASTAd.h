// RKVVASTAd: one Ad element of a VAST document (the base of RKVVASTAdInline and
// RKVVASTAdWrapper). Reads what both kinds have in common, validates it, reports what is missing
// through the error handler, and offers what the VAST manager uses while resolving wrappers:
// consumption, validity, the next URL to follow, and merge.
//
// An ad is read on one thread. Afterwards only the consumed flag (atomic), the wrapper depth and
// the lists merge appends to change; the VAST manager serialises those changes itself.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/model/RKVVASTAdExtension.h"
#include "rkv/vast/model/RKVVASTAdVerification.h"
#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/RKVVASTViewabilityEvent.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTAd {
 public:
  RKVVASTAd() = default;
  virtual ~RKVVASTAd() = default;
  RKVVASTAd(const RKVVASTAd&) = delete;
  RKVVASTAd& operator=(const RKVVASTAd&) = delete;

  // The base reading of an Ad element: the id and sequence attributes only (a sequence that
  // reads as integer 0, an empty one included, becomes "2147483647"); every list empty. Never
  // null. The subclasses read the rest.
  static std::shared_ptr<RKVVASTAd> withDictionary(const RKVXMLDictionary& adElement,
                                                   std::optional<RKVError>* error,
                                                   const RKVVASTInnerErrorHandler& errorHandler);
  static std::shared_ptr<RKVVASTAd> withDictionary(const RKVXMLDictionary& adElement);

  const std::optional<std::string>& adID() const { return adID_; }
  const std::optional<std::string>& adSequence() const { return adSequence_; }
  const std::optional<std::string>& adSystem() const { return adSystem_; }
  const std::optional<std::string>& adTitle() const { return adTitle_; }
  // The lists; the non-const overloads are for appending (merge, the readers).
  const std::vector<RKVVASTURL>& impressions() const { return impressions_; }
  std::vector<RKVVASTURL>& impressions() { return impressions_; }
  const std::vector<RKVVASTURL>& errorPixels() const { return errorPixels_; }
  std::vector<RKVVASTURL>& errorPixels() { return errorPixels_; }
  using ViewabilityEvents = std::vector<std::shared_ptr<RKVVASTViewabilityEvent>>;
  const ViewabilityEvents& viewabilityEvents() const { return viewabilityEvents_; }
  ViewabilityEvents& viewabilityEvents() { return viewabilityEvents_; }
  using LinearCreatives = std::vector<std::shared_ptr<RKVVASTCreativeLinear>>;
  const LinearCreatives& linearCreatives() const { return linearCreatives_; }
  LinearCreatives& linearCreatives() { return linearCreatives_; }
  using NonLinearCreatives = std::vector<std::shared_ptr<RKVVASTCreativeNonLinear>>;
  const NonLinearCreatives& nonLinearCreatives() const { return nonLinearCreatives_; }
  NonLinearCreatives& nonLinearCreatives() { return nonLinearCreatives_; }
  using CompanionCreatives = std::vector<std::shared_ptr<RKVVASTCreativeCompanion>>;
  const CompanionCreatives& companionCreatives() const { return companionCreatives_; }
  CompanionCreatives& companionCreatives() { return companionCreatives_; }
  using AdVerifications = std::vector<std::shared_ptr<RKVVASTAdVerification>>;
  const AdVerifications& adVerifications() const { return adVerifications_; }
  AdVerifications& adVerifications() { return adVerifications_; }
  // The ad's Extensions element, read; null when it has none.
  const std::shared_ptr<RKVVASTAdExtension>& extensions() const { return extensions_; }
  void setExtensions(std::shared_ptr<RKVVASTAdExtension> extensions);

  // Set when a required piece is missing; never reset. Makes the ad invalid.
  bool hasTriggeredAParsingError() const { return hasTriggeredAParsingError_; }
  // Number of wrapper levels merged into this ad.
  int64_t wrapperDepth() const { return wrapperDepth_; }
  void setWrapperDepth(int64_t depth) { wrapperDepth_ = depth; }

  // The readers, each on the InLine or Wrapper element (the content element), in the order the
  // subclasses call them.
  void findAdSystem(const RKVXMLDictionary& content, const RKVVASTInnerErrorHandler& errorHandler);
  void findAdTitle(const RKVXMLDictionary& content, const RKVVASTInnerErrorHandler& errorHandler);
  void findImpressionPixels(const RKVXMLDictionary& content);
  void findErrorPixels(const RKVXMLDictionary& content);
  void findViewabilityEvents(const RKVXMLDictionary& content);
  // Always answers true (a wrapper without Creatives is fine; an inline ad without usable
  // linear or non-linear creative is marked invalid).
  bool findCreatives(const RKVXMLDictionary& content, bool forWrapper,
                     std::optional<RKVError>* error, const RKVVASTInnerErrorHandler& errorHandler);
  void findExtensions(const RKVXMLDictionary& content);
  void findAdVerifications(const RKVXMLDictionary& content);

  // Not hasTriggeredAParsingError (the subclasses add their own rules).
  virtual bool isValid() const;
  // adSequence is present and not empty.
  bool hasSequence() const;
  // Marks the ad as handed out (thread-safe).
  void consume() { consumed_.store(true, std::memory_order_release); }
  bool hasBeenConsumed() const { return consumed_.load(std::memory_order_acquire); }
  // The URL to follow next: null here and for inline ads; a wrapper's ad-tag URL.
  virtual std::optional<RKVURL> nextActionURL() const;
  virtual bool isInline() const { return false; }
  virtual bool isWrapper() const { return false; }

  // The most entries that merges may add to one ad, all lists together (error, impression and
  // viewability URLs, creatives' tracking events and click tracking, verifications). A real
  // chain of a few wrappers adds some hundreds; the ceiling only stops a chain built to grow.
  static constexpr size_t kMaximumMergedEntries = 5000;

  // Pours the wrapper that led to this ad into it: depth (the wrapper's plus one), error,
  // impression and viewability URLs, the tracking and click tracking of every creative kind
  // (creating an empty creative of a kind the ad lacks), the extension's metrics, and the
  // verifications.
  //
  // A receiver creative does not take a tracking event equal in name, offset and URL to one it
  // already holds, nor a click-tracking URL it holds. Entries beyond kMaximumMergedEntries are
  // dropped, with one warning line in the console log for the ad.
  void merge(const RKVVASTAd& wrapper);
  // Entries that merges have added to this ad so far (at most kMaximumMergedEntries).
  size_t mergedEntryCount() const { return mergedEntryCount_; }

 protected:
  // The base reading, for the subclasses' initializers.
  void readAdAttributes(const RKVXMLDictionary& adElement);
  void markParsingError() { hasTriggeredAParsingError_ = true; }

 private:
  std::optional<std::string> adID_;
  std::optional<std::string> adSequence_;
  std::optional<std::string> adSystem_;
  std::optional<std::string> adTitle_;
  std::vector<RKVVASTURL> impressions_;
  std::vector<RKVVASTURL> errorPixels_;
  ViewabilityEvents viewabilityEvents_;
  LinearCreatives linearCreatives_;
  NonLinearCreatives nonLinearCreatives_;
  CompanionCreatives companionCreatives_;
  AdVerifications adVerifications_;
  std::shared_ptr<RKVVASTAdExtension> extensions_;
  bool hasTriggeredAParsingError_ = false;
  std::atomic<bool> consumed_{false};
  int64_t wrapperDepth_ = 0;
  size_t mergedEntryCount_ = 0;
  bool mergeCeilingReported_ = false;
};

}  // namespace rkv
