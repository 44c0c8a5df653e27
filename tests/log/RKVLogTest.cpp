#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDefaultDataSource.h"
#include "rkv/log/RKVLogDefaultOutput.h"

namespace rkv {
namespace {

struct Line {
  std::string message;
  int64_t level;
  std::string tag;
  friend bool operator==(const Line&, const Line&) = default;
};

class CapturingOutput : public RKVLogOutput {
 public:
  void logMessage(std::string_view message, int64_t level, std::string_view tag) override {
    std::lock_guard lock(mutex_);
    lines_.push_back({std::string(message), level, std::string(tag)});
  }
  std::vector<Line> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

// Answers true for the given levels and remembers what it was asked.
class LevelDataSource : public RKVLogDataSource {
 public:
  explicit LevelDataSource(std::set<int64_t> allowed) : allowed_(std::move(allowed)) {}
  bool shouldLogMessageWithLevel(const RKVLog& log, int64_t level) override {
    std::lock_guard lock(mutex_);
    asked_.push_back(level);
    lastLog_ = &log;
    return allowed_.count(level) > 0;
  }
  std::vector<int64_t> asked() const {
    std::lock_guard lock(mutex_);
    return asked_;
  }
  const RKVLog* lastLog() const {
    std::lock_guard lock(mutex_);
    return lastLog_;
  }

 private:
  mutable std::mutex mutex_;
  std::set<int64_t> allowed_;
  std::vector<int64_t> asked_;
  const RKVLog* lastLog_ = nullptr;
};

std::vector<int64_t> levelsOf(const std::vector<Line>& lines) {
  std::vector<int64_t> levels;
  for (const auto& line : lines)
    levels.push_back(line.level);
  return levels;
}

void logAllLevels(RKVLog& log) {
  log.logDebug("d");
  log.logInfo("i");
  log.logError("e");
  log.logWarning("w");
}

TEST(RKVLogTest, DebugIsDecidedByTheSwitchAloneOthersByTheDataSource) {
  auto output = std::make_shared<CapturingOutput>();
  auto everything = std::make_shared<LevelDataSource>(std::set<int64_t>{0, 1, 2, 3});
  RKVLog log("Tag", everything, output, false);
  logAllLevels(log);
  EXPECT_EQ(levelsOf(output->lines()), (std::vector<int64_t>{1, 2, 3}));
  EXPECT_EQ(everything->asked(), (std::vector<int64_t>{1, 2, 3}));  // never asked about debug
  EXPECT_EQ(everything->lastLog(), &log);

  auto nothing = std::make_shared<LevelDataSource>(std::set<int64_t>{});
  log.setDataSource(nothing);
  log.setDebugLoggingEnabled(true);
  logAllLevels(log);
  EXPECT_EQ(levelsOf(output->lines()), (std::vector<int64_t>{1, 2, 3, 0}));
  EXPECT_EQ(output->lines().back(), (Line{"d", 0, "Tag"}));
}

TEST(RKVLogTest, ErrorIsLevelTwoAndWarningLevelThree) {
  auto output = std::make_shared<CapturingOutput>();
  RKVLog log("Tag", std::make_shared<LevelDataSource>(std::set<int64_t>{2}), output, true);
  log.logError("bad");
  log.logWarning("odd");
  log.logInfo("fyi");
  EXPECT_EQ(output->lines(), (std::vector<Line>{{"bad", 2, "Tag"}}));
  EXPECT_TRUE(log.isLoggingEnabledForLevel(2));
  EXPECT_FALSE(log.isLoggingEnabledForLevel(3));
}

TEST(RKVLogTest, UnknownLevelsPassThroughTheDataSource) {
  auto output = std::make_shared<CapturingOutput>();
  auto source = std::make_shared<LevelDataSource>(std::set<int64_t>{7});
  RKVLog log("Tag", source, output, true);
  log.logMessage("seven", 7);
  log.logMessage("minus", -1);
  EXPECT_EQ(output->lines(), (std::vector<Line>{{"seven", 7, "Tag"}}));
  EXPECT_EQ(source->asked(), (std::vector<int64_t>{7, -1}));
  // logMessage without a level is a debug message.
  log.logMessage("plain");
  EXPECT_EQ(output->lines().back(), (Line{"plain", 0, "Tag"}));
}

TEST(RKVLogTest, DefaultSetupWritesOnlyDebugAndOnlyWhenEnabled) {
  RKVLog defaults("Tag", nullptr, false);
  EXPECT_EQ(defaults.dataSource(), RKVLogDefaultDataSource::sharedInstance());
  EXPECT_EQ(defaults.output(), RKVLogDefaultOutput::sharedInstance());
  RKVLog withNulls("Tag", nullptr, nullptr, true);
  EXPECT_EQ(withNulls.dataSource(), RKVLogDefaultDataSource::sharedInstance());
  EXPECT_EQ(withNulls.output(), RKVLogDefaultOutput::sharedInstance());

  for (int64_t level : {0, 1, 2, 3, 4, 7, -1}) {
    EXPECT_FALSE(defaults.isLoggingEnabledForLevel(level)) << level;
  }
  auto output = std::make_shared<CapturingOutput>();
  defaults.setOutput(output);
  logAllLevels(defaults);
  EXPECT_TRUE(output->lines().empty());
  defaults.setDebugLoggingEnabled(true);
  logAllLevels(defaults);
  EXPECT_EQ(levelsOf(output->lines()), (std::vector<int64_t>{0}));

  // Without a data source or an output nothing is written and nothing breaks.
  defaults.setDataSource(nullptr);
  defaults.setOutput(nullptr);
  EXPECT_FALSE(defaults.isLoggingEnabledForLevel(2));
  logAllLevels(defaults);
}

TEST(RKVLogTest, SharedInstanceFollowsTheBuild) {
  const auto log = RKVLog::sharedInstance();
  EXPECT_EQ(log, RKVLog::sharedInstance());
  EXPECT_EQ(log->tag(), "RKVCoreKit");
  EXPECT_EQ(log->isDebugLoggingEnabled(), build::kBuiltInDebug);
  EXPECT_EQ(log->dataSource(), RKVLogDefaultDataSource::sharedInstance());
  EXPECT_EQ(log->output(), RKVLogDefaultOutput::sharedInstance());
}

TEST(RKVLogTest, FormattedMessages) {
  auto output = std::make_shared<CapturingOutput>();
  RKVLog log("Tag", std::make_shared<LevelDataSource>(std::set<int64_t>{1, 2, 3}), output, true);
  const std::optional<std::string> absent;
  log.logDebugWithFormat("Event '{}' is {}", "start", 5);
  log.logInfoWithFormat("{}/{}", RKVUtils::nullableDescription(absent), 2.5);
  log.logErrorWithFormat("code={}", int64_t{-9000000000});
  log.logWarningWithFormat("{{}}");
  EXPECT_EQ(output->lines(), (std::vector<Line>{{"Event 'start' is 5", 0, "Tag"},
                                                {"(null)/2.5", 1, "Tag"},
                                                {"code=-9000000000", 2, "Tag"},
                                                {"{}", 3, "Tag"}}));
}

TEST(RKVLogTest, StackTraceIsOneMessageOfFrames) {
  auto output = std::make_shared<CapturingOutput>();
  RKVLog log("Tag", std::make_shared<LevelDataSource>(std::set<int64_t>{2}), output, false);
  log.logStackTrack();  // debug is off
  EXPECT_TRUE(output->lines().empty());
  log.logStackTrackWithLevel(2);
  ASSERT_EQ(output->lines().size(), 1u);
  const std::string trace = output->lines()[0].message;
  EXPECT_TRUE(trace.starts_with("\n\t"));
  size_t frames = 0;
  for (size_t at = trace.find("\n\t"); at != std::string::npos; at = trace.find("\n\t", at + 2)) {
    ++frames;
  }
  EXPECT_GE(frames, 3u);  // this test, GoogleTest, main at least
  EXPECT_EQ(trace.find("\n\t\n\t"), std::string::npos);
}

TEST(RKVLogTest, PropertiesCanBeSwappedWhileOtherThreadsLog) {
  auto first = std::make_shared<CapturingOutput>();
  auto second = std::make_shared<CapturingOutput>();
  auto all = std::make_shared<LevelDataSource>(std::set<int64_t>{1});
  RKVLog log("A", all, first, true);
  constexpr int kThreads = 4;
  constexpr int kMessages = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&log] {
      for (int i = 0; i < kMessages; ++i)
        log.logInfo("x");
    });
  }
  for (int i = 0; i < 100; ++i) {
    log.setOutput(i % 2 ? first : second);
    log.setTag(i % 2 ? "A" : "B");
    log.setDataSource(all);
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(first->lines().size() + second->lines().size(), size_t{kThreads * kMessages});
}

RKVLogDefaultOutput fixedOutput(std::FILE* stream) {
  const auto at =
      std::chrono::system_clock::time_point(std::chrono::seconds(14 * 3600 + 3 * 60 + 59));
  return RKVLogDefaultOutput(
      stream, [at] { return at; }, RKVCalendar::withUTCOffset(std::chrono::seconds(0)));
}

TEST(RKVLogDefaultOutputTest, LineFormat) {
  const RKVLogDefaultOutput output = fixedOutput(nullptr);
  EXPECT_EQ(output.currentTime(), "14:03:59");
  const struct {
    int64_t level;
    const char* line;
  } cases[] = {
      {0, "14:03:59 RKVCoreKit[DEBUG] Failed"},  {1, "14:03:59 RKVCoreKit[INFO] Failed"},
      {2, "14:03:59 RKVCoreKit[ERROR] Failed"},  {3, "14:03:59 RKVCoreKit[WARNING] Failed"},
      {7, "14:03:59 RKVCoreKit[(null)] Failed"}, {-1, "14:03:59 RKVCoreKit[(null)] Failed"}};
  for (const auto& c : cases) {
    EXPECT_EQ(output.generateLog("Failed", c.level, "RKVCoreKit"), c.line);
  }
  EXPECT_EQ(output.generateLog("", 1, ""), "14:03:59 [INFO] ");
}

TEST(RKVLogDefaultOutputTest, WritesOneLinePerMessage) {
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&buffer, &size);
  ASSERT_NE(stream, nullptr);
  {
    RKVLogDefaultOutput output = fixedOutput(stream);
    output.logMessage("first", 3, "T");
    output.logMessage("multi\nline", 0, "T");
    output.logMessage(std::string_view("cut\0here", 8), 1, "T");
  }
  std::fclose(stream);
  EXPECT_EQ(std::string(buffer, size),
            "14:03:59 T[WARNING] first\n14:03:59 T[DEBUG] multi\nline\n14:03:59 T[INFO] cut\n");
  std::free(buffer);

  // Without a stream nothing is written.
  RKVLogDefaultOutput silent = fixedOutput(nullptr);
  silent.logMessage("nowhere", 1, "T");
}

}  // namespace
}  // namespace rkv
