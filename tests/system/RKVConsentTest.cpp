#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVManualClock.h"
#include "rkv/system/RKVCCPAString.h"
#include "rkv/system/RKVIdentity.h"
#include "rkv/system/RKVIdentityProvider.h"
#include "rkv/system/RKVTCFString.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tests/support/RKVLogCapture.h"

namespace rkv {
namespace {

constexpr const char* kTCFv2 = "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA.YAAAAAAAAAAA";
constexpr const char* kTCFv1 = "BOEFEAyOEFEAyAHABDENAI4AAAB9vABAASA";

TEST(RKVTCFStringTest, ValidityVersionAndTheOneLoggedFailure) {
  using V = RKVTCFString::TCFVersion;
  const struct {
    std::optional<std::string> text;
    bool valid;
    V version;
    bool logs;
  } rows[] = {
      {kTCFv2, true, V::v2, false},
      {kTCFv1, true, V::v1, false},
      {"C", true, V::v2, false},
      {"COw4XqLOw4XqLAAAAAENAXCAAAAAAAAAAAAAAAAAAAA_-_", true, V::v2, false},
      {"AOEFEAyOEFEAy", false, V::unknown, false},  // version 0
      {"DOEFEAyOEFEAy", false, V::unknown, false},  // version 3
      {"cOEFEAyOEFEAy", false, V::unknown, false},  // lower case is not "C"
      {"", false, V::unknown, false},
      {std::nullopt, false, V::unknown, false},
      {"COEFEAyOEFEAy=", false, V::unknown, true},  // padding
      {"COEF EAy", false, V::unknown, true},
      {"COEF+EAy/", false, V::unknown, true},  // base64, not base64url
      {"CÖEF", false, V::unknown, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text.value_or("(null)"));
    test::RKVLogCapture capture;
    const RKVTCFString consent(row.text);
    EXPECT_EQ(consent.TCFString(), row.text);  // kept even when invalid
    EXPECT_EQ(consent.isValid(), row.valid);
    EXPECT_EQ(consent.version(), row.version);
    std::vector<std::string> expected;
    if (row.logs) {
      expected.push_back("Consent string '" + *row.text +
                         "' is invalid! An valid IAB consent string must be encoded in base64url "
                         "without padding.");
    }
    EXPECT_EQ(capture.errorMessages(), expected);
  }
}

TEST(RKVCCPAStringTest, OnlyOneThenThreeUpperCaseFlags) {
  const struct {
    std::optional<std::string> text;
    bool valid;
  } rows[] = {
      {"1YN-", true},  {"1---", true},   {"1NYY", true},  {"1yn-", false}, {"1YN", false},
      {"2YN-", false}, {"1YN--", false}, {"1YX-", false}, {"", false},     {std::nullopt, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text.value_or("(null)"));
    const RKVCCPAString consent(row.text);
    EXPECT_EQ(consent.CCPAString(), row.text);
    EXPECT_EQ(consent.isValid(), row.valid);
    EXPECT_EQ(consent.version(),
              row.valid ? RKVCCPAString::CCPAVersion::v1 : RKVCCPAString::CCPAVersion::invalid);
  }
  // The end index is excluded; indexes past the text are invalid characters.
  EXPECT_FALSE(RKVCCPAString::hasInvalidCharacters("1YNx", 1, 3));
  EXPECT_TRUE(RKVCCPAString::hasInvalidCharacters("1YNx", 1, 4));
  EXPECT_TRUE(RKVCCPAString::hasInvalidCharacters("1Y", 1, 4));
  EXPECT_FALSE(RKVCCPAString::hasInvalidCharacters("1Y", 3, 3));
}

// Consent strings as the production provider reads them from the user defaults.
class RKVConsentProviderTest : public ::testing::Test {
 protected:
  std::shared_ptr<RKVUserDefaults> defaults_ = std::make_shared<RKVUserDefaults>(nullptr);
  std::shared_ptr<RKVIdentityProvider> provider_ = std::make_shared<RKVIdentityProvider>(
      defaults_, std::make_shared<RKVManualClock>(), "/nonexistent/machine-id", "app");
};

// An identity reads consent at each call.
TEST_F(RKVConsentProviderTest, KeysAreReadAsTextsAndTheTCFKeyWinsEvenWhenInvalid) {
  const RKVIdentity identity(provider_, false, false, std::nullopt);
  EXPECT_EQ(provider_->TCFString(), std::nullopt);
  EXPECT_EQ(provider_->gdprConsentString(), std::nullopt);
  EXPECT_EQ(identity.gdprConsentString(), std::nullopt);

  defaults_->setString("IABConsent_ConsentString", kTCFv1);
  EXPECT_EQ(provider_->TCFString()->TCFString(), kTCFv1);
  EXPECT_EQ(identity.TCFString()->version(), RKVTCFString::TCFVersion::v1);

  defaults_->setString("IABTCF_TCString", "AAAA");  // version 0: invalid
  auto consent = provider_->TCFString();
  EXPECT_EQ(consent->TCFString(), "AAAA");
  EXPECT_FALSE(consent->isValid());
  EXPECT_EQ(provider_->gdprConsentString(), "AAAA");
  EXPECT_EQ(identity.gdprConsentString(), "AAAA");

  // A value that is not a text is skipped.
  defaults_->setInteger("IABTCF_TCString", 2);
  EXPECT_EQ(provider_->gdprConsentString(), kTCFv1);
  defaults_->setBool("IABConsent_ConsentString", true);
  EXPECT_EQ(provider_->TCFString(), std::nullopt);

  // US privacy has a key of its own.
  EXPECT_EQ(identity.CCPAString(), std::nullopt);
  defaults_->setString("IABUSPrivacy_String", "1YN-");
  EXPECT_TRUE(identity.CCPAString()->isValid());
  defaults_->setString("IABUSPrivacy_String", "1yn-");
  EXPECT_EQ(provider_->CCPAString()->CCPAString(), "1yn-");
  EXPECT_FALSE(provider_->CCPAString()->isValid());
  defaults_->setInteger("IABUSPrivacy_String", 1);
  EXPECT_EQ(provider_->CCPAString(), std::nullopt);
}

}  // namespace
}  // namespace rkv
