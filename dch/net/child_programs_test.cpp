#include "dch/net/child_programs.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "tests/support/wait_until.h"

namespace dch {
namespace {

TEST(ChildProgramsTest, TellsEachProgramThatHasEndedOnce) {
  ChildPrograms programs;
  EXPECT_EQ(programs.start(3, {"/bin/sh", "-c", "exit 3"}), "");
  EXPECT_EQ(programs.start(4, {"/bin/sh", "-c", "exit 4"}), "");
  EXPECT_EQ(programs.start(5, {"/bin/sleep", "1000"}), "");
  std::vector<std::pair<ZORA_Long, ZORA_Long>> ended;
  const auto collect = [&] {
    programs.collect([&](ZORA_Long id, ZORA_Long result) { ended.emplace_back(id, result); });
    return ended.size() >= 2;
  };
  EXPECT_TRUE(waitUntil(collect));
  collect();
  std::sort(ended.begin(), ended.end());
  EXPECT_EQ(ended, (std::vector<std::pair<ZORA_Long, ZORA_Long>>{{3, 3}, {4, 4}}));
}

TEST(ChildProgramsTest, TellsWhyAProgramCannotBeStarted) {
  ChildPrograms programs;
  EXPECT_NE(programs.start(1, {"/nowhere/program"}).find("/nowhere/program"), std::string::npos);
  EXPECT_EQ(programs.start(1, {"/bin/true"}), "") << "its ID is free";
}

}  // namespace
}  // namespace dch
