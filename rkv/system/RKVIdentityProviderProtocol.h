// RKVIdentityProviderProtocol: where RKVIdentity gets the platform's identifiers and consent
// strings, so that its logic runs with test doubles. Every operation answers absent when the
// fact is unavailable. Implementations must be safe to call from any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/system/RKVCCPAString.h"
#include "rkv/system/RKVTCFString.h"
#include "rkv/system/RKVTransientID.h"

namespace rkv {

class RKV_EXPORT RKVIdentityProviderProtocol {
 public:
  virtual ~RKVIdentityProviderProtocol() = default;

  // The device's advertising identifier as UUID text; all zeros when the user limits ad
  // tracking.
  virtual std::optional<std::string> advertisingID() const = 0;
  // The device's identifier for this application's vendor, as UUID text.
  virtual std::optional<std::string> identifierForVendor() const = 0;
  // The stored transient identifier with its generation date.
  virtual std::optional<RKVTransientID> retrieveTransientID() const = 0;
  // Makes a new random transient identifier, stores it with currentDate() and answers it.
  virtual std::optional<std::string> generateNewTransientID() = 0;
  // The stored IAB TCF consent string.
  virtual std::optional<RKVTCFString> TCFString() const = 0;
  // The stored IAB US Privacy string.
  virtual std::optional<RKVCCPAString> CCPAString() const = 0;
  // The raw text of TCFString().
  virtual std::optional<std::string> gdprConsentString() const = 0;

  // The wall-clock date transient identifiers are generated and judged at. The default is the
  // system clock's.
  virtual std::chrono::system_clock::time_point currentDate() const;
};

}  // namespace rkv
