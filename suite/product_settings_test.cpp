#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <string>
#include <thread>

#include "suite/product_settings.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/trace_capture.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

std::string setting(int item) {
  const char* text = ZOR0_QueryProductSpec(item);
  return text != nullptr ? text : "none";
}

TEST(ProductSettings, AreReadFromTheFile) {
  const SettingsFile file;
  file.write("22=1919\n23=5000\n0=\n3=MON=ITOR");
  EXPECT_EQ(setting(22), "1919");
  EXPECT_EQ(setting(23), "5000");
  EXPECT_EQ(setting(0), "");
  EXPECT_EQ(setting(3), "MON=ITOR");
  EXPECT_EQ(setting(2), "none");
}

TEST(ProductSettings, OnlyTheProductNameHasADefault) {
  const SettingsFile file;
  EXPECT_EQ(setting(3), "ZORA");
  for (const int item : {0, 22, 23, -1}) EXPECT_EQ(setting(item), "none");
}

TEST(ProductSettings, AnUpdateIsSeenByTheNextQuery) {
  const SettingsFile file;
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "49219"), 1);
  EXPECT_EQ(setting(22), "49219");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "50219"), 1);
  EXPECT_EQ(setting(22), "50219");
  EXPECT_EQ(file.content(), "22=50219\n");
}

TEST(ProductSettings, AnUpdateKeepsEveryOtherLine) {
  const SettingsFile file;
  file.write("# settings of this system\n\n22=1\n no setting\n222=3\n0=x");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2"), 1);
  EXPECT_EQ(ZOR0_UpdateProductSpec(23, "1000"), 1);
  EXPECT_EQ(file.content(),
            "# settings of this system\n\n22=2\n no setting\n222=3\n0=x\n23=1000\n");
}

TEST(ProductSettings, AnUpdateKeepsTheModeOfTheFile) {
  const SettingsFile file;
  file.write("22=1\n");
  ASSERT_EQ(chmod(file.path().c_str(), 0640), 0);
  ASSERT_EQ(ZOR0_UpdateProductSpec(22, "2"), 1);
  struct stat status;
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST(ProductSettings, AnUpdateThroughALinkReplacesWhatItLeadsTo) {
  const SettingsFile file;
  const std::string target = file.folder().path() + "/target";
  std::ofstream(target) << "22=1\n";
  std::filesystem::create_symlink(target, file.path());
  ASSERT_EQ(ZOR0_UpdateProductSpec(22, "2"), 1);
  EXPECT_TRUE(std::filesystem::is_symlink(file.path()));
  EXPECT_EQ(file.content(), "22=2\n");
}

TEST(ProductSettings, WhatADeadProcessLeftIsNoHindrance) {
  const SettingsFile file;
  std::ofstream(file.path() + ".new") << "half a li";
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2"), 1);
  EXPECT_EQ(file.content(), "22=2\n");
  EXPECT_FALSE(std::filesystem::exists(file.path() + ".new"));
}

TEST(ProductSettings, ATextWithALineEndOrNullIsRefused) {
  const SettingsFile file;
  file.write("22=1\n");
  const TraceCapture trace("0x80");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2\n23=7"), 0);
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2\r"), 0);
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, nullptr), 0);
  EXPECT_EQ(file.content(), "22=1\n");
  EXPECT_EQ(trace.count("Error: product setting 22: the text is NULL or holds a line end\n"), 3);
}

TEST(ProductSettings, AFileThatCannotBeWrittenIsReported) {
  const SettingsFile file;
  const std::string path = file.folder().path() + "/no such folder/product.spec";
  setenv("ZOR0_PRODUCT_SPEC", path.c_str(), 1);
  const TraceCapture trace("0x80");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2"), 0);
  EXPECT_THAT(trace.texts(),
              ElementsAre(StartsWith("Error: writing product settings <" + path + ">, errno=2")));
}

TEST(ProductSettings, AFileThatCannotBeReadIsReportedAndNotReplaced) {
  const SettingsFile file;
  std::filesystem::create_directory(file.path());
  const TraceCapture trace("0x80");
  EXPECT_EQ(setting(22), "none");
  EXPECT_EQ(setting(3), "ZORA");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "2"), 0);
  EXPECT_TRUE(std::filesystem::is_directory(file.path()));
  EXPECT_EQ(trace.texts().size(), 3u);
}

TEST(ProductSettings, AreKeptInMemoryWithoutAFile) {
  if (std::filesystem::exists("/var/lib/zord410/product.spec"))
    GTEST_SKIP() << "this machine has product settings, which a test must not change";
  unsetenv("ZOR0_PRODUCT_SPEC");
  EXPECT_EQ(setting(22), "none");
  EXPECT_EQ(ZOR0_UpdateProductSpec(22, "7"), 1);
  EXPECT_EQ(ZOR0_UpdateProductSpec(3, "MONITOR"), 1);
  EXPECT_EQ(setting(22), "7");
  EXPECT_EQ(setting(3), "MONITOR");
}

TEST(ProductSettings, ATextStaysWhileOtherItemsAreAskedFor) {
  const SettingsFile file;
  file.write("22=first\n23=second\n");
  const char* first = ZOR0_QueryProductSpec(22);
  const char* second = ZOR0_QueryProductSpec(23);
  std::thread([] {
    EXPECT_EQ(ZOR0_UpdateProductSpec(22, "third"), 1);
    EXPECT_EQ(setting(22), "third");
  }).join();
  EXPECT_STREQ(first, "first");
  EXPECT_STREQ(second, "second");
}

// Updates `count` items from `first` on, one after the other, several times over.
void updateItems(int first, int count) {
  for (int round = 1; round <= 5; ++round)
    for (int item = first; item < first + count; ++item)
      EXPECT_EQ(ZOR0_UpdateProductSpec(item, std::to_string(round * 1000 + item).c_str()), 1);
}

void expectUpdated(int first, int count) {
  for (int item = first; item < first + count; ++item)
    EXPECT_EQ(setting(item), std::to_string(5000 + item));
}

TEST(ProductSettings, UpdatesOfSeveralProcessesLoseNothing) {
  const SettingsFile file;
  std::list<Process> children;
  for (const int first : {100, 200})
    children.emplace_back([first] {
      updateItems(first, 10);
      return testing::Test::HasFailure() ? 1 : 0;
    });
  for (Process& child : children) {
    const ProcessResult result = child.finish();
    EXPECT_EQ(result.exitStatus, 0) << result.standardOutput;
  }
  expectUpdated(100, 10);
  expectUpdated(200, 10);
}

TEST(ProductSettings, UpdatesOfSeveralThreadsLoseNothing) {
  const SettingsFile file;
  std::thread other([] { updateItems(100, 10); });
  updateItems(200, 10);
  other.join();
  expectUpdated(100, 10);
  expectUpdated(200, 10);
}

TEST(ProductSettings, AReaderSeesTheOldFileOrTheNewOne) {
  const SettingsFile file;
  const std::string texts[] = {std::string(20000, 'a'), std::string(20000, 'b')};
  ASSERT_EQ(ZOR0_UpdateProductSpec(22, texts[0].c_str()), 1);
  const Process writer([&]() -> int {
    for (unsigned i = 1;; ++i) ZOR0_UpdateProductSpec(22, texts[i % 2].c_str());
  });
  std::string seen = texts[0];
  for (int changes = 0; changes < 20;) {
    const std::string before = seen;
    seen = setting(22);
    if (seen != texts[0] && seen != texts[1]) break;
    changes += seen != before;
  }
  EXPECT_TRUE(seen == texts[0] || seen == texts[1]) << seen.size();
}

}  // namespace
