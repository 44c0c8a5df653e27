#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDefaultOutput.h"

// Counts how often it is formatted.
struct CountedArgument {
  int* formats;
};

template <>
struct fmt::formatter<CountedArgument> : fmt::formatter<int> {
  template <typename FormatContext>
  auto format(const CountedArgument& argument, FormatContext& context) const {
    return fmt::formatter<int>::format(++*argument.formats, context);
  }
};

namespace rkv {
namespace {

using Lines = std::vector<std::string>;

// A data source allowing the given levels and remembering what it was asked, and an output
// recording "<level>:<tag>:<message>" lines.
class Recorder : public RKVLogDataSource, public RKVLogOutput {
 public:
  explicit Recorder(std::set<int64_t> allowed = {}) : allowed_(std::move(allowed)) {}
  bool shouldLogMessageWithLevel(const RKVLog&, int64_t level) override {
    asked.push_back(std::to_string(level));
    return allowed_.count(level) > 0;
  }
  void logMessage(std::string_view message, int64_t level, std::string_view tag) override {
    lines.push_back(std::to_string(level) + ":" + std::string(tag) + ":" + std::string(message));
  }
  const std::set<int64_t> allowed_;
  Lines asked, lines;
};

void logAllLevels(RKVLog& log) {
  log.logDebug("d");
  log.logInfo("i");
  log.logError("e");
  log.logWarning("w");
}

TEST(RKVLogTest, DebugIsDecidedByTheSwitchAloneOthersByTheDataSource) {
  auto output = std::make_shared<Recorder>(std::set<int64_t>{0, 2, 3, 7});
  RKVLog log("Tag", output, output, false);
  logAllLevels(log);
  log.logMessage("seven", 7);
  EXPECT_EQ(output->lines, (Lines{"2:Tag:e", "3:Tag:w", "7:Tag:seven"}));
  EXPECT_EQ(output->asked, (Lines{"1", "2", "3", "7"}));  // never asked about debug
  log.setDebugLoggingEnabled(true);
  log.logMessage("plain");  // without a level: debug
  EXPECT_EQ(output->lines.back(), "0:Tag:plain");

  // The default data source lets only debug through, and only when enabled.
  EXPECT_EQ(RKVLog::sharedInstance()->isDebugLoggingEnabled(), build::kBuiltInDebug);
  RKVLog defaults("Tag", nullptr, output, true);
  logAllLevels(defaults);
  EXPECT_EQ(output->lines.back(), "0:Tag:d");
  EXPECT_EQ(output->lines.size(), 5u);
  // Without a data source or an output nothing is written and nothing breaks.
  defaults.setDataSource(nullptr);
  defaults.setOutput(nullptr);
  logAllLevels(defaults);
}

TEST(RKVLogTest, AFormattedMessageIsBuiltOnlyWhenItsLevelIsWritten) {
  auto output = std::make_shared<Recorder>(std::set<int64_t>{2});
  RKVLog log("Tag", output, output, false);
  int formats = 0;
  const CountedArgument argument{&formats};
  log.logDebugWithFormat("d{}", argument);
  log.logInfoWithFormat("i{}", argument);
  log.logWarningWithFormat("w{}", argument);
  EXPECT_EQ(formats, 0) << "a silenced level was formatted";
  log.logErrorWithFormat("e{}", argument);
  log.setDebugLoggingEnabled(true);
  log.logDebugWithFormat("d{}", argument);
  EXPECT_EQ(formats, 2);
  EXPECT_EQ(output->lines, (Lines{"2:Tag:e1", "0:Tag:d2"}));
}

TEST(RKVLogDefaultOutputTest, WritesOneFormattedLinePerMessage) {
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&buffer, &size);
  ASSERT_NE(stream, nullptr);
  const auto at = std::chrono::system_clock::time_point(std::chrono::seconds(14 * 3600 + 239));
  {
    RKVLogDefaultOutput output(
        stream, [at] { return at; }, RKVCalendar::withUTCOffset(std::chrono::seconds(0)));
    const char* names[] = {"DEBUG", "INFO", "ERROR", "WARNING"};
    for (int64_t level = 0; level < 4; ++level)
      EXPECT_EQ(output.generateLog("Failed", level, "RKVCoreKit"),
                std::string("14:03:59 RKVCoreKit[") + names[level] + "] Failed");
    output.logMessage("multi\nline", 3, "T");
    output.logMessage(std::string_view("cut\0here", 8), 1, "T");
  }
  std::fclose(stream);
  EXPECT_EQ(std::string(buffer, size), "14:03:59 T[WARNING] multi\nline\n14:03:59 T[INFO] cut\n");
  std::free(buffer);
}

}  // namespace
}  // namespace rkv
