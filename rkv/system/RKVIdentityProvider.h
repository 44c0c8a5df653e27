// RKVIdentityProvider: the production identity facts on Linux. Thread-safe.
//
// - The advertising identifier and whether the user limits ad tracking are what the host sets
//   (process-wide, setAdvertisingIdentifier and setLimitAdTracking); a host that sets no
//   identifier has none.
// - The identifier for vendor is the name-based (version 5, SHA-1) UUID of the application
//   identifier in the namespace of the machine's 128-bit machine-id: stable for one application
//   on one machine, different between applications, and the machine-id cannot be read back from
//   it. Absent when the machine-id file is unreadable or malformed.
// - The transient identifier and the IAB consent strings live in an RKVUserDefaults under the
//   keys below.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/system/RKVIdentityProviderProtocol.h"
#include "rkv/system/RKVUserDefaults.h"

namespace rkv {

class RKV_EXPORT RKVIdentityProvider : public RKVIdentityProviderProtocol {
 public:
  static constexpr const char* kTransientIDValueKey =
      "com.vireohub.coresdk.transientid.UUIDLocalValueKey";
  static constexpr const char* kTransientIDLastGenerationKey =
      "com.vireohub.coresdk.transientid.UUIDLocalLastGenerationKey";
  // The IAB's public keys: TCF version 2, TCF version 1, US Privacy.
  static constexpr const char* kTCFStringKey = "IABTCF_TCString";
  static constexpr const char* kConsentStringKey = "IABConsent_ConsentString";
  static constexpr const char* kUSPrivacyStringKey = "IABUSPrivacy_String";
  static constexpr const char* kDefaultMachineIDPath = "/etc/machine-id";

  // The standard user defaults, the system clock, /etc/machine-id and the bundle identifier of
  // RKVAppInfo's shared instance.
  RKVIdentityProvider();
  // A null userDefaults means RKVUserDefaults::standardUserDefaults(), a null clock the system
  // clock, an absent applicationIdentifier RKVAppInfo's bundle identifier (read at each call).
  explicit RKVIdentityProvider(std::shared_ptr<RKVUserDefaults> userDefaults,
                               std::shared_ptr<RKVClock> clock = nullptr,
                               std::string machineIDPath = kDefaultMachineIDPath,
                               std::optional<std::string> applicationIdentifier = std::nullopt);

  // The identifier the host set, absent when it set none (or an empty text). While ad tracking
  // is limited: "00000000-0000-0000-0000-000000000000", as the platforms answer. A text in the
  // UUID form comes back in canonical upper case, any other text as it was set.
  std::optional<std::string> advertisingID() const override;
  // See above; upper-case UUID text.
  std::optional<std::string> identifierForVendor() const override;
  // Both transient keys, absent unless the identifier is a non-empty text and the generation a
  // date.
  std::optional<RKVTransientID> retrieveTransientID() const override;
  // A new random (version 4) UUID, stored with the clock's date under both keys and written
  // through with synchronize (a failed write is logged by the defaults and retried by their next
  // synchronize); the UUID text is answered either way.
  std::optional<std::string> generateNewTransientID() override;
  // The text under "IABTCF_TCString", else under "IABConsent_ConsentString"; absent when neither
  // holds a text (a value of another type is skipped).
  std::optional<RKVTCFString> TCFString() const override;
  // The text under "IABUSPrivacy_String"; absent when it holds none.
  std::optional<RKVCCPAString> CCPAString() const override;
  std::optional<std::string> gdprConsentString() const override;
  // The clock's date().
  std::chrono::system_clock::time_point currentDate() const override;

  const std::shared_ptr<RKVUserDefaults>& userDefaults() const { return userDefaults_; }

  // Host facts, process-wide, read at each call by every provider. The advertising identifier
  // of the device (default absent).
  static void setAdvertisingIdentifier(std::optional<std::string> identifier);
  // Whether the user limits ad tracking (default false).
  static void setLimitAdTracking(bool limited);

 private:
  std::shared_ptr<RKVUserDefaults> userDefaults_;
  std::shared_ptr<RKVClock> clock_;
  std::string machineIDPath_;
  std::optional<std::string> applicationIdentifier_;
};

}  // namespace rkv
