// The device and application facts, and the application state the host reports with the
// foreground notification it posts.

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/platform/RKVAppInfo.h"
#include "rkv/platform/RKVApplication.h"
#include "rkv/platform/RKVDeviceInfo.h"
#include "rkv/platform/RKVDeviceInfoProvider.h"
#include "rkv/platform/internal/RKVLinuxDeviceFacts.h"

namespace rkv {
namespace {

using std::nullopt;

// The production rules over facts the test sets; the forwarded ones may change between calls.
class FakeProvider : public RKVDeviceInfoProvider {
 public:
  std::string system = "10.2";
  mutable std::atomic<int> addressCalls{0};

  std::string currentPlatform() const override { return "AppleTV5,3"; }
  std::string currentSystem() const override { return system; }
  std::string IPAddress() const override { return "10.0.0." + std::to_string(++addressCalls); }
};

TEST(RKVDeviceInfoTest, FactsDerivedFromThePlatformAndTheSystem) {
  auto provider = std::make_shared<FakeProvider>();
  const RKVDeviceInfo info(provider);
  provider->system = "11.0";
  EXPECT_EQ(info.systemVersion(), "10.2") << "stored facts are read once";
  EXPECT_EQ(info.IPAddress(), "10.0.0.1");
  EXPECT_EQ(info.IPAddress(), "10.0.0.2") << "forwarded facts are read on every call";

  for (const char* model : {"iPod5,1", "iPhone1,2", "iPad2,5", "iPhone5,4", "i386", "x86_64"})
    EXPECT_TRUE(RKVDeviceInfo::deviceHasLowPerformances(model)) << model;
  for (const char* model : {"iPhone3,2", "iPad2,2", "iPod6,1", "X86_64", "x86_64 ", "aarch64"})
    EXPECT_FALSE(RKVDeviceInfo::deviceHasLowPerformances(model)) << model;
  // 360 videos need system 7, compared numerically.
  for (const auto& [system, canPlay] :
       {std::pair{"07.0", true}, {"7.10", true}, {"7", false}, {"6.9.9", false}}) {
    provider->system = system;
    EXPECT_EQ(RKVDeviceInfo(provider).canPlay360Videos(), canPlay) << system;
  }

  // Tracking facts come from the host: set status, legacy flag; status read, tracking enabled.
  const std::tuple<int64_t, bool, int64_t, bool> cases[] = {
      {3, false, 3, true},  {2, true, 2, false},    {7, true, 0, false},
      {-1, true, -1, true}, {-1, false, -1, false},
  };
  for (const auto& [set, legacyFlag, status, tracking] : cases) {
    RKVDeviceInfoProvider::setTrackingAuthorizationStatus(set);
    RKVDeviceInfoProvider::setAdvertisingTrackingEnabled(legacyFlag);
    EXPECT_EQ(info.trackingAuthorizationStatus(), status) << set;
    EXPECT_EQ(RKVDeviceInfoProvider().advertisingTrackingEnabled(), tracking) << set;
  }
  RKVDeviceInfoProvider::setTrackingAuthorizationStatus(0);
  RKVDeviceInfoProvider::setAdvertisingTrackingEnabled(false);
}

TEST(RKVDeviceInfoTest, SystemFilesAndEnvironment) {
  // The production provider reads this machine: an IPv4 address, a locale that is a language.
  const RKVDeviceInfoProvider provider;
  in_addr parsed{};
  EXPECT_TRUE(provider.IPAddress() == "(no_ip_address)" ||
              inet_pton(AF_INET, provider.IPAddress().c_str(), &parsed) == 1);
  EXPECT_TRUE(internal::languageTagFromLocaleName(provider.locale())) << provider.locale();
  EXPECT_EQ(internal::IPv4AddressOfInterface("no-such-interface0"), nullopt);

  const std::pair<const char*, std::optional<std::string>> osRelease[] = {
      {"VERSION_ID='3.19.1'  \n", "3.19.1"},
      {"VERSION_ID=1\nVERSION_ID=2\n", "2"},
      {"# VERSION_ID=1\nVERSION=\"12\"\n", nullopt},
  };
  for (const auto& [text, version] : osRelease)
    EXPECT_EQ(internal::osReleaseVersionID(text), version) << text;

  // The first line is a header, whatever it says; the up default route of lowest metric wins.
  const std::string header = "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\n";
  const std::string notDefault = "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
  const std::string down = "eth2\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n";
  const std::string routes = header + notDefault +
                             "wlan0\t00000000\t010200C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
                             "eth1\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n" +
                             down;
  EXPECT_EQ(internal::defaultRouteInterface(routes), "eth1");
  EXPECT_EQ(internal::defaultRouteInterface(header + notDefault + down + "eth4\t00000000\n"),
            nullopt);

  const std::pair<const char*, std::optional<std::string>> locales[] = {
      {"pt_BR.utf8@x", "pt-BR"}, {"es_419", "es-419"},   {"C.UTF-8", nullopt},
      {"fr__FR", nullopt},       {"../../etc", nullopt},
  };
  for (const auto& [name, tag] : locales)
    EXPECT_EQ(internal::languageTagFromLocaleName(name), tag) << name;

  const auto lookUp = [](std::map<std::string, std::string> environment) {
    return internal::preferredLanguage([environment](const char* name) -> const char* {
      auto it = environment.find(name);
      return it == environment.end() ? nullptr : it->second.c_str();
    });
  };
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LANGUAGE", "C:pl_PL:de"}}), "pl-PL");
  // The first variable that is set decides, even when it names no language.
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LC_ALL", "C"}}), nullopt);
  EXPECT_EQ(lookUp({{"LANG", "it_IT"}, {"LC_ALL", ""}}), "it-IT");
}

TEST(RKVAppInfoTest, NamesFallBackInOrderAndHostFactsAreTakenUntilFirstUse) {
  EXPECT_EQ(RKVAppInfo({nullopt, "Bundle", nullopt, nullopt}).appName(), "Bundle");
  EXPECT_EQ(RKVAppInfo({"", "Bundle", nullopt, nullopt}).appName(), "");  // empty is a name
  EXPECT_EQ(RKVAppInfo(RKVMainBundleInfo{}).appVersion(), "(unknown)");

  EXPECT_TRUE(RKVAppInfo::setMainBundleInfo({nullopt, "Tool", "3", "com.example.tool"}));
  EXPECT_EQ(RKVAppInfo::sharedInstance()->appName(), "Tool");
  EXPECT_FALSE(RKVAppInfo::setMainBundleInfo({"Late", "Late", "9", "com.example.late"}));
  EXPECT_EQ(RKVAppInfo::sharedInstance()->appVersion(), "3");
}

TEST(RKVApplicationTest, LeavingTheBackgroundPostsTheForegroundNotificationOnce) {
  RKVNotificationCenter center;
  RKVApplication application(center);
  EXPECT_EQ(application.applicationState(), RKVApplicationStateActive);
  std::vector<int64_t> seen;  // the state observers find when notified
  center.addObserver(
      std::string(RKVApplicationWillEnterForegroundNotification),
      [&](const RKVNotification&) { seen.push_back(application.applicationState()); });
  // Each step: the new state, and whether it posts.
  const std::pair<int64_t, bool> steps[] = {
      {RKVApplicationStateInactive, false},   {RKVApplicationStateBackground, false},
      {RKVApplicationStateBackground, false}, {RKVApplicationStateInactive, true},
      {RKVApplicationStateActive, false},     {RKVApplicationStateBackground, false},
      {RKVApplicationStateActive, true},
  };
  std::vector<int64_t> expected;
  for (const auto& [state, posts] : steps) {
    application.setApplicationState(state);
    if (posts) expected.push_back(state);
    EXPECT_EQ(seen, expected) << "after moving to " << state;
  }
}

}  // namespace
}  // namespace rkv
