#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/RKVBuildInfo.h"

#include "tools/rkv/RKVCommandLine.h"

namespace rkv::cli {
namespace {

struct Result {
  int status;
  std::string out;
  std::string err;
};

Result runTool(std::vector<const char*> args) {
  args.insert(args.begin(), "rkv");
  std::ostringstream out;
  std::ostringstream err;
  const int status = run(static_cast<int>(args.size()), args.data(), out, err);
  return {status, out.str(), err.str()};
}

TEST(RKVCommandLineTest, VersionAndHelp) {
  const Result version = runTool({"--version"});
  EXPECT_EQ(version.status, kExitSuccess);
  EXPECT_EQ(version.out, std::string("RKVCoreKit ") + build::kVersion + " (revision 204)\n");

  for (const auto& args : {std::vector<const char*>{"--help"}, std::vector<const char*>{}}) {
    const Result help = runTool(args);
    EXPECT_EQ(help.status, kExitSuccess);
    EXPECT_NE(help.out.find("--version"), std::string::npos);
    EXPECT_NE(help.out.find("errors"), std::string::npos);  // every registered subcommand
  }

  const Result unknown = runTool({"no-such-command"});
  EXPECT_EQ(unknown.status, kExitUsage);
  EXPECT_TRUE(unknown.out.empty());
  EXPECT_FALSE(unknown.err.empty());
}

TEST(RKVCommandLineTest, ErrorsListsTheCatalogueAsJSON) {
  const Result all = runTool({"errors"});
  ASSERT_EQ(all.status, kExitSuccess) << all.err;
  const auto list = nlohmann::json::parse(all.out);
  ASSERT_EQ(list.size(), 45u);
  EXPECT_EQ(list[0]["name"], "XML_PARSING_ERROR");
  EXPECT_EQ(list[0]["vireoCode"], 100001);

  // A code matches the VAST code or the vendor code.
  const Result some = runTool({"errors", "301", "10000301"});
  ASSERT_EQ(some.status, kExitSuccess) << some.err;
  std::vector<int64_t> vendorCodes;
  for (const auto& entry : nlohmann::json::parse(some.out))
    vendorCodes.push_back(entry["vireoCode"]);
  EXPECT_EQ(vendorCodes, (std::vector<int64_t>{101006, 301001, 301002, 301003, 10000301}));

  const Result none = runTool({"errors", "7"});
  EXPECT_EQ(none.status, kExitFailure);
  EXPECT_TRUE(none.out.empty());
  EXPECT_EQ(runTool({"errors", "seven"}).status, kExitUsage);
}

}  // namespace
}  // namespace rkv::cli
