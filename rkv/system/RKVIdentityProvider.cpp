#include "rkv/system/RKVIdentityProvider.h"

#include <utility>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/platform/RKVAppInfo.h"
#include "rkv/platform/internal/RKVLinuxDeviceFacts.h"
#include "rkv/system/internal/RKVDigest.h"

namespace rkv {

namespace {

constexpr const char* kZeroUUID = "00000000-0000-0000-0000-000000000000";

struct HostFacts {
  RKVMutex mu;
  std::optional<std::string> advertisingIdentifier RKV_GUARDED_BY(mu);
  bool limitAdTracking RKV_GUARDED_BY(mu) = false;
};

HostFacts& hostFacts() {
  static HostFacts* facts = new HostFacts();  // never destroyed: read until the process ends
  return *facts;
}

}  // namespace

RKVIdentityProvider::RKVIdentityProvider() : RKVIdentityProvider(nullptr) {}

RKVIdentityProvider::RKVIdentityProvider(std::shared_ptr<RKVUserDefaults> userDefaults,
                                         std::shared_ptr<RKVClock> clock, std::string machineIDPath,
                                         std::optional<std::string> applicationIdentifier)
    : userDefaults_(userDefaults ? std::move(userDefaults)
                                 : RKVUserDefaults::standardUserDefaults()),
      clock_(clock ? std::move(clock) : RKVClock::system()),
      machineIDPath_(std::move(machineIDPath)),
      applicationIdentifier_(std::move(applicationIdentifier)) {}

void RKVIdentityProvider::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  auto& facts = hostFacts();
  RKVMutexLock lock(facts.mu);
  facts.advertisingIdentifier = std::move(identifier);
}

void RKVIdentityProvider::setLimitAdTracking(bool limited) {
  auto& facts = hostFacts();
  RKVMutexLock lock(facts.mu);
  facts.limitAdTracking = limited;
}

std::optional<std::string> RKVIdentityProvider::advertisingID() const {
  std::optional<std::string> identifier;
  bool limited = false;
  {
    auto& facts = hostFacts();
    RKVMutexLock lock(facts.mu);
    identifier = facts.advertisingIdentifier;
    limited = facts.limitAdTracking;
  }
  if (!identifier || identifier->empty()) return std::nullopt;
  if (limited) return std::string(kZeroUUID);
  if (auto bytes = internal::parseUUID(*identifier)) return internal::uuidString(*bytes);
  return identifier;
}

std::optional<std::string> RKVIdentityProvider::identifierForVendor() const {
  auto text = internal::readSystemFile(machineIDPath_.c_str());
  if (!text) return std::nullopt;
  auto machineID = internal::machineIDFromText(*text);
  if (!machineID) return std::nullopt;
  const std::string application = applicationIdentifier_
                                      ? *applicationIdentifier_
                                      : RKVAppInfo::sharedInstance()->appBundleIdentifier();
  auto uuid = internal::nameBasedUUID(*machineID, application);
  if (!uuid) return std::nullopt;
  return internal::uuidString(*uuid);
}

std::optional<RKVTransientID> RKVIdentityProvider::retrieveTransientID() const {
  auto identifier = userDefaults_->stringForKey(kTransientIDValueKey);
  auto generation = userDefaults_->dateForKey(kTransientIDLastGenerationKey);
  if (!identifier || identifier->empty() || !generation) return std::nullopt;
  return RKVTransientID(std::move(*identifier), *generation);
}

std::optional<std::string> RKVIdentityProvider::generateNewTransientID() {
  std::string identifier = internal::uuidString(internal::randomUUID());
  userDefaults_->setString(kTransientIDValueKey, identifier);
  userDefaults_->setDate(kTransientIDLastGenerationKey, clock_->date());
  userDefaults_->synchronize();
  return identifier;
}

std::optional<RKVTCFString> RKVIdentityProvider::TCFString() const {
  for (const char* key : {kTCFStringKey, kConsentStringKey}) {
    if (auto text = userDefaults_->stringForKey(key)) return RKVTCFString(std::move(*text));
  }
  return std::nullopt;
}

std::optional<RKVCCPAString> RKVIdentityProvider::CCPAString() const {
  if (auto text = userDefaults_->stringForKey(kUSPrivacyStringKey))
    return RKVCCPAString(std::move(*text));
  return std::nullopt;
}

std::optional<std::string> RKVIdentityProvider::gdprConsentString() const {
  auto consent = TCFString();
  if (!consent) return std::nullopt;
  return consent->TCFString();
}

std::chrono::system_clock::time_point RKVIdentityProvider::currentDate() const {
  return clock_->date();
}

}  // namespace rkv
