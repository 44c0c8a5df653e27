#include <atomic>
#include <map>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "rkv/platform/RKVDeviceInfo.h"
#include "rkv/platform/RKVDeviceInfoProvider.h"
#include "rkv/platform/internal/RKVLinuxDeviceFacts.h"

namespace rkv {
namespace {

// A provider whose facts the test sets; the forwarded ones may change between calls.
class FakeProvider : public RKVDeviceInfoProviderProtocol {
 public:
  std::string platform = "AppleTV5,3";
  std::string system = "10.2";
  mutable std::atomic<int64_t> status{3};
  mutable std::atomic<int> addressCalls{0};

  std::string currentPlatform() const override { return platform; }
  std::string currentSystem() const override { return system; }
  bool deviceCanPlay360Videos() const override { return false; }
  std::string webviewUserAgent() const override { return "Fake UA"; }
  bool advertisingTrackingEnabled() const override { return true; }
  std::string IPAddress() const override { return "10.0.0." + std::to_string(++addressCalls); }
  std::string locale() const override { return "fr-FR"; }
  int64_t trackingAuthorizationStatus() const override { return status.load(); }
};

// The production rules over a system version the test chooses.
class FixedSystemProvider : public RKVDeviceInfoProvider {
 public:
  explicit FixedSystemProvider(std::string system) : system_(std::move(system)) {}
  std::string currentSystem() const override { return system_; }

 private:
  std::string system_;
};

TEST(RKVDeviceInfoTest, StoredFactsAreReadOnceForwardedOnesEveryCall) {
  auto provider = std::make_shared<FakeProvider>();
  const RKVDeviceInfo info(provider);
  EXPECT_EQ(info.platform(), "AppleTV5,3");
  EXPECT_EQ(info.systemVersion(), "10.2");
  EXPECT_FALSE(info.hasLowPerformances());
  EXPECT_FALSE(info.canPlay360Videos());
  EXPECT_EQ(info.userAgent(), "Fake UA");
  EXPECT_TRUE(info.advertisingTrackingEnabled());
  EXPECT_EQ(info.locale(), "fr-FR");

  provider->system = "11.0";
  provider->status = 2;
  EXPECT_EQ(info.systemVersion(), "10.2");
  EXPECT_EQ(info.trackingAuthorizationStatus(), 2);
  EXPECT_EQ(info.IPAddress(), "10.0.0.1");
  EXPECT_EQ(info.IPAddress(), "10.0.0.2");
}

TEST(RKVDeviceInfoTest, LowPerformanceModelsMatchExactly) {
  for (const char* model :
       {"iPod1,1", "iPod2,1", "iPod3,1", "iPod4,1", "iPod5,1", "iPhone1,1", "iPhone1,2",
        "iPhone2,1", "iPad1,1", "iPad2,1", "iPad2,5", "iPhone3,1", "iPhone4,1", "iPhone5,1",
        "iPhone5,2", "iPhone5,3", "iPhone5,4", "i386", "x86_64"}) {
    EXPECT_TRUE(RKVDeviceInfo::deviceHasLowPerformances(model)) << model;
  }
  for (const char* model :
       {"iPhone3,2", "iPad2,2", "iPod6,1", "X86_64", "x86_64 ", "aarch64", "AppleTV5,3", ""}) {
    EXPECT_FALSE(RKVDeviceInfo::deviceHasLowPerformances(model)) << model;
  }
  auto simulator = std::make_shared<FakeProvider>();
  simulator->platform = "x86_64";
  EXPECT_TRUE(RKVDeviceInfo(simulator).hasLowPerformances());
}

TEST(RKVDeviceInfoTest, ThreeSixtyVideosNeedSystemSevenNumerically) {
  const struct {
    const char* system;
    bool canPlay;
  } cases[] = {{"10.2", true}, {"7.0", true}, {"7.0.1", true},  {"12", true}, {"07.0", true},
               {"7.10", true}, {"7", false},  {"6.9.9", false}, {"", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(FixedSystemProvider(c.system).deviceCanPlay360Videos(), c.canPlay) << c.system;
    EXPECT_EQ(RKVDeviceInfo(std::make_shared<FixedSystemProvider>(c.system)).canPlay360Videos(),
              c.canPlay)
        << c.system;
  }
}

TEST(RKVDeviceInfoTest, TrackingFactsComeFromTheHost) {
  const RKVDeviceInfoProvider provider;
  EXPECT_EQ(provider.trackingAuthorizationStatus(), 0);
  EXPECT_FALSE(provider.advertisingTrackingEnabled());

  const struct {
    int64_t set;
    bool legacyFlag;
    int64_t status;
    bool tracking;
  } cases[] = {{3, false, 3, true},   {2, true, 2, false},  {1, true, 1, false},
               {7, true, 0, false},   {-2, true, 0, false}, {-1, true, -1, true},
               {-1, false, -1, false}};
  for (const auto& c : cases) {
    RKVDeviceInfoProvider::setTrackingAuthorizationStatus(c.set);
    RKVDeviceInfoProvider::setAdvertisingTrackingEnabled(c.legacyFlag);
    EXPECT_EQ(provider.trackingAuthorizationStatus(), c.status) << c.set;
    EXPECT_EQ(provider.advertisingTrackingEnabled(), c.tracking) << c.set;
  }
  RKVDeviceInfoProvider::setTrackingAuthorizationStatus(0);
  RKVDeviceInfoProvider::setAdvertisingTrackingEnabled(false);
}

TEST(RKVDeviceInfoTest, ProductionProviderGivesUsableFacts) {
  const RKVDeviceInfoProvider provider;
  EXPECT_FALSE(provider.currentPlatform().empty());
  EXPECT_FALSE(provider.currentSystem().empty());
  EXPECT_EQ(provider.webviewUserAgent(), "Apple TV");
  const std::string address = provider.IPAddress();
  in_addr parsed{};
  EXPECT_TRUE(address == "(no_ip_address)" || inet_pton(AF_INET, address.c_str(), &parsed) == 1)
      << address;
  EXPECT_TRUE(internal::languageTagFromLocaleName(provider.locale()).has_value())
      << provider.locale();
  const std::string agent = RKVDeviceInfoProvider::generateUserAgent();
  EXPECT_TRUE(agent.starts_with("Mozilla/5.0 (")) << agent;
  EXPECT_TRUE(agent.ends_with(" like Mac OS X; en-us)")) << agent;
  EXPECT_EQ(agent.find(" Simulator"), std::string::npos);
}

TEST(RKVDeviceInfoTest, OSReleaseVersion) {
  EXPECT_EQ(internal::osReleaseVersionID("NAME=\"Debian\"\nVERSION_ID=\"12\"\n"), "12");
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID=22.04"), "22.04");
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID='3.19.1'  \n"), "3.19.1");
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID=\"a\\\"b\""), "a\"b");
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID=1\nVERSION_ID=2\n"), "2");
  EXPECT_EQ(internal::osReleaseVersionID("# VERSION_ID=1\nVERSION=\"12\"\n"), std::nullopt);
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID=\"\""), std::nullopt);
  EXPECT_EQ(internal::osReleaseVersionID("VERSION_ID=\"unterminated"), "unterminated");
  EXPECT_EQ(internal::osReleaseVersionID(""), std::nullopt);
}

TEST(RKVDeviceInfoTest, DefaultRouteInterface) {
  const char* header =
      "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
  EXPECT_EQ(
      internal::defaultRouteInterface(
          std::string(header) + "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                                "wlan0\t00000000\t010200C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
                                "eth1\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                                "eth2\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"),
      "eth1");
  // Only non-default routes, a route that is down, or garbage: none.
  EXPECT_EQ(internal::defaultRouteInterface(
                std::string(header) + "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                                      "eth2\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"
                                      "eth3\tzz\t010200C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"
                                      "eth4\t00000000\n"),
            std::nullopt);
  EXPECT_EQ(internal::defaultRouteInterface(""), std::nullopt);
  // The first line is the header, whatever it says.
  EXPECT_EQ(internal::defaultRouteInterface(
                "eth0\t00000000\t010200C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"),
            std::nullopt);
}

TEST(RKVDeviceInfoTest, LoopbackAddress) {
  const auto loopback = internal::IPv4AddressOfInterface("lo");
  if (!loopback) GTEST_SKIP() << "no IPv4 loopback interface here";
  EXPECT_EQ(*loopback, "127.0.0.1");
  EXPECT_EQ(internal::IPv4AddressOfInterface("no-such-interface0"), std::nullopt);
}

TEST(RKVDeviceInfoTest, LanguageTags) {
  const struct {
    const char* name;
    std::optional<std::string> tag;
  } cases[] = {{"fr_FR.UTF-8", "fr-FR"},    {"de_DE@euro", "de-DE"},  {"en", "en"},
               {"pt_BR.utf8@x", "pt-BR"},   {"es_419", "es-419"},     {"C", std::nullopt},
               {"C.UTF-8", std::nullopt},   {"POSIX", std::nullopt},  {"", std::nullopt},
               {"x", std::nullopt},         {"fr__FR", std::nullopt}, {"fr_", std::nullopt},
               {"../../etc", std::nullopt}, {"12_FR", std::nullopt}};
  for (const auto& c : cases) {
    EXPECT_EQ(internal::languageTagFromLocaleName(c.name), c.tag) << c.name;
  }
}

TEST(RKVDeviceInfoTest, PreferredLanguagePrecedence) {
  const auto lookUp = [](std::map<std::string, std::string> environment) {
    return internal::preferredLanguage([environment](const char* name) -> const char* {
      auto it = environment.find(name);
      return it == environment.end() ? nullptr : it->second.c_str();
    });
  };
  EXPECT_EQ(lookUp({{"LANG", "it_IT.UTF-8"}}), "it-IT");
  EXPECT_EQ(lookUp({{"LANG", "it_IT.UTF-8"}, {"LC_MESSAGES", "nl_NL"}}), "nl-NL");
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LC_MESSAGES", "nl_NL"}, {"LC_ALL", "sv_SE"}}), "sv-SE");
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LANGUAGE", "C:pl_PL:de"}}), "pl-PL");
  // The first variable that is set decides, even when it names no language.
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LC_ALL", "C"}}), std::nullopt);
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LC_ALL", ""}}), "it-IT");
  EXPECT_EQ(lookUp({}), std::nullopt);
}

}  // namespace
}  // namespace rkv
