// The system layer: the user defaults, the identity and its provider, the consent strings they
// carry, the MD5 hash and random draws.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVRandom.h"
#include "rkv/system/RKVCCPAString.h"
#include "rkv/system/RKVHash.h"
#include "rkv/system/RKVIdentity.h"
#include "rkv/system/RKVIdentityProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVTCFString.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;

constexpr const char* kZeroUUID = "00000000-0000-0000-0000-000000000000";
constexpr const char* kMachineID = "0123456789abcdef0123456789abcdef\n";
constexpr const char* kApplication = "com.example.player";
constexpr const char* kIDKey = RKVIdentityProvider::kTransientIDValueKey;
constexpr const char* kDateKey = RKVIdentityProvider::kTransientIDLastGenerationKey;
constexpr const char* kTCFv2 = "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA.YAAAAAAAAAAA";
constexpr const char* kTCFv1 = "BOEFEAyOEFEAyAHABDENAI4AAAB9vABAASA";

std::shared_ptr<RKVUserDefaults> openDefaults(const std::string& path) {
  return std::make_shared<RKVUserDefaults>(std::make_shared<RKVSQLiteUserDefaultsStore>(path));
}

TEST(RKVUserDefaultsTest, EveryTypeSurvivesAReopenAndIsReadOnlyAsItsOwnType) {
  test::RKVTempDir dir;
  auto path = dir.file("nested/folder/defaults.sqlite");  // folders are created
  auto date = std::chrono::system_clock::time_point(1700000000123456789ns);
  std::string blob("\0\x01\xff binary", 10);
  {
    auto defaults = openDefaults(path);
    defaults->setString("text", "héllo");
    defaults->setData("blob", blob);
    defaults->setInteger("int", -42);
    defaults->setDouble("double", 2.5);
    defaults->setBool("bool", true);
    defaults->setDate("date", date);
    defaults->setString("gone", "x");
    ASSERT_TRUE(defaults->synchronize());
    defaults->removeObjectForKey("gone");
    ASSERT_TRUE(defaults->synchronize());
  }
  auto defaults = openDefaults(path);
  EXPECT_EQ(defaults->stringForKey("text"), "héllo");
  EXPECT_EQ(defaults->dataForKey("blob"), blob);
  EXPECT_EQ(defaults->integerForKey("int"), -42);
  EXPECT_EQ(defaults->doubleForKey("double"), 2.5);
  EXPECT_EQ(defaults->boolForKey("bool"), true);
  EXPECT_EQ(defaults->dateForKey("date"), date);
  EXPECT_FALSE(defaults->objectForKey("gone"));
  // A text is not a blob, an integer not a boolean.
  EXPECT_FALSE(defaults->dataForKey("text"));
  EXPECT_FALSE(defaults->stringForKey("blob"));
  EXPECT_FALSE(defaults->boolForKey("int"));
}

TEST(RKVUserDefaultsTest, AFailedWriteStaysPendingAndLosesNothingStored) {
  auto store = std::make_shared<RKVMemoryUserDefaultsStore>();
  RKVUserDefaults defaults(store);
  defaults.setString("kept", "one");
  ASSERT_TRUE(defaults.synchronize());

  defaults.setString("kept", "two");
  defaults.setString("new", "three");
  store->failNextWrites(1);
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(std::get<std::string>(store->entries().at("kept")), "one");
  EXPECT_FALSE(store->entries().count("new"));
  EXPECT_EQ(defaults.stringForKey("kept"), "two");  // memory has the newer value

  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(std::get<std::string>(store->entries().at("kept")), "two");
  EXPECT_EQ(std::get<std::string>(store->entries().at("new")), "three");
  EXPECT_TRUE(defaults.synchronize());  // nothing pending: no write
  EXPECT_EQ(store->writeCount(), 2);

  // A file that cannot be opened (a folder cannot be a database) fails its writes the same way.
  test::RKVTempDir dir;
  std::filesystem::create_directories(dir.file("a-folder"));
  test::RKVLogCapture log;
  auto folder = openDefaults(dir.file("a-folder"));
  folder->setString("k", "v");
  EXPECT_FALSE(folder->synchronize());
  EXPECT_EQ(folder->stringForKey("k"), "v");
  EXPECT_FALSE(log.errorMessages().empty());
}

// A file that is not a readable store of ours: an empty store, one error line, and saving works.
TEST(RKVUserDefaultsTest, AnUnreadableFileGivesAnEmptyStoreAndOneErrorAndSavingWorks) {
  const std::pair<const char*, void (*)(const std::string& path)> cases[] = {
      {"not SQLite",
       [](const std::string& path) { std::ofstream(path) << "this is not a database\n"; }},
      {"truncated",
       [](const std::string& path) {
         std::filesystem::resize_file(path, std::filesystem::file_size(path) / 3);
       }},
      {"garbled pages",
       [](const std::string& path) {
         std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
         file.seekp(4096);  // the second page onwards: the table's rows
         std::string noise(8192, '\x5a');
         file.write(noise.data(), static_cast<std::streamsize>(noise.size()));
       }},
  };
  for (const auto& [name, spoil] : cases) {
    SCOPED_TRACE(name);
    test::RKVTempDir dir;
    auto path = dir.file("defaults.sqlite");
    {
      auto defaults = openDefaults(path);
      for (int i = 0; i < 200; ++i)
        defaults->setString("key" + std::to_string(i), std::string(100, 'v'));
      ASSERT_TRUE(defaults->synchronize());
    }
    // Fold the journal into the file, so that spoiling the file spoils the data.
    std::filesystem::remove(path + "-wal");
    std::filesystem::remove(path + "-shm");
    spoil(path);

    test::RKVLogCapture log;
    auto defaults = openDefaults(path);
    EXPECT_TRUE(defaults->dictionaryRepresentation().empty());
    ASSERT_EQ(log.errorMessages().size(), 1u);
    EXPECT_NE(log.errorMessages()[0].find("cannot be read"), std::string::npos);
    defaults->setString("after", "saved");
    EXPECT_TRUE(defaults->synchronize());
    defaults.reset();
    EXPECT_EQ(openDefaults(path)->stringForKey("after"), "saved");
    EXPECT_EQ(log.errorMessages().size(), 1u);
  }
}

// A file that another connection holds locked past the busy time-out is busy, not unreadable:
// it stays where it is with everything it stores, and is read again once it is free.
TEST(RKVUserDefaultsTest, AFileHeldByAnotherConnectionIsNotSetAside) {
  test::RKVTempDir dir;
  auto path = dir.file("defaults.sqlite");
  {
    auto defaults = openDefaults(path);
    defaults->setString("kept", "yes");
    ASSERT_TRUE(defaults->synchronize());
  }
  std::string error;
  auto holder = internal::RKVSQLiteDatabase::open(path, false, &error);
  ASSERT_TRUE(holder) << error;
  ASSERT_TRUE(holder->exec("PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE", &error)) << error;
  {
    test::RKVLogCapture log;
    EXPECT_EQ(openDefaults(path)->stringForKey("kept"), std::nullopt);
    EXPECT_EQ(log.errorMessages().size(), 1u);
  }
  holder.reset();
  EXPECT_EQ(openDefaults(path)->stringForKey("kept"), "yes");
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(entry.path().filename().string().find(".corrupt-"), std::string::npos);
}

TEST(RKVUserDefaultsTest, ConcurrentSettersAndSynchronizersLoseNoKey) {
  test::RKVTempDir dir;
  auto path = dir.file("defaults.sqlite");
  {
    auto defaults = openDefaults(path);
    test::onThreads(4, [&](int t) {
      for (int i = 0; i < 50; ++i) {
        defaults->setInteger("t" + std::to_string(t) + "-" + std::to_string(i), i);
        EXPECT_TRUE(i % 10 != 0 || defaults->synchronize());
      }
    });
  }  // the destructor writes what is left
  EXPECT_EQ(openDefaults(path)->dictionaryRepresentation().size(), 200u);
}

TEST(RKVHashTest, MD5MatchesTheStandardVectors) {
  const std::pair<std::string, std::string> rows[] = {
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"The quick brown fox jumps over the lazy dog", "9e107d9d372bb6826bd81d3542a419d6"},
      {std::string("\0", 1), "93b885adfe0da089cdf634904fd59f71"},  // bytes, not a C string
      {"", ""},
  };
  for (const auto& [text, digest] : rows)
    EXPECT_EQ(RKVHash::md5(text), digest) << text;
}

TEST(RKVRandomTest, DrawsStayInTheHalfOpenRangeAndAnEmptyRangeIsReported) {
  std::set<uint32_t> seen;
  for (int i = 0; i < 300; ++i)
    seen.insert(RKVRandom::randomUnsignedIntWithMin(10, 13));
  EXPECT_EQ(seen, (std::set<uint32_t>{10, 11, 12}));  // one missing in 300 draws: 1 in 10^52
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(7, 8), 7u);
  EXPECT_LT(RKVRandom::randomUnsignedInt(), 4294967295u);
  if (build::kBuiltInDebug) {
    EXPECT_DEATH(RKVRandom::randomUnsignedIntWithMin(5, 5), "'min' must be smaller than 'max'!");
    return;
  }
  test::RKVLogCapture capture;
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(5, 5), 5u);
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(9, 2), 9u);
  EXPECT_EQ(capture.errorMessages(),
            std::vector<std::string>(2, "'min' must be smaller than 'max'!"));
}

TEST(RKVTCFStringTest, ValidityVersionAndTheOneLoggedFailure) {
  // Versions 0 and 3 and a lower-case "c" are invalid; padding, a space, base64 rather than
  // base64url and a non-ASCII letter are invalid and logged.
  const std::pair<std::optional<std::string>, std::string> rows[] = {
      {kTCFv2, "valid 2"},
      {kTCFv1, "valid 1"},
      {"C", "valid 2"},
      {"COw4XqLOw4XqLAAAAAENAXCAAAAAAAAAAAAAAAAAAAA_-_", "valid 2"},
      {"AOEFEAyOEFEAy", "invalid -1"},
      {"DOEFEAyOEFEAy", "invalid -1"},
      {"cOEFEAyOEFEAy", "invalid -1"},
      {"", "invalid -1"},
      {std::nullopt, "invalid -1"},
      {"COEFEAyOEFEAy=", "invalid -1 logged"},
      {"COEF EAy", "invalid -1 logged"},
      {"COEF+EAy/", "invalid -1 logged"},
      {"CÖEF", "invalid -1 logged"},
  };
  for (const auto& [text, outcome] : rows) {
    SCOPED_TRACE(text.value_or("(null)"));
    test::RKVLogCapture capture;
    const RKVTCFString consent(text);
    EXPECT_EQ(consent.TCFString(), text);  // kept even when invalid
    const bool logged = !capture.errorMessages().empty();
    EXPECT_EQ((consent.isValid() ? "valid " : "invalid ") +
                  std::to_string(static_cast<int>(consent.version())) + (logged ? " logged" : ""),
              outcome);
    if (logged) {
      EXPECT_EQ(capture.errorMessages(),
                std::vector<std::string>{"Consent string '" + *text +
                                         "' is invalid! An valid IAB consent string must be "
                                         "encoded in base64url without padding."});
    }
  }
}

TEST(RKVCCPAStringTest, OnlyOneThenThreeUpperCaseFlags) {
  const std::pair<std::optional<std::string>, bool> rows[] = {
      {"1YN-", true},  {"1---", true},   {"1NYY", true},  {"1yn-", false}, {"1YN", false},
      {"2YN-", false}, {"1YN--", false}, {"1YX-", false}, {"", false},     {std::nullopt, false},
  };
  for (const auto& [text, valid] : rows) {
    SCOPED_TRACE(text.value_or("(null)"));
    const RKVCCPAString consent(text);
    EXPECT_EQ(consent.CCPAString(), text);
    EXPECT_EQ(consent.isValid(), valid);
    EXPECT_EQ(consent.version(),
              valid ? RKVCCPAString::CCPAVersion::v1 : RKVCCPAString::CCPAVersion::invalid);
  }
  // The end index is excluded; indexes past the text are invalid characters.
  EXPECT_FALSE(RKVCCPAString::hasInvalidCharacters("1YNx", 1, 3));
  EXPECT_TRUE(RKVCCPAString::hasInvalidCharacters("1YNx", 1, 4));
  EXPECT_TRUE(RKVCCPAString::hasInvalidCharacters("1Y", 1, 4));
  EXPECT_FALSE(RKVCCPAString::hasInvalidCharacters("1Y", 3, 3));
}

// The production provider over memory defaults, a manual clock and a machine-id file of ours;
// the host's process-wide advertising facts are reset after each test.
class RKVIdentityTest : public ::testing::Test {
 protected:
  RKVIdentityTest() { std::ofstream(machineIDPath_) << kMachineID; }
  ~RKVIdentityTest() override {
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
  // The store's value under `key` (written through, not only in memory).
  std::optional<RKVUserDefaultsValue> stored(const char* key) const {
    const auto entries = store_->entries();
    const auto found = entries.find(key);
    return found == entries.end() ? std::nullopt : std::optional(found->second);
  }

  test::RKVTempDir dir_;
  std::string machineIDPath_ = dir_.file("machine-id");
  std::shared_ptr<RKVMemoryUserDefaultsStore> store_ =
      std::make_shared<RKVMemoryUserDefaultsStore>();
  std::shared_ptr<RKVUserDefaults> defaults_ = std::make_shared<RKVUserDefaults>(store_);
  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
};

// The provider reads consent from the defaults at each call, as texts only; the TCF key wins over
// the older one even when invalid.
TEST_F(RKVIdentityTest, ConsentKeysAreReadAsTextsAndTheTCFKeyWinsEvenWhenInvalid) {
  const RKVIdentity id = identity(false);
  const auto reader = provider();
  // The identity's TCF text and validity, then its and the provider's GDPR consent, then CCPA.
  auto consent = [&] {
    const auto tcf = id.TCFString();
    const auto ccpa = id.CCPAString();
    return (tcf ? *tcf->TCFString() + (tcf->isValid() ? "+" : "-") : "none") + " " +
           id.gdprConsentString().value_or("none") + " " +
           reader->gdprConsentString().value_or("none") + " " +
           (ccpa ? *ccpa->CCPAString() + (ccpa->isValid() ? "+" : "-") : "none");
  };
  EXPECT_EQ(consent(), "none none none none");
  const std::tuple<const char*, RKVUserDefaultsValue, const char*> steps[] = {
      {"IABConsent_ConsentString", "B1", "B1+ B1 B1 none"},
      {"IABTCF_TCString", "AAAA", "AAAA- AAAA AAAA none"},  // version 0: invalid
      {"IABTCF_TCString", int64_t{2}, "B1+ B1 B1 none"},
      {"IABConsent_ConsentString", true, "none none none none"},
      {"IABUSPrivacy_String", "1YN-", "none none none 1YN-+"},
      {"IABUSPrivacy_String", "1yn-", "none none none 1yn--"},
      {"IABUSPrivacy_String", int64_t{1}, "none none none none"},
  };
  for (const auto& [key, value, expected] : steps) {
    defaults_->setObject(key, value);
    EXPECT_EQ(consent(), expected) << key;
  }
}

TEST_F(RKVIdentityTest, PrecedenceIsCustomThenTransientThenAdvertisingThenNone) {
  constexpr const char* kAdID = "6d92078a-8246-4ba4-ae5b-76104861e7dc";
  constexpr const char* kAdIDUpper = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  constexpr const char* kTransient = "(a fresh transient identifier)";
  using T = RKVIdentityType;
  const std::nullopt_t none = std::nullopt;
  using Text = std::optional<std::string>;
  // The host's advertising identifier, limit and transient switches, the custom identifier; the
  // identity's type, text and advertising identifier, whether a transient identifier was set.
  // clang-format off
  const std::tuple<const char*, Text, bool, bool, Text, T, std::string, Text, bool> rows[] = {
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
  for (const auto& [name, adID, limited, transientOn, custom, type, text, ifa, transientSet] :
       rows) {
    SCOPED_TRACE(name);
    RKVIdentityProvider::setAdvertisingIdentifier(adID);
    RKVIdentityProvider::setLimitAdTracking(limited);
    defaults_->removeObjectForKey(kIDKey);
    defaults_->removeObjectForKey(kDateKey);

    const RKVIdentity id = identity(transientOn, custom);
    EXPECT_EQ(id.type(), type);
    EXPECT_EQ(id.ifa(), ifa);
    EXPECT_EQ(id.transientId().has_value(), transientSet);
    EXPECT_EQ(id.customIdentifier(), custom);
    if (text == kTransient) {
      // Upper-case 8-4-4-4-12 text of a random (version 4, RFC 4122 variant) UUID.
      EXPECT_TRUE(std::regex_match(id.identity(), std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                             "[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
          << id.identity();
      EXPECT_EQ(id.transientId(), id.identity());
    } else {
      EXPECT_EQ(id.identity(), text);
    }
    if (transientSet) {
      EXPECT_EQ(stored(kIDKey), RKVUserDefaultsValue(id.transientId().value_or("")));
      EXPECT_EQ(stored(kDateKey), RKVUserDefaultsValue(clock_->date()));
    } else {
      EXPECT_EQ(defaults_->objectForKey(kIDKey), std::nullopt);
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
    defaults_->setString(kIDKey, "stored");
    defaults_->setDate(kDateKey, generation);
    const std::string id = *identity(true).transientId();
    EXPECT_EQ(id == "stored", reused);
    // Reuse keeps the generation date; a new identifier is written through with the current one.
    EXPECT_EQ(defaults_->dateForKey(kDateKey), reused ? generation : now);
    if (!reused) {
      EXPECT_EQ(stored(kIDKey), RKVUserDefaultsValue(id));
      EXPECT_EQ(stored(kDateKey), RKVUserDefaultsValue(now));
    }
  }
  EXPECT_FALSE(RKVIdentity::isValidTransientIDWithGenerationDate(std::nullopt, now));

  // An identifier without its date, or a date stored as something else, is not reused.
  defaults_->setString(kIDKey, "stored");
  defaults_->removeObjectForKey(kDateKey);
  EXPECT_NE(identity(true).transientId(), "stored");
  defaults_->setString(kDateKey, "yesterday");
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
