#include "dch/service/log_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "dch/net/descriptor.h"

namespace dch {
namespace {

struct Ends {
  Descriptor reading, writing;
};

Ends openPipe() {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Ends openSocketPair() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string line(int number) {
  return "line " + std::to_string(number) + " " + std::string(100, 'x') + "\n";
}

// What is there, up to `count` bytes.
std::string readSome(const Ends& ends, std::size_t count) {
  std::string bytes(count, '\0');
  const ssize_t got = read(ends.reading.get(), bytes.data(), count);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return bytes;
}

// Writes lines, of which nobody reads any, until some are dropped; returns the number written.
int writeUntilDropped(LogOutput* output) {
  int number = 0;
  while (output->dropped() == 0 && number < 1'000'000)
    output->write(Priority::info, line(number++));
  return number;
}

// Lets nobody read until a line is lost: it is the last one, and it is counted.
void expectToLoseOnlyTheLastLine(const Ends& ends, LogOutput* output) {
  const int written = writeUntilDropped(output);
  EXPECT_EQ(output->dropped(), 1u);
  std::string expected, all;
  for (int i = 0; i < written - 1; ++i) expected += line(i);
  while (all.size() < expected.size()) {
    all += readSome(ends, 65'536);
    output->flush();
  }
  EXPECT_EQ(all, expected);
}

class LogOutputTest : public ::testing::TestWithParam<Ends (*)()> {
 protected:
  const Ends _ends = GetParam()();
  LogOutput _output{_ends.writing.get()};
};

TEST_P(LogOutputTest, WritesAtOnce) {
  _output.write(Priority::info, "first\n");
  _output.write(Priority::info, "second\n");
  EXPECT_EQ(readSome(_ends, 100), "first\nsecond\n");
  EXPECT_EQ(_output.dropped(), 0u);
}

TEST_P(LogOutputTest, NeverWaitsForAReaderAndLosesOnlyWhatItCounts) {
  expectToLoseOnlyTheLastLine(_ends, &_output);
  _output.write(Priority::info, "again\n");
  EXPECT_EQ(readSome(_ends, 100), "again\n");
}

TEST_P(LogOutputTest, LeavesTheDescriptorOfOthersAsItIs) {
  EXPECT_EQ(fcntl(_ends.writing.get(), F_GETFL) & O_NONBLOCK, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, LogOutputTest, ::testing::Values(openPipe, openSocketPair),
                         [](const auto& kind) { return kind.index == 0 ? "Pipe" : "Socket"; });

TEST(LogOutputToADescriptorTest, DoesNotWaitForAPipeThatItCannotOpenAgain) {
  const Ends ends = openPipe();
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit noMoreFiles{0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &noMoreFiles), 0);
  LogOutput output(ends.writing.get());
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  expectToLoseOnlyTheLastLine(ends, &output);
}

TEST(LogOutputToADescriptorTest, CountsWhatCannotBeWritten) {
  const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  LogOutput output(full.get());
  output.write(Priority::info, "lost\n");
  EXPECT_EQ(output.dropped(), 1u);
}

}  // namespace
}  // namespace dch
