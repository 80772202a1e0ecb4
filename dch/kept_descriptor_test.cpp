#include "dch/kept_descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "tests/support/descriptor_limit.h"

namespace dch {
namespace {

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  int ends[2];
};

TEST(KeptDescriptorTest, CopiesWhenNoDescriptorIsFree) {
  const Pipe pipe;
  const KeptDescriptor kept;
  const DescriptorLimit limit(0);
  ASSERT_LT(dup(pipe.ends[1]), 0);
  for (int round = 0; round < 3; ++round) {
    const int copy = kept.lend(pipe.ends[1]);
    ASSERT_GE(copy, 0);
    EXPECT_EQ(write(copy, "x", 1), 1);
    char byte = '\0';
    EXPECT_EQ(read(pipe.ends[0], &byte, 1), 1);
    kept.takeBack();
  }
}

TEST(KeptDescriptorTest, ACopyThatIsTakenBackKeepsNothingOpen) {
  Pipe pipe;
  const KeptDescriptor kept;
  kept.lend(pipe.ends[1]);
  kept.takeBack();
  close(std::exchange(pipe.ends[1], -1));
  char byte = '\0';
  EXPECT_EQ(read(pipe.ends[0], &byte, 1), 0) << "the end of the pipe";
}

TEST(KeptDescriptorTest, CannotLendWhatIsNotOpen) {
  const KeptDescriptor kept;
  EXPECT_LT(kept.lend(1'000'000), 0);
}

TEST(KeptDescriptorTest, SaysWhenThereIsNoneToKeep) {
  if (!canRunWithoutDescriptors) GTEST_SKIP() << "the sanitizers need descriptors of their own";
  const DescriptorLimit limit(1);
  EXPECT_THROW(KeptDescriptor(), std::system_error);
}

}  // namespace
}  // namespace dch
