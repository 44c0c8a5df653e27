#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/platform/RKVAppInfo.h"
#include "rkv/platform/RKVFrameworkInfo.h"

namespace rkv {
namespace {

TEST(RKVAppInfoTest, NamesFallBackInOrder) {
  const RKVAppInfo full({"Display", "Bundle", "2.1", "com.example.app"});
  EXPECT_EQ(full.appName(), "Display");
  EXPECT_EQ(full.appVersion(), "2.1");
  EXPECT_EQ(full.appBundleIdentifier(), "com.example.app");

  EXPECT_EQ(RKVAppInfo({std::nullopt, "Bundle", std::nullopt, std::nullopt}).appName(), "Bundle");
  // A present but empty display name is still the display name.
  EXPECT_EQ(RKVAppInfo({"", "Bundle", std::nullopt, std::nullopt}).appName(), "");

  const RKVAppInfo none(RKVMainBundleInfo{});
  EXPECT_EQ(none.appName(), "(unknown)");
  EXPECT_EQ(none.appVersion(), "(unknown)");
  EXPECT_EQ(none.appBundleIdentifier(), "(unknown)");
}

TEST(RKVAppInfoTest, HostFactsAreTakenUntilFirstUse) {
  EXPECT_TRUE(RKVAppInfo::setMainBundleInfo({std::nullopt, "First", "1", "com.example.first"}));
  EXPECT_TRUE(RKVAppInfo::setMainBundleInfo({std::nullopt, "Tool", "3", "com.example.tool"}));
  const auto shared = RKVAppInfo::sharedInstance();
  EXPECT_EQ(shared->appName(), "Tool");
  EXPECT_FALSE(RKVAppInfo::setMainBundleInfo({"Late", "Late", "9", "com.example.late"}));
  EXPECT_EQ(RKVAppInfo::sharedInstance(), shared);
  EXPECT_EQ(RKVAppInfo::sharedInstance()->appVersion(), "3");
}

TEST(RKVAppInfoTest, FrameworkFacts) {
  const auto info = RKVFrameworkInfo::sharedInstance();
  EXPECT_EQ(info->frameworkName(), "RKVCoreKit");
  EXPECT_EQ(info->frameworkBundleIdentifier(), "com.vireohub.RKVCoreKitTV");
  EXPECT_EQ(info->frameworkRevisionString(), "204");
  EXPECT_EQ(info->frameworkVersionString(), build::kVersion);
  EXPECT_FALSE(info->frameworkVersionString().empty());
  EXPECT_EQ(info->frameworkBuiltInDebug(), build::kBuiltInDebug);
  EXPECT_EQ(RKVFrameworkInfo::sharedInstance(), info);
}

}  // namespace
}  // namespace rkv
