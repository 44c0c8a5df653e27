#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;

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
  const struct {
    const char* name;
    void (*spoil)(const std::string& path);
  } cases[] = {
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
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
    c.spoil(path);

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
        if (i % 10 == 0) {
          EXPECT_TRUE(defaults->synchronize());
        }
      }
    });
  }  // the destructor writes what is left
  EXPECT_EQ(openDefaults(path)->dictionaryRepresentation().size(), 200u);
}

}  // namespace
}  // namespace rkv
