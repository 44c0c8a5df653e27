#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDefaultDataSource.h"
#include "rkv/log/RKVLogDefaultOutput.h"

namespace rkv {
namespace {

using Levels = std::vector<int64_t>;

// A data source allowing the given levels and remembering what it was asked, and an output
// recording "<level>:<tag>:<message>" lines.
class Recorder : public RKVLogDataSource, public RKVLogOutput {
 public:
  explicit Recorder(std::set<int64_t> allowed = {}) : allowed_(std::move(allowed)) {}
  bool shouldLogMessageWithLevel(const RKVLog&, int64_t level) override {
    std::lock_guard lock(mutex_);
    asked_.push_back(level);
    return allowed_.count(level) > 0;
  }
  void logMessage(std::string_view message, int64_t level, std::string_view tag) override {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::to_string(level) + ":" + std::string(tag) + ":" + std::string(message));
  }
  Levels asked() const {
    std::lock_guard lock(mutex_);
    return asked_;
  }
  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::set<int64_t> allowed_;
  Levels asked_;
  std::vector<std::string> lines_;
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
  log.logMessage("minus", -1);
  EXPECT_EQ(output->lines(), (std::vector<std::string>{"2:Tag:e", "3:Tag:w", "7:Tag:seven"}));
  EXPECT_EQ(output->asked(), (Levels{1, 2, 3, 7, -1}));  // never asked about debug
  EXPECT_TRUE(log.isLoggingEnabledForLevel(2));
  EXPECT_FALSE(log.isLoggingEnabledForLevel(1));

  log.setDataSource(std::make_shared<Recorder>());
  log.setDebugLoggingEnabled(true);
  logAllLevels(log);
  log.logMessage("plain");  // without a level: debug
  EXPECT_EQ(output->lines().size(), 5u);
  EXPECT_EQ(output->lines().back(), "0:Tag:plain");
}

TEST(RKVLogTest, DefaultsWriteOnlyDebugAndOnlyWhenEnabled) {
  const auto shared = RKVLog::sharedInstance();
  EXPECT_EQ(shared->tag(), "RKVCoreKit");
  EXPECT_EQ(shared->isDebugLoggingEnabled(), build::kBuiltInDebug);
  EXPECT_EQ(shared->dataSource(), RKVLogDefaultDataSource::sharedInstance());
  EXPECT_EQ(shared->output(), RKVLogDefaultOutput::sharedInstance());

  RKVLog log("Tag", nullptr, nullptr, false);
  EXPECT_EQ(log.dataSource(), RKVLogDefaultDataSource::sharedInstance());
  for (int64_t level : {0, 1, 2, 3, 7, -1})
    EXPECT_FALSE(log.isLoggingEnabledForLevel(level)) << level;
  auto output = std::make_shared<Recorder>();
  log.setOutput(output);
  logAllLevels(log);
  log.setDebugLoggingEnabled(true);
  logAllLevels(log);
  EXPECT_EQ(output->lines(), std::vector<std::string>{"0:Tag:d"});

  // Without a data source or an output nothing is written and nothing breaks.
  log.setDataSource(nullptr);
  log.setOutput(nullptr);
  EXPECT_FALSE(log.isLoggingEnabledForLevel(2));
  logAllLevels(log);
}

TEST(RKVLogTest, FormattedMessagesAndStackTraces) {
  auto output = std::make_shared<Recorder>(std::set<int64_t>{1, 2, 3});
  RKVLog log("T", output, output, true);
  log.logDebugWithFormat("Event '{}' is {}", "start", 5);
  log.logInfoWithFormat("{}/{}", "(null)", 2.5);
  log.logErrorWithFormat("code={}", int64_t{-9000000000});
  log.logWarningWithFormat("{{}}");
  EXPECT_EQ(output->lines(), (std::vector<std::string>{"0:T:Event 'start' is 5", "1:T:(null)/2.5",
                                                       "2:T:code=-9000000000", "3:T:{}"}));

  log.setDebugLoggingEnabled(false);
  log.logStackTrack();  // debug is off
  EXPECT_EQ(output->lines().size(), 4u);
  log.logStackTrackWithLevel(2);
  ASSERT_EQ(output->lines().size(), 5u);
  const std::string trace = output->lines().back();
  ASSERT_TRUE(trace.starts_with("2:T:\n\t")) << trace;
  size_t frames = 0;
  for (size_t at = trace.find("\n\t"); at != std::string::npos; at = trace.find("\n\t", at + 2))
    ++frames;
  EXPECT_GE(frames, 3u);  // this test, GoogleTest, main at least
  EXPECT_EQ(trace.find("\n\t\n\t"), std::string::npos);
}

TEST(RKVLogTest, PropertiesCanBeSwappedWhileOtherThreadsLog) {
  auto first = std::make_shared<Recorder>(std::set<int64_t>{1});
  auto second = std::make_shared<Recorder>(std::set<int64_t>{1});
  RKVLog log("A", first, first, true);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&log] {
      for (int i = 0; i < 200; ++i)
        log.logInfo("x");
    });
  }
  for (int i = 0; i < 100; ++i) {
    log.setOutput(i % 2 ? first : second);
    log.setTag(i % 2 ? "A" : "B");
    log.setDataSource(i % 2 ? second : first);
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(first->lines().size() + second->lines().size(), 800u);
}

TEST(RKVLogDefaultOutputTest, WritesOneFormattedLinePerMessage) {
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&buffer, &size);
  ASSERT_NE(stream, nullptr);
  const auto at = std::chrono::system_clock::time_point(std::chrono::seconds(14 * 3600 + 239));
  const auto utc = RKVCalendar::withUTCOffset(std::chrono::seconds(0));
  {
    RKVLogDefaultOutput output(
        stream, [at] { return at; }, utc);
    EXPECT_EQ(output.currentTime(), "14:03:59");
    const char* lines[] = {"14:03:59 RKVCoreKit[DEBUG] Failed", "14:03:59 RKVCoreKit[INFO] Failed",
                           "14:03:59 RKVCoreKit[ERROR] Failed",
                           "14:03:59 RKVCoreKit[WARNING] Failed"};
    for (int64_t level = 0; level < 4; ++level)
      EXPECT_EQ(output.generateLog("Failed", level, "RKVCoreKit"), lines[level]);
    EXPECT_EQ(output.generateLog("Failed", 7, "T"), "14:03:59 T[(null)] Failed");
    EXPECT_EQ(output.generateLog("", -1, ""), "14:03:59 [(null)] ");
    output.logMessage("multi\nline", 3, "T");
    output.logMessage(std::string_view("cut\0here", 8), 1, "T");
  }
  std::fclose(stream);
  EXPECT_EQ(std::string(buffer, size), "14:03:59 T[WARNING] multi\nline\n14:03:59 T[INFO] cut\n");
  std::free(buffer);
  // Without a stream nothing is written.
  RKVLogDefaultOutput(
      nullptr, [at] { return at; }, utc)
      .logMessage("nowhere", 1, "T");
}

}  // namespace
}  // namespace rkv
