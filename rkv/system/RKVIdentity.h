// RKVIdentity: who the device is, computed once at construction from an identity provider: the
// advertising identifier, identifier for vendor, transient identifier and custom identifier, and
// the one identifier that represents the device with its type. Consent strings are read from the
// provider at each call. Immutable once built; safe to share between threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/system/RKVCCPAString.h"
#include "rkv/system/RKVIdentityProviderProtocol.h"
#include "rkv/system/RKVTCFString.h"

namespace rkv {

// Which identifier RKVIdentity::identity() is.
enum class RKVIdentityType : int64_t {
  none = 0,         // no identifier: identity() is the empty text
  advertising = 1,  // the advertising identifier
  transient = 2,    // the transient identifier, standing in for a missing advertising one
  custom = 3,       // the identifier the application supplied
};

class RKV_EXPORT RKVIdentity {
 public:
  using Date = std::chrono::system_clock::time_point;

  // Reads the provider once. ifa is the advertising identifier when it is a valid UUID; when it
  // is not and transient identifiers are enabled, transientId is retrieveTransientIDWithProvider
  // (reused within a day, else generated and stored). ifv is the identifier for vendor when
  // valid. The identity, first match winning: a non-empty custom identifier (custom, even over a
  // valid advertising identifier); the transient identifier (transient); the advertising
  // identifier (advertising); else none with the empty text. A provider that answers no
  // transient identifier falls through to the next rule. `hashed` is stored and not applied
  // here. A null provider means a new RKVIdentityProvider.
  RKVIdentity(std::shared_ptr<RKVIdentityProviderProtocol> identityProvider, bool hashed,
              bool transientIDEnabled, std::optional<std::string> customIdentifier);
  // With a new RKVIdentityProvider (the standard user defaults, the system clock).
  RKVIdentity(bool hashed, bool transientIDEnabled,
              std::optional<std::string> customIdentifier = std::nullopt);

  const std::shared_ptr<RKVIdentityProviderProtocol>& identityProvider() const {
    return identityProvider_;
  }
  bool isHashed() const { return isHashed_; }
  bool isTransientIDEnabled() const { return isTransientIDEnabled_; }
  // The advertising identifier, absent unless it is a valid UUID.
  const std::optional<std::string>& ifa() const { return ifa_; }
  // The identifier for vendor, absent unless it is a valid UUID. Never becomes the identity.
  const std::optional<std::string>& ifv() const { return ifv_; }
  // The transient identifier, set only when it stands in for the advertising identifier.
  const std::optional<std::string>& transientId() const { return transientId_; }
  // The custom identifier as given.
  const std::optional<std::string>& customIdentifier() const { return customIdentifier_; }
  // The identifier that represents the device; the empty text with type none.
  const std::string& identity() const { return identity_; }
  RKVIdentityType type() const { return type_; }

  // The provider's consent strings, read at each call.
  std::optional<RKVTCFString> TCFString() const;
  std::optional<RKVCCPAString> CCPAString() const;
  // The raw text of TCFString(), or absent.
  std::optional<std::string> gdprConsentString() const;

  // True when the text is present, not empty and not "00000000-0000-0000-0000-000000000000"
  // (what the platforms answer while ad tracking is limited).
  static bool isValidUUID(std::optional<std::string_view> uuid);
  // The provider's stored transient identifier when its generation date is valid at the
  // provider's currentDate(); otherwise the provider's generateNewTransientID().
  static std::optional<std::string> retrieveTransientIDWithProvider(
      RKVIdentityProviderProtocol& provider);
  // True when a date is given and lies less than one day (86400 seconds) from now, before or
  // after. Now is the system clock's date.
  static bool isValidTransientIDWithGenerationDate(std::optional<Date> generationDate);
  static bool isValidTransientIDWithGenerationDate(std::optional<Date> generationDate, Date now);

 private:
  std::shared_ptr<RKVIdentityProviderProtocol> identityProvider_;
  bool isHashed_ = false;
  bool isTransientIDEnabled_ = false;
  std::optional<std::string> ifa_;
  std::optional<std::string> ifv_;
  std::optional<std::string> transientId_;
  std::optional<std::string> customIdentifier_;
  std::string identity_;
  RKVIdentityType type_ = RKVIdentityType::none;
};

}  // namespace rkv
