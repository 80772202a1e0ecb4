#include "dch/service/event_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dch/testkit/log_pipe.h"
#include "tests/support/temporary_files.h"
#include "tests/support/text_count.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

std::string written(bool enabled, const std::string& text) {
  testkit::LogPipe pipe;
  {
    LogOutput output(pipe.descriptor());
    EventLog(enabled, output).write("%s", text.c_str());
  }
  return pipe.content();
}

TEST(EventLogTest, WritesALineWithItsTime) {
  EXPECT_THAT(written(true, "hello"),
              ::testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z "
                                      "zordchd: hello\n"));
}

TEST(EventLogTest, WritesNothingUnlessEnabled) {
  EXPECT_EQ(written(false, "hello"), "");
}

TEST(EventLogTest, LeavesOutLinesOfAFloodAndCountsThem) {
  const TemporaryFile file("");
  const Descriptor descriptor(open(file.path().c_str(), O_WRONLY | O_CLOEXEC));
  LogOutput output(descriptor.get());
  const EventLog log(true, output);
  constexpr int lines = 50'000;
  for (int i = 0; i < lines; ++i) log.write("flood");
  log.warn("important");
  EXPECT_TRUE(waitUntil([&] { return file.content().ends_with(" important\n"); }));
  const std::string text = file.content();
  EXPECT_GT(output.dropped(), 0u);
  EXPECT_EQ(countOf(" flood\n", text) + static_cast<int>(output.dropped()), lines);
  EXPECT_EQ(countOf(" important\n", text), 1);
}

TEST(LineLimitTest, AdmitsManyLinesAtATimeAndThenNoneForAWhile) {
  LineLimit limit;
  const auto start = LineLimit::Clock::now();
  for (int i = 0; i < LineLimit::mostAtATime; ++i) EXPECT_TRUE(limit.admit(start));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(limit.admit(start));
  EXPECT_FALSE(limit.admit(start + std::chrono::seconds(1)));
  EXPECT_TRUE(limit.admit(start + std::chrono::seconds(10)));
  EXPECT_EQ(limit.takeLeftOut(), 4u);
  EXPECT_EQ(limit.takeLeftOut(), 0u);
}

TEST(LineLimitTest, AdmitsFewLinesForEver) {
  LineLimit limit;
  auto time = LineLimit::Clock::now();
  for (int i = 0; i < 5 * LineLimit::mostAtATime; ++i)
    EXPECT_TRUE(limit.admit(time += LineLimit::pause));
}

TEST(EventLogTest, CutsALineThatIsTooLongAndEndsIt) {
  const std::string line = written(true, std::string(5000, 'x'));
  EXPECT_LT(line.size(), 2000u);
  EXPECT_EQ(line.substr(line.size() - 2), "x\n");
}

TEST(PrintableTest, ShowsBytesThatCouldForgeALine) {
  EXPECT_EQ(printable("HOSTMON 1"), "HOSTMON 1");
  EXPECT_EQ(printable("a\nb\x1b[2J\xff"), "a\\x0ab\\x1b[2J\\xff");
}

}  // namespace
}  // namespace dch
