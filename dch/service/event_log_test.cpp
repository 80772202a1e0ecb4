#include "dch/service/event_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace dch {
namespace {

std::string written(bool enabled, const std::string& text) {
  ::testing::internal::CaptureStderr();
  LogOutput output(STDERR_FILENO);
  EventLog(enabled, output).write("%s", text.c_str());
  return ::testing::internal::GetCapturedStderr();
}

TEST(EventLogTest, WritesALineWithItsTime) {
  EXPECT_THAT(written(true, "hello"),
              ::testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z "
                                      "zordchd: hello\n"));
}

TEST(EventLogTest, WritesNothingUnlessEnabled) {
  EXPECT_EQ(written(false, "hello"), "");
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
