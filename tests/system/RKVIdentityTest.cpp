#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVManualClock.h"
#include "rkv/system/RKVIdentity.h"
#include "rkv/system/RKVIdentityProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTempDir.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;

constexpr const char* kZeroUUID = "00000000-0000-0000-0000-000000000000";
constexpr const char* kMachineID = "0123456789abcdef0123456789abcdef\n";
constexpr const char* kApplication = "com.example.player";

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
  // What the store holds (written through, not only in memory).
  template <typename T>
  std::optional<T> stored(const char* key) const {
    auto entries = store_->entries();
    auto found = entries.find(key);
    return found == entries.end() ? std::nullopt : std::optional<T>(std::get<T>(found->second));
  }
  std::optional<std::string> storedTransientID() const {
    return stored<std::string>(RKVIdentityProvider::kTransientIDValueKey);
  }
  std::optional<RKVUserDefaults::Date> storedGeneration() const {
    return stored<RKVUserDefaults::Date>(RKVIdentityProvider::kTransientIDLastGenerationKey);
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
  constexpr const char* kTransient = "(a fresh transient identifier)";
  using T = RKVIdentityType;
  const std::nullopt_t none = std::nullopt;
  // clang-format off
  const struct {
    const char* name;
    std::optional<std::string> adID;
    bool limitAdTracking, transientEnabled;
    std::optional<std::string> custom;
    T type;
    std::string identity;
    std::optional<std::string> ifa;
    bool transientSet;
  } rows[] = {
      {"valid ad id", kAdID, false, true, none, T::advertising, kAdIDUpper, kAdIDUpper, false},
      // Not every platform's identifier is a UUID: other texts pass as they are.
      {"not a UUID", "rida:abc123", false, false, none, T::advertising, "rida:abc123", "rida:abc123", false},
      {"custom over valid ad id", kAdID, false, true, "user-42", T::custom, "user-42", kAdIDUpper, false},
      {"limited: zeros, transient on", kAdID, true, true, none, T::transient, kTransient, none, true},
      {"limited: zeros, transient off", kAdID, true, false, none, T::none, "", none, false},
      {"host-set zeros, transient on", kZeroUUID, false, true, none, T::transient, kTransient, none, true},
      {"no ad id, transient off", none, false, false, none, T::none, "", none, false},
      {"empty ad id, transient on", "", false, true, none, T::transient, kTransient, none, true},
      // The transient identifier is still retrieved under a custom one.
      {"custom, no ad id, transient on", none, false, true, "user-42", T::custom, "user-42", none, true},
      // An empty custom identifier identifies nothing.
      {"empty custom", kAdID, false, true, "", T::advertising, kAdIDUpper, kAdIDUpper, false},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RKVIdentityProvider::setAdvertisingIdentifier(row.adID);
    RKVIdentityProvider::setLimitAdTracking(row.limitAdTracking);
    defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDValueKey);
    defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDLastGenerationKey);

    const RKVIdentity id = identity(row.transientEnabled, row.custom);
    EXPECT_EQ(id.type(), row.type);
    EXPECT_EQ(id.ifa(), row.ifa);
    EXPECT_EQ(id.transientId().has_value(), row.transientSet);
    EXPECT_EQ(id.customIdentifier(), row.custom);
    if (row.identity == kTransient) {
      // Upper-case 8-4-4-4-12 text of a random (version 4, RFC 4122 variant) UUID.
      EXPECT_TRUE(std::regex_match(id.identity(), std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                             "[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
          << id.identity();
      EXPECT_EQ(id.transientId(), id.identity());
    } else {
      EXPECT_EQ(id.identity(), row.identity);
    }
    if (row.transientSet) {
      EXPECT_EQ(storedTransientID(), id.transientId());
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
  std::filesystem::remove(machineIDPath_);
  EXPECT_EQ(provider()->identifierForVendor(), std::nullopt);
  EXPECT_EQ(identity(false).ifv(), std::nullopt);
}

// A stored identifier is reused for less than a day from its generation either way (a clock
// moved back leaves dates ahead of now); extreme dates do not overflow. Otherwise a new one is
// generated and written through with the current date.
TEST_F(RKVIdentityTest, TheTransientIdentifierLivesLessThanADayFromItsGeneration) {
  using Date = RKVUserDefaults::Date;
  const Date now = clock_->date();
  const std::pair<Date, bool> rows[] = {
      {now, true},           {now + 86399s, true},  {now - 86399s, true},
      {now + 86400s, false}, {now - 86400s, false}, {now + 86401s, false},
      {now - 87600h, false}, {Date::min(), false},  {Date::max(), false},
  };
  for (const auto& [generation, reused] : rows) {
    SCOPED_TRACE(generation.time_since_epoch().count());
    defaults_->setString(RKVIdentityProvider::kTransientIDValueKey, "stored");
    defaults_->setDate(RKVIdentityProvider::kTransientIDLastGenerationKey, generation);
    const std::string id = *identity(true).transientId();
    if (reused) {
      EXPECT_EQ(id, "stored");
      EXPECT_EQ(defaults_->dateForKey(RKVIdentityProvider::kTransientIDLastGenerationKey),
                generation);  // reuse keeps the generation date
    } else {
      EXPECT_NE(id, "stored");
      EXPECT_EQ(storedTransientID(), id);
      EXPECT_EQ(storedGeneration(), now);
    }
  }
  EXPECT_FALSE(RKVIdentity::isValidTransientIDWithGenerationDate(std::nullopt, now));

  // An identifier without its date, or a date stored as something else, is not reused.
  defaults_->setString(RKVIdentityProvider::kTransientIDValueKey, "stored");
  defaults_->removeObjectForKey(RKVIdentityProvider::kTransientIDLastGenerationKey);
  EXPECT_NE(identity(true).transientId(), "stored");
  defaults_->setString(RKVIdentityProvider::kTransientIDLastGenerationKey, "yesterday");
  EXPECT_EQ(provider()->retrieveTransientID(), std::nullopt);
}

// A provider that has no transient identifier to give.
struct NoTransientProvider : RKVIdentityProvider {
  using RKVIdentityProvider::RKVIdentityProvider;
  std::optional<std::string> identifierForVendor() const override { return kZeroUUID; }
  std::optional<RKVTransientID> retrieveTransientID() const override { return std::nullopt; }
  std::optional<std::string> generateNewTransientID() override { return std::nullopt; }
};

// A provider whose every answer throws: host code failing, which counts as no answer.
struct ThrowingProvider : RKVIdentityProvider {
  using RKVIdentityProvider::RKVIdentityProvider;
  [[noreturn]] static void fail() { throw std::runtime_error("provider failure"); }
  std::optional<std::string> advertisingID() const override { fail(); }
  std::optional<std::string> identifierForVendor() const override { fail(); }
  std::optional<RKVTransientID> retrieveTransientID() const override { fail(); }
  std::optional<std::string> generateNewTransientID() override { fail(); }
  std::optional<RKVTCFString> TCFString() const override { fail(); }
  std::optional<RKVCCPAString> CCPAString() const override { fail(); }
};

TEST_F(RKVIdentityTest, AProviderWithNothingToGiveOrThatThrowsLeavesNoIdentity) {
  RKVIdentityProvider::setAdvertisingIdentifier(kZeroUUID);
  const std::shared_ptr<RKVIdentityProviderProtocol> providers[] = {
      std::make_shared<NoTransientProvider>(defaults_, clock_, machineIDPath_, kApplication),
      std::make_shared<ThrowingProvider>(defaults_, clock_, machineIDPath_, kApplication)};
  for (const auto& provider : providers) {
    test::RKVLogCapture capture;
    RKVIdentity id(provider, true, true, std::nullopt);
    EXPECT_EQ(id.type(), RKVIdentityType::none);
    EXPECT_EQ(id.identity(), "");
    EXPECT_EQ(id.transientId(), std::nullopt);
    EXPECT_EQ(id.ifv(), std::nullopt);  // all zeros is not valid
    EXPECT_EQ(id.TCFString(), std::nullopt);
    EXPECT_EQ(id.CCPAString(), std::nullopt);
    // advertisingID, identifierForVendor, the transient pair and the two consent strings.
    const size_t reported = provider == providers[1] ? 6 : 0;
    EXPECT_EQ(capture.errorMessages().size(), reported);
  }
}

}  // namespace
}  // namespace rkv
