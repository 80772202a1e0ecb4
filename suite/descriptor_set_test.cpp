#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>

#include "suite/descriptor_set.h"
#include "tests/support/failing_calls.h"

namespace {

// Whether a set is made when the first allocation fails.
bool isMadeWithoutMemory(int highest) {
  ZOR0_DescriptorSet set;
  planFault({SystemCall::memory, 1, ENOMEM, ENOMEM});
  const UnderTest underTest;
  return set.reset(highest);
}

TEST(DescriptorSet, HoldsWhatWasAdded) {
  ZOR0_DescriptorSet set;
  ASSERT_TRUE(set.reset(100));
  set.add(0);
  set.add(100);
  EXPECT_TRUE(set.contains(0));
  EXPECT_TRUE(set.contains(100));
  EXPECT_FALSE(set.contains(99));
  ASSERT_TRUE(set.reset(100));
  EXPECT_FALSE(set.contains(100));
}

TEST(DescriptorSet, IgnoresDescriptorsItHasNoRoomFor) {
  ZOR0_DescriptorSet set;
  ASSERT_TRUE(set.reset(10));
  for (const int descriptor : {-1, -999, 5000, 2000000000}) {
    set.add(descriptor);
    EXPECT_FALSE(set.contains(descriptor));
  }
  ASSERT_TRUE(set.reset(-999));
  EXPECT_FALSE(set.contains(0));
}

TEST(DescriptorSet, IsLaidOutAsTheSystemsOwn) {
  fd_set set;
  FD_ZERO(&set);
  for (const int descriptor : {0, 31, 32, 63, 64, FD_SETSIZE - 1}) {
    EXPECT_FALSE(ZOR0_HasDescriptor(&set, descriptor));
    ZOR0_AddDescriptor(&set, descriptor);
    EXPECT_TRUE(FD_ISSET(descriptor, &set)) << descriptor;
    EXPECT_TRUE(ZOR0_HasDescriptor(&set, descriptor));
  }
  ZOR0_AddDescriptor(&set, -999);
  EXPECT_FALSE(ZOR0_HasDescriptor(&set, -999));
}

TEST(DescriptorSet, SelectsOnADescriptorBeyondFdSetSize) {
  constexpr int high = FD_SETSIZE + 100;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max <= high) GTEST_SKIP() << "this process may not open so many files";
  if (limit.rlim_cur <= high) {
    limit.rlim_cur = high + 1;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }

  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(dup2(ends[0], high), high);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  ZOR0_DescriptorSet set;
  ASSERT_TRUE(set.reset(high));
  set.add(high);
  timeval patience{10, 0};
  EXPECT_EQ(select(high + 1, set.get(), nullptr, nullptr, &patience), 1);
  EXPECT_TRUE(set.contains(high));
  for (const int descriptor : {ends[0], ends[1], high}) close(descriptor);
}

TEST(DescriptorSet, NeedsMemoryForDescriptorsBeyondFdSetSizeOnly) {
  EXPECT_TRUE(isMadeWithoutMemory(FD_SETSIZE - 1));
  EXPECT_FALSE(isMadeWithoutMemory(FD_SETSIZE));
}

TEST(DescriptorSet, CanBeMadeSmallAgain) {
  ZOR0_DescriptorSet set;
  ASSERT_TRUE(set.reset(FD_SETSIZE));
  set.add(FD_SETSIZE);
  ASSERT_TRUE(set.reset(3));
  set.add(FD_SETSIZE);
  EXPECT_FALSE(set.contains(FD_SETSIZE));
  set.add(3);
  EXPECT_TRUE(FD_ISSET(3, set.get()));
}

}  // namespace
