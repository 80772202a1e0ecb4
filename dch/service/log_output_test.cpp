#include "dch/service/log_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>

#include "dch/testkit/log_pipe.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::LogPipe;

// As another program leaves it that has it too.
LogPipe openPipeThatDoesNotWait() {
  LogPipe pipe;
  EXPECT_EQ(fcntl(pipe.descriptor(), F_SETFL, O_NONBLOCK), 0);
  return pipe;
}

LogPipe openSocketPair() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string line(int number) {
  return "line " + std::to_string(number) + " " + std::string(100, 'x') + "\n";
}

std::ptrdiff_t threadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

struct Kind {
  const char* name;
  LogPipe (*open)();
};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

class LogOutputTest : public ::testing::TestWithParam<Kind> {
 protected:
  // Writes lines, of which nobody reads any, until one is dropped. Returns the others.
  std::string fill() {
    std::string lines, last;
    for (int number = 0; _output->dropped() == 0 && number < 1'000'000; ++number) {
      lines += last;
      _output->write(Priority::info, last = line(number));
    }
    return lines;
  }

  const LogPipe _pipe = GetParam().open();
  std::optional<LogOutput> _output{_pipe.descriptor()};
};

TEST_P(LogOutputTest, WritesInOrder) {
  _output->write(Priority::info, "first\n");
  _output->write(Priority::info, "second\n");
  EXPECT_EQ(_pipe.read(13), "first\nsecond\n");
  EXPECT_EQ(_output->dropped(), 0u);
}

TEST_P(LogOutputTest, NeverWaitsForAReaderAndLosesOnlyWhatItCounts) {
  const std::string expected = fill();
  EXPECT_EQ(_output->dropped(), 1u);
  EXPECT_GE(expected.size(), LogOutput::mostWaiting);
  EXPECT_EQ(_pipe.read(expected.size()), expected);
  _output->write(Priority::info, "again\n");
  EXPECT_EQ(_pipe.read(6), "again\n");
  EXPECT_EQ(_output->dropped(), 1u);
}

TEST_P(LogOutputTest, WritesWhatWaitsBeforeItEnds) {
  std::string expected;
  for (int number = 0; number < 100; ++number) {
    expected += line(number);
    _output->write(Priority::info, line(number));
  }
  _output.reset();
  EXPECT_EQ(_pipe.read(expected.size()), expected);
}

TEST_P(LogOutputTest, EndsThoughNobodyReadsAndWritesNoMoreThen) {
  const std::string expected = fill();
  const std::ptrdiff_t threads = threadCount();  // with the log's
  _output.reset();
  // Now somebody reads: the thread finishes what it is at, and ends.
  EXPECT_EQ(fcntl(_pipe.reader(), F_SETFL, O_NONBLOCK), 0);
  std::string written;
  EXPECT_TRUE(waitUntil([&] {
    const bool isLast = threadCount() < threads;
    written += _pipe.read(expected.size());
    return isLast;
  }));
  EXPECT_LT(written.size(), expected.size());
  EXPECT_TRUE(expected.starts_with(written));
}

TEST_P(LogOutputTest, TakesATextThatIsLongAsLongAsThereIsAnyRoom) {
  const std::string report = std::string(2 * LogOutput::mostWaiting, 'x') + '\n';
  _output->write(Priority::info, line(0));
  _output->write(Priority::notice, report);
  _output->write(Priority::info, line(1));
  EXPECT_EQ(_output->dropped(), 1u);
  EXPECT_EQ(_pipe.read(line(0).size() + report.size()), line(0) + report);
}

INSTANTIATE_TEST_SUITE_P(Each, LogOutputTest,
                         ::testing::Values(Kind{"Pipe", [] { return LogPipe(); }},
                                           Kind{"PipeThatDoesNotWait", openPipeThatDoesNotWait},
                                           Kind{"Socket", openSocketPair}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(LogOutputToADescriptorTest, LeavesItAsItIs) {
  const LogPipe pipe;
  const int flags = fcntl(pipe.descriptor(), F_GETFL);
  const LogOutput output(pipe.descriptor());
  EXPECT_EQ(fcntl(pipe.descriptor(), F_GETFL), flags);
}

TEST(LogOutputToADescriptorTest, CountsWhatCannotBeWritten) {
  const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  LogOutput output(full.get());
  for (std::uint64_t lost = 1; lost <= 3; ++lost) {
    output.write(Priority::info, "lost\n");
    EXPECT_TRUE(waitUntil([&] { return output.dropped() == lost; })) << lost;
  }
}

}  // namespace
}  // namespace dch
