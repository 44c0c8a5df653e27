#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVManualClock.h"
#include "rkv/system/RKVIdentity.h"
#include "rkv/system/RKVIdentityProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tests/support/RKVTempDir.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;

constexpr const char* kZeroUUID = "00000000-0000-0000-0000-000000000000";
constexpr const char* kMachineID = "0123456789abcdef0123456789abcdef\n";
constexpr const char* kApplication = "com.example.player";

// Upper-case 8-4-4-4-12 text of a random (version 4, RFC 4122 variant) UUID.
bool isRandomUUIDText(const std::string& text) {
  if (text.size() != 36) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return false;
    } else if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) {
      return false;
    }
  }
  return text[14] == '4' && std::string("89AB").find(text[19]) != std::string::npos;
}

// The production provider over memory defaults, a manual clock and a machine-id file of ours;
// the host's process-wide advertising facts are reset around each test.
class RKVIdentityTest : public ::testing::Test {
 protected:
  RKVIdentityTest() {
    std::ofstream(machineIDPath_) << kMachineID;
    resetHostFacts();
  }
  ~RKVIdentityTest() override { resetHostFacts(); }

  static void resetHostFacts() {
    RKVIdentityProvider::setAdvertisingIdentifier(std::nullopt);
    RKVIdentityProvider::setLimitAdTracking(false);
  }

  std::shared_ptr<RKVIdentityProvider> provider(std::string application = kApplication) {
    return std::make_shared<RKVIdentityProvider>(defaults_, clock_, machineIDPath_, application);
  }
  RKVIdentity identity(bool transientIDEnabled,
                       std::optional<std::string> customIdentifier = std::nullopt) {
    return RKVIdentity(provider(), false, transientIDEnabled, std::move(customIdentifier));
  }
  std::optional<std::string> storedTransientID() const {
    auto entries = store_->entries();
    auto found = entries.find(RKVIdentityProvider::kTransientIDValueKey);
    if (found == entries.end()) return std::nullopt;
    return std::get<std::string>(found->second);
  }
  std::optional<RKVUserDefaults::Date> storedGeneration() const {
    auto entries = store_->entries();
    auto found = entries.find(RKVIdentityProvider::kTransientIDLastGenerationKey);
    if (found == entries.end()) return std::nullopt;
    return std::get<RKVUserDefaults::Date>(found->second);
  }

  test::RKVTempDir dir_;
  std::string machineIDPath_ = dir_.file("machine-id");
  std::shared_ptr<RKVMemoryUserDefaultsStore> store_ =
      std::make_shared<RKVMemoryUserDefaultsStore>();
  std::shared_ptr<RKVUserDefaults> defaults_ = std::make_shared<RKVUserDefaults>(store_);
  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
};

TEST_F(RKVIdentityTest, PrecedenceIsCustomThenTransientThenAdvertisingThenNone) {
  constexpr const char* kAdID = "6d92078a-8246-4ba4-ae5b-76104861e7dc";
  constexpr const char* kAdIDUpper = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  enum class Expect { advertising, transient, custom, empty };
  struct Row {
    const char* name;
    std::optional<std::string> adID;
    bool limitAdTracking;
    bool transientEnabled;
    std::optional<std::string> custom;
    RKVIdentityType type;
    Expect identity;
    bool ifaSet;
    bool transientSet;
  };
  const std::vector<Row> rows = {
      {"valid ad id", kAdID, false, true, std::nullopt, RKVIdentityType::advertising,
       Expect::advertising, true, false},
      {"custom over valid ad id", kAdID, false, true, "user-42", RKVIdentityType::custom,
       Expect::custom, true, false},
      {"limited: zeros, transient on", kAdID, true, true, std::nullopt, RKVIdentityType::transient,
       Expect::transient, false, true},
      {"limited: zeros, transient off", kAdID, true, false, std::nullopt, RKVIdentityType::none,
       Expect::empty, false, false},
      {"host-set zeros, transient on", kZeroUUID, false, true, std::nullopt,
       RKVIdentityType::transient, Expect::transient, false, true},
      {"no ad id, transient off", std::nullopt, false, false, std::nullopt, RKVIdentityType::none,
       Expect::empty, false, false},
      {"empty ad id, transient on", "", false, true, std::nullopt, RKVIdentityType::transient,
       Expect::transient, false, true},
      // The transient identifier is still retrieved under a custom one.
      {"custom, no ad id, transient on", std::nullopt, false, true, "user-42",
       RKVIdentityType::custom, Expect::custom, false, true},
      // An empty custom identifier identifies nothing.
      {"empty custom", kAdID, false, true, "", RKVIdentityType::advertising, Expect::advertising,
       true, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RKVIdentityProvider::setAdvertisingIdentifier(row.adID);
    RKVIdentityProvider::setLimitAdTracking(row.limitAdTracking);
    defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDValueKey);
    defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDLastGenerationKey);

    const RKVIdentity id = identity(row.transientEnabled, row.custom);
    EXPECT_EQ(id.type(), row.type);
    EXPECT_EQ(id.ifa(), row.ifaSet ? std::optional<std::string>(kAdIDUpper) : std::nullopt);
    EXPECT_EQ(id.transientId().has_value(), row.transientSet);
    EXPECT_EQ(id.customIdentifier(), row.custom);
    switch (row.identity) {
      case Expect::advertising:
        EXPECT_EQ(id.identity(), kAdIDUpper);
        break;
      case Expect::custom:
        EXPECT_EQ(id.identity(), *row.custom);
        break;
      case Expect::empty:
        EXPECT_EQ(id.identity(), "");
        break;
      case Expect::transient:
        EXPECT_TRUE(isRandomUUIDText(id.identity())) << id.identity();
        EXPECT_EQ(id.transientId(), id.identity());
        break;
    }
    if (row.transientSet) {
      EXPECT_EQ(storedTransientID(), id.transientId());  // written through
      EXPECT_EQ(storedGeneration(), clock_->date());
    } else {
      EXPECT_EQ(defaults_->stringForKey(RKVIdentityProvider::kTransientIDValueKey), std::nullopt);
    }
    // The identifier for vendor is collected but never the identity.
    EXPECT_TRUE(id.ifv().has_value());
    EXPECT_NE(id.identity(), id.ifv());
  }
}

// The identifier for vendor is the version 5 UUID of the application identifier in the
// machine-id's namespace (expected values from Python's uuid.uuid5).
TEST_F(RKVIdentityTest, IdentifierForVendorIsDerivedFromTheMachineAndTheApplication) {
  EXPECT_EQ(provider()->identifierForVendor(), "641F0AAB-4B88-5A11-B25E-4892AF255CE5");
  EXPECT_EQ(provider("com.example.other")->identifierForVendor(),
            "01B2790F-C4D7-5E30-94D9-DA63E030148A");

  const std::vector<std::pair<const char*, const char*>> unusable = {
      {"uninitialized\n", "systemd's placeholder"},
      {"00000000000000000000000000000000\n", "all zeros"},
      {"0123456789abcdef0123456789abcde\n", "31 digits"},
      {"0123456789abcdef0123456789abcdeg\n", "not hexadecimal"},
      {"", "empty"},
  };
  for (const auto& [content, name] : unusable) {
    SCOPED_TRACE(name);
    std::ofstream(machineIDPath_, std::ios::trunc) << content;
    EXPECT_EQ(provider()->identifierForVendor(), std::nullopt);
  }
  auto missing = std::make_shared<RKVIdentityProvider>(defaults_, clock_, dir_.file("no-such-file"),
                                                       kApplication);
  EXPECT_EQ(missing->identifierForVendor(), std::nullopt);
  EXPECT_EQ(RKVIdentity(missing, false, false, std::nullopt).ifv(), std::nullopt);
}

TEST_F(RKVIdentityTest, TheTransientIdentifierLivesOneDayFromItsGeneration) {
  const std::string first = *identity(true).transientId();
  const auto generated = clock_->date();

  clock_->advance(23h);
  EXPECT_EQ(identity(true).transientId(), first);
  EXPECT_EQ(storedGeneration(), generated);  // reuse keeps the generation date

  clock_->advance(2h);  // 25 hours after generation
  const std::string second = *identity(true).transientId();
  EXPECT_NE(second, first);
  EXPECT_EQ(storedTransientID(), second);
  EXPECT_EQ(storedGeneration(), clock_->date());

  // A clock moved back: generation dates ahead of now count the same way.
  defaults_->setDate(RKVIdentityProvider::kTransientIDLastGenerationKey, clock_->date() + 23h);
  EXPECT_EQ(identity(true).transientId(), second);
  defaults_->setDate(RKVIdentityProvider::kTransientIDLastGenerationKey, clock_->date() + 25h);
  const std::string third = *identity(true).transientId();
  EXPECT_NE(third, second);
  EXPECT_EQ(storedGeneration(), clock_->date());

  // An identifier without its date, or a date stored as something else, is not reused.
  defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDLastGenerationKey);
  EXPECT_NE(identity(true).transientId(), third);
  defaults_->setString(RKVIdentityProvider::kTransientIDLastGenerationKey, "yesterday");
  EXPECT_EQ(provider()->retrieveTransientID(), std::nullopt);
}

TEST(RKVIdentityTransientDateTest, AGenerationDateIsValidForLessThanADayEitherWay) {
  const auto now = std::chrono::system_clock::time_point(1700000000s);
  const std::vector<std::pair<std::chrono::seconds, bool>> rows = {
      {0s, true},       {86399s, true},  {-86399s, true},         {86400s, false},
      {-86400s, false}, {86401s, false}, {-3650 * 86400s, false},
  };
  for (const auto& [offset, valid] : rows) {
    EXPECT_EQ(RKVIdentity::isValidTransientIDWithGenerationDate(now + offset, now), valid)
        << offset.count();
  }
  EXPECT_FALSE(RKVIdentity::isValidTransientIDWithGenerationDate(std::nullopt, now));
  // Extreme stored dates do not overflow.
  EXPECT_FALSE(RKVIdentity::isValidTransientIDWithGenerationDate(
      std::chrono::system_clock::time_point::min(), now));
  EXPECT_FALSE(RKVIdentity::isValidTransientIDWithGenerationDate(
      std::chrono::system_clock::time_point::max(), now));
  // The one-argument form reads the system clock.
  EXPECT_TRUE(
      RKVIdentity::isValidTransientIDWithGenerationDate(std::chrono::system_clock::now() - 1h));
}

TEST_F(RKVIdentityTest, TheAdvertisingIdentifierIsTheHostsInCanonicalForm) {
  auto p = provider();
  EXPECT_EQ(p->advertisingID(), std::nullopt);
  RKVIdentityProvider::setAdvertisingIdentifier("6d92078a-8246-4ba4-ae5b-76104861e7dc");
  EXPECT_EQ(p->advertisingID(), "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  // Not every platform's identifier is a UUID: other texts pass as they are.
  RKVIdentityProvider::setAdvertisingIdentifier("rida:abc123");
  EXPECT_EQ(p->advertisingID(), "rida:abc123");
  RKVIdentityProvider::setLimitAdTracking(true);
  EXPECT_EQ(p->advertisingID(), kZeroUUID);
  RKVIdentityProvider::setAdvertisingIdentifier(std::nullopt);
  EXPECT_EQ(p->advertisingID(), std::nullopt);
}

// A provider that has no transient identifier to give.
struct NoTransientProvider : RKVIdentityProviderProtocol {
  std::optional<std::string> advertisingID() const override { return std::nullopt; }
  std::optional<std::string> identifierForVendor() const override { return kZeroUUID; }
  std::optional<RKVTransientID> retrieveTransientID() const override { return std::nullopt; }
  std::optional<std::string> generateNewTransientID() override { return std::nullopt; }
  std::optional<RKVTCFString> TCFString() const override { return std::nullopt; }
  std::optional<RKVCCPAString> CCPAString() const override { return std::nullopt; }
  std::optional<std::string> gdprConsentString() const override { return std::nullopt; }
};

TEST(RKVIdentityFallThroughTest, AMissingTransientIdentifierFallsThroughToNone) {
  RKVIdentity id(std::make_shared<NoTransientProvider>(), true, true, std::nullopt);
  EXPECT_EQ(id.type(), RKVIdentityType::none);
  EXPECT_EQ(id.identity(), "");
  EXPECT_EQ(id.transientId(), std::nullopt);
  EXPECT_EQ(id.ifv(), std::nullopt);  // all zeros is not valid
  EXPECT_TRUE(id.isHashed());         // stored as given
}

}  // namespace
}  // namespace rkv
