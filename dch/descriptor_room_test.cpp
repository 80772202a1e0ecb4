#include "dch/descriptor_room.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace dch {
namespace {

int lowestFree() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

void limitOpenFiles(int soft, int hard) {
  const rlimit limit{static_cast<rlim_t>(soft), static_cast<rlim_t>(hard)};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// How many can be opened.
int countRoom() {
  std::vector<int> opened;
  int descriptor;
  while ((descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0) opened.push_back(descriptor);
  for (const int one : opened) close(one);
  return static_cast<int>(opened.size());
}

TEST(DescriptorRoomTest, RaisesALimitThatIsTooLow) {
  limitOpenFiles(lowestFree() + 2, lowestFree() + 100);
  EXPECT_EQ(makeDescriptorRoom(20).free, 20);
  EXPECT_GE(countRoom(), 20);
}

TEST(DescriptorRoomTest, LeavesALimitThatIsHighEnough) {
  limitOpenFiles(lowestFree() + 50, lowestFree() + 100);
  EXPECT_EQ(makeDescriptorRoom(20).free, 20);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(limit.rlim_cur, static_cast<rlim_t>(lowestFree() + 50));
}

TEST(DescriptorRoomTest, RaisesItAsFarAsItMayAndTellsWhatWouldBeEnough) {
  limitOpenFiles(lowestFree() + 2, lowestFree() + 5);
  const DescriptorRoom room = makeDescriptorRoom(20);
  EXPECT_EQ(room.free, 5);
  EXPECT_GE(room.limitToAsk, lowestFree() + 20);
  EXPECT_EQ(countRoom(), 5);
}

TEST(DescriptorRoomTest, CountsHighNumbersThatAreOpen) {
  const int first = lowestFree();
  ASSERT_EQ(dup2(STDERR_FILENO, first + 3), first + 3);
  limitOpenFiles(first + 2, first + 5);
  EXPECT_EQ(makeDescriptorRoom(5).free, 4);
  EXPECT_EQ(countRoom(), 4);
}

}  // namespace
}  // namespace dch
