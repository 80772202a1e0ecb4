#include "dch/journal.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "dch/service/event_log.h"
#include "dch/service/log_output.h"

namespace dch {
namespace {

std::string numbersOf(int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

// Standard error is a file from now on, which JOURNAL_STREAM names.
void takeStandardErrorForTheJournal() {
  ::testing::internal::CaptureStderr();
  setenv("JOURNAL_STREAM", numbersOf(STDERR_FILENO).c_str(), 1);
}

TEST(JournalTest, IsWhatItsVariableNames) {
  ::testing::internal::CaptureStderr();
  unsetenv("JOURNAL_STREAM");
  EXPECT_FALSE(isJournal(STDERR_FILENO));
  for (const char* other : {"", "8:1", "journal"}) {
    setenv("JOURNAL_STREAM", other, 1);
    EXPECT_FALSE(isJournal(STDERR_FILENO)) << other;
  }
  setenv("JOURNAL_STREAM", numbersOf(STDERR_FILENO).c_str(), 1);
  EXPECT_TRUE(isJournal(STDERR_FILENO));
  EXPECT_FALSE(isJournal(STDIN_FILENO));
  EXPECT_FALSE(isJournal(-1));
  ::testing::internal::GetCapturedStderr();
}

TEST(JournalTest, HasThePriorityWithEachLine) {
  EXPECT_EQ(withPriority(Priority::error, "one\n"), "<3>one\n");
  EXPECT_EQ(withPriority(Priority::warning, "one\n\n  two\n"), "<4>one\n<4>\n<4>  two\n");
  EXPECT_EQ(withPriority(Priority::notice, ""), "");
  EXPECT_EQ(withPriority(Priority::info, "no end"), "<6>no end\n");
}

TEST(JournalTest, HasThePriorityOfWhatIsPrinted) {
  takeStandardErrorForTheJournal();
  printLines(Priority::error, withName("one\ntwo"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<3>zordchd: one\n<3>zordchd: two\n");
}

TEST(JournalTest, HasThePriorityOfEventsAndReports) {
  takeStandardErrorForTheJournal();
  LogOutput output(STDERR_FILENO);
  const EventLog log(true, output);
  log.write("event");
  log.warn("warning");
  output.write(Priority::notice, "report\n  of lines\n");
  const std::string text = ::testing::internal::GetCapturedStderr();
  EXPECT_TRUE(text.starts_with("<6>20")) << text;
  EXPECT_NE(text.find(" zordchd: event\n<4>20"), std::string::npos) << text;
  EXPECT_TRUE(text.ends_with(" zordchd: warning\n<5>report\n<5>  of lines\n")) << text;
}

TEST(JournalTest, AloneHasPriorities) {
  ::testing::internal::CaptureStderr();
  setenv("JOURNAL_STREAM", "8:1", 1);
  printLines(Priority::error, "zordchd: one\n");
  LogOutput(STDERR_FILENO).write(Priority::notice, "report\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "zordchd: one\nreport\n");
}

}  // namespace
}  // namespace dch
