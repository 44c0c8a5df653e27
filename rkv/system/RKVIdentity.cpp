#include "rkv/system/RKVIdentity.h"

#include <utility>

#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/system/RKVIdentityProvider.h"

namespace rkv {

namespace {

constexpr std::string_view kZeroUUID = "00000000-0000-0000-0000-000000000000";
constexpr auto kTransientIDLifetime = std::chrono::seconds(86400);

}  // namespace

RKVIdentity::RKVIdentity(std::shared_ptr<RKVIdentityProviderProtocol> identityProvider, bool hashed,
                         bool transientIDEnabled, std::optional<std::string> customIdentifier)
    : identityProvider_(identityProvider ? std::move(identityProvider)
                                         : std::make_shared<RKVIdentityProvider>()),
      isHashed_(hashed),
      isTransientIDEnabled_(transientIDEnabled),
      customIdentifier_(std::move(customIdentifier)) {
  auto advertisingID = internal::callHostOrDefault(
      "the identity provider's advertisingID", [&] { return identityProvider_->advertisingID(); });
  const bool advertisingIDValid = isValidUUID(advertisingID);
  if (advertisingIDValid) {
    ifa_ = std::move(advertisingID);
  } else if (isTransientIDEnabled_) {
    // Retrieved once: the identity below is this same value.
    transientId_ = retrieveTransientIDWithProvider(*identityProvider_);
  }
  auto vendorID = internal::callHostOrDefault("the identity provider's identifierForVendor", [&] {
    return identityProvider_->identifierForVendor();
  });
  if (isValidUUID(vendorID)) ifv_ = std::move(vendorID);

  if (customIdentifier_ && !customIdentifier_->empty()) {
    type_ = RKVIdentityType::custom;
    identity_ = *customIdentifier_;
  } else if (transientId_) {
    type_ = RKVIdentityType::transient;
    identity_ = *transientId_;
  } else if (ifa_) {
    type_ = RKVIdentityType::advertising;
    identity_ = *ifa_;
  }
}

RKVIdentity::RKVIdentity(bool hashed, bool transientIDEnabled,
                         std::optional<std::string> customIdentifier)
    : RKVIdentity(std::make_shared<RKVIdentityProvider>(), hashed, transientIDEnabled,
                  std::move(customIdentifier)) {}

std::optional<RKVTCFString> RKVIdentity::TCFString() const {
  return internal::callHostOrDefault("the identity provider's TCFString",
                                     [&] { return identityProvider_->TCFString(); });
}

std::optional<RKVCCPAString> RKVIdentity::CCPAString() const {
  return internal::callHostOrDefault("the identity provider's CCPAString",
                                     [&] { return identityProvider_->CCPAString(); });
}

std::optional<std::string> RKVIdentity::gdprConsentString() const {
  auto consent = TCFString();
  if (!consent) return std::nullopt;
  return consent->TCFString();
}

bool RKVIdentity::isValidUUID(std::optional<std::string_view> uuid) {
  return uuid && !uuid->empty() && *uuid != kZeroUUID;
}

std::optional<std::string> RKVIdentity::retrieveTransientIDWithProvider(
    RKVIdentityProviderProtocol& provider) {
  // A provider that throws is host code failing: its answer counts as none (a date as now).
  auto stored = internal::callHostOrDefault("the identity provider's retrieveTransientID",
                                            [&] { return provider.retrieveTransientID(); });
  const Date now = internal::callHostOr<Date>("the identity provider's currentDate",
                                              std::chrono::system_clock::now(),
                                              [&] { return provider.currentDate(); });
  if (stored && isValidTransientIDWithGenerationDate(stored->lastGeneration(), now)) {
    return stored->transientID();
  }
  return internal::callHostOrDefault("the identity provider's generateNewTransientID",
                                     [&] { return provider.generateNewTransientID(); });
}

bool RKVIdentity::isValidTransientIDWithGenerationDate(std::optional<Date> generationDate) {
  return isValidTransientIDWithGenerationDate(generationDate, RKVClock::system()->date());
}

bool RKVIdentity::isValidTransientIDWithGenerationDate(std::optional<Date> generationDate,
                                                       Date now) {
  if (!generationDate) return false;
  // Compared as a window around now, so that a stored date at the far end of the range cannot
  // overflow a subtraction.
  return *generationDate > now - kTransientIDLifetime &&
         *generationDate < now + kTransientIDLifetime;
}

}  // namespace rkv
